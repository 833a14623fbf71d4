// Where the linker's --wrap sends a program's calls (sim/wrapped_calls.txt): to the simulated machine for what belongs
// to it, and on to libc for everything else.
//
// On a 32-bit machine, calls that have to do with time exist twice: with libc's headers for 64-bit time, they have
// other names. A program can need both, since a static libstdc++ keeps to the plain ones.

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>

#include "sim/kernel.h"

using quarlo::sim::Kernel;
using quarlo::sim::microseconds;
using quarlo::sim::TimerSetting;

namespace {

// ---- Times --------------------------------------------------------------------------------------

// NOLINTBEGIN(readability-identifier-naming): the system's own names
struct PlainTimeval {
  long tv_sec;
  long tv_usec;
};
struct PlainTimespec {
  long tv_sec;
  long tv_nsec;
};
struct PlainItimerspec {
  PlainTimespec it_interval;
  PlainTimespec it_value;
};

#ifndef __LP64__
struct Timeval64 {
  std::int64_t tv_sec;
  std::int64_t tv_usec;
};
// What is behind the nanoseconds is left as it comes.
struct Timespec64 {
  std::int64_t tv_sec;
  std::int32_t tv_nsec;
  std::int32_t padding;
};
struct Itimerspec64 {
  Timespec64 it_interval;
  Timespec64 it_value;
};
#endif

// NOLINTEND(readability-identifier-naming)

constexpr microseconds kInvalid(-1);

// Programs that mean "never" give the largest number of seconds there is: some 30,000 years are enough.
constexpr std::int64_t kMostSeconds = 1'000'000'000'000;

// Never too early: rounded up.
microseconds toMicroseconds(std::int64_t seconds, std::int64_t nanoseconds) {
  if (seconds < 0 || nanoseconds < 0 || nanoseconds >= 1'000'000'000) return kInvalid;
  return microseconds((std::min(seconds, kMostSeconds) * 1'000'000) + ((nanoseconds + 999) / 1000));
}

template <typename Timespec>
std::optional<microseconds> timeoutOf(const Timespec* time) {
  if (time == nullptr) return std::nullopt;
  return toMicroseconds(time->tv_sec, time->tv_nsec);
}

template <typename Timespec>
void setTimespec(Timespec& to, microseconds time) {
  to.tv_sec = static_cast<decltype(to.tv_sec)>(time.count() / 1'000'000);
  to.tv_nsec = static_cast<decltype(to.tv_nsec)>(time.count() % 1'000'000 * 1000);
}

template <typename Timeval>
void setTimeval(Timeval& to, microseconds time) {
  to.tv_sec = static_cast<decltype(to.tv_sec)>(time.count() / 1'000'000);
  to.tv_usec = static_cast<decltype(to.tv_usec)>(time.count() % 1'000'000);
}

// ---- Calls that exist twice ---------------------------------------------------------------------

template <typename Timeval>
int selectThrough(int (&realCall)(int, fd_set*, fd_set*, fd_set*, Timeval*), int count, fd_set* readSet,
                  fd_set* writeSet, fd_set* exceptSet, Timeval* time) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr) return realCall(count, readSet, writeSet, exceptSet, time);
  std::optional<microseconds> timeout;
  if (time != nullptr) {
    const bool isValid = time->tv_sec >= 0 && time->tv_usec >= 0;
    timeout = isValid ? microseconds((std::min<std::int64_t>(time->tv_sec, kMostSeconds) * 1'000'000) + time->tv_usec)
                      : kInvalid;
  }
  const std::optional<microseconds> before = timeout;
  const int result = kernel->select(count, readSet, writeSet, exceptSet, timeout);
  if (timeout != before) setTimeval(*time, *timeout);
  return result;
}

template <typename Timespec>
int ppollThrough(int (&realCall)(pollfd*, nfds_t, const Timespec*, const sigset_t*), pollfd* entries, nfds_t count,
                 const Timespec* time, const sigset_t* mask) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->ppoll(entries, count, timeoutOf(time), mask)
                           : realCall(entries, count, time, mask);
}

template <typename Timeval>
int gettimeofdayThrough(int (&realCall)(Timeval*, void*), Timeval* time, void* zone) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr) return realCall(time, zone);
  microseconds now(0);
  const int result = kernel->gettimeofday(now);
  if (result == 0) setTimeval(*time, now);
  return result;
}

