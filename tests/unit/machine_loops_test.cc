// The simulated machine below an event loop of another kind: epoll, timerfd and eventfd.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr unsigned kEdge = EPOLLET;

class LoopCalls : public testing::Test {
 protected:
  microseconds elapsed() const { return machine.now() - start; }

  int connectedSocket() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/lircd");
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
  }

  Machine machine;
  const microseconds start = machine.now();
  Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  LircDaemon& daemon = machine.addLircDaemon("/dev/lircd");
  const int nodeFd = open("/dev/input/event0", O_RDONLY | O_NONBLOCK);
};

void readAll(int fd) {
  char bytes[4096];
  while (read(fd, bytes, sizeof bytes) > 0) {
  }
}

std::uint64_t readCount(int fd) {
  std::uint64_t count = 0;
  EXPECT_EQ(read(fd, &count, sizeof count), static_cast<ssize_t>(sizeof count));
  return count;
}

int polled(int fd) {
  pollfd entry = {fd, POLLIN | POLLOUT, 0};
  poll(&entry, 1, 0);
  return entry.revents;
}

// ---- epoll --------------------------------------------------------------------------------------

class Epoll : public LoopCalls {
 protected:
  int control(int operation, int fd, unsigned events) const {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = 1'000'000'000'000 + static_cast<unsigned>(fd);
    return epoll_ctl(epoll, operation, fd, &event);
  }

  void add(int fd, unsigned events = EPOLLIN) const { EXPECT_EQ(control(EPOLL_CTL_ADD, fd, events), 0); }

  // What is ready, as "100 1": a descriptor, by its data, and its events.
  Lines ready(int timeoutMs = 0, int room = 8) const {
    epoll_event events[8];
    const int count = epoll_wait(epoll, events, room, timeoutMs);
    EXPECT_NE(count, -1) << std::strerror(errno);
    Lines lines;
    for (int i = 0; i < count; ++i) {
      const std::uint64_t fd = events[i].data.u64 - 1'000'000'000'000;
      const unsigned what = events[i].events;
      lines.push_back(std::to_string(fd) + " " + std::to_string(what));
    }
    return lines;
  }

  Lines only(int fd, unsigned events = EPOLLIN) const { return {std::to_string(fd) + " " + std::to_string(events)}; }

  const int epoll = epoll_create1(EPOLL_CLOEXEC);
};

using EpollDeathTest = Epoll;

TEST_F(Epoll, ReturnsAtTheTimeOfTheInputAndSaysWhere) {
  const int lirc = connectedSocket();
  add(nodeFd);
  add(lirc);
  machine.after(30ms, [&] { daemon.send("KEY_OK"); });
  EXPECT_EQ(ready(-1), only(lirc));
  EXPECT_EQ(elapsed(), 30ms);
}

TEST_F(Epoll, TimesOut) {
  add(nodeFd);
  EXPECT_EQ(ready(250), Lines({}));
  EXPECT_EQ(elapsed(), 250ms);
  EXPECT_EQ(ready(0), Lines({}));
  EXPECT_EQ(elapsed(), 250ms + 10us);
}

