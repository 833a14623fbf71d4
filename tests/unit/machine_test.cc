// The simulated machine itself: what it says of the kernel is what the tests of the reader rest on.
#include "sim/machine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

std::string recordText(const input_event& record) {
  return std::to_string(record.type) + " " + std::to_string(record.code) + " " + std::to_string(record.value);
}

// Everything that a descriptor has to read.
Lines readRecords(int fd) {
  Lines lines;
  input_event record;
  while (read(fd, &record, sizeof record) == static_cast<ssize_t>(sizeof record)) lines.push_back(recordText(record));
  return lines;
}

int openNode(const char* path) { return open(path, O_RDONLY | O_NONBLOCK); }

int waitFor(int fd, timeval* timeout) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  return select(fd + 1, &set, nullptr, nullptr, timeout);
}

microseconds clockTime() {
  timeval now;
  gettimeofday(&now, nullptr);
  return std::chrono::seconds(now.tv_sec) + microseconds(now.tv_usec);
}

int connectTo(int fd, const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

TEST(Device, OfATypicalKindHasWhatSuchDevicesHave) {
  using Codes = std::map<int, std::set<int>>;
  Codes keyboard = Device::keyboard().codes;
  EXPECT_EQ(keyboard[EV_KEY].size(), 127U);
  EXPECT_EQ(*keyboard[EV_KEY].begin(), KEY_ESC);
  EXPECT_EQ(*keyboard[EV_KEY].rbegin(), KEY_COMPOSE);
  keyboard.erase(EV_KEY);
  EXPECT_EQ(keyboard, (Codes{{EV_MSC, {MSC_SCAN}}, {EV_LED, {LED_NUML, LED_CAPSL, LED_SCROLLL}}, {EV_REP, {}}}));
  EXPECT_EQ(Device::mouse().codes, (Codes{{EV_KEY, {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE, BTN_EXTRA}},
                                          {EV_REL, {REL_X, REL_Y, REL_WHEEL}},
                                          {EV_MSC, {MSC_SCAN}}}));
  EXPECT_EQ(Device::keyboard().name, "Simulated Keyboard");
  EXPECT_EQ(Device::mouse().name, "Simulated Mouse");
  EXPECT_EQ(Device::touchscreen().name, "Simulated Touchscreen");
  EXPECT_EQ(Device::touchscreen().codes, (Codes{{EV_KEY, {BTN_TOUCH}}, {EV_ABS, {ABS_X, ABS_Y}}}));
}

TEST(Machine, StartsWithNothingOnIt) {
  Machine machine;
  EXPECT_EQ(openNode("/dev/input/event0"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(getenv("LIRC_REPEAT_TIMEOUT"), nullptr);
  EXPECT_EQ(getenv("LIRC_RELEASE_TIMEOUT"), nullptr);
  EXPECT_FALSE(machine.hasScheduled());
  EXPECT_EQ(machine.untilNext(), std::nullopt);
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(Machine, LeavesOtherPathsAndVariablesToLibc) {
  Machine machine;
  const int fd = open("/dev/null", O_RDONLY);
  EXPECT_GE(fd, 0);
  EXPECT_NE(getenv("PATH"), nullptr);
  char byte;
  EXPECT_EQ(read(fd, &byte, 1), 0);
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(machine.takeTrace(), Lines({}));
}

TEST(Machine, IsGoneWhenItIsDestroyed) {
  { Machine machine; }
  timeval now;
  gettimeofday(&now, nullptr);
  EXPECT_GT(now.tv_sec, 1'500'000'000);
  EXPECT_EQ(close(-1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(Machine, EachStartsAtLeastTenSecondsAfterTheLastOne) {
  microseconds end;
  {
    Machine machine;
    EXPECT_GE(machine.now(), 1'000'000s);
    machine.jumpClock(1000s);
    machine.advance(5s);
    end = machine.now();
  }
  Machine next;
  EXPECT_GE(next.now(), end + 10s);
}

TEST(Machine, EachStartsOnAWholeSecondAsEarlyAsThat) {
  microseconds end;
  {
    Machine machine;
    machine.advance(1500ms);
    machine.jumpClock(-1h);
    end = machine.now() + 1h;
  }
  Machine next;
  EXPECT_EQ(next.now() % 1s, 0s);
  EXPECT_GE(next.now(), end + 10s);
  EXPECT_LT(next.now(), end + 11s);
}

TEST(Machine, ClockStandsStillUnlessTimePasses) {
  Machine machine;
  const microseconds start = clockTime();
  EXPECT_EQ(clockTime(), start);
  machine.advance(1500us);
  EXPECT_EQ(clockTime(), start + 1500us);
  machine.jumpClock(-10s);
  EXPECT_EQ(clockTime(), start + 1500us - 10s);
}

TEST(Machine, RunsWhatIsScheduledInOrderAtItsTime) {
  Machine machine;
  const microseconds start = machine.now();
  std::vector<std::pair<int, microseconds>> happened;
  const auto note = [&](int what) { return [&, what] { happened.emplace_back(what, machine.now() - start); }; };
  machine.after(20ms, note(2));
  machine.after(10ms, note(1));
  machine.after(20ms, note(3));
  machine.after(50ms, note(4));
  machine.advance(30ms);
  const std::vector<std::pair<int, microseconds>> expected = {{1, 10ms}, {2, 20ms}, {3, 20ms}};
  EXPECT_EQ(happened, expected);
  EXPECT_TRUE(machine.hasScheduled());
  EXPECT_EQ(machine.untilNext(), 20ms);
}

TEST(Select, ReturnsAtTheTimeOfTheInputWithTheTimeThatIsLeft) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.after(30ms, [&] { node.press(KEY_A); });
  const microseconds start = machine.now();
  timeval timeout = {0, 100'000};
  EXPECT_EQ(waitFor(fd, &timeout), 1);
  EXPECT_EQ(machine.now() - start, 30ms);
  EXPECT_EQ(timeout.tv_usec, 70'000);
}

TEST(Select, TimesOutWithAnEmptySet) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  const microseconds start = machine.now();
  timeval timeout = {1, 500'000};
  EXPECT_EQ(select(fd + 1, &set, nullptr, nullptr, &timeout), 0);
  EXPECT_FALSE(FD_ISSET(fd, &set));
  EXPECT_EQ(machine.now() - start, 1500ms);
}

TEST(Select, EmptiesTheOtherSetsToo) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  for (const bool hasInput : {false, true}) {
    if (hasInput) node.press(KEY_A);
    fd_set toRead;
    fd_set toWrite;
    fd_set exceptions;
    for (fd_set* set : {&toRead, &toWrite, &exceptions}) {
      FD_ZERO(set);
      FD_SET(fd, set);
    }
    timeval timeout = {0, 0};
    EXPECT_EQ(select(fd + 1, &toRead, &toWrite, &exceptions, &timeout), hasInput ? 1 : 0);
    EXPECT_FALSE(FD_ISSET(fd, &toWrite));
    EXPECT_FALSE(FD_ISSET(fd, &exceptions));
  }
}

TEST(Select, IsNotWokenByADescriptorOutsideTheSet) {
  Machine machine;
  Node& other = machine.addNode("/dev/input/event1", Device::keyboard());
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  const int otherFd = openNode("/dev/input/event1");
  machine.after(10ms, [&] { other.press(KEY_A); });
  const microseconds start = machine.now();
  timeval timeout = {0, 100'000};
  EXPECT_EQ(waitFor(fd, &timeout), 0);
  EXPECT_EQ(machine.now() - start, 100ms);
  EXPECT_EQ(readRecords(otherFd), Lines({"1 30 1", "0 0 0"}));
}

TEST(Select, SignalInterruptsTheWaitAndLeavesTheSet) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.signalAfter(20ms);
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  const microseconds start = machine.now();
  EXPECT_EQ(select(fd + 1, &set, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_TRUE(FD_ISSET(fd, &set));
  EXPECT_EQ(machine.now() - start, 20ms);
}

TEST(Select, ThatDoesNotWaitTakes10Microseconds) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  microseconds start = machine.now();
  timeval none = {0, 0};
  EXPECT_EQ(waitFor(fd, &none), 0);
  EXPECT_EQ(machine.now() - start, 10us);
  node.press(KEY_A);
  EXPECT_EQ(waitFor(fd, nullptr), 1);
  EXPECT_EQ(machine.now() - start, 20us);
}

TEST(Select, RefusesANegativeTimeoutAndCount) {
  Machine machine;
  timeval negative = {0, -1};
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &negative), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(select(-1, nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Select, SeesDescriptorsOfLibcToo) {
  Machine machine;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  timeval timeout = {0, 1000};
  EXPECT_EQ(waitFor(ends[0], &timeout), 0);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_EQ(waitFor(ends[0], &timeout), 1);
  close(ends[0]);
  close(ends[1]);
  timeout = {0, 1000};
  EXPECT_EQ(waitFor(ends[0], &timeout), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(Select, TellsThePacerHowLongItWaits) {
  Machine machine;
  std::vector<microseconds> waits;
  machine.onWait([&](microseconds time) { waits.push_back(time); });
  machine.after(30ms, [] {});
  timeval timeout = {0, 100'000};
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &timeout), 0);
  EXPECT_EQ(waits, std::vector<microseconds>({30ms, 70ms}));
}

TEST(SelectDeathTest, NamesADeadlock) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  EXPECT_DEATH(waitFor(fd, nullptr), "sim: deadlock: select\\(\\) on \\[100\\] would wait forever");
}

TEST(SelectDeathTest, NamesADeadlockThoughAnotherNodesKeyRepeats) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard()).press(KEY_A);
  machine.addNode("/dev/input/event1", Device::keyboard());
  const int fd = openNode("/dev/input/event1");
  EXPECT_DEATH(waitFor(fd, nullptr), "sim: deadlock");
}

TEST(Select, IsWokenByAutoRepeatWhenNothingElseIsToCome) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard()).press(KEY_A);
  Node& node = machine.addNode("/dev/input/event1", Device::keyboard());
  const int fd = openNode("/dev/input/event1");
  machine.advance(100ms);
  node.press(KEY_B);
  readRecords(fd);
  const microseconds pressed = machine.now();
  EXPECT_FALSE(machine.hasScheduled());
  EXPECT_EQ(waitFor(fd, nullptr), 1);
  EXPECT_EQ(machine.now() - pressed, 250ms);
}

TEST(MachineDeathTest, RefusesASecondOne) {
  Machine machine;
  EXPECT_DEATH(Machine(), "sim: a second Machine was made while one exists\n");
}

TEST(MachineDeathTest, RefusesASecondNodeAtAPath) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse());
  EXPECT_DEATH(machine.addNode("/dev/input/event0", Device::mouse()),
               "sim: there is a node at /dev/input/event0 already\n");
}

TEST(MachineDeathTest, RefusesASecondDaemonAtAPath) {
  Machine machine;
  machine.addLircDaemon("/dev/lircd");
  EXPECT_DEATH(machine.addLircDaemon("/dev/lircd"), "sim: there is a daemon at /dev/lircd already\n");
}

TEST(MachineDeathTest, RefusesAVariableThatIsNotItsOwn) {
  Machine machine;
  EXPECT_DEATH(machine.setEnvironment("PATH", ""), "sim: PATH is not a variable of the machine's\n");
}

TEST(Node, RecordsCarryTheTimeOfTheirReport) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.advance(1500ms);
  node.press(KEY_A);
  const microseconds pressed = machine.now();
  machine.advance(1s);
  input_event record;
  ASSERT_GT(read(fd, &record, sizeof record), 0);
  EXPECT_EQ(std::chrono::seconds(record.input_event_sec) + microseconds(record.input_event_usec), pressed);
}

TEST(Node, RepeatsAHeldKeyAfter250MillisecondsAndThenEach33) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  readRecords(fd);
  const microseconds pressed = machine.now();
  std::vector<microseconds> times;
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(waitFor(fd, nullptr), 1);
    times.push_back(machine.now() - pressed);
    EXPECT_EQ(readRecords(fd), Lines({"1 30 2", "0 0 1"}));
  }
  EXPECT_EQ(times, std::vector<microseconds>({250ms, 283ms, 316ms, 349ms}));
}

TEST(Node, ReportsWhatIsUsual) {
  Machine machine;
  Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  Node& mouse = machine.addNode("/dev/input/event1", Device::mouse());
  const int keys = openNode("/dev/input/event0");
  const int motion = openNode("/dev/input/event1");
  keyboard.press(KEY_A);
  keyboard.repeat(KEY_A);
  keyboard.release(KEY_A);
  mouse.move(3, -4);
  EXPECT_EQ(readRecords(keys), Lines({"1 30 1", "0 0 0", "1 30 2", "0 0 1", "1 30 0", "0 0 0"}));
  EXPECT_EQ(readRecords(motion), Lines({"2 0 3", "2 1 -4", "0 0 0"}));
}

TEST(Node, InjectsExactlyTheRecordThatIsAskedFor) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  const int fd = openNode("/dev/input/event0");
  node.inject(EV_ABS, ABS_X, 0);
  for (int i = 0; i < 2; ++i) node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd), Lines({"3 0 0", "0 0 0", "0 0 0"}));
}

