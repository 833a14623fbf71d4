#include "tools/record/record.h"

#include <linux/input.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "recording/line_splitter.h"
#include "recording/writer.h"
#include "tools/common/code_names.h"
#include "tools/common/describe.h"
#include "tools/common/evdev_node.h"
#include "tools/common/hidden_typing.h"
#include "tools/common/mask.h"
#include "tools/common/output.h"
#include "tools/common/stop_request.h"
#include "tools/common/undumpable.h"
#include "tools/record/counter_line.h"
#include "tools/record/node.h"

namespace quarlo::tools::record {
namespace {

using recording::FileWriter;
using recording::RemoteLine;
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
  // `name` is as in the report of the sources; `withArticle` is for sentences.
  Source(std::string what, std::string withArticle) : name(std::move(what)), title(std::move(withArticle)) {}
  ~Source() { close(); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  bool isOpen() const { return fd != -1; }

  void close() {
    if (isOpen()) ::close(fd);
    fd = -1;
  }

  std::string name;
  std::string title;
  int fd = -1;
  FileWriter* file = nullptr;  // null: it was never open
  bool fileHasEnded = false;
  long overflows = 0;  // of the kernel's queue
  Report report = Report::kEmpty;
  HeldKeys held;
};

struct Sources {
  // The nodes: the keyboard, further ones as they were named, the mouse.
  std::vector<Source*> nodes() {
    std::vector<Source*> all = {&keyboard};
    for (Source& node : further) all.push_back(&node);
    all.push_back(&mouse);
    return all;
  }

  // In the order of their reports.
  std::vector<Source*> all() {
    std::vector<Source*> all = {&mouse, &keyboard, &remote};
    for (Source& node : further) all.push_back(&node);
    return all;
  }

  bool anyIsOpen() {
    const std::vector<Source*> sources = all();
    return std::any_of(sources.begin(), sources.end(), [](const Source* source) { return source->isOpen(); });
  }

  Source mouse{"mouse", "the mouse"};
  Source keyboard{"keyboard", "the keyboard"};
  Source remote{"remote", "the remote"};
  std::list<Source> further;
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
  const std::string name = path ? *path : node.title;
  if (!isEvdevNode(node.fd)) return whyNoNode(name);
  if (!setMonotonicClock(node.fd)) return name + ": the clock of its records cannot be set: " + std::strerror(errno);
  return "";
}

bool isSameNode(const Source& a, const Source& b) {
  struct stat statusOfA;
  struct stat statusOfB;
  return fstat(a.fd, &statusOfA) == 0 && fstat(b.fd, &statusOfB) == 0 && statusOfA.st_rdev == statusOfB.st_rdev;
}

// Opens the further nodes, and adds what can be said of them. Returns what is wrong; empty if the program can go on.
std::string openFurtherNodes(const SourcePaths& paths, Sources& sources, std::vector<SourceReport>& reports) {
  for (std::size_t i = 0; i < paths.further.size(); ++i) {
    const std::string& path = paths.further[i];
    const std::vector<Source*> others = sources.nodes();
    Source& node = sources.further.emplace_back("", path);
    node.fd = openForReading(path);
    reports.push_back(reportFurtherNode(paths, i, node.isOpen() ? 0 : errno));
    node.name = reports.back().what;
    if (std::any_of(others.begin(), others.end(), [&](const Source* other) { return isSameNode(*other, node); }))
      return whySourceTwice(path);
    std::string problem = prepareNode(path, node);
    if (!problem.empty()) return problem;
  }
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
    std::size_t index = 0;
    for (Source& node : sources.further) {
      if (node.isOpen()) node.file = &writer.addFurtherNode(index, description(node));
      ++index;
    }
  }

  // Returns the exit status.
  int run() {
    const bool recorded = withoutError([this] { recordAll(); });
    const microseconds duration = elapsed();
    const bool closed = withoutError([this] { writer_.close(); });
    counter_.clear();
    const bool done = recorded && closed;
    if (!isEmpty()) {
      printSummary(duration);
    } else if (done) {
      return fail("nothing came from " + openedNames() + ", so there is no session");
    }
    return done && sources_.anyIsOpen() && !aFileHasEnded() ? kDone : kFailed;
  }

