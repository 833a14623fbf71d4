// InputSources: what was lost with the records that the kernel has dropped.

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <set>
#include <string>

#include "tests/unit/sources_test.h"

namespace quarlo::test {
namespace {

using SourcesLost = SourcesTest;

// ---- What has come up and gone down -------------------------------------------------------------

TEST_F(SourcesLost, GivesTheKeyUpOfAShiftThatWasReleased) {
  keyboard.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines{keyDown(16, 0, 2)});
  keyboard.release(KEY_LEFTSHIFT);
  overflow(keyboard);
  EXPECT_EQ(round(), Lines{});
  EXPECT_EQ(round(), Lines{keyUp(16)});
  EXPECT_EQ(reader.modifiers, 0U);
  keyboard.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
}

TEST_F(SourcesLost, GivesTheKeyDownOfAShiftThatWasPressed) {
  keyboard.press(KEY_LEFTSHIFT);
  overflow(keyboard);
  EXPECT_EQ(rounds(2), Lines{keyDown(16, 0, 2)});
  keyboard.press(KEY_A);
  keyboard.release(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), (Lines{keyDown('A', 'A', 2), keyUp(16)}));
}

TEST_F(SourcesLost, GivesNothingOfATap) {
  keyboard.press(KEY_A);
  keyboard.release(KEY_A);
  overflow(keyboard);
  EXPECT_EQ(rounds(3), Lines{});
}

TEST_F(SourcesLost, GivesNothingOfWhatIsStillDown) {
  keyboard.press(KEY_A);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  overflow(keyboard);
  EXPECT_EQ(rounds(3), Lines{});
  keyboard.release(KEY_A);
  EXPECT_EQ(round(), Lines{keyUp('A', 'a')});
}

TEST_F(SourcesLost, GivesWhatHasComeUpBeforeWhatHasGoneDown) {
  keyboard.press(KEY_B);
  keyboard.press(KEY_D);
  EXPECT_EQ(round(), (Lines{keyDown('B', 'b'), keyDown('D', 'd')}));
  keyboard.release(KEY_B);
  keyboard.release(KEY_D);
  keyboard.press(KEY_A);
  keyboard.press(KEY_ESC);
  overflow(keyboard);
  EXPECT_EQ(rounds(2), (Lines{keyUp('D', 'd'), keyUp('B', 'b'), keyDown(27, 27), keyDown('A', 'a')}));
}

TEST_F(SourcesLost, GivesButtonsWithTheirClicks) {
  for (const int clicks : {1, 2}) {
    mouse.press(BTN_LEFT);
    overflow(mouse);
    EXPECT_EQ(rounds(2), Lines{buttonDown(1, 0, 0, clicks)});
    mouse.release(BTN_LEFT);
    overflow(mouse);
    EXPECT_EQ(rounds(2), Lines{buttonUp(1, 0, 0, clicks)});
  }
}

TEST_F(SourcesLost, GivesTheHighestCodeThatThereIs) {
  keyboard.inject(EV_KEY, KEY_MAX, 1);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  round();
  ASSERT_TRUE(sources.isDown(kKeyboard, KEY_MAX));
  overflow(keyboard);
  EXPECT_EQ(rounds(2), Lines{keyUp(0)});
  EXPECT_EQ(loop.cause().record.code, KEY_MAX);
  EXPECT_FALSE(sources.isDown(kKeyboard, KEY_MAX));
}

// ---- When the node is asked ---------------------------------------------------------------------

TEST_F(SourcesLost, GivesTheTapsThatWaitBehindItInTheirOrderAndAsksThen) {
  keyboard.press(KEY_LEFTCTRL);
  round();
  keyboard.release(KEY_LEFTCTRL);
  overflow(keyboard);
  for (const int key : {KEY_A, KEY_B}) {
    keyboard.press(key);
    keyboard.release(key);
  }
  EXPECT_EQ(round(), (Lines{keyDown('A', 'a', 1), keyUp('A', 'a', 1), keyDown('B', 'b', 1), keyUp('B', 'b', 1)}));
  EXPECT_EQ(machine.count(Call::kIoctl), 0);
  EXPECT_EQ(round(), Lines{keyUp(17)});
}

