#include "tools/monitor.h"

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <vector>

#include "input/linux_input_reader.h"
#include "logging/stderr_logging.h"
#include "tools/event_printer.h"
#include "tools/obstacle.h"
#include "tools/output.h"
#include "tools/stop_request.h"
#include "tools/survey.h"

namespace quarlo::tools {
namespace {

using Clock = std::chrono::steady_clock;

// Nothing can ever be opened here: what the reader is given for a source that is left out.
constexpr char kNowhere[] = "/dev/null/left-out";

bool isLeftOut(const SourcePath& source) { return source == kLeaveOut; }

const char* readerArgument(const SourcePath& source) {
  if (!source) return nullptr;
  return isLeftOut(source) ? kNowhere : source->c_str();
}

std::string describeRequest(const SourcePath& source) { return source ? *source : "autodetected"; }

// ---- What is open -------------------------------------------------------------------------------

// The path of an open descriptor: the reader does not tell which node it found.
std::string pathOf(int fd) {
  char path[PATH_MAX];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : "descriptor " + std::to_string(fd);
}

std::string describeNode(const SourcePath& source, int fd) {
  char name[256] = {};
  const bool named = ioctl(fd, EVIOCGNAME(sizeof name - 1), name) != -1;
  return (source ? *source : pathOf(fd)) + (named ? std::string("  ") + name : "");
}

std::string describeSocket(int fd) {
  sockaddr_un address = {};
  socklen_t length = sizeof address;
  getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return {address.sun_path, strnlen(address.sun_path, sizeof address.sun_path)};
}

// The reader opens whatever it is told to. What is no source of records would make it spin, or log an error each time.
bool sendsRecords(int fd) {
  struct stat status;
  if (fstat(fd, &status) == -1) return false;
  int version;
  return S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && ioctl(fd, EVIOCGVERSION, &version) != -1);
}

// ---- Why something is not open ------------------------------------------------------------------

int errnoOfOpening(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (fd == -1) return errno;
  close(fd);
  return 0;
}

int errnoOfConnecting(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  const int result = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = result == -1 ? errno : 0;
  close(fd);
  return error;
}

Obstacle whyNoNodeFits() {
  std::string existing;
  for (int number = 0; number <= kHighestScannedNode; ++number) {
    const std::string path = "/dev/input/event" + std::to_string(number);
    if (access(path.c_str(), F_OK) == 0) existing += (existing.empty() ? "" : ", ") + path;
  }
  if (existing.empty()) return {"there is no /dev/input/event0 to event10", "Plug one in, or pass a path"};
  return {"none fits among " + existing, "`quarlo-input list` says why each was not taken"};
}

Obstacle whyNoDaemonFound() {
  Obstacle found = {"there is no socket at", ""};
  for (const char* path : kLircSocketPaths) {
    const int error = errnoOfConnecting(path);
    if (error != ENOENT && error != ENOTDIR) {
      const Obstacle obstacle = whyNotConnected(path, error);
      return {std::string(path) + ": " + obstacle.reason, obstacle.remedy};
    }
    found.reason += std::string(path == kLircSocketPaths[0] ? " " : ", ") + path;
  }
  found.remedy = "Is lircd running (systemctl status lircd)? Pass another socket with --lirc";
  return found;
}

Obstacle whyNodeIsNotOpen(const SourcePath& source) {
  if (!source) return whyNoNodeFits();
  Obstacle obstacle = whyNotOpened(*source, errnoOfOpening(*source));
  obstacle.reason = *source + ": " + obstacle.reason;
  return obstacle;
}

Obstacle whySocketIsNotOpen(const SourcePath& source) {
  if (!source) return whyNoDaemonFound();
  Obstacle obstacle = whyNotConnected(*source, errnoOfConnecting(*source));
  obstacle.reason = *source + ": " + obstacle.reason;
  return obstacle;
}

// ---- The report of the sources ------------------------------------------------------------------

void printSource(std::FILE* stream, const char* what, const std::string& state) {
  std::fprintf(stream, "  %-8s  %s\n", what, printable(state).c_str());
}

void printObstacle(std::FILE* stream, const char* what, const Obstacle& obstacle) {
  printSource(stream, what, "not open: " + obstacle.reason);
  if (!obstacle.remedy.empty()) printSource(stream, "", obstacle.remedy);
}

void printNode(std::FILE* stream, const char* what, const SourcePath& source, int fd) {
  if (isLeftOut(source)) {
    printSource(stream, what, "left out");
  } else if (fd != -1) {
    printSource(stream, what, describeNode(source, fd));
  } else {
    printObstacle(stream, what, whyNodeIsNotOpen(source));
  }
}

void printSocket(std::FILE* stream, const SourcePath& source, int fd) {
  if (isLeftOut(source)) {
    printSource(stream, "remote", "left out");
  } else if (fd != -1) {
    printSource(stream, "remote", describeSocket(fd));
  } else {
    printObstacle(stream, "remote", whySocketIsNotOpen(source));
  }
}

void printRequests(std::FILE* stream, const MonitorOptions& options) {
  const std::string requests = "mouse " + describeRequest(options.mouse) + ", keyboard " +
                               describeRequest(options.keyboard) + ", remote " + describeRequest(options.lirc);
  std::fprintf(stream, "Sources: %s\n", printable(requests).c_str());
  std::fflush(stream);
}

void printSources(std::FILE* stream, const MonitorOptions& options, const LinuxInputReader& reader) {
  printNode(stream, "mouse", options.mouse, reader.mouseFd);
  printNode(stream, "keyboard", options.keyboard, reader.keyboardFd);
  printSocket(stream, options.lirc, reader.lircFd);
}

// ---- Opening ------------------------------------------------------------------------------------

// The report of the sources says more than the reader's log, which comes with -v.
bool openSources(const MonitorOptions& options, LinuxInputReader& reader) {
  constexpr int kSilent = logging::kError + 1;
  if (options.verbosity == 0) logging::SetMinLogLevel(kSilent);
  const bool open = reader.init(readerArgument(options.mouse), readerArgument(options.keyboard),
                                readerArgument(options.lirc), options.maxX, options.maxY);
  setVerbosity(options.verbosity);
  return open;
}

// Says what is wrong with a node that was passed by its path, and is open; empty if nothing is.
std::string problemWith(const SourcePath& source, int fd) {
  if (!source || fd == -1 || sendsRecords(fd)) return "";
  return *source + " is no evdev node and no FIFO; `quarlo-input list` shows the nodes that exist";
}

// ---- The loop -----------------------------------------------------------------------------------

bool nodeHasGone(int fd) {
  if (fd == -1) return false;
  pollfd look = {fd, POLLIN, 0};
  if (poll(&look, 1, 0) < 1) return false;
  return (look.revents & POLLERR) != 0 || (look.revents & (POLLHUP | POLLIN)) == POLLHUP;
}

bool daemonHasGone(int fd) {
  char byte;
  return fd != -1 && recv(fd, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) == 0;
}

// Which source has ended, or null. The reader would not tell: it goes on with the others, without waiting any more.
const char* endedSource(const LinuxInputReader& reader) {
  if (nodeHasGone(reader.mouseFd)) return "the mouse is gone: it was unplugged, or what wrote to it has ended";
  if (nodeHasGone(reader.keyboardFd)) return "the keyboard is gone: it was unplugged, or what wrote to it has ended";
  if (daemonHasGone(reader.lircFd)) return "the LIRC daemon has closed the connection: start it again, then this";
  return nullptr;
}

microseconds since(Clock::time_point start) { return std::chrono::duration_cast<microseconds>(Clock::now() - start); }

// Returns the exit status.
int printEvents(const MonitorOptions& options, LinuxInputReader& reader, EventPrinter& printer) {
  const Clock::time_point start = Clock::now();
  const auto handle = [&](const InputEvent& event) { return printer.print(since(start), event) && !stopRequested(); };
  const char* ended = nullptr;
  while (!stopRequested() && ended == nullptr && std::ferror(stdout) == 0 &&
         readRound(reader, options.timeoutMs, handle)) {
    std::fflush(stdout);
    ended = endedSource(reader);
  }
  if (stopRequested() && isatty(STDOUT_FILENO) != 0) std::fputc('\n', printer.statusStream());  // after the ^C
  printer.printSummary(since(start));
  return ended == nullptr ? kDone : fail(ended);
}

PrintOptions printOptions(const MonitorOptions& options) {
  PrintOptions result;
  result.json = options.json;
  result.maskKeys = !options.showKeycodes && isatty(STDOUT_FILENO) == 0;
  result.showEmptyRecords = options.verbosity > 0;
  result.count = options.count;
  return result;
}

}  // namespace

int monitor(const MonitorOptions& options) {
  catchStopRequests();
  const PrintOptions print = printOptions(options);
  EventPrinter printer(print);
  std::FILE* status = printer.statusStream();

  printRequests(status, options);
  LinuxInputReader reader;
  const bool open = openSources(options, reader);
  for (const std::string& problem :
       {problemWith(options.mouse, reader.mouseFd), problemWith(options.keyboard, reader.keyboardFd)}) {
    if (!problem.empty()) return fail(problem);
  }
  printSources(status, options, reader);
  if (!open) return fail("no source is open");

  if (print.maskKeys) {
    std::fprintf(status, "Keys that type are shown as A, since this is no terminal; --show-keycodes shows them.\n");
  }
  if (options.count == 0) std::fprintf(status, "Ctrl-C ends.\n");
  std::fflush(status);
  return printEvents(options, reader, printer);
}

}  // namespace quarlo::tools
