#include "tools/monitor/terminal.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <utility>

namespace quarlo::tools::monitor {
namespace {

// What the handlers of fatal signals need. They may call little, and must find all of it ready.
struct {
  char restore[256];
  std::size_t restoreSize = 0;
  int keptErrors = -1;  // the end of the pipe that is read; -1: standard error is not kept
  int standardError = -1;
} shared;

void writeAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, bytes, size);
    if (written < 1) return;
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

// Safe in a signal handler, as is what follows.
void restoreScreen() { writeAll(STDOUT_FILENO, shared.restore, shared.restoreSize); }

void giveBackStandardError() {
  if (shared.keptErrors == -1) return;
  char bytes[512];
  for (ssize_t size = 0; (size = read(shared.keptErrors, bytes, sizeof bytes)) > 0;) {
    writeAll(shared.standardError, bytes, static_cast<std::size_t>(size));
  }
  dup2(shared.standardError, STDERR_FILENO);
}

// Besides Ctrl-C, no key of the keyboard that is tried out may stop the program (Ctrl-Z, Ctrl-\) or its output
// (Ctrl-S).
void quieten(termios& settings) {
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  settings.c_lflag |= ISIG | NOFLSH;  // what a Ctrl-C flushes is output, too
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  settings.c_cc[VQUIT] = _POSIX_VDISABLE;
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
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

Terminal::Terminal()
    : typed_(open("/proc/self/fd/1", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)), loan_(STDOUT_FILENO) {
  keepStandardError();
}

Terminal::~Terminal() {
  if (typed_ != -1) close(typed_);
  giveBackStandardError();
  if (shared.keptErrors == -1) return;
  close(shared.keptErrors);
  close(shared.standardError);
  shared.keptErrors = -1;
}

void Terminal::takeOver(const std::string& restore) {
  shared.restoreSize = restore.copy(shared.restore, sizeof shared.restore);
  loan_.take(quieten, {restoreScreen, giveBackStandardError});
  loan_.followContinuations();  // ncurses follows Ctrl-Z itself
}

// It is read, for a flush can take a Ctrl-C with it that has not become a signal yet.
void Terminal::discardInput() {
  char bytes[256];
  while (read(typed_, bytes, sizeof bytes) > 0) {
  }
}

std::vector<std::string> Terminal::takeErrors() {
  if (shared.keptErrors == -1) return {};
  std::vector<std::string> lines;
  char bytes[4096];
  for (ssize_t size = 0; (size = read(shared.keptErrors, bytes, sizeof bytes)) > 0;) {
    for (std::string& line : errors_.split({bytes, static_cast<std::size_t>(size)})) {
      if (!line.empty()) lines.push_back(std::move(line));
    }
  }
  return lines;
}

}  // namespace quarlo::tools::monitor
