#include "tools/tune/reader_run.h"

#include <unistd.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <tuple>
#include <utility>

#include "input/linux_input_reader.h"
#include "sim/machine.h"

namespace quarlo::tools::tune {

using namespace std::chrono_literals;
using recording::RemoteLine;

bool operator==(const Setting& a, const Setting& b) {
  return std::tie(a.repeatMs, a.releaseMs, a.pollMs) == std::tie(b.repeatMs, b.releaseMs, b.pollMs);
}

Setting defaultSetting(LoopKind loop) {
  return {components::input::kDefaultRepeatTimeoutMs, components::input::kDefaultReleaseTimeoutMs,
          loop == LoopKind::kPoll ? PollTimeout(kRoundTimeoutMs) : std::nullopt};
}

std::vector<Circumstances> studiedCircumstances(const Setting& setting) {
  const int moments = setting.pollMs ? 8 : 1;
  std::vector<Circumstances> all;
  for (const microseconds work : {100us, 1000us, 3000us}) {
    const microseconds round = std::chrono::milliseconds(setting.pollMs.value_or(0)) + work;
    for (int moment = 0; moment < moments; ++moment) all.push_back({round * moment / moments, work});
  }
  return all;
}

namespace {

// A machine with the daemon alone, and the application on it.
class Run {
 public:
  Run(const Remote& remote, const Setting& setting, const Circumstances& circumstances)
      : remote_(remote), poll_(setting.pollMs), work_(circumstances.work) {
    machine_.setTracing(false);
    machine_.setFirstDescriptor(STDERR_FILENO + 1);  // select() looks at each number below
    machine_.setEnvironment(components::input::kRepeatTimeoutVariable, std::to_string(setting.repeatMs));
    machine_.setEnvironment(components::input::kReleaseTimeoutVariable, std::to_string(setting.releaseMs));
    sim::LircDaemon& daemon = machine_.addLircDaemon(kStudiedSocket);
    reader_.emplace();
    reader_->init(nullptr, nullptr, kStudiedSocket, 0, 0);
    loop_.emplace(*reader_, setting.pollMs, setting.pollMs ? ReaderLoop::Empty::kKeys : ReaderLoop::Empty::kLines);
    // The first poll still watches the socket. An application that has run for a while sleeps through its polls.
    playRound();
    start_ = machine_.now() + circumstances.phase;
    timeline_.states.push_back({-circumstances.phase, ButtonState::kReleased});
    timeline_.lines.reserve(remote.lines.size());
    for (const RemoteLine& line : remote.lines) schedule(daemon, line.time - remote.lines.front().time, line.text);
  }

  Timeline play() {
    while (!hasEnded()) playRounds();
    return std::move(timeline_);
  }

 private:
  // What the daemon has sent of a line that the application has not read.
  struct Waiting {
    std::size_t line;
    std::size_t bytes;
    bool begun;  // its first bytes were read
  };

  void schedule(sim::LircDaemon& daemon, microseconds time, const std::string& text) {
    machine_.after(start_ + time - machine_.now(), [this, &daemon, time, &text] {
      waiting_.push_back({timeline_.lines.size(), text.size() + 1, false});
      timeline_.lines.push_back({time, Fate::kLost});
      daemon.sendText(text + "\n");
    });
  }

  // What shows whether anything happened in a round.
  struct Snapshot {
    std::size_t lines;
    std::size_t keyDowns;
    std::size_t states;
    bool waiting;
  };

  Snapshot snapshot() const {
    return {timeline_.lines.size(), timeline_.keyDowns.size(), timeline_.states.size(), !waiting_.empty()};
  }

