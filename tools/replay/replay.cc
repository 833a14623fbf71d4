#include "tools/replay/replay.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "recording/lines.h"
#include "recording/session.h"
#include "sim/machine.h"
#include "tools/common/damages.h"
#include "tools/common/event_printer.h"
#include "tools/common/output.h"
#include "tools/common/reader_loop.h"
#include "tools/common/sources.h"
#include "tools/common/stop_request.h"

namespace quarlo::tools::replay {
namespace {

using recording::DeviceRecording;
using recording::Record;
using recording::RemoteLine;
using recording::Session;

// How long a replay waits for the remote's key to be forgotten: timeouts from the environment can be days.
constexpr std::chrono::seconds kLongestRelease{10};

// A wait is not longer: a session can be, and its milliseconds are more than an int holds.
constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24);

// Nor this with --realtime, so that the time at which a stop is requested is known.
constexpr std::chrono::milliseconds kLongestRealWait{100};

// ---- Recordings into the machine ----------------------------------------------------------------

// One record at a time is scheduled: each, when it happens, schedules the next. `start` is on the machine's clock. A
// machine that loses records itself is asked for what is down: what the recording says.
void scheduleRecords(sim::Machine& machine, sim::Node& node, const std::vector<Record>& records, microseconds start,
                     std::size_t index = 0) {
  if (index == records.size()) return;
  const Record& record = records[index];
  machine.after(start + record.time - machine.now(), [&machine, &node, &records, &record, start, index] {
    if (record.type == EV_KEY) node.setState(EV_KEY, record.code, record.value != 0);
    node.inject(record.type, record.code, record.value);
    scheduleRecords(machine, node, records, start, index + 1);
  });
}

void scheduleLines(sim::Machine& machine, sim::LircDaemon& daemon, const std::vector<RemoteLine>& lines,
                   microseconds start, std::size_t index = 0) {
  if (index == lines.size()) return;
  machine.after(start + lines[index].time - machine.now(), [&machine, &daemon, &lines, start, index] {
    daemon.sendText(lines[index].text.get() + "\n");
    scheduleLines(machine, daemon, lines, start, index + 1);
  });
}

Session readSession(const ReplayOptions& options) {
  return options.events ? recording::readPair(options.session, *options.events)
                        : recording::readSession(options.session);
}

// The file of the first further node; empty if there is none.
std::string firstFurtherNode(const Session& session) {
  for (std::size_t i = 0; i < session.further.size(); ++i) {
    if (session.further[i]) return recording::furtherNodeFile(i);
  }
  return "";
}

// ---- What it is of -------------------------------------------------------------------------------

void addSource(std::vector<SourceReport>& sources, InputLoop::Source source,
               const std::optional<DeviceRecording>& device) {
  if (device) sources.push_back({sourceName(source), SourceState::kOpen, device->name, "", "", device->name});
}

// Those that are recorded.
std::vector<SourceReport> sourcesOf(const Session& session) {
  std::vector<SourceReport> sources;
  addSource(sources, InputLoop::kMouse, session.mouse);
  addSource(sources, InputLoop::kKeyboard, session.keyboard);
  if (session.remote) sources.push_back({sourceName(InputLoop::kRemote), SourceState::kOpen, "", "", "", ""});
  for (std::size_t i = 0; i < session.further.size(); ++i) addSource(sources, furtherSource(i), session.further[i]);
  return sources;
}

// ---- The environment ----------------------------------------------------------------------------

using Environment = std::map<std::string, std::string>;

// The variables that are set, by name. REQUIRES: there is no machine yet, which has an environment of its own.
Environment lircEnvironment() {
  Environment environment;
  for (const char* name : {components::input::kRepeatTimeoutVariable, components::input::kReleaseTimeoutVariable}) {
    if (const char* value = std::getenv(name)) environment[name] = value;
  }
  return environment;
}

// ---- The clock on the wall ----------------------------------------------------------------------

// Sleeps until the wall clock has caught up with the machine's.
class Pacer {
 public:
  Pacer() {
    const sim::Outside outside;
    clock_gettime(CLOCK_MONOTONIC, &start_);
  }

