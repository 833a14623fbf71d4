#include "tools/record/record.h"

#include <linux/input.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "recording/line_splitter.h"
#include "recording/writer.h"
#include "tools/common/describe.h"
#include "tools/common/evdev_node.h"
#include "tools/common/hidden_typing.h"
#include "tools/common/mask.h"
#include "tools/common/output.h"
#include "tools/common/stop_request.h"
#include "tools/common/undumpable.h"
#include "tools/record/node.h"

namespace quarlo::tools::record {
namespace {

using recording::FileWriter;
using recording::SessionWriter;

microseconds now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::chrono::seconds(time.tv_sec) + microseconds(time.tv_nsec / 1000);
}

// ---- Sources ------------------------------------------------------------------------------------

// What was recorded of a report so far. If all of it was left out, so is its end, which would tell that something came.
enum class Report { kEmpty, kLeftOut, kShown };

// A source, and the file that it is recorded to.
struct Source {
  explicit Source(const char* what) : name(what) {}
  ~Source() { close(); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  bool isOpen() const { return fd != -1; }

  void close() {
    if (isOpen()) ::close(fd);
    fd = -1;
  }

  const char* name;
  int fd = -1;
  FileWriter* file = nullptr;  // null: it was never open
  long overflows = 0;          // of the kernel's queue
  Report report = Report::kEmpty;
};

struct Sources {
  std::array<Source*, 3> all() { return {&mouse, &keyboard, &remote}; }

  bool anyIsOpen() const { return mouse.isOpen() || keyboard.isOpen() || remote.isOpen(); }

  Source mouse{"mouse"};
  Source keyboard{"keyboard"};
  Source remote{"remote"};
};

int openNode(LinuxInputReader& reader, const SourcePath& path, bool mouse) {
  if (isLeftOut(path)) return -1;
  return path ? openForReading(*path) : reader.openDevice(nullptr, mouse);
}

int openRemote(LinuxInputReader& reader, const SourcePath& path) {
  if (isLeftOut(path)) return -1;
  if (path) return reader.openLircSocket(path->c_str());
  for (const char* usual : components::input::kLircSocketPaths) {
    const int fd = reader.openLircSocket(usual);
    if (fd != -1) return fd;
  }
  return -1;
}

void openSources(const SourcePaths& paths, Sources& sources) {
  silenceReader();
  LinuxInputReader reader;
  sources.mouse.fd = openNode(reader, paths.mouse, true);
  sources.keyboard.fd = openNode(reader, paths.keyboard, false);
  sources.remote.fd = openRemote(reader, paths.lirc);
}

// Makes an open node ready for recording. Returns what is wrong with it; empty if nothing is.
std::string prepareNode(const SourcePath& path, const Source& node) {
  if (!node.isOpen()) return "";
  const std::string name = path ? *path : std::string("the ") + node.name;
  if (!isEvdevNode(node.fd)) return name + " is not an evdev node; `quarlo-input list` shows the nodes that exist";
  if (!setMonotonicClock(node.fd)) return name + ": the clock of its records cannot be set: " + std::strerror(errno);
  return "";
}

// ---- Recording ----------------------------------------------------------------------------------

class Recorder {
 public:
  Recorder(const RecordOptions& options, Sources& sources, SessionWriter& writer)
      : options_(options), sources_(sources), writer_(writer) {
    if (sources.mouse.isOpen()) sources.mouse.file = &writer.addMouse(description(sources.mouse));
    if (sources.keyboard.isOpen()) sources.keyboard.file = &writer.addKeyboard(description(sources.keyboard));
    if (sources.remote.isOpen()) sources.remote.file = &writer.addRemote();
  }

  // Returns the exit status.
  int run() {
    const bool recorded = withoutError([this] { recordAll(); });
    const microseconds duration = elapsed();
    const bool closed = withoutError([this] { writer_.close(); });
    const bool done = recorded && closed;
    if (!isEmpty()) {
      printSummary(duration);
    } else if (done) {
      return fail("nothing came from " + openedNames() + ", so there is no session");
    }
    return done && sources_.anyIsOpen() ? kDone : kFailed;
  }

 private:
  // Returns whether `action` went well. Says what did not.
  template <typename Action>
  static bool withoutError(Action action) {
    try {
      action();
      return true;
    } catch (const recording::Error& error) {
      complain(error.what());
      return false;
    }
  }

  void recordAll() {
    while (!stopRequested() && !isOver() && sources_.anyIsOpen()) recordRound(millisecondsLeft());
    recordRound(0);  // what has come since
    writeLine(lines_.takeRest());
  }

  // Waits for at most `timeoutMs` (-1: without a limit, but for a signal), and records what is there.
  void recordRound(int timeoutMs) {
    std::array<pollfd, 4> looks = {{{sources_.mouse.fd, POLLIN, 0},
                                    {sources_.keyboard.fd, POLLIN, 0},
                                    {sources_.remote.fd, POLLIN, 0},
                                    {typing_.descriptor(), POLLIN, 0}}};
    const int ready = poll(looks.data(), looks.size(), typing_.limited(timeoutMs));
    typing_.discard();
    if (ready < 1) return;
    if (looks[0].revents != 0) readNode(sources_.mouse);
    if (looks[1].revents != 0) readNode(sources_.keyboard);
    if (looks[2].revents != 0) readRemote();
    writer_.flush();
  }

  void readNode(Source& node) {
    constexpr std::size_t kMostRecords = 256;
    input_event events[kMostRecords];
    const ssize_t size = read(node.fd, events, sizeof events);
    if (size < 1) return handleFailure(node, size == 0 ? ENODEV : errno);
    const auto count = static_cast<std::size_t>(size) / sizeof(input_event);
    std::for_each(events, events + count, [&](const input_event& event) { writeRecord(node, event); });
  }