template <typename Timespec>
int clockGettimeThrough(int (&realCall)(clockid_t, Timespec*), clockid_t clock, Timespec* time) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !Kernel::ownsClock(clock)) return realCall(clock, time);
  microseconds now(0);
  const int result = kernel->clockGettime(clock, now);
  if (result == 0) setTimespec(*time, now);
  return result;
}

template <typename Timespec>
int nanosleepThrough(int (&realCall)(const Timespec*, Timespec*), const Timespec* time, Timespec* left) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr) return realCall(time, left);
  microseconds rest(0);
  const int result = kernel->nanosleep(*timeoutOf(time), rest);
  if (result == -1 && errno == EINTR && left != nullptr) setTimespec(*left, rest);
  return result;
}

template <typename Timespec>
int clockNanosleepThrough(int (&realCall)(clockid_t, int, const Timespec*, Timespec*), clockid_t clock, int flags,
                          const Timespec* time, Timespec* left) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !Kernel::ownsClock(clock)) return realCall(clock, flags, time, left);
  microseconds rest(0);
  const int result = kernel->clockNanosleep(clock, flags, *timeoutOf(time), rest);
  if (result == EINTR && left != nullptr && (flags & TIMER_ABSTIME) == 0) setTimespec(*left, rest);
  return result;
}

template <typename Itimerspec>
int timerfdSettimeThrough(int (&realCall)(int, int, const Itimerspec*, Itimerspec*), int fd, int flags,
                          const Itimerspec* setting, Itimerspec* old) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !kernel->ownsDescriptor(fd)) return realCall(fd, flags, setting, old);
  TimerSetting before;
  const int result =
      kernel->timerfdSettime(fd, flags, {*timeoutOf(&setting->it_value), *timeoutOf(&setting->it_interval)}, before);
  if (result == 0 && old != nullptr) {
    setTimespec(old->it_value, before.value);
    setTimespec(old->it_interval, before.interval);
  }
  return result;
}

template <typename Itimerspec>
int timerfdGettimeThrough(int (&realCall)(int, Itimerspec*), int fd, Itimerspec* setting) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !kernel->ownsDescriptor(fd)) return realCall(fd, setting);
  TimerSetting now;
  const int result = kernel->timerfdGettime(fd, now);
  if (result == 0) {
    setTimespec(setting->it_value, now.value);
    setTimespec(setting->it_interval, now.interval);
  }
  return result;
}

// ---- Files ---------------------------------------------------------------------------------------

#ifdef __LP64__
using Stat = struct stat;
using Stat64 = struct stat;
#else
// NOLINTBEGIN(readability-identifier-naming): the system's own names

// What each of libc's three has before the times: plain, with 64-bit file offsets, and with 64-bit time. On i386 and
// ARM the three are alike so far.
struct StatTime64 {
  std::uint64_t st_dev;
  std::uint32_t padding[2];
  std::uint32_t st_mode;
  std::uint32_t st_nlink;
  std::uint32_t st_uid;
  std::uint32_t st_gid;
  std::uint64_t st_rdev;
};
#ifdef __mips__
template <int kPadding>
struct MipsStat {
  std::uint32_t padding[kPadding];
  std::uint32_t st_mode;
  std::uint32_t st_nlink;
  std::uint32_t st_uid;
  std::uint32_t st_gid;
  std::uint32_t st_rdev;
};
using Stat = MipsStat<5>;
using Stat64 = MipsStat<6>;
#else
using Stat = StatTime64;
using Stat64 = StatTime64;
#endif
// NOLINTEND(readability-identifier-naming)
#endif

template <typename Status>
int fstatThrough(int (&realCall)(int, Status*), int fd, Status* status) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !kernel->ownsDescriptor(fd)) return realCall(fd, status);
  unsigned mode = 0;
  dev_t number = 0;
  if (kernel->fstat(fd, mode, number) == -1) return -1;
  *status = {};
  status->st_mode = mode;
  status->st_rdev = static_cast<decltype(status->st_rdev)>(number);
  return 0;
}

// ---- Others -------------------------------------------------------------------------------------

// The machine, if it has this descriptor.
Kernel* ownerOf(int fd) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel : nullptr;
}

