#include "tools/record/counter_line.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "tools/common/terminal_loan.h"

namespace quarlo::tools::record {
namespace {

constexpr std::chrono::milliseconds kPause{100};

bool takesOutput() {
  pollfd look = {STDOUT_FILENO, POLLOUT, 0};
  return isInForeground(STDOUT_FILENO) && poll(&look, 1, 0) == 1 && (look.revents & POLLOUT) != 0;
}

// In the last column, some terminals go on to the next row.
std::size_t widest() {
  constexpr std::size_t kUsual = 80;
  winsize size = {};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return (isKnown ? size.ws_col : kUsual) - 1;
}

}  // namespace

CounterLine::CounterLine() : isTerminal_(isatty(STDOUT_FILENO) != 0) {}

void CounterLine::show(const std::string& text, microseconds now) {
  wanted_ = text;
  if (!isTerminal_ || wanted_ == shown_ || now < earliest_) return;
  shown_ = wanted_;
  earliest_ = now + kPause;
  if (takesOutput()) write(shown_.substr(0, widest()));
}

int CounterLine::limited(int timeoutMs, microseconds now) const {
  if (!isTerminal_ || wanted_ == shown_) return timeoutMs;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(earliest_ - now, microseconds(0)));
  const auto leftMs = static_cast<int>(left.count());
  return timeoutMs == -1 ? leftMs : std::min(timeoutMs, leftMs);
}

void CounterLine::clear() {
  if (used_ != 0 && takesOutput()) {
    write("");
    std::printf("\r");
    std::fflush(stdout);
  }
  used_ = 0;
  shown_.clear();
}

// With blanks over the rest of what was there: not every terminal knows a command for that.
void CounterLine::write(const std::string& text) {
  const std::size_t rest = used_ > text.size() ? used_ - text.size() : 0;
  std::printf("\r%s%s", text.c_str(), std::string(rest, ' ').c_str());
  std::fflush(stdout);
  used_ = text.size();
}

}  // namespace quarlo::tools::record
