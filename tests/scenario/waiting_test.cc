// What the calls that wait say of nodes, of a daemon, and of what else an event loop waits for.
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

constexpr int kAMomentMs = 2000;
constexpr unsigned kEdge = EPOLLET;

// A descriptor that is closed at the end.
class Opened {
 public:
  explicit Opened(int fd) : fd_(fd) { EXPECT_GE(fd, 0) << std::strerror(errno); }
  ~Opened() { end(); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  operator int() const { return fd_; }

  void end() {
    if (fd_ != -1) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

int openedNode(const Plugged& device) { return open(device.path().c_str(), O_RDONLY | O_NONBLOCK); }

int connectedTo(const Remote& remote) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, remote.socketPath().c_str(), sizeof address.sun_path - 1);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

// What poll() says after a moment at most, with all its events asked for.
int polled(int fd, int timeoutMs = 0) {
  pollfd entry = {fd, POLLIN | POLLPRI | POLLOUT | POLLRDHUP, -1};
  const int found = poll(&entry, 1, timeoutMs);
  EXPECT_EQ(found, entry.revents != 0 ? 1 : 0);
  return entry.revents;
}

std::string error(ssize_t result) { return result == -1 ? std::strerror(errno) : "none"; }

void readAll(int fd) {
  char bytes[4096];
  while (read(fd, bytes, sizeof bytes) > 0) {
  }
  EXPECT_EQ(errno, EAGAIN);
}

std::uint64_t readCount(int fd) {
  std::uint64_t count = 0;
  EXPECT_EQ(read(fd, &count, sizeof count), static_cast<ssize_t>(sizeof count));
  return count;
}

class WaitingTest : public ScenarioTest {
 protected:
  Plugged& device = world->plug(keyboard());
  Opened node{openedNode(device)};
};

// ---- poll ---------------------------------------------------------------------------------------

TEST_F(WaitingTest, PollSaysThatANodeHasRecords) {
  EXPECT_EQ(polled(node), POLLOUT);
  device.press(KEY_A);
  EXPECT_EQ(polled(node), POLLIN | POLLOUT);
  readAll(node);
  EXPECT_EQ(polled(node), POLLOUT);
}

TEST_F(WaitingTest, PollSaysThatANodeIsGone) {
  device.unplug();
  EXPECT_EQ(polled(node), POLLERR | POLLHUP);
}

TEST_F(WaitingTest, PollStillSeesWhatANodeThatIsGoneHadQueued) {
  device.press(KEY_A);
  device.unplug();
  EXPECT_EQ(polled(node), POLLIN | POLLERR | POLLHUP);
  char bytes[100];
  EXPECT_EQ(error(read(node, bytes, sizeof bytes)), std::strerror(ENODEV));
}

TEST_F(WaitingTest, PollSaysThatADaemonHasEnded) {
  Remote& remote = world->startDaemon();
  Opened lirc(connectedTo(remote));
  EXPECT_EQ(polled(lirc), POLLOUT);
  remote.send("KEY_OK", 0);
  EXPECT_EQ(polled(lirc), POLLIN | POLLOUT);
  readAll(lirc);
  remote.stop();
  EXPECT_EQ(polled(lirc), POLLIN | POLLOUT | POLLHUP | POLLRDHUP);
}

TEST_F(WaitingTest, PollSaysThatADescriptorIsClosedOrWasNeverConnected) {
  const int fd = node;
  node.end();
  EXPECT_EQ(polled(fd), POLLNVAL);
  EXPECT_EQ(polled(Opened(socket(AF_UNIX, SOCK_STREAM, 0))), POLLOUT | POLLHUP);
  EXPECT_EQ(polled(-1), 0);
}

// ---- recv ---------------------------------------------------------------------------------------

TEST_F(WaitingTest, ALineThatWasPeekedAtIsStillThere) {
  Remote& remote = world->startDaemon();
  Opened lirc(connectedTo(remote));
  remote.send("KEY_OK", 0);
  char first[100] = {};
  char second[100] = {};
  EXPECT_GT(recv(lirc, first, sizeof first, MSG_PEEK), 0);
  EXPECT_GT(recv(lirc, second, sizeof second, MSG_DONTWAIT), 0);
  EXPECT_STREQ(first, second);
  EXPECT_EQ(error(recv(lirc, second, sizeof second, MSG_PEEK | MSG_DONTWAIT)), std::strerror(EAGAIN));
  EXPECT_EQ(error(recv(node, second, sizeof second, 0)), std::strerror(ENOTSOCK));
}

// ---- epoll --------------------------------------------------------------------------------------

class EpollTest : public WaitingTest {
 protected:
  int control(int operation, int fd, unsigned events) const {
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(epoll, operation, fd, &event);
  }

  // What is ready, such as "node 1": events in hexadecimal.
  Lines ready(int timeoutMs = 0, int room = 8) const {
    epoll_event events[8];
    const int count = epoll_wait(epoll, events, room, timeoutMs);
    EXPECT_NE(count, -1) << std::strerror(errno);
    Lines lines;
    for (int i = 0; i < count; ++i) {
      const unsigned what = events[i].events;
      char text[32];
      std::snprintf(text, sizeof text, "%s %x", events[i].data.fd == node ? "node" : "other", what);
      lines.emplace_back(text);
    }
    return lines;
  }

  Opened epoll{epoll_create1(EPOLL_CLOEXEC)};
};

const Lines kNothing;
const Lines kNode = {"node 1"};
const Lines kOther = {"other 1"};

TEST_F(EpollTest, LevelTriggeredTellsAgainAsLongAsSomethingIsLeft) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN), 0);
  EXPECT_EQ(ready(), kNothing);
  device.press(KEY_A);
  EXPECT_EQ(ready(), kNode);
  EXPECT_EQ(ready(), kNode);
  readAll(node);
  EXPECT_EQ(ready(), kNothing);
}

