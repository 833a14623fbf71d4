// The simulated machine as a loop of an application's own sees it: the calls that wait, the clocks, pipes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "sim/machine.h"

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr short kAll = POLLIN | POLLPRI | POLLRDHUP;

int openNode(const char* path) { return open(path, O_RDONLY | O_NONBLOCK); }

int connectedSocket(const char* path, int flags = SOCK_NONBLOCK) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | flags, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// What one poll() of one descriptor says, without a wait.
int polled(int fd, short events = kAll) {
  pollfd entry = {fd, events, -1};
  const int result = poll(&entry, 1, 0);
  EXPECT_EQ(result, entry.revents != 0 ? 1 : 0);
  return entry.revents;
}

microseconds clockTime(clockid_t clock) {
  timespec time;
  EXPECT_EQ(clock_gettime(clock, &time), 0);
  return std::chrono::seconds(time.tv_sec) + microseconds(time.tv_nsec / 1000);
}

class WaitTest : public testing::Test {
 protected:
  Machine machine;
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  int nodeFd = openNode("/dev/input/event0");
};

// ---- poll ---------------------------------------------------------------------------------------

using Poll = WaitTest;

TEST_F(Poll, ReturnsAtTheTimeOfTheInputAndSaysWhere) {
  const int lirc = connectedSocket("/dev/lircd");
  machine.after(30ms, [&] { daemon.send("KEY_OK"); });
  pollfd entries[] = {{nodeFd, POLLIN, -1}, {-1, POLLIN, -1}, {lirc, POLLIN, -1}};
  const microseconds start = machine.now();
  EXPECT_EQ(poll(entries, 3, -1), 1);
  EXPECT_EQ(machine.now() - start, 30ms);
  EXPECT_EQ(entries[0].revents, 0);
  EXPECT_EQ(entries[1].revents, 0);
  EXPECT_EQ(entries[2].revents, POLLIN);
}

TEST_F(Poll, TimesOut) {
  pollfd entry = {nodeFd, POLLIN, -1};
  const microseconds start = machine.now();
  EXPECT_EQ(poll(&entry, 1, 1500), 0);
  EXPECT_EQ(entry.revents, 0);
  EXPECT_EQ(machine.now() - start, 1500ms);
}

TEST_F(Poll, ASignalInterruptsIt) {
  machine.signalAfter(20ms);
  pollfd entry = {nodeFd, POLLIN, -1};
  const microseconds start = machine.now();
  EXPECT_EQ(poll(&entry, 1, -1), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(machine.now() - start, 20ms);
}

TEST_F(Poll, ASignalBeforeTheWaitDoesNot) {
  machine.signalAfter(10ms);
  machine.advance(20ms);
  EXPECT_EQ(poll(nullptr, 0, 5), 0);
}

TEST_F(Poll, ANodeIsReadableOnceItsReportIsWhole) {
  node.report(EV_KEY, KEY_A, 1);
  EXPECT_EQ(polled(nodeFd), 0);
  node.report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(polled(nodeFd), POLLIN);
  EXPECT_EQ(polled(nodeFd, POLLIN | POLLOUT | POLLRDNORM), POLLIN | POLLOUT | POLLRDNORM);
}

TEST_F(Poll, ANodeThatIsGoneHangsUpWithAnErrorWhateverIsAskedFor) {
  node.unplug();
  EXPECT_EQ(polled(nodeFd), POLLHUP | POLLERR);
  EXPECT_EQ(polled(nodeFd, 0), POLLHUP | POLLERR);
}

TEST_F(Poll, ANodeThatIsGoneStillShowsWhatWasQueued) {
  node.press(KEY_A);
  node.unplug();
  EXPECT_EQ(polled(nodeFd), POLLIN | POLLHUP | POLLERR);
}

TEST_F(Poll, ASocketWhoseDaemonHungUpIsReadableToo) {
  const int lirc = connectedSocket("/dev/lircd");
  EXPECT_EQ(polled(lirc), 0);
  daemon.sendText("a");
  EXPECT_EQ(polled(lirc), POLLIN);
  daemon.hangUp();
  EXPECT_EQ(polled(lirc), POLLIN | POLLHUP | POLLRDHUP);
  EXPECT_EQ(polled(lirc, 0), POLLHUP);
}

TEST_F(Poll, ASocketThatIsNotConnectedHangsUp) { EXPECT_EQ(polled(socket(AF_UNIX, SOCK_STREAM, 0)), POLLHUP); }

TEST_F(Poll, AClosedDescriptorIsNotValid) {
  close(nodeFd);
  EXPECT_EQ(polled(nodeFd), POLLNVAL);
}

TEST_F(Poll, SeesDescriptorsOfLibcToo) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  pollfd entries[] = {{nodeFd, POLLIN, 0}, {ends[0], POLLIN, 0}};
  EXPECT_EQ(poll(entries, 2, 1), 0);
  machine.after(5ms, [&] { EXPECT_EQ(::write(ends[1], "x", 1), 1); });
  const microseconds start = machine.now();
  EXPECT_EQ(poll(entries, 2, -1), 1);
  EXPECT_EQ(entries[1].revents, POLLIN);
  EXPECT_EQ(machine.now() - start, 5ms);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Poll, ThatDoesNotWaitTakes10Microseconds) {
  const microseconds start = machine.now();
  EXPECT_EQ(polled(nodeFd), 0);
  EXPECT_EQ(machine.now() - start, 10us);
  node.press(KEY_A);
  pollfd entry = {nodeFd, POLLIN, 0};
  EXPECT_EQ(poll(&entry, 1, -1), 1);
  EXPECT_EQ(machine.now() - start, 20us);
}