TEST_F(SourcesLost, AsksNothingWhileSomethingIsUnread) {
  overflow(keyboard);
  round();
  keyboard.press(KEY_A);
  EXPECT_EQ(attended(), Lines{"poll([101 POLLIN], 0.000000) = 1 [101 POLLIN]"});
  EXPECT_EQ(takeNow(loop), Lines{keyDown('A', 'a')});
  EXPECT_EQ(attended(), (Lines{"poll([101 POLLIN], 0.000000) = 0", "ioctl(101, EVIOCGKEY(96)) = 96"}));
  EXPECT_EQ(takeNow(loop), Lines{});
}

TEST_F(SourcesLost, AsksNothingWhileSomethingIsReadAhead) {
  loop.setBound(1, 1000);
  overflow(keyboard);
  keyboard.press(KEY_A);
  keyboard.press(KEY_B);
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  EXPECT_EQ(attended(), Lines{});
  EXPECT_EQ(takeNow(loop), Lines{keyDown('B', 'b')});
}

TEST_F(SourcesLost, AsksOnce) {
  overflow(keyboard);
  rounds(5);
  EXPECT_EQ(machine.count(Call::kIoctl), 1);
}

TEST_F(SourcesLost, AsksTheNodeThatLostRecordsAlone) {
  overflow(mouse);
  rounds(1);
  EXPECT_EQ(attended(), (Lines{"poll([100 POLLIN], 0.000000) = 0", "ioctl(100, EVIOCGKEY(96)) = 96"}));
}

TEST_F(SourcesLost, DoesNothingWhereNothingWasLost) {
  keyboard.press(KEY_A);
  mouse.press(BTN_LEFT);
  round();
  EXPECT_EQ(attended(), Lines{});
}

TEST_F(SourcesLost, AsksAgainWhenTheLookHasFailed) {
  keyboard.press(KEY_A);
  overflow(keyboard);
  round();
  machine.fail(Call::kPoll, 1, EINTR);
  EXPECT_EQ(attended(), Lines{"poll([101 POLLIN], 0.000000) = -1 EINTR"});
  EXPECT_EQ(rounds(1), Lines{keyDown('A', 'a')});
}

// The node's answer is then newer than the record, which it takes from the queue.
TEST_F(SourcesLost, GivesAKeyOnceThatGoesDownBeforeTheNodeAnswers) {
  overflow(keyboard);
  round();
  machine.setCallTime(10us);
  machine.after(15us, [&] { keyboard.press(KEY_A); });
  sources.attend(0);
  machine.setCallTime(0us);
  EXPECT_EQ(takeNow(loop), Lines{keyDown('A', 'a')});
  EXPECT_EQ(rounds(2), Lines{});
}

TEST_F(SourcesLost, AsksAgainWhereMoreIsLost) {
  keyboard.press(KEY_A);
  overflow(keyboard);
  EXPECT_EQ(rounds(2), Lines{keyDown('A', 'a')});
  keyboard.release(KEY_A);
  overflow(keyboard);
  EXPECT_EQ(rounds(2), Lines{keyUp('A', 'a')});
}

TEST_F(SourcesLost, FindsWhatIsLostBetweenTwoReads) {
  for (int i = 0; i < 70; ++i) mouse.inject(EV_SYN, SYN_REPORT, 0);
  mouse.press(BTN_LEFT);
  loop.wait(0);
  InputEvent event;
  loop.next(event);  // it reads 64 of them
  overflow(mouse);
  EXPECT_EQ(takeAll(loop), Lines{});
  EXPECT_EQ(rounds(4), Lines{buttonDown(1, 0, 0, 1)});
}

// The kernel gives one record of a read at a time, and can drop the others in between.
TEST_F(SourcesLost, FindsTheKernelsMarkInTheMiddleOfARead) {
  keyboard.press(KEY_A);
  keyboard.inject(EV_SYN, SYN_DROPPED, 0);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  rounds(2);
  EXPECT_EQ(sources.lost(), bit(kKeyboard));
}

TEST_F(SourcesLost, TakesNothingElseForTheKernelsMark) {
  keyboard.inject(EV_MSC, SYN_DROPPED, 0);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  rounds(2);
  EXPECT_EQ(machine.count(Call::kIoctl), 0);
}