TEST_F(EpollTest, EdgeTriggeredTellsOnceForEachReportWhateverIsLeft) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN | kEdge), 0);
  device.tap(KEY_A);
  EXPECT_EQ(ready(), kNode);
  char bytes[sizeof(input_event)];
  EXPECT_GT(read(node, bytes, sizeof bytes), 0);
  EXPECT_EQ(ready(100), kNothing);
  device.press(KEY_B);
  EXPECT_EQ(ready(), kNode);
}

TEST_F(EpollTest, EdgeTriggeredTellsWhatIsThereWhenItIsAddedOrChanged) {
  device.tap(KEY_A);
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN | kEdge), 0);
  EXPECT_EQ(ready(), kNode);
  EXPECT_EQ(ready(), kNothing);
  ASSERT_EQ(control(EPOLL_CTL_MOD, node, EPOLLIN | kEdge), 0);
  EXPECT_EQ(ready(), kNode);
}

TEST_F(EpollTest, OneShotTellsOnceUntilItIsChanged) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN | EPOLLONESHOT), 0);
  device.tap(KEY_A);
  EXPECT_EQ(ready(), kNode);
  device.tap(KEY_B);
  EXPECT_EQ(ready(), kNothing);
  ASSERT_EQ(control(EPOLL_CTL_MOD, node, EPOLLIN | EPOLLONESHOT), 0);
  EXPECT_EQ(ready(), kNode);
}

TEST_F(EpollTest, TellsOfANodeThatIsGone) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN | kEdge), 0);
  device.unplug();
  EXPECT_EQ(ready(), Lines({"node 18"}));
  EXPECT_EQ(ready(), kNothing);
}

TEST_F(EpollTest, TellsOfADaemonThatHasEnded) {
  Remote& remote = world->startDaemon();
  Opened lirc(connectedTo(remote));
  ASSERT_EQ(control(EPOLL_CTL_ADD, lirc, EPOLLIN | EPOLLRDHUP | kEdge), 0);
  EXPECT_EQ(ready(), kNothing);
  remote.send("KEY_OK", 0);
  EXPECT_EQ(ready(), kOther);
  readAll(lirc);
  remote.stop();
  EXPECT_EQ(ready(), Lines({"other 2011"}));
}

TEST_F(EpollTest, NobodyIsStarvedWhereThereIsRoomForOne) {
  Opened counter(eventfd(1, 0));
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN), 0);
  device.tap(KEY_A);
  ASSERT_EQ(control(EPOLL_CTL_ADD, counter, EPOLLIN), 0);
  EXPECT_EQ(ready(0, 1), kNode);
  EXPECT_EQ(ready(0, 1), kOther);
  EXPECT_EQ(ready(0, 1), kNode);
}

TEST_F(EpollTest, AClosedDescriptorIsForgotten) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN), 0);
  device.tap(KEY_A);
  const int fd = node;
  node.end();
  EXPECT_EQ(ready(), kNothing);
  EXPECT_EQ(error(control(EPOLL_CTL_DEL, fd, 0)), std::strerror(EBADF));
}

TEST_F(EpollTest, RefusesWhatIsThereOrNotAndItself) {
  EXPECT_EQ(error(control(EPOLL_CTL_MOD, node, EPOLLIN)), std::strerror(ENOENT));
  ASSERT_EQ(control(EPOLL_CTL_ADD, node, EPOLLIN), 0);
  EXPECT_EQ(error(control(EPOLL_CTL_ADD, node, EPOLLIN)), std::strerror(EEXIST));
  EXPECT_EQ(error(control(EPOLL_CTL_ADD, epoll, EPOLLIN)), std::strerror(EINVAL));
  ASSERT_EQ(control(EPOLL_CTL_DEL, node, 0), 0);
  EXPECT_EQ(error(control(EPOLL_CTL_DEL, node, 0)), std::strerror(ENOENT));
}

// ---- timerfd ------------------------------------------------------------------------------------

class TimerTest : public EpollTest {
 protected:
  static int set(int fd, milliseconds value, milliseconds interval, int flags = 0) {
    const itimerspec setting = {toTimespec(interval), toTimespec(value)};
    return timerfd_settime(fd, flags, &setting, nullptr);
  }

  static milliseconds clockTime(clockid_t clock) {
    timespec time;
    EXPECT_EQ(clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + milliseconds(time.tv_nsec / 1'000'000);
  }

  Opened timer{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK)};

