// What a command prints, and what must hold of it whatever devices, files and daemons say.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>

#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {

// What is written to a standard stream while this exists.
class Capture {
 public:
  explicit Capture(std::FILE*& stream) : stream_(stream), memory_(open_memstream(&bytes_, &size_)), kept_(stream) {
    require(memory_ != nullptr, "there is memory for what is printed");
    stream_ = memory_;
  }
  ~Capture() {
    stream_ = kept_;
    std::fclose(memory_);
    std::free(bytes_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::string text() const {
    std::fflush(memory_);
    return {bytes_, size_};
  }

 private:
  char* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::FILE*& stream_;
  std::FILE* memory_;
  std::FILE* kept_;
};

struct Printed {
  std::string out;  // to standard output
  std::string err;  // to standard error
};

template <typename Print>
Printed printedBy(const Print& print) {
  const Capture out(stdout);
  const Capture err(stderr);
  print();
  return {out.text(), err.text()};
}

// Nothing that a terminal could take for more than text.
inline void requirePlainLines(const std::string& text) {
  require(std::all_of(text.begin(), text.end(), [](char byte) { return byte == '\n' || (byte >= ' ' && byte <= '~'); }),
          "what is printed is printable ASCII");
  require(text.empty() || text.back() == '\n', "what is printed is whole lines");
}

// As another program reads it: an object a line.
inline void requireJsonLines(const std::string& text) {
  requirePlainLines(text);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    require(nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false).is_object(), "a line is a JSON object");
  }
}

}  // namespace quarlo::fuzz