// As an application does that draws for 16 ms: attend() comes right after next().
TEST_F(SourcesLost, AsksThoughTheMouseGoesOnMoving) {
  mouse.press(BTN_LEFT);
  EXPECT_EQ(round(), Lines{buttonDown(1, 0, 0, 1)});
  mouse.release(BTN_LEFT);
  overflow(mouse);
  Lines lines;
  for (int frame = 0; frame < 3; ++frame) {
    for (int ms = 1; ms <= 16; ++ms) machine.after(std::chrono::milliseconds(ms), [this] { mouse.move(1, 0); });
    machine.advance(std::chrono::milliseconds(16));
    loop.wait(0);
    for (const std::string& line : takeAll(loop)) {
      if (line.find("move") == std::string::npos) lines.push_back(line);
    }
    sources.attend(-1);
  }
  EXPECT_EQ(lines, Lines{buttonUp(1, 16, 0, 1)});
}

// ---- Motion -------------------------------------------------------------------------------------

TEST_F(SourcesLost, GivesTheMotionThatWasNotDropped) {
  mouse.move(5, 6);
  round();
  mouse.press(BTN_LEFT);
  overflow(mouse);
  mouse.move(1, 1);
  EXPECT_EQ(round(), Lines{moved(6, 7)});
  EXPECT_EQ(round(), Lines{buttonDown(1, 6, 7, 1)});
}

TEST_F(SourcesLost, LeavesTheMotionThatComesBeforeTheNodeAnswers) {
  overflow(mouse);
  round();
  machine.setCallTime(10us);
  machine.after(15us, [&] { mouse.move(3, 4); });
  sources.attend(0);
  machine.setCallTime(0us);
  EXPECT_EQ(takeNow(loop), Lines{moved(3, 4)});
}

// ---- Nodes that do not say ----------------------------------------------------------------------

TEST_F(SourcesLost, LeavesANodeAsItWasThatCannotSay) {
  keyboard.setIoctlError(EVIOCGKEY(0), ENOMEM);
  keyboard.press(KEY_LEFTSHIFT);
  round();
  keyboard.release(KEY_LEFTSHIFT);
  overflow(keyboard);
  EXPECT_EQ(rounds(3), Lines{});
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_LEFTSHIFT));
  EXPECT_EQ(reader.modifiers, 2U);
  keyboard.setIoctlError(EVIOCGKEY(0), 0);
  EXPECT_EQ(rounds(2), Lines{keyUp(16)});
}

TEST_F(SourcesLost, FindsTheKernelsMarkThatIsReadByItself) {
  keyboard.press(KEY_A);
  overflow(keyboard);
  machine.truncateRead(1, sizeof(input_event));
  EXPECT_EQ(takeNow(loop), Lines{});
  sources.attend(0);
  EXPECT_EQ(sources.lost(), bit(kKeyboard));
}

TEST_F(SourcesLost, LeavesAFifoAsItWas) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
  const int node = reader.keyboardFd;
  reader.keyboardFd = fds[0];
  const input_event records[] = {makeEvdevRecord(EV_SYN, SYN_DROPPED, 0), makeEvdevRecord(EV_KEY, KEY_A, 1)};
  ASSERT_EQ(write(fds[1], records, sizeof records), static_cast<ssize_t>(sizeof records));
  EXPECT_EQ(round(), Lines{keyDown('A', 'a')});
  EXPECT_EQ(round(), Lines{});
  EXPECT_EQ(sources.lost(), bit(kKeyboard));
  EXPECT_EQ(rounds(2), Lines{});
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_A));
  for (const int fd : {node, fds[1]}) close(fd);
}

TEST_F(SourcesLost, LeavesTheKeysBehindACutAnswer) {
  for (const int key : {KEY_ESC, KEY_LEFTSHIFT}) keyboard.press(key);  // in the first four bytes, and behind them
  EXPECT_EQ(round(), (Lines{keyDown(27, 27), keyDown(16, 0, 2)}));
  for (const int key : {KEY_ESC, KEY_LEFTSHIFT}) keyboard.release(key);
  overflow(keyboard);
  keyboard.cutStates(4);
  EXPECT_EQ(rounds(3), Lines{keyUp(27, 27, 2)});
  EXPECT_TRUE(sources.isDown(kKeyboard, KEY_LEFTSHIFT));
}

