#include "tools/monitor/screen_model.h"

#include <gtest/gtest.h>

#include <chrono>

namespace quarlo::tools::monitor {
namespace {

using namespace std::chrono_literals;
using msg::KeyInput;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;
using Lines = std::deque<std::string>;

InputEvent keyDown(LinuxInputReader::Key key) {
  InputEvent event = {};
  event.kind = InputEvent::kKeyEvent;
  event.keyData = {KeyData::kDown, key, 0, 0};
  return event;
}

InputEvent mouseEvent(std::int32_t action, std::int32_t button, std::uint16_t x, std::uint16_t y, int clicks = 0) {
  InputEvent event = {};
  event.kind = InputEvent::kMouseEvent;
  event.mouseData = {action, button, x, y, static_cast<std::uint8_t>(clicks)};
  return event;
}

InputEvent moveTo(std::uint16_t x, std::uint16_t y, std::int32_t held = MouseData::kNoButton) {
  return mouseEvent(MouseData::kMove, held, x, y);
}

Origin from(InputLoop::Source source) {
  Origin origin;
  origin.source = source;
  return origin;
}

class ScreenModelTest : public testing::Test {
 protected:
  // The reader, which stands at this position with this button held, is looked at.
  void point(int x, int y, int heldButton = MouseData::kNoButton) {
    reader_.pointerX = x;
    reader_.pointerY = y;
    reader_.pressedButton = heldButton;
    model_.look(model_.time(), reader_);
  }

  // The reader accepts a key-down of the remote, and is looked at.
  void pressRemote(microseconds time, LinuxInputReader::Key key) {
    ++reader_.lircKeyTime.tv_usec;
    reader_.lircKey = key;
    model_.look(time, reader_);
  }

  void releaseRemote(microseconds time) {
    reader_.lircKey = KeyInput::kNone;
    reader_.lircRepeatMode = false;
    model_.look(time, reader_);
  }

  std::vector<std::pair<int, int>> trail() const {
    std::vector<std::pair<int, int>> points;
    for (const Point& point : model_.pointer().trail) points.emplace_back(point.x, point.y);
    return points;
  }

  // The last slots of the remote: 'i' idle, 'h' held, 'r' repeating, with the number of key-downs behind it if any.
  std::string lastSlots(int count) const {
    std::string text;
    const std::deque<RemoteSlot>& history = model_.remote().history;
    for (auto slot = history.end() - count; slot != history.end(); ++slot) {
      text += "ihr"[static_cast<int>(slot->state)];
      if (slot->keyDowns != 0) text += std::to_string(slot->keyDowns);
    }
    return text;
  }