TEST_F(Poll, AGlanceAtDescriptorsOfLibcAloneTakesNoTimeAndLeavesNoTrace) {
  machine.takeTrace();
  const microseconds start = machine.now();
  EXPECT_EQ(polled(STDIN_FILENO, 0) & POLLNVAL, 0);
  EXPECT_EQ(machine.now(), start);
  EXPECT_EQ(machine.takeTrace(), Lines({}));
}

using PollDeathTest = WaitTest;

TEST_F(PollDeathTest, NamesADeadlock) {
  pollfd entries[] = {{nodeFd, POLLIN, 0}, {-1, POLLOUT, 0}};
  EXPECT_DEATH(poll(entries, 2, -1), "sim: deadlock: poll\\(\\) on \\[100 POLLIN, -1 POLLOUT\\] would wait forever");
}

// ---- ppoll --------------------------------------------------------------------------------------

using Ppoll = WaitTest;

// In whole seconds: with 64-bit time, hardened headers of some libcs take the rest of a timeout from the wrong place.
TEST_F(Ppoll, WaitsAsPollDoes) {
  pollfd entry = {nodeFd, POLLIN, -1};
  const timespec timeout = {2, 0};
  const microseconds start = machine.now();
  EXPECT_EQ(ppoll(&entry, 1, &timeout, nullptr), 0);
  EXPECT_EQ(machine.now() - start, 2s);
  machine.after(10ms, [&] { node.press(KEY_A); });
  EXPECT_EQ(ppoll(&entry, 1, nullptr, nullptr), 1);
  EXPECT_EQ(entry.revents, POLLIN);
  EXPECT_EQ(machine.now() - start, 2s + 10ms);
}

