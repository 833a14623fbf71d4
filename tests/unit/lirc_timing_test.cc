// The remote's timing: which repeats are key-downs, when the key is forgotten, and how the wait is cut short meanwhile.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

constexpr char kSkipped[] = "VERBOSE10 LIRC keypress skipped - too close.";
constexpr char kStarted[] = "VERBOSE10 LIRC key repeat mode started.";
constexpr char kStopped[] = "VERBOSE10 LIRC key repeat mode stopped.";
const std::string kOk = keyDown(13, 13);

class LircTimingTest : public ReaderTest {
 protected:
  LircTimingTest() { setVlogLevel(10); }

  // Goes to a time since the start of the test.
  void at(std::chrono::microseconds time) { machine.advance(start + time - machine.now()); }

  // What a line gives that arrives now.
  std::string line(const std::string& button, unsigned repeat = 0) {
    daemon.send(button, repeat);
    return poll();
  }

  // What a call gives that polls the socket, with the reader's own lines but the echo of what was read.
  std::string poll() {
    InputEvent event = untouched();
    std::string result = reader.getLircEvent(kLircFd, event) ? text(event) : kNone;
    log.clear();
    for (const std::string& message : takeLog()) {
      if (message.rfind("VERBOSE2 LIRC string: ", 0) != 0) log.push_back(message);
    }
    return result;
  }

  Lines accepted(int elapsed, int timeout) {
    return {"VERBOSE10 LIRC KEYDOWN " + std::to_string(elapsed) + "ms.",
            "VERBOSE10 LIRC timeout " + std::to_string(timeout) + "ms."};
  }

  std::chrono::microseconds start = machine.now();
  Lines log;
};

// ---- One press ----------------------------------------------------------------------------------

TEST_F(LircTimingTest, Press_IsAKeyDownAtOnceAndIsKept) {
  reader.lircKeyTime.tv_sec = static_cast<decltype(reader.lircKeyTime.tv_sec)>(machine.now() / 1s) - 2;
  at(5ms);
  EXPECT_EQ(line("KEY_OK"), kOk);
  EXPECT_EQ(log, accepted(2005, 300));
  EXPECT_EQ(reader.lircKey, 13);
  EXPECT_EQ(reader.lircChar, 13);
  EXPECT_EQ(reader.lircTimeout, 300);
  EXPECT_FALSE(reader.lircRepeatMode);
  EXPECT_EQ(std::chrono::seconds(reader.lircKeyTime.tv_sec) + std::chrono::microseconds(reader.lircKeyTime.tv_usec),
            machine.now());
}

TEST_F(LircTimingTest, Press_ReadsTheClockAfterTheReadAndAgainOnAccept) {
  machine.takeTrace();
  line("KEY_OK");
  const std::string now = std::to_string(start / 1s) + ".000000";
  EXPECT_EQ(machine.takeTrace(), Lines({"read(102, 127) = 36", "gettimeofday() = " + now, "gettimeofday() = " + now}));
}

TEST_F(LircTimingTest, Press_WritesOnlyTheNamedFieldsOfTheEvent) {
  daemon.send("KEY_POWER");
  InputEvent event = untouched();
  ASSERT_TRUE(reader.getLircEvent(kLircFd, event));
  const std::array<unsigned char, sizeof event> expected = {0, 0, 0xEE, 0xEE, 0,    0,    0, 0, 0x99, 1,
                                                            0, 0, 153,  0xEE, 0xEE, 0xEE, 0, 0, 0,    0};
  EXPECT_EQ(bytesOf(event), expected);
}

TEST_F(LircTimingTest, Press_IsForgottenAfterBothTimeoutsWithoutAnEvent) {
  line("KEY_OK");
  at(299ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({}));
  at(300ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStarted}));
  EXPECT_TRUE(reader.lircRepeatMode);
  at(399ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({}));
  EXPECT_EQ(reader.lircKey, 13);
  at(400ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStopped}));
  EXPECT_EQ(reader.lircKey, 0);
  EXPECT_EQ(reader.lircChar, 0);
  EXPECT_FALSE(reader.lircRepeatMode);
  at(500ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({}));
}

TEST_F(LircTimingTest, Press_AFirstPollThatIsLateStartsAndStopsTheRepeatMode) {
  line("KEY_OK");
  at(400ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStarted, kStopped}));
  EXPECT_FALSE(reader.lircRepeatMode);
  EXPECT_EQ(reader.lircKey, 0);
}

TEST_F(LircTimingTest, Press_OfTheSameButtonAgainIsNoRepeat) {
  EXPECT_EQ(line("KEY_OK"), kOk);
  at(50ms);
  EXPECT_EQ(line("KEY_OK"), kOk);
  EXPECT_EQ(log, accepted(50, 300));
}

