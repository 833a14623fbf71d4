// The calls themselves, past the machine: the linker leads their usual names to sim/seam.cc.
#pragma once

#include <poll.h>
#include <sys/epoll.h>

// NOLINTBEGIN(bugprone-reserved-identifier): these are the linker's names
extern "C" {

int __real_close(int fd);
int __real_poll(pollfd* entries, nfds_t count, int timeout);
int __real_epoll_create1(int flags);
int __real_epoll_ctl(int epoll, int operation, int fd, epoll_event* event);
int __real_epoll_wait(int epoll, epoll_event* events, int room, int timeout);

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace quarlo::sim {

// What poll() says now of a descriptor of libc's.
inline short realState(int fd, short events) {
  pollfd look = {fd, events, 0};
  return __real_poll(&look, 1, 0) == 1 ? look.revents : short{0};
}

}  // namespace quarlo::sim