  // `elapsed` is the machine's time since this was made.
  void sleepUntil(microseconds elapsed) const {
    const sim::Outside outside;
    const std::int64_t total = start_.tv_nsec / 1000 + elapsed.count();
    timespec deadline = {};
    deadline.tv_sec = start_.tv_sec + static_cast<std::time_t>(total / 1'000'000);
    deadline.tv_nsec = static_cast<long>(total % 1'000'000 * 1000);
    while (!stopRequested() && clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
  }

 private:
  timespec start_ = {};
};

// ---- The player ---------------------------------------------------------------------------------

// A simulated machine with the session's devices, and the real reader on it.
class Player {
 public:
  Player(const Session& session, const ReplayOptions& options, const Environment& environment)
      : session_(session), options_(options) {
    for (const auto& [name, value] : environment) machine_.setEnvironment(name, value);
  }

  // On the simulated machine, the paths are the names of the files: no nodes that autodetection would find. Returns
  // false if the connection to the daemon was lost before the end.
  bool play() {
    setUp();
    printer_.begin(sourcesOf(session_));
    const char* remark = remarkOnLog(options_);
    if (session_.remote && remark != nullptr) std::fprintf(printer_.statusStream(), "%s\n", remark);
    while (!stopRequested() && playRound() && !connectionIsLost() && !hasEnded()) passOverIdlePolls();
    printer_.printSummary(elapsed());
    return !connectionIsLost();
  }

 private:
  static PrintOptions printOptions(const ReplayOptions& options) {
    PrintOptions result;
    result.json = options.json;
    result.countEmptyRecords = options.verbosity > 0;
    return result;
  }

  void setUp() {
    const bool hasMouse = addNode(recording::kMouseFile, session_.mouse);
    const bool hasKeyboard = addNode(recording::kKeyboardFile, session_.keyboard);
    daemon_ = session_.remote ? &machine_.addLircDaemon(recording::kRemoteFile) : nullptr;
    machine_.setTracing(false);
    reader_.emplace();
    reader_->init(hasMouse ? recording::kMouseFile : nullptr, hasKeyboard ? recording::kKeyboardFile : nullptr,
                  daemon_ != nullptr ? recording::kRemoteFile : nullptr, options_.maxX, options_.maxY);
    loop_.emplace(*reader_, options_.pollTimeout, emptyToShow(options_));
    for (std::size_t i = 0; i < session_.further.size(); ++i) {
      const std::string path = recording::furtherNodeFile(i);
      if (!addNode(path, session_.further[i])) continue;
      loop_->join(path);
      further_.push_back(furtherSource(i));
    }
    start_ = machine_.now();
    pacer_ = Pacer();
    for (const auto& [node, records] : nodes_) scheduleRecords(machine_, *node, *records, start_);
    if (daemon_ != nullptr) scheduleLines(machine_, *daemon_, *session_.remote, start_);
    machine_.onWait([this](microseconds step) { keepPace(elapsed() + step); });
  }

  // Returns whether to go on.
  bool playRound() {
    const microseconds begin = elapsed();
    const bool hadUnread = machine_.hasUnread();
    const std::optional<microseconds> untilNext = machine_.untilNext();
    loop_->wait(longestWaitMs());
    InputEvent event = {};
    bool goOn = true;
    long events = 0;
    for (; goOn && !stopRequested() && loop_->next(event); ++events) goOn = printer_.print(elapsed(), event, origin());
    keepPace(elapsed());  // polls take some of the machine's time without a wait
    roundTime_ = elapsed() - begin;
    roundWasIdle_ = events == 0 && roundTime_ > microseconds(0) && !hadUnread && untilNext && *untilNext > roundTime_;
    return goOn;
  }

  // A further node has the number that it had when it was recorded, also if those before it sent nothing.
  Origin origin() const {
    Origin origin = loop_->origin();
    if (origin.source && *origin.source >= InputLoop::kFurther) {
      origin.source = further_[*origin.source - InputLoop::kFurther];
    }
    return origin;
  }

  // The rounds of a loop that polls are all the same until something happens, or is due. All but the last of them leave
  // nothing behind that this one does not, so they are passed over.
  void passOverIdlePolls() {
    if (!loop_->polls() || options_.realtime || !roundWasIdle_) return;
    const auto rounds = idleTime() / roundTime_;
    if (rounds > 1) machine_.advance((rounds - 1) * roundTime_);
  }

