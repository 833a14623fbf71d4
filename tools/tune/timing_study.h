// How the reader times a remote's lines, with which settings: the real reader, on the simulated machine, in the loop
// that its header teaches.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "recording/session.h"
#include "tools/common/reader_options.h"

namespace quarlo::tools::tune {

using std::chrono::microseconds;

inline double toMs(microseconds time) { return static_cast<double>(time.count()) / 1000; }

// ---- What is studied ----------------------------------------------------------------------------

// A remote that sends the same line again and again while a button is held.
struct Protocol {
  std::string name;     // may be empty
  microseconds period;  // from line to line
  int tapLines;         // of one tap
};

// The infrared protocols that are known by name; docs/tuning.md has the sources of their figures.
const std::vector<Protocol>& knownProtocols();

// A slow tap.
constexpr std::chrono::milliseconds kSlowTap{250};

// How many lines come of a slow tap.
int linesOfATap(microseconds period);

// Presses that last this long are held buttons, shorter ones are taps: the kernel's remotes repeat from here on.
constexpr std::chrono::milliseconds kShortestHold{500};

constexpr std::size_t kMostStudiedLines = 1000;

// Lines of one press of a button: those with the numbers from `first` up to `end`, which is not one of them.
struct Press {
  std::size_t first;
  std::size_t end;
  bool held;  // otherwise a tap
};

// What a remote sent: at least one tap, and at least one held button.
struct Remote {
  std::vector<recording::RemoteLine> lines;
  std::vector<Press> presses;  // each line is part of one
  std::size_t leftOut = 0;     // lines that the reader does not understand, and repeats of no press
  microseconds period{0};      // from line to line of held buttons, the median
};

// A remote of that protocol: one tap, and one button that is held.
// REQUIRES: the tap is shorter than kShortestHold, and `hold` is not.
Remote imagineRemote(const Protocol& protocol, microseconds hold);

// What was recorded of a remote. Pauses between presses are cut to a second. Throws recording::Error, with the name of
// what was recorded, if there is nothing to study in it.
// REQUIRES: no simulated machine exists.
Remote recordedRemote(const std::vector<recording::RemoteLine>& lines, const std::string& name);

// ---- One run ------------------------------------------------------------------------------------

struct Setting {
  int repeatMs;   // LIRC_REPEAT_TIMEOUT
  int releaseMs;  // LIRC_RELEASE_TIMEOUT
  int pollMs;     // the timeout of the first readInput() of each round
};

bool operator==(const Setting& a, const Setting& b);

// What applications have that set nothing: the reader's defaults, and the loop's timeout.
constexpr Setting kPresentSetting{components::input::kDefaultRepeatTimeoutMs,
                                  components::input::kDefaultReleaseTimeoutMs, kRoundTimeoutMs};

// What nobody chooses, but makes a difference.
struct Circumstances {
  microseconds phase;  // from the start of a round of the application to the first line
  microseconds work;   // what the application does in each round, besides reading
};

// Those that a study looks at: eight moments between two polls, for each of three loads of the application.
std::vector<Circumstances> studiedCircumstances(const Setting& setting);

// What became of a line.
enum class Fate {
  kKeyDown,
  kSkipped,  // too close to the last key-down
  kLost,     // the application read it together with an earlier one, which alone counts
};

// All times are since the first line.
struct TimedLine {
  microseconds sent;
  Fate fate;
};

struct KeyDown {
  microseconds time;
  std::size_t line;  // the number of the line that gave it
};

// What the reader takes the remote's button for.
enum class ButtonState { kReleased, kHeld, kRepeating };

struct StateChange {
  microseconds time;
  ButtonState state;
};

struct Timeline {
  std::vector<TimedLine> lines;
  std::vector<KeyDown> keyDowns;
  std::vector<StateChange> states;  // the first: kReleased, before the first line
};

// REQUIRES: no simulated machine exists, here and below.
Timeline runReader(const Remote& remote, const Setting& setting, const Circumstances& circumstances);

// ---- The study ----------------------------------------------------------------------------------

// What is wrong with a setting, the worst first.
enum class Fault { kGhosts, kMisses, kNoRepeats, kUneven, kHasty, kSlowStart, kFast, kSlow, kLate };

// One word or two.
const char* nameOf(Fault fault);

// What it means, with its threshold, and what helps.
std::string meaningOf(Fault fault);

struct Range {
  double least;
  double most;
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

// The values of each setting to try.
struct Grid {
  std::vector<int> repeatMs{50, 75, 100, 150};
  std::vector<int> releaseMs{200, 300, 400};
  std::vector<int> pollMs{10, 20, 50};
};

struct Study {
  std::vector<Finding> findings;  // by poll timeout, then release timeout, then repeat timeout
  std::size_t present;            // the number of kPresentSetting, which is there even if the grid lacks it
  std::size_t recommended;        // the number of the best one of the grid
};

// Runs the reader with each setting of the grid. The best is the one with the least faults; of those, with a poll
// timeout that is closest to the present one; then, that repeats first, by half a line; then, with the longest release
// timeout, the farthest from ghosts; then, the present one; then, with the middle repeat timeout.
Study studyTiming(const Remote& remote, const Grid& grid);

}  // namespace quarlo::tools::tune