TEST_F(LircTimingTest, Press_OfAnotherButtonIsTakenEvenAsARepeat) {
  EXPECT_EQ(line("UP"), keyDown(38));
  at(20ms);
  EXPECT_EQ(line("DOWN", 1), keyDown(40));
  EXPECT_EQ(log, accepted(20, 300));
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LircTimingTest, Press_ARepeatWithoutAFirstLineIsTaken) { EXPECT_EQ(line("KEY_OK", 7), kOk); }

// ---- A held button ------------------------------------------------------------------------------

TEST_F(LircTimingTest, Held_RepeatsBeforeTheReleaseTimeoutAreSkipped) {
  EXPECT_EQ(line("KEY_OK"), kOk);
  at(110ms);
  EXPECT_EQ(line("KEY_OK", 1), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
  at(220ms);
  EXPECT_EQ(line("KEY_OK", 2), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
}

TEST_F(LircTimingTest, Held_AfterAQuietPollTheFasterRateApplies) {
  line("KEY_OK");
  at(110ms);
  line("KEY_OK", 1);
  at(220ms);
  line("KEY_OK", 2);
  at(310ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStarted}));
  at(330ms);
  EXPECT_EQ(line("KEY_OK", 3), kOk);
  EXPECT_EQ(log, accepted(330, 100));
  EXPECT_EQ(reader.lircTimeout, 100);
  at(440ms);
  EXPECT_EQ(line("KEY_OK", 4), kOk);
  EXPECT_EQ(log, accepted(110, 100));
  at(539ms);
  EXPECT_EQ(line("KEY_OK", 5), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
  at(540ms);
  EXPECT_EQ(line("KEY_OK", 6), kOk);
  EXPECT_EQ(log, accepted(100, 100));
}

TEST_F(LircTimingTest, Held_WithoutAQuietPollTheRateStaysSlow) {
  line("KEY_OK");
  at(300ms);
  EXPECT_EQ(line("KEY_OK", 3), kOk);
  EXPECT_EQ(log, accepted(300, 300));
  at(599ms);
  EXPECT_EQ(line("KEY_OK", 6), kNone);
  at(600ms);
  EXPECT_EQ(line("KEY_OK", 7), kOk);
  EXPECT_EQ(log, accepted(300, 300));
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LircTimingTest, Held_InRepeatModeTheKeyIsForgotten200MsAfterTheLastOne) {
  line("KEY_OK");
  at(310ms);
  poll();
  EXPECT_EQ(line("KEY_OK", 3), kOk);
  at(509ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(reader.lircKey, 13);
  at(510ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStopped}));
  EXPECT_EQ(reader.lircKey, 0);
}

TEST_F(LircTimingTest, Held_ANewPressEndsTheRepeatMode) {
  line("KEY_OK");
  at(310ms);
  poll();
  ASSERT_TRUE(reader.lircRepeatMode);
  EXPECT_EQ(line("KEY_OK"), kOk);
  EXPECT_EQ(log, accepted(310, 300));
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LircTimingTest, Held_AnotherButtonEndsTheRepeatMode) {
  line("KEY_OK");
  at(310ms);
  poll();
  EXPECT_EQ(line("KEY_UP", 1), keyDown(38));
  EXPECT_EQ(log, accepted(310, 300));
  EXPECT_FALSE(reader.lircRepeatMode);
}

TEST_F(LircTimingTest, Held_AnUnknownLineChangesNothing) {
  line("KEY_OK");
  at(310ms);
  poll();
  EXPECT_EQ(line("KEY_FOO"), kNone);
  EXPECT_TRUE(reader.lircRepeatMode);
  EXPECT_EQ(reader.lircKey, 13);
  EXPECT_EQ(reader.lircTimeout, 300);
}

TEST_F(LircTimingTest, Held_SinglesBytesAbove127RepeatAsOneKey) {
  EXPECT_EQ(line("\xE4"), keyDown(0xE4, 0xE4));
  at(50ms);
  EXPECT_EQ(line("\xE4", 1), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
}

// ---- No data ------------------------------------------------------------------------------------

TEST_F(LircTimingTest, NoData_AnErrorAndAnEndOfStreamCountAsNoLine) {
  line("KEY_OK");
  at(300ms);
  machine.fail(Call::kRead, 1, EIO);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStarted}));
  daemon.hangUp();
  at(400ms);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStopped}));
}