// A press and a release are four records. The ring holds one less than its size, since a full one counts as overrun.
TEST(Node, KeyboardBufferOf64KeepsOnlyTheNewestOnOverflow) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  for (int i = 0; i < 63; ++i) node.inject(EV_KEY, KEY_A, i % 2);
  node.inject(EV_SYN, SYN_REPORT, 0);  // the 64th
  EXPECT_EQ(readRecords(fd), Lines({"0 3 0", "0 0 0"}));
}

TEST(Node, KeyboardBufferHolds63Records) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  for (int i = 0; i < 62; ++i) node.inject(EV_KEY, KEY_A, i % 2);
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd).size(), 63U);
}

TEST(Node, MouseBufferHolds127Records) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  const int fd = openNode("/dev/input/event0");
  for (int i = 0; i < 126; ++i) node.inject(EV_REL, REL_X, 1);
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd).size(), 127U);
  for (int i = 0; i < 127; ++i) node.inject(EV_REL, REL_X, 1);
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd), Lines({"0 3 0", "0 0 0"}));
}

TEST(Node, TellsWhichOfItsRecordsAreRead) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  std::vector<std::uint64_t> read;
  node.onRead([&](std::uint64_t number) { read.push_back(number); });
  node.press(KEY_A);
  EXPECT_EQ(readRecords(fd).size(), 2U);
  EXPECT_EQ(read, (std::vector<std::uint64_t>{1, 2}));

  // Records 3 to 66 fill the buffer: the last of them is kept, behind a mark.
  for (int i = 0; i < 32; ++i) i % 2 == 0 ? node.release(KEY_A) : node.press(KEY_A);
  node.press(KEY_B);
  read.clear();
  EXPECT_EQ(readRecords(fd).size(), 4U);
  EXPECT_EQ(read, (std::vector<std::uint64_t>{0, 66, 67, 68}));
  close(fd);
}

