// How calls reach the simulated machine, under whatever name a program calls them, and how all others reach libc.
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
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>
#include <string>

#include "sim/machine.h"

// What hardened headers call. They end the program where there is less space than is asked for.
// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming)
extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t space);
ssize_t __recv_chk(int fd, void* buffer, size_t size, size_t space, int flags);
int __poll_chk(pollfd* entries, nfds_t count, int timeout, size_t space);
int __ppoll_chk(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask, size_t space);
}
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;

constexpr char kNode[] = "/dev/input/event0";
constexpr char kSomeFile[] = "/dev/null";
constexpr char kOverflow[] = "buffer overflow detected";

// A machine, and two ends of a socket of libc's, between which there is a byte.
class SeamTest : public testing::Test {
 protected:
  SeamTest() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_), 0);
    EXPECT_EQ(send(ends_[1], "x", 1, 0), 1);
    machine_.emplace();
    node_ = &machine_->addNode(kNode, Device::keyboard());
  }
  ~SeamTest() override {
    for (const int fd : ends_) close(fd);
  }

  int openNode() { return open(kNode, O_RDONLY | O_NONBLOCK); }

  static std::size_t readTwo(int fd, std::size_t space) {
    input_event records[2];
    return static_cast<std::size_t>(__read_chk(fd, records, sizeof records, space));
  }

  int ends_[2] = {-1, -1};
  std::optional<Machine> machine_;
  Node* node_ = nullptr;
};

using SeamDeathTest = SeamTest;

// ---- Names --------------------------------------------------------------------------------------

TEST_F(SeamTest, ANodeIsOpenedByEachNameOfOpen) {
  EXPECT_EQ(open(kNode, O_RDONLY), 100);
  EXPECT_EQ(open64(kNode, O_RDONLY), 101);
  EXPECT_EQ(__open_2(kNode, O_RDONLY), 102);
  EXPECT_EQ(__open64_2(kNode, O_RDONLY), 103);
  EXPECT_EQ(machine_->count(Call::kOpen), 4);
}

TEST_F(SeamTest, AnotherFileIsLibcsByEachNameOfOpen) {
  for (const int fd : {open(kSomeFile, O_RDONLY), open64(kSomeFile, O_RDONLY), __open_2(kSomeFile, O_RDONLY),
                       __open64_2(kSomeFile, O_RDONLY)}) {
    EXPECT_NE(fd, -1);
    EXPECT_EQ(close(fd), 0);
  }
  EXPECT_EQ(machine_->count(Call::kOpen), 0);
  EXPECT_EQ(machine_->count(Call::kClose), 0);
}

TEST_F(SeamTest, AFileThatIsMadeHasTheModeThatIsAskedFor) {
  const std::string path = testing::TempDir() + "quarlo-seam-" + std::to_string(getpid());
  const mode_t before = umask(0);
  int made = 0;
  for (const mode_t mode : {0640U, 0600U}) {
    const int flags = O_WRONLY | O_CREAT | O_EXCL;
    const int fd = made++ == 0 ? open(path.c_str(), flags, mode) : open64(path.c_str(), flags, mode);
    struct stat status = {};
    EXPECT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, mode);
    close(fd);
    unlink(path.c_str());
  }
  umask(before);
}

