// The reader's listing of a machine's nodes, line by line.
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

class ListingTest : public ScenarioTest {
 protected:
  // What was printed; what was logged is left in the log.
  std::string list() {
    const LinuxInputReader reader;
    testing::internal::CaptureStdout();
    reader.listLinuxInputReader();
    return testing::internal::GetCapturedStdout();
  }
};

TEST_F(ListingTest, AMouse) {
  world->plug(mouse("USB Mouse"));
  EXPECT_EQ(list(),
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n"
            "  Event type 0x02  (Relative Axes)\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: USB Mouse", "INFO Probably a mouse"}));
}

TEST_F(ListingTest, AKeyboard) {
  world->plug(keyboard("USB Keyboard"));
  EXPECT_EQ(list(),
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n"
            "  Event type 0x04  (Something miscellaneous)\n"
            "  Event type 0x14  (Repeat)\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: USB Keyboard", "INFO Probably a keyboard"}));
}

TEST_F(ListingTest, ATouchscreen) {
  world->plug(touchscreen());
  EXPECT_EQ(list(),
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n"
            "  Event type 0x03  (Absolute Axes)\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: Touchscreen", "INFO Probably a touchscreen"}));
}

TEST_F(ListingTest, OneDeviceCanBeTwoThings) {
  world->plug(keyboardWithTouchpad());
  list();
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: Keyboard with Touchpad", "INFO Probably a mouse",
                              "INFO Probably a keyboard"}));
}

TEST_F(ListingTest, HeldNodesAndGapsAreLeftOut) {
  Plugged& held = world->plug(powerButton());
  Plugged& gap = world->plug(mouse());
  world->plug(mediaKeys());
  ASSERT_TRUE(held.grabElsewhere());
  gap.unplug();
  EXPECT_EQ(list(),
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event2: Media Keys"}));
}

TEST_F(ListingTest, Event9IsTheLast) {
  for (int number = 0; number < 11; ++number) world->plug(powerButton());
  list();
  EXPECT_EQ(takeLog().back(), "INFO /dev/input/event9: Power Button");
}

}  // namespace
}  // namespace quarlo::test
