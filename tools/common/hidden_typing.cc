#include "tools/common/hidden_typing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quarlo::tools {
namespace {

// A shell on the console of a small system often has no controlling terminal, and neither have its programs: then it is
// that of standard input. But what leads a session of its own has left its terminal to others.
bool sharesStandardInput() { return isatty(STDIN_FILENO) != 0 && getsid(0) != getpid(); }

// A way of its own to the terminal, so that reads do not wait.
int openTerminal() {
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int fd = open("/dev/tty", kFlags);
  return fd == -1 && sharesStandardInput() ? open("/proc/self/fd/0", kFlags) : fd;
}

// Single characters, not lines: they can be read, and so thrown away, before Enter is pressed. Ctrl-C stays a signal.
void hideTyping(termios& settings) {
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
}

}  // namespace

HiddenTyping::HiddenTyping() : fd_(openTerminal()) {
  if (fd_ == -1) return;
  loan_ = std::make_unique<TerminalLoan>(fd_);
  loan_->prepare(hideTyping);
  loan_->followStops();
  loan_->takeAgain();
}

HiddenTyping::~HiddenTyping() { close(); }

void HiddenTyping::close() {
  loan_.reset();
  if (fd_ != -1) ::close(std::exchange(fd_, -1));
}

void HiddenTyping::discard() {
  if (fd_ == -1) return;
  loan_->takeAgain();
  if (!loan_->isTaken()) return;
  char bytes[256];
  ssize_t size = 0;
  while ((size = read(fd_, bytes, sizeof bytes)) > 0) {
  }
  const bool goesOn = size == -1 && (errno == EAGAIN || errno == EINTR);
  if (!goesOn) close();  // it was hung up, and would always be readable
}

int HiddenTyping::descriptor() const { return loan_ != nullptr && loan_->isTaken() ? fd_ : -1; }

int HiddenTyping::limited(int timeoutMs) const {
  constexpr int kPauseMs = 250;
  const bool canTakeLater = loan_ != nullptr && !loan_->isTaken();
  return canTakeLater && (timeoutMs == -1 || timeoutMs > kPauseMs) ? kPauseMs : timeoutMs;
}

}  // namespace quarlo::tools
