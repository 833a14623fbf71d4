#include "tools/tune/reader_run.h"

#include <linux/input.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <tuple>
#include <utility>

#include "input/linux_input_reader.h"
#include "sim/machine.h"

namespace quarlo::tools::tune {

using namespace std::chrono_literals;
bool operator==(const Setting& a, const Setting& b) {
  return std::tie(a.repeatMs, a.startMs, a.pollMs) == std::tie(b.repeatMs, b.startMs, b.pollMs);
}

Setting defaultSetting(const Remote& remote, LoopKind loop) {
  const PollTimeout poll = loop == LoopKind::kPoll ? PollTimeout(kRoundTimeoutMs) : std::nullopt;
  if (remote.decoder == Decoder::kKernel) return {remote.repeat.periodMs, remote.repeat.delayMs, poll};
  return {components::input::kDefaultRepeatTimeoutMs, components::input::kDefaultReleaseTimeoutMs, poll};
}

std::vector<Circumstances> studiedCircumstances(Decoder decoder, const Setting& setting) {
  const bool kernel = decoder == Decoder::kKernel;
  const int moments = setting.pollMs ? 8 : kernel ? 2 : 1;
  std::vector<Circumstances> all;
  for (const microseconds work : {100us, 1000us, 3000us}) {
    const microseconds round = setting.pollMs ? std::chrono::milliseconds(*setting.pollMs) + work : 0us;
    for (int moment = 0; moment < moments; ++moment) {
      all.push_back({round * moment / moments, work, kernel && moment % 2 != 0});
    }
  }
  return all;
}

// As the timer wheel of kernel/time/timer.c: a time is rounded up to ticks, and its end to the next tick, or from 63 or
// 504 ticks on to the next 8 or 64 of them.
std::chrono::milliseconds latest(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds kTick(4);
  const auto ticks = (time + kTick - std::chrono::milliseconds(1)) / kTick;
  std::chrono::milliseconds::rep step = 1;
  while (ticks >= 63 * step) step *= 8;
  return (ticks + step) * kTick;
}

namespace {

// A machine with the remote alone, and the application on it.
class Run {
 public:
  Run(const Remote& remote, const Setting& setting, const Circumstances& circumstances)
      : remote_(remote), setting_(setting), circumstances_(circumstances) {
    machine_.setTracing(false);
    machine_.setFirstDescriptor(STDERR_FILENO + 1);  // select() looks at each number below
  }
  virtual ~Run() = default;

  Timeline play() {
    connect();
    loop_.emplace(*reader_, setting_.pollMs, ReaderLoop::Empty::kLines);
    // The first poll still watches its sources. An application that has run for a while sleeps through its polls.
    playRound();
    start_ = machine_.now() + circumstances_.phase;
    timeline_.states.push_back({-circumstances_.phase, ButtonState::kReleased});
    timeline_.lines.reserve(remote_.lines.size());
    schedule();
    while (!hasEnded()) playRounds();
    return std::move(timeline_);
  }

 protected:
  // Adds the remote, and makes a reader that is connected to it.
  virtual void connect() = 0;

  // Has the remote send its lines.
  virtual void schedule() = 0;

  // What the reader gave: a key, or with a loop that waits, nothing of a line.
  virtual void note(const InputEvent& event) = 0;

  virtual void endRound() = 0;
  virtual bool hasUnread() const = 0;
  virtual bool hasEnded() const = 0;

  // When a round after this time can first be unlike the one before it. REQUIRES: the loop polls.
  virtual microseconds turnAfter(microseconds time) const = 0;

  void noteState(ButtonState state) {
    if (!timeline_.states.empty() && state != timeline_.states.back().state)
      timeline_.states.push_back({elapsed(), state});
  }

  void after(microseconds time, std::function<void()> happening) {
    machine_.after(start_ + time - machine_.now(), std::move(happening));
  }

  microseconds timeOf(std::size_t line) const { return remote_.lines[line].time - remote_.lines.front().time; }
  microseconds elapsed() const { return machine_.now() - start_; }

