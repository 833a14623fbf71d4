// A part of a long recording that can stand for all of it.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace quarlo::tools::tune {

using std::chrono::microseconds;

// What the choice of a press depends on.
struct Candidate {
  bool held;            // otherwise a tap
  microseconds length;  // of the press
  microseconds pause;   // since the press before
  bool follows;         // so soon that what becomes of it can be due to the press before
  std::size_t cost;     // how much there is in it to study
};

// The numbers of the chosen presses, in ascending order. They cost at most `budget` together: all of them if they do;
// otherwise taps and held buttons, from the shortest to the longest, and from those that came soonest to those that
// came latest, spread evenly. One that follows another brings that with it.
std::vector<std::size_t> choosePresses(const std::vector<Candidate>& presses, std::size_t budget);

}  // namespace quarlo::tools::tune
