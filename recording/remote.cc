#include "recording/remote.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace quarlo::recording {

std::optional<Damage> RemoteReader::add(const NamedFile& file) {
  Lines lines(file.file, file.name);
  const std::size_t before = recording_.size();
  std::optional<Damage> damage = lines.forEach([&] { addLine(lines); });
  if (recording_.size() != before) return damage;
  throw Error(damage ? damage->problem : file.name + ": no lines: there is nothing to play");
}

void RemoteReader::addLine(const Lines& lines) {
  std::string_view rest = lines.text();
  const microseconds last = recording_.empty() ? microseconds(0) : recording_.back().time;
  const microseconds time = parseTimeSince(lines, takeField(rest), start_, last);
  const std::size_t shortest = lines.isMarked() ? 1 : 2;  // with the blank; a daemon can send an empty line
  if (rest.size() < shortest) lines.fail("nothing follows the time, expected the line that the LIRC daemon sent");
  recording_.push_back({time, texts_.share(lines.unescaped(rest.substr(1)))});
}

}  // namespace quarlo::recording
