// The diagnostic listing: log lines, standard output and calls.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

class ListingTest : public MachineTest {
 protected:
  // What the listing prints. The log and the trace are left to the test.
  std::string list() {
    const LinuxInputReader reader;
    machine.takeTrace();
    testing::internal::CaptureStdout();
    reader.listLinuxInputReader();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }

  // The nodes that the listing opened, in order.
  Lines openedNodes() {
    Lines nodes;
    for (const std::string& call : machine.takeTrace()) {
      if (call.rfind("open(", 0) == 0) nodes.push_back(call.substr(6, call.find('"', 6) - 6));
    }
    return nodes;
  }
};

Lines nodes(int from, int to) {
  Lines lines;
  for (int n = from; n <= to; ++n) lines.push_back("/dev/input/event" + std::to_string(n));
  return lines;
}

TEST_F(ListingTest, OfNothingTriesTenNodesUpwardsAndPrintsNothing) {
  EXPECT_EQ(list(), "");
  EXPECT_EQ(openedNodes(), nodes(0, 9));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(ListingTest, OfAKeyboard) {
  machine.addNode("/dev/input/event0", Device::keyboard("USB Keyboard"));
  EXPECT_EQ(list(),
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n"
            "  Event type 0x04  (Something miscellaneous)\n"
            "  Event type 0x11  (LEDs)\n"
            "  Event type 0x14  (Repeat)\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: USB Keyboard", "INFO Probably a keyboard"}));
}

TEST_F(ListingTest, EveryEventTypeHasItsLabelAndForceFeedbackTwo) {
  Device device{"All", {}};
  for (int type = 1; type < EV_MAX; ++type) device.codes[type] = {};
  machine.addNode("/dev/input/event0", device);
  std::string expected = "Supported event types:\n";
  for (int type = 0; type < 31; ++type) {
    char line[128];
    std::snprintf(line, sizeof line, "  Event type 0x%02x ", static_cast<unsigned>(type));
    char unknown[64];
    std::snprintf(unknown, sizeof unknown, " (Unknown event type: 0x%04x)\n", static_cast<unsigned>(type));
    expected += line;
    switch (type) {
      case 1: expected += " (Keys or Buttons)\n"; break;
      case 2: expected += " (Relative Axes)\n"; break;
      case 3: expected += " (Absolute Axes)\n"; break;
      case 4: expected += " (Something miscellaneous)\n"; break;
      case 17: expected += " (LEDs)\n"; break;
      case 18: expected += " (Sounds)\n"; break;
      case 20: expected += " (Repeat)\n"; break;
      case 21: expected += " (Force Feedback)\n (Unknown event type: 0x0015)\n"; break;
      default: expected += unknown;
    }
  }
  EXPECT_EQ(list(), expected);
}

TEST_F(ListingTest, TheLastEventTypeIsNeverShown) {
  machine.addNode("/dev/input/event0", Device{"Odd", {{EV_MAX, {}}}});
  EXPECT_EQ(list(), "Supported event types:\n  Event type 0x00  (Unknown event type: 0x0000)\n");
}

TEST_F(ListingTest, ADeviceCanBeSeveralThings) {
  Device all = Device::keyboard("All");
  all.codes[EV_KEY].insert(BTN_TOUCH);
  all.codes[EV_REL] = {REL_X, REL_Y};
  all.codes[EV_ABS] = {ABS_X, ABS_Y};
  machine.addNode("/dev/input/event0", all);
  list();
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: All", "INFO Probably a mouse", "INFO Probably a touchscreen",
                              "INFO Probably a keyboard"}));
}

TEST_F(ListingTest, EachKindNeedsBothItsAxesAndItsKeys) {
  machine.addNode("/dev/input/event0", Device::mouse("Mouse"));
  machine.addNode("/dev/input/event1", Device::touchscreen("Touchscreen"));
  machine.addNode("/dev/input/event2", Device{"Only relative", {{EV_REL, {REL_X, REL_Y}}}});
  machine.addNode("/dev/input/event3", Device{"Only absolute", {{EV_ABS, {ABS_X, ABS_Y}}}});
  machine.addNode("/dev/input/event4", Device{"Only a button", {{EV_KEY, {BTN_LEFT}}}});
  list();
  EXPECT_EQ(takeLog(),
            Lines({"INFO /dev/input/event0: Mouse", "INFO Probably a mouse", "INFO /dev/input/event1: Touchscreen",
                   "INFO Probably a touchscreen", "INFO /dev/input/event2: Only relative",
                   "INFO /dev/input/event3: Only absolute", "INFO /dev/input/event4: Only a button"}));
}