// What EVIOCGKEY takes away was not lost: it is told in another way.
TEST(Node, TellsWhichOfItsRecordsAreReadAfterOthersWereTakenAway) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  std::vector<std::uint64_t> read;
  node.onRead([&](std::uint64_t number) { read.push_back(number); });
  node.report(EV_MSC, MSC_SCAN, 4);
  node.press(KEY_A);
  unsigned char keys[KEY_MAX / 8 + 1];
  EXPECT_GT(ioctl(fd, EVIOCGKEY(sizeof keys), keys), 0);
  EXPECT_EQ(readRecords(fd).size(), 2U);
  EXPECT_EQ(read, (std::vector<std::uint64_t>{1, 3}));
  close(fd);
}

TEST(Node, AfterAnOverflowNothingIsReadableBeforeTheNextReport) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  for (int i = 0; i < 32; ++i) {
    node.inject(EV_KEY, KEY_A, i % 2);
    node.inject(EV_SYN, SYN_REPORT, 0);
  }
  node.inject(EV_KEY, KEY_B, 1);
  EXPECT_EQ(readRecords(fd), Lines({"0 3 0", "0 0 0"}));
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd), Lines({"1 48 1", "0 0 0"}));
}

TEST(Node, OneDescriptorGrabsAndOnlyItReads) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int holder = openNode("/dev/input/event0");
  const int other = openNode("/dev/input/event0");
  EXPECT_EQ(ioctl(holder, EVIOCGRAB, 1L), 0);
  EXPECT_TRUE(node.isGrabbed());
  EXPECT_EQ(ioctl(holder, EVIOCGRAB, 1L), -1);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(ioctl(other, EVIOCGRAB, 0L), -1);
  EXPECT_EQ(errno, EINVAL);
  node.press(KEY_A);
  EXPECT_EQ(readRecords(other), Lines({}));
  EXPECT_EQ(readRecords(holder), Lines({"1 30 1", "0 0 0"}));
  EXPECT_EQ(close(holder), 0);
  EXPECT_FALSE(node.isGrabbed());
}

