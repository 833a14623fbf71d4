// Opening devices and the LIRC socket: which calls are made, what is taken, what is left alone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "tests/unit/reader_test.h"

// Of a build that measures coverage: a process that is aborted does not save its counts by itself.
extern "C" void __gcov_dump() __attribute__((weak));  // NOLINT(bugprone-reserved-identifier)

namespace quarlo::test {
namespace {

class OpeningTest : public MachineTest {
 protected:
  OpeningTest() { machine.takeTrace(); }

  // Opens a node without the reader, and forgets the call.
  int openNode(const char* path) {
    const int fd = reader.openDevice(path, true);
    machine.takeTrace();
    return fd;
  }

  LinuxInputReader reader;
};

Lines absentNodes(int from, int to) {
  Lines lines;
  for (int n = from; n >= to; --n) {
    lines.push_back("open(\"/dev/input/event" + std::to_string(n) + "\", O_RDONLY) = -1 ENOENT");
  }
  return lines;
}

void append(Lines& lines, const Lines& more) { lines.insert(lines.end(), more.begin(), more.end()); }

// ---- By path ------------------------------------------------------------------------------------

TEST_F(OpeningTest, OpenDevice_WithAPathOnlyOpensItWithoutBlocking) {
  machine.addNode("/dev/input/event3", Device::keyboard());
  EXPECT_EQ(reader.openDevice("/dev/input/event3", true), 100);
  EXPECT_EQ(machine.takeTrace(), Lines({"open(\"/dev/input/event3\", O_RDONLY|O_NONBLOCK) = 100"}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, OpenDevice_WithAPathThatFailsReturnsMinusOneWithoutALogLine) {
  EXPECT_EQ(reader.openDevice("/dev/input/event3", false), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({"open(\"/dev/input/event3\", O_RDONLY|O_NONBLOCK) = -1 ENOENT"}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, OpenDevice_WithAPathTakesAFileThatIsNoInputDevice) {
  const int fd = reader.openDevice("/dev/null", false);
  EXPECT_GE(fd, 0);
  close(fd);
}

TEST_F(OpeningTest, OpenDevice_WithAPathTakesAGrabbedNode) {
  machine.addNode("/dev/input/event3", Device::keyboard()).setGrabbedElsewhere(true);
  EXPECT_EQ(reader.openDevice("/dev/input/event3", false), 100);
}

// ---- Autodetection ------------------------------------------------------------------------------

TEST_F(OpeningTest, Autodetect_TriesElevenNodesFromTheHighestAndSaysNothing) {
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
  EXPECT_EQ(machine.takeTrace(), absentNodes(10, 0));
  EXPECT_EQ(reader.openDevice(nullptr, false), -1);
  EXPECT_EQ(machine.takeTrace(), absentNodes(10, 0));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, Autodetect_MouseIsGrabbedNamedClassifiedReleasedAndOpenedAgain) {
  machine.addNode("/dev/input/event9", Device::mouse("USB Mouse"));
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  Lines expected = absentNodes(10, 10);
  append(expected, {
                       "open(\"/dev/input/event9\", O_RDONLY) = 100",
                       "ioctl(100, EVIOCGRAB, 1) = 0",
                       "ioctl(100, EVIOCGNAME(99)) = 10",
                       "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2",
                       "ioctl(100, EVIOCGBIT(EV_KEY, 96)) = 96",
                       "ioctl(100, EVIOCGRAB, 0) = 0",
                       "close(100) = 0",
                       "open(\"/dev/input/event9\", O_RDONLY|O_NONBLOCK) = 100",
                   });
  EXPECT_EQ(machine.takeTrace(), expected);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event9 - USB Mouse"}));
}

TEST_F(OpeningTest, Autodetect_KeyboardIsAskedForItsAxesThenForItsKeys) {
  machine.addNode("/dev/input/event10", Device::keyboard("USB Keyboard"));
  EXPECT_EQ(reader.openDevice(nullptr, false), 100);
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "open(\"/dev/input/event10\", O_RDONLY) = 100",
                                     "ioctl(100, EVIOCGRAB, 1) = 0",
                                     "ioctl(100, EVIOCGNAME(99)) = 13",
                                     "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2",
                                     "ioctl(100, EVIOCGBIT(EV_KEY, 96)) = 96",
                                     "ioctl(100, EVIOCGRAB, 0) = 0",
                                     "close(100) = 0",
                                     "open(\"/dev/input/event10\", O_RDONLY|O_NONBLOCK) = 100",
                                 }));
  EXPECT_EQ(takeLog(), Lines({"INFO Found a keyboard: /dev/input/event10 - USB Keyboard"}));
}

TEST_F(OpeningTest, Autodetect_ANodeThatDoesNotSuitIsReleasedAndClosed) {
  machine.addNode("/dev/input/event10", Device::keyboard());
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
  Lines expected = {
      "open(\"/dev/input/event10\", O_RDONLY) = 100",
      "ioctl(100, EVIOCGRAB, 1) = 0",
      "ioctl(100, EVIOCGNAME(99)) = 19",
      // Without relative axes its keys do not matter.
      "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2",
      "ioctl(100, EVIOCGRAB, 0) = 0",
      "close(100) = 0",
  };
  append(expected, absentNodes(9, 0));
  EXPECT_EQ(machine.takeTrace(), expected);
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, Autodetect_AMouseIsNoKeyboardWhateverItsKeysAre) {
  machine.addNode("/dev/input/event10", Device::mouse());
  EXPECT_EQ(reader.openDevice(nullptr, false), -1);
  const Lines trace = machine.takeTrace();
  ASSERT_GE(trace.size(), 5U);
  EXPECT_EQ(trace[3], "ioctl(100, EVIOCGBIT(EV_REL, 2)) = 2");
  EXPECT_EQ(trace[4], "ioctl(100, EVIOCGRAB, 0) = 0");
}

TEST_F(OpeningTest, Autodetect_AxesWithoutAButtonAreNoMouse) {
  machine.addNode("/dev/input/event10", Device{"Dial", {{EV_REL, {REL_X, REL_Y}}}});
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, Autodetect_ADeviceWithFewKeysIsNoKeyboard) {
  machine.addNode("/dev/input/event10", Device{"Power Button", {{EV_KEY, {KEY_POWER}}}});
  EXPECT_EQ(reader.openDevice(nullptr, false), -1);
  EXPECT_EQ(takeLog(), Lines({}));
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(OpeningTest, Autodetect_TheHighestNumberUpToTenWins) {
  for (const int n : {0, 3, 9, 11, 12}) {
    const std::string number = std::to_string(n);
    machine.addNode("/dev/input/event" + number, n % 3 == 0 ? Device::mouse("Mouse " + number) : Device::keyboard());
  }
  machine.addNode("/dev/input/event2", Device::keyboard("Keyboard 2"));
  machine.addNode("/dev/input/event8", Device::keyboard("Keyboard 8"));
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  EXPECT_EQ(reader.openDevice(nullptr, false), 101);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event9 - Mouse 9",
                              "INFO Found a keyboard: /dev/input/event8 - Keyboard 8"}));
}

TEST_F(OpeningTest, Autodetect_SkipsANodeThatAnotherProcessHolds) {
  machine.addNode("/dev/input/event10", Device::mouse()).setGrabbedElsewhere(true);
  machine.addNode("/dev/input/event9", Device::mouse("Free"));
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  const Lines trace = machine.takeTrace();
  const Lines skipped(trace.begin(), trace.begin() + 3);
  EXPECT_EQ(skipped, Lines({"open(\"/dev/input/event10\", O_RDONLY) = 100", "ioctl(100, EVIOCGRAB, 1) = -1 EBUSY",
                            "close(100) = 0"}));
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event9 - Free"}));
}

TEST_F(OpeningTest, Autodetect_TakesANodeThatCannotBeGrabbed) {
  sim::Node& node = machine.addNode("/dev/input/event10", Device::mouse());
  node.setIoctlError(EVIOCGRAB, EINVAL);
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  node.setIoctlError(EVIOCGRAB, EACCES);
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
}

TEST_F(OpeningTest, Autodetect_LeavesNoGrabAndNoDescriptorBehind) {
  sim::Node& mouse = machine.addNode("/dev/input/event10", Device::mouse());
  sim::Node& keyboard = machine.addNode("/dev/input/event9", Device::keyboard());
  EXPECT_EQ(reader.openDevice(nullptr, false), 100);
  EXPECT_FALSE(mouse.isGrabbed());
  EXPECT_FALSE(keyboard.isGrabbed());
  EXPECT_EQ(machine.openDescriptors(), 1);
}

TEST_F(OpeningTest, Autodetect_ReturnsMinusOneWhenTheSecondOpenFails) {
  machine.addNode("/dev/input/event10", Device::mouse("Mouse"));
  machine.addNode("/dev/input/event9", Device::mouse());
  machine.fail(Call::kOpen, 2, EMFILE);
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event10 - Mouse"}));
  EXPECT_EQ(machine.takeTrace().back(), "open(\"/dev/input/event10\", O_RDONLY|O_NONBLOCK) = -1 EMFILE");
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(OpeningTest, Autodetect_GoesOnAfterANodeThatDoesNotOpen) {
  machine.addNode("/dev/input/event10", Device::mouse()).setOpenError(EACCES);
  machine.addNode("/dev/input/event9", Device::mouse()).setOpenError(ENODEV);
  machine.addNode("/dev/input/event8", Device::mouse("Mouse"));
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event8 - Mouse"}));
}

TEST_F(OpeningTest, Autodetect_ANodeAtNumberZeroIsTried) {
  machine.addNode("/dev/input/event0", Device::keyboard("Keyboard"));
  EXPECT_EQ(reader.openDevice(nullptr, false), 100);
}

TEST_F(OpeningTest, Autodetect_ANameOf99BytesIsCutAndTerminated) {
  machine.addNode("/dev/input/event10", Device::mouse(std::string(120, 'n')));
  reader.openDevice(nullptr, true);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event10 - " + std::string(99, 'n')}));
}

TEST_F(OpeningTest, Autodetect_WithoutANameTheEarlierDevicesNameStandsThere) {
  machine.addNode("/dev/input/event10", Device::keyboard("Keyboard"));
  machine.addNode("/dev/input/event9", Device::mouse("Mouse")).setIoctlError(EVIOCGNAME(0), EIO);
  reader.openDevice(nullptr, true);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event9 - Keyboard"}));
}

TEST_F(OpeningTest, Autodetect_WithoutAnyNameThereIsNone) {
  machine.addNode("/dev/input/event9", Device::mouse("Mouse")).setIoctlError(EVIOCGNAME(0), EIO);
  reader.openDevice(nullptr, true);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event9 - "}));
}

TEST_F(OpeningTest, Autodetect_AKeyboardWithATouchpadIsAMouseAndNeverAKeyboard) {
  Device combined = Device::keyboard("Combined");
  combined.codes[EV_REL] = {REL_X, REL_Y};
  combined.codes[EV_KEY].insert(BTN_LEFT);
  machine.addNode("/dev/input/event4", combined);
  EXPECT_EQ(reader.openDevice(nullptr, false), -1);
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event4 - Combined"}));
}

TEST_F(OpeningTest, Autodetect_ATouchscreenIsAMouseOnlyWithRelativeAxes) {
  Device touchscreen = Device::touchscreen("Touch");
  sim::Node& absolute = machine.addNode("/dev/input/event4", touchscreen);
  EXPECT_EQ(reader.openDevice(nullptr, false), -1);
  EXPECT_EQ(reader.openDevice(nullptr, true), -1);
  absolute.unplug();
  touchscreen.codes[EV_REL] = {REL_X, REL_Y};
  machine.addNode("/dev/input/event4", touchscreen);
  EXPECT_EQ(reader.openDevice(nullptr, true), 100);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event4 - Touch"}));
}

// ---- Classification -----------------------------------------------------------------------------

struct Bits {
  std::set<int> codes;
  bool expected;
};

TEST_F(OpeningTest, HasRelEvent_NeedsBothAxes) {
  const Bits rows[] = {{{REL_X, REL_Y}, true}, {{REL_X}, false}, {{REL_Y}, false}, {{}, false}, {{REL_WHEEL}, false}};
  for (const Bits& row : rows) {
    sim::Node& node = machine.addNode("/dev/input/event0", Device{"", {{EV_REL, row.codes}}});
    const int fd = openNode("/dev/input/event0");
    EXPECT_EQ(reader.hasRelEvent(fd), row.expected);
    EXPECT_EQ(machine.takeTrace(), Lines({"ioctl(" + std::to_string(fd) + ", EVIOCGBIT(EV_REL, 2)) = 2"}));
    node.unplug();
  }
}

TEST_F(OpeningTest, HasAbsEvent_NeedsBothAxes) {
  const Bits rows[] = {{{ABS_X, ABS_Y}, true}, {{ABS_X}, false}, {{ABS_Y}, false}, {{}, false}, {{ABS_Z}, false}};
  for (const Bits& row : rows) {
    sim::Node& node = machine.addNode("/dev/input/event0", Device{"", {{EV_ABS, row.codes}}});
    const int fd = openNode("/dev/input/event0");
    EXPECT_EQ(reader.hasAbsEvent(fd), row.expected);
    EXPECT_EQ(machine.takeTrace(), Lines({"ioctl(" + std::to_string(fd) + ", EVIOCGBIT(EV_ABS, 8)) = 8"}));
    node.unplug();
  }
}

TEST_F(OpeningTest, HasKeyEvent_APointerHasTheLeftButtonOrTouch) {
  const Bits rows[] = {{{BTN_LEFT}, true},   {{BTN_TOUCH}, true}, {{BTN_LEFT, BTN_TOUCH}, true},
                       {{BTN_RIGHT}, false}, {{}, false},         {{KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}, false}};
  for (const Bits& row : rows) {
    sim::Node& node = machine.addNode("/dev/input/event0", Device{"", {{EV_KEY, row.codes}}});
    const int fd = openNode("/dev/input/event0");
    EXPECT_EQ(reader.hasKeyEvent(fd, true), row.expected);
    EXPECT_EQ(machine.takeTrace(), Lines({"ioctl(" + std::to_string(fd) + ", EVIOCGBIT(EV_KEY, 96)) = 96"}));
    node.unplug();
  }
}

TEST_F(OpeningTest, HasKeyEvent_AKeyboardHasAllFourArrows) {
  const Bits rows[] = {{{KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}, true}, {{KEY_LEFT, KEY_RIGHT, KEY_DOWN}, false},
                       {{KEY_UP, KEY_RIGHT, KEY_DOWN}, false},          {{KEY_UP, KEY_LEFT, KEY_DOWN}, false},
                       {{KEY_UP, KEY_LEFT, KEY_RIGHT}, false},          {{BTN_LEFT, BTN_TOUCH}, false}};
  for (const Bits& row : rows) {
    sim::Node& node = machine.addNode("/dev/input/event0", Device{"", {{EV_KEY, row.codes}}});
    const int fd = openNode("/dev/input/event0");
    EXPECT_EQ(reader.hasKeyEvent(fd, false), row.expected);
    node.unplug();
  }
}

TEST_F(OpeningTest, Classification_GoesOnWithNoCodesWhenTheKernelRefuses) {
  sim::Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  const int fd = openNode("/dev/input/event0");
  node.unplug();
  EXPECT_FALSE(reader.hasRelEvent(fd));
  EXPECT_FALSE(reader.hasAbsEvent(fd));
  EXPECT_FALSE(reader.hasKeyEvent(fd, true));
  EXPECT_FALSE(reader.hasKeyEvent(fd, false));
  EXPECT_EQ(takeLog(), Lines({"ERROR evdev ioctl failed in testRel", "ERROR evdev ioctl failed in testAbs",
                              "ERROR evdev ioctl failed in testKey", "ERROR evdev ioctl failed in testKey"}));
}

TEST_F(OpeningTest, Classification_AKeyboardWhoseAxesCannotBeAskedIsStillAKeyboard) {
  machine.addNode("/dev/input/event0", Device::keyboard("Keyboard")).setIoctlError(EVIOCGBIT(EV_REL, 0), EIO);
  EXPECT_EQ(reader.openDevice(nullptr, false), 100);
  EXPECT_EQ(takeLog(),
            Lines({"ERROR evdev ioctl failed in testRel", "INFO Found a keyboard: /dev/input/event0 - Keyboard"}));
}

// ---- The LIRC socket ----------------------------------------------------------------------------

TEST_F(OpeningTest, OpenLircSocket_ConnectsWithoutBlockingWithTheWholeAddress) {
  machine.addLircDaemon("/dev/lircd");
  EXPECT_EQ(reader.openLircSocket("/dev/lircd"), 100);
  EXPECT_EQ(machine.takeTrace(),
            Lines({"socket(AF_UNIX, SOCK_STREAM|SOCK_NONBLOCK, 0) = 100", "connect(100, \"/dev/lircd\", 110) = 0"}));
  EXPECT_EQ(takeLog(), Lines({"INFO Found a LIRC device: /dev/lircd"}));
}

TEST_F(OpeningTest, OpenLircSocket_WithoutASocketReturnsMinusOneSilently) {
  machine.addLircDaemon("/dev/lircd");
  machine.fail(Call::kSocket, 1, EMFILE);
  EXPECT_EQ(reader.openLircSocket("/dev/lircd"), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({"socket(AF_UNIX, SOCK_STREAM|SOCK_NONBLOCK, 0) = -1 EMFILE"}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(OpeningTest, OpenLircSocket_ClosesASocketThatDoesNotConnect) {
  machine.addLircDaemon("/dev/lircd");
  for (const int error : {ECONNREFUSED, EAGAIN, EINPROGRESS}) {
    machine.fail(Call::kConnect, 1, error);
    EXPECT_EQ(reader.openLircSocket("/dev/lircd"), -1);
    EXPECT_EQ(machine.takeTrace().back(), "close(100) = 0");
  }
  EXPECT_EQ(takeLog(), Lines({}));
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(OpeningTest, OpenLircSocket_APathOf107CharactersFits) {
  const std::string path = "/" + std::string(106, 'p');
  machine.addLircDaemon(path);
  EXPECT_EQ(reader.openLircSocket(path.c_str()), 100);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a LIRC device: " + path}));
}

TEST_F(OpeningTest, OpenLircSocket_APathOf108CharactersAbortsBeforeASocketIsMade) {
  const std::string path = "/" + std::string(107, 'p');
  static sim::Machine* theMachine = &machine;
  const auto openTooLong = [&] {
    std::signal(SIGABRT, [](int) {
      std::fprintf(stderr, "%d sockets", theMachine->count(Call::kSocket));
      if (__gcov_dump != nullptr) __gcov_dump();
    });
    reader.openLircSocket(path.c_str());
  };
  EXPECT_EXIT(openTooLong(), testing::KilledBySignal(SIGABRT), "0 sockets");
}

}  // namespace
}  // namespace quarlo::test
