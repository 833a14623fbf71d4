// How a trace of the simulated machine names what a call was given and gave: as the headers of Linux do.
#include "sim/trace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <string>
#include <utility>

namespace quarlo::sim {
namespace {

using namespace std::chrono_literals;

constexpr int kNobodysFlag = 0x40000000;

std::string pollText(int events) {
  const pollfd entry = {7, static_cast<short>(events), 0};
  return pollEntries(&entry, 1, &pollfd::events);
}

TEST(TraceText, OfOpensFlags) {
  EXPECT_EQ(openFlags(O_RDONLY), "O_RDONLY");
  EXPECT_EQ(openFlags(O_WRONLY | O_NONBLOCK), "O_WRONLY|O_NONBLOCK");
  EXPECT_EQ(openFlags(O_RDWR | O_NONBLOCK | O_CLOEXEC), "O_RDWR|O_NONBLOCK|O_CLOEXEC");
  EXPECT_EQ(openFlags(O_RDONLY | kNobodysFlag), "O_RDONLY|0x40000000");
}

TEST(TraceText, OfASocketsType) {
  EXPECT_EQ(socketType(SOCK_STREAM), "SOCK_STREAM");
  EXPECT_EQ(socketType(SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC), "SOCK_STREAM|SOCK_NONBLOCK|SOCK_CLOEXEC");
  EXPECT_EQ(socketType(SOCK_DGRAM | SOCK_CLOEXEC), std::to_string(SOCK_DGRAM) + "|SOCK_CLOEXEC");
}

TEST(TraceText, OfADescriptorsFlags) {
  EXPECT_EQ(descriptorFlags(0), "0");
  EXPECT_EQ(descriptorFlags(O_CLOEXEC), "O_CLOEXEC");
  EXPECT_EQ(descriptorFlags(O_NONBLOCK | O_CLOEXEC | kNobodysFlag), "O_NONBLOCK|O_CLOEXEC|0x40000000");
}

TEST(TraceText, OfRecvsFlags) {
  EXPECT_EQ(receiveFlags(0), "0");
  EXPECT_EQ(receiveFlags(MSG_PEEK | MSG_DONTWAIT | MSG_NOSIGNAL | kNobodysFlag),
            "MSG_PEEK|MSG_DONTWAIT|MSG_NOSIGNAL|0x40000000");
}

TEST(TraceText, OfAnIoctlsRequest) {
  const std::pair<unsigned, const char*> requests[] = {
      {EVIOCGRAB, "EVIOCGRAB, 1"},
      {EVIOCGVERSION, "EVIOCGVERSION"},
      {EVIOCGID, "EVIOCGID"},
      {EVIOCGREP, "EVIOCGREP"},
      {EVIOCSCLOCKID, "EVIOCSCLOCKID"},
      {EVIOCGNAME(20), "EVIOCGNAME(20)"},
      {EVIOCGPHYS(20), "EVIOCGPHYS(20)"},
      {EVIOCGUNIQ(20), "EVIOCGUNIQ(20)"},
      {EVIOCGPROP(8), "EVIOCGPROP(8)"},
      {EVIOCGKEY(96), "EVIOCGKEY(96)"},
      {EVIOCGLED(16), "EVIOCGLED(16)"},
      {EVIOCGSND(16), "EVIOCGSND(16)"},
      {EVIOCGSW(16), "EVIOCGSW(16)"},
      {EVIOCGBIT(0, 31), "EVIOCGBIT(0, 31)"},
      {EVIOCGBIT(EV_KEY, 96), "EVIOCGBIT(EV_KEY, 96)"},
      {EVIOCGBIT(EV_REL, 2), "EVIOCGBIT(EV_REL, 2)"},
      {EVIOCGBIT(EV_ABS, 8), "EVIOCGBIT(EV_ABS, 8)"},
      {EVIOCGBIT(EV_MAX, 8), "EVIOCGBIT(31, 8)"},
      {EVIOCGABS(0), "EVIOCGABS(0)"},
      {EVIOCGABS(ABS_MAX), "EVIOCGABS(63)"},
  };
  for (const auto& [request, text] : requests) EXPECT_EQ(ioctlRequest(request, 1), text);
}

TEST(TraceText, OfAnotherRequestIsItsNumber) {
  // But for the letter, the second and third are like EVIOCGBIT and EVIOCGABS.
  for (const unsigned request : std::initializer_list<unsigned>{FIONREAD, _IOR('F', 0x20, int), _IOR('F', 0x40, int)}) {
    char number[16];
    std::snprintf(number, sizeof number, "0x%x", request);
    EXPECT_EQ(ioctlRequest(request, 1), number);
  }
}

TEST(TraceText, OfReadsAndSelects) {
  EXPECT_EQ(byteCount(sizeof(input_event)), "1 record");
  EXPECT_EQ(byteCount(2 * sizeof(input_event)), std::to_string(2 * sizeof(input_event)));
  fd_set set;
  FD_ZERO(&set);
  for (const int fd : {3, 5, FD_SETSIZE - 1}) FD_SET(fd, &set);
  EXPECT_EQ(descriptorSet(5, &set), "[3]");
  EXPECT_EQ(descriptorSet(6, &set), "[3 5]");
  EXPECT_EQ(descriptorSet(FD_SETSIZE + 1, &set), "[3 5 1023]");
}

TEST(TraceText, OfPollsEvents) {
  EXPECT_EQ(pollText(0), "[7 0]");
  EXPECT_EQ(pollText(POLLIN | POLLPRI | POLLOUT | POLLERR), "[7 POLLIN|POLLPRI|POLLOUT|POLLERR]");
  EXPECT_EQ(pollText(POLLHUP | POLLRDHUP | POLLNVAL), "[7 POLLHUP|POLLRDHUP|POLLNVAL]");
  EXPECT_EQ(pollText(POLLIN | POLLRDNORM), "[7 POLLIN|0x40]");
}

TEST(TraceText, OfWhatAPollFoundLeavesOutTheOthers) {
  const pollfd entries[] = {{3, POLLIN, POLLIN}, {4, POLLIN, 0}, {5, POLLIN, POLLERR}};
  EXPECT_EQ(pollEntries(entries, 3, &pollfd::events), "[3 POLLIN, 4 POLLIN, 5 POLLIN]");
  EXPECT_EQ(pollEntries(entries, 3, &pollfd::revents), "[3 POLLIN, 5 POLLERR]");
}

TEST(TraceText, OfEpolls) {
  EXPECT_EQ(epollEvents(0), "0");
  EXPECT_EQ(epollEvents(EPOLLIN | EPOLLPRI | EPOLLOUT | EPOLLERR | EPOLLHUP | EPOLLRDHUP),
            "EPOLLIN|EPOLLPRI|EPOLLOUT|EPOLLERR|EPOLLHUP|EPOLLRDHUP");
  EXPECT_EQ(epollEvents(EPOLLONESHOT | EPOLLET | EPOLLWAKEUP), "EPOLLONESHOT|EPOLLET|0x20000000");
  EXPECT_EQ(epollOperation(EPOLL_CTL_ADD), "EPOLL_CTL_ADD");
  EXPECT_EQ(epollOperation(EPOLL_CTL_MOD), "EPOLL_CTL_MOD");
  EXPECT_EQ(epollOperation(EPOLL_CTL_DEL), "EPOLL_CTL_DEL");
  EXPECT_EQ(epollOperation(9), "9");
}

TEST(TraceText, OfClocks) {
  EXPECT_EQ(clockName(CLOCK_REALTIME), "CLOCK_REALTIME");
  EXPECT_EQ(clockName(CLOCK_REALTIME_COARSE), "CLOCK_REALTIME_COARSE");
  EXPECT_EQ(clockName(CLOCK_TAI), "CLOCK_TAI");
  EXPECT_EQ(clockName(CLOCK_MONOTONIC), "CLOCK_MONOTONIC");
  EXPECT_EQ(clockName(CLOCK_MONOTONIC_RAW), "CLOCK_MONOTONIC_RAW");
  EXPECT_EQ(clockName(CLOCK_MONOTONIC_COARSE), "CLOCK_MONOTONIC_COARSE");
  EXPECT_EQ(clockName(CLOCK_BOOTTIME), "CLOCK_BOOTTIME");
  EXPECT_EQ(clockName(CLOCK_PROCESS_CPUTIME_ID), "2");
}

TEST(TraceText, OfTimes) {
  EXPECT_EQ(seconds(std::nullopt), "forever");
  EXPECT_EQ(seconds(0us), "0.000000");
  EXPECT_EQ(seconds(12s + 34us), "12.000034");
}

TEST(TraceText, OfResults) {
  EXPECT_EQ(callResult(0, EIO), "0");
  EXPECT_EQ(callResult(7, EIO), "7");
  EXPECT_EQ(callResult(-1, EIO), "-1 EIO");
  EXPECT_EQ(callResult(-1, 9999), "-1 9999");
}

TEST(TraceText, OfErrors) {
  for (const int error : {EPERM, EAGAIN, ENODEV, ETIMEDOUT, EHWPOISON})
    EXPECT_EQ(errorName(error), strerrorname_np(error));
  EXPECT_EQ(errorName(0), "0");
}

}  // namespace
}  // namespace quarlo::sim
