// Which settings suit a remote, and what is wrong with the others.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/tune/reader_run.h"

namespace quarlo::tools::tune {

// What is wrong with a setting, the worst first.
enum class Fault { kGhosts, kMisses, kOff, kNoRepeats, kUneven, kHasty, kSlowStart, kFast, kSlow, kLate };

// One word or two.
const char* nameOf(Fault fault);

// What a setting is judged by.
struct Judgement {
  Decoder decoder;
  LoopKind loop;
  double soonestRepeatMs;  // a slow tap of this remote ends before it
  double latestRepeatMs;
};

Judgement judgementOf(const Remote& remote, LoopKind loop);

// What it means, with its threshold, and what helps.
std::string meaningOf(Fault fault, const Judgement& judgement);

// What things are called.
struct Terms {
  const char* repeat;  // what sets Setting::repeatMs: "repeat timeout"
  const char* start;   // what sets Setting::startMs: "release timeout"
  const char* line;    // what the remote sends again and again: "line"
  const char* end;     // what ends a press: "last line"
};

const Terms& termsOf(Decoder decoder);

struct Range {
  double minimum;
  double maximum;
};

// What all runs with one setting gave.
struct Finding {
  Setting setting;
  Range keyDownsPerTap;
  std::optional<Range> firstRepeatMs;     // from the first key-down to the second; none if none came
  std::optional<Range> repeatsPerSecond;  // from the second key-down on; none if no two came
  std::optional<Range> pauseMs;           // between two of them
  std::optional<Range> lastAfterMs;       // from the last line of a held button to its last key-down
  int skipped;                            // lines, in the run that had most
  int lost;
  std::vector<Fault> faults;
};

// "324-336" with so many decimals, "324" if that is both, "-" if there is none.
std::string toText(const std::optional<Range>& range, int decimals);

// "ghosts, uneven".
std::string toText(const std::vector<Fault>& faults);

// Such as "A tap gives 1 key-down; a held button repeats after 324-336 ms, 9.2 times a second."
std::string describe(const Finding& finding);

// Those of the studied circumstances in which one run shows the worst faults.
Circumstances worstCircumstances(const Remote& remote, const Setting& setting);

// The press that shows best what a run gave: the tap of which most key-downs came, or the longest held button.
Press pressToShow(const Remote& remote, const Timeline& timeline, bool held);

// The values of each setting to try; by default, LIRC's timeouts. The poll timeouts are for a loop that polls.
struct Grid {
  LoopKind loop = LoopKind::kWait;
  std::vector<int> repeatMs{50, 75, 100, 150};
  std::vector<int> startMs{200, 300, 400};
  std::vector<int> pollMs{10, 20, 50};

  // How many settings they make, repetitions included.
  std::size_t size() const;
};

struct Study {
  Judgement judgement;
  std::vector<Finding> findings;  // by poll timeout, then release timeout or delay, then repeat timeout or period
  std::size_t byDefault;          // the index of the default setting, which is there even if the grid lacks it
  std::size_t recommended;        // the index of the best one of the grid
};

// Runs the reader with each setting of the grid. The best one is chosen in this order:
//   1. the fewest and mildest faults;
//   2. the poll timeout that is closest to the default one;
//   3. where the kernel decodes the remote, how its node repeats now, whether the grid has it or not;
//   4. the earliest first repeat, to half a line, or to a frame where the kernel decodes;
//   5. the longest release timeout or delay, which is farthest from ghosts;
//   6. the default setting;
//   7. the middle repeat timeout or period.
Study studyTiming(const Remote& remote, const Grid& grid);

}  // namespace quarlo::tools::tune
