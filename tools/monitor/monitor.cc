#include "tools/monitor/monitor.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/linux_input_reader.h"
#include "tools/common/evdev_node.h"
#include "tools/common/event_printer.h"
#include "tools/common/hidden_typing.h"
#include "tools/common/output.h"
#include "tools/common/reader_loop.h"
#include "tools/common/stop_request.h"
#include "tools/common/undumpable.h"
#include "tools/monitor/screen.h"
#include "tools/monitor/screen_model.h"

namespace quarlo::tools::monitor {
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
void openSources(const MonitorOptions& options, LinuxInputReader& reader) {
  if (options.verbosity == 0) silenceReader();
  reader.init(readerArgument(options.mouse), readerArgument(options.keyboard), readerArgument(options.lirc),
              options.maxX, options.maxY);
  setVerbosity(options.verbosity);
}

// Opens the further nodes, and adds what can be said of them. Returns what is wrong; empty if the program can go on.
std::string joinFurtherNodes(const MonitorOptions& options, ReaderLoop& loop, std::vector<SourceReport>& reports) {
  if (options.verbosity == 0) silenceReader();
  std::string problem;
  for (std::size_t i = 0; i < options.further.size() && problem.empty(); ++i) {
    const int error = loop.join(options.further[i]);
    if (error == EEXIST) problem = whySourceTwice(options.further[i]);
    reports.push_back(reportFurtherNode(options, i, error));
  }
  setVerbosity(options.verbosity);
  return problem;
}

// A FIFO is not opened, for what writes to it would take that for its reader.
bool sendsRecords(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode)) return true;
  const int fd = openForReading(path);
  if (fd == -1) return true;  // the report of the sources will say why
  const bool isNode = isEvdevNode(fd);
  close(fd);
  return isNode;
}

// The reader opens whatever it is told to. What is not a source of records would make it spin, or log an error each
// time, and a terminal would become the program's own. Says what is wrong with a path that was passed; empty if nothing
// is.
std::string problemWith(const SourcePath& source) {
  if (!source || isLeftOut(source) || sendsRecords(*source)) return "";
  return *source + " is neither an evdev node nor a FIFO; `quarlo-input list` shows the nodes that exist";
}

// ---- The loop -----------------------------------------------------------------------------------

using SourceSet = InputLoop::SourceSet;

// Which source a report is about: the mouse, the keyboard, the remote, further nodes.
InputLoop::Source sourceOf(std::size_t report) {
  constexpr InputLoop::Source kFirst[] = {InputLoop::kMouse, InputLoop::kKeyboard, InputLoop::kRemote};
  static_assert(std::size(kFirst) == InputLoop::kFurther);
  return report < std::size(kFirst) ? kFirst[report] : static_cast<InputLoop::Source>(report);
}

bool isIn(SourceSet set, std::size_t report) { return (set >> sourceOf(report) & 1) != 0; }

SourceSet setOf(InputLoop::Source source, bool isIn) { return isIn ? SourceSet{1} << source : 0; }

// "the mouse", or the path of a further node.
std::string nameOf(const MonitorOptions& options, const std::vector<SourceReport>& reports, std::size_t report) {
  if (report < InputLoop::kFurther) return "the " + reports[report].what;
  return options.further[report - InputLoop::kFurther];
}

std::string goneMessage(const MonitorOptions& options, const std::vector<SourceReport>& reports, std::size_t report) {
  if (sourceOf(report) == InputLoop::kRemote)
    return "the LIRC daemon has closed the connection: start it again, then this";
  const bool canBeFifo = report < InputLoop::kFurther;
  return nameOf(options, reports, report) + " is gone: it was unplugged" +
         (canBeFifo ? ", or what wrote to it has ended" : "");
}

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

// Where the loop polls, nobody tells: the reader goes on with the others, without waiting any more.
SourceSet goneSources(const ReaderLoop& loop, const LinuxInputReader& reader) {
  if (!loop.polls()) return loop.gone();
  return setOf(InputLoop::kMouse, nodeHasGone(reader.mouseFd)) |
         setOf(InputLoop::kKeyboard, nodeHasGone(reader.keyboardFd)) |
         setOf(InputLoop::kRemote, daemonHasGone(reader.lircFd));
}

void sayWhatWasLost(const MonitorOptions& options, const std::vector<SourceReport>& reports, SourceSet lost) {
  for (std::size_t i = 0; i < reports.size(); ++i) {
    if (!isIn(lost, i)) continue;
    complain("records of " + nameOf(options, reports, i) +
             " were lost, for they came faster than they were read: of its keys and buttons, what is up and down now "
             "counts");
  }
}

