// Waiting and polling: what select() is given, and in which order the sources are read.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>

#include "input/linux_input_reader_limits.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

using components::input::kLongestTimeoutMs;

using PollingTest = ReaderTest;

constexpr char kReadNothingFromKeyboard[] = "read(101, 1 record) = -1 EAGAIN";
constexpr char kReadNothingFromMouse[] = "read(100, 1 record) = -1 EAGAIN";
constexpr char kReadNothingFromLirc[] = "read(102, 127) = -1 EAGAIN";

// The trace without reads and the clock.
Lines waits(sim::Machine& machine) {
  Lines lines;
  for (const std::string& call : machine.takeTrace()) {
    if (call.rfind("select(", 0) == 0) lines.push_back(call);
  }
  return lines;
}

// ---- initFdSets ---------------------------------------------------------------------------------

TEST_F(PollingTest, InitFdSets_TakesTheOpenDescriptors) {
  EXPECT_TRUE(reader.initFdSets());
  EXPECT_EQ(reader.maxFd, 102);
  for (int fd = 0; fd < FD_SETSIZE; ++fd) {
    EXPECT_EQ(FD_ISSET(fd, &reader.readSet) != 0, fd == kMouseFd || fd == kKeyboardFd || fd == kLircFd) << fd;
  }
}

TEST_F(PollingTest, InitFdSets_WithoutASourceIsFalseAndClearsTheSet) {
  LinuxInputReader closed;
  FD_SET(5, &closed.readSet);
  closed.maxFd = 5;
  EXPECT_FALSE(closed.initFdSets());
  EXPECT_EQ(closed.maxFd, -1);
  EXPECT_FALSE(FD_ISSET(5, &closed.readSet));
}

TEST_F(PollingTest, InitFdSets_TheHighestDescriptorCountsWhicheverItIs) {
  LinuxInputReader some;
  some.mouseFd = 700;
  some.keyboardFd = 3;
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.maxFd, 700);
  some.mouseFd = -1;
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.maxFd, 3);
  some.keyboardFd = 0;
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.maxFd, 0);
  EXPECT_TRUE(FD_ISSET(0, &some.readSet));
  some.keyboardFd = -1;  // so that the end does not close descriptor 0
}

TEST_F(PollingTest, InitFdSets_ADescriptorBeyondTheSetIsNotInItButIsWaitedFor) {
  LinuxInputReader some;
  some.mouseFd = 1024;
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.maxFd, 1023);
  some.mouseFd = 1023;
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.maxFd, 1023);
  EXPECT_TRUE(FD_ISSET(1023, &some.readSet));
}

TEST_F(PollingTest, InitFdSets_ADescriptorBeyondTheSetLeavesWhatLiesThereAlone) {
  constexpr std::size_t kBytes = offsetof(LinuxInputReader, modifiers) - offsetof(LinuxInputReader, readSet);
  LinuxInputReader some;
  some.mouseFd = static_cast<int>(8 * kBytes);
  EXPECT_TRUE(some.initFdSets());
  EXPECT_EQ(some.modifiers, 0U);
}

// ---- fileSelect ---------------------------------------------------------------------------------

TEST_F(PollingTest, FileSelect_WaitsOnAllSourcesForTheTimeout) {
  EXPECT_FALSE(reader.fileSelect(20));
  EXPECT_EQ(machine.takeTrace(), Lines({"select(103, [100 101 102], 0.020000) = 0"}));
}

TEST_F(PollingTest, FileSelect_IsTrueWhenSomethingIsReadable) {
  keyboard.press(KEY_A);
  EXPECT_TRUE(reader.fileSelect(20));
  EXPECT_EQ(machine.takeTrace(), Lines({"select(103, [100 101 102], 0.020000) = 1 [101]"}));
}

TEST_F(PollingTest, FileSelect_SplitsTheTimeoutIntoSecondsAndMicroseconds) {
  reader.fileSelect(1500);
  reader.fileSelect(0);
  reader.fileSelect(1);
  reader.fileSelect(2'147'483);
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "select(103, [100 101 102], 1.500000) = 0",
                                     "select(103, [], 0.000000) = 0",
                                     "select(103, [], 0.001000) = 0",
                                     "select(103, [], 2147.483000) = 0",
                                 }));
}

