// Draining an evdev node: batching, coalesced motion, keys, modifiers and Num Lock, end to end.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

constexpr unsigned kControl = 1;
constexpr unsigned kShift = 2;
constexpr unsigned kAlt = 4;

class EvdevTest : public ReaderTest {
 protected:
  // Drains a node once, as readInput() does for each.
  std::string drain(int fd) {
    InputEvent event = untouched();
    return reader.getInputEvent(fd, event) ? text(event) : kNone;
  }

  int reads() {
    const int before = readsBefore_;
    readsBefore_ = machine.count(Call::kRead);
    return readsBefore_ - before;
  }

 private:
  int readsBefore_ = machine.count(Call::kRead);
};

// ---- Motion -------------------------------------------------------------------------------------

TEST_F(EvdevTest, Motion_StepsOfOneReportBecomeOneMove) {
  reader.pointerY = 100;
  mouse.move(5, -3);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 97)}));
}

TEST_F(EvdevTest, Motion_ReportsOfOneDrainBecomeOneMove) {
  for (int i = 0; i < 6; ++i) mouse.move(5, 3);
  EXPECT_EQ(readAll(reader), Lines({moved(30, 18)}));
}

TEST_F(EvdevTest, Motion_DoesNotTouchTheCallersEventBeforeTheEndOfTheDrain) {
  mouse.move(5, 3);
  machine.fail(Call::kRead, 3, EIO);
  InputEvent event = untouched();
  EXPECT_TRUE(reader.getInputEvent(kMouseFd, event));
  EXPECT_EQ(text(event), moved(5, 3));
  EXPECT_FALSE(reader.hasPendingEvent);
}

TEST_F(EvdevTest, Motion_AButtonDoesNotOvertakeIt) {
  mouse.report(EV_REL, REL_X, 5);
  mouse.press(BTN_LEFT);
  mouse.move(1, 0);
  mouse.release(BTN_LEFT);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 0), buttonDown(1, 5, 0, 1), moved(6, 0, 1), buttonUp(1, 6, 0, 1)}));
}

TEST_F(EvdevTest, Motion_AKeyFromTheSameNodeDoesNotOvertakeItEither) {
  mouse.inject(EV_REL, REL_X, 5);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  mouse.inject(EV_KEY, KEY_A, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readOne(reader), moved(5, 0));
  EXPECT_TRUE(reader.hasPendingEvent);
  reads();
  EXPECT_EQ(readOne(reader), keyDown(65, 'a'));
  EXPECT_EQ(reads(), 0);
}

TEST_F(EvdevTest, Motion_AWheelAloneDeliversTheSlotAsItIs) {
  mouse.report(EV_REL, REL_WHEEL, 1);
  mouse.report(EV_SYN, SYN_REPORT, 0);
  InputEvent event = untouched();
  EXPECT_TRUE(reader.readInput(event, 0));
  const InputEvent zeroes = {};
  EXPECT_EQ(text(event), text(zeroes));
  mouse.move(5, 6);
  mouse.report(EV_REL, REL_WHEEL, 1);
  mouse.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 6)}));
  mouse.report(EV_REL, REL_WHEEL, -1);
  mouse.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 6)}));
}

TEST_F(EvdevTest, Motion_AWheelBringsBackAButtonUnlessTheSlotIsMarkedAsNoEvent) {
  const auto wheel = [this] {
    mouse.report(EV_REL, REL_WHEEL, 1);
    mouse.report(EV_SYN, SYN_REPORT, 0);
  };
  mouse.report(EV_REL, REL_X, 5);
  mouse.press(BTN_LEFT);
  mouse.release(BTN_LEFT);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 0), buttonDown(1, 5, 0, 1), buttonUp(1, 5, 0, 1)}));
  wheel();
  EXPECT_EQ(readAll(reader), Lines({buttonDown(1, 5, 0, 1)}));
  ASSERT_FALSE(reader.hasPendingEvent);
  reader.pendingEvent.kind = InputEvent::kNoEvent;
  wheel();
  EXPECT_EQ(readAll(reader), Lines({"kind 255"}));
}

TEST_F(EvdevTest, Motion_OfAnEarlierDrainDoesNotCountForAWheel) {
  mouse.move(5, 0);
  readAll(reader);
  reader.pointerX = 100;  // so that a written event would differ from the slot
  mouse.report(EV_REL, REL_WHEEL, 1);
  mouse.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 0)}));
}

TEST_F(EvdevTest, Motion_TheMovedMarkStaysUntilTheNextDrain) {
  mouse.move(5, 0);
  drain(kMouseFd);
  EXPECT_TRUE(reader.pointerMoved);
  drain(kMouseFd);
  EXPECT_FALSE(reader.pointerMoved);
}

