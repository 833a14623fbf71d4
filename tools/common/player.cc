#include "tools/common/player.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <utility>

#include "input/linux_input_reader.h"
#include "recording/lines.h"
#include "sim/machine.h"
#include "tools/common/stop_request.h"

namespace quarlo::tools {
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

// ---- What it is of -------------------------------------------------------------------------------

void addSource(std::vector<SourceReport>& sources, InputLoop::Source source,
               const std::optional<DeviceRecording>& device) {
  if (device) sources.push_back({sourceName(source), SourceState::kOpen, device->name, "", "", device->name});
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
  Player(const Session& session, const PlayOptions& options, ReaderLoop::Empty empty, Audience& audience)
      : session_(session), options_(options), empty_(empty), audience_(audience) {
    for (const auto& [name, value] : options.environment) machine_.setEnvironment(name, value);
  }

  Played play() {
    setUp();
    audience_.begin();
    while (!stopRequested() && playRound() && !connectionIsLost() && !hasEnded()) passOverIdlePolls();
    return {elapsed(), !connectionIsLost()};
  }

 private:
  // On the simulated machine, the paths are the names of the files: no nodes that autodetection would find.
  void setUp() {
    const bool hasMouse = addNode(InputLoop::kMouse, recording::kMouseFile, session_.mouse);
    const bool hasKeyboard = addNode(InputLoop::kKeyboard, recording::kKeyboardFile, session_.keyboard);
    daemon_ = session_.remote ? &machine_.addLircDaemon(recording::kRemoteFile) : nullptr;
    machine_.setTracing(false);
    reader_.emplace();
    reader_->init(hasMouse ? recording::kMouseFile : nullptr, hasKeyboard ? recording::kKeyboardFile : nullptr,
                  daemon_ != nullptr ? recording::kRemoteFile : nullptr, options_.maxX, options_.maxY);
    loop_.emplace(*reader_, options_.pollTimeout, empty_);
    for (std::size_t i = 0; i < session_.further.size(); ++i) {
      const std::string path = recording::furtherNodeFile(i);
      if (!addNode(furtherSource(i), path, session_.further[i])) continue;
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
    for (; goOn && !stopRequested() && loop_->next(event); ++events) {
      goOn = take(event);
      audience_.look(elapsed(), *reader_);
    }
    audience_.look(elapsed(), *reader_);
    keepPace(elapsed());  // polls take some of the machine's time without a wait
    roundTime_ = elapsed() - begin;
    roundWasIdle_ = events == 0 && roundTime_ > microseconds(0) && !hadUnread && untilNext && *untilNext > roundTime_;
    return goOn;
  }

  bool take(const InputEvent& event) {
    Origin origin = loop_->origin();
    if (origin.source) origin.source = asRecorded(*origin.source);
    if (loop_->polls()) return audience_.take(elapsed(), event, origin, nullptr);
    InputLoop::Cause cause = loop_->cause();
    cause.source = asRecorded(cause.source);
    return audience_.take(elapsed(), event, origin, &cause);
  }

  // A further node has the number that it had when it was recorded, also if those before it sent nothing.
  InputLoop::Source asRecorded(InputLoop::Source source) const {
    return source >= InputLoop::kFurther ? further_[source - InputLoop::kFurther] : source;
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
  bool addNode(InputLoop::Source source, const std::string& path, const std::optional<DeviceRecording>& device) {
    if (!device) return false;
    const sim::Device described = {device->name, device->codes, device->id, device->properties, device->axes};
    sim::Node& node = machine_.addNode(path, described);
    node.onRead([this, source](std::uint64_t number) { audience_.read(source, number); });
    nodes_.emplace_back(&node, &device->records);
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
  const PlayOptions& options_;
  const ReaderLoop::Empty empty_;
  Audience& audience_;
  const microseconds length_ = lengthOf(session_);
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

std::vector<SourceReport> sourcesOf(const Session& session) {
  std::vector<SourceReport> sources;
  addSource(sources, InputLoop::kMouse, session.mouse);
  addSource(sources, InputLoop::kKeyboard, session.keyboard);
  if (session.remote) sources.push_back({sourceName(InputLoop::kRemote), SourceState::kOpen, "", "", "", ""});
  for (std::size_t i = 0; i < session.further.size(); ++i) addSource(sources, furtherSource(i), session.further[i]);
  return sources;
}

Played playSession(const Session& session, const PlayOptions& options, ReaderLoop::Empty empty, Audience& audience) {
  return Player(session, options, empty, audience).play();
}

}  // namespace quarlo::tools
