// What holds of each call that reaches the simulated machine: it is counted, it can fail, it is in the trace, and it
// takes the time that is said.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr char kNode[] = "/dev/input/event0";

// One that goes well, or fails as all of these do: with -1 and an errno.
struct MadeCall {
  Call call;
  std::string name;
  std::function<long()> make;
  bool waits = false;  // or sleeps, but here for no time
};

class EachCallTest : public testing::Test {
 protected:
  EachCallTest() {
    machine_.addNode(kNode, Device::keyboard());
    machine_.setEnvironment("LIRC_REPEAT_TIMEOUT", "1");
    node_ = open(kNode, O_RDONLY | O_NONBLOCK);
    socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    epoll_ = epoll_create1(0);
    timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    counter_ = eventfd(1, EFD_NONBLOCK);
    entry_.fd = timer_;
    EXPECT_EQ(connectSocket(), 0);
    daemon_.sendText("a line\n");
    machine_.takeTrace();
  }

  long connectSocket() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string("/dev/lircd").copy(address.sun_path, sizeof address.sun_path - 1);
    return connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  std::vector<MadeCall> calls() {
    return {
        {Call::kOpen, "open", [] { return long{open(kNode, O_RDONLY | O_NONBLOCK)}; }},
        {Call::kClose, "close", [this] { return long{close(std::exchange(spare_, -1))}; }},
        {Call::kFstat, "fstat", [this] { return long{fstat(node_, &status_)}; }},
        {Call::kRead, "read", [this] { return long{read(socket_, bytes_, 1)}; }},
        {Call::kRecv, "recv", [this] { return long{recv(socket_, bytes_, 1, MSG_DONTWAIT)}; }},
        {Call::kWrite, "write", [this] { return long{write(counter_, bytes_, sizeof bytes_)}; }},
        {Call::kPipe2, "pipe2", [this] { return long{pipe2(ends_, O_NONBLOCK)}; }},
        {Call::kIoctl, "ioctl", [this] { return long{ioctl(node_, EVIOCGVERSION, bytes_)}; }},
        {Call::kSelect, "select", [this] { return long{select(0, nullptr, nullptr, nullptr, &noTime_)}; }, true},
        {Call::kPoll, "poll", [this] { return long{poll(&entry_, 1, 0)}; }, true},
        {Call::kPpoll, "ppoll", [this] { return long{ppoll(&entry_, 1, &noTimeAtAll_, nullptr)}; }, true},
        {Call::kEpollCreate1, "epoll_create1", [] { return long{epoll_create1(0)}; }},
        {Call::kEpollCtl, "epoll_ctl", [this] { return long{epoll_ctl(epoll_, EPOLL_CTL_ADD, node_, &event_)}; }},
        {Call::kEpollWait, "epoll_wait", [this] { return long{epoll_wait(epoll_, &event_, 1, 0)}; }, true},
        {Call::kEventfd, "eventfd", [] { return long{eventfd(0, 0)}; }},
        {Call::kTimerfdCreate, "timerfd_create", [] { return long{timerfd_create(CLOCK_MONOTONIC, 0)}; }},
        {Call::kTimerfdSettime, "timerfd_settime",
         [this] { return long{timerfd_settime(timer_, 0, &setting_, nullptr)}; }},
        {Call::kTimerfdGettime, "timerfd_gettime", [this] { return long{timerfd_gettime(timer_, &setting_)}; }},
        {Call::kNanosleep, "nanosleep", [this] { return long{nanosleep(&noTimeAtAll_, nullptr)}; }, true},
        {Call::kClockNanosleep, "clock_nanosleep", [this] { return sleepOnAClock(); }, true},
        {Call::kUsleep, "usleep", [] { return long{usleep(0)}; }, true},
        {Call::kSocket, "socket", [] { return long{socket(AF_UNIX, SOCK_STREAM, 0)}; }},
        {Call::kConnect, "connect", [this] { return reconnect(); }},
        {Call::kGettimeofday, "gettimeofday", [this] { return long{gettimeofday(&now_, nullptr)}; }},
        {Call::kClockGettime, "clock_gettime", [] { return askAClock(); }},
    };
  }

  // It returns its errno.
  long sleepOnAClock() const {
    errno = clock_nanosleep(CLOCK_MONOTONIC, 0, &noTimeAtAll_, nullptr);
    return errno == 0 ? 0 : -1;
  }

  long reconnect() {
    socket_ = spareSocket_;
    return connectSocket();
  }

  static long askAClock() {
    timespec time = {};
    return clock_gettime(CLOCK_MONOTONIC, &time);
  }

  Machine machine_;
  LircDaemon& daemon_ = machine_.addLircDaemon("/dev/lircd");
  int spare_ = eventfd(0, 0);
  int spareSocket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  int node_ = -1;
  int socket_ = -1;
  int epoll_ = -1;
  int timer_ = -1;
  int counter_ = -1;
  int ends_[2] = {-1, -1};
  char bytes_[8] = {};
  struct stat status_ = {};
  pollfd entry_ = {-1, POLLIN, 0};
  epoll_event event_ = {};
  itimerspec setting_ = {};
  timeval now_ = {0, 0};
  timeval noTime_ = {0, 0};
  timespec noTimeAtAll_ = {0, 0};
};