TEST_F(LircTimingTest, NoData_AfterTheDaemonIsGoneTheSocketStaysOpenAndSilent) {
  daemon.stop();
  const auto before = machine.now();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(readOne(reader, 1000), kNone);
  EXPECT_LT(machine.now() - before, 1ms);  // the end of the stream is readable
  EXPECT_EQ(takeLog(), Lines({}));
  EXPECT_EQ(reader.lircFd, kLircFd);
  EXPECT_EQ(machine.openDescriptors(), 3);
}

TEST_F(LircTimingTest, NoData_WithoutAHeldKeyNothingHappensHoweverLate) {
  at(3600s);
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({}));
  EXPECT_FALSE(reader.lircRepeatMode);
}

// ---- The wait -----------------------------------------------------------------------------------

class LircWaitTest : public LircTimingTest {
 protected:
  // What select() is given for a timeout.
  std::string wait(int timeoutMs) {
    machine.takeTrace();
    reader.maxFd = -1;
    reader.fileSelect(timeoutMs);
    const Lines trace = machine.takeTrace();
    return trace.back().substr(0, trace.back().find(')'));
  }
};

TEST_F(LircWaitTest, IsAtMostWhatIsLeftOfTheReleaseTimeout) {
  line("KEY_OK");
  at(250ms);
  EXPECT_EQ(wait(-1), "select(103, [100 101 102], 0.050000");
  EXPECT_EQ(machine.now() - start, 300ms);
  EXPECT_EQ(wait(1000), "select(103, [100 101 102], 0.000000");
}

TEST_F(LircWaitTest, AShorterTimeoutIsKept) {
  line("KEY_OK");
  at(250ms);
  EXPECT_EQ(wait(-5), "select(103, [100 101 102], negative");
  EXPECT_EQ(wait(49), "select(103, [100 101 102], 0.049000");
}

TEST_F(LircWaitTest, IsNothingOnceTheReleaseTimeoutHasPassed) {
  line("KEY_OK");
  at(400ms);
  EXPECT_EQ(wait(-1), "select(103, [100 101 102], 0.000000");
  EXPECT_EQ(wait(1000), "select(103, [100 101 102], 0.000000");
}

TEST_F(LircWaitTest, UsesTheReleaseTimeoutInRepeatModeToo) {
  line("KEY_OK");
  at(310ms);
  poll();
  line("KEY_OK", 3);
  ASSERT_EQ(reader.lircTimeout, 100);
  at(360ms);
  EXPECT_EQ(wait(-1), "select(103, [100 101 102], 0.250000");
}

TEST_F(LircWaitTest, ReadsTheClockOnlyWhileAKeyIsHeld) {
  reader.fileSelect(0);
  EXPECT_EQ(machine.count(Call::kGettimeofday), 0);
  line("KEY_OK");
  const int before = machine.count(Call::kGettimeofday);
  reader.fileSelect(0);
  EXPECT_EQ(machine.count(Call::kGettimeofday), before + 1);
}

TEST_F(LircWaitTest, TheSetIsBuiltBeforeTheClockIsRead) {
  line("KEY_OK");
  reader.mouseFd = reader.keyboardFd = reader.lircFd = -1;
  reader.maxFd = -1;
  const int before = machine.count(Call::kGettimeofday);
  EXPECT_FALSE(reader.fileSelect(100));
  EXPECT_EQ(machine.count(Call::kGettimeofday), before);
  reader.mouseFd = kMouseFd;
  reader.keyboardFd = kKeyboardFd;
  reader.lircFd = kLircFd;
}

TEST_F(LircWaitTest, AHeldKeyIsForgottenInTimeHoweverLongTheCallerWaits) {
  daemon.send("KEY_OK");
  EXPECT_EQ(readOne(reader, -1), kOk);
  start = machine.now();
  EXPECT_EQ(readOne(reader, -1), kNone);
  EXPECT_EQ(machine.now() - start, 300ms);
  EXPECT_TRUE(reader.lircRepeatMode);
}

// ---- Other timeouts -----------------------------------------------------------------------------

class LircEnvironmentTest : public LircTimingTest {
 protected:
  void useTimeouts(std::int32_t repeatMs, std::int32_t releaseMs) {
    reader.lircRepeatTimeout = repeatMs;
    reader.lircReleaseTimeout = releaseMs;
  }
};

TEST_F(LircEnvironmentTest, AReleaseTimeoutOf1000HoldsTheSecondKeyDownBackForASecond) {
  machine.setEnvironment("LIRC_RELEASE_TIMEOUT", "1000");
  LinuxInputReader slow;
  useTimeouts(slow.lircRepeatTimeout, slow.lircReleaseTimeout);
  line("KEY_OK");
  for (int i = 1; i < 10; ++i) {
    at(110ms * i);
    EXPECT_EQ(line("KEY_OK", static_cast<unsigned>(i)), kNone);
  }
  at(1000ms);
  EXPECT_EQ(line("KEY_OK", 10), kOk);
}

