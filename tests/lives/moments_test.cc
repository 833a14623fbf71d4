// Input that comes at any moment, while calls take time: what the loop gives, and what the class gives in the loop that
// waits 10 ms and then takes all.

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "input/input_loop.h"
#include "sim/machine.h"
#include "tests/lives/life.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test::lives {
namespace {

using components::input::InputLoop;
using std::chrono::milliseconds;

// ---- Lives --------------------------------------------------------------------------------------

struct Report {
  milliseconds at;
  Node node;
  int type;
  int code;
  int value;
};

struct Line {
  milliseconds at;
  std::string button;
  unsigned repeat;
};

struct Moments {
  std::uint64_t seed;
  milliseconds draw{0};  // what the application takes for itself after each round
  microseconds callTime{0};
  std::vector<Report> reports;
  std::vector<Line> lines;
};

// Few enough records for the queues of the nodes, whatever the reader does meanwhile. No two presses of a button are
// about as far apart as a double click can be, so that a press that is read late is not another click.
class MomentsAuthor {
 public:
  explicit MomentsAuthor(std::uint64_t seed) : dice_(seed) { life_.seed = seed; }

  Moments life(bool withRemote) {
    life_.callTime = microseconds(dice_.between(1, 200));
    if (!withRemote) life_.draw = dice_.pick({0ms, 4ms, 16ms});
    milliseconds at{50};
    for (int reports = dice_.between(5, 25); reports > 0; --reports) {
      write(at);
      at += milliseconds(dice_.oneIn(6) ? dice_.between(600, 900) : dice_.below(60));
    }
    if (withRemote) writeLines();
    return std::move(life_);
  }

 private:
  void write(milliseconds at) {
    constexpr int kKeys[] = {KEY_A, KEY_1, KEY_LEFTSHIFT, KEY_RIGHTALT, KEY_NUMLOCK, KEY_KP7};
    switch (dice_.below(4)) {
      case 0: report({at, kKeyboardNode, EV_KEY, dice_.pick(kKeys), dice_.below(3)}); break;
      case 1: press(at, dice_.pick({BTN_LEFT, BTN_RIGHT, BTN_MIDDLE})); break;
      default: report({at, kMouseNode, EV_REL, dice_.oneIn(2) ? REL_X : REL_Y, dice_.between(-9, 30)});
    }
  }

  void press(milliseconds at, int button) {
    const auto last = lastPresses_.find(button);
    const bool isClose = last != lastPresses_.end() && at - last->second > 300ms && at - last->second < 500ms;
    const int value = isClose ? 0 : dice_.below(2);
    if (value != 0) lastPresses_[button] = at;
    report({at, kMouseNode, EV_KEY, button, value});
  }

  void report(const Report& what) { life_.reports.push_back(what); }

  // Buttons that are held, each line far enough from the one before to be read by itself.
  void writeLines() {
    milliseconds at{100};
    for (int presses = dice_.between(1, 5); presses > 0; --presses) {
      const std::string button = dice_.pick({"KEY_VOLUMEUP", "KEY_VOLUMEUP", "KEY_MUTE"});
      const milliseconds rate(dice_.between(40, 130));
      const auto lines = static_cast<unsigned>(dice_.oneIn(2) ? 1 : dice_.between(2, 12));
      for (unsigned repeat = 0; repeat < lines; ++repeat) {
        life_.lines.push_back({at, button, repeat});
        at += rate + milliseconds(dice_.below(20));
      }
      at += milliseconds(dice_.between(0, 600));
    }
  }

  Dice dice_;
  Moments life_ = {};
  std::map<int, milliseconds> lastPresses_;
};

// ---- Living -------------------------------------------------------------------------------------

constexpr auto kRepeatTimeout = 100ms;

// What became of a line, and when the remote's next limits are after it.
struct LineOutcome {
  bool isKeyDown = false;
  milliseconds repeatLimit{0};
  milliseconds forgetLimit{0};
};

struct MomentsOutcome {
  Lines keyboard;
  Lines mouse;  // of moves that follow each other only the last
  std::vector<LineOutcome> lines;
};

class MomentsWorld {
 public:
  explicit MomentsWorld(const Moments& life) : life_(life) {
    machine.setTracing(false);
    machine.setCallTime(life.callTime);
    reader.init("/dev/input/event0", "/dev/input/event1", "/run/lircd", 1280, 720);
    start_ = machine.now();
    for (const Report& report : life.reports) machine.after(report.at, [this, &report] { send(report); });
    for (const Line& line : life.lines) machine.after(line.at, [this, &line] { send(line); });
  }

  bool goesOn() const { return machine.hasScheduled() || machine.hasUnread() || reader.lircKey != 0; }

  void take(const InputEvent& event) {
    if (event.kind == InputEvent::kMouseEvent) {
      const bool isMove = event.mouseData.action == InputEvent::MouseData::kMove;
      if (isMove && wasMove_) outcome.mouse.pop_back();
      wasMove_ = isMove;
      outcome.mouse.push_back(test::text(event));
    } else if (event.keyData.key >= msg::KeyInput::kRed) {
      EXPECT_FALSE(outcome.lines.back().isKeyDown);
      outcome.lines.back().isKeyDown = true;
    } else {
      outcome.keyboard.push_back(test::text(event));
    }
  }

  // After each round: what the last line has led to.
  void endRound() {
    if (!outcome.lines.empty() && reader.lircKey != 0) {
      const auto accepted = std::chrono::seconds(reader.lircKeyTime.tv_sec) + microseconds(reader.lircKeyTime.tv_usec);
      const auto sinceStart = std::chrono::duration_cast<milliseconds>(accepted - start_);
      outcome.lines.back().repeatLimit = sinceStart + milliseconds(reader.lircTimeout);
      outcome.lines.back().forgetLimit = outcome.lines.back().repeatLimit + kRepeatTimeout;
    }
    machine.advance(life_.draw);
  }

