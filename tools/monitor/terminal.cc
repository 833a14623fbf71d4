#include "tools/monitor/terminal.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <utility>

#include "tools/common/stop_request.h"

namespace quarlo::tools {
namespace {

// Those whose default action dumps core; but SIGXFSZ is ignored.
constexpr std::array kFatalSignals = {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGQUIT, SIGSEGV, SIGSYS, SIGTRAP, SIGXCPU};

// What the handler of those signals needs. It may call little, and must find all of it ready.
struct {
  termios settings;
  char restore[256];
  std::size_t restoreSize = 0;
  int keptErrors = -1;  // the end of the pipe that is read; -1: standard error is not kept
  int standardError = -1;
} shared;

// What is put back at the end.
struct {
  std::array<struct sigaction, kFatalSignals.size()> actions;
  stack_t stack;
} before;

// The handler's own stack: the program's may be what has overflowed.
char handlerStack[1 << 16];

void writeAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, bytes, size);
    if (written < 1) return;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

// Safe in a signal handler, as are those below, up to the handler itself.
void giveBackSettings() {
  tcsetattr(STDOUT_FILENO, TCSANOW, &shared.settings);
  tcflush(STDOUT_FILENO, TCIFLUSH);
}

void giveBackStandardError() {
  if (shared.keptErrors == -1) return;
  char bytes[512];
  for (ssize_t size = 0; (size = read(shared.keptErrors, bytes, sizeof bytes)) > 0;) {
    writeAll(shared.standardError, bytes, static_cast<std::size_t>(size));
  }
  dup2(shared.standardError, STDERR_FILENO);
}

void setDefaultAction(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// If the terminal takes nothing any more, a third Ctrl-C ends this, too.
void giveBackAndDie(int signal) {
  setDefaultAction(signal);
  writeAll(STDOUT_FILENO, shared.restore, shared.restoreSize);
  giveBackSettings();
  giveBackStandardError();
  raise(signal);
}

void catchFatalSignals() {
  stack_t stack = {};
  stack.ss_sp = handlerStack;
  stack.ss_size = sizeof handlerStack;
  sigaltstack(&stack, &before.stack);
  struct sigaction action = {};
  action.sa_handler = giveBackAndDie;
  action.sa_flags = SA_ONSTACK;
  for (std::size_t i = 0; i < kFatalSignals.size(); ++i) sigaction(kFatalSignals[i], &action, &before.actions[i]);
  onSecondStopRequest(giveBackAndDie);
}

void leaveFatalSignals() {
  onSecondStopRequest(SIG_DFL);
  for (std::size_t i = 0; i < kFatalSignals.size(); ++i) sigaction(kFatalSignals[i], &before.actions[i], nullptr);
  sigaltstack(&before.stack, nullptr);
}

// Besides Ctrl-C, no key of the keyboard that is tried out may stop the program (Ctrl-Z, Ctrl-\) or its output
// (Ctrl-S).
void quieten() {
  termios settings;
  if (tcgetattr(STDOUT_FILENO, &settings) == -1) return;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  settings.c_lflag |= ISIG | NOFLSH;  // what a Ctrl-C flushes is output, too
  settings.c_cc[VMIN] = 0;            // a read does not wait
  settings.c_cc[VTIME] = 0;
  settings.c_cc[VQUIT] = _POSIX_VDISABLE;
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  tcsetattr(STDOUT_FILENO, TCSANOW, &settings);
}

// A pipe that is full loses what comes, instead of waiting for this process itself.
void keepStandardError() {
  int ends[2];
  shared.keptErrors = -1;
  if (isatty(STDERR_FILENO) == 0 || pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1) return;
  shared.standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  shared.keptErrors = ends[0];
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
}

}  // namespace

Terminal::Terminal() {
  tcgetattr(STDOUT_FILENO, &shared.settings);
  keepStandardError();
}

Terminal::~Terminal() {
  giveBackSettings();
  if (shared.restoreSize != 0) leaveFatalSignals();
  shared.restoreSize = 0;
  giveBackStandardError();
  if (shared.keptErrors == -1) return;
  close(shared.keptErrors);
  close(shared.standardError);
  shared.keptErrors = -1;
}

void Terminal::takeOver(const std::string& restore) {
  shared.restoreSize = restore.copy(shared.restore, sizeof shared.restore);
  catchFatalSignals();
  quieten();
}

// It is read, for a flush can take a Ctrl-C with it that has not become a signal yet.
void Terminal::discardInput() {
  char bytes[256];
  ssize_t size = 0;
  while ((size = read(STDOUT_FILENO, bytes, sizeof bytes)) > 0) {
  }
  if (size == -1) tcflush(STDOUT_FILENO, TCIFLUSH);  // it is open for writing only
}

std::vector<std::string> Terminal::takeErrors() {
  if (shared.keptErrors == -1) return {};
  std::vector<std::string> lines;
  char bytes[4096];
  for (ssize_t size = 0; (size = read(shared.keptErrors, bytes, sizeof bytes)) > 0;) {
    for (std::string& line : errors_.split({bytes, static_cast<std::size_t>(size)})) lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace quarlo::tools