TEST_F(PollingTest, FileSelect_WithoutALimitWaitsForInput) {
  machine.after(60s, [&] { mouse.move(1, 0); });
  EXPECT_TRUE(reader.fileSelect(-1));
  EXPECT_EQ(machine.takeTrace(), Lines({"select(103, [100 101 102], forever) = 1 [100]"}));
}

TEST_F(PollingTest, FileSelect_WithoutASourceReturnsWithoutWaiting) {
  LinuxInputReader closed;
  machine.takeTrace();
  EXPECT_FALSE(closed.fileSelect(500));
  EXPECT_EQ(machine.takeTrace(), Lines({}));
}

TEST_F(PollingTest, FileSelect_AFailureRebuildsTheSetForTheNextWait) {
  reader.fileSelect(0);
  machine.fail(Call::kSelect, 1, EINTR);
  EXPECT_FALSE(reader.fileSelect(10));
  EXPECT_EQ(reader.maxFd, -1);
  reader.fileSelect(10);
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "select(103, [100 101 102], 0.000000) = 0",
                                     "select(103, [], 0.010000) = -1 EINTR",
                                     "select(103, [100 101 102], 0.010000) = 0",
                                 }));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(PollingTest, FileSelect_WaitsForTheLongestTimeout) {
  reader.fileSelect(kLongestTimeoutMs);
  EXPECT_EQ(machine.takeTrace(), Lines({"select(103, [100 101 102], 2147.483000) = 0"}));
}

// The 32-bit product 1000 x timeout wraps.
TEST_F(PollingTest, FileSelect_TimeoutsBeyondTheLongestWrap) {
  reader.fileSelect(kLongestTimeoutMs + 1);  // 2147484000 us is negative: -2147483296
  EXPECT_EQ(reader.maxFd, -1);
  reader.fileSelect(4'294'968);  // 4294968000 us is 704 us after the wrap
  reader.fileSelect(INT_MAX);    // 1000 x (2^31 - 1) is -1000 us
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "select(103, [100 101 102], negative) = -1 EINVAL",
                                     "select(103, [100 101 102], 0.000704) = 0",
                                     "select(103, [], negative) = -1 EINVAL",
                                 }));
}

// ---- readInput: the wait ------------------------------------------------------------------------

TEST_F(PollingTest, ReadInput_WithoutASourceReturnsAtOnce) {
  LinuxInputReader closed;
  const auto start = machine.now();
  EXPECT_EQ(readOne(closed, 500), kNone);
  EXPECT_EQ(readOne(closed, -1), kNone);
  EXPECT_EQ(machine.now(), start);
  EXPECT_EQ(machine.count(Call::kSelect), 0);
}

TEST_F(PollingTest, ReadInput_ReadsKeyboardMouseAndRemoteInThisOrderAfterTheWait) {
  EXPECT_EQ(readOne(reader, 20), kNone);
  EXPECT_EQ(machine.count(Call::kGettimeofday), 1);
  const Lines trace = machine.takeTrace();
  ASSERT_EQ(trace.size(), 5U);
  EXPECT_EQ(Lines(trace.begin(), trace.begin() + 4),
            Lines({"select(103, [100 101 102], 0.020000) = 0", kReadNothingFromKeyboard, kReadNothingFromMouse,
                   kReadNothingFromLirc}));
}

TEST_F(PollingTest, ReadInput_DoesNotReadWhatIsNotOpen) {
  LinuxInputReader mouseOnly;
  mouseOnly.init("/dev/input/event0", "/none", "/none", 1280, 720);
  machine.takeTrace();
  EXPECT_EQ(readOne(mouseOnly), kNone);
  EXPECT_EQ(machine.takeTrace(), Lines({"select(104, [103], 0.000000) = 0", "read(103, 1 record) = -1 EAGAIN"}));
}

TEST_F(PollingTest, ReadInput_ReadsASourceWithDescriptorZero) {
  const WithoutStandardInput without(machine);
  const auto readWith = [](const char* mousePath, const char* keyboardPath, const char* lircPath, auto cause) {
    LinuxInputReader one;
    one.init(mousePath, keyboardPath, lircPath, kMaxX, kMaxY);
    cause();
    return readOne(one);
  };
  EXPECT_EQ(readWith("/none", "/dev/input/event1", "/none", [this] { keyboard.press(KEY_A); }), keyDown(65, 'a'));
  EXPECT_EQ(readWith("/dev/input/event0", "/none", "/none", [this] { mouse.move(5, 0); }), moved(5, 0));
  EXPECT_EQ(readWith("/none", "/none", "/run/lircd", [this] { daemon.send("KEY_OK"); }), keyDown(13, 13));
}