  // When a round after this time can first be unlike the one before it: when a line comes, when one of the reader's
  // timeouts ends or cuts the wait short, or when the run ends.
  microseconds turnAfter(microseconds time) const {
    const std::size_t next = timeline_.lines.size();
    microseconds turn = next < remote_.lines.size() ? remote_.lines[next].time - remote_.lines.front().time
                                                    : timeline_.lines.back().sent + kPauseBetweenPresses;
    if (reader_->lircKey == msg::KeyInput::kNone) return turn;
    constexpr microseconds kReckonedInMs = 1ms;
    const microseconds keyDown =
        std::chrono::seconds(reader_->lircKeyTime.tv_sec) + microseconds(reader_->lircKeyTime.tv_usec) - start_;
    const std::chrono::milliseconds repeat(reader_->lircRepeatTimeout);
    const std::chrono::milliseconds release(reader_->lircReleaseTimeout);
    for (const microseconds timeout : {release - *poll_, release, release + repeat, repeat + repeat}) {
      const microseconds end = keyDown + timeout;
      if (end + kReckonedInMs >= time) turn = std::min(turn, end - kReckonedInMs);
    }
    return turn;
  }

  // A loop that polls mostly finds nothing, thousands of times a second while a button is held. Such rounds are all the
  // same: they take time.
  void playRounds() {
    const Snapshot before = snapshot();
    const microseconds start = elapsed();
    playRound();
    const microseconds round = elapsed() - start;
    const Snapshot after = snapshot();
    if (!poll_ || before.waiting || after.waiting ||
        std::tie(before.lines, before.keyDowns, before.states) != std::tie(after.lines, after.keyDowns, after.states)) {
      return;
    }
    const microseconds left = turnAfter(start) - elapsed();
    if (left > 3 * round) machine_.advance((left / round - 2) * round);
  }

  void playRound() {
    constexpr std::chrono::milliseconds kLongestWait = kPauseBetweenPresses;
    loop_->wait(static_cast<int>(kLongestWait.count()));
    InputEvent event = {};
    while (loop_->next(event)) noteCall(event.kind != InputEvent::kNoEvent);
    if (loop_->polls()) takeLines(false);
    noteState();
    machine_.advance(work_);
  }

  void noteCall(bool keyDown) {
    takeLines(keyDown);
    noteState();
  }

  void noteState() {
    const ButtonState state = reader_->lircKey == msg::KeyInput::kNone ? ButtonState::kReleased
                              : reader_->lircRepeatMode                ? ButtonState::kRepeating
                                                                       : ButtonState::kHeld;
    if (!timeline_.states.empty() && state != timeline_.states.back().state)
      timeline_.states.push_back({elapsed(), state});
  }

  // A poll reads once, what has come until then, and looks at the first line of it alone. Else each line counts.
  void takeLines(bool keyDown) {
    if (waiting_.empty()) return;
    if (keyDown) timeline_.keyDowns.push_back({elapsed(), waiting_.front().line});
    if (!waiting_.front().begun)
      timeline_.lines[waiting_.front().line].fate = keyDown ? Fate::kKeyDown : Fate::kSkipped;
    const std::size_t size = loop_->polls() ? components::input::kLircReadSize : waiting_.front().bytes;
    for (std::size_t left = size; left > 0 && !waiting_.empty();) {
      Waiting& first = waiting_.front();
      const std::size_t taken = std::min(left, first.bytes);
      left -= taken;
      first.bytes -= taken;
      first.begun = true;
      if (first.bytes == 0) waiting_.pop_front();
    }
  }

  bool hasEnded() const {
    if (machine_.hasScheduled() || !waiting_.empty()) return false;
    return reader_->lircKey == msg::KeyInput::kNone || elapsed() > timeline_.lines.back().sent + kPauseBetweenPresses;
  }

  microseconds elapsed() const { return machine_.now() - start_; }

  const Remote& remote_;
  std::optional<std::chrono::milliseconds> poll_;
  microseconds work_;
  sim::Machine machine_;
  std::optional<LinuxInputReader> reader_;  // it reads the environment when it is made
  std::optional<ReaderLoop> loop_;
  microseconds start_{0};
  std::deque<Waiting> waiting_;
  Timeline timeline_;
};

}  // namespace

Timeline runReader(const Remote& remote, const Setting& setting, const Circumstances& circumstances) {
  return Run(remote, setting, circumstances).play();
}

}  // namespace quarlo::tools::tune
