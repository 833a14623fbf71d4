// What is lost, and that the rest goes on: full queues, unplugged devices.
#include <sys/ioctl.h>

#include <cerrno>

#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

constexpr char kReadFailed[] = "ERROR Reading from input device failed, errno = 19";

constexpr unsigned kShift = 2;

class LossTest : public ScenarioTest {
 protected:
  LossTest() { openNodes(reader, pointer.path().c_str(), keys.path().c_str()); }

  Plugged& pointer = world->plug(mouse());
  Plugged& keys = world->plug(keyboard());
  LinuxInputReader reader;
};

TEST_F(LossTest, AFullKeyboardQueueLosesAllButTheNewest) {
  for (int i = 0; i < 16; ++i) keys.tap(KEY_A);  // the 64th record is the last one's SYN_REPORT
  keys.press(KEY_B);
  EXPECT_EQ(readAll(reader), Lines({keyDown(66, 'b')}));
  keys.release(KEY_B);
  EXPECT_EQ(readAll(reader), Lines({keyUp(66, 'b')}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(LossTest, AModifierWhoseReleaseIsLostStaysDown) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift)}));
  keys.release(KEY_LEFTSHIFT);
  for (int i = 0; i < 16; ++i) keys.tap(KEY_A);
  keys.press(KEY_B);
  EXPECT_EQ(readAll(reader).back(), keyDown(66, 'B', kShift));
}

TEST_F(LossTest, AFullMouseQueueLosesMotion) {
  for (int i = 0; i < 43; ++i) pointer.move(1, 0);  // two records each
  EXPECT_EQ(readAll(reader), Lines({moved(10, 0), moved(20, 0), moved(30, 0), moved(40, 0), moved(43, 0)}));
  for (int i = 0; i < 64; ++i) pointer.move(1, 0);  // 128 records: one too many
  EXPECT_EQ(readAll(reader), Lines({}));
  pointer.move(1, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(44, 0)}));
}

TEST_F(LossTest, AnUnpluggedDeviceIsAnErrorPerCallAndTheOthersGoOn) {
  keys.press(KEY_A);
  keys.unplug();
  pointer.move(3, 4);
  EXPECT_EQ(readOne(reader), moved(3, 4));
  EXPECT_EQ(takeLog(), Lines({kReadFailed}));
  EXPECT_EQ(readOne(reader), kNone);
  EXPECT_EQ(readOne(reader), kNone);
  EXPECT_EQ(takeLog(), Lines({kReadFailed, kReadFailed}));
}

TEST_F(LossTest, ADeviceThatComesBackNeedsANewReader) {
  keys.unplug();
  Plugged& again = world->plug(keyboard());
  EXPECT_EQ(again.path(), keys.path());
  again.press(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({}));
  LinuxInputReader next;
  openNodes(next, kNowhere, again.path().c_str());
  again.press(KEY_B);
  EXPECT_EQ(readAll(next), Lines({keyDown(66, 'b')}));
}

TEST_F(LossTest, WhatAnotherProcessGrabsInMidLifeIsSilentlyItsOwn) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift)}));
  ASSERT_TRUE(keys.grabElsewhere());
  keys.release(KEY_LEFTSHIFT);
  keys.tap(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({}));
  keys.letGoElsewhere();
  EXPECT_EQ(readAll(reader), Lines({}));
  EXPECT_EQ(takeLog(), Lines({}));
  keys.tap(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'A', kShift), keyUp(65, 'A', kShift)}));
  keys.tap(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift), keyUp(16)}));
}

TEST_F(LossTest, ARefusedQueryIsAnErrorAndAnswersNo) {
  keys.unplug();
  EXPECT_FALSE(reader.hasRelEvent(reader.keyboardFd));
  EXPECT_FALSE(reader.hasAbsEvent(reader.keyboardFd));
  EXPECT_FALSE(reader.hasKeyEvent(reader.keyboardFd, false));
  EXPECT_EQ(takeLog(), Lines({"ERROR evdev ioctl failed in testRel", "ERROR evdev ioctl failed in testAbs",
                              "ERROR evdev ioctl failed in testKey"}));
}

}  // namespace
}  // namespace quarlo::test