TEST_F(Epoll, ASignalInterruptsIt) {
  machine.signalAfter(20ms);
  epoll_event event;
  EXPECT_EQ(epoll_wait(epoll, &event, 1, -1), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(elapsed(), 20ms);
}

TEST_F(Epoll, LevelTriggeredTellsAgainAsLongAsSomethingIsLeft) {
  add(nodeFd);
  node.press(KEY_A);
  EXPECT_EQ(ready(), only(nodeFd));
  EXPECT_EQ(ready(), only(nodeFd));
  readAll(nodeFd);
  EXPECT_EQ(ready(), Lines({}));
}

TEST_F(Epoll, EdgeTriggeredTellsOnceForEachReport) {
  add(nodeFd, EPOLLIN | kEdge);
  node.press(KEY_A);
  EXPECT_EQ(ready(), only(nodeFd));
  EXPECT_EQ(ready(), Lines({}));
  node.release(KEY_A);
  EXPECT_EQ(ready(), only(nodeFd));
}

TEST_F(EpollDeathTest, EdgeTriggeredHangsOnWhatWasLeftUnread) {
  add(nodeFd, EPOLLIN | kEdge);
  node.inject(EV_KEY, KEY_A, 1);
  node.inject(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(ready(-1), only(nodeFd));
  char record[sizeof(input_event)];
  EXPECT_GT(read(nodeFd, record, sizeof record), 0);
  EXPECT_DEATH(ready(-1), "sim: deadlock: epoll_wait\\(\\) on \\[100 EPOLLIN\\|EPOLLET\\] would wait forever");
}

TEST_F(Epoll, EdgeTriggeredTellsWhatIsThereWhenItIsAddedOrChanged) {
  node.press(KEY_A);
  add(nodeFd, EPOLLIN | kEdge);
  EXPECT_EQ(ready(), only(nodeFd));
  EXPECT_EQ(ready(), Lines({}));
  EXPECT_EQ(control(EPOLL_CTL_MOD, nodeFd, EPOLLIN | kEdge), 0);
  EXPECT_EQ(ready(), only(nodeFd));
}

TEST_F(Epoll, OneShotTellsOnceUntilItIsChanged) {
  add(nodeFd, EPOLLIN | EPOLLONESHOT);
  node.press(KEY_A);
  EXPECT_EQ(ready(), only(nodeFd));
  node.release(KEY_A);
  EXPECT_EQ(ready(), Lines({}));
  EXPECT_EQ(control(EPOLL_CTL_MOD, nodeFd, EPOLLIN | EPOLLONESHOT), 0);
  EXPECT_EQ(ready(), only(nodeFd));
}

TEST_F(Epoll, TellsOfANodeThatIsGone) {
  add(nodeFd, kEdge);
  EXPECT_EQ(ready(), Lines({}));
  machine.after(5ms, [&] { node.unplug(); });
  EXPECT_EQ(ready(-1), only(nodeFd, EPOLLERR | EPOLLHUP));
}

TEST_F(Epoll, TellsOfADaemonThatHungUp) {
  const int lirc = connectedSocket();
  add(lirc, EPOLLIN | EPOLLRDHUP | kEdge);
  machine.after(5ms, [&] { daemon.hangUp(); });
  EXPECT_EQ(ready(-1), only(lirc, EPOLLIN | EPOLLRDHUP | EPOLLHUP));
}

TEST_F(Epoll, TellsOfADaemonThatHungUpWhoAskedForNoBytes) {
  const int lirc = connectedSocket();
  add(lirc, EPOLLRDHUP);
  machine.after(5ms, [&] { daemon.hangUp(); });
  EXPECT_EQ(ready(-1), only(lirc, EPOLLRDHUP | EPOLLHUP));
}

TEST_F(Epoll, NobodyIsStarvedWhereThereIsRoomForOne) {
  const int lirc = connectedSocket();
  add(nodeFd);
  add(lirc);
  node.press(KEY_A);
  daemon.send("KEY_OK");
  EXPECT_EQ(ready(0, 1), only(nodeFd));
  EXPECT_EQ(ready(0, 1), only(lirc));
  EXPECT_EQ(ready(0, 1), only(nodeFd));
}

TEST_F(Epoll, AClosedDescriptorIsForgotten) {
  add(nodeFd);
  node.press(KEY_A);
  close(nodeFd);
  EXPECT_EQ(ready(), Lines({}));
  EXPECT_EQ(control(EPOLL_CTL_MOD, nodeFd, EPOLLIN), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Epoll, RefusesAsLinuxDoes) {
  add(nodeFd);
  EXPECT_EQ(control(EPOLL_CTL_ADD, nodeFd, EPOLLIN), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_DEL, nodeFd, nullptr), 0);
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_DEL, nodeFd, nullptr), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(control(EPOLL_CTL_MOD, nodeFd, EPOLLIN), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(control(EPOLL_CTL_ADD, epoll, EPOLLIN), -1);
  EXPECT_EQ(errno, EINVAL);
  epoll_event event = {};
  EXPECT_EQ(epoll_ctl(nodeFd, EPOLL_CTL_ADD, nodeFd, &event), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(epoll_wait(epoll, &event, 0, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(epoll_wait(nodeFd, &event, 1, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(epoll_create1(1), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Epoll, WatchesDescriptorsOfLibcToo) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  add(nodeFd);
  add(ends[0], EPOLLIN | kEdge);
  machine.after(5ms, [&] { EXPECT_EQ(write(ends[1], "x", 1), 1); });
  EXPECT_EQ(ready(-1), only(ends[0]));
  EXPECT_EQ(elapsed(), 5ms);
  EXPECT_EQ(ready(), Lines({}));
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_DEL, ends[0], nullptr), 0);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Epoll, IsItselfReadableWhenSomethingIsReady) {
  add(nodeFd);
  EXPECT_EQ(polled(epoll), 0);
  machine.after(5ms, [&] { node.press(KEY_A); });
  pollfd entry = {epoll, POLLIN, 0};
  EXPECT_EQ(poll(&entry, 1, -1), 1);
  EXPECT_EQ(elapsed(), 5ms + 10us);
}

TEST_F(Epoll, IsItselfReadableWhenADescriptorOfLibcsIs) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  add(ends[0]);
  EXPECT_EQ(polled(epoll), 0);
  EXPECT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_EQ(polled(epoll), POLLIN);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Epoll, EdgeTriggeredTellsNothingOfWhatItIsNotAskedFor) {
  const int counter = eventfd(0, EFD_NONBLOCK);
  add(counter, EPOLLOUT | kEdge);
  EXPECT_EQ(ready(), only(counter, EPOLLOUT));
  EXPECT_EQ(eventfd_write(counter, 1), 0);  // now it can be read
  EXPECT_EQ(ready(), Lines({}));
}

// As evdev wakes those who wait.
TEST_F(Epoll, EdgeTriggeredTellsOfEachReportWhateverANodeIsAskedFor) {
  constexpr unsigned kAll[] = {POLLIN, POLLRDNORM, POLLOUT, POLLWRNORM};  // MIPS has another EPOLLWRNORM
  for (const unsigned what : kAll) {
    add(nodeFd, what | kEdge);
    ready();
    node.press(KEY_A);
    EXPECT_EQ(ready(), only(nodeFd, what)) << what;
    node.release(KEY_A);
    EXPECT_EQ(ready(), only(nodeFd, what)) << what;
    EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_DEL, nodeFd, nullptr), 0);
  }
}

TEST_F(EpollDeathTest, NamesDescriptorsOfLibcToo) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  add(ends[0]);
  EXPECT_DEATH(ready(-1), "epoll_wait\\(\\) on \\[" + std::to_string(ends[0]) + " EPOLLIN\\] would wait forever");
  close(ends[0]);
  close(ends[1]);
}

TEST_F(Epoll, CanBeNeitherReadNorWritten) {
  char byte = 0;
  EXPECT_EQ(read(epoll, &byte, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(write(epoll, &byte, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(control(9, nodeFd, EPOLLIN), -1);  // there is no such operation
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EpollDeathTest, NamesWhatIsNotSimulated) {
  EXPECT_DEATH(control(EPOLL_CTL_ADD, nodeFd, EPOLLIN | EPOLLEXCLUSIVE), "sim: EPOLLEXCLUSIVE is not simulated");
  EXPECT_DEATH(control(EPOLL_CTL_ADD, epoll_create1(0), EPOLLIN), "sim: an epoll descriptor that another one watches");
}

TEST_F(Epoll, EndsOfAPipeWakeIt) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  add(ends[0], EPOLLIN | kEdge);
  EXPECT_EQ(write(ends[1], "a", 1), 1);
  EXPECT_EQ(ready(), only(ends[0]));
  EXPECT_EQ(write(ends[1], "a", 1), 1);
  EXPECT_EQ(ready(), only(ends[0]));
  close(ends[1]);
  EXPECT_EQ(ready(), only(ends[0], EPOLLIN | EPOLLHUP));
}

TEST_F(Epoll, RoomInAPipeOrACounterThatWasFullWakesIt) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const int counter = eventfd(0, EFD_NONBLOCK);
  const std::string much(65'536, 'a');
  EXPECT_EQ(write(ends[1], much.data(), much.size()), 65'536);
  EXPECT_EQ(eventfd_write(counter, UINT64_MAX - 1), 0);
  add(ends[1], EPOLLOUT | kEdge);
  add(counter, EPOLLOUT | kEdge);
  EXPECT_EQ(ready(), Lines({}));
  readAll(ends[0]);
  EXPECT_EQ(ready(), only(ends[1], EPOLLOUT));
  readCount(counter);
  EXPECT_EQ(ready(), only(counter, EPOLLOUT));
}

// ---- timerfd ------------------------------------------------------------------------------------

class Timer : public LoopCalls {
 protected:
  static int make(clockid_t clock = CLOCK_MONOTONIC) { return timerfd_create(clock, TFD_NONBLOCK | TFD_CLOEXEC); }

  static itimerspec setting(microseconds value, microseconds interval) {
    itimerspec result = {};
    result.it_value = toTimespec(value);
    result.it_interval = toTimespec(interval);
    return result;
  }

  static int set(int fd, microseconds value, microseconds interval = 0us, int flags = 0) {
    const itimerspec wanted = setting(value, interval);
    return timerfd_settime(fd, flags, &wanted, nullptr);
  }

  static std::string left(int fd) {
    itimerspec now;
    EXPECT_EQ(timerfd_gettime(fd, &now), 0);
    return text(now);
  }

  // In milliseconds, such as "250, then 100".
  static std::string text(const itimerspec& what) {
    const auto inMs = [](const timespec& time) { return (time.tv_sec * 1000) + (time.tv_nsec / 1'000'000); };
    return std::to_string(inMs(what.it_value)) + ", then " + std::to_string(inMs(what.it_interval));
  }

  static int waitFor(int fd, int timeoutMs) {
    pollfd entry = {fd, POLLIN, 0};
    return poll(&entry, 1, timeoutMs);
  }

 private:
  static timespec toTimespec(microseconds time) {
    timespec result = {};
    result.tv_sec = static_cast<time_t>(time / 1s);
    result.tv_nsec = static_cast<long>(time % 1s / 1us) * 1000;
    return result;
  }
};

using TimerDeathTest = Timer;

TEST_F(Timer, ExpiresOnce) {
  const int fd = make();
  ASSERT_EQ(set(fd, 250ms), 0);
  std::uint64_t count;
  EXPECT_EQ(read(fd, &count, sizeof count), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(waitFor(fd, -1), 1);
  EXPECT_EQ(elapsed(), 250ms);
  EXPECT_EQ(readCount(fd), 1U);
  EXPECT_EQ(waitFor(fd, 1000), 0);
}

TEST_F(Timer, CountsTheExpiriesOfAnInterval) {
  const int fd = make();
  ASSERT_EQ(set(fd, 10ms, 100ms), 0);
  machine.advance(315ms);
  EXPECT_EQ(readCount(fd), 4U);
  EXPECT_EQ(left(fd), "95, then 100");
  EXPECT_EQ(waitFor(fd, -1), 1);
  EXPECT_EQ(elapsed(), 410ms);
  EXPECT_EQ(readCount(fd), 1U);
}

TEST_F(Timer, ThatIsAskedKeepsWhatHasExpired) {
  const int fd = make();
  ASSERT_EQ(set(fd, 10ms, 100ms), 0);
  machine.advance(250ms);
  EXPECT_EQ(left(fd), "60, then 100");
  machine.advance(100ms);
  EXPECT_EQ(readCount(fd), 4U);
}

TEST_F(Timer, CanBeStoppedAndSaysWhatWasLeft) {
  const int fd = make();
  EXPECT_EQ(left(fd), "0, then 0");
  ASSERT_EQ(set(fd, 250ms, 100ms), 0);
  machine.advance(50ms);
  const itimerspec none = {};
  itimerspec old;
  EXPECT_EQ(timerfd_settime(fd, 0, &none, &old), 0);
  EXPECT_EQ(text(old), "200, then 100");
  EXPECT_EQ(waitFor(fd, 1000), 0);
}

TEST_F(Timer, ToATimeThatHasPassedExpiresAtOnce) {
  const int fd = make();
  ASSERT_EQ(set(fd, 1us, 0us, TFD_TIMER_ABSTIME), 0);
  EXPECT_EQ(polled(fd), POLLIN);
  EXPECT_EQ(readCount(fd), 1U);
}

TEST_F(Timer, ToATimeOnTheWallFollowsTheClock) {
  const int fd = make(CLOCK_REALTIME);
  ASSERT_EQ(set(fd, machine.now() + 10s, 1s, TFD_TIMER_ABSTIME), 0);
  machine.jumpClock(4s);
  machine.advance(1s);
  EXPECT_EQ(left(fd), "5000, then 1000");
  machine.jumpClock(-2s);
  EXPECT_EQ(waitFor(fd, 6999), 0);
  EXPECT_EQ(waitFor(fd, 1), 1);
  machine.jumpClock(60s);
  EXPECT_EQ(readCount(fd), 61U);
}

TEST_F(Timer, OthersDoNot) {
  const int relative = make(CLOCK_REALTIME);
  const int monotonic = make(CLOCK_MONOTONIC);
  ASSERT_EQ(set(relative, 10s), 0);
  ASSERT_EQ(set(monotonic, machine.now() + 10s, 0us, TFD_TIMER_ABSTIME), 0);
  machine.jumpClock(1h);
  EXPECT_EQ(left(relative), "10000, then 0");
  EXPECT_EQ(left(monotonic), "10000, then 0");
}

TEST_F(Timer, ABlockingReadWaits) {
  const int fd = timerfd_create(CLOCK_BOOTTIME, 0);
  ASSERT_EQ(set(fd, 250ms), 0);
  EXPECT_EQ(readCount(fd), 1U);
  EXPECT_EQ(elapsed(), 250ms);
}

TEST_F(Timer, EdgeTriggeredTellsNoMoreExpiriesBeforeTheRead) {
  const int fd = make();
  const int epoll = epoll_create1(0);
  epoll_event event = {};
  event.events = EPOLLIN | kEdge;
  ASSERT_EQ(epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event), 0);
  ASSERT_EQ(set(fd, 100ms, 100ms), 0);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, -1), 1);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, 1000), 0);
  EXPECT_EQ(readCount(fd), 11U);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, -1), 1);
  EXPECT_EQ(elapsed(), 1200ms);
}

