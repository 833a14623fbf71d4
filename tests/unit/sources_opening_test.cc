// InputSources: sources that are opened or come back, and what is down on them by then.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include "tests/unit/sources_test.h"

namespace quarlo::test {
namespace {

class SourcesOpening : public SourcesTest {
 protected:
  void unplugKeyboard() {
    keyboard.unplug();
    rounds(2);
  }

  sim::Node& plugKeyboard(const char* path = "/dev/input/event1") { return machine.addNode(path, Device::keyboard()); }
};

// What open() returns, or the errno that it leaves.
std::string opened(InputSources& sources, InputLoop::Source source, const char* path) {
  errno = 0;
  return sources.open(source, path) ? "opened" : strerrorname_np(errno);
}

// ---- By path ------------------------------------------------------------------------------------

TEST_F(SourcesOpening, OpensAKeyboardThatHasComeBack) {
  unplugKeyboard();
  sim::Node& back = plugKeyboard();
  reader.maxFd = 5;
  const std::uint32_t before = loop.generation();
  EXPECT_TRUE(sources.open(kKeyboard, "/dev/input/event1"));
  EXPECT_EQ(reader.keyboardFd, kKeyboardFd);
  EXPECT_EQ(reader.maxFd, -1);
  EXPECT_NE(loop.generation(), before);
  EXPECT_EQ(loop.gone(), 0U);
  back.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesOpening, OpensAMouseUnderAnotherNumber) {
  mouse.unplug();
  rounds(2);
  sim::Node& back = machine.addNode("/dev/input/event7", Device::mouse());
  EXPECT_TRUE(sources.open(kMouse, "/dev/input/event7"));
  EXPECT_EQ(reader.mouseFd, kMouseFd);
  back.press(BTN_LEFT);
  EXPECT_EQ(round(), Lines{buttonDown(1, 0, 0, 1)});
}

TEST_F(SourcesOpening, OpensTheSocketOfADaemonThatWasStartedAgain) {
  daemon.stop();
  rounds(2);
  sim::LircDaemon& back = machine.addLircDaemon("/run/lircd");
  EXPECT_TRUE(sources.open(kRemote, "/run/lircd"));
  EXPECT_EQ(reader.lircFd, kLircFd);
  back.send("KEY_OK");
  EXPECT_EQ(round(), Lines{keyDown(13, 13)});
}

TEST_F(SourcesOpening, DropsTheHalfOfALineThatAnEarlierDaemonSent) {
  daemon.sendText("0000000000f40bf0 00 KEY_OK myre");
  round();
  daemon.sendText(std::string(200, 'x'));
  round();
  daemon.stop();
  rounds(2);
  sim::LircDaemon& back = machine.addLircDaemon("/run/lircd");
  ASSERT_TRUE(sources.open(kRemote, "/run/lircd"));
  back.send("KEY_UP");
  EXPECT_EQ(round(), Lines{keyDown(38)});
}

TEST_F(SourcesOpening, OpensWhatNeverWasOpen) {
  LinuxInputReader empty;
  InputLoop emptyLoop(empty);
  InputSources emptySources(emptyLoop);
  plugKeyboard("/dev/input/event3");
  EXPECT_TRUE(emptySources.open(kKeyboard, "/dev/input/event3"));
  EXPECT_GE(empty.keyboardFd, 0);
  EXPECT_EQ(empty.mouseFd, -1);
  EXPECT_EQ(empty.lircFd, -1);
}

TEST_F(SourcesOpening, SeesADescriptorThatTheApplicationHasGivenTheReaderSince) {
  unplugKeyboard();
  plugKeyboard();
  reader.keyboardFd = reader.openDevice("/dev/input/event1", false);
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "EBUSY");
}

// ---- By a search --------------------------------------------------------------------------------

TEST_F(SourcesOpening, SearchesForAKeyboard) {
  unplugKeyboard();
  plugKeyboard("/dev/input/event4");
  EXPECT_TRUE(sources.open(kKeyboard, nullptr));
  EXPECT_EQ(takeLog().back(), "INFO Found a keyboard: /dev/input/event4 - Simulated Keyboard");
}

TEST_F(SourcesOpening, SearchesForAMouse) {
  mouse.unplug();
  rounds(2);
  machine.addNode("/dev/input/event4", Device::mouse());
  EXPECT_TRUE(sources.open(kMouse, nullptr));
  EXPECT_EQ(takeLog().back(), "INFO Found a mouse: /dev/input/event4 - Simulated Mouse");
}

// ---- What cannot be opened ----------------------------------------------------------------------

TEST_F(SourcesOpening, OpensNothingTwice) {
  const int before = machine.openDescriptors();
  plugKeyboard("/dev/input/event4");
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event4"), "EBUSY");
  EXPECT_EQ(opened(sources, kRemote, "/run/lircd"), "EBUSY");
  EXPECT_EQ(machine.openDescriptors(), before);
  EXPECT_EQ(reader.keyboardFd, kKeyboardFd);
}

TEST_F(SourcesOpening, WaitsUntilWhatHasGoneIsClosed) {
  keyboard.unplug();
  takeNow(loop);
  plugKeyboard();
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "EBUSY");
  sources.attend(0);
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "opened");
}

