#include "tools/common/reader_loop.h"

#include <linux/input.h>

#include <cerrno>
#include <utility>

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
  if (polls()) {
    event.kind = InputEvent::kNoEvent;
    return reader_.readInput(event, std::exchange(timeoutMs_, 0));
  }
  while (loop_.nextRecord(event)) {
    if (isWanted(event)) return true;
  }
  return false;
}

bool ReaderLoop::isWanted(const InputEvent& event) const {
  if (event.kind != InputEvent::kNoEvent) return true;
  const bool isLine = loop_.source() == InputLoop::kRemote;
  return empty_ == Empty::kLines ? isLine : !isLine && loop_.cause().record.type == EV_KEY;
}

}  // namespace quarlo::tools