// ---- Records that write nothing -----------------------------------------------------------------

TEST_F(EvdevTest, Nothing_AButtonsAutoRepeatIsReportedAsAnEventButWritesNone) {
  mouse.inject(EV_KEY, BTN_LEFT, 2);
  mouse.inject(EV_SYN, SYN_REPORT, 1);
  EXPECT_EQ(readAll(reader), Lines({kNothingWritten}));
}

TEST_F(EvdevTest, Nothing_ASideButtonIsReportedAsAnEventButWritesNone) {
  mouse.press(BTN_SIDE);
  mouse.release(BTN_SIDE);
  EXPECT_EQ(readAll(reader), Lines({kNothingWritten, kNothingWritten}));
}

TEST_F(EvdevTest, Nothing_AfterMotionItDeliversTheMoveTwice) {
  mouse.report(EV_REL, REL_X, 5);
  mouse.press(BTN_SIDE);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 0), moved(5, 0)}));
  mouse.inject(EV_REL, REL_X, 5);
  mouse.inject(EV_KEY, BTN_LEFT, 2);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(10, 0), moved(10, 0)}));
}

// ---- The drain ----------------------------------------------------------------------------------

TEST_F(EvdevTest, Drain_StopsAfter20RecordsThatAreNoKeys) {
  for (int i = 0; i < 25; ++i) mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(drain(kMouseFd), kNone);
  EXPECT_EQ(reads(), 20);
  EXPECT_EQ(drain(kMouseFd), kNone);
  EXPECT_EQ(reads(), 6);
}

