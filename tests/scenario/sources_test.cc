// What InputSources does of itself when records are lost, sources go and come, and others want the same node.
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using components::input::InputLoop;
using components::input::InputSources;

constexpr InputLoop::SourceSet kNoSource = 0;
constexpr InputLoop::SourceSet kTheKeyboard = 1 << InputLoop::kKeyboard;
constexpr InputLoop::SourceSet kTheMouse = 1 << InputLoop::kMouse;
constexpr InputLoop::SourceSet kTheRemote = 1 << InputLoop::kRemote;

constexpr unsigned kControl = 1;
constexpr unsigned kShift = 2;

// Of Shift, which types nothing.
const std::string kShiftDown = keyDown(16, 0, kShift);
const std::string kShiftUp = keyUp(16);

const Lines kNothing;

// Without auto-repeat: nothing comes by itself while a key is held.
Description plainKeyboard() {
  Description device = keyboard();
  device.codes.erase(EV_REP);
  return device;
}

// What a round of the application's loop gives.
Lines roundOf(InputLoop& loop, InputSources& sources) {
  loop.wait(sources.attend(0));
  Lines events;
  for (InputEvent event; loop.next(event);) events.push_back(text(event));
  return events;
}

class KeptSourcesTest : public ScenarioTest {
 protected:
  KeptSourcesTest() {
    openNodes(reader, pointer.path().c_str(), keys.path().c_str());
    EXPECT_EQ(round(), kNothing);
  }

  Lines round() { return roundOf(loop, sources); }

  // Whether the call did what it says, or why not.
  static std::string outcome(bool isDone) { return isDone ? "done" : std::strerror(errno); }

  Plugged& pointer = world->plug(mouse());
  Plugged& keys = world->plug(plainKeyboard());
  LinuxInputReader reader;
  std::array<InputSources::FurtherNode, InputLoop::kMostFurtherNodes + 1> further;
  InputLoop loop{reader};
  InputSources sources{loop};
};

const std::string kDone = "done";

// ---- Lost records -------------------------------------------------------------------------------

// A keyboard's queue, whose 64th record is lost with all before it.
void overflow(Plugged& keys) {
  for (int i = 0; i < 16; ++i) keys.tap(KEY_B);
}

TEST_F(KeptSourcesTest, AShiftThatIsReleasedInWhatWasLostComesUp) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  keys.release(KEY_LEFTSHIFT);
  overflow(keys);
  keys.press(KEY_C);
  EXPECT_EQ(round(), Lines({keyUp(66, 'B', kShift), keyDown(67, 'C', kShift)}));
  EXPECT_EQ(sources.lost(), kNoSource);
  EXPECT_EQ(round(), Lines({kShiftUp}));
  EXPECT_EQ(sources.lost(), kTheKeyboard);
  keys.release(KEY_C);
  EXPECT_EQ(round(), Lines({keyUp(67, 'c')}));
  EXPECT_EQ(sources.lost(), kNoSource);
}

TEST_F(KeptSourcesTest, WhatWentDownInWhatWasLostComesAfterWhatCameUp) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  keys.press(KEY_A);
  keys.press(KEY_RIGHTCTRL);
  keys.release(KEY_LEFTSHIFT);
  overflow(keys);
  round();
  EXPECT_EQ(round(), Lines({kShiftUp, keyDown(65, 'a'), keyDown(17, 0, kControl)}));
  EXPECT_EQ(reader.modifiers, kControl);
  keys.release(KEY_RIGHTCTRL);
  keys.release(KEY_A);
  EXPECT_EQ(round(), Lines({keyUp(17), keyUp(65, 'a')}));
}

TEST_F(KeptSourcesTest, TapsThatWaitWhileTheStateIsAskedAreNotLost) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  keys.release(KEY_LEFTSHIFT);
  overflow(keys);
  round();
  keys.tap(KEY_1);
  keys.tap(KEY_2);
  EXPECT_EQ(round(), Lines({keyDown('1', '!', kShift), keyUp('1', '!', kShift), keyDown('2', '@', kShift),
                            keyUp('2', '@', kShift)}));
  EXPECT_EQ(sources.lost(), kTheKeyboard);
  EXPECT_EQ(round(), Lines({kShiftUp}));
  keys.tap(KEY_1);
  EXPECT_EQ(round(), Lines({keyDown('1', '1'), keyUp('1', '1')}));
}

