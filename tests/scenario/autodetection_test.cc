// Which nodes the reader finds by itself, and that it leaves them to others.
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using AutodetectionTest = ScenarioTest;

TEST_F(AutodetectionTest, AMouseAndAKeyboardAreFound) {
  world->plug(mouse("USB Mouse"));
  world->plug(keyboard("USB Keyboard"));
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event0 - USB Mouse",
                                      "INFO Found a keyboard: /dev/input/event1 - USB Keyboard"}));
}

TEST_F(AutodetectionTest, WithoutDevicesNothingIsFound) {
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Could not autodetect a suitable mouse device",
                                      "INFO Could not autodetect a suitable keyboard device"}));
}

TEST_F(AutodetectionTest, TheHighestNumberThatFitsIsTaken) {
  for (const char* name : {"First", "Second"}) {
    world->plug(mouse(std::string(name) + " Mouse"));
    world->plug(keyboard(std::string(name) + " Keyboard"));
  }
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event2 - Second Mouse",
                                      "INFO Found a keyboard: /dev/input/event3 - Second Keyboard"}));
}

TEST_F(AutodetectionTest, WhatIsNeitherIsPassedOver) {
  world->plug(mouse());
  world->plug(keyboard());
  world->plug(touchscreen());
  world->plug(powerButton());
  world->plug(mediaKeys());
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event0 - Mouse",
                                      "INFO Found a keyboard: /dev/input/event1 - Keyboard"}));
}

TEST_F(AutodetectionTest, AKeyboardWithATouchpadIsTheMouseAndNeverTheKeyboard) {
  world->plug(keyboardWithTouchpad());
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event0 - Keyboard with Touchpad",
                                      "INFO Could not autodetect a suitable keyboard device"}));
}

TEST_F(AutodetectionTest, GapsInTheNumberingAreSkipped) {
  world->plug(keyboard());
  Plugged& gap = world->plug(powerButton());
  world->plug(mouse());
  gap.unplug();
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event2 - Mouse",
                                      "INFO Found a keyboard: /dev/input/event0 - Keyboard"}));
}

TEST_F(AutodetectionTest, Event10IsTheLastThatIsLookedAt) {
  for (int number = 0; number < 10; ++number) world->plug(powerButton());
  world->plug(mouse("Tenth"));
  world->plug(keyboard("Eleventh"));
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event10 - Tenth",
                                      "INFO Could not autodetect a suitable keyboard device"}));
}

TEST_F(AutodetectionTest, ALongNameIsLoggedWhole) {
  const std::string name(79, 'x');  // the longest that uinput takes
  world->plug(mouse(name));
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader, nullptr, kNowhere), Lines({"INFO Found a mouse: /dev/input/event0 - " + name,
                                                         "ERROR Could not open keyboard device /nowhere"}));
}

TEST_F(AutodetectionTest, ANodeThatAnotherProcessHoldsIsSkipped) {
  world->plug(keyboard("Free"));
  Plugged& held = world->plug(keyboard("Held"));
  ASSERT_TRUE(held.grabElsewhere());
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader, kNowhere).back(), "INFO Found a keyboard: /dev/input/event0 - Free");
}

TEST_F(AutodetectionTest, TheReaderHoldsNothingAfterwards) {
  Plugged& found = world->plug(mouse());
  Plugged& passedOver = world->plug(powerButton());
  LinuxInputReader reader;
  openNodes(reader);
  EXPECT_TRUE(found.grabElsewhere());
  EXPECT_TRUE(passedOver.grabElsewhere());
}

TEST_F(AutodetectionTest, APathIsOpenedWhateverIsHeldOrFits) {
  Plugged& buttons = world->plug(powerButton());
  ASSERT_TRUE(buttons.grabElsewhere());
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader, kNowhere, buttons.path().c_str()), Lines({"ERROR Could not open mouse device /nowhere"}));
  EXPECT_GE(reader.keyboardFd, 0);
  buttons.letGoElsewhere();
  buttons.press(KEY_POWER);
  EXPECT_EQ(readAll(reader), Lines({keyDown(409, 153)}));
}

TEST_F(AutodetectionTest, ALinkIsAPath) {
  Plugged& device = world->plug(keyboard());
  const char* const link = "/dev/input/by-id/usb-Maker_Keyboard-event-kbd";
  world->link(link, device.path());
  LinuxInputReader reader;
  openNodes(reader, kNowhere, link);
  device.press(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'a')}));
}

}  // namespace
}  // namespace quarlo::test