TEST_F(Timer, DoesNotCountAsScheduled) {
  const int fd = make();
  ASSERT_EQ(set(fd, 100ms, 100ms), 0);
  EXPECT_FALSE(machine.hasScheduled());
}

TEST_F(Timer, CountsNotAsScheduledBesideWhatIs) {
  set(make(), 1s);
  EXPECT_FALSE(machine.hasScheduled());
  machine.after(2s, [] {});
  EXPECT_TRUE(machine.hasScheduled());
  machine.advance(1s);
  EXPECT_TRUE(machine.hasScheduled());
  machine.advance(1s);
  EXPECT_FALSE(machine.hasScheduled());
}

TEST_F(Timer, ThatWasNotSetDoesNotRun) {
  itimerspec setting = {{1, 1}, {1, 1}};
  EXPECT_EQ(timerfd_gettime(make(), &setting), 0);
  EXPECT_EQ(setting.it_value.tv_sec, 0);
  EXPECT_EQ(setting.it_value.tv_nsec, 0);
  EXPECT_EQ(setting.it_interval.tv_sec, 0);
}

TEST_F(Timer, RefusesAsLinuxDoes) {
  const int fd = make();
  const itimerspec wrong = {{0, 0}, {0, 1'000'000'000}};
  EXPECT_EQ(timerfd_settime(fd, 0, &wrong, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(set(fd, 1s, 0us, 128), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(set(nodeFd, 1s), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(timerfd_create(CLOCK_PROCESS_CPUTIME_ID, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  char bytes[8];
  EXPECT_EQ(read(fd, bytes, 7), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(write(fd, bytes, 8), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(TimerDeathTest, NamesWhatIsNotSimulated) {
  const int fd = make();
  EXPECT_DEATH(set(fd, 1s, 0us, TFD_TIMER_CANCEL_ON_SET), "timerfd_settime\\(\\) with TFD_TIMER_CANCEL_ON_SET is not");
  EXPECT_DEATH(make(CLOCK_BOOTTIME_ALARM), "timerfd_create\\(\\) of an alarm is not simulated");
}

TEST_F(TimerDeathTest, NamesADeadlockWhereOnlyAnotherTimerRuns) {
  ASSERT_EQ(set(make(), 100ms, 100ms), 0);
  EXPECT_DEATH(waitFor(nodeFd, -1), "sim: deadlock");
}

// ---- eventfd ------------------------------------------------------------------------------------

using Counter = LoopCalls;

TEST_F(Counter, AddsUpAndIsEmptiedByARead) {
  const int fd = eventfd(2, EFD_NONBLOCK);
  EXPECT_EQ(polled(fd), POLLIN | POLLOUT);
  EXPECT_EQ(eventfd_write(fd, 3), 0);
  EXPECT_EQ(readCount(fd), 5U);
  EXPECT_EQ(polled(fd), POLLOUT);
  eventfd_t count;
  EXPECT_EQ(eventfd_read(fd, &count), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Counter, ASemaphoreGivesOneAtATime) {
  const int fd = eventfd(2, EFD_NONBLOCK | EFD_SEMAPHORE);
  EXPECT_EQ(readCount(fd), 1U);
  EXPECT_EQ(readCount(fd), 1U);
  EXPECT_EQ(polled(fd), POLLOUT);
}

TEST_F(Counter, IsFullBelowTheHighestNumber) {
  const int fd = eventfd(0, EFD_NONBLOCK);
  EXPECT_EQ(eventfd_write(fd, UINT64_MAX), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(eventfd_write(fd, UINT64_MAX - 1), 0);
  EXPECT_EQ(polled(fd), POLLIN);
  EXPECT_EQ(eventfd_write(fd, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(write(fd, "1234567", 7), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Counter, WakesAWait) {
  const int fd = eventfd(0, 0);
  machine.after(7ms, [&] { EXPECT_EQ(eventfd_write(fd, 1), 0); });
  EXPECT_EQ(readCount(fd), 1U);
  EXPECT_EQ(elapsed(), 7ms);
}

// ---- Faults and trace ---------------------------------------------------------------------------

TEST_F(LoopCalls, EachCallFailsAsItIsTold) {
  for (const Call call : {Call::kEpollCreate1, Call::kEpollCtl, Call::kEpollWait, Call::kEventfd, Call::kTimerfdCreate,
                          Call::kTimerfdSettime, Call::kTimerfdGettime}) {
    machine.fail(call, 1, ENOMEM);
  }
  epoll_event event = {};
  itimerspec setting = {};
  EXPECT_EQ(epoll_create1(0), -1);
  EXPECT_EQ(errno, ENOMEM);
  for (const int result : {epoll_ctl(nodeFd, EPOLL_CTL_ADD, 0, &event), epoll_wait(nodeFd, &event, 1, 0), eventfd(0, 0),
                           timerfd_create(CLOCK_MONOTONIC, 0), timerfd_settime(nodeFd, 0, &setting, nullptr),
                           timerfd_gettime(nodeFd, &setting)}) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, ENOMEM);
  }
}

TEST_F(LoopCalls, TraceShowsEveryCallWithItsResult) {
  machine.takeTrace();
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
  const int counter = eventfd(3, EFD_SEMAPHORE | EFD_NONBLOCK);
  itimerspec setting = {{0, 100'000'000}, {1, 0}};
  EXPECT_EQ(timerfd_settime(timer, 0, &setting, nullptr), 0);
  EXPECT_EQ(timerfd_settime(timer, TFD_TIMER_ABSTIME, &setting, nullptr), 0);
  EXPECT_EQ(timerfd_gettime(timer, &setting), 0);
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLET;
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_ADD, counter, &event), 0);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, 250), 1);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, 250), 0);
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_DEL, counter, nullptr), 0);
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_MOD, counter, &event), -1);
  EXPECT_EQ(machine.takeTrace(), Lines({
                                     "epoll_create1(O_CLOEXEC) = 101",
                                     "timerfd_create(CLOCK_MONOTONIC, O_NONBLOCK) = 102",
                                     "eventfd(3, EFD_SEMAPHORE|O_NONBLOCK) = 103",
                                     "timerfd_settime(102, 1.000000, 0.100000) = 0",
                                     "timerfd_settime(102, TFD_TIMER_ABSTIME, 1.000000, 0.100000) = 0",
                                     "timerfd_gettime(102) = 0 [0.100000, 0.100000]",
                                     "epoll_ctl(101, EPOLL_CTL_ADD, 103, EPOLLIN|EPOLLET) = 0",
                                     "epoll_wait(101, 1, 0.250000) = 1 [103 EPOLLIN]",
                                     "epoll_wait(101, 1, 0.250000) = 0",
                                     "epoll_ctl(101, EPOLL_CTL_DEL, 103) = 0",
                                     "epoll_ctl(101, EPOLL_CTL_MOD, 103, EPOLLIN) = -1 ENOENT",
                                 }));
}

}  // namespace
}  // namespace quarlo::sim