TEST_F(KeptSourcesTest, AButtonThatIsReleasedInWhatWasLostComesUpAndTheNextClickCounts) {
  pointer.press(BTN_LEFT);
  EXPECT_EQ(round(), Lines({buttonDown(1, 0, 0, 1)}));
  pointer.release(BTN_LEFT);
  for (int i = 0; i < 63; ++i) pointer.move(1, 0);  // the 128th record is the last one's SYN_REPORT
  pointer.move(5, 0);
  EXPECT_EQ(round(), Lines({moved(5, 0, 1)}));
  EXPECT_EQ(round(), Lines({buttonUp(1, 5, 0, 1)}));
  EXPECT_EQ(sources.lost(), kTheMouse);
  pointer.tap(BTN_LEFT);
  EXPECT_EQ(round(), Lines({buttonDown(1, 5, 0, 2), buttonUp(1, 5, 0, 2)}));
}

// ---- Nodes that go and come ---------------------------------------------------------------------

TEST_F(KeptSourcesTest, AButtonThatIsDownWhenTheMouseIsUnpluggedComesUp) {
  pointer.move(3, 4);
  pointer.press(BTN_LEFT);
  EXPECT_EQ(round(), Lines({moved(3, 4), buttonDown(1, 3, 4, 1)}));
  pointer.unplug();
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  EXPECT_EQ(takeLog(), Lines({"loop: ERROR Lost the mouse, errno = 19"}));
  EXPECT_EQ(loop.gone(), kTheMouse);
  EXPECT_EQ(round(), Lines({buttonUp(1, 3, 4, 1)}));
  EXPECT_EQ(reader.mouseFd, -1);
  keys.release(KEY_A);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  EXPECT_EQ(takeLog(), kNothing);
}

TEST_F(KeptSourcesTest, AKeyboardComesBackUnderAnotherNumber) {
  pointer.move(5, 6);
  keys.tap(KEY_NUMLOCK);
  keys.press(KEY_LEFTSHIFT);
  round();
  keys.unplug();
  const Plugged& inItsPlace = world->plug(powerButton());
  EXPECT_EQ(inItsPlace.path(), keys.path());
  Plugged& again = world->plug(plainKeyboard());
  EXPECT_NE(again.path(), keys.path());
  EXPECT_EQ(outcome(sources.open(InputLoop::kKeyboard, again.path().c_str())), std::strerror(EBUSY));
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), Lines({kShiftUp}));
  EXPECT_EQ(outcome(sources.open(InputLoop::kKeyboard, again.path().c_str())), kDone);
  again.tap(KEY_KP1);
  pointer.move(1, 1);
  EXPECT_EQ(round(), Lines({keyDown(97, '1'), keyUp(97, '1'), moved(6, 7)}));
  EXPECT_EQ(loop.gone(), kNoSource);
}

TEST_F(KeptSourcesTest, ASearchFindsAKeyboardUnderAnotherNumber) {
  keys.unplug();
  world->plug(powerButton());
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), kNothing);
  Plugged& again = world->plug(plainKeyboard());
  EXPECT_EQ(outcome(sources.open(InputLoop::kKeyboard, nullptr)), kDone);
  again.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(KeptSourcesTest, AKeptNodeIsOpenedAtItsPace) {
  const std::string path = keys.path();
  sources.keepOpen(InputLoop::kKeyboard, path.c_str(), 1000);
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  keys.unplug();
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  EXPECT_EQ(round(), kNothing);  // the first try, in vain
  Plugged& again = world->plug(plainKeyboard());
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(reader.keyboardFd, -1);
  const int leftMs = sources.attend(-1);
  EXPECT_GT(leftMs, 0);
  EXPECT_LE(leftMs, 1000);
  world->pass(1s);
  sources.attend(-1);
  EXPECT_EQ(sources.opened(), kTheKeyboard);
  again.tap(KEY_B);
  EXPECT_EQ(round(), Lines({keyDown(66, 'b'), keyUp(66, 'b')}));
}

