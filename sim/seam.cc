// Where the linker's --wrap sends a program's calls (cmake/sim.cmake): to the simulated machine for what belongs to it,
// and on to libc for everything else.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
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

int __wrap_close(int fd) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->close(fd) : __real_close(fd);
}

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && kernel->ownsDescriptor(fd) ? kernel->read(fd, buffer, size)
                                                         : __real_read(fd, buffer, size);
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

char* __wrap_getenv(const char* name) {
  Kernel* kernel = Kernel::installed();
  return kernel != nullptr && Kernel::ownsEnvironment(name) ? kernel->getenv(name) : __real_getenv(name);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