Kernel* ownerOf(const char* path) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsPath(path) ? kernel : nullptr;
}

bool createsFile(int flags) { return (flags & (O_CREAT | O_TMPFILE)) != 0; }

int openThrough(int (&realOpen)(const char*, int, ...), const char* path, int flags, va_list arguments) {
  if (Kernel* kernel = ownerOf(path)) return kernel->open(path, flags);
  return createsFile(flags) ? realOpen(path, flags, va_arg(arguments, mode_t)) : realOpen(path, flags);
}

int ioctlThrough(int (&realIoctl)(int, unsigned long, ...), int fd, unsigned long request, va_list arguments) {
  void* argument = va_arg(arguments, void*);
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->ioctl(fd, static_cast<unsigned>(request), argument)
                           : realIoctl(fd, request, argument);
}

}  // namespace

// ---- The linker's names -------------------------------------------------------------------------

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real___open_2(const char* path, int flags);
int __real___open64_2(const char* path, int flags);
int __real_close(int fd);
int __real_fstat(int fd, Stat* status);
int __real_fstat64(int fd, Stat64* status);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real___read_chk(int fd, void* buffer, size_t size, size_t space);
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __real___recv_chk(int fd, void* buffer, size_t size, size_t space, int flags);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_pipe2(int* ends, int flags);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
char* __real_getenv(const char* name);

int __real_select(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, PlainTimeval* timeout);
int __real_poll(pollfd* entries, nfds_t count, int timeout);
int __real___poll_chk(pollfd* entries, nfds_t count, int timeout, size_t space);
int __real_ppoll(pollfd* entries, nfds_t count, const PlainTimespec* timeout, const sigset_t* mask);
int __real___ppoll_chk(pollfd* entries, nfds_t count, const PlainTimespec* timeout, const sigset_t* mask, size_t space);
int __real_epoll_create1(int flags);
int __real_epoll_ctl(int epoll, int operation, int fd, epoll_event* event);
int __real_epoll_wait(int epoll, epoll_event* events, int room, int timeout);
int __real_epoll_pwait(int epoll, epoll_event* events, int room, int timeout, const sigset_t* mask);
int __real_eventfd(unsigned count, int flags);
int __real_eventfd_read(int fd, std::uint64_t* value);
int __real_eventfd_write(int fd, std::uint64_t value);
int __real_timerfd_create(clockid_t clock, int flags);
int __real_timerfd_settime(int fd, int flags, const PlainItimerspec* setting, PlainItimerspec* old);
int __real_timerfd_gettime(int fd, PlainItimerspec* setting);
int __real_gettimeofday(PlainTimeval* time, void* zone);
int __real_clock_gettime(clockid_t clock, PlainTimespec* time);
int __real_nanosleep(const PlainTimespec* time, PlainTimespec* left);
int __real_clock_nanosleep(clockid_t clock, int flags, const PlainTimespec* time, PlainTimespec* left);
int __real_usleep(useconds_t time);

#ifndef __LP64__
int __real___fstat64_time64(int fd, StatTime64* status);
int __real___ioctl_time64(int fd, unsigned long request, ...);
int __real___select64(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, Timeval64* timeout);
int __real___ppoll64(pollfd* entries, nfds_t count, const Timespec64* timeout, const sigset_t* mask);
int __real___timerfd_settime64(int fd, int flags, const Itimerspec64* setting, Itimerspec64* old);
int __real___timerfd_gettime64(int fd, Itimerspec64* setting);
int __real___gettimeofday64(Timeval64* time, void* zone);
int __real___clock_gettime64(clockid_t clock, Timespec64* time);
int __real___nanosleep64(const Timespec64* time, Timespec64* left);
int __real___clock_nanosleep_time64(clockid_t clock, int flags, const Timespec64* time, Timespec64* left);
#endif

// ---- Files --------------------------------------------------------------------------------------

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int fd = openThrough(__real_open, path, flags, arguments);
  va_end(arguments);
  return fd;
}

int __wrap_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int fd = openThrough(__real_open64, path, flags, arguments);
  va_end(arguments);
  return fd;
}

int __wrap___open_2(const char* path, int flags) {
  Kernel* kernel = ownerOf(path);
  return kernel != nullptr ? kernel->open(path, flags) : __real___open_2(path, flags);
}