// ---- Numbers of descriptors ---------------------------------------------------------------------

// What is in a counter of the application's that has the number of a source's descriptor.
std::uint64_t countIn(int fd) {
  std::uint64_t count = 0;
  EXPECT_EQ(read(fd, &count, sizeof count), static_cast<ssize_t>(sizeof count)) << std::strerror(errno);
  return count;
}

TEST_F(KeptSourcesTest, TheNumberOfASourceThatHasGoneCanBeTheNextOnes) {
  const int number = reader.keyboardFd;
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  keys.unplug();
  Plugged& again = world->plug(plainKeyboard());
  const std::string path = again.path();
  sources.keepOpen(InputLoop::kKeyboard, path.c_str(), 1000);
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  const std::uint32_t generation = loop.generation();
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(sources.opened(), kTheKeyboard);
  EXPECT_EQ(reader.keyboardFd, number);
  EXPECT_NE(loop.generation(), generation);
  again.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(KeptSourcesTest, TheNumberOfASourceThatHasGoneCanBeTheApplicationsAtOnce) {
  const int number = reader.keyboardFd;
  keys.unplug();
  Plugged& again = world->plug(plainKeyboard());
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), kNothing);
  const int counter = eventfd(7, EFD_NONBLOCK);
  EXPECT_EQ(counter, number);
  EXPECT_EQ(outcome(sources.open(InputLoop::kKeyboard, again.path().c_str())), kDone);
  again.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
  EXPECT_EQ(countIn(counter), 7U);
  close(counter);
}

TEST_F(KeptSourcesTest, WhatTheApplicationClosedAndUsesAgainIsLeftAlone) {
  const int number = reader.keyboardFd;
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  close(number);
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(takeLog(), Lines({"loop: ERROR Lost the keyboard, errno = 9"}));
  const int counter = eventfd(7, EFD_NONBLOCK);
  EXPECT_EQ(counter, number);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(countIn(counter), 7U);
  close(counter);
}

// ---- The daemon ---------------------------------------------------------------------------------

TEST_F(KeptSourcesTest, TheRemoteComesBackWithItsDaemon) {
  constexpr unsigned kPaceMs = 1000;
  Remote& remote = world->startDaemon();
  const std::string path = remote.socketPath();
  sources.keepOpen(InputLoop::kRemote, path.c_str(), kPaceMs);
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(sources.opened(), kTheRemote);
  remote.send("KEY_OK", 0);
  EXPECT_EQ(round(), Lines({keyDown(13, 13)}));
  EXPECT_NE(reader.lircKey, 0);

  remote.stop();
  round();
  EXPECT_EQ(loop.gone(), kTheRemote);
  round();
  EXPECT_EQ(reader.lircFd, -1);
  EXPECT_EQ(reader.lircKey, 0);
  EXPECT_EQ(loop.timeoutMs(), -1);  // nothing of the remote is due any more

  world->pass(milliseconds(kPaceMs));
  round();
  EXPECT_EQ(sources.opened(), kNoSource);  // the socket's file is still there, and refuses

  Remote& second = world->startDaemon();
  world->pass(milliseconds(kPaceMs));
  round();
  EXPECT_EQ(sources.opened(), kTheRemote);
  second.send("KEY_UP", 0);
  EXPECT_EQ(round(), Lines({keyDown(38)}));
}

