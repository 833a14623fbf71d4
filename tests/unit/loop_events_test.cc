// InputLoop: the events of nodes, what they came of, and how much a round takes.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <initializer_list>

#include "tests/unit/loop_test.h"

namespace quarlo::test {
namespace {

using LoopEvents = LoopTest;

void inject(sim::Node& node, std::initializer_list<std::array<int, 3>> records) {
  for (const auto& [type, code, value] : records) node.inject(type, code, value);
  node.inject(EV_SYN, SYN_REPORT, 0);
}

// ---- As the reader ------------------------------------------------------------------------------

TEST_F(LoopEvents, AsksTheKeyboardBeforeTheMouseBeforeTheRemote) {
  daemon.send("KEY_UP");
  mouse.move(3, 4);
  keyboard.press(KEY_A);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown('A', 'a'), moved(3, 4), keyDown(38)}));
}

TEST_F(LoopEvents, GathersTheMotionOfADrain) {
  for (int i = 0; i < 7; ++i) mouse.move(1, 1);  // three records each, and a drain takes 20
  EXPECT_EQ(takeNow(loop), (Lines{moved(7, 7)}));
}

TEST_F(LoopEvents, GivesTheRestOfTheMotionWithTheNextEvent) {
  for (int i = 0; i < 8; ++i) mouse.move(1, 1);
  EXPECT_EQ(takeNow(loop), (Lines{moved(7, 7), moved(8, 8)}));
}

TEST_F(LoopEvents, LetsNoButtonOvertakeTheMotionBeforeIt) {
  mouse.move(3, 4);
  mouse.press(BTN_LEFT);
  mouse.release(BTN_LEFT);
  EXPECT_EQ(takeNow(loop), (Lines{moved(3, 4), buttonDown(1, 3, 4, 1), buttonUp(1, 3, 4, 1)}));
}

TEST_F(LoopEvents, ReadsManyRecordsAtOnceAndNotTheirEnd) {
  for (int i = 0; i < 3; ++i) keyboard.press(KEY_A + i);
  loop.wait(0);
  const int reads = machine.count(Call::kRead);
  EXPECT_EQ(takeAll(loop).size(), 3);
  EXPECT_EQ(machine.count(Call::kRead), reads + 1);
}

TEST_F(LoopEvents, SaysFalseWithAnEventOfNoKind) {
  InputEvent event = untouched();
  EXPECT_FALSE(loop.next(event));
  EXPECT_EQ(event.kind, InputEvent::kNoEvent);
}

// ---- Without the surprises ----------------------------------------------------------------------

TEST_F(LoopEvents, LeavesOutWhatIsNoEvent) {
  mouse.press(BTN_SIDE);
  mouse.release(BTN_SIDE);
  inject(mouse, {{EV_KEY, BTN_LEFT, 2}});
  inject(mouse, {{EV_ABS, ABS_X, 5}});
  EXPECT_EQ(takeNow(loop), Lines{});
}

TEST_F(LoopEvents, GivesAMoveOnceBeforeASideButton) {
  mouse.move(3, 4);
  mouse.press(BTN_SIDE);
  mouse.move(1, 1);
  EXPECT_EQ(takeNow(loop), (Lines{moved(3, 4), moved(4, 5)}));
}

TEST_F(LoopEvents, GivesTheStepsOfAWheel) {
  mouse.move(3, 4);
  inject(mouse, {{EV_REL, REL_WHEEL, -1}, {EV_REL, REL_WHEEL_HI_RES, -120}});
  inject(mouse, {{EV_REL, REL_HWHEEL, 2}});
  inject(mouse, {{EV_REL, REL_WHEEL, 0}});
  EXPECT_EQ(takeNow(loop), (Lines{moved(3, 4), wheel("vertical", -1, 3, 4), wheel("horizontal", 2, 3, 4)}));
}

TEST_F(LoopEvents, BringsNothingBackByOtherAxes) {
  mouse.move(3, 4);
  mouse.press(BTN_LEFT);
  takeNow(loop);
  inject(mouse, {{EV_REL, REL_MISC, 1}});
  EXPECT_EQ(takeNow(loop), Lines{});
}