TEST(Node, AnswersItsEventTypesInWholeLongs) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  unsigned char bits[32] = {};
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(0, 31), bits), static_cast<int>(sizeof(long)));
  EXPECT_EQ(bits[0] | bits[1] << 8 | bits[2] << 16,
            1 << EV_SYN | 1 << EV_KEY | 1 << EV_MSC | 1 << EV_LED | 1 << EV_REP);
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(EV_REL, 2), bits), 2);
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(EV_REP, 8), bits), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(ioctl(fd, EVIOCGKEYCODE, bits), -1);
  EXPECT_EQ(errno, EINVAL);
}

// The codes below 768 whose bits a request sets, such as EVIOCGKEY(96); or nothing but -1 if it fails.
std::vector<int> codesThatAreOn(int fd, unsigned request) {
  unsigned char bits[96] = {};
  if (ioctl(fd, request, bits) == -1) return {-1};
  std::vector<int> codes;
  for (int code = 0; code < 768; ++code) {
    if ((bits[code / 8] >> (code % 8) & 1) != 0) codes.push_back(code);
  }
  return codes;
}

TEST(Node, WhatIsInjectedIsNotDown) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  node.inject(EV_KEY, KEY_A, 0);
  node.inject(EV_KEY, KEY_B, 1);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({KEY_A}));
}

TEST(Node, AStateCanBeSetWithoutARecord) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  readRecords(fd);
  node.setState(EV_KEY, KEY_A, false);
  node.setState(EV_KEY, KEY_B, true);
  node.setState(EV_LED, LED_NUML, true);
  EXPECT_EQ(readRecords(fd), Lines());
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({KEY_B}));
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGLED(2)), std::vector<int>({LED_NUML}));
}

TEST(Node, AStateTakesRecordsAwayThatAreNotReadableYet) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  const int fd = openNode("/dev/input/event0");
  node.inject(EV_REL, REL_X, 1);
  node.inject(EV_SYN, SYN_REPORT, 0);
  node.inject(EV_REL, REL_X, 2);
  node.inject(EV_KEY, BTN_LEFT, 1);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({}));
  EXPECT_EQ(readRecords(fd), Lines({"2 0 1", "0 0 0"}));
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd), Lines({"2 0 2", "0 0 0"}));
}

TEST(Node, ASynDroppedThatIsAllThatStaysWaitsForItsReport) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  const int fd = openNode("/dev/input/event0");
  node.inject(EV_REL, REL_X, 1);
  node.inject(EV_SYN, SYN_REPORT, 0);
  for (int i = 0; i < 125; ++i) node.inject(EV_REL, REL_X, 1);  // 127 records: all there is room for
  EXPECT_EQ(ioctl(fd, EVIOCGKEY(96), nullptr), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(readRecords(fd), Lines({}));
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(readRecords(fd), Lines({"0 3 0", "0 0 0"}));
}

