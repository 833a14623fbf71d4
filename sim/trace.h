// The words of a trace: how calls and their arguments are written, in the manner of strace.
#pragma once

#include <poll.h>
#include <sys/select.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace quarlo::sim {

std::string quoted(const std::string& text);
std::string openFlags(int flags);
std::string socketType(int type);
std::string ioctlRequest(unsigned request, long argument);

// A number of bytes; the size of an input_event is "1 record", since it differs between 32 and 64 bits.
std::string byteCount(std::size_t size);

// The descriptors below `count` in a set: "[100 101]".
std::string descriptorSet(int count, const fd_set* set);

// The entries of a poll(), with what one of their two fields says: "[100 POLLIN, 101 POLLIN|POLLHUP]". Entries with an
// empty field are left out of the answer (revents).
std::string pollEntries(const pollfd* entries, nfds_t count, short pollfd::*field);

std::string receiveFlags(int flags);
std::string epollEvents(unsigned events);
std::string epollOperation(int operation);

// O_NONBLOCK and O_CLOEXEC, as pipe2() takes them, or their sisters for an eventfd(), a timerfd_create(), an
// epoll_create1(), which are the same.
std::string descriptorFlags(int flags);
std::string clockName(clockid_t clock);

// "0.500000", or "forever".
std::string seconds(std::optional<std::chrono::microseconds> time);

std::string errorName(int error);

// "100", or "-1 ENOENT".
std::string callResult(long result, int error);

}  // namespace quarlo::sim
