// InputLoop: sources that flood keep neither the drawing nor the keyboard waiting. In virtual time: calls and the
// application's handling of an event take some of it.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>

#include "tests/unit/loop_test.h"

namespace quarlo::test {
namespace {

using std::chrono::microseconds;

constexpr microseconds kFrame(16'667);  // 60 a second
constexpr int kFrames = 120;
constexpr microseconds kDrawing = 2ms;

// An application that draws 60 frames a second, and somebody who types meanwhile.
class LoopFlood : public LoopTest {
 protected:
  LoopFlood() {
    machine.setTracing(false);
    machine.setCallTime(2us);
    setMinLogLevel(2);
    setVlogLevel(0);
    type();
  }

  // What is scheduled must not happen while its fixture goes: closing takes no time.
  ~LoopFlood() override { machine.setCallTime(0us); }

  LoopFlood(const LoopFlood&) = delete;
  LoopFlood& operator=(const LoopFlood&) = delete;

  // Lines of the greatest length that is read at once, as many as the daemon can send to one who is slow.
  void floodLines() {
    while (lines_ < kUnreadLines) {
      daemon.sendText(std::string(127 - kLine.size(), '0') + kLine);
      ++lines_;
    }
    machine.after(100us, [this] { floodLines(); });
  }

  // Motion and clicks at more than can be handled: the queue of the node is never empty.
  void floodMouse() {
    mouse.inject(EV_REL, REL_X, isDown_ ? 1 : -1);
    mouse.inject(EV_KEY, BTN_LEFT, isDown_ ? 0 : 1);
    mouse.inject(EV_SYN, SYN_REPORT, 0);
    isDown_ = !isDown_;
    machine.after(30us, [this] { floodMouse(); });
  }

  void drawAll() {
    const auto start = machine.now();
    for (int frame = 1; frame <= kFrames;) {
      const auto due = start + frame * kFrame;
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - machine.now());
      loop.wait(static_cast<int>(std::max(left, 0ms) / 1ms));
      takeRound();
      if (machine.now() < due) continue;
      longestDelay = std::max(longestDelay, machine.now() - due);
      machine.advance(kDrawing);
      ++frame;
    }
  }

  microseconds handling = 20us;  // of an event
  microseconds longestDelay{0};  // of a frame
  microseconds longestType{0};   // from a key to its event
  int keys = 0;
  std::size_t events = 0;

 private:
  static constexpr int kUnreadLines = 40;
  inline static const std::string kLine = " 00 KEY_VOLUMEUP myremote\n";

  void type() {
    keyboard.inject(EV_KEY, KEY_A, 1);
    keyboard.inject(EV_SYN, SYN_REPORT, 0);
    typed_ = machine.now();
    machine.after(73ms, [this] { type(); });
  }

  void takeRound() {
    InputEvent event;
    while (loop.next(event)) {
      ++events;
      if (loop.source() == InputLoop::kRemote) --lines_;
      if (loop.source() == InputLoop::kKeyboard) {
        ++keys;
        longestType = std::max(longestType, machine.now() - typed_);
      }
      machine.advance(handling);
    }
  }

  microseconds typed_{0};
  int lines_ = 0;
  bool isDown_ = false;
};

// As many frames as in a time without a flood, none of them a frame late, and each key within two.
#define EXPECT_DRAWN_AND_TYPED()      \
  EXPECT_LT(longestDelay, kFrame);    \
  EXPECT_LT(longestType, 2 * kFrame); \
  EXPECT_EQ(keys, kFrames* kFrame / 73ms + 1)

TEST_F(LoopFlood, OfLinesHoldsUpNeitherFramesNorKeys) {
  floodLines();
  drawAll();
  EXPECT_DRAWN_AND_TYPED();
  EXPECT_GT(events, 50'000U);
}

TEST_F(LoopFlood, OfTheMouseHoldsUpNeitherFramesNorKeys) {
  floodMouse();
  drawAll();
  EXPECT_DRAWN_AND_TYPED();
  EXPECT_GT(events, 50'000U);
}

TEST_F(LoopFlood, OfBothHoldsUpNeitherFramesNorKeys) {
  floodLines();
  floodMouse();
  drawAll();
  EXPECT_DRAWN_AND_TYPED();
  EXPECT_GT(events, 50'000U);
}

TEST_F(LoopFlood, OfBothHoldsUpNeitherFramesNorKeysOfASlowApplicationWithALowBound) {
  handling = 150us;
  loop.setBound(24, 4);
  floodLines();
  floodMouse();
  drawAll();
  EXPECT_DRAWN_AND_TYPED();
}

}  // namespace
}  // namespace quarlo::test