int __wrap___open64_2(const char* path, int flags) {
  Kernel* kernel = ownerOf(path);
  return kernel != nullptr ? kernel->open(path, flags) : __real___open64_2(path, flags);
}

int __wrap_close(int fd) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->close(fd) : __real_close(fd);
}

int __wrap_fstat(int fd, Stat* status) { return fstatThrough(__real_fstat, fd, status); }

int __wrap_fstat64(int fd, Stat64* status) { return fstatThrough(__real_fstat64, fd, status); }

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->read(fd, buffer, size) : __real_read(fd, buffer, size);
}

ssize_t __wrap___read_chk(int fd, void* buffer, size_t size, size_t space) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr && size <= space ? kernel->read(fd, buffer, size)
                                            : __real___read_chk(fd, buffer, size, space);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->recv(fd, buffer, size, flags) : __real_recv(fd, buffer, size, flags);
}

ssize_t __wrap___recv_chk(int fd, void* buffer, size_t size, size_t space, int flags) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr && size <= space ? kernel->recv(fd, buffer, size, flags)
                                            : __real___recv_chk(fd, buffer, size, space, flags);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->write(fd, data, size) : __real_write(fd, data, size);
}

int __wrap_pipe2(int* ends, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->pipe2(ends, flags) : __real_pipe2(ends, flags);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  const int result = ioctlThrough(__real_ioctl, fd, request, arguments);
  va_end(arguments);
  return result;
}

int __wrap_socket(int domain, int type, int protocol) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && domain == AF_UNIX ? kernel->socket(domain, type, protocol)
                                                : __real_socket(domain, type, protocol);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  Kernel* kernel = ownerOf(fd);
  return kernel != nullptr ? kernel->connect(fd, address, length) : __real_connect(fd, address, length);
}

char* __wrap_getenv(const char* name) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && Kernel::ownsEnvironment(name) ? kernel->getenv(name) : __real_getenv(name);
}

// ---- Waiting ------------------------------------------------------------------------------------

int __wrap_select(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, PlainTimeval* timeout) {
  return selectThrough(__real_select, count, readSet, writeSet, exceptSet, timeout);
}

int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsPoll(entries, count, timeout) ? kernel->poll(entries, count, timeout)
                                                                        : __real_poll(entries, count, timeout);
}

int __wrap___poll_chk(pollfd* entries, nfds_t count, int timeout, size_t space) {
  return count <= space / sizeof *entries ? __wrap_poll(entries, count, timeout)
                                          : __real___poll_chk(entries, count, timeout, space);
}

int __wrap_ppoll(pollfd* entries, nfds_t count, const PlainTimespec* timeout, const sigset_t* mask) {
  return ppollThrough(__real_ppoll, entries, count, timeout, mask);
}

int __wrap___ppoll_chk(pollfd* entries, nfds_t count, const PlainTimespec* timeout, const sigset_t* mask,
                       size_t space) {
  return count <= space / sizeof *entries ? __wrap_ppoll(entries, count, timeout, mask)
                                          : __real___ppoll_chk(entries, count, timeout, mask, space);
}

int __wrap_epoll_create1(int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->epollCreate1(flags) : __real_epoll_create1(flags);
}

int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event* event) {
  Kernel* kernel = ownerOf(epoll);
  return kernel != nullptr ? kernel->epollCtl(epoll, operation, fd, event)
                           : __real_epoll_ctl(epoll, operation, fd, event);
}

int __wrap_epoll_wait(int epoll, epoll_event* events, int room, int timeout) {
  Kernel* kernel = ownerOf(epoll);
  return kernel != nullptr ? kernel->epollWait(epoll, events, room, timeout, nullptr)
                           : __real_epoll_wait(epoll, events, room, timeout);
}

int __wrap_epoll_pwait(int epoll, epoll_event* events, int room, int timeout, const sigset_t* mask) {
  Kernel* kernel = ownerOf(epoll);
  return kernel != nullptr ? kernel->epollWait(epoll, events, room, timeout, mask)
                           : __real_epoll_pwait(epoll, events, room, timeout, mask);
}

// ---- Counters, timers, clocks and sleeps --------------------------------------------------------

