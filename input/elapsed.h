// Arithmetic of the 32-bit target. Times are measured in 32 bits and wrap: the clock can jump, and the environment can
// hold any timeout. Private to the reader and to its loop, which must agree on when a time has come.
#pragma once

#include <sys/time.h>

#include <cstdint>

namespace quarlo::components::input {

inline std::int32_t wrap(std::uint32_t value) { return static_cast<std::int32_t>(value); }

inline std::int32_t wrappingSum(std::int32_t a, std::int32_t b) {
  return wrap(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline std::int32_t wrappingDifference(std::int32_t a, std::int32_t b) {
  return wrap(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline std::int32_t timesThousand(std::int32_t value) { return wrap(1000U * static_cast<std::uint32_t>(value)); }

// Zero if the clock cannot be read.
inline void readClock(timeval& now) {
  now = {};
  gettimeofday(&now, nullptr);
}

// The ms since `then`. What the clock says goes to `now`.
inline std::int32_t elapsedMs(const timeval& then, timeval& now) {
  readClock(now);
  const std::int32_t us = wrap(static_cast<std::uint32_t>(now.tv_usec) - static_cast<std::uint32_t>(then.tv_usec));
  const std::int32_t s = wrap(static_cast<std::uint32_t>(now.tv_sec) - static_cast<std::uint32_t>(then.tv_sec));
  return wrappingSum(us / 1000, timesThousand(s));
}

}  // namespace quarlo::components::input
