#include "recording/line_splitter.h"

#include <utility>

#include "recording/lines.h"

namespace quarlo::recording {

std::vector<std::string> LineSplitter::split(std::string_view bytes) {
  std::vector<std::string> lines;
  for (const char byte : bytes) {
    if (byte == '\n') {
      lines.push_back(takeRest());
    } else if (rest_.size() < kLongestText) {
      rest_.push_back(byte);
    }
  }
  return lines;
}

std::string LineSplitter::takeRest() { return std::exchange(rest_, {}); }

}  // namespace quarlo::recording