  RememberedClicks rememberedClicks;
  sim::Machine machine;
  sim::Node& mouse = machine.addNode("/dev/input/event0", Device{});
  sim::Node& keyboard = machine.addNode("/dev/input/event1", Device{});
  sim::LircDaemon& daemon = machine.addLircDaemon("/run/lircd");
  LinuxInputReader reader;
  MomentsOutcome outcome;

 private:
  void send(const Report& report) {
    sim::Node& node = report.node == kMouseNode ? mouse : keyboard;
    node.inject(report.type, report.code, report.value);
    node.inject(EV_SYN, SYN_REPORT, 0);
  }

  void send(const Line& line) {
    daemon.send(line.button, line.repeat);
    outcome.lines.emplace_back();
  }

  const Moments& life_;
  microseconds start_{0};
  bool wasMove_ = false;
};

MomentsOutcome liveWith10Ms(const Moments& life) {
  MomentsWorld world(life);
  while (world.goesOn()) {
    InputEvent event = untouched();
    event.kind = InputEvent::kNoEvent;
    for (int timeoutMs = 10; world.reader.readInput(event, timeoutMs); timeoutMs = 0) {
      if (event.kind != InputEvent::kNoEvent) world.take(event);
      event.kind = InputEvent::kNoEvent;
    }
    world.endRound();
  }
  return world.outcome;
}

MomentsOutcome liveWithLoop(const Moments& life) {
  MomentsWorld world(life);
  InputLoop loop(world.reader);
  while (world.goesOn()) {
    loop.wait(world.machine.hasScheduled() ? -1 : 1000);
    InputEvent event = untouched();
    while (loop.next(event)) world.take(event);
    world.endRound();
  }
  return world.outcome;
}

// ---- What may differ ----------------------------------------------------------------------------

// How late the loop of 10 ms reads: its wait, and the calls of a round and a half.
constexpr milliseconds kLate{12};

bool isNear(milliseconds at, milliseconds limit) { return std::abs((at - limit).count()) <= kLate.count(); }

// Whether a line comes so close to a limit that follows from the one before that reading it late makes a difference.
bool isNearALimit(const Moments& life, const MomentsOutcome& outcome, std::size_t line) {
  if (line == 0) return false;
  const LineOutcome& before = outcome.lines[line - 1];
  const milliseconds at = life.lines[line].at;
  return isNear(at, before.repeatLimit) || isNear(at, before.forgetLimit);
}

std::string textOf(const Moments& life) {
  std::string lines = "seed " + std::to_string(life.seed) + ", a call takes " + std::to_string(life.callTime.count()) +
                      " us, drawing " + std::to_string(life.draw.count()) + " ms\n";
  for (const Report& report : life.reports) {
    lines += std::to_string(report.at.count()) + " ms: " + (report.node == kMouseNode ? "mouse " : "keyboard ") +
             std::to_string(report.type) + " " + std::to_string(report.code) + " " + std::to_string(report.value) +
             "\n";
  }
  for (const Line& line : life.lines) {
    lines += std::to_string(line.at.count()) + " ms: " + line.button + " " + std::to_string(line.repeat) + "\n";
  }
  return lines;
}

// ---- The tests ----------------------------------------------------------------------------------

class LoopMoments : public testing::Test {
 protected:
  LoopMoments() {
    resetLog();
    setMinLogLevel(3);
    setVlogLevel(0);
  }
};

TEST_F(LoopMoments, GiveWhatKeyboardAndMouseSendAtAnyMoment) {
  for (std::uint64_t seed = 0; seed < QUARLO_LIVES / 10; ++seed) {
    const Moments life = MomentsAuthor(seed).life(false);
    const MomentsOutcome alone = liveWith10Ms(life);
    const MomentsOutcome loop = liveWithLoop(life);
    ASSERT_EQ(loop.keyboard, alone.keyboard) << textOf(life);
    ASSERT_EQ(loop.mouse, alone.mouse) << textOf(life);
  }
}

// A line that is read late can miss a limit, or meet one; what follows from that ends with the next press.
TEST_F(LoopMoments, GiveTheRemotesKeyDownsOfA10MsLoopButWhereALineIsNearALimit) {
  int differing = 0;
  int lines = 0;
  for (std::uint64_t seed = 0; seed < QUARLO_LIVES / 100; ++seed) {
    const Moments life = MomentsAuthor(seed).life(true);
    const MomentsOutcome alone = liveWith10Ms(life);
    const MomentsOutcome loop = liveWithLoop(life);
    ASSERT_EQ(loop.keyboard, alone.keyboard) << textOf(life);
    ASSERT_EQ(loop.mouse, alone.mouse) << textOf(life);
    ASSERT_EQ(loop.lines.size(), life.lines.size());
    bool mayDiffer = false;
    for (std::size_t i = 0; i < life.lines.size(); ++i, ++lines) {
      if (life.lines[i].repeat == 0) mayDiffer = false;
      mayDiffer = mayDiffer || isNearALimit(life, alone, i) || isNearALimit(life, loop, i);
      if (alone.lines[i].isKeyDown == loop.lines[i].isKeyDown) continue;
      ++differing;
      ASSERT_TRUE(mayDiffer) << textOf(life) << "at " << life.lines[i].at.count() << " ms, which is a key-down with "
                             << (loop.lines[i].isKeyDown ? "the loop" : "the class") << " alone";
    }
  }
  EXPECT_LT(differing, lines / 10);
}

}  // namespace
}  // namespace quarlo::test::lives
