// The pointer, as a hand moves it.
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

constexpr int kLeft = 1;
constexpr int kRight = 2;

class PointerTest : public ScenarioTest {
 protected:
  PointerTest() { openNodes(reader, device.path().c_str(), kNowhere); }

  Plugged& device = world->plug(mouse());
  LinuxInputReader reader;
};

TEST_F(PointerTest, MotionIsGatheredIntoOneMove) {
  device.move(100, 50);
  device.move(20, 0);
  device.move(0, -10);
  EXPECT_EQ(readAll(reader), Lines({moved(120, 40)}));
}

TEST_F(PointerTest, ADrainTakes20RecordsThatAreNotButtons) {
  for (int i = 0; i < 10; ++i) device.move(1, 1);  // three records each
  EXPECT_EQ(readAll(reader), Lines({moved(7, 7), moved(10, 10)}));
}

TEST_F(PointerTest, TheBoundsHoldThePointer) {
  device.move(-5, 5000);
  EXPECT_EQ(readAll(reader), Lines({moved(0, 720)}));
  device.move(100000, -3);
  EXPECT_EQ(readAll(reader), Lines({moved(1280, 717)}));
}

TEST_F(PointerTest, AButtonDoesNotOvertakeTheMotionBeforeIt) {
  device.move(10, 20);
  device.press(BTN_LEFT);
  EXPECT_EQ(readAll(reader), Lines({moved(10, 20), buttonDown(kLeft, 10, 20, 1)}));
}

TEST_F(PointerTest, ADragCarriesItsButton) {
  device.press(BTN_RIGHT);
  device.move(7, 0);
  EXPECT_EQ(readAll(reader), Lines({buttonDown(kRight, 0, 0, 1), moved(7, 0, kRight)}));
  device.release(BTN_RIGHT);
  device.move(1, 0);
  EXPECT_EQ(readAll(reader), Lines({buttonUp(kRight, 7, 0, 1), moved(8, 0)}));
}

TEST_F(PointerTest, PressesWithin400MsCountOn) {
  Lines events;
  for (int i = 0; i < 3; ++i) {
    device.tap(BTN_LEFT);
    for (const std::string& event : readAll(reader)) events.push_back(event);
    world->pass(100ms);
  }
  EXPECT_EQ(events, Lines({buttonDown(kLeft, 0, 0, 1), buttonUp(kLeft, 0, 0, 1), buttonDown(kLeft, 0, 0, 2),
                           buttonUp(kLeft, 0, 0, 2), buttonDown(kLeft, 0, 0, 3), buttonUp(kLeft, 0, 0, 3)}));
}

TEST_F(PointerTest, APressAfterAPauseIsSingle) {
  device.tap(BTN_LEFT);
  readAll(reader);
  world->pass(500ms);
  device.tap(BTN_LEFT);
  EXPECT_EQ(readAll(reader), Lines({buttonDown(kLeft, 0, 0, 1), buttonUp(kLeft, 0, 0, 1)}));
}

TEST_F(PointerTest, ASideButtonIsTrueWithoutAnEvent) {
  device.tap(BTN_SIDE);
  EXPECT_EQ(readAll(reader), Lines({kNothingWritten, kNothingWritten}));
}

TEST_F(PointerTest, ATouchIsALeftButtonWhereThePointerIs) {
  LinuxInputReader touchReader;
  Plugged& screen = world->plug(touchscreen());
  openNodes(touchReader, screen.path().c_str(), kNowhere);
  screen.report(EV_ABS, ABS_X, 300);
  screen.report(EV_ABS, ABS_Y, 200);
  screen.report(EV_KEY, BTN_TOUCH, 1);
  screen.report(EV_SYN, SYN_REPORT, 0);
  screen.release(BTN_TOUCH);
  EXPECT_EQ(readAll(touchReader), Lines({buttonDown(kLeft, 0, 0, 1), buttonUp(kLeft, 0, 0, 1)}));
}

}  // namespace
}  // namespace quarlo::test
