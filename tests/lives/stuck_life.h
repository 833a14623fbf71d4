// Lives in which sources lose records, go and come back, while the application reads when it likes.
#pragma once

#include <linux/input.h>

#include <cstdint>
#include <string>
#include <vector>

#include "input/input_loop.h"

namespace quarlo::test::lives {

// Where a life has nodes: the keyboard, the mouse, and further nodes, by their numbers as sources. The remote's number
// is not used.
constexpr int kPlaces = components::input::InputLoop::kSources;

// One thing that happens. What cannot happen then, such as a press on a node that is not there, is left out.
struct StuckStep {
  enum Kind {
    kPress,
    kRelease,
    kRepeat,         // of a key that is down
    kTaps,           // `count` times down and up: can be more than a queue takes
    kMoves,          // `count` of them
    kUnplug,         // the node goes
    kPlug,           // another device comes, as number `count` if that is free
    kGrabElsewhere,  // another process grabs the node, or gives it back
    kLines,          // the daemon sends `count` lines
    kHangUp,         // it closes its connections
    kDaemonStops,
    kDaemonStarts,
    kPass,   // `count` ms
    kJump,   // the clock is set by `count` ms
    kOpen,   // the application opens the source, if it is closed
    kGrab,   // it grabs the node, or gives it back
    kRound,  // it takes what came
    kRest    // it takes all that came, in as many rounds as that takes
  };

  Kind kind;
  int place = 0;
  int code = 0;
  int count = 0;
};

// How an application waits.
enum class Waiting { kWithLoop, kElsewhere, kWithoutNames };

struct StuckLife {
  std::uint64_t seed = 0;
  int furtherNodes = 0;
  Waiting waiting = Waiting::kWithLoop;
  bool takesRecords = false;       // by nextRecord()
  int bound = 0;                   // of a round's events
  unsigned everyMs[kPlaces] = {};  // how often attend() tries to open it; 0: the application opens it
  std::vector<StuckStep> steps;
};

StuckLife stuckLife(std::uint64_t seed);

// The numbers that nodes can have.
constexpr int kNumbers = kPlaces + 3;

// What nodes have, beside motion.
constexpr int kKeysOfNodes[] = {KEY_A,        KEY_B,         KEY_NUMLOCK,     KEY_LEFTSHIFT, KEY_RIGHTSHIFT,
                                KEY_LEFTCTRL, KEY_RIGHTCTRL, KEY_LEFTALT,     KEY_RIGHTALT,  BTN_LEFT,
                                BTN_RIGHT,    BTN_TOUCH,     BTN_TOOL_FINGER, KEY_MAX};

// A step a line.
std::string text(const StuckLife& life);

}  // namespace quarlo::test::lives