TEST_F(KeptSourcesTest, TheRemoteComesBackWithItsSocketsFile) {
  constexpr unsigned kPaceMs = 1000;
  Remote& remote = world->startDaemon();
  const std::string path = remote.socketPath();
  sources.keepOpen(InputLoop::kRemote, path.c_str(), kPaceMs);
  EXPECT_EQ(round(), kNothing);
  remote.stop();
  remote.removeSocket();
  round();
  round();
  EXPECT_EQ(outcome(sources.open(InputLoop::kRemote, path.c_str())), std::strerror(ENOENT));
  world->pass(milliseconds(kPaceMs));
  round();
  EXPECT_EQ(sources.opened(), kNoSource);

  Remote& second = world->startDaemon();
  world->pass(milliseconds(kPaceMs));
  round();
  EXPECT_EQ(sources.opened(), kTheRemote);
  second.send("KEY_UP", 0);
  EXPECT_EQ(round(), Lines({keyDown(38)}));
}

// ---- Further nodes ------------------------------------------------------------------------------

TEST_F(KeptSourcesTest, EightFurtherNodesTypeBesideTheKeyboard) {
  std::array<Plugged*, InputLoop::kMostFurtherNodes> devices;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    devices[i] = &world->plug(plainKeyboard());
    EXPECT_TRUE(sources.join(further[i]));
    EXPECT_EQ(outcome(sources.open(further[i].source(), devices[i]->path().c_str())), kDone);
  }
  EXPECT_FALSE(sources.join(further.back()));
  for (std::size_t i = devices.size(); i-- > 0;) devices[i]->tap(KEY_1 + static_cast<int>(i));
  keys.tap(KEY_A);
  pointer.move(1, 2);
  Lines expected = {keyDown(65, 'a'), keyUp(65, 'a')};
  for (int digit = '1'; digit <= '8'; ++digit) {
    expected.push_back(keyDown(digit, digit));
    expected.push_back(keyUp(digit, digit));
  }
  expected.push_back(moved(1, 2));
  EXPECT_EQ(round(), expected);
}

class FurtherNodesTest : public KeptSourcesTest {
 protected:
  FurtherNodesTest() {
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_TRUE(sources.join(further[i]));
      EXPECT_EQ(outcome(sources.open(further[i].source(), (i == 0 ? first : second).path().c_str())), kDone);
    }
  }

  Plugged& first = world->plug(plainKeyboard());
  Plugged& second = world->plug(plainKeyboard());
};

TEST_F(FurtherNodesTest, AShiftThatTwoHoldStaysUntilBothHaveReleasedIt) {
  first.press(KEY_LEFTSHIFT);
  second.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown, kShiftDown}));
  first.release(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({keyUp(16, 0, kShift)}));
  EXPECT_FALSE(sources.isDown(further[0].source(), KEY_LEFTSHIFT));
  EXPECT_TRUE(sources.isDown(further[1].source(), KEY_LEFTSHIFT));
  keys.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'A', kShift), keyUp(65, 'A', kShift)}));
  second.release(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftUp}));
}

TEST_F(FurtherNodesTest, AShiftThatTwoHoldStaysWhenOneIsUnplugged) {
  first.press(KEY_LEFTSHIFT);
  second.press(KEY_LEFTSHIFT);
  round();
  first.unplug();
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(takeLog().back(), "loop: ERROR Lost the node, errno = 19");
  EXPECT_EQ(round(), Lines({keyUp(16, 0, kShift)}));
  second.unplug();
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), Lines({kShiftUp}));
}

TEST_F(FurtherNodesTest, AShiftThatAnotherHoldsStaysWhenOnesReleaseIsLost) {
  first.press(KEY_LEFTSHIFT);
  second.press(KEY_LEFTSHIFT);
  round();
  first.release(KEY_LEFTSHIFT);
  overflow(first);
  round();
  EXPECT_EQ(round(), Lines({keyUp(16, 0, kShift)}));
  EXPECT_EQ(sources.lost(), InputLoop::SourceSet{1} << further[0].source());
}

TEST_F(FurtherNodesTest, ANodeIsNoSourceTwice) {
  world->link("/dev/input/by-id/keyboard", keys.path());
  EXPECT_TRUE(sources.join(further[2]));
  for (const std::string& path : {keys.path(), std::string("/dev/input/by-id/keyboard")}) {
    EXPECT_EQ(outcome(sources.open(further[2].source(), path.c_str())), std::strerror(EEXIST)) << path;
  }
  EXPECT_EQ(outcome(sources.open(further[2].source(), "/dev/input/event9")), std::strerror(ENOENT));
}

