// What can be wrong with the clock on the wall, by which the reader measures the remote and double clicks.
#pragma once

#include <cstdint>

#include "tools/common/checkup/finding.h"

namespace quarlo::tools::checkup {

struct ClockFacts {
  std::int64_t seconds = 0;    // since 1970
  bool hasNarrowTime = false;  // whether programs of this kind count them in 32 bits
};

ClockFacts gatherClock();

Findings checkClock(const ClockFacts& facts);

}  // namespace quarlo::tools::checkup