TEST_F(LoopEvents, TakesATouchOfTwoCodesForOnePress) {
  inject(mouse, {{EV_KEY, BTN_TOUCH, 1}, {EV_KEY, BTN_TOOL_FINGER, 1}});
  inject(mouse, {{EV_KEY, BTN_TOUCH, 0}});
  inject(mouse, {{EV_KEY, BTN_TOUCH, 1}});
  EXPECT_EQ(takeNow(loop), (Lines{buttonDown(1, 0, 0, 1)}));
  inject(mouse, {{EV_KEY, BTN_TOOL_FINGER, 0}, {EV_KEY, BTN_TOUCH, 0}});
  EXPECT_EQ(takeNow(loop), (Lines{buttonUp(1, 0, 0, 1)}));
  inject(mouse, {{EV_KEY, BTN_TOOL_FINGER, 1}, {EV_KEY, BTN_TOUCH, 1}});
  EXPECT_EQ(takeNow(loop), (Lines{buttonDown(1, 0, 0, 2)}));
}

TEST_F(LoopEvents, GivesEachTouchOfOneCode) {
  inject(mouse, {{EV_KEY, BTN_TOUCH, 1}, {EV_KEY, BTN_TOUCH, 0}});
  EXPECT_EQ(takeNow(loop), (Lines{buttonDown(1, 0, 0, 1), buttonUp(1, 0, 0, 1)}));
}

TEST_F(LoopEvents, KeepsAModifierWhileItsTwinIsDown) {
  struct Pair {
    int left;
    int right;
    int key;
    unsigned modifier;
  };
  for (const Pair& pair : {Pair{KEY_LEFTCTRL, KEY_RIGHTCTRL, 17, 1}, Pair{KEY_LEFTSHIFT, KEY_RIGHTSHIFT, 16, 2},
                           Pair{KEY_LEFTALT, KEY_RIGHTALT, 18, 4}}) {
    keyboard.press(pair.left);
    keyboard.press(pair.right);
    keyboard.release(pair.left);
    keyboard.press(KEY_F1);
    keyboard.release(pair.right);
    EXPECT_EQ(takeNow(loop),
              (Lines{keyDown(pair.key, 0, pair.modifier), keyDown(pair.key, 0, pair.modifier),
                     keyUp(pair.key, 0, pair.modifier), keyDown(112, 0, pair.modifier), keyUp(pair.key)}));
    EXPECT_EQ(reader.modifiers, 0U);
    keyboard.release(KEY_F1);
    takeNow(loop);
  }
}

TEST_F(LoopEvents, KeepsAModifierWhoseReleaseWasLostUntilItsKeyIsTapped) {
  keyboard.press(KEY_LEFTSHIFT);
  takeNow(loop);
  keyboard.release(KEY_LEFTSHIFT);
  for (int i = 0; i < 64; ++i) keyboard.repeat(KEY_LEFTSHIFT);  // the queue overflows
  takeNow(loop);
  takeNow(loop);
  inject(keyboard, {{EV_KEY, KEY_RIGHTSHIFT, 1}, {EV_KEY, KEY_RIGHTSHIFT, 0}});
  takeNow(loop);
  EXPECT_EQ(reader.modifiers, 2U);
  inject(keyboard, {{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_LEFTSHIFT, 0}});
  takeNow(loop);
  EXPECT_EQ(reader.modifiers, 0U);
}

TEST_F(LoopEvents, KeepsAModifierWhileItIsDownOnAnotherNode) {
  mouse.inject(EV_KEY, KEY_RIGHTSHIFT, 1);
  inject(mouse, {});
  takeNow(loop);
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.release(KEY_LEFTSHIFT);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown(16, 0, 2), keyUp(16, 0, 2)}));
}

TEST_F(LoopEvents, TakesCodesThatNoKernelHas) {
  inject(keyboard, {{EV_KEY, 0xffff, 1}, {EV_KEY, 0xffff, 0}});
  EXPECT_EQ(takeNow(loop), (Lines{keyDown(0), keyUp(0)}));
}

// ---- Where it came from, and of what ------------------------------------------------------------

std::string causeText(const InputLoop& loop) {
  const input_event& record = loop.cause().record;
  const std::string what =
      loop.source() == InputLoop::kRemote
          ? loop.line()
          : std::to_string(record.type) + " " + std::to_string(record.code) + " " + std::to_string(record.value);
  return test::text(loop.source()) + " " + std::to_string(loop.cause().number) + ": " + what;
}