// ---- Grabs --------------------------------------------------------------------------------------

TEST_F(KeptSourcesTest, AGrabWaitsForTheKeyThatIsDown) {
  const NodeClient other(keys.path());
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), std::strerror(EAGAIN));
  EXPECT_EQ(round(), kNothing);
  EXPECT_FALSE(sources.isGrabbed(InputLoop::kKeyboard));
  keys.release(KEY_A);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  EXPECT_EQ(other.all(), Lines({kPressA, kReport, kReleaseA, kReport}));
  EXPECT_EQ(round(), kNothing);
  EXPECT_TRUE(sources.isGrabbed(InputLoop::kKeyboard));
  keys.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
  EXPECT_EQ(other.all(), kNothing);
}

TEST_F(KeptSourcesTest, AGrabIsGivenBackWhenItsKeyIsUp) {
  const NodeClient other(keys.path());
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), kDone);
  keys.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a')}));
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, false)), std::strerror(EAGAIN));
  keys.release(KEY_A);
  EXPECT_EQ(round(), Lines({keyUp(65, 'a')}));
  EXPECT_EQ(round(), kNothing);
  EXPECT_FALSE(sources.isGrabbed(InputLoop::kKeyboard));
  EXPECT_EQ(other.all(), kNothing);
  keys.tap(KEY_A);
  EXPECT_EQ(other.all(), Lines({kPressA, kReport, kReleaseA, kReport}));
}

TEST_F(KeptSourcesTest, TapsThatWaitWhileAGrabIsAskedForAreNotLost) {
  keys.tap(KEY_A);
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), std::strerror(EAGAIN));
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
  EXPECT_EQ(round(), kNothing);
  EXPECT_TRUE(sources.isGrabbed(InputLoop::kKeyboard));
}

TEST_F(KeptSourcesTest, AGrabThatAnotherProcessHasIsTakenWhenItLetsGo) {
  ASSERT_TRUE(keys.grabElsewhere());
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), std::strerror(EBUSY));
  EXPECT_EQ(round(), kNothing);
  EXPECT_FALSE(sources.isGrabbed(InputLoop::kKeyboard));
  keys.letGoElsewhere();
  EXPECT_EQ(round(), kNothing);
  EXPECT_TRUE(sources.isGrabbed(InputLoop::kKeyboard));
  EXPECT_FALSE(keys.grabElsewhere());
}

// What another process keeps to itself: Shift's release, and a tap.
void useWhileGrabbedElsewhere(Plugged& keys) {
  ASSERT_TRUE(keys.grabElsewhere());
  keys.release(KEY_LEFTSHIFT);
  keys.tap(KEY_A);
}

TEST_F(KeptSourcesTest, AGrabOfAnotherProcessIsSilenceInWhichTheLoopSleeps) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  useWhileGrabbedElsewhere(keys);
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(loop.timeoutMs(), -1);
  pointer.move(3, 4);
  EXPECT_EQ(round(), Lines({moved(3, 4)}));
  keys.letGoElsewhere();
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(loop.gone(), kNoSource);
  EXPECT_TRUE(sources.isDown(InputLoop::kKeyboard, KEY_LEFTSHIFT));
  keys.tap(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown, kShiftUp}));
  keys.tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(KeptSourcesTest, WhoWantsTheGrabHimselfIsToldWhatComesUpMeanwhile) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), std::strerror(EAGAIN));
  useWhileGrabbedElsewhere(keys);
  EXPECT_EQ(round(), Lines({kShiftUp}));
  EXPECT_EQ(reader.modifiers, 0U);
  EXPECT_FALSE(sources.isGrabbed(InputLoop::kKeyboard));
  keys.letGoElsewhere();
  EXPECT_EQ(round(), kNothing);
  EXPECT_TRUE(sources.isGrabbed(InputLoop::kKeyboard));
}

