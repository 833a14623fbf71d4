// Pointer motion and buttons: the handlers by themselves, record by record.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

constexpr int kLeft = InputEvent::MouseData::kLeft;
constexpr int kRight = InputEvent::MouseData::kRight;
constexpr int kMiddle = InputEvent::MouseData::kMiddle;

// A handler's result, and what it wrote.
struct Outcome {
  bool result;
  std::string event;
  bool operator==(const Outcome& other) const { return result == other.result && event == other.event; }
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << (outcome.result ? "true, " : "false, ") << outcome.event;
}

class PointerTest : public MachineTest {
 protected:
  PointerTest() {
    reader.maxX = 1280;
    reader.maxY = 720;
  }

  Outcome step(int code, int value) {
    input_event record = makeEvdevRecord(EV_REL, code, value);
    InputEvent event = untouched();
    const bool result = reader.handleRelEvent(&record, event);
    return {result, text(event)};
  }

  Outcome button(int code, int value) {
    input_event record = makeEvdevRecord(EV_KEY, code, value);
    InputEvent event = untouched();
    const bool result = reader.handleKeyEvent(&record, event);
    return {result, text(event)};
  }

  // Presses and releases, and returns the click count of the press.
  int click(int code) {
    input_event record = makeEvdevRecord(EV_KEY, code, 1);
    InputEvent event = untouched();
    reader.handleKeyEvent(&record, event);
    button(code, 0);
    return event.mouseData.clicks;
  }

  LinuxInputReader reader;
};

// ---- Motion -------------------------------------------------------------------------------------

TEST_F(PointerTest, Motion_AddsStepsInXAndInY) {
  EXPECT_EQ(step(REL_X, 5), (Outcome{true, moved(5, 0)}));
  EXPECT_TRUE(reader.pointerMoved);
  EXPECT_EQ(step(REL_Y, 7), (Outcome{true, moved(5, 7)}));
  EXPECT_EQ(step(REL_X, -2), (Outcome{true, moved(3, 7)}));
  EXPECT_EQ(step(REL_Y, -3), (Outcome{true, moved(3, 4)}));
}

TEST_F(PointerTest, Motion_AStepInYAloneCountsAsMotion) {
  step(REL_Y, 1);
  EXPECT_TRUE(reader.pointerMoved);
}

TEST_F(PointerTest, Motion_StopsAtTheBoundsWhichAreInclusive) {
  reader.pointerX = 1270;
  reader.pointerY = 710;
  EXPECT_EQ(step(REL_X, 10), (Outcome{true, moved(1280, 710)}));
  EXPECT_EQ(step(REL_X, 50), (Outcome{true, moved(1280, 710)}));
  EXPECT_EQ(step(REL_Y, 11), (Outcome{true, moved(1280, 720)}));
  reader.pointerX = 3;
  reader.pointerY = 3;
  EXPECT_EQ(step(REL_X, -3), (Outcome{true, moved(0, 3)}));
  EXPECT_EQ(step(REL_X, -1), (Outcome{true, moved(0, 3)}));
  EXPECT_EQ(step(REL_Y, -10), (Outcome{true, moved(0, 0)}));
}

TEST_F(PointerTest, Motion_TheLargestStepsDoNotOverflow) {
  reader.maxX = INT_MAX;
  reader.pointerX = INT_MAX;
  step(REL_X, INT_MAX);
  EXPECT_EQ(reader.pointerX, INT_MAX);
  step(REL_X, INT_MIN);
  EXPECT_EQ(reader.pointerX, 0);
  reader.pointerX = INT_MIN;  // as negative bounds leave it
  step(REL_X, -1);
  EXPECT_EQ(reader.pointerX, 0);
}

TEST_F(PointerTest, Motion_WithinNegativeBoundsEndsAtTheBound) {
  reader.maxX = -1;
  reader.maxY = INT_MIN;
  step(REL_X, 5);
  step(REL_Y, 5);
  EXPECT_EQ(reader.pointerX, -1);
  EXPECT_EQ(reader.pointerY, INT_MIN);
  EXPECT_EQ(step(REL_Y, -5), (Outcome{true, moved(0xFFFF, 0)}));
}

TEST_F(PointerTest, Motion_EventsHaveTheLow16BitsOfThePosition) {
  reader.maxX = 100000;
  EXPECT_EQ(step(REL_X, 65536 + 12), (Outcome{true, moved(12, 0)}));
  EXPECT_EQ(reader.pointerX, 65548);
}

TEST_F(PointerTest, Motion_AWheelAloneWritesNothing) {
  EXPECT_EQ(step(REL_WHEEL, 1), (Outcome{true, kNothingWritten}));
  EXPECT_FALSE(reader.pointerMoved);
}

TEST_F(PointerTest, Motion_AWheelAfterMotionWritesTheCurrentPosition) {
  step(REL_X, 5);
  step(REL_Y, 6);
  EXPECT_EQ(step(REL_WHEEL, 1), (Outcome{true, moved(5, 6)}));
}