 private:
  static timespec toTimespec(milliseconds time) {
    timespec result = {};
    result.tv_sec = static_cast<time_t>(time / 1s);
    result.tv_nsec = static_cast<long>(time % 1s / 1ms) * 1'000'000;
    return result;
  }
};

TEST_F(TimerTest, ExpiresOnce) {
  ASSERT_EQ(set(timer, 100ms, 0ms), 0);
  EXPECT_EQ(polled(timer), 0);
  EXPECT_EQ(polled(timer, kAMomentMs), POLLIN);
  EXPECT_EQ(readCount(timer), 1U);
  EXPECT_EQ(polled(timer, kAMomentMs), 0);
  std::uint64_t count;
  EXPECT_EQ(error(read(timer, &count, sizeof count)), std::strerror(EAGAIN));
}

TEST_F(TimerTest, CountsTheExpiriesOfAnInterval) {
  ASSERT_EQ(set(timer, 100ms, 200ms), 0);
  world->pass(600ms);
  EXPECT_EQ(readCount(timer), 3U);
  EXPECT_EQ(polled(timer), 0);
}

TEST_F(TimerTest, EdgeTriggeredTellsNoMoreExpiriesBeforeTheRead) {
  ASSERT_EQ(control(EPOLL_CTL_ADD, timer, EPOLLIN | kEdge), 0);
  ASSERT_EQ(set(timer, 100ms, 200ms), 0);
  EXPECT_EQ(ready(kAMomentMs), kOther);
  EXPECT_EQ(ready(1000), kNothing);
  EXPECT_EQ(readCount(timer), 6U);
  EXPECT_EQ(ready(kAMomentMs), kOther);
}

TEST_F(TimerTest, OnTheWallFollowsTheClock) {
  const milliseconds monotonic = clockTime(CLOCK_MONOTONIC);
  Opened wall(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK));
  Opened relative(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK));
  ASSERT_EQ(set(wall, clockTime(CLOCK_REALTIME) + 1h, 0ms, TFD_TIMER_ABSTIME), 0);
  ASSERT_EQ(set(relative, 1h, 0ms), 0);
  ASSERT_EQ(set(timer, monotonic + 1h, 0ms, TFD_TIMER_ABSTIME), 0);
  world->jumpClock(2h);
  EXPECT_EQ(polled(wall, kAMomentMs), POLLIN);
  EXPECT_EQ(polled(relative), 0);
  EXPECT_EQ(polled(timer), 0);
  EXPECT_LT(clockTime(CLOCK_MONOTONIC), monotonic + 1h);
}

// ---- eventfd and pipes --------------------------------------------------------------------------

TEST_F(WaitingTest, ACounterAddsUpAndIsFullBelowTheHighestNumber) {
  Opened counter(eventfd(2, EFD_NONBLOCK));
  EXPECT_EQ(polled(counter), POLLIN | POLLOUT);
  EXPECT_EQ(eventfd_write(counter, 3), 0);
  EXPECT_EQ(readCount(counter), 5U);
  EXPECT_EQ(polled(counter), POLLOUT);
  EXPECT_EQ(eventfd_write(counter, UINT64_MAX - 1), 0);
  EXPECT_EQ(polled(counter), POLLIN);
  EXPECT_EQ(error(eventfd_write(counter, 1)), std::strerror(EAGAIN));
}

TEST_F(WaitingTest, ASemaphoreGivesOneAtATime) {
  Opened counter(eventfd(2, EFD_NONBLOCK | EFD_SEMAPHORE));
  EXPECT_EQ(readCount(counter), 1U);
  EXPECT_EQ(readCount(counter), 1U);
  EXPECT_EQ(polled(counter), POLLOUT);
}

TEST_F(WaitingTest, APipeHolds16Pages) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  Opened reader(ends[0]);
  Opened writer(ends[1]);
  const std::string page(4096, 'a');
  for (int i = 0; i < 15; ++i) EXPECT_EQ(write(writer, page.data(), page.size()), 4096);
  EXPECT_EQ(polled(writer), POLLOUT);
  const std::string more(5000, 'b');
  EXPECT_EQ(write(writer, more.data(), more.size()), 4096);
  EXPECT_EQ(polled(writer), 0);
  EXPECT_EQ(error(write(writer, "c", 1)), std::strerror(EAGAIN));
  EXPECT_EQ(polled(reader), POLLIN);
}

TEST_F(WaitingTest, APipeSaysThatItsOtherEndIsGone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  Opened reader(ends[0]);
  Opened writer(ends[1]);
  EXPECT_EQ(write(writer, "a", 1), 1);
  writer.end();
  EXPECT_EQ(polled(reader), POLLIN | POLLHUP);

  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  Opened otherReader(ends[0]);
  Opened otherWriter(ends[1]);
  otherReader.end();
  EXPECT_EQ(polled(otherWriter), POLLOUT | POLLERR);
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(error(write(otherWriter, "a", 1)), std::strerror(EPIPE));
  std::signal(SIGPIPE, before);
}

}  // namespace
}  // namespace quarlo::test