TEST_F(SourcesOpening, RefusesANodeThatIsASourceAlready) {
  unplugKeyboard();
  machine.addLink("/dev/input/by-id/usb-mouse", "/dev/input/event0");
  const int before = machine.openDescriptors();
  for (const char* path : {"/dev/input/event0", "/dev/input/by-id/usb-mouse"}) {
    EXPECT_EQ(opened(sources, kKeyboard, path), "EEXIST") << path;
  }
  EXPECT_EQ(machine.openDescriptors(), before);
  EXPECT_EQ(reader.keyboardFd, -1);
}

TEST_F(SourcesOpening, RefusesANodeThatIsALaterSourceWhileSeveralAreClosed) {
  daemon.stop();
  mouse.unplug();
  rounds(2);
  EXPECT_EQ(opened(sources, kMouse, "/dev/input/event1"), "EEXIST");
}

TEST_F(SourcesOpening, RefusesWhatIsNoNode) {
  unplugKeyboard();
  const int lowest = open("/dev/null", O_RDONLY);
  close(lowest);
  for (const char* path : {"/dev/null", "/etc/passwd"}) EXPECT_FALSE(sources.open(kKeyboard, path)) << path;
  const int next = open("/dev/null", O_RDONLY);
  EXPECT_EQ(next, lowest);
  close(next);
}

TEST_F(SourcesOpening, SaysWhatIsNoNode) {
  unplugKeyboard();
  plugKeyboard().setIoctlError(EVIOCGVERSION, ENOTTY);
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "ENOTTY");
}

TEST_F(SourcesOpening, RefusesANodeThatCannotBeToldFromOthers) {
  unplugKeyboard();
  plugKeyboard();
  const int before = machine.openDescriptors();
  machine.fail(Call::kFstat, 1, EIO);
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "EIO");
  EXPECT_EQ(machine.openDescriptors(), before);
}

TEST_F(SourcesOpening, SaysWhyAPathDoesNotOpen) {
  unplugKeyboard();
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event1"), "ENOENT");
  plugKeyboard("/dev/input/event4").setOpenError(EACCES);
  EXPECT_EQ(opened(sources, kKeyboard, "/dev/input/event4"), "EACCES");
  EXPECT_EQ(loop.gone(), bit(kKeyboard));
}

TEST_F(SourcesOpening, SaysWhyASocketDoesNotConnect) {
  daemon.stop();
  rounds(2);
  EXPECT_EQ(opened(sources, kRemote, "/run/lircd"), "ECONNREFUSED");
  EXPECT_EQ(opened(sources, kRemote, "/run/other"), "ENOENT");
}

// ---- At a pace ----------------------------------------------------------------------------------

TEST_F(SourcesOpening, LooksForAKeyboardAtItsPace) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  EXPECT_EQ(sources.attend(-1), -1);
  unplugKeyboard();
  int tries = machine.count(Call::kOpen);
  EXPECT_EQ(sources.attend(-1), 1000);
  EXPECT_EQ(machine.count(Call::kOpen), ++tries);
  machine.advance(999ms);
  EXPECT_EQ(sources.attend(-1), 1);
  EXPECT_EQ(machine.count(Call::kOpen), tries);
  machine.advance(1ms);
  EXPECT_EQ(sources.attend(-1), 1000);
  EXPECT_EQ(machine.count(Call::kOpen), ++tries);
  machine.advance(5s);
  EXPECT_EQ(sources.attend(-1), 1000);
  EXPECT_EQ(machine.count(Call::kOpen), ++tries);
}

TEST_F(SourcesOpening, OpensAKeyboardWhenItIsBack) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sources.attend(-1);
  sim::Node& back = plugKeyboard();
  machine.advance(999ms);
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), 0U);
  machine.advance(1ms);
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), bit(kKeyboard));
  EXPECT_EQ(loop.gone(), 0U);
  back.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  EXPECT_EQ(sources.opened(), 0U);
  EXPECT_EQ(sources.attend(-1), -1);
}