// One descriptor for several: it is readable when one of them is.
class AnyDescriptor {
 public:
  // `constant` is always one of them.
  explicit AnyDescriptor(int constant) : fd_(epoll_create1(EPOLL_CLOEXEC)) { add(constant); }
  ~AnyDescriptor() { close(fd_); }
  AnyDescriptor(const AnyDescriptor&) = delete;
  AnyDescriptor& operator=(const AnyDescriptor&) = delete;

  // From now on `other` (-1: none) is the other one.
  void setOther(int other) {
    if (other == other_) return;
    epoll_ctl(fd_, EPOLL_CTL_DEL, other_, nullptr);  // fails if it was closed, which removes it, too
    add(other);
    other_ = other;
  }

  int get() const { return fd_; }

 private:
  void add(int fd) const {
    epoll_event event = {};
    event.events = EPOLLIN;
    epoll_ctl(fd_, EPOLL_CTL_ADD, fd, &event);
  }

  int fd_;
  int other_ = -1;
};

// What shows the events.
class View {
 public:
  View() = default;
  virtual ~View() = default;
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  // Shows an event, or with kNoEvent a record or a line without one. Returns whether to go on.
  virtual bool show(microseconds time, const InputEvent& event, const Origin& origin) = 0;

  // How long a wait may last, in ms (-1: without a limit), and what ends it, besides: a descriptor, or -1.
  virtual int longestWaitMs(microseconds time) const = 0;
  virtual int descriptor() const = 0;

  // Called after each round, with the sources that are gone. Returns why it cannot go on; empty if it can.
  virtual std::string endRound(microseconds time, SourceSet gone) = 0;

  // Called at the end.
  virtual void finish(microseconds time) = 0;
};

microseconds since(Clock::time_point start) { return std::chrono::duration_cast<microseconds>(Clock::now() - start); }

// However long the polls that are asked for: what is typed fills a terminal, which then takes no Ctrl-C, and a source
// that has gone must be noticed.
constexpr int kLongestPollMs = 10000;

PollTimeout pollTimeout(const MonitorOptions& options) {
  return options.pollTimeout ? PollTimeout(std::min(*options.pollTimeout, kLongestPollMs)) : std::nullopt;
}

// Returns whether to go on.
bool showRound(ReaderLoop& loop, View& view, Clock::time_point start) {
  InputEvent event = {};
  while (!stopRequested() && loop.next(event)) {
    if (!view.show(since(start), event, loop.origin())) return false;
  }
  return true;
}

// Returns the exit status.
int showEvents(const MonitorOptions& options, const std::vector<SourceReport>& reports, const LinuxInputReader& reader,
               ReaderLoop& loop, View& view) {
  const Clock::time_point start = Clock::now();
  AnyDescriptor wakeUp(stopDescriptor());
  std::string ended;
  for (bool goOn = true; goOn && !stopRequested() && ended.empty() && std::ferror(stdout) == 0;) {
    wakeUp.setOther(view.descriptor());
    loop.wait(view.longestWaitMs(since(start)), wakeUp.get());
    sayWhatWasLost(options, reports, loop.lost());
    goOn = showRound(loop, view, start);
    if (goOn) ended = view.endRound(since(start), goneSources(loop, reader));
  }
  view.finish(since(start));
  return ended.empty() ? kDone : fail(ended);
}

// ---- Lines --------------------------------------------------------------------------------------

PrintOptions printOptions(const MonitorOptions& options) {
  PrintOptions result;
  result.json = options.json;
  result.clock = options.clock;
  if (isatty(STDOUT_FILENO) == 0) result.mask = options.shown.mask();
  result.countEmptyRecords = options.verbosity > 0;
  result.count = options.count;
  return result;
}

// For a person; null if nothing is.
const char* whatIsHidden(Mask mask) {
  switch (mask) {
    case Mask::kNothing: return nullptr;
    case Mask::kTyping:
      return "Keys that may type are shown as A, since this is not a terminal; --show-keycodes shows them.";
    default:
      return "Keys that may type, modifiers and editing keys are shown as A, since this is not a terminal; "
             "--show-keycodes "
             "shows them.";
  }
}

// Ends when a source is gone.
class Lines : public View {
 public:
  Lines(const MonitorOptions& options, const std::vector<SourceReport>& reports)
      : options_(options), reports_(reports), printer_(printOptions(options)) {
    printer_.begin(reports);
  }

  bool show(microseconds time, const InputEvent& event, const Origin& origin) override {
    return printer_.print(time, event, origin);
  }

  int longestWaitMs(microseconds /*time*/) const override { return typing_.limited(-1); }

  int descriptor() const override { return typing_.descriptor(); }

  std::string endRound(microseconds /*time*/, SourceSet gone) override {
    std::fflush(stdout);
    typing_.discard();
    for (std::size_t i = 0; i < reports_.size(); ++i) {
      if (isIn(gone, i)) return goneMessage(options_, reports_, i);
    }
    return "";
  }

  void finish(microseconds time) override { printer_.printSummary(time); }