  const Remote& remote_;
  const Setting setting_;
  const Circumstances circumstances_;
  sim::Machine machine_;
  std::optional<LinuxInputReader> reader_;  // it reads the environment when it is made
  std::optional<ReaderLoop> loop_;
  microseconds start_{0};
  Timeline timeline_;

 private:
  // What shows whether anything happened in a round.
  struct Snapshot {
    std::size_t lines;
    std::size_t keyDowns;
    std::size_t states;
    bool unread;
  };

  Snapshot snapshot() const {
    return {timeline_.lines.size(), timeline_.keyDowns.size(), timeline_.states.size(), hasUnread()};
  }

  // A loop that polls mostly finds nothing, thousands of times a second while a button is held. Such rounds are all the
  // same: they take time.
  void playRounds() {
    const Snapshot before = snapshot();
    const microseconds start = elapsed();
    playRound();
    const microseconds round = elapsed() - start;
    const Snapshot after = snapshot();
    if (!setting_.pollMs || before.unread || after.unread ||
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
    while (loop_->next(event)) note(event);
    endRound();
    machine_.advance(circumstances_.work);
  }
};

// A remote whose lines the daemon sends.
class DaemonRun final : public Run {
 public:
  using Run::Run;

 private:
  // What the daemon has sent of a line that the application has not read.
  struct Waiting {
    std::size_t line;
    std::size_t bytes;
    bool begun;  // its first bytes were read
  };

  void connect() override {
    machine_.setEnvironment(components::input::kRepeatTimeoutVariable, std::to_string(setting_.repeatMs));
    machine_.setEnvironment(components::input::kReleaseTimeoutVariable, std::to_string(setting_.startMs));
    daemon_ = &machine_.addLircDaemon(kStudiedSocket);
    reader_.emplace();
    reader_->init(nullptr, nullptr, kStudiedSocket, 0, 0);
  }

  void schedule() override {
    for (std::size_t i = 0; i < remote_.lines.size(); ++i) {
      after(timeOf(i), [this, i] { send(i); });
    }
  }

  void send(std::size_t number) {
    const std::string& text = remote_.lines[number].text;
    waiting_.push_back({number, text.size() + 1, false});
    timeline_.lines.push_back({timeOf(number), Fate::kLost});
    daemon_->sendText(text + "\n");
  }

  void note(const InputEvent& event) override {
    takeLines(event.kind != InputEvent::kNoEvent);
    noteButton();
  }

  void endRound() override {
    if (loop_->polls()) takeLines(false);
    noteButton();
  }

  void noteButton() {
    noteState(reader_->lircKey == msg::KeyInput::kNone ? ButtonState::kReleased
              : reader_->lircRepeatMode                ? ButtonState::kRepeating
                                                       : ButtonState::kHeld);
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

  bool hasUnread() const override { return !waiting_.empty(); }

  bool hasEnded() const override {
    if (machine_.hasScheduled() || hasUnread()) return false;
    return reader_->lircKey == msg::KeyInput::kNone || elapsed() > timeline_.lines.back().sent + kPauseBetweenPresses;
  }

  // A line comes, one of the reader's timeouts ends or cuts the wait short, or the run ends.
  microseconds turnAfter(microseconds time) const override {
    const std::size_t next = timeline_.lines.size();
    microseconds turn = next < remote_.lines.size() ? timeOf(next) : timeline_.lines.back().sent + kPauseBetweenPresses;
    if (reader_->lircKey == msg::KeyInput::kNone) return turn;
    constexpr microseconds kReckonedInMs = std::chrono::milliseconds(1);
    const microseconds keyDown =
        std::chrono::seconds(reader_->lircKeyTime.tv_sec) + microseconds(reader_->lircKeyTime.tv_usec) - start_;
    const std::chrono::milliseconds poll(*setting_.pollMs);
    const std::chrono::milliseconds repeat(reader_->lircRepeatTimeout);
    const std::chrono::milliseconds release(reader_->lircReleaseTimeout);
    for (const microseconds timeout : {release - poll, release, release + repeat, repeat + repeat}) {
      const microseconds end = keyDown + timeout;
      if (end + kReckonedInMs >= time) turn = std::min(turn, end - kReckonedInMs);
    }
    return turn;
  }

  sim::LircDaemon* daemon_ = nullptr;
  std::deque<Waiting> waiting_;
};

// A remote that the kernel decodes, and whose keys it repeats.
class NodeRun final : public Run {
 public:
  using Run::Run;

