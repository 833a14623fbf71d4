#include "recording/line_splitter.h"

#include <utility>

#include "recording/lines.h"

namespace quarlo::recording {

std::vector<std::string> LineSplitter::split(std::string_view bytes) {
  std::vector<std::string> lines;
  for (const char byte : bytes) {
    if (byte == '\n') {
      std::string line = takeRest();
      if (!line.empty()) lines.push_back(std::move(line));
    } else if (byte != '\0' && rest_.size() < kLongestLine) {
      rest_.push_back(byte);
    }
  }
  return lines;
}

std::string LineSplitter::takeRest() {
  std::string line = std::exchange(rest_, {});
  line.erase(line.find_last_not_of('\r') + 1);
  return line;
}

}  // namespace quarlo::recording
