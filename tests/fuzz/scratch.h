// Files of a target's own, the same directory for each input.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {

// A directory, empty at first, that goes at the end of the process. TMPDIR says below which one.
class Scratch {
 public:
  Scratch() : path_((std::filesystem::temp_directory_path() / "quarlo-XXXXXX").string()) {
    require(mkdtemp(path_.data()) != nullptr, "a directory for temporary files can be made");
  }
  ~Scratch() { std::filesystem::remove_all(path_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::string path(const std::string& name) const { return path_ + "/" + name; }

  // Both make the directories above it, too.
  void write(const std::string& name, const std::string& content) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << content;
  }

  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::filesystem::remove(path(name));
    std::filesystem::create_symlink(target, path(name));
  }

 private:
  std::string path_;
};

}  // namespace quarlo::fuzz