TEST_F(SeamTest, AStatusIsToldByEachNameOfFstat) {
  const int fd = openNode();
  struct stat status = {};
  struct stat64 status64 = {};
  EXPECT_EQ(fstat(fd, &status), 0);
  EXPECT_EQ(fstat64(fd, &status64), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  EXPECT_TRUE(S_ISCHR(status64.st_mode));
  EXPECT_EQ(status64.st_rdev, status.st_rdev);
  EXPECT_EQ(fstat(ends_[0], &status), 0);
  EXPECT_EQ(fstat64(ends_[0], &status64), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_TRUE(S_ISSOCK(status64.st_mode));
  EXPECT_EQ(machine_->count(Call::kFstat), 2);
}

TEST_F(SeamTest, ReadsThatAreCheckedReadWhatFits) {
  const int fd = openNode();
  node_->press(KEY_A);
  EXPECT_EQ(readTwo(fd, 2 * sizeof(input_event)), 2 * sizeof(input_event));
  const int lirc = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  char byte = 0;
  EXPECT_EQ(__recv_chk(lirc, &byte, 1, 1, 0), -1);
  EXPECT_EQ(machine_->count(Call::kRead), 1);
  EXPECT_EQ(machine_->count(Call::kRecv), 1);
  EXPECT_EQ(__recv_chk(ends_[0], &byte, 1, 1, MSG_PEEK), 1);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(__read_chk(ends_[0], &byte, 1, 1), 1);
  EXPECT_EQ(machine_->count(Call::kRead), 1);
}

TEST_F(SeamDeathTest, ReadsThatDoNotFitEndTheProgram) {
  const int fd = openNode();
  char byte = 0;
  EXPECT_DEATH(readTwo(fd, 2 * sizeof(input_event) - 1), kOverflow);
  EXPECT_DEATH(__recv_chk(fd, &byte, 2, 1, 0), kOverflow);
}

TEST_F(SeamTest, PollsThatAreCheckedLookAtWhatFits) {
  node_->press(KEY_A);
  pollfd entries[2] = {{openNode(), POLLIN, 0}, {ends_[0], POLLIN, 0}};
  node_->release(KEY_A);
  EXPECT_EQ(__poll_chk(entries, 2, 0, sizeof entries), 2);
  EXPECT_EQ(__ppoll_chk(entries, 2, nullptr, nullptr, sizeof entries), 2);
  EXPECT_EQ(machine_->count(Call::kPoll), 1);
  EXPECT_EQ(machine_->count(Call::kPpoll), 1);
}

TEST_F(SeamDeathTest, PollsThatDoNotFitEndTheProgram) {
  pollfd entries[2] = {{openNode(), POLLIN, 0}, {ends_[0], POLLIN, 0}};
  EXPECT_DEATH(__poll_chk(entries, 2, 0, sizeof entries - 1), kOverflow);
  EXPECT_DEATH(__ppoll_chk(entries, 2, nullptr, nullptr, sizeof entries - 1), kOverflow);
}

int signals = 0;

TEST_F(SeamTest, EpollsMaskLetsASignalThrough) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  const auto handler = std::signal(SIGUSR1, [](int) { ++signals; });
  std::raise(SIGUSR1);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event = {};
  EXPECT_EQ(epoll_pwait(epoll, &event, 1, 10, &blocked), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_EQ(epoll_pwait(epoll, &event, 1, 10, &before), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(signals, 1);
  std::signal(SIGUSR1, handler);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

// ---- Whose a call is ----------------------------------------------------------------------------

TEST_F(SeamTest, WhatIsLibcsStaysThereBesideAMachine) {
  int waiting = 0;
  char text[2] = {};
  EXPECT_EQ(ioctl(ends_[0], FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 1);
  EXPECT_EQ(write(ends_[0], "y", 1), 1);
  EXPECT_EQ(recv(ends_[1], text, sizeof text, 0), 1);
  EXPECT_EQ(read(ends_[0], text + 1, 1), 1);
  EXPECT_EQ(std::string(text, 2), "yx");
  EXPECT_NE(getenv("PATH"), nullptr);
  const int internet = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  EXPECT_EQ(connect(internet, reinterpret_cast<const sockaddr*>(&address), sizeof address), -1);
  EXPECT_NE(errno, EBADF);
  EXPECT_EQ(close(internet), internet == -1 ? -1 : 0);
  for (const Call call : {Call::kIoctl, Call::kWrite, Call::kRecv, Call::kRead, Call::kGetenv, Call::kSocket,
                          Call::kConnect, Call::kClose}) {
    EXPECT_EQ(machine_->count(call), 0) << static_cast<int>(call);
  }
}

TEST_F(SeamTest, WhatWasMadeOutsideIsLibcs) {
  std::optional<Outside> outside(std::in_place);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  const int counter = eventfd(0, EFD_NONBLOCK);
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
  outside.reset();
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = counter;
  EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_ADD, counter, &event), 0);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, 0), 0);
  EXPECT_EQ(eventfd_write(counter, 7), 0);
  EXPECT_EQ(epoll_wait(epoll, &event, 1, 0), 1);
  EXPECT_EQ(epoll_pwait(epoll, &event, 1, 0, nullptr), 1);
  EXPECT_EQ(event.data.fd, counter);
  eventfd_t value = 0;
  EXPECT_EQ(eventfd_read(counter, &value), 0);
  EXPECT_EQ(value, 7U);
  const itimerspec day = {{0, 0}, {86400, 0}};
  itimerspec setting = {};
  EXPECT_EQ(timerfd_settime(timer, 0, &day, nullptr), 0);
  EXPECT_EQ(timerfd_gettime(timer, &setting), 0);
  EXPECT_GT(setting.it_value.tv_sec, 86000);
  for (const int fd : {epoll, counter, timer}) EXPECT_EQ(close(fd), 0);
  for (const Call call : {Call::kEpollCreate1, Call::kEpollCtl, Call::kEpollWait, Call::kEventfd, Call::kRead,
                          Call::kWrite, Call::kTimerfdCreate, Call::kTimerfdSettime, Call::kTimerfdGettime}) {
    EXPECT_EQ(machine_->count(call), 0) << static_cast<int>(call);
  }
}

TEST_F(SeamTest, WithoutAMachineAllIsLibcs) {
  machine_.reset();
  pollfd entry = {ends_[0], POLLIN, 0};
  timespec none = {0, 0};
  timeval now = {0, 0};
  fd_set set;
  FD_ZERO(&set);
  FD_SET(ends_[0], &set);
  EXPECT_EQ(select(ends_[0] + 1, &set, nullptr, nullptr, &now), 1);
  EXPECT_EQ(poll(&entry, 1, 0), 1);
  EXPECT_EQ(ppoll(&entry, 1, &none, nullptr), 1);
  EXPECT_EQ(gettimeofday(&now, nullptr), 0);
  EXPECT_GT(now.tv_sec, 1'000'000'000);  // the machine's clock starts long before
  EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &none), 0);
  EXPECT_GE(none.tv_sec, now.tv_sec);
  none = {0, 0};
  EXPECT_EQ(nanosleep(&none, nullptr), 0);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &none, nullptr), 0);
  EXPECT_EQ(usleep(0), 0);
  int ends[2];
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const int lirc = socket(AF_UNIX, SOCK_STREAM, 0);
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  const int counter = eventfd(0, EFD_NONBLOCK);
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
  for (const int fd : {ends[0], ends[1], lirc, epoll, counter, timer}) {
    EXPECT_NE(fcntl(fd, F_GETFD), -1) << fd;  // which the machine's descriptors do not know
    EXPECT_EQ(close(fd), 0);
  }
}

