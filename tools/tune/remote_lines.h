// What a remote sends: imagined from its protocol, or recorded.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "recording/session.h"
#include "tools/common/node_facts.h"
#include "tools/common/presses.h"
#include "tools/tune/sample.h"

namespace quarlo::tools::tune {

// Where the simulated daemon of a study has its socket, or where the node is.
constexpr char kStudiedSocket[] = "remote.lirc";
constexpr char kStudiedNode[] = "remote.evdev";

// Long enough for a key to be forgotten with all sensible timeouts.
constexpr std::chrono::seconds kPauseBetweenPresses{1};

inline double toMs(microseconds time) { return static_cast<double>(time.count()) / 1000; }

// A remote that sends the same line again and again while a button is held.
struct Protocol {
  std::string name;     // may be empty
  microseconds period;  // from line to line
  int tapLines;         // of one tap
  microseconds keyUp;   // where the kernel decodes it: from the last line to the key-up
};

// The infrared protocols that are known by name; docs/tuning.md has the sources of their figures.
const std::vector<Protocol>& knownProtocols();

// A slow tap.
constexpr std::chrono::milliseconds kSlowTap{250};

// How many lines come of a slow tap.
int linesOfATap(microseconds period);

// How long the kernel waits for a line of a protocol that is not known by name.
microseconds keyUpOf(microseconds period);

// Of a recording with more lines, some presses stand for all, each with not more than its first lines.
constexpr std::size_t kMostStudiedLines = 1000;
constexpr std::size_t kMostLinesOfAPress = 100;

// Lines of one press of a button: those with the numbers from `first` up to `end`, which is not one of them.
struct Press {
  std::size_t first;
  std::size_t end;
  bool held;  // otherwise a tap

  // Of a remote that the kernel decodes.
  int key = 0;         // its code
  microseconds up{0};  // when it comes up
};

// Who makes key-downs repeat.
enum class Decoder {
  kDaemon,  // the reader, of the lines of the LIRC daemon
  kKernel,  // the kernel, by the delay and the period of the node
};

// What a remote sent: at least one tap, and at least one held button.
struct Remote {
  std::vector<recording::RemoteLine> lines;  // where the kernel decodes it, the frames that it saw, without a text
  std::vector<Press> presses;                // each line is part of one
  std::size_t leftOut = 0;  // lines that the reader does not understand, and repeats of no press; or key presses
  microseconds period{0};   // from line to line of held buttons, the median; 0: not known
  std::size_t taps = 0;     // that there were; `presses` can be a part of them
  std::size_t holds = 0;

  // Of one that the kernel decodes.
  Decoder decoder = Decoder::kDaemon;
  NodeRepeat repeat{};    // how its node repeats now
  microseconds keyUp{0};  // from the last frame to the key-up, at most; 0: not known
};

// A remote of that protocol: one tap, and one button that is held.
// REQUIRES: the tap is shorter than kShortestHold, and `hold` is not.
Remote imagineRemote(const Protocol& protocol, microseconds hold);

// Throws recording::Error, with the name of what was recorded, if there was no tap or no held button. `hint` is what
// can be the matter if no button was held.
void checkPresses(const Remote& remote, const std::string& name, const std::string& hint);

// The median of times between lines or repeats; 0: there are none.
microseconds medianOf(std::vector<microseconds> times);

// From line to line of held buttons, the median.
microseconds periodOf(const Remote& remote);

// What was recorded of a remote. Pauses between presses are cut to a second. Throws recording::Error, with the name of
// what was recorded, if there is nothing to study in it.
// REQUIRES: no simulated machine exists.
Remote recordedRemote(std::vector<recording::RemoteLine> lines, const std::string& name);

}  // namespace quarlo::tools::tune
