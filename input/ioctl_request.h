// The number of an ioctl in the type that libc wants: glibc takes an unsigned long, musl an int. Private to the reader
// and to its companions.
#pragma once

#include <sys/ioctl.h>

namespace quarlo::components::input {

template <typename Request>
Request requestOf(int (*)(int, Request, ...));

inline constexpr auto asRequest(unsigned long number) { return static_cast<decltype(requestOf(ioctl))>(number); }

}  // namespace quarlo::components::input