// ---- More than fits -----------------------------------------------------------------------------

constexpr int kReadAhead = 64;

// What comes up of this many keys that were down when all of them were released unseen, in each round.
std::vector<std::size_t> releasedUnseen(sim::Node& node, InputLoop& loop, InputSources& sources, int keys) {
  for (int key = 1; key <= keys; ++key) {
    node.inject(EV_KEY, key, 1);
    node.inject(EV_SYN, SYN_REPORT, 0);
    takeNow(loop);
  }
  overflow(node);
  takeNow(loop);
  std::vector<std::size_t> counts;
  for (int i = 0; i < 3; ++i) {
    loop.wait(sources.attend(0));
    counts.push_back(takeAll(loop).size());
  }
  for (int key = 1; key <= keys; ++key) EXPECT_FALSE(sources.isDown(kKeyboard, static_cast<unsigned>(key))) << key;
  return counts;
}

TEST_F(SourcesLost, GivesAsManyKeysAsFitAtOnce) {
  EXPECT_EQ(releasedUnseen(keyboard, loop, sources, kReadAhead), (std::vector<std::size_t>{64, 0, 0}));
}

TEST_F(SourcesLost, GivesMoreKeysThanFitInParts) {
  EXPECT_EQ(releasedUnseen(keyboard, loop, sources, kReadAhead + 1), (std::vector<std::size_t>{64, 1, 0}));
  EXPECT_EQ(releasedUnseen(keyboard, loop, sources, 2 * kReadAhead + 6), (std::vector<std::size_t>{64, 64, 6}));
  EXPECT_EQ(reader.modifiers, 0U);
}

// ---- What is told of it -------------------------------------------------------------------------

TEST_F(SourcesLost, SaysOfWhichNodesAndOnce) {
  sources.attend(0);
  EXPECT_EQ(sources.lost(), 0U);
  overflow(mouse);
  takeNow(loop);
  sources.attend(0);
  EXPECT_EQ(sources.lost(), bit(kMouse));
  overflow(mouse);
  overflow(keyboard);
  takeNow(loop);
  sources.attend(0);
  EXPECT_EQ(sources.lost(), bit(kMouse) | bit(kKeyboard));
  sources.attend(0);
  EXPECT_EQ(sources.lost(), 0U);
}

TEST_F(SourcesLost, MakesUpRecordsWithoutATime) {
  machine.advance(7us);  // what was read into the same place has seconds and microseconds
  keyboard.press(KEY_B);
  overflow(keyboard);
  rounds(2);
  EXPECT_EQ(loop.source(), kKeyboard);
  const input_event& record = loop.cause().record;
  EXPECT_EQ(record.input_event_sec, 0);
  EXPECT_EQ(record.input_event_usec, 0);
  EXPECT_EQ(record.type, EV_KEY);
  EXPECT_EQ(record.code, KEY_B);
  EXPECT_EQ(record.value, 1);
}

TEST_F(SourcesLost, CountsTheRecordsThatAreMadeUp) {
  keyboard.press(KEY_A);
  round();
  keyboard.release(KEY_A);
  overflow(keyboard);
  round();
  keyboard.press(KEY_B);
  takeNow(loop);
  const std::uint32_t before = loop.cause().number;  // and its SYN_REPORT follows
  EXPECT_EQ(round(), Lines{keyUp('A', 'a')});
  EXPECT_EQ(loop.cause().number, before + 2);
  keyboard.press(KEY_C);
  EXPECT_EQ(round(), Lines{keyDown('C', 'c')});
  EXPECT_EQ(loop.cause().number, before + 3);
}

TEST_F(SourcesLost, GivesWhatIsMadeUpBeforeWhatComesThen) {
  keyboard.press(KEY_A);
  overflow(keyboard);
  round();
  sources.attend(0);
  keyboard.press(KEY_B);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown('A', 'a'), keyDown('B', 'b')}));
}

TEST_F(SourcesLost, DoesNotSleepOnWhatIsMadeUp) {
  keyboard.press(KEY_A);
  overflow(keyboard);
  round();
  EXPECT_EQ(text(loop.wait(sources.attend(-1))), "input");
  EXPECT_EQ(takeAll(loop), Lines{keyDown('A', 'a')});
}

}  // namespace
}  // namespace quarlo::test