 private:
  const MonitorOptions& options_;
  const std::vector<SourceReport>& reports_;
  HiddenTyping typing_;
  EventPrinter printer_;
};

// ---- The screen ---------------------------------------------------------------------------------

constexpr std::chrono::milliseconds kFrame{33};

// Shows what is gone, and ends when nothing is left.
class FullScreen : public View {
 public:
  FullScreen(const MonitorOptions& options, const std::vector<SourceReport>& reports, const LinuxInputReader& reader)
      : options_(options),
        reader_(reader),
        model_(reports, {static_cast<int>(options.maxX), static_cast<int>(options.maxY)}),
        screen_(openScreen()) {
    screen_->draw(model_);
  }

  bool show(microseconds time, const InputEvent& event, const Origin& origin) override {
    takeLog();
    model_.addEvent(time, event, origin);
    model_.look(time, reader_);
    return options_.count == 0 || model_.counts().events() < options_.count;
  }

  // Time passes on the screen, too.
  int longestWaitMs(microseconds time) const override {
    const microseconds due = drawn_ + (isDrawn_ ? ScreenModel::kSlotLength : microseconds(kFrame));
    return static_cast<int>(
        std::chrono::ceil<std::chrono::milliseconds>(std::max(due - time, microseconds(0))).count());
  }

  int descriptor() const override { return -1; }

  std::string endRound(microseconds time, SourceSet gone) override {
    takeLog();
    model_.look(time, reader_);
    takeOverGone(gone);
    draw(time);
    return anyIsOpen(model_.sources()) ? "" : "no source is left: each is gone";
  }

  void finish(microseconds time) override {
    screen_.reset();
    std::printf("%s\n", model_.counts().summary(time, options_.verbosity > 0).c_str());
  }

 private:
  void takeLog() {
    for (const std::string& line : screen_->takeErrors()) model_.addLogLine(line);
  }

  // Where the loop polls, the reader does not wait any more from then on, and would log an error in each round.
  void takeOverGone(SourceSet gone) {
    constexpr int kPauseMs = 10;
    for (std::size_t i = 0; i < model_.sources().size(); ++i) {
      if (isIn(gone, i)) model_.setGone(i);
    }
    if (gone == 0 || !options_.pollTimeout) return;
    silenceReader();
    poll(nullptr, 0, kPauseMs);
  }

  // Not after each round, unless the next one may last longer than a frame: then it would not be drawn for as long.
  void draw(microseconds time) {
    const bool isShort = !options_.pollTimeout || *options_.pollTimeout < kFrame.count();
    isDrawn_ = !isShort || time >= drawn_ + kFrame;
    if (!isDrawn_) return;
    screen_->draw(model_);
    drawn_ = time;
  }

  const MonitorOptions& options_;
  const LinuxInputReader& reader_;
  ScreenModel model_;
  std::unique_ptr<Screen> screen_;
  microseconds drawn_{0};  // when it was drawn last
  bool isDrawn_ = true;    // so is what has come since
};

std::unique_ptr<View> openView(const MonitorOptions& options, const std::vector<SourceReport>& reports,
                               const LinuxInputReader& reader) {
  if (options.tui) return std::make_unique<FullScreen>(options, reports, reader);
  return std::make_unique<Lines>(options, reports);
}

}  // namespace

int run(const MonitorOptions& options) {
  catchStopRequests();
  const Mask mask = printOptions(options).mask;
  std::optional<Undumpable> undumpable;
  if (mask != Mask::kNothing) undumpable.emplace();
  if (options.tui) {
    const std::string problem = whyNoScreen();
    if (!problem.empty()) return fail(problem);
  }
  std::FILE* status = options.json ? stderr : stdout;

  printRequests(status, options);
  for (const std::string& problem :
       {problemWith(options.mouse), problemWith(options.keyboard), problemWithFurtherNodes(options)}) {
    if (!problem.empty()) return fail(problem);
  }
  LinuxInputReader reader;
  openSources(options, reader);
  ReaderLoop loop(reader, pollTimeout(options), emptyToShow(options));
  std::vector<SourceReport> reports = reportSources(options, {reader.mouseFd, reader.keyboardFd, reader.lircFd});
  const std::string problem = joinFurtherNodes(options, loop, reports);
  if (!problem.empty()) return fail(problem);
  printSources(status, reports);
  if (!anyIsOpen(reports)) return fail("no source is open");

  if (const char* hidden = whatIsHidden(mask)) std::fprintf(status, "%s\n", hidden);
  const char* remark = remarkOnLog(options);
  if (reader.lircFd != -1 && remark != nullptr) std::fprintf(status, "%s\n", remark);
  if (options.count == 0) std::fprintf(status, "Ctrl-C ends.\n");
  std::fflush(status);
  return showEvents(options, reports, reader, loop, *openView(options, reports, reader));
}

}  // namespace quarlo::tools::monitor