int __wrap_eventfd(unsigned count, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->eventfd(count, flags) : __real_eventfd(count, flags);
}

int __wrap_eventfd_read(int fd, std::uint64_t* value) {
  Kernel* kernel = ownerOf(fd);
  if (kernel == nullptr) return __real_eventfd_read(fd, value);
  return kernel->read(fd, value, sizeof *value) == sizeof *value ? 0 : -1;
}

int __wrap_eventfd_write(int fd, std::uint64_t value) {
  Kernel* kernel = ownerOf(fd);
  if (kernel == nullptr) return __real_eventfd_write(fd, value);
  return kernel->write(fd, &value, sizeof value) == sizeof value ? 0 : -1;
}

int __wrap_timerfd_create(clockid_t clock, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->timerfdCreate(clock, flags) : __real_timerfd_create(clock, flags);
}

int __wrap_timerfd_settime(int fd, int flags, const PlainItimerspec* setting, PlainItimerspec* old) {
  return timerfdSettimeThrough(__real_timerfd_settime, fd, flags, setting, old);
}

int __wrap_timerfd_gettime(int fd, PlainItimerspec* setting) {
  return timerfdGettimeThrough(__real_timerfd_gettime, fd, setting);
}

int __wrap_gettimeofday(PlainTimeval* time, void* zone) { return gettimeofdayThrough(__real_gettimeofday, time, zone); }

int __wrap_clock_gettime(clockid_t clock, PlainTimespec* time) {
  return clockGettimeThrough(__real_clock_gettime, clock, time);
}

int __wrap_nanosleep(const PlainTimespec* time, PlainTimespec* left) {
  return nanosleepThrough(__real_nanosleep, time, left);
}

int __wrap_clock_nanosleep(clockid_t clock, int flags, const PlainTimespec* time, PlainTimespec* left) {
  return clockNanosleepThrough(__real_clock_nanosleep, clock, flags, time, left);
}

int __wrap_usleep(useconds_t time) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->usleep(microseconds(time)) : __real_usleep(time);
}

// ---- The second form of 32-bit machines ---------------------------------------------------------

#ifndef __LP64__
int __wrap___fstat64_time64(int fd, StatTime64* status) { return fstatThrough(__real___fstat64_time64, fd, status); }

int __wrap___ioctl_time64(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  const int result = ioctlThrough(__real___ioctl_time64, fd, request, arguments);
  va_end(arguments);
  return result;
}

int __wrap___select64(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, Timeval64* timeout) {
  return selectThrough(__real___select64, count, readSet, writeSet, exceptSet, timeout);
}

int __wrap___ppoll64(pollfd* entries, nfds_t count, const Timespec64* timeout, const sigset_t* mask) {
  return ppollThrough(__real___ppoll64, entries, count, timeout, mask);
}

// Not every libc has it; another check ends the program in the same way.
int __wrap___ppoll64_chk(pollfd* entries, nfds_t count, const Timespec64* timeout, const sigset_t* mask, size_t space) {
  return count <= space / sizeof *entries ? __wrap___ppoll64(entries, count, timeout, mask)
                                          : __real___poll_chk(entries, count, 0, space);
}

int __wrap___timerfd_settime64(int fd, int flags, const Itimerspec64* setting, Itimerspec64* old) {
  return timerfdSettimeThrough(__real___timerfd_settime64, fd, flags, setting, old);
}

int __wrap___timerfd_gettime64(int fd, Itimerspec64* setting) {
  return timerfdGettimeThrough(__real___timerfd_gettime64, fd, setting);
}

int __wrap___gettimeofday64(Timeval64* time, void* zone) {
  return gettimeofdayThrough(__real___gettimeofday64, time, zone);
}

int __wrap___clock_gettime64(clockid_t clock, Timespec64* time) {
  return clockGettimeThrough(__real___clock_gettime64, clock, time);
}

int __wrap___nanosleep64(const Timespec64* time, Timespec64* left) {
  return nanosleepThrough(__real___nanosleep64, time, left);
}

int __wrap___clock_nanosleep_time64(clockid_t clock, int flags, const Timespec64* time, Timespec64* left) {
  return clockNanosleepThrough(__real___clock_nanosleep_time64, clock, flags, time, left);
}
#endif

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