TEST_F(EachCallTest, IsCountedAndInTheTraceOnce) {
  for (const MadeCall& made : calls()) {
    const int before = machine_.count(made.call);
    EXPECT_NE(made.make(), -1) << made.name;
    EXPECT_EQ(machine_.count(made.call), before + 1) << made.name;
    const Lines trace = machine_.takeTrace();
    ASSERT_EQ(trace.size(), 1U) << made.name;
    EXPECT_EQ(trace[0].substr(0, trace[0].find('(')), made.name);
  }
}

TEST_F(EachCallTest, IsNotInTheTraceWhenThatIsOff) {
  machine_.setTracing(false);
  for (const MadeCall& made : calls()) {
    made.make();
    EXPECT_EQ(machine_.takeTrace(), Lines({})) << made.name;
  }
  getenv("LIRC_REPEAT_TIMEOUT");
  EXPECT_EQ(machine_.takeTrace(), Lines({}));
}

TEST_F(EachCallTest, FailsOnceAsItIsTold) {
  for (const MadeCall& made : calls()) {
    const int before = machine_.count(made.call);
    const int open = machine_.openDescriptors();
    machine_.fail(made.call, 1, ENOMEM);
    EXPECT_EQ(made.make(), -1) << made.name;
    EXPECT_EQ(errno, ENOMEM) << made.name;
    EXPECT_EQ(machine_.count(made.call), before + 1) << made.name;
    EXPECT_EQ(machine_.openDescriptors(), made.call == Call::kClose ? open - 1 : open) << made.name;
    const Lines trace = machine_.takeTrace();
    ASSERT_EQ(trace.size(), 1U) << made.name;
    EXPECT_EQ(trace[0].substr(trace[0].rfind(' ')), " ENOMEM") << made.name;
    const bool isDone = made.call == Call::kClose;  // though it failed
    EXPECT_EQ(made.make() == -1, isDone) << made.name;
    machine_.takeTrace();
  }
}

TEST_F(EachCallTest, TakesNoTimeUnlessItWaits) {
  for (const MadeCall& made : calls()) {
    const microseconds start = machine_.now();
    made.make();
    EXPECT_EQ(machine_.now() - start, made.waits ? 10us : 0us) << made.name;
  }
}

TEST_F(EachCallTest, TakesTheTimeThatIsSet) {
  for (const microseconds time : {3us, 0us}) {
    machine_.setCallTime(time);
    for (const MadeCall& made : calls()) {
      const microseconds start = machine_.now();
      made.make();
      EXPECT_EQ(machine_.now() - start, time) << made.name;
    }
  }
}

// ---- Descriptors --------------------------------------------------------------------------------

TEST_F(EachCallTest, RefusesADescriptorThatIsClosed) {
  for (const int fd : {node_, socket_, epoll_, timer_, counter_}) close(fd);
  spareSocket_ = socket_;
  for (const MadeCall& made : calls()) {
    switch (made.call) {
      case Call::kFstat:
      case Call::kRead:
      case Call::kRecv:
      case Call::kWrite:
      case Call::kIoctl:
      case Call::kEpollCtl:
      case Call::kEpollWait:
      case Call::kTimerfdSettime:
      case Call::kTimerfdGettime:
      case Call::kConnect:
        EXPECT_EQ(made.make(), -1) << made.name;
        EXPECT_EQ(errno, EBADF) << made.name;
        break;
      default: break;
    }
  }
}

