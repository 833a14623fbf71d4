// What a remote sends: imagined from its protocol, or recorded.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "recording/session.h"

namespace quarlo::tools::tune {

using std::chrono::microseconds;

// Where the simulated daemon of a study has its socket.
constexpr char kStudiedSocket[] = "remote.lirc";

// Long enough for a key to be forgotten with all sensible timeouts.
constexpr std::chrono::seconds kPauseBetweenPresses{1};

inline double toMs(microseconds time) { return static_cast<double>(time.count()) / 1000; }

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

// Of a recording with more lines, some presses stand for all, each with not more than its first lines.
constexpr std::size_t kMostStudiedLines = 1000;
constexpr std::size_t kMostLinesOfAPress = 100;

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
  std::size_t taps = 0;        // that there were; `presses` can be a part of them
  std::size_t holds = 0;
};

// A remote of that protocol: one tap, and one button that is held.
// REQUIRES: the tap is shorter than kShortestHold, and `hold` is not.
Remote imagineRemote(const Protocol& protocol, microseconds hold);

// What was recorded of a remote. Pauses between presses are cut to a second. Throws recording::Error, with the name of
// what was recorded, if there is nothing to study in it.
// REQUIRES: no simulated machine exists.
Remote recordedRemote(std::vector<recording::RemoteLine> lines, const std::string& name);

}  // namespace quarlo::tools::tune
