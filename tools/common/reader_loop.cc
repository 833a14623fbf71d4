#include "tools/common/reader_loop.h"

#include <linux/input.h>

#include <cerrno>
#include <utility>

#include "tools/common/lirc_line.h"
#include "tools/common/timeval.h"

namespace quarlo::tools {

ReaderLoop::ReaderLoop(LinuxInputReader& reader, PollTimeout timeout, Empty empty)
    : reader_(reader), loop_(reader), sources_(loop_), timeout_(timeout), empty_(empty) {}

int ReaderLoop::join(const std::string& path) {
  sources_.join(further_.emplace_back());
  return sources_.open(further_.back().source(), path.c_str()) ? 0 : errno;
}

void ReaderLoop::wait(int limitMs, int ownFd) {
  if (polls()) {
    timeoutMs_ = *timeout_;
  } else {
    gone_ = loop_.gone();
    loop_.wait(sources_.attend(limitMs), ownFd);
  }
}

bool ReaderLoop::next(InputEvent& event) {
  if (polls()) return poll(event);
  while (loop_.nextRecord(event)) {
    if (event.kind != InputEvent::kNoEvent || isGiven(empty_, origin())) return true;
  }
  return false;
}

bool ReaderLoop::poll(InputEvent& event) {
  do {
    const timeval before = reader_.lircKeyTime;
    event.kind = InputEvent::kNoEvent;
    if (!reader_.readInput(event, std::exchange(timeoutMs_, 0))) return false;
    // The reader marks each of the remote's key-downs with its time.
    polled_ = polledSource(!isSameTime(reader_.lircKeyTime, before));
  } while (event.kind == InputEvent::kNoEvent && empty_ != Empty::kAll);
  return true;
}

std::optional<InputLoop::Source> ReaderLoop::polledSource(bool isRemotes) const {
  if (isRemotes) return InputLoop::kRemote;
  const bool hasMouse = reader_.mouseFd != -1;
  const bool hasKeyboard = reader_.keyboardFd != -1;
  if (hasMouse && hasKeyboard) return std::nullopt;
  return hasMouse ? InputLoop::kMouse : hasKeyboard ? InputLoop::kKeyboard : InputLoop::kRemote;
}

Origin ReaderLoop::origin() const {
  if (polls()) return {polled_, std::nullopt, ""};
  if (loop_.source() == InputLoop::kRemote) return {loop_.source(), std::nullopt, line()};
  const input_event& record = loop_.cause().record;
  return {loop_.source(), recording::Record{microseconds(0), record.type, record.code, record.value}, ""};
}

std::string ReaderLoop::line() const {
  std::string text = loop_.line();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

bool isGiven(ReaderLoop::Empty empty, const Origin& origin) {
  using Empty = ReaderLoop::Empty;
  if (empty == Empty::kEverything) return true;
  if (origin.record) return empty == Empty::kAll && origin.record->type != EV_SYN;
  return empty == Empty::kLines || findUnknown(origin.line);
}

}  // namespace quarlo::tools