TEST_F(PollingTest, ReadInput_ReadsWhatSelectDidNotName) {
  machine.fail(Call::kSelect, 1, EINTR);
  keyboard.press(KEY_A);
  EXPECT_EQ(readOne(reader, 100), keyDown(65, 'a'));
}

TEST_F(PollingTest, ReadInput_KeyboardGoesFirstMouseOnALaterCallThenTheRemote) {
  mouse.move(5, 0);
  daemon.send("KEY_OK");
  keyboard.press(KEY_A);
  EXPECT_EQ(readOne(reader), keyDown(65, 'a'));
  EXPECT_EQ(readOne(reader), moved(5, 0));
  EXPECT_EQ(readOne(reader), keyDown(13, 13));
  EXPECT_EQ(readOne(reader), kNone);
}

TEST_F(PollingTest, ReadInput_AHeldEventNeedsNoWaitAndNoRead) {
  mouse.report(EV_REL, REL_X, 5);
  mouse.press(BTN_LEFT);
  EXPECT_EQ(readOne(reader), moved(5, 0));
  machine.takeTrace();
  machine.advance(1s);
  keyboard.press(KEY_A);
  EXPECT_EQ(readOne(reader, -1), buttonDown(1, 5, 0, 1));
  EXPECT_EQ(machine.takeTrace(), Lines({}));
  EXPECT_FALSE(reader.hasPendingEvent);
}

TEST_F(PollingTest, ReadInput_AHeldEventIsCopiedWithItsPadding) {
  memset(static_cast<void*>(&reader.pendingEvent), 0x5A, sizeof reader.pendingEvent);
  reader.hasPendingEvent = true;
  InputEvent event = untouched();
  EXPECT_TRUE(reader.readInput(event, 0));
  EXPECT_EQ(bytesOf(event), bytesOf(reader.pendingEvent));
}

// ---- readInput: the set that shrinks ------------------------------------------------------------

TEST_F(PollingTest, ReadInput_AfterATimeoutLaterWaitsArePlainSleepsAndLoseNothing) {
  EXPECT_EQ(readOne(reader, 10), kNone);
  const auto start = machine.now();
  machine.after(10ms, [&] { keyboard.press(KEY_A); });
  EXPECT_EQ(readOne(reader, 500), keyDown(65, 'a'));
  EXPECT_EQ(machine.now() - start, 500ms);
  EXPECT_EQ(waits(machine), Lines({"select(103, [100 101 102], 0.010000) = 0", "select(103, [], 0.500000) = 0"}));
}

TEST_F(PollingTest, ReadInput_AfterInputLaterWaitsWatchOnlyItsSource) {
  keyboard.press(KEY_A);
  readOne(reader, 100);
  readAll(reader);  // the press's SYN
  machine.after(10ms, [&] { mouse.move(5, 0); });
  machine.after(20ms, [&] { keyboard.release(KEY_A); });
  EXPECT_EQ(readOne(reader, 100), keyUp(65, 'a'));
  EXPECT_EQ(waits(machine),
            Lines({"select(103, [100 101 102], 0.100000) = 1 [101]", "select(103, [101], 0.000000) = 1 [101]",
                   "select(103, [101], 0.100000) = 1 [101]"}));
  EXPECT_EQ(readOne(reader), moved(5, 0));
}

TEST_F(PollingTest, ReadInput_WithoutALimitAndAfterATimeoutSleepsUntilASignal) {
  EXPECT_EQ(readOne(reader, 10), kNone);
  machine.after(1s, [&] { mouse.press(BTN_LEFT); });
  machine.signalAfter(5s);
  const auto start = machine.now();
  EXPECT_EQ(readOne(reader, -1), buttonDown(1, 0, 0, 1));
  EXPECT_EQ(machine.now() - start, 5s);
  mouse.release(BTN_LEFT);
  EXPECT_EQ(readOne(reader, -1), buttonUp(1, 0, 0, 1));
  EXPECT_EQ(waits(machine), Lines({"select(103, [100 101 102], 0.010000) = 0", "select(103, [], forever) = -1 EINTR",
                                   "select(103, [100 101 102], forever) = 1 [100]"}));
}