Lines takeCauses(InputLoop& loop, bool everything) {
  Lines lines;
  InputEvent event;
  while (everything ? loop.nextRecord(event) : loop.next(event)) {
    const bool isEvent = event.kind != InputEvent::kNoEvent;
    lines.push_back(causeText(loop) + " gives " + (isEvent ? loopText(event) : "nothing"));
  }
  return lines;
}

TEST_F(LoopEvents, SaysWhatAnEventCameOf) {
  keyboard.report(EV_MSC, MSC_SCAN, 7);
  keyboard.press(KEY_A);
  mouse.move(3, 4);
  inject(mouse, {{EV_KEY, BTN_TOUCH, 1}});
  daemon.send("KEY_UP");
  loop.wait(0);
  EXPECT_EQ(takeCauses(loop, false),
            (Lines{"keyboard 2: 1 30 1 gives " + keyDown('A', 'a'), "mouse 2: 2 1 4 gives " + moved(3, 4),
                   "mouse 4: 1 330 1 gives " + buttonDown(1, 3, 4, 1),
                   "remote 1: 0000000000f40bf0 00 KEY_UP myremote\n gives " + keyDown(38)}));
}

TEST_F(LoopEvents, NumbersTheRecordsOfASource) {
  for (int i = 0; i < 60; ++i) inject(mouse, {{EV_KEY, BTN_LEFT, i % 2}});
  loop.wait(0);
  InputEvent event;
  for (std::uint32_t number = 1; loop.next(event); number += 2) EXPECT_EQ(loop.cause().number, number);
  EXPECT_EQ(loop.cause().number, 119);
}

TEST_F(LoopEvents, ShowsEachRecordAndLineThatGivesNothing) {
  mouse.move(3, 4);
  mouse.press(BTN_SIDE);
  daemon.sendText("BEGIN\nSIGHUP\n");
  loop.wait(0);
  EXPECT_EQ(takeCauses(loop, true), (Lines{"mouse 3: 0 0 0 gives nothing", "mouse 2: 2 1 4 gives " + moved(3, 4),
                                           "mouse 4: 1 275 1 gives nothing", "mouse 5: 0 0 0 gives nothing",
                                           "remote 1: BEGIN\n gives nothing", "remote 2: SIGHUP\n gives nothing"}));
}

TEST_F(LoopEvents, ShowsASideButtonAfterMotion) {
  inject(mouse, {{EV_REL, REL_X, 3}, {EV_KEY, BTN_SIDE, 1}});
  loop.wait(0);
  EXPECT_EQ(takeCauses(loop, true), (Lines{"mouse 1: 2 0 3 gives " + moved(3, 0), "mouse 2: 1 275 1 gives nothing",
                                           "mouse 3: 0 0 0 gives nothing"}));
}

TEST_F(LoopEvents, GivesNothingTwiceWhenATouchFollowsMotion) {
  inject(mouse, {{EV_KEY, BTN_TOUCH, 1}});
  takeNow(loop);
  inject(mouse, {{EV_REL, REL_X, 3}, {EV_KEY, BTN_TOOL_FINGER, 1}});
  loop.wait(0);
  EXPECT_EQ(takeCauses(loop, true), (Lines{"mouse 3: 2 0 3 gives " + moved(3, 0, 1), "mouse 4: 1 325 1 gives nothing",
                                           "mouse 5: 0 0 0 gives nothing"}));
}

TEST_F(LoopEvents, EndsARoundOfAllRecordsWhereOneOfEventsEnds) {
  for (int i = 0; i < 20; ++i) keyboard.inject(EV_MSC, MSC_SCAN, i);
  keyboard.press(KEY_A);
  loop.wait(0);
  EXPECT_EQ(takeCauses(loop, true).size(), 20);
  EXPECT_EQ(loop.timeoutMs(), 0);
  EXPECT_EQ(takeCauses(loop, true).size(), 2);
}

TEST_F(LoopEvents, EndsARoundAfterALineThatGivesNothing) {
  for (int i = 0; i < 25; ++i) mouse.inject(EV_MSC, MSC_SCAN, i);
  mouse.press(BTN_LEFT);
  daemon.sendText("BEGIN\n");
  EXPECT_EQ(takeNow(loop), Lines{});
  keyboard.press(KEY_A);
  EXPECT_EQ(takeNow(loop), (Lines{keyDown('A', 'a'), buttonDown(1, 0, 0, 1)}));
}