TEST(Node, AStateThatIsRefusedTakesNothingAway) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  machine.fail(Call::kIoctl, 1, EINTR);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({-1}));
  node.setIoctlError(EVIOCGKEY(0), ENOMEM);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({-1}));
  EXPECT_EQ(readRecords(fd), Lines({"1 30 1", "0 0 0"}));
}

TEST(Node, AStateCanBeRefused) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  node.report(EV_LED, LED_NUML, 1);
  node.setIoctlError(EVIOCGKEY(0), EIO);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({-1}));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGLED(8)), std::vector<int>({LED_NUML}));
  node.setIoctlError(EVIOCGKEY(0), 0);
  machine.fail(Call::kIoctl, 2, EINTR);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({KEY_A}));
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({-1}));
  EXPECT_EQ(errno, EINTR);
}

TEST(Node, ABlockingReadWaitsForARecordOrASignal) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = open("/dev/input/event0", O_RDONLY);
  machine.after(30ms, [&] { node.press(KEY_A); });
  machine.signalAfter(50ms);
  const microseconds start = machine.now();
  EXPECT_EQ(readRecords(fd), Lines({"1 30 1", "0 0 0"}));
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(machine.now() - start, 50ms);
}

TEST(Node, OpensAndAnswersAsItIsTold) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  node.setOpenError(EACCES);
  EXPECT_EQ(openNode("/dev/input/event0"), -1);
  EXPECT_EQ(errno, EACCES);
  node.setOpenError(0);
  const int fd = openNode("/dev/input/event0");
  EXPECT_GE(fd, 0);
  unsigned char bits[2];
  node.setIoctlError(EVIOCGBIT(EV_REL, 0), EIO);
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(EV_REL, 2), bits), -1);
  EXPECT_EQ(errno, EIO);
  node.setIoctlError(EVIOCGBIT(EV_REL, 0), 0);
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(EV_REL, 2), bits), 2);
}

int connectedSocket(const char* path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  EXPECT_EQ(connectTo(fd, path), 0);
  return fd;
}

TEST(LircDaemon, LinesArriveAsAStream) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(connectTo(fd, "/dev/lircd"), 0);
  char text[128] = {};
  EXPECT_EQ(read(fd, text, sizeof text), -1);
  EXPECT_EQ(errno, EAGAIN);
  daemon.send("KEY_OK");
  daemon.send("KEY_OK", 10);
  EXPECT_EQ(read(fd, text, 10), 10);
  EXPECT_STREQ(text, "0000000000");
  const ssize_t rest = read(fd, text, sizeof text);
  EXPECT_EQ(std::string(text, static_cast<std::size_t>(rest)),
            "f40bf0 00 KEY_OK myremote\n0000000000f40bf0 0a KEY_OK myremote\n");
}

TEST(LircDaemon, AfterItHangsUpComesEndOfStream) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(connectTo(fd, "/dev/lircd"), 0);
  daemon.sendText("last\n");
  daemon.hangUp();
  timeval timeout = {1, 0};
  char text[128] = {};
  EXPECT_EQ(read(fd, text, sizeof text), 5);
  EXPECT_EQ(waitFor(fd, &timeout), 1);
  EXPECT_EQ(read(fd, text, sizeof text), 0);
  EXPECT_EQ(read(fd, text, sizeof text), 0);
}

TEST(LircDaemon, KeepsAClientThatReadsThoughItIsAlwaysALineBehind) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(connectTo(fd, "/dev/lircd"), 0);
  daemon.sendText("a\n");
  char text[2];
  for (int i = 0; i < 400; ++i) {
    daemon.sendText("a\n");
    ASSERT_EQ(read(fd, text, sizeof text), 2);
  }
  EXPECT_EQ(read(fd, text, sizeof text), 2);
  EXPECT_EQ(read(fd, text, sizeof text), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(LircDaemon, HasAClientUntilOneOfTheTwoEnds) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  EXPECT_FALSE(daemon.hasClients());
  int fd = connectedSocket("/dev/lircd");
  EXPECT_TRUE(daemon.hasClients());
  close(fd);
  EXPECT_FALSE(daemon.hasClients());

  fd = connectedSocket("/dev/lircd");
  const int other = connectedSocket("/dev/lircd");
  close(fd);
  EXPECT_TRUE(daemon.hasClients());
  daemon.hangUp();
  EXPECT_FALSE(daemon.hasClients());
  close(other);
}

TEST(LircDaemon, HasNoClientAfterItDroppedTheOneThatDoesNotRead) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  connectedSocket("/dev/lircd");
  for (int i = 0; i < 280; ++i) daemon.sendText("a\n");
  EXPECT_TRUE(daemon.hasClients());
  daemon.sendText("a\n");
  EXPECT_FALSE(daemon.hasClients());
}

TEST(LircDaemon, LeavesAFileThatRefuses) {
  Machine machine;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), -1);
  EXPECT_EQ(errno, ENOENT);
  machine.addLircDaemon("/dev/lircd").stop();
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), -1);
  EXPECT_EQ(errno, ECONNREFUSED);
  machine.addLircDaemon("/dev/lircd");
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), 0);
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), -1);
  EXPECT_EQ(errno, EISCONN);
}