  void writeRecord(Source& node, const input_event& event) {
    const recording::Record record = toRecord(event, start_);
    if (record.type == EV_SYN && record.code == SYN_DROPPED) ++node.overflows;
    const std::optional<recording::Record> shown = masked(mask_, record);
    const bool endsReport = record.type == EV_SYN && record.code == SYN_REPORT;
    if (shown && !(endsReport && node.report == Report::kLeftOut)) node.file->write(*shown);
    node.report = endsReport ? Report::kEmpty : shown ? Report::kShown : std::max(node.report, Report::kLeftOut);
  }

  void readRemote() {
    char bytes[4096];
    const ssize_t size = read(sources_.remote.fd, bytes, sizeof bytes);
    if (size < 1) return handleFailure(sources_.remote, size == 0 ? ECONNRESET : errno);
    received_ = elapsed();
    for (const std::string& line : lines_.split({bytes, static_cast<std::size_t>(size)})) writeLine(line);
  }

  void writeLine(const std::string& line) {
    if (line.empty()) return;
    sources_.remote.file->write({received_, maskedLine(mask_, line)});
  }

  // What read() gave instead of input.
  void handleFailure(Source& source, int error) {
    if (error == EAGAIN || error == EINTR) return;
    source.close();
    complain(whyItEnds(source, error) + (sources_.anyIsOpen() ? "; the others go on" : "; no source is left"));
  }

  static std::string whyItEnds(const Source& source, int error) {
    switch (error) {
      case ENODEV: return std::string("the ") + source.name + " is gone: it was unplugged";
      case ECONNRESET: return "the LIRC daemon has closed the connection";
      default: return std::string("the ") + source.name + " cannot be read any more: " + std::strerror(error);
    }
  }

  recording::DeviceDescription description(const Source& node) const { return masked(mask_, describeNode(node.fd)); }

  microseconds elapsed() const { return now() - start_; }

  bool isOver() const { return options_.duration && elapsed() >= *options_.duration; }

  // For poll(): rounded up, so that it does not return just before the end.
  int millisecondsLeft() const {
    if (!options_.duration) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*options_.duration - elapsed());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  }

  bool isEmpty() {
    const auto sources = sources_.all();
    return std::all_of(sources.begin(), sources.end(),
                       [](const Source* source) { return source->file == nullptr || source->file->count() == 0; });
  }

  // "the mouse", "the mouse and the remote", ...
  std::string openedNames() {
    std::string names;
    for (const Source* source : sources_.all()) {
      if (source->file != nullptr) names += (names.empty() ? "the " : " and the ") + std::string(source->name);
    }
    return names;
  }

  void printSummary(microseconds duration) {
    std::printf("Recorded for %s s:\n", describeTime(duration).c_str());
    for (const Source* source : sources_.all()) {
      if (source->file != nullptr) printSourceSummary(*source, source == &sources_.remote ? "line" : "record");
    }
  }

  static void printSourceSummary(const Source& source, const char* unit) {
    const long count = source.file->count();
    if (count == 0) {
      std::printf("  %s: nothing came, so there is no file\n", source.name);
    } else {
      std::printf("  %-14s  %s\n", source.file->name().c_str(), counted(count, unit).c_str());
    }
    if (source.overflows != 0) {
      std::printf("  %s: the kernel's queue overflowed %s: records before each SYN_DROPPED are missing\n", source.name,
                  counted(source.overflows, "time").c_str());
    }
  }

  const RecordOptions& options_;
  Sources& sources_;
  SessionWriter& writer_;
  const Mask mask_ = options_.shown.mask();
  HiddenTyping typing_;
  recording::LineSplitter lines_;
  microseconds start_ = now();
  microseconds received_{0};  // when the remote's last bytes came
};

const char* comment(const RecordOptions& options) {
  switch (options.shown.mask()) {
    case Mask::kNothing: return "Keys and remote buttons are recorded as they were pressed: this can show passwords.";
    case Mask::kTyping:
      return "Keys and remote buttons that may type are recorded as A and 1 (--show-keycodes keeps them).";
    default:
      return "Keys and remote buttons that may type, modifiers and editing keys are recorded as A and 1 "
             "(--show-keycodes keeps them).";
  }
}

int recordSources(const RecordOptions& options, Sources& sources) {
  using recording::Access;
  SessionWriter writer(options.session, comment(options),
                       options.shown.showKeycodes ? Access::kOwnerOnly : Access::kByUmask);
  Recorder recorder(options, sources, writer);
  std::printf("%s\nRecording to %s; Ctrl-C ends.\n", comment(options), printable(options.session).c_str());
  std::fflush(stdout);
  return recorder.run();
}

}  // namespace

int run(const RecordOptions& options) {
  catchStopRequests();
  std::optional<Undumpable> undumpable;
  if (options.shown.mask() != Mask::kNothing) undumpable.emplace();

  printRequests(stdout, options);
  Sources sources;
  openSources(options, sources);
  for (const std::string& problem :
       {prepareNode(options.mouse, sources.mouse), prepareNode(options.keyboard, sources.keyboard)}) {
    if (!problem.empty()) return fail(problem);
  }
  printSources(stdout, reportSources(options, {sources.mouse.fd, sources.keyboard.fd, sources.remote.fd}));
  if (!sources.anyIsOpen()) return fail("no source is open");
  try {
    return recordSources(options, sources);
  } catch (const recording::Error& error) {
    return fail(error.what());
  }
}

}  // namespace quarlo::tools::record