TEST_F(SourcesOpening, WaitsNoLongerThanTheApplicationOrTheNextTry) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sources.attend(-1);
  EXPECT_EQ(sources.attend(999), 999);
  EXPECT_EQ(sources.attend(1000), 1000);
  EXPECT_EQ(sources.attend(1001), 1000);
  EXPECT_EQ(sources.attend(0), 0);
}

TEST_F(SourcesOpening, WaitsForTheFirstOfSeveral) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  sources.keepOpen(kMouse, "/dev/input/event0", 300);
  sources.keepOpen(kRemote, "/run/lircd", 2000);
  keyboard.unplug();
  mouse.unplug();
  daemon.stop();
  rounds(3);
  const int left = sources.attend(-1);
  EXPECT_LE(left, 300);
  EXPECT_GT(left, 298);  // looks take some microseconds
}

// An application that waits elsewhere looks at nothing but what attend() and timeoutMs() say.
TEST_F(SourcesOpening, DoesNotSleepBeforeTheFirstTry) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  keyboard.unplug();
  takeNow(loop);
  sim::Node& back = plugKeyboard();
  EXPECT_EQ(sources.attend(-1), 0);  // it closes the old one
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(sources.attend(-1), 1000);
  EXPECT_EQ(sources.opened(), bit(kKeyboard));
  EXPECT_EQ(sources.attend(-1), -1);
  back.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesOpening, LeavesTheTimeoutWhereNothingIsToBeOpened) {
  mouse.unplug();
  rounds(2);
  EXPECT_EQ(sources.attend(-1), -1);
  EXPECT_EQ(sources.attend(70), 70);
}

TEST_F(SourcesOpening, TriesAtOnceWhenTheClockIsSetBack) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sources.attend(-1);
  int tries = machine.count(Call::kOpen);
  for (const auto& by : {-1ms, -3'600'000ms}) {
    machine.jumpClock(by);
    EXPECT_EQ(sources.attend(-1), 1000);
    EXPECT_EQ(machine.count(Call::kOpen), ++tries);
  }
}

TEST_F(SourcesOpening, TriesAtOnceWhenTheClockIsSetForward) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sources.attend(-1);
  plugKeyboard();
  machine.jumpClock(1h);
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), bit(kKeyboard));
}

TEST_F(SourcesOpening, EndsWithANullPath) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sources.attend(-1);
  sources.keepOpen(kKeyboard, nullptr, 0);
  plugKeyboard();
  machine.advance(5s);
  EXPECT_EQ(sources.attend(-1), -1);
  EXPECT_EQ(reader.keyboardFd, -1);
}

TEST_F(SourcesOpening, FollowsADaemonWhoseSocketGoesAndComesBack) {
  sources.keepOpen(kRemote, "/run/lircd", 500);
  daemon.stop();
  rounds(3);
  for (int i = 0; i < 3; ++i) {
    machine.advance(500ms);
    sources.attend(-1);
    EXPECT_EQ(sources.opened(), 0U);
  }
  sim::LircDaemon& back = machine.addLircDaemon("/run/lircd");
  machine.advance(500ms);
  EXPECT_EQ(round(), Lines{});
  EXPECT_EQ(sources.opened(), bit(kRemote));
  back.send("KEY_OK");
  EXPECT_EQ(round(), Lines{keyDown(13, 13)});
  machine.advance(300ms);
  round();
  EXPECT_TRUE(reader.lircRepeatMode);
}

TEST_F(SourcesOpening, OpensWhatWasNotOpenAtTheStart) {
  unplugKeyboard();
  plugKeyboard("/dev/input/event5");
  sources.keepOpen(kKeyboard, "/dev/input/event5", 1);
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), bit(kKeyboard));
}

TEST_F(SourcesOpening, StartsTheNextSearchAtItsPaceAfterASuccess) {
  sources.keepOpen(kKeyboard, "/dev/input/event1", 1000);
  unplugKeyboard();
  sim::Node& back = plugKeyboard();
  sources.attend(-1);
  ASSERT_EQ(sources.opened(), bit(kKeyboard));
  back.unplug();
  rounds(2);
  machine.advance(400ms);
  const int left = sources.attend(-1);
  EXPECT_LE(left, 600);
  EXPECT_GT(left, 598);
}

// ---- What is down at opening --------------------------------------------------------------------

TEST_F(SourcesOpening, AdoptsKeysWhoseKeyUpsComeLater) {
  keyboard.press(KEY_A);
  EXPECT_TRUE(sources.adopt(kKeyboard));
  EXPECT_EQ(round(), Lines{});
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_A));
  EXPECT_FALSE(sources.isDown(kKeyboard, KEY_B));
  keyboard.release(KEY_A);
  EXPECT_EQ(round(), Lines{keyUp('A', 'a')});
}