TEST_F(KeptSourcesTest, WhatCameUpUnderAnotherGrabComesUpWithTheNextLoss) {
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({kShiftDown}));
  useWhileGrabbedElsewhere(keys);
  keys.letGoElsewhere();
  EXPECT_EQ(round(), kNothing);
  overflow(keys);
  keys.press(KEY_C);
  round();
  EXPECT_EQ(round(), Lines({kShiftUp}));
  EXPECT_EQ(reader.modifiers, 0U);
}

TEST_F(KeptSourcesTest, ANodeThatWasGrabbedIsGrabbedAgainWhenItComesBack) {
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), kDone);
  keys.unplug();
  Plugged& again = world->plug(plainKeyboard());
  EXPECT_EQ(round(), kNothing);
  EXPECT_EQ(round(), kNothing);
  EXPECT_FALSE(sources.isGrabbed(InputLoop::kKeyboard));
  EXPECT_EQ(outcome(sources.grab(InputLoop::kKeyboard, true)), std::strerror(EBADF));
  EXPECT_EQ(outcome(sources.open(InputLoop::kKeyboard, again.path().c_str())), kDone);
  EXPECT_EQ(round(), kNothing);
  EXPECT_TRUE(sources.isGrabbed(InputLoop::kKeyboard));
  EXPECT_FALSE(again.grabElsewhere());
}

// ---- What was down before -----------------------------------------------------------------------

class AdoptionTest : public ScenarioTest {
 protected:
  AdoptionTest() {
    openNodes(reader, kNowhere, kNowhere);
    Description description = plainKeyboard();
    description.codes[EV_LED] = {LED_NUML};
    keys = &world->plug(description);
  }

  // As a console switches it. It lights it by itself when a keyboard is plugged in, or does not.
  void setNumLock(bool lit) {
    keys->report(EV_LED, LED_NUML, lit ? 1 : 0);
    keys->report(EV_SYN, SYN_REPORT, 0);
  }

  Lines round() { return roundOf(loop, sources); }

  Plugged* keys;
  LinuxInputReader reader;
  InputLoop loop{reader};
  InputSources sources{loop};
};

TEST_F(AdoptionTest, AHeldShiftAndALitNumLockCount) {
  setNumLock(true);
  keys->press(KEY_LEFTSHIFT);
  EXPECT_TRUE(sources.open(InputLoop::kKeyboard, keys->path().c_str()));
  EXPECT_TRUE(sources.adopt(InputLoop::kKeyboard));
  EXPECT_TRUE(reader.numLock);
  EXPECT_EQ(reader.modifiers, kShift);
  EXPECT_TRUE(sources.isDown(InputLoop::kKeyboard, KEY_LEFTSHIFT));
  EXPECT_EQ(round(), kNothing);
  keys->tap(KEY_A);
  keys->release(KEY_LEFTSHIFT);
  keys->tap(KEY_KP1);
  EXPECT_EQ(round(),
            Lines({keyDown(65, 'A', kShift), keyUp(65, 'A', kShift), kShiftUp, keyDown(97, '1'), keyUp(97, '1')}));
}

TEST_F(AdoptionTest, WithoutItNothingIsDownOrLit) {
  setNumLock(true);
  keys->press(KEY_LEFTSHIFT);
  EXPECT_TRUE(sources.open(InputLoop::kKeyboard, keys->path().c_str()));
  EXPECT_EQ(round(), kNothing);
  EXPECT_FALSE(reader.numLock);
  keys->tap(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(AdoptionTest, ANumLockThatIsDarkCountsToo) {
  reader.numLock = true;
  setNumLock(false);
  EXPECT_TRUE(sources.open(InputLoop::kKeyboard, keys->path().c_str()));
  EXPECT_TRUE(sources.adopt(InputLoop::kKeyboard));
  EXPECT_FALSE(reader.numLock);
}

TEST_F(AdoptionTest, ASourceThatIsNotOpenIsNotAdopted) {
  EXPECT_FALSE(sources.adopt(InputLoop::kKeyboard));
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace quarlo::test