  LinuxInputReader reader_;
  ScreenModel model_{{{"mouse", SourceState::kOpen, "/dev/input/event1", ""},
                      {"keyboard", SourceState::kLeftOut, "", ""},
                      {"remote", SourceState::kOpen, "/run/lircd", ""}},
                     {1919, 1079}};
};

TEST_F(ScreenModelTest, EventsAreLinesWithTheirTime) {
  model_.addEvent(1500ms, keyDown(KeyInput::kUp), from(InputLoop::kKeyboard));
  model_.addEvent(12s, mouseEvent(MouseData::kButtonDown, MouseData::kLeft, 3, 4, 2), from(InputLoop::kMouse));
  EXPECT_EQ(model_.lines(),
            (Lines{"   1.500  keyboard  key down    Up", "  12.000  mouse     mouse down  left x2         3,4"}));
  EXPECT_EQ(model_.counts().events(), 2);
}

TEST_F(ScreenModelTest, ARunOfMovesIsOneLine) {
  model_.addEvent(1s, moveTo(1, 1), from(InputLoop::kMouse));
  model_.addEvent(2s, moveTo(2, 1), from(InputLoop::kMouse));
  model_.addEvent(3s, moveTo(3, 1), from(InputLoop::kMouse));
  EXPECT_EQ(model_.lines(), Lines{"   3.000  mouse     mouse move  3,1             3 moves"});
  EXPECT_EQ(model_.counts().events(), 3);
}

TEST_F(ScreenModelTest, ARunOfMovesIsOfOneSource) {
  model_.addEvent(1s, moveTo(1, 1), from(InputLoop::kMouse));
  model_.addEvent(2s, moveTo(2, 1), from(InputLoop::kFurther));
  model_.addEvent(3s, moveTo(3, 1), {});
  EXPECT_EQ(model_.lines(), (Lines{"   1.000  mouse     mouse move  1,1", "   2.000  node 1    mouse move  2,1",
                                   "   3.000  unknown   mouse move  3,1"}));
}

TEST_F(ScreenModelTest, ARunOfMovesEndsWithAnotherEventALogLineOrAnotherButton) {
  model_.addEvent(1s, moveTo(1, 1), from(InputLoop::kMouse));
  model_.addEvent(2s, keyDown(KeyInput::kUp), from(InputLoop::kKeyboard));
  model_.addEvent(3s, moveTo(2, 2), from(InputLoop::kMouse));
  model_.addLogLine("ERROR of the reader");
  model_.addEvent(4s, moveTo(3, 3), from(InputLoop::kMouse));
  model_.addEvent(5s, moveTo(4, 4, MouseData::kLeft), from(InputLoop::kMouse));
  EXPECT_EQ(model_.lines(), (Lines{"   1.000  mouse     mouse move  1,1", "   2.000  keyboard  key down    Up",
                                   "   3.000  mouse     mouse move  2,2", "          ERROR of the reader",
                                   "   4.000  mouse     mouse move  3,3",
                                   "   5.000  mouse     mouse move  4,4             left held"}));
}

TEST_F(ScreenModelTest, ARecordWithoutAnEventIsALineButNoEvent) {
  InputEvent none = {};
  none.kind = InputEvent::kNoEvent;
  Origin origin = from(InputLoop::kFurther);
  origin.record = recording::Record{0us, EV_KEY, BTN_SIDE, 1};
  model_.addEvent(1s, none, origin);
  EXPECT_EQ(model_.lines(), Lines{"   1.000  node 1    no event    BTN_SIDE 275    EV_KEY, value 1"});
  EXPECT_EQ(model_.counts().events(), 0);
}

TEST_F(ScreenModelTest, AWheelIsALineAndAnEventOfItsOwnKind) {
  InputEvent event = mouseEvent(InputLoop::kVertical, -2, 3, 4);
  event.kind = InputLoop::kWheelEvent;
  model_.addEvent(1s, event, from(InputLoop::kMouse));
  EXPECT_EQ(model_.lines(), Lines{"   1.000  mouse     wheel       down x2         3,4"});
  EXPECT_EQ(model_.counts().summary(1s, false), "1 event in 1.000 s: 0 keys, 0 moves, 0 buttons, 1 wheel");
  EXPECT_FALSE(model_.pointer().lastPress);
}

TEST_F(ScreenModelTest, OldLinesAreForgotten) {
  for (std::size_t i = 0; i <= ScreenModel::kLines; ++i) model_.addLogLine(std::to_string(i));
  EXPECT_EQ(model_.lines().size(), ScreenModel::kLines);
  EXPECT_EQ(model_.lines().front(), "          1");
}

TEST_F(ScreenModelTest, ADragLeavesATrailUntilTheNextOne) {
  point(1, 1);
  point(2, 1, MouseData::kLeft);
  point(2, 1, MouseData::kLeft);
  point(5, 3, MouseData::kLeft);
  point(9, 9);
  EXPECT_EQ(trail(), (std::vector<std::pair<int, int>>{{2, 1}, {5, 3}}));
  EXPECT_EQ(model_.pointer().position.x, 9);
  point(7, 7, MouseData::kRight);
  EXPECT_EQ(trail(), (std::vector<std::pair<int, int>>{{7, 7}}));
  EXPECT_EQ(model_.pointer().heldButton, MouseData::kRight);
}

TEST_F(ScreenModelTest, AnEndlessDragKeepsItsEnd) {
  constexpr int kPoints = 100'000;
  for (int i = 1; i <= kPoints; ++i) point(i % 1920, 0, MouseData::kLeft);
  EXPECT_LE(trail().size(), 5000U);
  EXPECT_EQ(trail().back(), (std::pair<int, int>{kPoints % 1920, 0}));
}

TEST_F(ScreenModelTest, TheLastPressStays) {
  EXPECT_FALSE(model_.pointer().lastPress);
  model_.addEvent(1s, mouseEvent(MouseData::kButtonDown, MouseData::kRight, 3, 4, 2), from(InputLoop::kMouse));
  model_.addEvent(2s, mouseEvent(MouseData::kButtonUp, MouseData::kRight, 5, 6, 2), from(InputLoop::kMouse));
  model_.addEvent(3s, moveTo(7, 8), from(InputLoop::kMouse));
  ASSERT_TRUE(model_.pointer().lastPress);
  EXPECT_EQ(model_.pointer().lastPress->x, 3);
  EXPECT_EQ(model_.pointer().lastPress->clicks, 2);
}

TEST_F(ScreenModelTest, ModifiersAreTheReaders) {
  reader_.modifiers = KeyInput::kShiftModifier | KeyInput::kAltModifier;
  reader_.numLock = true;
  model_.look(1s, reader_);
  EXPECT_EQ(model_.modifiers(), KeyInput::kShiftModifier | KeyInput::kAltModifier);
  EXPECT_TRUE(model_.numLock());
}

TEST_F(ScreenModelTest, TheRemoteIsIdleHeldOrRepeating) {
  model_.look(0s, reader_);
  EXPECT_EQ(model_.remote().state, RemoteState::kIdle);
  reader_.lircTimeout = 300;
  pressRemote(1s, KeyInput::kUp);
  EXPECT_EQ(model_.remote().state, RemoteState::kHeld);
  EXPECT_EQ(model_.remote().key, KeyInput::kUp);
  EXPECT_EQ(model_.remote().gapMs, 300);
  reader_.lircRepeatMode = true;
  model_.look(2s, reader_);
  EXPECT_EQ(model_.remote().state, RemoteState::kRepeating);
}

TEST_F(ScreenModelTest, TheRemotesHistoryMovesOnWithTime) {
  pressRemote(50ms, KeyInput::kUp);
  model_.look(350ms, reader_);
  EXPECT_EQ(lastSlots(5), "ih1hhh");
  reader_.lircRepeatMode = true;
  model_.look(420ms, reader_);
  pressRemote(450ms, KeyInput::kUp);
  releaseRemote(710ms);
  EXPECT_EQ(lastSlots(9), "ih1hhhr1rri");
  model_.look(1s, reader_);
  EXPECT_EQ(lastSlots(12), "ih1hhhr1rriiii");
}

TEST_F(ScreenModelTest, KeyDownsOfTheSameMomentAreCounted) {
  pressRemote(10ms, KeyInput::kUp);
  pressRemote(20ms, KeyInput::kDown);
  pressRemote(30ms, KeyInput::kUp);
  EXPECT_EQ(lastSlots(1), "h3");
}

TEST_F(ScreenModelTest, AKeyThatWasForgottenWithinASlotIsSeenInIt) {
  pressRemote(10ms, KeyInput::kUp);
  releaseRemote(20ms);
  EXPECT_EQ(lastSlots(2), "ih1");
  EXPECT_EQ(model_.remote().state, RemoteState::kIdle);
}

TEST_F(ScreenModelTest, ALongPauseFillsTheHistoryAtOnce) {
  pressRemote(10ms, KeyInput::kUp);
  model_.look(std::chrono::hours(24 * 365), reader_);
  EXPECT_EQ(model_.remote().history.size(), static_cast<std::size_t>(ScreenModel::kSlots));
  EXPECT_EQ(lastSlots(ScreenModel::kSlots), std::string(ScreenModel::kSlots, 'h'));
}

TEST_F(ScreenModelTest, ASourceCanBeGone) {
  model_.setGone(2);
  EXPECT_EQ(model_.sources()[0].state, SourceState::kOpen);
  EXPECT_EQ(model_.sources()[2].state, SourceState::kGone);
}

}  // namespace
}  // namespace quarlo::tools::monitor