TEST_F(SourcesOpening, AdoptsEachModifier) {
  struct Case {
    int key;
    unsigned modifier;
  };
  for (const Case& each : {Case{KEY_LEFTCTRL, 1}, Case{KEY_RIGHTCTRL, 1}, Case{KEY_LEFTSHIFT, 2},
                           Case{KEY_RIGHTSHIFT, 2}, Case{KEY_LEFTALT, 4}, Case{KEY_RIGHTALT, 4}}) {
    keyboard.press(each.key);
    ASSERT_TRUE(sources.adopt(kKeyboard));
    EXPECT_EQ(reader.modifiers, each.modifier) << each.key;
    keyboard.release(each.key);
    round();
    EXPECT_EQ(reader.modifiers, 0U) << each.key;
  }
}

TEST_F(SourcesOpening, AddsTheModifiersToThoseOfOtherNodes) {
  mouse.inject(EV_KEY, KEY_LEFTSHIFT, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  round();
  keyboard.press(KEY_LEFTALT);
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_EQ(reader.modifiers, 6U);
}

TEST_F(SourcesOpening, GivesTheKeyUpOfAnAdoptedKeyThatIsUnplugged) {
  keyboard.press(KEY_A);
  ASSERT_TRUE(sources.adopt(kKeyboard));
  keyboard.unplug();
  EXPECT_EQ(rounds(2), Lines{keyUp('A', 'a')});
}

TEST_F(SourcesOpening, AdoptsButtons) {
  mouse.press(BTN_LEFT);
  ASSERT_TRUE(sources.adopt(kMouse));
  mouse.release(BTN_LEFT);
  EXPECT_EQ(rounds(2).size(), 1U);
}

TEST_F(SourcesOpening, AdoptsTheLightOfNumLock) {
  keyboard.report(EV_LED, LED_NUML, 1);
  keyboard.report(EV_LED, LED_CAPSL, 1);
  reader.numLock = false;
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_TRUE(reader.numLock);
  keyboard.report(EV_LED, LED_NUML, 0);
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_FALSE(reader.numLock);
}

TEST_F(SourcesOpening, AdoptsTheLightOfTheKeyboardAlone) {
  for (const bool numLock : {false, true}) {
    reader.numLock = numLock;
    ASSERT_TRUE(sources.adopt(kMouse));
    EXPECT_EQ(reader.numLock, numLock);
  }
}

TEST_F(SourcesOpening, LeavesNumLockWhereTheNodeDoesNotSay) {
  for (const bool numLock : {false, true}) {
    reader.numLock = numLock;
    keyboard.setIoctlError(EVIOCGLED(0), EIO);
    EXPECT_TRUE(sources.adopt(kKeyboard));
    EXPECT_EQ(reader.numLock, numLock);
    keyboard.setIoctlError(EVIOCGLED(0), 0);
    keyboard.cutStates(0);
    EXPECT_TRUE(sources.adopt(kKeyboard));
    EXPECT_EQ(reader.numLock, numLock);
    keyboard.cutStates(SIZE_MAX);
  }
}

TEST_F(SourcesOpening, SaysThatANodeCannotSayWhatIsDown) {
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.setIoctlError(EVIOCGKEY(0), EIO);
  errno = 0;
  EXPECT_FALSE(sources.adopt(kKeyboard));
  EXPECT_EQ(errno, EIO);
  EXPECT_FALSE(sources.isDown(kKeyboard, KEY_LEFTSHIFT));
  EXPECT_EQ(reader.modifiers, 0U);
}

TEST_F(SourcesOpening, AdoptsNothingOfWhatIsClosed) {
  unplugKeyboard();
  errno = 0;
  EXPECT_FALSE(sources.adopt(kKeyboard));
  EXPECT_EQ(errno, EBADF);
}

TEST_F(SourcesOpening, TakesKeysThatWereTypedBeforeFromTheQueue) {
  keyboard.press(KEY_A);
  keyboard.release(KEY_A);
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_EQ(rounds(2), Lines{});
}

TEST_F(SourcesOpening, DropsAKeyThatIsTrackedWhenANodeComesBack) {
  keyboard.press(KEY_A);
  round();
  unplugKeyboard();
  sim::Node& back = plugKeyboard();
  back.press(KEY_B);
  ASSERT_TRUE(sources.open(kKeyboard, "/dev/input/event1"));
  ASSERT_TRUE(sources.adopt(kKeyboard));
  EXPECT_FALSE(sources.isDown(kKeyboard, KEY_A));
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_B));
}

}  // namespace
}  // namespace quarlo::test