TEST(LircDaemon, LeavesNothingWhereItsSocketIsRemoved) {
  Machine machine;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  daemon.stop();
  daemon.removeSocket();
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), -1);
  EXPECT_EQ(errno, ENOENT);
  machine.addLircDaemon("/dev/lircd");
  EXPECT_EQ(connectTo(fd, "/dev/lircd"), 0);
}

TEST(HasUnread, IsTrueOfRecordsOnceTheirReportIsWhole) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  EXPECT_FALSE(machine.hasUnread());
  node.inject(EV_KEY, KEY_A, 1);
  EXPECT_FALSE(machine.hasUnread());
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_TRUE(machine.hasUnread());
  input_event record;
  EXPECT_EQ(read(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  EXPECT_TRUE(machine.hasUnread());
  EXPECT_EQ(read(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  EXPECT_FALSE(machine.hasUnread());
}

TEST(HasUnread, IsFalseOfWhatNobodyHasOpenAnyMore) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  node.press(KEY_A);
  EXPECT_FALSE(machine.hasUnread());
  const int fd = openNode("/dev/input/event0");
  node.release(KEY_A);
  EXPECT_TRUE(machine.hasUnread());
  close(fd);
  EXPECT_FALSE(machine.hasUnread());
}

TEST(HasUnread, IsTrueOfADaemonsTextUpToItsLastByte) {
  Machine machine;
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = connectedSocket("/dev/lircd");
  EXPECT_FALSE(machine.hasUnread());
  daemon.sendText("ab");
  char text[1];
  EXPECT_EQ(read(fd, text, sizeof text), 1);
  EXPECT_TRUE(machine.hasUnread());
  EXPECT_EQ(read(fd, text, sizeof text), 1);
  EXPECT_FALSE(machine.hasUnread());
}

TEST(HasUnread, DoesNotCountWhatAReadFindsOfSomethingThatIsGone) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  openNode("/dev/input/event0");
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = connectedSocket("/dev/lircd");
  node.press(KEY_A);
  node.unplug();
  EXPECT_FALSE(machine.hasUnread());
  daemon.sendText("a");
  daemon.hangUp();
  EXPECT_TRUE(machine.hasUnread());
  char text[1];
  EXPECT_EQ(read(fd, text, sizeof text), 1);
  EXPECT_FALSE(machine.hasUnread());
}

TEST(Faults, HitTheCallThatIsCounted) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  machine.fail(Call::kRead, 2, EIO);
  input_event record;
  EXPECT_EQ(read(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  EXPECT_EQ(read(fd, &record, sizeof record), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(read(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  EXPECT_EQ(recordText(record), "0 0 0");
  EXPECT_EQ(machine.count(Call::kRead), 3);
}

TEST(Faults, ACloseThatFailsStillCloses) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.fail(Call::kClose, 1, EIO);
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(Faults, ATruncatedReadLeavesTheRecordAndTheRestOfTheText) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int fd = openNode("/dev/input/event0");
  const int lirc = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(connectTo(lirc, "/dev/lircd"), 0);
  node.press(KEY_A);
  daemon.sendText("abcdef");
  input_event record;
  char text[16] = {};
  machine.truncateRead(1, 0);
  EXPECT_EQ(read(fd, &record, sizeof record), 0);
  machine.truncateRead(1, 4);
  EXPECT_EQ(read(fd, &record, sizeof record), 4);
  EXPECT_EQ(readRecords(fd), Lines({"1 30 1", "0 0 0"}));
  machine.truncateRead(1, 4);
  EXPECT_EQ(read(lirc, text, sizeof text), 4);
  EXPECT_STREQ(text, "abcd");
  EXPECT_EQ(read(lirc, text, sizeof text), 2);
}

TEST(Trace, ShowsEveryCallWithItsResult) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard("Keyboard"));
  machine.setEnvironment("LIRC_REPEAT_TIMEOUT", "150");
  const int fd = openNode("/dev/input/event0");
  node.press(KEY_A);
  char buffer[128];
  timeval now;
  timeval timeout = {0, 250'000};
  EXPECT_EQ(waitFor(fd, &timeout), 1);
  EXPECT_EQ(waitFor(fd, nullptr), 1);
  EXPECT_GT(read(fd, buffer, sizeof(input_event)), 0);
  EXPECT_GT(read(fd, buffer, sizeof(input_event)), 0);
  EXPECT_EQ(read(fd, buffer, 127), -1);
  EXPECT_EQ(ioctl(fd, EVIOCGRAB, 1L), 0);
  EXPECT_EQ(ioctl(fd, EVIOCGNAME(99), buffer), 9);
  EXPECT_EQ(ioctl(fd, EVIOCGBIT(EV_ABS, 8), buffer), 8);
  EXPECT_EQ(gettimeofday(&now, nullptr), 0);
  EXPECT_STREQ(getenv("LIRC_REPEAT_TIMEOUT"), "150");
  EXPECT_EQ(getenv("LIRC_RELEASE_TIMEOUT"), nullptr);
  const int lirc = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  EXPECT_EQ(connectTo(lirc, "/dev/lircd"), -1);
  EXPECT_EQ(close(-1), -1);
  const std::string clock = std::to_string(now.tv_sec) + ".000020";
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "open(\"/dev/input/event0\", O_RDONLY|O_NONBLOCK) = 100",
                                     "select(101, [100], 0.250000) = 1 [100]",
                                     "select(101, [100], forever) = 1 [100]",
                                     "read(100, 1 record) = 1 record",
                                     "read(100, 1 record) = 1 record",
                                     "read(100, 127) = -1 EAGAIN",
                                     "ioctl(100, EVIOCGRAB, 1) = 0",
                                     "ioctl(100, EVIOCGNAME(99)) = 9",
                                     "ioctl(100, EVIOCGBIT(EV_ABS, 8)) = 8",
                                     "gettimeofday() = " + clock,
                                     "getenv(\"LIRC_REPEAT_TIMEOUT\") = \"150\"",
                                     "getenv(\"LIRC_RELEASE_TIMEOUT\") = null",
                                     "socket(AF_UNIX, SOCK_STREAM|SOCK_NONBLOCK, 0) = 101",
                                     "connect(101, \"/dev/lircd\", 110) = -1 ENOENT",
                                     "close(-1) = -1 EBADF",
                                 }));
}