 private:
  void connect() override {
    sim::Device device;
    device.codes = {{EV_MSC, {MSC_SCAN}}, {EV_REP, {REP_DELAY, REP_PERIOD}}};
    for (const Press& press : remote_.presses) device.codes[EV_KEY].insert(press.key);
    device.repeatDelay = delay();
    device.repeatPeriod = period();
    node_ = &machine_.addNode(kStudiedNode, std::move(device));
    reader_.emplace();
    reader_->init(nullptr, kStudiedNode, nullptr, 0, 0);
  }

  std::chrono::milliseconds made(int ms) const {
    const std::chrono::milliseconds time(ms);
    return circumstances_.lateTimers && ms != 0 ? latest(time) : time;
  }
  std::chrono::milliseconds delay() const { return made(setting_.startMs); }
  std::chrono::milliseconds period() const { return made(setting_.repeatMs); }

  void schedule() override {
    for (const Press& press : remote_.presses) {
      for (std::size_t i = press.first; i < press.end; ++i) {
        after(timeOf(i), [this, &press, i] { send(press, i); });
      }
      after(upOf(press), [this, &press] {
        ++sent_;
        node_->release(press.key);
      });
    }
  }

  // A frame, of which the first presses the key.
  void send(const Press& press, std::size_t number) {
    const bool isFirst = number == press.first;
    timeline_.lines.push_back({timeOf(number), isFirst ? Fate::kKeyDown : Fate::kSkipped});
    node_->report(EV_MSC, MSC_SCAN, press.key);
    if (isFirst) node_->report(EV_KEY, press.key, 1);
    node_->report(EV_SYN, SYN_REPORT, 0);
  }

  void note(const InputEvent& event) override {
    if (event.kind != InputEvent::kKeyEvent || read_ == remote_.presses.size()) return;
    if (event.keyData.action == InputEvent::KeyData::kUp) {
      noteState(ButtonState::kReleased);
      ++read_;
    } else {
      const std::size_t line = remote_.presses[read_].first;
      const bool repeats = !timeline_.keyDowns.empty() && timeline_.keyDowns.back().line == line;
      timeline_.keyDowns.push_back({elapsed(), line});
      noteState(repeats ? ButtonState::kRepeating : ButtonState::kHeld);
    }
  }

  // A key-up can be lost if the application polls so rarely that the kernel's queue overflows.
  void endRound() override {
    if (!hasUnread()) read_ = sent_;
  }

  bool hasUnread() const override { return machine_.hasUnread(); }
  bool hasEnded() const override { return !machine_.hasScheduled() && !hasUnread(); }

  // A frame comes, or a key repeats or comes up, or the run ends.
  microseconds turnAfter(microseconds time) const override {
    const std::size_t next = timeline_.lines.size();
    microseconds turn = next < remote_.lines.size() ? timeOf(next) : upOf(remote_.presses.back());
    if (sent_ == remote_.presses.size() || remote_.presses[sent_].first >= next) return turn;
    const Press& press = remote_.presses[sent_];
    turn = std::min(turn, upOf(press));
    if (delay() == microseconds(0) || period() == microseconds(0)) return turn;
    microseconds repeat = timeOf(press.first) + delay();
    if (repeat < time) repeat += (time - repeat + period() - microseconds(1)) / period() * period();
    return std::min(turn, repeat);
  }

  microseconds upOf(const Press& press) const { return press.up - remote_.lines.front().time; }

  sim::Node* node_ = nullptr;
  std::size_t sent_ = 0;  // presses that have ended
  std::size_t read_ = 0;  // those whose key-up the application has read
};

}  // namespace

Timeline runReader(const Remote& remote, const Setting& setting, const Circumstances& circumstances) {
  if (remote.decoder == Decoder::kKernel) return NodeRun(remote, setting, circumstances).play();
  return DaemonRun(remote, setting, circumstances).play();
}

}  // namespace quarlo::tools::tune