TEST_F(EvdevTest, Drain_StopsAfter20StepsWithTheMotionSoFar) {
  for (int i = 0; i < 24; ++i) mouse.inject(EV_REL, REL_X, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(drain(kMouseFd), moved(20, 0));
  EXPECT_EQ(reads(), 20);
  EXPECT_EQ(drain(kMouseFd), moved(24, 0));
}

TEST_F(EvdevTest, Drain_OtherTypesSpendTheBudgetAndChangeNothing) {
  for (int i = 0; i < 19; ++i) keyboard.inject(i % 2 == 0 ? EV_MSC : EV_ABS, 0, 1000);
  keyboard.inject(EV_KEY, KEY_A, 1);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(drain(kKeyboardFd), keyDown(65, 'a'));
  EXPECT_EQ(reads(), 20);
  EXPECT_EQ(reader.pointerX, 0);
}

TEST_F(EvdevTest, Drain_AKeyDoesNotWaitBehindAFullBudget) {
  for (int i = 0; i < 20; ++i) keyboard.inject(EV_MSC, MSC_SCAN, i);
  keyboard.inject(EV_KEY, KEY_A, 1);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(drain(kKeyboardFd), kNone);
  EXPECT_EQ(drain(kKeyboardFd), keyDown(65, 'a'));
}

TEST_F(EvdevTest, Drain_DeliversOneKeyACall) {
  keyboard.press(KEY_A);
  keyboard.press(KEY_B);
  EXPECT_EQ(drain(kKeyboardFd), keyDown(65, 'a'));
  EXPECT_EQ(reads(), 1);
  EXPECT_EQ(drain(kKeyboardFd), keyDown(66, 'b'));
  EXPECT_EQ(reads(), 2);
}

TEST_F(EvdevTest, Drain_ReadsWholeRecordsUntilThereIsNoMore) {
  mouse.move(5, 0);
  drain(kMouseFd);
  EXPECT_EQ(machine.takeTrace(), Lines({"read(100, 1 record) = 1 record", "read(100, 1 record) = 1 record",
                                        "read(100, 1 record) = -1 EAGAIN"}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(EvdevTest, Drain_AFailureIsLoggedAndEndsItWithTheMotionSoFar) {
  mouse.move(5, 6);
  machine.fail(Call::kRead, 2, EIO);
  EXPECT_EQ(drain(kMouseFd), moved(5, 0));
  EXPECT_EQ(takeLog(), Lines({"ERROR Reading from input device failed, errno = " + std::to_string(EIO)}));
  EXPECT_EQ(drain(kMouseFd), moved(5, 6));
}

TEST_F(EvdevTest, Drain_AReadOf0BytesProcessesTheLastRecordAgain) {
  mouse.move(5, 0);
  machine.truncateRead(2, 0);
  EXPECT_EQ(drain(kMouseFd), moved(10, 0));
}

TEST_F(EvdevTest, Drain_AFirstReadOf0BytesIsAnEmptyRecord) {
  mouse.move(5, 0);
  machine.truncateRead(1, 0);
  EXPECT_EQ(drain(kMouseFd), moved(5, 0));
  EXPECT_EQ(reads(), 4);
}

TEST_F(EvdevTest, Drain_ReadsOf0BytesSpendTheBudget) {
  for (int i = 1; i <= 20; ++i) machine.truncateRead(i, 0);
  EXPECT_EQ(drain(kMouseFd), kNone);
  EXPECT_EQ(reads(), 20);
}

// A touch record is rewritten in the buffer, and processed again it is still a button.
TEST_F(EvdevTest, Drain_ATouchAfterMotionIsAButtonInTheSlot) {
  mouse.inject(EV_REL, REL_X, 5);
  mouse.inject(EV_KEY, BTN_TOUCH, 1);
  mouse.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({moved(5, 0), buttonDown(1, 5, 0, 1)}));
}

TEST_F(EvdevTest, Drain_AnOverrunLosesTheOldRecordsAndGoesOn) {
  for (int i = 0; i < 40; ++i) {
    keyboard.press(KEY_A);
    keyboard.release(KEY_A);
  }
  const Lines events = readAll(reader);
  EXPECT_LT(events.size(), 40U);
  keyboard.press(KEY_B);
  EXPECT_EQ(readAll(reader), Lines({keyDown(66, 'b')}));
  EXPECT_EQ(takeLog(), Lines({}));
}

// ---- Unplugged ----------------------------------------------------------------------------------

TEST_F(EvdevTest, Unplug_LogsOneErrorPerCallAndTheOtherSourcesGoOn) {
  const std::string line = "ERROR Reading from input device failed, errno = " + std::to_string(ENODEV);
  keyboard.unplug();
  mouse.move(5, 0);
  EXPECT_EQ(readOne(reader), moved(5, 0));
  EXPECT_EQ(takeLog(), Lines({line}));
  EXPECT_EQ(readOne(reader), kNone);
  EXPECT_EQ(takeLog(), Lines({line}));
  setVlogLevel(0);
  daemon.send("KEY_OK");
  EXPECT_EQ(readOne(reader), keyDown(13, 13));
  EXPECT_EQ(takeLog(), Lines({line}));
  EXPECT_EQ(reader.keyboardFd, kKeyboardFd);
}

TEST_F(EvdevTest, Unplug_TheWaitNoLongerWaitsWhileItIsWatched) {
  keyboard.unplug();
  const auto start = machine.now();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(readOne(reader, 1000), kNone);
  EXPECT_LT(machine.now() - start, 1ms);
}

// ---- Keyboard -----------------------------------------------------------------------------------

TEST_F(EvdevTest, Keys_PressAutoRepeatAndRelease) {
  keyboard.press(KEY_A);
  keyboard.repeat(KEY_A);
  keyboard.release(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'a'), keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(EvdevTest, Keys_AnUnknownOneIsStillAnEvent) {
  keyboard.press(KEY_CAPSLOCK);
  keyboard.release(KEY_CAPSLOCK);
  EXPECT_EQ(readAll(reader), Lines({keyDown(0), keyUp(0)}));
}

TEST_F(EvdevTest, Keys_ShiftCountsFromItsOwnPressToItsOwnRelease) {
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_A);
  keyboard.release(KEY_LEFTSHIFT);
  keyboard.release(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift), keyDown(65, 'A', kShift), keyUp(16), keyUp(65, 'a')}));
}

TEST_F(EvdevTest, Keys_EachModifierKeySetsAndClearsItsBit) {
  const struct {
    int code;
    int key;
    unsigned modifier;
  } rows[] = {{KEY_LEFTCTRL, 17, kControl}, {KEY_RIGHTCTRL, 17, kControl}, {KEY_LEFTSHIFT, 16, kShift},
              {KEY_RIGHTSHIFT, 16, kShift}, {KEY_LEFTALT, 18, kAlt},       {KEY_RIGHTALT, 18, kAlt}};
  for (const auto& row : rows) {
    keyboard.press(row.code);
    keyboard.release(row.code);
    EXPECT_EQ(readAll(reader), Lines({keyDown(row.key, 0, row.modifier), keyUp(row.key)}));
  }
}

TEST_F(EvdevTest, Keys_ModifiersAddUp) {
  keyboard.press(KEY_LEFTCTRL);
  keyboard.press(KEY_LEFTALT);
  keyboard.press(KEY_RIGHTSHIFT);
  keyboard.press(KEY_DELETE);
  keyboard.release(KEY_LEFTALT);
  EXPECT_EQ(readAll(reader),
            Lines({keyDown(17, 0, kControl), keyDown(18, 0, kControl | kAlt), keyDown(16, 0, kControl | kAlt | kShift),
                   keyDown(46, 127, kControl | kAlt | kShift), keyUp(18, 0, kControl | kShift)}));
}

