// Times in ns.
#pragma once

#include <ctime>

namespace quarlo::bench {

inline double inNs(const timespec& time) {
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

inline double nowNs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return inNs(now);
}

}  // namespace quarlo::bench