TEST_F(ListingTest, MakesTheseCallsForANode) {
  machine.addNode("/dev/input/event0", Device::keyboard("Keyboard"));
  list();
  Lines trace = machine.takeTrace();
  trace.resize(10);
  const std::string typesSize = std::to_string(sizeof(long));
  EXPECT_EQ(trace, Lines({
                       "open(\"/dev/input/event0\", O_RDONLY) = 100",
                       "ioctl(100, EVIOCGRAB, 1) = 0",
                       "ioctl(100, EVIOCGNAME(99)) = 9",
                       "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2",
                       "ioctl(100, EVIOCGBIT(EV_ABS, 8)) = 8",
                       "ioctl(100, EVIOCGBIT(EV_KEY, 96)) = 96",
                       "ioctl(100, EVIOCGBIT(0, 31)) = " + typesSize,
                       "ioctl(100, EVIOCGRAB, 0) = 0",
                       "close(100) = 0",
                       "open(\"/dev/input/event1\", O_RDONLY) = -1 ENOENT",
                   }));
}

TEST_F(ListingTest, AsksForTheKeysOfAPointerOnlyWhereTheAxesAre) {
  machine.addNode("/dev/input/event0", Device::mouse("Mouse"));
  list();
  Lines trace = machine.takeTrace();
  trace.erase(trace.begin(), trace.begin() + 3);
  trace.resize(4);
  EXPECT_EQ(trace, Lines({
                       "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2",
                       "ioctl(100, EVIOCGBIT(EV_KEY, 96)) = 96",
                       "ioctl(100, EVIOCGBIT(EV_ABS, 8)) = 8",
                       "ioctl(100, EVIOCGBIT(EV_KEY, 96)) = 96",
                   }));
}

TEST_F(ListingTest, AMissingNodeIsSkipped) {
  machine.addNode("/dev/input/event0", Device::mouse("First"));
  machine.addNode("/dev/input/event2", Device::mouse("Third"));
  machine.addNode("/dev/input/event9", Device::mouse("Tenth"));
  machine.addNode("/dev/input/event10", Device::mouse("Eleventh"));
  list();
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: First", "INFO Probably a mouse", "INFO /dev/input/event2: Third",
                              "INFO Probably a mouse", "INFO /dev/input/event9: Tenth", "INFO Probably a mouse"}));
}

TEST_F(ListingTest, ANodeWithoutItsDeviceEndsIt) {
  machine.addNode("/dev/input/event0", Device::mouse("First"));
  machine.addNode("/dev/input/event1", Device::mouse()).setOpenError(ENODEV);
  machine.addNode("/dev/input/event2", Device::mouse("Third"));
  list();
  EXPECT_EQ(openedNodes(), nodes(0, 1));
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: First", "INFO Probably a mouse"}));
}

TEST_F(ListingTest, ANodeWithoutPermissionIsSkipped) {
  machine.addNode("/dev/input/event0", Device::mouse()).setOpenError(EACCES);
  machine.addNode("/dev/input/event1", Device::mouse("Second"));
  list();
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event1: Second", "INFO Probably a mouse"}));
}

TEST_F(ListingTest, ANodeThatAnotherProcessHoldsIsClosedAndSkipped) {
  machine.addNode("/dev/input/event0", Device::mouse()).setGrabbedElsewhere(true);
  EXPECT_EQ(list(), "");
  Lines trace = machine.takeTrace();
  trace.resize(3);
  EXPECT_EQ(trace, Lines({"open(\"/dev/input/event0\", O_RDONLY) = 100", "ioctl(100, EVIOCGRAB, 1) = -1 EBUSY",
                          "close(100) = 0"}));
}

TEST_F(ListingTest, ANodeThatCannotBeGrabbedIsListed) {
  machine.addNode("/dev/input/event0", Device::mouse("Mouse")).setIoctlError(EVIOCGRAB, EINVAL);
  list();
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: Mouse", "INFO Probably a mouse"}));
}

TEST_F(ListingTest, EventTypesThatCannotBeAskedForAreAnErrorAndNone) {
  machine.addNode("/dev/input/event0", Device::mouse("Mouse")).setIoctlError(EVIOCGBIT(0, 0), EIO);
  EXPECT_EQ(list(), "Supported event types:\n");
  EXPECT_EQ(takeLog(), Lines({"INFO /dev/input/event0: Mouse", "INFO Probably a mouse", "ERROR evdev ioctl"}));
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(ListingTest, ANameIsCutAt99BytesAndAnEarlierOneStandsForOneThatFails) {
  machine.addNode("/dev/input/event0", Device::mouse(std::string(120, 'n')));
  machine.addNode("/dev/input/event1", Device{"Nameless", {}}).setIoctlError(EVIOCGNAME(0), EIO);
  list();
  const std::string name(99, 'n');
  EXPECT_EQ(takeLog(),
            Lines({"INFO /dev/input/event0: " + name, "INFO Probably a mouse", "INFO /dev/input/event1: " + name}));
}

TEST_F(ListingTest, LeavesNoGrabNoDescriptorAndTheReaderAsItWas) {
  sim::Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  LinuxInputReader reader;
  reader.init(nullptr, nullptr, nullptr, 1280, 720);
  const LinuxInputReader& constReader = reader;
  testing::internal::CaptureStdout();
  constReader.listLinuxInputReader();
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(node.isGrabbed());
  EXPECT_EQ(machine.openDescriptors(), 1);
  EXPECT_EQ(reader.keyboardFd, 100);
}

}  // namespace
}  // namespace quarlo::test
