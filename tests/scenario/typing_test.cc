// Keys, as a person presses them.
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

constexpr unsigned kControl = 1;
constexpr unsigned kShift = 2;

class TypingTest : public ScenarioTest {
 protected:
  TypingTest() { openNodes(reader, kNowhere, device.path().c_str()); }

  // The next event; a call that reads nothing but the end of a report gives none.
  std::string next() {
    constexpr int kTries = 10;
    std::string event = kNone;
    for (int i = 0; i < kTries && event == kNone; ++i) event = readOne(reader, 1000);
    return event;
  }

  Plugged& device = world->plug(keyboard());
  LinuxInputReader reader;
};

TEST_F(TypingTest, HoldShiftPressAReleaseBoth) {
  device.press(KEY_LEFTSHIFT);
  device.press(KEY_A);
  device.release(KEY_A);
  device.release(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader),
            Lines({keyDown(16, 0, kShift), keyDown(65, 'A', kShift), keyUp(65, 'A', kShift), keyUp(16)}));
}

TEST_F(TypingTest, AShortcutKeepsItsCharacter) {
  device.press(KEY_LEFTCTRL);
  device.tap(KEY_C);
  device.release(KEY_LEFTCTRL);
  EXPECT_EQ(readAll(reader),
            Lines({keyDown(17, 0, kControl), keyDown(67, 'c', kControl), keyUp(67, 'c', kControl), keyUp(17)}));
}

TEST_F(TypingTest, OneReportCanHoldSeveralKeys) {
  device.report(EV_MSC, MSC_SCAN, 0x70004);
  device.report(EV_KEY, KEY_A, 1);
  device.report(EV_MSC, MSC_SCAN, 0x70005);
  device.report(EV_KEY, KEY_B, 1);
  device.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'a'), keyDown(66, 'b')}));
}

TEST_F(TypingTest, AHeldKeyComesAgainAndAgain) {
  device.press(KEY_A);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(next(), keyDown(65, 'a'));
  device.release(KEY_A);
  EXPECT_EQ(readAll(reader).back(), keyUp(65, 'a'));
}

TEST_F(TypingTest, NumLockLetsTheKeypadType) {
  device.tap(KEY_KP7);
  device.tap(KEY_NUMLOCK);
  device.tap(KEY_KP7);
  EXPECT_EQ(readAll(reader),
            Lines({keyDown(103), keyUp(103), keyDown(144), keyUp(144), keyDown(103, '7'), keyUp(103, '7')}));
}

TEST_F(TypingTest, EachAutoRepeatOfNumLockSwitchesIt) {
  device.press(KEY_NUMLOCK);
  for (const bool on : {true, false, true}) {
    EXPECT_EQ(next(), keyDown(144));
    EXPECT_EQ(reader.numLock, on);
  }
}

TEST_F(TypingTest, ABurstBetweenTwoCallsIsReadWhole) {
  Lines expected;
  for (int i = 0; i < 10; ++i) {
    device.tap(KEY_X);
    expected.push_back(keyDown(88, 'x'));
    expected.push_back(keyUp(88, 'x'));
  }
  EXPECT_EQ(readAll(reader), expected);
}

TEST_F(TypingTest, AWaitEndsWithTheKey) {
  EXPECT_EQ(readOne(reader), kNone);
  device.press(KEY_A);
  EXPECT_EQ(readOne(reader, 1), keyDown(65, 'a'));
}

using TwoKeyboardsTest = ScenarioTest;

// A reader has one keyboard. What is opened as the mouse is not asked what it is.
TEST_F(TwoKeyboardsTest, ASecondKeyboardCanBeGivenAsTheMouseAndSharesTheModifiers) {
  Plugged& first = world->plug(keyboard());
  Plugged& second = world->plug(keyboard());
  LinuxInputReader reader;
  openNodes(reader, second.path().c_str(), first.path().c_str());
  second.press(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift)}));
  first.press(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'A', kShift)}));
}

}  // namespace
}  // namespace quarlo::test
