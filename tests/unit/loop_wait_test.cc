// InputLoop: how long it sleeps, and why it wakes.

#include <sys/eventfd.h>
#include <unistd.h>

#include "tests/unit/loop_test.h"

namespace quarlo::test {
namespace {

constexpr unsigned bit(InputLoop::Source source) { return 1U << source; }

// A wait, in words, and how long it took.
std::string waited(const sim::Machine& machine, InputLoop& loop, int timeoutMs, int ownFd = -1) {
  const auto start = machine.now();
  const std::string why = text(loop.wait(timeoutMs, ownFd));
  return why + " after " + std::to_string((machine.now() - start) / 1ms) + " ms";
}

class LoopWaitTest : public LoopTest {
 protected:
  std::string waited(int timeoutMs, int ownFd = -1) { return test::waited(machine, loop, timeoutMs, ownFd); }
};

using LoopWait = LoopWaitTest;

TEST_F(LoopWait, EndsAtOnceWhenAKeyIsPressed) {
  machine.after(2h, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(waited(-1), "input after 7200000 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopWait, EndsAgainAtOnceWhenAKeyIsPressedAfterATimeout) {
  EXPECT_EQ(waited(40), "timeout after 40 ms");
  machine.after(3ms, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(waited(40), "input after 3 ms");
}

TEST_F(LoopWait, EndsForEachSource) {
  machine.after(1ms, [&] { mouse.move(1, 1); });
  EXPECT_EQ(waited(-1), "input after 1 ms");
  takeAll(loop);
  machine.after(1ms, [&] { daemon.send("KEY_OK"); });
  EXPECT_EQ(waited(-1), "input after 1 ms");
}

TEST_F(LoopWait, TakesAnyNegativeTimeoutForNoLimit) {
  machine.after(24h, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(waited(-2147483647 - 1), "input after 86400000 ms");
}

TEST_F(LoopWait, DoesNotWaitWhatIsTooLongForTheReader) { EXPECT_EQ(waited(2147483647), "timeout after 2147483647 ms"); }

TEST_F(LoopWait, EndsForTheApplicationsDescriptor) {
  const int own = eventfd(0, EFD_NONBLOCK);
  machine.after(5ms, [&] { EXPECT_EQ(eventfd_write(own, 1), 0); });
  EXPECT_EQ(waited(-1, own), "own descriptor after 5 ms");
  keyboard.press(KEY_A);
  EXPECT_EQ(waited(-1, own), "input, own descriptor after 0 ms");
  close(own);
}

TEST_F(LoopWait, EndsForASignal) {
  machine.signalAfter(7ms);
  EXPECT_EQ(waited(-1), "input, signal after 7 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
}

TEST_F(LoopWait, AsksAllSourcesAfterAWaitThatFailed) {
  keyboard.press(KEY_A);
  machine.fail(Call::kPoll, 1, ENOMEM);
  EXPECT_EQ(waited(-1), "input, signal after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopWait, DoesNotSleepWhileTheReaderHoldsAnEvent) {
  mouse.move(1, 1);
  mouse.press(BTN_LEFT);
  loop.wait(-1);
  InputEvent event;
  EXPECT_TRUE(loop.next(event));
  EXPECT_EQ(loop.timeoutMs(), 0);
  EXPECT_EQ(waited(-1), "input after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{buttonDown(1, 1, 1, 1)});
}

TEST_F(LoopWait, DoesNotSleepWhileRecordsAreReadAhead) {
  for (int i = 0; i < 21; ++i) keyboard.inject(EV_SYN, SYN_REPORT, 0);
  keyboard.press(KEY_A);
  loop.wait(-1);
  EXPECT_EQ(takeAll(loop), Lines{});  // a drain takes 20 records
  EXPECT_EQ(waited(-1), "input after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopWait, SleepsWithoutASourceToo) {
  LinuxInputReader empty;
  InputLoop emptyLoop(empty);
  EXPECT_EQ(test::waited(machine, emptyLoop, 500), "timeout after 500 ms");
}

// ---- The remote's key ---------------------------------------------------------------------------

TEST_F(LoopWait, EndsWhenTheRepeatModeStartsAndWhenTheKeyIsForgotten) {
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);
  EXPECT_EQ(waited(-1), "remote after 300 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_TRUE(reader.lircRepeatMode);
  EXPECT_EQ(waited(-1), "remote after 100 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(reader.lircKey, 0);
  EXPECT_EQ(loop.timeoutMs(), -1);
}

TEST_F(LoopWait, EndsForTheApplicationsTimeoutBeforeTheRemotesTime) {
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);
  EXPECT_EQ(waited(299), "timeout after 299 ms");
  EXPECT_EQ(waited(100), "remote after 1 ms");
}

TEST_F(LoopWait, IsLateForTheRemoteByTheSleepAloneWhenTheClockIsSetBack) {
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);
  machine.after(100ms, [&] { machine.jumpClock(-1h); });
  EXPECT_EQ(text(loop.wait(-1)), "remote");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.timeoutMs(), 3600000);  // as the reader reckons: it would not forget the key any sooner
}

TEST_F(LoopWait, DoesNotSpinWhenTheClockIsSetForward) {
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);
  machine.jumpClock(1h);
  EXPECT_EQ(waited(-1), "remote after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.timeoutMs(), -1);
}

TEST_F(LoopWait, KnowsTimeoutsWhoseSumWraps) {
  reader.lircReleaseTimeout = INT32_MAX;
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);  // the sum is negative, so the first poll without a line forgets the key
  EXPECT_EQ(reader.lircKey, 0);
}

TEST_F(LoopWait, ForgetsTheKeyOfADaemonThatIsGone) {
  daemon.send("KEY_OK");
  loop.wait(-1);
  takeAll(loop);
  daemon.stop();
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(waited(-1), "remote is gone after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(waited(-1), "remote after 300 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(waited(-1), "remote after 100 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(reader.lircKey, 0);
}

// ---- Sources that go ----------------------------------------------------------------------------

TEST_F(LoopWait, SaysWhichSourceIsGoneOnceAndGoesOnWithTheOthers) {
  machine.after(5ms, [&] { mouse.unplug(); });
  EXPECT_EQ(waited(-1), "input after 5 ms");
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(waited(-1), "mouse is gone after 0 ms");
  EXPECT_EQ(takeLog(), Lines{"loop: ERROR Lost the mouse, errno = 19"});
  machine.after(5ms, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(waited(-1), "input after 5 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
  EXPECT_EQ(loop.gone(), bit(InputLoop::kMouse));
  EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(LoopWait, GivesWhatADaemonHadSentBeforeItEnded) {
  daemon.send("KEY_OK");
  daemon.stop();
  EXPECT_EQ(waited(-1), "input after 0 ms");
  EXPECT_EQ(takeAll(loop), (Lines{keyDown(13, 13)}));
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(waited(-1), "remote is gone after 0 ms");
  EXPECT_EQ(takeLog().back(), "loop: ERROR Lost the remote, errno = 0");
}

TEST_F(LoopWait, TellsOfASourceThatGoesWhileItIsRead) {
  keyboard.press(KEY_A);
  loop.wait(-1);
  machine.fail(Call::kRead, 1, EIO);
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(loop.timeoutMs(), -1);  // those who wait elsewhere look at gone()
  EXPECT_EQ(waited(-1), "keyboard is gone after 0 ms");
}

TEST_F(LoopWait, TakesADescriptorThatWasClosedBehindItsBackForGone) {
  close(kKeyboardFd);
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(waited(-1), "keyboard is gone after 0 ms");
  EXPECT_EQ(takeLog(), Lines{"loop: ERROR Lost the keyboard, errno = 9"});
}

TEST_F(LoopWait, SleepsWhenAllSourcesAreGone) {
  keyboard.unplug();
  mouse.unplug();
  daemon.stop();
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(waited(-1), "keyboard is gone, mouse is gone, remote is gone after 0 ms");
  EXPECT_EQ(waited(1000), "timeout after 1000 ms");
}

// ---- Waiting elsewhere --------------------------------------------------------------------------

TEST_F(LoopWait, NamesItsDescriptorsUntilTheirSourcesAreGone) {
  pollfd fds[InputLoop::kMaxDescriptors];
  ASSERT_EQ(loop.descriptors(fds), 3);
  EXPECT_EQ(fds[0].fd, kKeyboardFd);
  EXPECT_EQ(fds[1].fd, kMouseFd);
  EXPECT_EQ(fds[2].fd, kLircFd);
  const unsigned before = loop.generation();
  EXPECT_EQ(loop.generation(), before);
  mouse.unplug();
  takeNow(loop);
  EXPECT_NE(loop.generation(), before);
  ASSERT_EQ(loop.descriptors(fds), 2);
  EXPECT_EQ(fds[1].fd, kLircFd);
}

TEST_F(LoopWait, FindsTheSourcesThatTheReaderIsGivenLater) {
  LinuxInputReader late;
  InputLoop lateLoop(late);
  const unsigned before = lateLoop.generation();
  late.init(nullptr, "/dev/input/event1", nullptr, kMaxX, kMaxY);
  EXPECT_NE(lateLoop.generation(), before);
  keyboard.press(KEY_A);
  EXPECT_EQ(takeNow(lateLoop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopWait, NamesTheDescriptorsThatTheReaderIsGivenLater) {
  LinuxInputReader late;
  InputLoop lateLoop(late);
  late.init(nullptr, "/dev/input/event1", nullptr, kMaxX, kMaxY);
  pollfd fds[InputLoop::kMaxDescriptors];
  EXPECT_GT(lateLoop.descriptors(fds), 0);
}

TEST_F(LoopWait, AsksTheSourcesThatTheReaderIsGivenLater) {
  LinuxInputReader late;
  InputLoop lateLoop(late);
  late.init("/nowhere", "/dev/input/event1", "/nowhere", kMaxX, kMaxY);
  keyboard.press(KEY_A);
  lateLoop.setAllReady();
  EXPECT_EQ(takeAll(lateLoop), Lines{keyDown('A', 'a')});
}

TEST_F(LoopWait, ReadsOnlyTheDescriptorsThatWereNamed) {
  loop.wait(0);
  keyboard.press(KEY_A);
  mouse.move(1, 1);
  EXPECT_EQ(takeAll(loop), Lines{});
  loop.setReady(kMouseFd, POLLIN);
  EXPECT_EQ(takeAll(loop), Lines{moved(1, 1)});
  loop.setReady(kKeyboardFd, 0);
  loop.setReady(4711, POLLIN);
  loop.setReady(-1, POLLIN);
  EXPECT_EQ(takeAll(loop), Lines{});
}

TEST_F(LoopWait, ReadsAllSourcesWhereTheWaitDoesNotName) {
  keyboard.press(KEY_A);
  mouse.move(1, 1);
  daemon.send("KEY_OK");
  loop.setAllReady();
  EXPECT_EQ(takeAll(loop), (Lines{keyDown('A', 'a'), moved(1, 1), keyDown(13, 13)}));
  EXPECT_EQ(loop.timeoutMs(), 300);
  EXPECT_EQ(takeLog().size(), 3);  // what the reader says of the line
}

// ---- Sources that the application replaces ------------------------------------------------------

TEST_F(LoopWait, KnowsASourceThatIsOpenedAgainUnderTheSameNumber) {
  keyboard.unplug();
  takeNow(loop);
  sim::Node& second = machine.addNode("/dev/input/event7", Device::keyboard());
  const unsigned before = loop.generation();
  close(reader.keyboardFd);
  reader.keyboardFd = -1;
  loop.generation();
  reader.keyboardFd = reader.openDevice("/dev/input/event7", false);
  EXPECT_EQ(reader.keyboardFd, kKeyboardFd);
  EXPECT_NE(loop.generation(), before);
  second.press(KEY_A);
  EXPECT_EQ(waited(-1), "input after 0 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
  EXPECT_EQ(loop.gone(), 0U);
}

TEST_F(LoopWait, ForgetsWhatWasDownOnAnEarlierNode) {
  keyboard.press(KEY_LEFTSHIFT);
  takeNow(loop);
  keyboard.unplug();
  sim::Node& second = machine.addNode("/dev/input/event7", Device::keyboard());
  reader.keyboardFd = reader.openDevice("/dev/input/event7", false);
  second.press(KEY_RIGHTSHIFT);
  second.release(KEY_RIGHTSHIFT);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown(16, 0, 2), keyUp(16)}));
}

TEST_F(LoopWait, ForgetsThePartOfALineOfAnEarlierDaemon) {
  daemon.sendText("0000000000f40bf0 00 KEY");
  takeNow(loop);
  sim::LircDaemon& second = machine.addLircDaemon("/run/lircd2");
  reader.lircFd = reader.openLircSocket("/run/lircd2");
  second.send("KEY_DOWN");
  EXPECT_EQ(takeNow(loop), Lines{keyDown(40)});
}

TEST_F(LoopWait, DoesNotReportASourceThatWasReplacedBefore) {
  keyboard.unplug();
  takeNow(loop);
  machine.addNode("/dev/input/event7", Device::keyboard());
  reader.keyboardFd = reader.openDevice("/dev/input/event7", false);
  loop.generation();
  EXPECT_EQ(waited(0), "timeout after 0 ms");
}

TEST_F(LoopWait, DoesNotMissASourceThatTheApplicationTookAway) {
  loop.setBound(1, 1000);
  for (int i = 0; i < 40; ++i) mouse.inject(EV_KEY, BTN_LEFT, i % 2);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  takeNow(loop);
  close(reader.mouseFd);
  reader.mouseFd = -1;
  loop.setBound(0, 0);
  EXPECT_EQ(takeNow(loop).size(), 39);
  EXPECT_EQ(loop.gone(), 0U);
  EXPECT_EQ(takeLog(), Lines{});
}

TEST_F(LoopWait, LeavesStandardInputAloneBeforeTheReaderHasSources) {
  daemon.send("KEY_OK");
  readOne(reader);
  machine.advance(300ms);
  InputLoop second(reader);
  LinuxInputReader empty;
  InputLoop third(empty);
  third.setReady(STDIN_FILENO, POLLIN);
  takeLog();
  EXPECT_EQ(takeAll(second), Lines{});  // without a wait before it
  EXPECT_EQ(takeAll(third), Lines{});
  EXPECT_EQ(takeLog(), Lines{"VERBOSE10 LIRC key repeat mode started."});
}

// ---- Descriptors that select() cannot watch ----------------------------------------------------

TEST_F(MachineTest, LoopWaitsOnDescriptorsFrom1024On) {
  sim::Node& keyboard = machine.addNode("/dev/input/event1", Device::keyboard());
  machine.setFirstDescriptor(1024);
  LinuxInputReader reader;
  reader.init("/nowhere", "/dev/input/event1", "/nowhere", 1280, 720);
  InputLoop loop(reader);
  machine.after(5ms, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(waited(machine, loop, -1), "input after 5 ms");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

}  // namespace
}  // namespace quarlo::test
