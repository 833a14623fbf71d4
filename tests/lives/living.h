// A life, lived with the class alone and with the loop around it, and what came of it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "input/input_loop.h"
#include "tests/lives/life.h"
#include "tests/unit/events.h"

namespace quarlo::test::lives {

// An event as it was taken.
struct Given {
  int round;
  std::array<unsigned char, sizeof(InputEvent)> bytes;

  InputEvent event() const;
};

inline bool operator==(const Given& a, const Given& b) { return a.round == b.round && a.bytes == b.bytes; }

using Events = std::vector<Given>;

// What the reader's fields are at the end.
using Fields = std::array<std::int64_t, 10>;

struct Outcome {
  Events events;
  Fields end;
  std::vector<components::input::InputLoop::Cause> causes;  // with the loop
  bool isHarmed = false;  // records were lost, or a source has gone; with InputSources
};

inline bool operator==(const Outcome& a, const Outcome& b) { return a.events == b.events && a.end == b.end; }

std::string text(const Outcome& outcome);

// By readInput(event, 0) until false. What writes nothing is left out.
Outcome liveWithReader(const Life& life);

// The same with the class, but without its surprises: each rule below takes one of them away.
Outcome liveWithoutSurprises(const Life& life);

// By next() or nextRecord(), after a wait of one kind or another; the seed says which.
Outcome liveWithLoop(const Life& life);

// The same with attend() in each round, and with the bound of a round's events that is given; 0: none. What was down is
// given back when a source has gone.
enum class Keyboard { kOfTheReader, kFurtherNode };
Outcome liveWithSources(const Life& life, Keyboard keyboard, int bound);

}  // namespace quarlo::test::lives
