// A file that is written as a whole: whoever reads it meanwhile finds the old one or the new one, and never a part.
#pragma once

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quarlo::tools {

// Why there is no file, for a person. It can hold a path as it was given: escape it before it reaches a terminal.
class NewFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws NewFileError if the directory of `path` does not exist, or no file can be made in it. `what` the file is, such
// as "the picture", is said with that. Call this before long work.
void checkNewFile(const std::string& path, const char* what);

// One that is being written, beside the place where it belongs.
class NewFile {
 public:
  // As private from the first as a file that is there. Throws NewFileError, as all below, if it cannot.
  NewFile(std::string path, const char* what);

  // Leaves what was there, unless finish() was called.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view bytes);

  // Puts it into its place.
  void finish();

 private:
  [[noreturn]] void fail() const;

  std::string path_;
  const char* what_;
  const std::string unfinished_;  // its path until then
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

}  // namespace quarlo::tools
