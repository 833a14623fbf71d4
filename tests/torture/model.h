// A second reader, which knows beforehand how a life should go: with a failure, too, once it is told what that takes
// from the life or adds to it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "tests/torture/lives.h"
#include "tests/torture/living.h"

namespace quarlo::test::torture {

// What one search finds wrong with one node when a call fails.
enum class Flaw { kDoesNotOpen, kIsHeld, kCannotBeHeld, kHasNoName, kHasNoAxes, kHasNoKeys, kDoesNotOpenAgain };

// A line that is read in two pieces.
struct CutLine {
  std::size_t line;
  std::size_t bytes;  // of the first piece
};

// When the clock jumps, and the first line after that.
struct ClockJump {
  milliseconds at;
  std::size_t line;
};

// A life as it should go.
struct Course {
  explicit Course(Life what) : life(std::move(what)) {}

  Life life;
  std::set<Source> closed;                        // does not open by its path
  std::set<std::tuple<Source, int, Flaw>> flaws;  // the int is the number of the node
  std::set<std::size_t> failedConnections;        // of those that the search for a daemon makes, from 0
  int repeatTimeout = kRepeatTimeout;
  int releaseTimeout = kReleaseTimeout;
  std::optional<CutLine> cutLine;
  Lines readErrors;

  // How much of a source's input is read, before it is gone.
  std::array<std::size_t, kSources> readable = {SIZE_MAX, SIZE_MAX, SIZE_MAX};

  // The times of what comes after it are those that the clock shows then.
  std::optional<ClockJump> jump;

  std::optional<std::size_t> unseenLine;     // does not reach the reader
  std::optional<std::size_t> swallowedLine;  // is read with the one before it, which counts

  // When the clock fails, by their places among the mouse's records and the remote's lines.
  std::optional<std::size_t> clickWithoutTime;
  std::optional<std::size_t> readLineWithoutTime;
  std::optional<std::size_t> acceptedLineWithoutTime;
};

struct Expected : Outcome {
  Paths paths;  // where the reader finds its sources
};

Expected expected(const Course& course);

}  // namespace quarlo::test::torture