 private:
  // Returns whether `action` went well. Says what did not.
  template <typename Action>
  bool withoutError(Action action) {
    try {
      action();
      return true;
    } catch (const recording::Error& error) {
      say(error.what());
      return false;
    }
  }

  void say(const std::string& problem) {
    counter_.clear();
    complain(problem);
  }

  void recordAll() {
    while (!stopRequested() && !isOver() && sources_.anyIsOpen()) recordRound(millisecondsLeft());
    recordRound(0);  // what has come since
    const std::string unfinished = lines_.takeRest();
    if (!unfinished.empty()) writeLine(unfinished);
    if (!options_.duration && isOver()) {
      throw recording::Error("a session has at most " + std::to_string(recording::kLongestSession.count()) +
                             " hours: the recording ends here, and what came before is kept");
    }
  }

  // Waits for at most `timeoutMs`, or until a signal, and records what is there.
  void recordRound(int timeoutMs) {
    counter_.show(counts(), elapsed());
    const std::vector<Source*> nodes = sources_.nodes();
    std::vector<pollfd> looks;
    looks.reserve(nodes.size() + 2);
    for (const Source* node : nodes) looks.push_back({node->fd, POLLIN, 0});
    looks.push_back({sources_.remote.fd, POLLIN, 0});
    looks.push_back({typing_.descriptor(), POLLIN, 0});
    const int ready = poll(looks.data(), looks.size(), limited(timeoutMs));
    typing_.discard();
    for (std::size_t i = 0; i < nodes.size() && ready > 0; ++i) {
      if (looks[i].revents != 0) readNode(*nodes[i]);
    }
    if (ready > 0 && looks[nodes.size()].revents != 0) readRemote();
    writer_.flush();
  }

  void readNode(Source& node) {
    constexpr std::size_t kMostRecords = 256;
    input_event events[kMostRecords];
    const ssize_t size = read(node.fd, events, sizeof events);
    if (size < 1) return handleFailure(node, size == 0 ? ENODEV : errno);
    const auto count = static_cast<std::size_t>(size) / sizeof(input_event);
    for (std::size_t i = 0; i < count; ++i) {
      node.held.follow(events[i]);
      writeRecord(node, toRecord(events[i], start_));
    }
    writeRecords(node, node.held.mend(node.fd, elapsed()));
  }

  void writeRecords(Source& node, const std::vector<recording::Record>& records) {
    for (const recording::Record& record : records) writeRecord(node, record);
  }

  void writeRecord(Source& node, const recording::Record& record) {
    if (record.type == EV_SYN && record.code == SYN_DROPPED) ++node.overflows;
    const std::optional<recording::Record> shown = masked(mask_, record);
    const bool endsReport = record.type == EV_SYN && record.code == SYN_REPORT;
    if (shown && !(endsReport && node.report == Report::kLeftOut)) write(node, *shown);
    node.report = endsReport ? Report::kEmpty : shown ? Report::kShown : std::max(node.report, Report::kLeftOut);
  }

  void readRemote() {
    char bytes[4096];
    const ssize_t size = read(sources_.remote.fd, bytes, sizeof bytes);
    if (size < 1) return handleFailure(sources_.remote, size == 0 ? ECONNRESET : errno);
    received_ = elapsed();
    for (const std::string& line : lines_.split({bytes, static_cast<std::size_t>(size)})) writeLine(line);
  }

  void writeLine(const std::string& line) { write(sources_.remote, RemoteLine{received_, maskedLine(mask_, line)}); }

  // One source that never rests must not end the recording of all.
  template <typename What>
  void write(Source& source, const What& what) {
    if (source.fileHasEnded) return;
    try {
      source.file->write(what);
    } catch (const recording::Error& error) {
      source.fileHasEnded = true;
      source.close();
      say(error.what() + whatGoesOn());
    }
  }

  // What read() gave instead of input.
  void handleFailure(Source& source, int error) {
    if (error == EAGAIN || error == EINTR) return;
    source.close();
    writeRecords(source, source.held.release(elapsed()));
    say(whyItEnds(source, error) + whatGoesOn());
  }

  std::string whatGoesOn() { return sources_.anyIsOpen() ? "; the others go on" : "; no source is left"; }

