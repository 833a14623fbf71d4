// What the reader makes of a remote's lines with one setting: the real reader, on the simulated machine, in one of the
// loops that an application can have.
#pragma once

#include <cstddef>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "tools/common/reader_loop.h"
#include "tools/common/reader_options.h"
#include "tools/tune/remote_lines.h"

namespace quarlo::tools::tune {

struct Setting {
  int repeatMs;        // LIRC_REPEAT_TIMEOUT, or the node's period
  int startMs;         // LIRC_RELEASE_TIMEOUT, or the node's delay
  PollTimeout pollMs;  // of the application's loop
};

bool operator==(const Setting& a, const Setting& b);

// What applications have that set nothing: the reader's defaults, or how the node repeats; and with a loop that polls,
// its usual timeout.
Setting defaultSetting(const Remote& remote, LoopKind loop);

// What nobody chooses, but makes a difference.
struct Circumstances {
  microseconds phase;  // from the start of a round of the application to the first line
  microseconds work;   // what the application does in each round, besides reading

  // Of a remote that the kernel decodes: whether the kernel's timers are as late as they can be with 250 ticks a
  // second, or on time.
  bool lateTimers = false;
};

// Those that a study looks at: three loads of the application, and if it polls, for each of them eight moments between
// two polls; where the kernel decodes the remote, with timers that are late in every second one of these moments, or if
// it does not poll, for each load once late and once on time.
std::vector<Circumstances> studiedCircumstances(Decoder decoder, const Setting& setting);

// When a timer of the kernel ends that was set to this, if it is as late as it can be with 250 ticks a second.
std::chrono::milliseconds latest(std::chrono::milliseconds time);

// What became of a line.
enum class Fate {
  kKeyDown,
  kSkipped,  // too close to the last key-down; of a remote that the kernel decodes, a frame that keeps the key down
  kLost,     // a poll read it together with an earlier one, which alone counts
};

// All times are since the first line.
struct TimedLine {
  microseconds sent;
  Fate fate;
};

struct KeyDown {
  microseconds time;
  std::size_t line;  // the index of the line that gave it; where the kernel repeats, of the first line of the press
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

}  // namespace quarlo::tools::tune
