// The words of a trace: how calls and their arguments are written, in the manner of strace.
#pragma once

#include <sys/select.h>

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

// "0.500000", or "forever".
std::string seconds(std::optional<std::chrono::microseconds> time);

// "100", or "-1 ENOENT".
std::string callResult(long result, int error);

}  // namespace quarlo::sim