TEST_F(Ppoll, RefusesANegativeTimeout) {
  const timespec timeout = {-1, 0};
  EXPECT_EQ(ppoll(nullptr, 0, &timeout, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

int signals = 0;

TEST_F(Ppoll, ASignalThatItsMaskLetsThroughInterruptsIt) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  const auto handler = std::signal(SIGUSR1, [](int) { ++signals; });
  std::raise(SIGUSR1);
  const timespec timeout = {2, 0};
  EXPECT_EQ(ppoll(nullptr, 0, &timeout, &blocked), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_EQ(ppoll(nullptr, 0, &timeout, &before), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(signals, 1);
  std::signal(SIGUSR1, handler);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

// ---- recv ---------------------------------------------------------------------------------------

using Recv = WaitTest;

TEST_F(Recv, PeekLeavesTheTextForTheNextRead) {
  const int lirc = connectedSocket("/dev/lircd");
  daemon.sendText("abcd");
  char text[8] = {};
  EXPECT_EQ(recv(lirc, text, 3, MSG_PEEK), 3);
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(read(lirc, text, 3), 3);
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(recv(lirc, text, sizeof text, 0), 1);
  EXPECT_EQ(text[0], 'd');
  EXPECT_EQ(recv(lirc, text, sizeof text, 0), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Recv, DontwaitDoesNotWaitOnASocketThatBlocks) {
  const int lirc = connectedSocket("/dev/lircd", 0);
  char text[8];
  EXPECT_EQ(recv(lirc, text, sizeof text, MSG_PEEK | MSG_DONTWAIT), -1);
  EXPECT_EQ(errno, EAGAIN);
  machine.after(10ms, [&] { daemon.sendText("a"); });
  const microseconds start = machine.now();
  EXPECT_EQ(recv(lirc, text, sizeof text, 0), 1);
  EXPECT_EQ(machine.now() - start, 10ms);
}

TEST_F(Recv, IsTheEndOfTheStreamAfterAHangUp) {
  const int lirc = connectedSocket("/dev/lircd");
  daemon.hangUp();
  char text[8];
  EXPECT_EQ(recv(lirc, text, sizeof text, MSG_PEEK), 0);
}

TEST_F(Recv, RefusesWhatIsNotASocket) {
  char text[8];
  EXPECT_EQ(recv(nodeFd, text, sizeof text, 0), -1);
  EXPECT_EQ(errno, ENOTSOCK);
  EXPECT_EQ(recv(-1, text, sizeof text, 0), -1);
  EXPECT_EQ(errno, EBADF);
}

using RecvDeathTest = WaitTest;

TEST_F(RecvDeathTest, NamesFlagsThatAreNotSimulated) {
  char text[8];
  EXPECT_DEATH(recv(nodeFd, text, sizeof text, MSG_OOB), "sim: recv\\(\\) with 0x1 is not simulated");
}

// ---- Pipes --------------------------------------------------------------------------------------

class Pipe : public WaitTest {
 protected:
  Pipe() { EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0); }

  int ends[2];
};

TEST_F(Pipe, GivesWhatWasWritten) {
  char text[8] = {};
  EXPECT_EQ(read(ends[0], text, sizeof text), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(write(ends[1], "abc", 3), 3);
  EXPECT_EQ(write(ends[1], "de", 2), 2);
  EXPECT_EQ(polled(ends[0]), POLLIN);
  EXPECT_EQ(read(ends[0], text, 4), 4);
  EXPECT_STREQ(text, "abcd");
  EXPECT_EQ(read(ends[0], text, sizeof text), 1);
  EXPECT_EQ(polled(ends[0]), 0);
}

TEST_F(Pipe, EndsWithItsWriter) {
  EXPECT_EQ(write(ends[1], "a", 1), 1);
  close(ends[1]);
  EXPECT_EQ(polled(ends[0]), POLLIN | POLLHUP);
  char text[8];
  EXPECT_EQ(read(ends[0], text, sizeof text), 1);
  EXPECT_EQ(polled(ends[0]), POLLHUP);
  EXPECT_EQ(read(ends[0], text, sizeof text), 0);
}

TEST_F(Pipe, WithoutAReaderIsBroken) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  close(ends[0]);
  EXPECT_EQ(polled(ends[1], POLLOUT), POLLOUT | POLLERR);
  EXPECT_EQ(write(ends[1], "a", 1), -1);
  EXPECT_EQ(errno, EPIPE);
  std::signal(SIGPIPE, before);
}

TEST_F(Pipe, Holds64KiB) {
  const std::string page(4096, 'a');
  for (int i = 0; i < 15; ++i) EXPECT_EQ(write(ends[1], page.data(), page.size()), 4096);
  EXPECT_EQ(polled(ends[1], POLLOUT), POLLOUT);
  const std::string much(5000, 'b');
  EXPECT_EQ(write(ends[1], much.data(), much.size()), 4096);
  EXPECT_EQ(polled(ends[1], POLLOUT), 0);
  EXPECT_EQ(write(ends[1], "c", 1), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Pipe, HasTwoDifferentEnds) {
  char text[8];
  EXPECT_EQ(read(ends[1], text, sizeof text), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(write(ends[0], text, sizeof text), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(ends[1], ends[0] + 1);
}

TEST_F(WaitTest, APipeThatBlocksWaitsForTheOtherEnd) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, 0), 0);
  machine.after(10ms, [&] { EXPECT_EQ(write(ends[1], "a", 1), 1); });
  const microseconds start = machine.now();
  char text[40'000];
  EXPECT_EQ(read(ends[0], text, sizeof text), 1);
  EXPECT_EQ(machine.now() - start, 10ms);
  machine.after(10ms, [&] { EXPECT_EQ(read(ends[0], text, sizeof text), 40'000); });
  const std::string much(70'000, 'a');
  EXPECT_EQ(write(ends[1], much.data(), much.size()), 70'000);
  EXPECT_EQ(machine.now() - start, 20ms);
}

// ---- Clocks -------------------------------------------------------------------------------------

using Clocks = WaitTest;

TEST_F(Clocks, AJumpMovesTheClockOnTheWallAndNotTheMonotonicOne) {
  const microseconds wall = clockTime(CLOCK_REALTIME);
  const microseconds monotonic = clockTime(CLOCK_MONOTONIC);
  EXPECT_EQ(wall, machine.now());
  machine.jumpClock(-1h);
  machine.advance(2s);
  for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_REALTIME_COARSE, CLOCK_TAI}) {
    EXPECT_EQ(clockTime(clock), wall - 1h + 2s);
  }
  for (const clockid_t clock : {CLOCK_MONOTONIC, CLOCK_MONOTONIC_RAW, CLOCK_MONOTONIC_COARSE, CLOCK_BOOTTIME}) {
    EXPECT_EQ(clockTime(clock), monotonic + 2s);
  }
}

TEST_F(Clocks, ProcessorTimeIsLibcs) {
  machine.takeTrace();
  EXPECT_LT(clockTime(CLOCK_PROCESS_CPUTIME_ID), 1h);
  EXPECT_EQ(machine.takeTrace(), Lines({}));
}

TEST_F(Clocks, OfLibstdcppAreTheMachinesWhenItIsLinkedStatically) {
  const auto steady = std::chrono::steady_clock::now();
  const auto system = std::chrono::system_clock::now();
  EXPECT_EQ(system.time_since_epoch(), machine.now());
  machine.jumpClock(1h);
  machine.advance(600s);
  EXPECT_EQ(std::chrono::steady_clock::now() - steady, 600s);
  EXPECT_EQ(std::chrono::system_clock::now() - system, 600s + 1h);
}

TEST_F(Clocks, OutsideAreTheRealOnes) {
  const Outside outside;
  EXPECT_GT(clockTime(CLOCK_REALTIME), 1'500'000'000s);
}

TEST_F(Clocks, ThePacerSeesTheRealOnes) {
  microseconds seen;
  machine.onWait([&](microseconds) { seen = clockTime(CLOCK_REALTIME); });
  EXPECT_EQ(poll(nullptr, 0, 10), 0);
  EXPECT_GT(seen, 1'500'000'000s);
}

TEST_F(Clocks, CallsTakeTheTimeThatIsSet) {
  machine.setCallTime(3us);
  const microseconds start = machine.now();
  EXPECT_EQ(polled(nodeFd), 0);
  EXPECT_EQ(machine.now() - start, 3us);
  EXPECT_EQ(clockTime(CLOCK_MONOTONIC), start + 6us);
  EXPECT_EQ(poll(nullptr, 0, 1), 0);
  EXPECT_EQ(machine.now() - start, 1ms + 9us);
}

TEST_F(Clocks, CallsMayTakeNoTimeAtAll) {
  machine.setCallTime(0us);
  const microseconds start = machine.now();
  EXPECT_EQ(polled(nodeFd), 0);
  EXPECT_EQ(clockTime(CLOCK_MONOTONIC), start);
}

// ---- Sleeping -----------------------------------------------------------------------------------

class Sleep : public WaitTest {
 protected:
  microseconds elapsed() const { return machine.now() - start; }

  const microseconds start = machine.now();
};

TEST_F(Sleep, TakesItsTime) {
  const timespec time = {1, 500'000'001};
  EXPECT_EQ(nanosleep(&time, nullptr), 0);
  EXPECT_EQ(elapsed(), 1500ms + 1us);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr), 0);
  EXPECT_EQ(elapsed(), 3s + 2us);
  EXPECT_EQ(usleep(500), 0);
  EXPECT_EQ(elapsed(), 3s + 502us);
}

TEST_F(Sleep, OfLibstdcppTakesItsTimeToo) {
  std::this_thread::sleep_for(600s);
  EXPECT_EQ(elapsed(), 600s);
  std::this_thread::sleep_until(std::chrono::steady_clock::now() + 10s);
  EXPECT_EQ(elapsed(), 610s);
}

TEST_F(Sleep, ASignalEndsItAndItSaysWhatIsLeft) {
  machine.signalAfter(100ms);
  const timespec time = {1, 0};
  timespec left = {};
  EXPECT_EQ(nanosleep(&time, &left), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(left.tv_nsec, 900'000'000);
  machine.signalAfter(200ms);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, &left), EINTR);
  EXPECT_EQ(left.tv_nsec, 800'000'000);
  EXPECT_EQ(elapsed(), 300ms);
}

TEST_F(Sleep, RefusesWhatIsNotATime) {
  const timespec time = {0, 1'000'000'000};
  EXPECT_EQ(nanosleep(&time, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &time, nullptr), EINVAL);
}

timespec inTenSeconds(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  time.tv_sec += 10;
  return time;
}

TEST_F(Sleep, UntilATimeOnTheWallFollowsTheClock) {
  const timespec time = inTenSeconds(CLOCK_REALTIME);
  machine.after(1s, [&] { machine.jumpClock(4s); });
  machine.after(2s, [&] { machine.jumpClock(-1s); });
  EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &time, nullptr), 0);
  EXPECT_EQ(elapsed(), 10s);
  EXPECT_EQ(clockTime(CLOCK_MONOTONIC), start + 7s);
}

TEST_F(Sleep, UntilAMonotonicTimeDoesNot) {
  const timespec time = inTenSeconds(CLOCK_MONOTONIC);
  machine.after(1s, [&] { machine.jumpClock(1h); });
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr), 0);
  EXPECT_EQ(clockTime(CLOCK_MONOTONIC), start + 10s);
}

// ---- Faults and trace ---------------------------------------------------------------------------

TEST_F(WaitTest, EachCallFailsAsItIsTold) {
  int ends[2];
  char byte;
  pollfd entry = {nodeFd, POLLIN, 0};
  timespec time = {};
  for (const Call call : {Call::kPoll, Call::kPpoll, Call::kRecv, Call::kPipe2, Call::kWrite, Call::kClockGettime,
                          Call::kNanosleep, Call::kUsleep, Call::kClockNanosleep}) {
    machine.fail(call, 1, ENOMEM);
  }
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr), ENOMEM);
  for (const long result :
       {long{poll(&entry, 1, 5)}, long{recv(nodeFd, &byte, 1, 0)}, long{pipe2(ends, 0)}, long{write(nodeFd, &byte, 1)},
        long{clock_gettime(CLOCK_MONOTONIC, &time)}, long{ppoll(&entry, 1, nullptr, nullptr)},
        long{nanosleep(&time, nullptr)}, long{usleep(1)}}) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, ENOMEM);
  }
}

TEST_F(WaitTest, ACutRecvLeavesTheRestOfTheText) {
  const int lirc = connectedSocket("/dev/lircd");
  daemon.sendText("abcd");
  char text[8] = {};
  machine.truncateRead(1, 0, Call::kRecv);
  machine.truncateRead(2, 3, Call::kRecv);
  EXPECT_EQ(recv(lirc, text, sizeof text, 0), 0);
  EXPECT_EQ(recv(lirc, text, sizeof text, MSG_PEEK), 3);
  EXPECT_EQ(recv(lirc, text, sizeof text, 0), 4);
  EXPECT_STREQ(text, "abcd");
}

TEST_F(WaitTest, TraceShowsEveryCallWithItsResult) {
  const int lirc = connectedSocket("/dev/lircd");
  int ends[2];
  char text[8];
  timespec time;
  machine.takeTrace();
  EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  EXPECT_EQ(write(ends[1], "a", 1), 1);
  daemon.hangUp();
  pollfd entries[] = {{nodeFd, POLLIN, 0}, {lirc, POLLIN | POLLRDHUP, 0}, {ends[1], 0, 0}, {ends[0], POLLIN, 0}};
  EXPECT_EQ(poll(entries, 4, 250), 2);
  EXPECT_EQ(poll(entries, 1, 250), 0);
  EXPECT_EQ(recv(lirc, text, sizeof text, MSG_PEEK | MSG_DONTWAIT), 0);
  EXPECT_EQ(recv(nodeFd, text, sizeof text, 0), -1);
  EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &time), 0);
  const timespec pause = {2, 0};
  EXPECT_EQ(ppoll(entries, 1, &pause, nullptr), 0);
  EXPECT_EQ(nanosleep(&pause, nullptr), 0);
  EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &pause, nullptr), 0);
  EXPECT_EQ(usleep(5), 0);
  const std::string clock = std::to_string(time.tv_sec) + ".250010";
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "pipe2(O_NONBLOCK|O_CLOEXEC) = 0 [102 103]",
                                     "write(103, 1) = 1",
                                     "poll([100 POLLIN, 101 POLLIN|POLLRDHUP, 103 0, 102 POLLIN], 0.250000) = 2 "
                                     "[101 POLLIN|POLLHUP|POLLRDHUP, 102 POLLIN]",
                                     "poll([100 POLLIN], 0.250000) = 0",
                                     "recv(101, 8, MSG_PEEK|MSG_DONTWAIT) = 0",
                                     "recv(100, 8, 0) = -1 ENOTSOCK",
                                     "clock_gettime(CLOCK_MONOTONIC) = " + clock,
                                     "ppoll([100 POLLIN], 2.000000) = 0",
                                     "nanosleep(2.000000) = 0",
                                     "clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, 2.000000) = 0",
                                     "usleep(5) = 0",
                                 }));
}

}  // namespace
}  // namespace quarlo::sim
