#include "recording/remote.h"

#include <utility>

namespace quarlo::recording {

std::vector<RemoteLine> readRemote(std::FILE* file, const std::string& name, Start start) {
  Lines lines(file, name);
  Timeline timeline(start);
  std::vector<RemoteLine> recording;
  while (lines.next()) {
    std::string_view rest = lines.text();
    const microseconds time = timeline.parse(lines, takeField(rest));
    if (rest.size() < 2) lines.fail("nothing follows the time, expected the line that the LIRC daemon sent");
    recording.push_back({time, std::string(rest.substr(1))});
  }
  if (recording.empty()) lines.failWhole("no lines: there is nothing to play");
  return recording;
}

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
