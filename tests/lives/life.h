// Lives to compare: what sources send, at random, and when somebody reads it. A life follows from its seed alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace quarlo::test::lives {

using std::chrono::microseconds;

enum Node { kKeyboardNode, kMouseNode };

// One thing that happens.
struct Step {
  enum Kind {
    kRecord,  // a node sends a record
    kText,    // the daemon sends some bytes
    kUnplug,  // a node goes
    kHangUp,  // the daemon ends
    kPass,    // time passes
    kJump,    // the clock is set
    kRound    // all that is there is read
  };

  Kind kind;
  Node node = kKeyboardNode;
  int type = 0;
  int code = 0;
  int value = 0;
  microseconds time{0};
  std::string text = {};
};

struct Life {
  std::uint64_t seed = 0;
  std::string releaseTimeout;  // of the environment; "": not set
  std::string repeatTimeout;
  std::vector<Step> steps;
};

// The lives are told apart by what is in them:
// - plain: nothing that the class answers with a surprise.
// - odd: all that it answers with a surprise. No round brings more records that are not keys than a drain takes, so
//   that all of a round is read in it.
Life plainLife(std::uint64_t seed);
Life oddLife(std::uint64_t seed);

// A step a line.
std::string text(const Life& life);

// Random numbers that are the same everywhere.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state_(seed) {}

  // From 0 to `limit` - 1.
  int below(int limit) { return static_cast<int>(next() % static_cast<std::uint64_t>(limit)); }

  int between(int low, int high) { return low + below(high - low + 1); }

  bool oneIn(int times) { return below(times) == 0; }

  template <typename Value, std::size_t count>
  Value pick(const Value (&choices)[count]) {
    return choices[below(static_cast<int>(count))];
  }

 private:
  // SplitMix64.
  std::uint64_t next() {
    state_ += 0x9e3779b97f4a7c15U;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    return (mixed ^ (mixed >> 31U)) >> 1U;
  }

  std::uint64_t state_;
};

}  // namespace quarlo::test::lives