TEST_F(LircEnvironmentTest, TheLargestTimeoutsWrapWithoutHarm) {
  useTimeouts(INT_MAX, INT_MAX);
  line("KEY_OK");
  EXPECT_EQ(log.back(), "VERBOSE10 LIRC timeout 2147483647ms.");
  at(1ms);
  // The sum of both wraps to -2: the key is forgotten at once.
  EXPECT_EQ(poll(), kNone);
  EXPECT_EQ(log, Lines({kStopped}));
  EXPECT_EQ(reader.lircKey, 0);
}

TEST_F(LircEnvironmentTest, AClockThatGoesBackSkipsRepeatsAndLengthensTheWaitWithinTheTimeout) {
  line("KEY_OK");
  machine.jumpClock(-10s);
  EXPECT_EQ(line("KEY_OK", 1), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
  machine.takeTrace();
  reader.fileSelect(500);
  EXPECT_EQ(machine.takeTrace().back(), "select(103, [100 101 102], 0.500000) = 0");
}

TEST_F(LircEnvironmentTest, ElapsedTimeWrapsIn32Bits) {
  line("KEY_OK");
  machine.jumpClock(3'000'000s);
  line("KEY_UP");
  EXPECT_EQ(log.front(), "VERBOSE10 LIRC KEYDOWN -1294967296ms.");
}

TEST_F(LircEnvironmentTest, TheWaitThatIsLeftWrapsIn32Bits) {
  useTimeouts(100, INT_MAX);
  line("KEY_OK");
  machine.jumpClock(-10s);
  machine.takeTrace();
  reader.fileSelect(-1);  // 2147483647 + 10000 wraps below zero: no wait
  EXPECT_EQ(machine.takeTrace().back(), "select(103, [100 101 102], 0.000000) = 0");
}

TEST_F(LircEnvironmentTest, AClockThatCannotBeReadIsZero) {
  machine.jumpClock(1'000'000s - machine.now());  // so that zero is long ago, and not wrapped
  line("KEY_OK");
  machine.fail(Call::kGettimeofday, 1, EFAULT);
  EXPECT_EQ(line("KEY_OK", 1), kNone);
  EXPECT_EQ(log, Lines({kSkipped}));
  reader.lircKeyTime = {};
  machine.fail(Call::kGettimeofday, 1, EFAULT);
  line("KEY_OK");
  EXPECT_EQ(log, accepted(0, 300));
}

// ---- End to end ---------------------------------------------------------------------------------

// A button held for 1.5 s, repeated each 110 ms, in the loop that waits 10 ms.
TEST_F(LircTimingTest, HeldInTheLoop_GivesTheFirstAfterTheDelayAndThenTheFasterRate) {
  for (unsigned i = 0; i <= 13; ++i) {
    machine.after(110ms * i, [this, i] { daemon.send("KEY_VOLUMEUP", i); });
  }
  std::vector<long> times;
  while (machine.now() - start < 3s) {
    for (std::string event = readOne(reader, 10); event != kNone; event = readOne(reader, 0)) {
      EXPECT_EQ(event, keyDown(447));
      times.push_back(static_cast<long>((machine.now() - start) / 10ms));
    }
  }
  // Accepted at 0, then from 330 ms on with every line, each within one round of the loop.
  EXPECT_EQ(times, std::vector<long>({0, 33, 44, 55, 66, 77, 88, 99, 110, 121, 132, 143}));
  EXPECT_EQ(reader.lircKey, 0);
}

// As in a 32-bit program with 32-bit time after January 2038.
TEST_F(LircTimingTest, HeldInTheLoop_WithoutAClockGivesOneKeyDownAndIsNeverForgotten) {
  constexpr int kMoreCallsThanOfTheLoop = 5000;
  for (int call = 1; call <= kMoreCallsThanOfTheLoop; ++call) machine.fail(Call::kGettimeofday, call, EOVERFLOW);
  for (unsigned i = 0; i <= 13; ++i) {
    machine.after(110ms * i, [this, i] { daemon.send("KEY_VOLUMEUP", i); });
  }
  Lines events;
  while (machine.now() - start < 3s) {
    for (std::string event = readOne(reader, 10); event != kNone; event = readOne(reader, 0)) events.push_back(event);
  }
  EXPECT_EQ(events, Lines({keyDown(447)}));
  EXPECT_EQ(reader.lircKey, 447);
  EXPECT_LT(machine.count(Call::kGettimeofday), kMoreCallsThanOfTheLoop);
}

}  // namespace
}  // namespace quarlo::test
