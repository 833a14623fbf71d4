#include "tools/monitor.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "input/linux_input_reader.h"
#include "tools/event_printer.h"
#include "tools/output.h"
#include "tools/stop_request.h"

namespace quarlo::tools {
namespace {

using Clock = std::chrono::steady_clock;

// Nothing can ever be opened here: what the reader is given for a source that is left out.
constexpr char kNowhere[] = "/dev/null/left-out";

const char* readerArgument(const SourcePath& source) {
  if (!source) return nullptr;
  return isLeftOut(source) ? kNowhere : source->c_str();
}

// ---- Opening ------------------------------------------------------------------------------------

// The report of the sources says more than the reader's log, which comes with -v.
bool openSources(const MonitorOptions& options, LinuxInputReader& reader) {
  if (options.verbosity == 0) silenceReader();
  const bool open = reader.init(readerArgument(options.mouse), readerArgument(options.keyboard),
                                readerArgument(options.lirc), options.maxX, options.maxY);
  setVerbosity(options.verbosity);
  return open;
}

// The reader opens whatever it is told to. What is no source of records would make it spin, or log an error each time.
bool sendsRecords(int fd) {
  struct stat status;
  return isEvdevNode(fd) || (fstat(fd, &status) == 0 && S_ISFIFO(status.st_mode));
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
  printSources(status, reportSources(options, {reader.mouseFd, reader.keyboardFd, reader.lircFd}));
  if (!open) return fail("no source is open");

  if (print.maskKeys) {
    std::fprintf(status, "Keys that type are shown as A, since this is no terminal; --show-keycodes shows them.\n");
  }
  if (options.count == 0) std::fprintf(status, "Ctrl-C ends.\n");
  std::fflush(status);
  return printEvents(options, reader, printer);
}

}  // namespace quarlo::tools