// ---- How much a round takes ---------------------------------------------------------------------

void pressOften(sim::Node& node, int code, int times) {
  for (int i = 0; i < times; ++i) inject(node, {{EV_KEY, code, i % 2 == 0 ? 1 : 0}});
}

TEST_F(LoopEvents, TakesNoMoreThanTheBoundOfEachSource) {
  loop.setBound(3, 1000);
  pressOften(keyboard, KEY_A, 5);
  pressOften(mouse, BTN_LEFT, 5);
  for (int i = 0; i < 5; ++i) daemon.send("KEY_UP");
  EXPECT_EQ(takeNow(loop).size(), 9);
  EXPECT_EQ(loop.timeoutMs(), 0);
  EXPECT_EQ(takeNow(loop).size(), 6);
  EXPECT_EQ(loop.timeoutMs(), 300);
}

TEST_F(LoopEvents, CountsTheMovesBeforeButtonsTowardsTheBound) {
  loop.setBound(4, 1000);
  for (int i = 0; i < 5; ++i) inject(mouse, {{EV_REL, REL_X, 1}, {EV_KEY, BTN_LEFT, 1 - i % 2}});
  EXPECT_EQ(takeNow(loop).size(), 4);
}

TEST_F(LoopEvents, TakesNoLongerThanTheBoundOfEachSource) {
  loop.setBound(1000, 4);
  pressOften(mouse, BTN_LEFT, 1);
  for (int i = 0; i < 60; ++i) daemon.send("KEY_UP");
  loop.wait(0);
  int lines = 0;
  for (InputEvent event; loop.next(event); lines += loop.source() == InputLoop::kRemote ? 1 : 0) machine.advance(250us);
  EXPECT_EQ(lines, 32);  // of them, 16 in 4 ms
}

TEST_F(LoopEvents, TakesAllWithoutABound) {
  loop.setBound(0, 0);
  pressOften(keyboard, KEY_A, 31);
  pressOften(mouse, BTN_LEFT, 63);
  for (int i = 0; i < 200; ++i) daemon.send("KEY_UP");
  EXPECT_EQ(takeNow(loop).size(), 294);
}

TEST_F(LoopEvents, CountsRecordsThatGiveNothingTowardsTheBound) {
  loop.setBound(4, 1000);
  pressOften(mouse, BTN_SIDE, 6);
  EXPECT_EQ(takeNow(loop), Lines{});
  EXPECT_EQ(loop.timeoutMs(), 0);
}

// ---- Cut reads, and other odd ones --------------------------------------------------------------

TEST_F(LoopEvents, PutsARecordTogetherThatAFifoGaveInParts) {
  for (const std::size_t part : {std::size_t{1}, std::size_t{5}, sizeof(input_event) - 1}) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_NONBLOCK), 0);
    LinuxInputReader piped;
    piped.keyboardFd = fds[0];
    InputLoop pipedLoop(piped);
    input_event records[] = {makeEvdevRecord(EV_KEY, KEY_A, 1), makeEvdevRecord(EV_KEY, KEY_B, 1)};
    records[1].input_event_sec = 7;  // its first byte
    const auto* bytes = reinterpret_cast<const char*>(records);
    const std::size_t cut = sizeof(input_event) + part;
    ASSERT_EQ(write(fds[1], bytes, cut), cut);
    EXPECT_EQ(takeNow(pipedLoop), Lines{keyDown('A', 'a')});
    EXPECT_EQ(pipedLoop.timeoutMs(), -1);
    ASSERT_EQ(write(fds[1], bytes + cut, sizeof records - cut), sizeof records - cut);
    EXPECT_EQ(takeNow(pipedLoop), Lines{keyDown('B', 'b')});
    EXPECT_EQ(pipedLoop.cause().record.input_event_sec, 7);
    close(fds[1]);
  }
}

TEST_F(LoopEvents, GivesWhatWasReadAheadAfterTheReaderWasUsedDirectly) {
  pressOften(keyboard, KEY_A, 2);
  loop.wait(0);
  InputEvent event;
  EXPECT_TRUE(loop.next(event));
  keyboard.press(KEY_B);
  EXPECT_EQ(readOne(reader), keyDown('B', 'b'));
  EXPECT_EQ(takeNow(loop), Lines{keyUp('A', 'a')});
}

}  // namespace
}  // namespace quarlo::test
