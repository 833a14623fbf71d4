// InputSources: sources that go. What they held comes up, and the others go on.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>

#include "tests/unit/sources_test.h"

namespace quarlo::test {
namespace {

using SourcesGone = SourcesTest;

// ---- Nodes --------------------------------------------------------------------------------------

TEST_F(SourcesGone, GivesTheKeyUpsOfAKeyboardThatIsUnplugged) {
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_A);
  round();
  keyboard.unplug();
  EXPECT_EQ(round(), Lines{});
  EXPECT_EQ(round(), (Lines{keyUp('A', 'A', 2), keyUp(16)}));
  EXPECT_EQ(reader.modifiers, 0U);
  EXPECT_EQ(rounds(3), Lines{});
}

TEST_F(SourcesGone, GivesTheButtonUpsOfAMouseThatIsUnplugged) {
  mouse.move(7, 8);
  mouse.press(BTN_LEFT);
  mouse.press(BTN_RIGHT);
  round();
  mouse.unplug();
  EXPECT_EQ(rounds(2), (Lines{buttonUp(1, 7, 8, 1), buttonUp(2, 7, 8, 1)}));
}

TEST_F(SourcesGone, SaysThatItLosesNoRecords) {
  keyboard.press(KEY_A);
  round();
  keyboard.unplug();
  rounds(2);
  EXPECT_EQ(sources.lost(), 0U);
}

TEST_F(SourcesGone, GivesAllKeyUpsThoughTheyAreMoreThanFit) {
  constexpr int kKeys = 70;
  for (int key = 1; key <= kKeys; ++key) {
    keyboard.inject(EV_KEY, key, 1);
    keyboard.inject(EV_SYN, SYN_REPORT, 0);
    round();
  }
  keyboard.unplug();
  EXPECT_EQ(rounds(2).size(), 64U);
  EXPECT_EQ(round().size(), 6U);
  EXPECT_EQ(rounds(2), Lines{});
}

TEST_F(SourcesGone, ClosesItsDescriptorAndTellsTheReader) {
  const int open = machine.openDescriptors();
  reader.maxFd = 5;
  keyboard.unplug();
  takeNow(loop);
  EXPECT_EQ(attended(), Lines{"close(101) = 0"});
  EXPECT_EQ(machine.openDescriptors(), open - 1);
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(reader.maxFd, -1);
  EXPECT_EQ(reader.mouseFd, kMouseFd);
  EXPECT_EQ(reader.lircFd, kLircFd);
  mouse.unplug();
  rounds(2);
  EXPECT_EQ(reader.mouseFd, -1);
  EXPECT_EQ(reader.lircFd, kLircFd);
  EXPECT_EQ(machine.openDescriptors(), open - 2);
}

TEST_F(SourcesGone, LetsTheOthersGoOn) {
  keyboard.unplug();
  mouse.press(BTN_LEFT);
  daemon.send("KEY_UP");
  EXPECT_EQ(round(), (Lines{buttonDown(1, 0, 0, 1), keyDown(38)}));
  mouse.release(BTN_LEFT);
  daemon.send("KEY_DOWN");
  EXPECT_EQ(round(), (Lines{buttonUp(1, 0, 0, 1), keyDown(40)}));
}

TEST_F(SourcesGone, IsReportedByOneWait) {
  keyboard.unplug();
  loop.wait(sources.attend(-1));
  takeAll(loop);
  EXPECT_EQ(text(loop.wait(sources.attend(-1))), "timeout, keyboard is gone");
  takeAll(loop);
  EXPECT_EQ(text(loop.wait(sources.attend(100))), "timeout");
  EXPECT_EQ(loop.gone(), bit(kKeyboard));
}

TEST_F(SourcesGone, DoesNotMakeTheWaitSpin) {
  keyboard.press(KEY_LEFTSHIFT);
  daemon.send("KEY_OK");
  round();
  keyboard.unplug();
  mouse.unplug();
  daemon.stop();
  rounds(3);
  const auto start = machine.now();
  EXPECT_EQ(text(loop.wait(sources.attend(5000))), "timeout");
  EXPECT_EQ(machine.now() - start, 5s);
}

TEST_F(SourcesGone, ChangesTheGenerationToOneThatNeverWas) {
  std::set<std::uint32_t> generations = {loop.generation()};
  keyboard.unplug();
  takeNow(loop);
  EXPECT_TRUE(generations.insert(loop.generation()).second);
  sources.attend(0);
  EXPECT_TRUE(generations.insert(loop.generation()).second);
}

TEST_F(SourcesGone, IsNothingToReadAnyMore) {
  keyboard.unplug();
  rounds(2);
  const int reads = machine.count(Call::kRead);
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(machine.count(Call::kRead), reads + 1);  // of the mouse
}

TEST_F(SourcesGone, LeavesThePointerNumLockAndTheClicks) {
  mouse.move(7, 8);
  mouse.press(BTN_LEFT);
  keyboard.press(KEY_NUMLOCK);
  round();
  const bool numLock = reader.numLock;
  mouse.unplug();
  keyboard.unplug();
  rounds(2);
  EXPECT_EQ(reader.numLock, numLock);
  sim::Node& other = machine.addNode("/dev/input/event0", Device::mouse());
  ASSERT_TRUE(sources.open(kMouse, "/dev/input/event0"));
  other.press(BTN_LEFT);
  EXPECT_EQ(round(), Lines{buttonDown(1, 7, 8, 2)});
}

// ---- Modifiers ----------------------------------------------------------------------------------

TEST_F(SourcesGone, LeavesAModifierThatIsDownOnAnotherNode) {
  mouse.inject(EV_KEY, KEY_LEFTSHIFT, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_LEFTCTRL);
  round();
  keyboard.unplug();
  EXPECT_EQ(rounds(2), (Lines{keyUp(17, 0, 2), keyUp(16, 0, 2)}));
  EXPECT_EQ(reader.modifiers, 2U);
  mouse.inject(EV_KEY, KEY_LEFTSHIFT, 0);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(round(), Lines{keyUp(16)});
}

// ---- The remote ---------------------------------------------------------------------------------

TEST_F(SourcesGone, ForgetsTheKeyOfARemoteWhoseDaemonEnds) {
  daemon.send("KEY_OK");
  round();
  machine.advance(300ms);
  round();
  ASSERT_NE(reader.lircKey, 0);
  ASSERT_NE(reader.lircChar, 0);
  ASSERT_TRUE(reader.lircRepeatMode);
  daemon.stop();
  EXPECT_EQ(rounds(2), Lines{});
  EXPECT_EQ(reader.lircFd, -1);
  EXPECT_EQ(reader.maxFd, -1);
  EXPECT_EQ(reader.lircKey, 0);
  EXPECT_EQ(reader.lircChar, 0);
  EXPECT_FALSE(reader.lircRepeatMode);
  EXPECT_EQ(loop.timeoutMs(), -1);
  EXPECT_EQ(text(loop.wait(sources.attend(2000))), "timeout");
}

TEST_F(SourcesGone, LeavesTheKeysOfNodesWhenTheDaemonEnds) {
  keyboard.press(KEY_LEFTSHIFT);
  round();
  daemon.stop();
  EXPECT_EQ(rounds(3), Lines{});
  EXPECT_EQ(reader.modifiers, 2U);
  EXPECT_EQ(machine.count(Call::kIoctl), 0);
}

TEST_F(SourcesGone, LeavesTheKeyOfTheRemoteWhenANodeGoes) {
  daemon.send("KEY_OK");
  round();
  keyboard.unplug();
  rounds(2);
  EXPECT_EQ(reader.lircKey, 13);
}

TEST_F(SourcesGone, ClosesTheSocketOfADaemonThatHangsUp) {
  daemon.hangUp();
  takeNow(loop);
  EXPECT_EQ(attended(), Lines{"close(102) = 0"});
  EXPECT_FALSE(daemon.hasClients());
}

// ---- Closed by the application ------------------------------------------------------------------

TEST_F(SourcesGone, GivesTheKeyUpsOfWhatTheApplicationHasClosed) {
  keyboard.press(KEY_A);
  round();
  close(kKeyboardFd);
  EXPECT_EQ(rounds(2), Lines{keyUp('A', 'a')});
  EXPECT_EQ(reader.keyboardFd, -1);
}

TEST_F(SourcesGone, LeavesAFileOpenThatHasTheNumberOfOneThatTheApplicationClosed) {
  close(kKeyboardFd);
  close(kLircFd);
  takeNow(loop);
  sim::Node& other = machine.addNode("/dev/input/event2", Device::keyboard());
  ASSERT_EQ(open("/dev/input/event2", O_RDONLY | O_NONBLOCK), kKeyboardFd);
  int pipe[2];
  ASSERT_EQ(pipe2(pipe, O_NONBLOCK), 0);
  ASSERT_EQ(pipe[0], kLircFd);
  EXPECT_EQ(attended(), Lines{});
  EXPECT_EQ(reader.keyboardFd, -1);
  EXPECT_EQ(reader.lircFd, -1);
  other.press(KEY_A);
  input_event record;
  EXPECT_EQ(read(kKeyboardFd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  for (const int fd : {kKeyboardFd, pipe[0], pipe[1]}) EXPECT_EQ(close(fd), 0);
}

TEST_F(SourcesGone, LeavesADescriptorThatTheApplicationHasGivenTheReader) {
  keyboard.unplug();
  takeNow(loop);
  sim::Node& other = machine.addNode("/dev/input/event2", Device::keyboard());
  const int given = reader.openDevice("/dev/input/event2", false);
  reader.keyboardFd = given;
  close(kKeyboardFd);
  EXPECT_EQ(attended(), Lines{});
  EXPECT_EQ(reader.keyboardFd, given);
  other.press(KEY_A);
  EXPECT_EQ(takeNow(loop), Lines{keyDown('A', 'a')});
}

// ---- FIFOs --------------------------------------------------------------------------------------

TEST_F(SourcesGone, GivesTheKeyUpsOfAFifoWhoseWriterGoes) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
  close(kKeyboardFd);
  reader.keyboardFd = fds[0];
  const input_event record = makeEvdevRecord(EV_KEY, KEY_A, 1);
  ASSERT_EQ(write(fds[1], &record, sizeof record), static_cast<ssize_t>(sizeof record));
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  close(fds[1]);
  EXPECT_EQ(rounds(2), Lines{keyUp('A', 'a')});
  EXPECT_EQ(fcntl(fds[0], F_GETFD), -1);
  EXPECT_EQ(reader.keyboardFd, -1);
}

}  // namespace
}  // namespace quarlo::test