TEST_F(PointerTest, Motion_CarriesTheButtonThatIsHeld) {
  button(BTN_RIGHT, 1);
  EXPECT_EQ(step(REL_X, 5), (Outcome{true, moved(5, 0, kRight)}));
  button(BTN_RIGHT, 0);
  EXPECT_EQ(step(REL_X, 5), (Outcome{true, moved(10, 0)}));
}

// ---- Buttons ------------------------------------------------------------------------------------

TEST_F(PointerTest, Buttons_ThreeOfThemHaveANumber) {
  reader.pointerX = 30;
  reader.pointerY = 40;
  EXPECT_EQ(button(BTN_LEFT, 1), (Outcome{true, buttonDown(kLeft, 30, 40, 1)}));
  EXPECT_EQ(reader.pressedButton, kLeft);
  EXPECT_EQ(button(BTN_LEFT, 0), (Outcome{true, buttonUp(kLeft, 30, 40, 1)}));
  EXPECT_EQ(reader.pressedButton, 0);
  EXPECT_EQ(button(BTN_RIGHT, 1), (Outcome{true, buttonDown(kRight, 30, 40, 1)}));
  EXPECT_EQ(button(BTN_RIGHT, 0), (Outcome{true, buttonUp(kRight, 30, 40, 1)}));
  EXPECT_EQ(button(BTN_MIDDLE, 1), (Outcome{true, buttonDown(kMiddle, 30, 40, 1)}));
  EXPECT_EQ(reader.pressedButton, kMiddle);
  EXPECT_EQ(button(BTN_MIDDLE, 0), (Outcome{true, buttonUp(kMiddle, 30, 40, 1)}));
}

TEST_F(PointerTest, Buttons_OtherValuesThan0And2ArePresses) {
  EXPECT_EQ(button(BTN_LEFT, -1), (Outcome{true, buttonDown(kLeft, 0, 0, 1)}));
  EXPECT_EQ(button(BTN_LEFT, 3), (Outcome{true, buttonDown(kLeft, 0, 0, 2)}));
}

TEST_F(PointerTest, Buttons_AutoRepeatWritesNothingAndChangesNothing) {
  button(BTN_LEFT, 1);
  for (const int code : {BTN_RIGHT, BTN_SIDE, BTN_TOUCH}) {
    EXPECT_EQ(button(code, 2), (Outcome{false, kNothingWritten})) << code;
  }
  EXPECT_EQ(reader.pressedButton, kLeft);
  EXPECT_EQ(machine.count(Call::kGettimeofday), 1);
}

TEST_F(PointerTest, Buttons_TheOthersOfTheMouseBlockWriteNothing) {
  for (int code = BTN_SIDE; code <= 287; ++code) {
    EXPECT_EQ(button(code, 1), (Outcome{true, kNothingWritten})) << code;
    EXPECT_EQ(button(code, 0), (Outcome{true, kNothingWritten})) << code;
  }
  EXPECT_EQ(reader.pressedButton, 0);
}

TEST_F(PointerTest, Buttons_TheCodesAroundTheMouseBlockAreKeys) {
  EXPECT_EQ(button(271, 1), (Outcome{true, keyDown(0)}));
  EXPECT_EQ(button(288, 1), (Outcome{true, keyDown(0)}));
}

TEST_F(PointerTest, Buttons_ATouchIsALeftButtonAndItsRecordIsRewritten) {
  for (const int code : {BTN_TOUCH, BTN_TOOL_FINGER}) {
    machine.advance(1s);
    input_event record = makeEvdevRecord(EV_KEY, code, 1);
    InputEvent event = untouched();
    EXPECT_TRUE(reader.handleKeyEvent(&record, event));
    EXPECT_EQ(text(event), buttonDown(kLeft, 0, 0, 1));
    EXPECT_EQ(record.code, BTN_LEFT);
  }
}

TEST_F(PointerTest, Buttons_OtherTouchToolsAreUnknownKeys) {
  EXPECT_EQ(button(BTN_TOOL_PEN, 1), (Outcome{true, keyDown(0)}));
  EXPECT_EQ(button(BTN_STYLUS, 1), (Outcome{true, keyDown(0)}));
}

TEST_F(PointerTest, Buttons_ReleasingOneClearsTheOtherThatIsHeld) {
  button(BTN_RIGHT, 1);
  button(BTN_LEFT, 1);
  ASSERT_EQ(reader.pressedButton, kLeft);
  button(BTN_RIGHT, 0);
  EXPECT_EQ(reader.pressedButton, 0);
  EXPECT_EQ(step(REL_X, 1), (Outcome{true, moved(1, 0, 0)}));
}

TEST_F(PointerTest, Buttons_AReleaseDoesNotReadTheClock) {
  button(BTN_LEFT, 0);
  EXPECT_EQ(machine.count(Call::kGettimeofday), 0);
}

// ---- Clicks -------------------------------------------------------------------------------------