// ---- Times --------------------------------------------------------------------------------------

TEST_F(SeamTest, ATimeThatIsNoneIsRefused) {
  for (const timespec time : {timespec{-1, 0}, timespec{0, -1}, timespec{0, 1'000'000'000}}) {
    EXPECT_EQ(nanosleep(&time, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr), EINVAL);
  }
  for (const timeval time : {timeval{-1, 0}, timeval{0, -1}}) {
    timeval timeout = time;
    EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &timeout), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(timeout.tv_sec, time.tv_sec);
    EXPECT_EQ(timeout.tv_usec, time.tv_usec);
  }
}

TEST_F(SeamTest, NanosecondsAreRoundedUp) {
  const microseconds start = machine_->now();
  for (const long nanoseconds : {1L, 1000L, 1001L, 999'999'999L}) {
    const timespec time = {0, nanoseconds};
    EXPECT_EQ(nanosleep(&time, nullptr), 0);
  }
  EXPECT_EQ(machine_->now() - start, 1us + 1us + 2us + 1s);
}

TEST_F(SeamTest, TheLongestTimeIsAsGoodAsForever) {
  const timespec longest = {std::numeric_limits<time_t>::max(), 999'999'999};
  timeval timeout = {std::numeric_limits<time_t>::max(), 999'999};
  const microseconds start = machine_->now();
  machine_->signalAfter(1s);
  EXPECT_EQ(nanosleep(&longest, nullptr), -1);
  EXPECT_EQ(errno, EINTR);
  machine_->signalAfter(1s);
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &timeout), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(machine_->now() - start, 2s);
}

TEST_F(SeamTest, ASleepThatIsInterruptedSaysWhatIsLeftOfIt) {
  const timespec time = {3, 500'000'000};
  timespec left = {7, 7};
  machine_->signalAfter(1250ms);
  EXPECT_EQ(nanosleep(&time, &left), -1);
  EXPECT_EQ(left.tv_sec, 2);
  EXPECT_EQ(left.tv_nsec, 250'000'000);
  machine_->signalAfter(1s);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, &left), EINTR);
  EXPECT_EQ(left.tv_nsec, 500'000'000);
}

TEST_F(SeamTest, ASleepThatIsNotInterruptedOrHasAnEndSaysNothing) {
  timespec left = {7, 7};
  const timespec time = {1, 0};
  EXPECT_EQ(nanosleep(&time, &left), 0);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &time, &left), 0);
  const timespec end = {static_cast<time_t>(machine_->now() / 1s) + 9, 0};
  machine_->signalAfter(1s);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, &left), EINTR);
  EXPECT_EQ(left.tv_sec, 7);
  EXPECT_EQ(left.tv_nsec, 7);
}

TEST_F(SeamTest, ATimerSaysWhatItWasSetTo) {
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
  const itimerspec first = {{1, 500'000'000}, {2, 250'000'000}};
  const itimerspec second = {{0, 0}, {9, 0}};
  itimerspec before = {};
  itimerspec now = {};
  EXPECT_EQ(timerfd_settime(timer, 0, &first, nullptr), 0);
  EXPECT_EQ(timerfd_gettime(timer, &now), 0);
  EXPECT_EQ(timerfd_settime(timer, 0, &second, &before), 0);
  for (const itimerspec& told : {now, before}) {
    EXPECT_EQ(told.it_value.tv_sec, 2);
    EXPECT_EQ(told.it_value.tv_nsec, 250'000'000);
    EXPECT_EQ(told.it_interval.tv_sec, 1);
    EXPECT_EQ(told.it_interval.tv_nsec, 500'000'000);
  }
}

}  // namespace
}  // namespace quarlo::sim