TEST_F(EvdevTest, Keys_OneShiftReleasedClearsTheBitThoughTheOtherIsHeld) {
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_RIGHTSHIFT);
  keyboard.release(KEY_LEFTSHIFT);
  keyboard.press(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift), keyDown(16, 0, kShift), keyUp(16), keyDown(65, 'a')}));
}

TEST_F(EvdevTest, Keys_AModifiersAutoRepeatHoldsIt) {
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.repeat(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift), keyDown(16, 0, kShift)}));
}

TEST_F(EvdevTest, Keys_OtherValuesThan0ArePresses) {
  keyboard.inject(EV_KEY, KEY_LEFTSHIFT, -1);
  keyboard.inject(EV_KEY, KEY_A, 7);
  keyboard.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readAll(reader), Lines({keyDown(16, 0, kShift), keyDown(65, 'A', kShift)}));
}

TEST_F(EvdevTest, Keys_NumLockTogglesOnPressAndAutoRepeatButNotOnRelease) {
  keyboard.press(KEY_NUMLOCK);
  readAll(reader);
  EXPECT_TRUE(reader.numLock);
  keyboard.repeat(KEY_NUMLOCK);
  readAll(reader);
  EXPECT_FALSE(reader.numLock);
  keyboard.repeat(KEY_NUMLOCK);
  keyboard.release(KEY_NUMLOCK);
  EXPECT_EQ(readAll(reader), Lines({keyDown(144), keyUp(144)}));
  EXPECT_TRUE(reader.numLock);
}

TEST_F(EvdevTest, Keys_TheKeypadTypesWhileNumLockIsOn) {
  keyboard.press(KEY_KP7);
  keyboard.release(KEY_KP7);
  keyboard.press(KEY_NUMLOCK);
  keyboard.release(KEY_NUMLOCK);
  keyboard.press(KEY_KP7);
  EXPECT_EQ(readAll(reader), Lines({keyDown(103), keyUp(103), keyDown(144), keyUp(144), keyDown(103, '7')}));
}

TEST_F(EvdevTest, Keys_OnlyTheNamedFieldsOfTheEventAreWritten) {
  keyboard.press(KEY_A);
  InputEvent event = untouched();
  EXPECT_TRUE(reader.readInput(event, 0));
  const std::array<unsigned char, sizeof event> expected = {0, 0, 0xEE, 0xEE, 0,    0,    0, 0, 65, 0,
                                                            0, 0, 'a',  0xEE, 0xEE, 0xEE, 0, 0, 0,  0};
  EXPECT_EQ(bytesOf(event), expected);
}

TEST_F(EvdevTest, Buttons_OnlyTheNamedFieldsOfTheEventAreWritten) {
  mouse.press(BTN_MIDDLE);
  InputEvent event = untouched();
  EXPECT_TRUE(reader.readInput(event, 0));
  const std::array<unsigned char, sizeof event> expected = {1, 0, 0xEE, 0xEE, 1, 0, 0, 0,    3,    0,
                                                            0, 0, 0,    0,    0, 0, 1, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(bytesOf(event), expected);
}

// ---- translateEvent -----------------------------------------------------------------------------

TEST_F(EvdevTest, TranslateEvent_DispatchesByTypeAndIgnoresOthers) {
  InputEvent event = untouched();
  for (const int type : {EV_SYN, EV_ABS, EV_MSC, EV_SW, EV_LED, 0xFFFF}) {
    input_event record = makeEvdevRecord(type, 0, 1);
    EXPECT_TRUE(reader.translateEvent(&record, event));
    EXPECT_TRUE(isUntouched(event)) << type;
  }
  input_event key = makeEvdevRecord(EV_KEY, KEY_A, 1);
  EXPECT_TRUE(reader.translateEvent(&key, event));
  EXPECT_EQ(text(event), keyDown(65, 'a'));
  input_event step = makeEvdevRecord(EV_REL, REL_X, 4);
  EXPECT_TRUE(reader.translateEvent(&step, event));
  EXPECT_EQ(text(event), moved(4, 0));
  event = untouched();
  input_event repeat = makeEvdevRecord(EV_KEY, BTN_LEFT, 2);
  EXPECT_FALSE(reader.translateEvent(&repeat, event));
  EXPECT_TRUE(isUntouched(event));
}

}  // namespace
}  // namespace quarlo::test