  static std::string whyItEnds(const Source& source, int error) {
    switch (error) {
      case ENODEV: return source.title + " is gone: it was unplugged";
      case ECONNRESET: return "the LIRC daemon has closed the connection";
      default: return source.title + " cannot be read any more: " + std::strerror(error);
    }
  }

  recording::DeviceDescription description(const Source& node) const { return masked(mask_, describeNode(node.fd)); }

  microseconds elapsed() const { return now() - start_; }

  microseconds longest() const { return options_.duration.value_or(recording::kLongestSession); }

  bool isOver() const { return elapsed() >= longest(); }

  bool aFileHasEnded() {
    const auto sources = sources_.all();
    return std::any_of(sources.begin(), sources.end(), [](const Source* source) { return source->fileHasEnded; });
  }

  // For how long to wait at most, in ms: less while something else is to be done soon.
  int limited(int timeoutMs) const {
    constexpr int kRetryMs = 10;
    constexpr int kDiskMs = 1000;
    const int limit = counter_.limited(typing_.limited(timeoutMs), elapsed());
    if (writer_.isHeldUp()) return std::min(limit, kRetryMs);
    return writer_.isOnDisk() ? limit : std::min(limit, kDiskMs);
  }

  // For poll(): rounded up, so that it does not return just before the end.
  int millisecondsLeft() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(longest() - elapsed());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
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
      if (source->file != nullptr) names += (names.empty() ? "" : " and ") + source->title;
    }
    return names;
  }

  // "mouse 12 records, remote 1 line".
  std::string counts() {
    std::string text;
    for (const Source* source : sources_.all()) {
      if (source->file != nullptr) text += (text.empty() ? "" : ", ") + source->name + " " + count(*source);
    }
    return text;
  }

  std::string count(const Source& source) const {
    return counted(source.file->count(), &source == &sources_.remote ? "line" : "record");
  }

  void printSummary(microseconds duration) {
    std::printf("Recorded for %s s:\n", describeTime(duration).c_str());
    for (const Source* source : sources_.all()) {
      if (source->file != nullptr) printSourceSummary(*source);
    }
  }

  void printSourceSummary(const Source& source) const {
    if (source.file->count() == 0) {
      std::printf("  %s: nothing came, so there is no file\n", source.name.c_str());
    } else {
      const int parts = source.file->parts();
      std::printf("  %-14s  %s%s\n", source.file->name().c_str(), count(source).c_str(),
                  parts == 1 ? "" : (" in " + counted(parts, "file")).c_str());
    }
    if (source.overflows != 0) {
      std::printf("  %s: the kernel's queue overflowed %s: records before each SYN_DROPPED are missing\n",
                  source.name.c_str(), counted(source.overflows, "time").c_str());
    }
  }

  const RecordOptions& options_;
  Sources& sources_;
  SessionWriter& writer_;
  const Mask mask_ = options_.shown.mask();
  HiddenTyping typing_;
  CounterLine counter_;
  recording::LineSplitter lines_;
  microseconds start_ = now();
  microseconds received_{0};  // when the remote's last bytes came
};

int recordSources(const RecordOptions& options, Sources& sources) {
  using recording::Access;
  recording::WriterOptions writing = options.writing;
  if (options.syncsAtOnce) writing.pause = std::chrono::milliseconds(0);
  SessionWriter writer(options.session, remarkOn(options.shown.mask()),
                       options.shown.showKeycodes ? Access::kOwnerOnly : Access::kByUmask, {typeName, codeName},
                       writing);
  Recorder recorder(options, sources, writer);
  std::printf("%s\nRecording to %s; Ctrl-C ends.\n", remarkOn(options.shown.mask()),
              printable(options.session).c_str());
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
  std::vector<SourceReport> reports =
      reportSources(options, {sources.mouse.fd, sources.keyboard.fd, sources.remote.fd});
  const std::string problem = openFurtherNodes(options, sources, reports);
  if (!problem.empty()) return fail(problem);
  printSources(stdout, reports);
  if (!sources.anyIsOpen()) return fail("no source is open");
  try {
    return recordSources(options, sources);
  } catch (const recording::Error& error) {
    return fail(error.what());
  }
}

}  // namespace quarlo::tools::record