TEST_F(PollingTest, ReadInput_ANegativeTimeoutFailsTheWaitAndPollsAllTheSame) {
  mouse.move(5, 0);
  EXPECT_EQ(readOne(reader, -2), moved(5, 0));
  EXPECT_EQ(reader.maxFd, -1);
  EXPECT_EQ(waits(machine), Lines({"select(103, [100 101 102], negative) = -1 EINVAL"}));
  EXPECT_EQ(readOne(reader, INT_MIN), kNone);
}

TEST_F(PollingTest, ReadInput_DescriptorsOpenedAfterTheRebuildWaitForTheNextOne) {
  LinuxInputReader late;
  late.init("/dev/input/event0", "/none", "/none", 1280, 720);
  readOne(late);
  late.keyboardFd = late.openDevice("/dev/input/event1", false);
  machine.takeTrace();
  readOne(late, 10);
  machine.fail(Call::kSelect, 1, EINTR);
  readOne(late, 10);
  readOne(late, 10);
  EXPECT_EQ(waits(machine), Lines({"select(104, [], 0.010000) = 0", "select(104, [], 0.010000) = -1 EINTR",
                                   "select(105, [103 104], 0.010000) = 0"}));
}

// ---- Descriptors beyond the set -----------------------------------------------------------------

TEST_F(PollingTest, ReadInput_PollsADescriptorBeyondTheSetAfterTheWholeTimeout) {
  machine.setFirstDescriptor(1024);
  LinuxInputReader high;
  ASSERT_TRUE(high.init("/dev/input/event0", "/dev/input/event1", "/none", 1280, 720));
  EXPECT_EQ(high.mouseFd, 1024);
  machine.takeTrace();
  keyboard.press(KEY_A);
  const auto start = machine.now();
  EXPECT_EQ(readOne(high, 50), keyDown(65, 'a'));
  EXPECT_EQ(machine.now() - start, 50ms);
  EXPECT_EQ(waits(machine), Lines({"select(1024, [], 0.050000) = 0"}));
}

// ---- The loop that we teach ---------------------------------------------------------------------

class LoopTest : public ReaderTest {
 protected:
  // One round of the application's loop: wait once, then take what is there.
  void runRound() {
    int timeoutMs = 10;
    for (std::string event = readOne(reader, timeoutMs); event != kNone; event = readOne(reader, 0)) {
      events.push_back(event);
    }
  }

  void runFor(std::chrono::microseconds time) {
    for (const auto end = machine.now() + time; machine.now() < end;) runRound();
  }

  Lines events;
};

TEST_F(LoopTest, LosesNoKeyOfAFastTypist) {
  Lines expected;
  for (int i = 0; i < 500; ++i) {
    const int code = KEY_Q + i % 10;
    machine.after(std::chrono::milliseconds(7 * i), [this, code] { keyboard.press(code); });
    machine.after(std::chrono::milliseconds(7 * i + 3), [this, code] { keyboard.release(code); });
    LinuxInputReader::Key key;
    char ch;
    LinuxInputReader::translateKey(code, 0, false, key, ch);
    expected.push_back(keyDown(key, ch));
    expected.push_back(keyUp(key, ch));
  }
  runFor(4s);
  EXPECT_EQ(events, expected);
}

TEST_F(LoopTest, LosesNoStepOfA1000HertzMouse) {
  reader.maxX = 30000;
  for (int i = 0; i < 5000; ++i) {
    machine.after(std::chrono::milliseconds(i), [this] { mouse.move(5, 0); });
  }
  runFor(6s);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back(), moved(25000, 0));
}

TEST_F(LoopTest, LosesNoClickAmongMotion) {
  Lines clicks;
  for (int i = 0; i < 50; ++i) {
    machine.after(20ms * i, [this] { mouse.move(1, 0); });
    machine.after(20ms * i, [this] { mouse.press(BTN_RIGHT); });
    machine.after(20ms * i + 8ms, [this] { mouse.release(BTN_RIGHT); });
  }
  runFor(2s);
  int downs = 0;
  int ups = 0;
  for (const std::string& event : events) {
    downs += static_cast<int>(event.rfind("mouse down button 2", 0) == 0);
    ups += static_cast<int>(event.rfind("mouse up button 2", 0) == 0);
  }
  EXPECT_EQ(downs, 50);
  EXPECT_EQ(ups, 50);
  EXPECT_EQ(reader.pointerX, 50);
}

}  // namespace
}  // namespace quarlo::test