  // For how long rounds will go on like the last one, which found nothing. While a remote's key is held, the reader
  // waits for less and less milliseconds, and then, until it forgets the key, not at all.
  microseconds idleTime() const {
    const microseconds untilNext = machine_.untilNext().value_or(microseconds(0));
    const bool hasWaited = roundTime_ >= std::chrono::milliseconds(1);
    if (hasWaited == isKeyHeld()) return microseconds(0);
    if (hasWaited) return untilNext;
    constexpr std::chrono::milliseconds kRounding(2);
    return std::min<microseconds>(untilNext, std::chrono::milliseconds(loop_->dueMs()) - kRounding);
  }

  // How long the loop may sleep, in ms: until all has happened, which need not wake it, and the remote's key is
  // forgotten.
  int longestWaitMs() const {
    microseconds end(0);
    if (machine_.hasScheduled()) {
      end = length_;
    } else if (isKeyHeld() && lastHappened_) {
      end = *lastHappened_ + kLongestRelease;
    }
    const microseconds longest = std::max(end - elapsed(), microseconds(0));
    const auto longestMs = std::chrono::ceil<std::chrono::milliseconds>(longest);
    return static_cast<int>(std::min(longestMs, options_.realtime ? kLongestRealWait : kLongestWait).count());
  }

  void keepPace(microseconds until) const {
    if (!options_.realtime) return;
    std::fflush(stdout);
    pacer_.sleepUntil(until);
  }

  // Returns whether there is a recording of it.
  bool addNode(const std::string& path, const std::optional<DeviceRecording>& device) {
    if (!device) return false;
    const sim::Device described = {device->name, device->codes, device->id, device->properties, device->axes};
    nodes_.emplace_back(&machine_.addNode(path, described), &device->records);
    return true;
  }

  microseconds elapsed() const { return machine_.now() - start_; }

  // Everything has happened and was read, and the remote's key is forgotten.
  bool hasEnded() {
    if (machine_.hasScheduled()) return false;
    if (!lastHappened_) lastHappened_ = elapsed();
    const bool isWaitedFor = isKeyHeld() && elapsed() < *lastHappened_ + kLongestRelease;
    const bool roundFoundNothing = std::exchange(nothingUnread_, !machine_.hasUnread() && !loop_->hasMore());
    return roundFoundNothing && !isWaitedFor;
  }

  bool isKeyHeld() const { return reader_->lircKey != msg::KeyInput::kNone; }

  // The daemon closes the connection of a client that does not keep up. Once that has read what was left, it finds the
  // end of it at once in each round, and would never come to the end of the session.
  bool connectionIsLost() const { return daemon_ != nullptr && !daemon_->hasClients() && !machine_.hasUnread(); }

  const Session& session_;
  const ReplayOptions& options_;
  const microseconds length_ = lengthOf(session_);
  EventPrinter printer_{printOptions(options_)};
  sim::Machine machine_;
  std::vector<std::pair<sim::Node*, const std::vector<Record>*>> nodes_;
  std::vector<InputLoop::Source> further_;  // as the session numbers them
  sim::LircDaemon* daemon_ = nullptr;
  std::optional<LinuxInputReader> reader_;
  std::optional<ReaderLoop> loop_;
  microseconds start_{0};
  Pacer pacer_;
  std::optional<microseconds> lastHappened_;  // since then nothing new comes
  microseconds roundTime_{0};                 // how long the last round took
  bool roundWasIdle_ = false;                 // it found nothing, and nothing happened in it
  bool nothingUnread_ = false;                // after the last round, once nothing new comes
};

}  // namespace

bool play(const Session& session, const ReplayOptions& options) {
  return Player(session, options, options.lircEnvironment ? lircEnvironment() : Environment()).play();
}

int run(const ReplayOptions& options) {
  setVerbosity(options.verbosity);
  try {
    const Session session = readSession(options);
    const std::string further = firstFurtherNode(session);
    if (options.pollTimeout && !further.empty()) {
      return fail(options.session + ": a loop that polls reads no further node, and there is " + further +
                  "; play this session without --loop poll");
    }
    catchStopRequests();
    const int status = sayDamages(session);
    if (play(session, options)) return status;
    return fail(options.session +
                ": the remote's lines come faster than the reader takes them, so that the LIRC daemon would close the "
                "connection; the rest was not played");
  } catch (const recording::Error& error) {
    return fail(error.what());
  } catch (const std::bad_alloc&) {
    return fail(options.session + ": there is not enough memory for this session");
  }
}

}  // namespace quarlo::tools::replay
