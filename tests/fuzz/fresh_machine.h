// The simulated machine as each input finds it: what inputs before it have done must not matter.
#pragma once

#include <chrono>

#include "sim/machine.h"

namespace quarlo::fuzz {

// Without a trace. The click history, which outlives a machine, starts again.
class FreshMachine : public sim::Machine {
 public:
  FreshMachine();

  // Undoes the jumps of the clock, after which the next machine would start.
  ~FreshMachine();

  // Sets the clock forward or back. REQUIRES: the sum of all jumps fits into 64 bits, in microseconds.
  void jump(std::chrono::milliseconds by);

 private:
  sim::microseconds jumped_{0};
};

}  // namespace quarlo::fuzz