TEST_F(EachCallTest, RefusesADescriptorOfAnotherKind) {
  socket_ = spareSocket_ = counter_;
  EXPECT_EQ(connectSocket(), -1);
  EXPECT_EQ(errno, ENOTSOCK);
  EXPECT_EQ(recv(counter_, bytes_, 1, 0), -1);
  EXPECT_EQ(errno, ENOTSOCK);
  EXPECT_EQ(ioctl(counter_, EVIOCGVERSION, bytes_), -1);
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(epoll_wait(counter_, &event_, 1, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(timerfd_gettime(counter_, &setting_), -1);
  EXPECT_EQ(errno, EINVAL);
}

// ---- What is said of a mistake ------------------------------------------------------------------

std::string deadlockOf(const std::string& wait) { return "sim: deadlock: " + wait + " would wait forever, since "; }

using EachCallDeathTest = EachCallTest;

TEST_F(EachCallDeathTest, NamesItselfWhenItWouldWaitForever) {
  const int blocking = open(kNode, O_RDONLY);
  int full[2];
  ASSERT_EQ(pipe2(full, 0), 0);
  const std::vector<char> much(65536);
  ASSERT_EQ(write(full[1], much.data(), much.size()), 65536);
  const std::string number = std::to_string(blocking);
  EXPECT_DEATH(static_cast<void>(read(blocking, bytes_, sizeof bytes_)), deadlockOf("read\\(" + number + "\\)"));
  EXPECT_DEATH(static_cast<void>(write(full[1], "x", 1)), deadlockOf("write\\(" + std::to_string(full[1]) + "\\)"));
  EXPECT_DEATH(select(0, nullptr, nullptr, nullptr, nullptr), deadlockOf("select\\(\\) on nothing"));
  EXPECT_DEATH(ppoll(&entry_, 1, nullptr, nullptr),
               deadlockOf("ppoll\\(\\) on \\[" + std::to_string(timer_) + " POLLIN\\]"));
  EXPECT_DEATH(epoll_wait(epoll_, &event_, 1, -1), deadlockOf("epoll_wait\\(\\) on \\[\\]"));
  ASSERT_EQ(recv(socket_, bytes_, 7, 0), 7);
  close(socket_);
  socket_ = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(connectSocket(), 0);
  EXPECT_DEATH(static_cast<void>(recv(socket_, bytes_, 1, 0)), deadlockOf("recv\\(" + std::to_string(socket_) + "\\)"));
}

TEST_F(EachCallDeathTest, NamesFlagsThatAreNotSimulated) {
  EXPECT_DEATH(pipe2(ends_, O_DIRECT | O_CLOEXEC), "sim: pipe2\\(\\) with O_CLOEXEC\\|0x[0-9a-f]+ is not simulated\n");
  EXPECT_DEATH(static_cast<void>(write(node_, bytes_, 1)), "sim: write\\(\\) to a node is not simulated\n");
  EXPECT_DEATH(static_cast<void>(write(socket_, bytes_, 1)), "sim: write\\(\\) to a daemon is not simulated\n");
}

// ---- Parts of a transfer ------------------------------------------------------------------------

TEST_F(EachCallTest, ARecvThatIsCutToNothingGivesThatAtOnce) {
  ASSERT_EQ(recv(socket_, bytes_, 7, 0), 7);
  machine_.truncateRead(1, 0, Call::kRecv);
  EXPECT_EQ(recv(socket_, bytes_, 1, 0), 0);
}

TEST_F(EachCallTest, AWriteThatIsInterruptedSaysWhatWasWritten) {
  ASSERT_EQ(pipe2(ends_, 0), 0);
  const std::vector<char> much(70'000);
  machine_.signalAfter(1s);
  EXPECT_EQ(write(ends_[1], much.data(), much.size()), 65536);
  machine_.signalAfter(1s);
  EXPECT_EQ(write(ends_[1], much.data(), much.size()), -1);
  EXPECT_EQ(errno, EINTR);
}

TEST_F(EachCallTest, ASelectThatFindsNothingShowsNoDescriptors) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(timer_, &set);
  const std::string number = std::to_string(timer_);
  EXPECT_EQ(select(timer_ + 1, &set, nullptr, nullptr, &noTime_), 0);
  EXPECT_EQ(machine_.takeTrace(),
            Lines({"select(" + std::to_string(timer_ + 1) + ", [" + number + "], 0.000000) = 0"}));
}

TEST_F(EachCallTest, RefusesFlagsThatACounterDoesNotHave) {
  EXPECT_EQ(eventfd(0, 4), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EachCallTest, ThatWaitsIsInterruptedByTheFirstSignalToo) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGHUP);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  const auto handler = std::signal(SIGHUP, [](int) {});
  std::raise(SIGHUP);
  EXPECT_EQ(ppoll(&entry_, 1, &noTimeAtAll_, &before), -1);
  EXPECT_EQ(errno, EINTR);
  std::signal(SIGHUP, handler);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(EachCallTest, EdgeTriggeredTellsThatADaemonHungUpWhateverItIsAskedFor) {
  epoll_event event = {};
  event.events = EPOLLRDHUP | static_cast<unsigned>(EPOLLET);
  ASSERT_EQ(epoll_ctl(epoll_, EPOLL_CTL_ADD, socket_, &event), 0);
  daemon_.hangUp();
  EXPECT_EQ(epoll_wait(epoll_, &event, 1, 0), 1);
  EXPECT_EQ(event.events, unsigned{EPOLLRDHUP | EPOLLHUP});
}

TEST_F(EachCallTest, OfGetenvGivesNothingWhenItFails) {
  machine_.fail(Call::kGetenv, 2, ENOMEM);
  EXPECT_STREQ(getenv("LIRC_REPEAT_TIMEOUT"), "1");
  EXPECT_EQ(getenv("LIRC_REPEAT_TIMEOUT"), nullptr);
  EXPECT_EQ(getenv("LIRC_RELEASE_TIMEOUT"), nullptr);
  EXPECT_EQ(machine_.count(Call::kGetenv), 3);
  EXPECT_EQ(machine_.takeTrace(),
            Lines({"getenv(\"LIRC_REPEAT_TIMEOUT\") = \"1\"", "getenv(\"LIRC_REPEAT_TIMEOUT\") = null",
                   "getenv(\"LIRC_RELEASE_TIMEOUT\") = null"}));
}

}  // namespace
}  // namespace quarlo::sim
