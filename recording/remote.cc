#include "recording/remote.h"

namespace quarlo::recording {

std::vector<RemoteLine> readRemote(std::FILE* file, const std::string& name, microseconds start) {
  Lines lines(file, name);
  Timeline timeline(start);
  std::vector<RemoteLine> recording;
  while (lines.next()) {
    std::string_view rest = lines.text();
    const microseconds time = timeline.parse(lines, takeField(rest));
    const std::size_t shortest = lines.isMarked() ? 1 : 2;  // with the blank; a daemon can send an empty line
    if (rest.size() < shortest) lines.fail("nothing follows the time, expected the line that the LIRC daemon sent");
    recording.push_back({time, lines.unescaped(rest.substr(1))});
  }
  if (recording.empty()) lines.failWhole("no lines: there is nothing to play");
  return recording;
}

}  // namespace quarlo::recording