TEST_F(PointerTest, Clicks_AreCountedFromPressToPressWithinTheWindow) {
  EXPECT_EQ(button(BTN_LEFT, 1), (Outcome{true, buttonDown(kLeft, 0, 0, 1)}));
  EXPECT_EQ(button(BTN_LEFT, 0), (Outcome{true, buttonUp(kLeft, 0, 0, 1)}));
  machine.advance(300ms);
  EXPECT_EQ(button(BTN_LEFT, 1), (Outcome{true, buttonDown(kLeft, 0, 0, 2)}));
  EXPECT_EQ(button(BTN_LEFT, 0), (Outcome{true, buttonUp(kLeft, 0, 0, 2)}));
  machine.advance(350ms);
  EXPECT_EQ(click(BTN_LEFT), 3);
  machine.advance(450ms);
  EXPECT_EQ(click(BTN_LEFT), 1);
}

TEST_F(PointerTest, Clicks_TheWindowEndsAt400MsTruncated) {
  EXPECT_EQ(click(BTN_LEFT), 1);
  machine.advance(399'999us);
  EXPECT_EQ(click(BTN_LEFT), 2);
  machine.advance(400ms);
  EXPECT_EQ(click(BTN_LEFT), 1);
}

// From x.900500 s to 399.5 ms later: (300000 - 900500) us / 1000 is -600, so that counts as 400 ms.
TEST_F(PointerTest, Clicks_MicrosecondsAreTruncatedTowardZeroByThemselves) {
  machine.advance(1'900'500us - machine.now() % 1s);
  EXPECT_EQ(click(BTN_LEFT), 1);
  machine.advance(399'500us);
  EXPECT_EQ(click(BTN_LEFT), 1);
  machine.advance(1'900'500us - machine.now() % 1s);
  EXPECT_EQ(click(BTN_LEFT), 1);
  machine.advance(399'000us);
  EXPECT_EQ(click(BTN_LEFT), 2);
}

TEST_F(PointerTest, Clicks_AReleaseReportsThePressBeforeItHoweverLate) {
  click(BTN_LEFT);
  machine.advance(100ms);
  button(BTN_LEFT, 1);
  machine.advance(5s);
  EXPECT_EQ(button(BTN_LEFT, 0), (Outcome{true, buttonUp(kLeft, 0, 0, 2)}));
}

TEST_F(PointerTest, Clicks_TheButtonsCountByThemselves) {
  EXPECT_EQ(click(BTN_LEFT), 1);
  EXPECT_EQ(click(BTN_RIGHT), 1);
  EXPECT_EQ(click(BTN_MIDDLE), 1);
  EXPECT_EQ(click(BTN_RIGHT), 2);
  EXPECT_EQ(click(BTN_MIDDLE), 2);
  EXPECT_EQ(click(BTN_MIDDLE), 3);
  EXPECT_EQ(click(BTN_LEFT), 2);
}

TEST_F(PointerTest, Clicks_ReadersShareOneHistory) {
  EXPECT_EQ(click(BTN_LEFT), 1);
  LinuxInputReader other;
  input_event record = makeEvdevRecord(EV_KEY, BTN_LEFT, 1);
  InputEvent event = untouched();
  other.handleKeyEvent(&record, event);
  EXPECT_EQ(text(event), buttonDown(kLeft, 0, 0, 2));
}

TEST_F(PointerTest, Clicks_TheCountWrapsIn8BitsOfTheEvent) {
  for (int i = 1; i < 256; ++i) EXPECT_EQ(click(BTN_LEFT), i);
  EXPECT_EQ(click(BTN_LEFT), 0);
  EXPECT_EQ(click(BTN_LEFT), 1);
}

TEST_F(PointerTest, Clicks_AClockThatGoesBackCountsOn) {
  click(BTN_LEFT);
  machine.jumpClock(-3600s);
  EXPECT_EQ(click(BTN_LEFT), 2);
}

// 1000 x 3,000,000 s is 3,000,000,000 ms, which is negative in 32 bits.
TEST_F(PointerTest, Clicks_ElapsedTimeWrapsIn32Bits) {
  click(BTN_LEFT);
  machine.jumpClock(3'000'000s);
  EXPECT_EQ(click(BTN_LEFT), 2);
  machine.jumpClock(4'294'967s);  // 296 ms before the wrap: -296 ms
  EXPECT_EQ(click(BTN_LEFT), 3);
  machine.jumpClock(4'294'968s);  // 704 ms after it
  EXPECT_EQ(click(BTN_LEFT), 1);
}

// As in a 32-bit program with 32-bit time after January 2038.
TEST_F(PointerTest, Clicks_WithoutAClockCountOn) {
  for (int call = 1; call <= 3; ++call) machine.fail(Call::kGettimeofday, call, EOVERFLOW);
  const int first = click(BTN_LEFT);
  machine.advance(3600s);
  EXPECT_EQ(click(BTN_LEFT), first + 1);
  machine.advance(3600s);
  EXPECT_EQ(click(BTN_LEFT), first + 2);
}

}  // namespace
}  // namespace quarlo::test