TEST(NodeIoctl, TellsOnlyAsManyStatesAsItIsCutTo) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event3", Device::mouse());
  const int fd = openNode("/dev/input/event3");
  node.press(BTN_LEFT);
  node.cutStates(BTN_LEFT / 8);
  EXPECT_EQ(codesThatAreOn(fd, EVIOCGKEY(96)), std::vector<int>({}));
  unsigned char bits[96];
  EXPECT_EQ(ioctl(fd, EVIOCGKEY(sizeof bits), bits), BTN_LEFT / 8);
}

TEST(NodeIoctl, TellsAVersionOfEvdev) {
  Machine machine;
  Node& node = machine.addNode("/dev/input/event3", Device::mouse());
  const int fd = openNode("/dev/input/event3");
  int version = 0;
  EXPECT_EQ(ioctl(fd, EVIOCGVERSION, &version), 0);
  EXPECT_EQ(version, EV_VERSION);
  node.setIoctlError(EVIOCGVERSION, ENOTTY);
  EXPECT_EQ(ioctl(fd, EVIOCGVERSION, &version), -1);
  EXPECT_EQ(errno, ENOTTY);
}

TEST(NodeIoctl, TellsWhoADeviceIs) {
  Machine machine;
  Device device = Device::touchscreen();
  device.id = {BUS_BLUETOOTH, 1, 2, 3};
  device.uniq = "00:11:22";
  device.properties = {INPUT_PROP_DIRECT};
  Node& node = machine.addNode("/dev/input/event3", device);
  const int fd = openNode("/dev/input/event3");
  machine.takeTrace();
  char text[16] = {};
  unsigned char* const bits = reinterpret_cast<unsigned char*>(text);
  input_id id = {};
  input_absinfo axis = {};
  unsigned times[2];
  EXPECT_EQ(ioctl(fd, EVIOCGUNIQ(sizeof text), text), 9);
  EXPECT_STREQ(text, "00:11:22");
  EXPECT_EQ(ioctl(fd, EVIOCGPHYS(sizeof text), text), -1);
  EXPECT_EQ(ioctl(fd, EVIOCGPROP(1), bits), 1);
  EXPECT_EQ(bits[0], 1 << INPUT_PROP_DIRECT);
  EXPECT_EQ(ioctl(fd, EVIOCGID, &id), 0);
  EXPECT_EQ(id.version, 3);
  EXPECT_EQ(ioctl(fd, EVIOCGABS(ABS_Y), &axis), 0);
  EXPECT_EQ(ioctl(fd, EVIOCGREP, times), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({"ioctl(100, EVIOCGUNIQ(16)) = 9", "ioctl(100, EVIOCGPHYS(16)) = -1 ENOENT",
                                        "ioctl(100, EVIOCGPROP(1)) = 1", "ioctl(100, EVIOCGID) = 0",
                                        "ioctl(100, EVIOCGABS(1)) = 0", "ioctl(100, EVIOCGREP) = -1 ENOSYS"}));
  node.setIoctlError(EVIOCGABS(ABS_Y), EIO);
  EXPECT_EQ(ioctl(fd, EVIOCGABS(ABS_X), &axis), 0);
  EXPECT_EQ(ioctl(fd, EVIOCGABS(ABS_Y), &axis), -1);
  EXPECT_EQ(errno, EIO);
}

