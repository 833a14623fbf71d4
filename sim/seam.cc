// Where the linker's --wrap sends a program's calls (cmake/sim.cmake): to the simulated machine for what belongs to it,
// and on to libc for everything else.

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "sim/kernel.h"

using quarlo::sim::Kernel;

// With 64-bit time and file offsets on a 32-bit machine, libc's headers give the same calls other names.
#if defined(__USE_TIME_BITS64) && !defined(__LP64__)
#define SEAM_IOCTL __wrap___ioctl_time64
#define SEAM_SELECT __wrap___select64
#define SEAM_GETTIMEOFDAY __wrap___gettimeofday64
#define REAL_IOCTL __real___ioctl_time64
#define REAL_SELECT __real___select64
#define REAL_GETTIMEOFDAY __real___gettimeofday64
#else
#define SEAM_IOCTL __wrap_ioctl
#define SEAM_SELECT __wrap_select
#define SEAM_GETTIMEOFDAY __wrap_gettimeofday
#define REAL_IOCTL __real_ioctl
#define REAL_SELECT __real_select
#define REAL_GETTIMEOFDAY __real_gettimeofday
#endif

namespace {

// libstdc++ has 32-bit time in it also where the program has 64-bit time, so that both forms of its calls are needed.
struct PlainTimespec {
  long tv_sec;
  long tv_nsec;
};
struct Timespec64 {
  std::int64_t tv_sec;
  std::int32_t tv_nsec;
  std::int32_t padding;
};

template <typename Time>
int clockGettime(int realCall(clockid_t, Time*), clockid_t clock, Time* time) {
  Kernel* kernel = Kernel::installed();
  if (kernel == nullptr || !Kernel::ownsClock(clock)) return realCall(clock, time);
  quarlo::sim::microseconds now(0);
  if (kernel->clockGettime(clock, now) != 0) return -1;
  time->tv_sec = static_cast<decltype(time->tv_sec)>(now.count() / 1'000'000);
  time->tv_nsec = static_cast<decltype(time->tv_nsec)>(now.count() % 1'000'000 * 1000);
  return 0;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): these are the linker's names
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_open64(const char* path, int flags, ...);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, size_t size);
int REAL_IOCTL(int fd, unsigned long request, ...);
int REAL_SELECT(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* timeout);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int REAL_GETTIMEOFDAY(timeval* time, void* zone);
char* __real_getenv(const char* name);
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_pipe2(int* ends, int flags);
int __real_poll(pollfd* entries, nfds_t count, int timeout);
int __real_clock_gettime(clockid_t clock, PlainTimespec* time);

int __real___open_2(const char* path, int flags);
int __real___open64_2(const char* path, int flags);
ssize_t __real___read_chk(int fd, void* buffer, size_t size, size_t space);
ssize_t __real___recv_chk(int fd, void* buffer, size_t size, size_t space, int flags);
int __real___poll_chk(pollfd* entries, nfds_t count, int timeout, size_t space);
#ifndef __LP64__
int __real___clock_gettime64(clockid_t clock, Timespec64* time);
#endif

}  // extern "C"

namespace {

bool createsFile(int flags) { return (flags & (O_CREAT | O_TMPFILE)) != 0; }

int openThrough(decltype(__real_open)& realOpen, const char* path, int flags, va_list arguments) {
  Kernel* kernel = Kernel::installed();
  if (kernel != nullptr && kernel->ownsPath(path)) return kernel->open(path, flags);
  return createsFile(flags) ? realOpen(path, flags, va_arg(arguments, mode_t)) : realOpen(path, flags);
}

}  // namespace

extern "C" {

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
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsPath(path) ? kernel->open(path, flags) : __real___open_2(path, flags);
}

int __wrap___open64_2(const char* path, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsPath(path) ? kernel->open(path, flags) : __real___open64_2(path, flags);
}

int __wrap_close(int fd) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->close(fd) : __real_close(fd);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->read(fd, buffer, size)
                                                         : __real_read(fd, buffer, size);
}

ssize_t __wrap___read_chk(int fd, void* buffer, size_t size, size_t space) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && size <= space && kernel->ownsDescriptor(fd) ? kernel->read(fd, buffer, size)
                                                                          : __real___read_chk(fd, buffer, size, space);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->recv(fd, buffer, size, flags)
                                                         : __real_recv(fd, buffer, size, flags);
}

ssize_t __wrap___recv_chk(int fd, void* buffer, size_t size, size_t space, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && size <= space && kernel->ownsDescriptor(fd)
             ? kernel->recv(fd, buffer, size, flags)
             : __real___recv_chk(fd, buffer, size, space, flags);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->write(fd, data, size) : __real_write(fd, data, size);
}

int __wrap_pipe2(int* ends, int flags) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->pipe2(ends, flags) : __real_pipe2(ends, flags);
}

int SEAM_IOCTL(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->ioctl(fd, static_cast<unsigned>(request), argument)
                                                         : REAL_IOCTL(fd, request, argument);
}

int SEAM_SELECT(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* timeout) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->select(count, readSet, writeSet, exceptSet, timeout)
                           : REAL_SELECT(count, readSet, writeSet, exceptSet, timeout);
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

int __wrap_socket(int domain, int type, int protocol) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && domain == AF_UNIX ? kernel->socket(domain, type, protocol)
                                                : __real_socket(domain, type, protocol);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->connect(fd, address, length)
                                                         : __real_connect(fd, address, length);
}

int SEAM_GETTIMEOFDAY(timeval* time, void* zone) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr ? kernel->gettimeofday(time) : REAL_GETTIMEOFDAY(time, zone);
}

int __wrap_clock_gettime(clockid_t clock, PlainTimespec* time) {
  return clockGettime(__real_clock_gettime, clock, time);
}

#ifndef __LP64__
int __wrap___clock_gettime64(clockid_t clock, Timespec64* time) {
  return clockGettime(__real___clock_gettime64, clock, time);
}
#endif

char* __wrap_getenv(const char* name) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && Kernel::ownsEnvironment(name) ? kernel->getenv(name) : __real_getenv(name);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