TEST(Node, PassesEachPositionOfAContactWhereThereAreNoSlots) {
  for (const int highest : {-1, INT32_MIN}) {
    Machine machine;
    Device device = {"Pad", {{EV_ABS, {ABS_MT_SLOT, ABS_MT_TOUCH_MAJOR}}}};
    device.axes[ABS_MT_SLOT].maximum = highest;
    Node& node = machine.addNode("/dev/input/event0", device);
    const int fd = openNode("/dev/input/event0");
    for (int i = 0; i < 2; ++i) node.report(EV_ABS, ABS_MT_TOUCH_MAJOR, 7);
    node.report(EV_SYN, SYN_REPORT, 0);
    EXPECT_EQ(readRecords(fd), Lines({"3 48 7", "3 48 7", "0 0 0"}));
  }
}

TEST(Node, HasAtMost1024SlotsWhateverItsAxisSays) {
  for (const int highest : {INT32_MAX, -1, INT32_MIN}) {
    Machine machine;
    Device device = {"Pad", {{EV_ABS, {ABS_MT_SLOT, ABS_MT_TOUCH_MAJOR}}}};
    device.axes[ABS_MT_SLOT].maximum = highest;
    Node& node = machine.addNode("/dev/input/event0", device);
    const int fd = openNode("/dev/input/event0");
    for (const int slot : {1024, 1023}) {
      node.report(EV_ABS, ABS_MT_SLOT, slot);
      node.report(EV_ABS, ABS_MT_TOUCH_MAJOR, slot);
    }
    node.report(EV_SYN, SYN_REPORT, 0);
    const Lines slots = {"3 48 1024", "3 47 1023", "3 48 1023", "0 0 0"};
    EXPECT_EQ(readRecords(fd), highest > 0 ? slots : Lines({"3 48 1024", "3 48 1023", "0 0 0"}));
  }
}

TEST(Fstat, TellsANodesNumberByWhateverPathItWasOpened) {
  Machine machine;
  machine.addNode("/dev/input/event3", Device::mouse());
  machine.addLink("/dev/input/by-id/mouse", "/dev/input/event3");
  machine.addNode("/run/node", Device::mouse());
  struct stat node;
  ASSERT_EQ(fstat(openNode("/dev/input/by-id/mouse"), &node), 0);
  EXPECT_TRUE(S_ISCHR(node.st_mode));
  EXPECT_EQ(major(node.st_rdev), 13U);
  EXPECT_EQ(minor(node.st_rdev), 64U + 3U);
  struct stat elsewhere;
  ASSERT_EQ(fstat(openNode("/run/node"), &elsewhere), 0);
  EXPECT_NE(elsewhere.st_rdev, node.st_rdev);
}

TEST(Fstat, TellsWhatIsNoNode) {
  const Machine machine;
  struct stat status;
  ASSERT_EQ(fstat(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  ASSERT_EQ(fstat(ends[0], &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST(Fstat, FailsForADescriptorThatIsClosedAndWhenItIsToldTo) {
  Machine machine;
  machine.addNode("/dev/input/event3", Device::mouse());
  const int fd = openNode("/dev/input/event3");
  struct stat status;
  machine.fail(Call::kFstat, 1, EOVERFLOW);
  EXPECT_EQ(fstat(fd, &status), -1);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(fstat(fd, &status), 0);
  close(fd);
  EXPECT_EQ(fstat(fd, &status), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(machine.takeTrace().back(), "fstat(100) = -1 EBADF");
}

TEST(Trace, NamesTheStatesThatAreAskedFor) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.takeTrace();
  const std::string one = " = " + std::to_string(sizeof(long));
  unsigned char bits[96];
  for (const unsigned long request : {EVIOCGKEY(96), EVIOCGLED(16), EVIOCGSND(16), EVIOCGSW(16)})
    ioctl(fd, request, bits);
  EXPECT_EQ(machine.takeTrace(), Lines({"ioctl(100, EVIOCGKEY(96)) = 96", "ioctl(100, EVIOCGLED(16))" + one,
                                        "ioctl(100, EVIOCGSND(16))" + one, "ioctl(100, EVIOCGSW(16))" + one}));
}

TEST(Trace, ShowsThatADescriptorIsClosedTwice) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  const int fd = openNode("/dev/input/event0");
  machine.takeTrace();
  EXPECT_EQ(close(fd), 0);
  EXPECT_EQ(close(fd), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({"close(100) = 0", "close(100) = -1 EBADF"}));
}

TEST(Trace, CanBeTurnedOff) {
  Machine machine;
  machine.setTracing(false);
  EXPECT_EQ(close(-1), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({}));
  EXPECT_EQ(machine.count(Call::kClose), 1);
}

TEST(Descriptors, TakeTheLowestFreeNumberFromTheFirst) {
  Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  EXPECT_EQ(openNode("/dev/input/event0"), 100);
  EXPECT_EQ(openNode("/dev/input/event0"), 101);
  EXPECT_EQ(close(100), 0);
  EXPECT_EQ(openNode("/dev/input/event0"), 100);
  machine.setFirstDescriptor(2000);
  EXPECT_EQ(openNode("/dev/input/event0"), 2000);
  EXPECT_EQ(machine.openDescriptors(), 3);
}

}  // namespace
}  // namespace quarlo::sim
