#include "tests/lives/stuck_life.h"

#include <cstddef>

#include "tests/lives/life.h"

namespace quarlo::test::lives {
namespace {

using components::input::InputLoop;

constexpr int kMostTaps = 80;  // with their reports, more than twice what a queue takes

class StuckAuthor {
 public:
  explicit StuckAuthor(std::uint64_t seed) : dice_(seed) { life_.seed = seed; }

  StuckLife life() {
    life_.furtherNodes = dice_.oneIn(2) ? 0 : dice_.pick({1, 1, 2, 3, InputLoop::kMostFurtherNodes});
    life_.waiting = dice_.pick({Waiting::kWithLoop, Waiting::kElsewhere, Waiting::kWithoutNames});
    life_.takesRecords = dice_.oneIn(2);
    life_.bound = dice_.pick({0, InputLoop::kDefaultBoundEvents, 2});
    for (unsigned& everyMs : life_.everyMs) everyMs = dice_.pick({0U, 1U, 50U, 1000U});
    for (int steps = dice_.between(5, 40); steps > 0; --steps) life_.steps.push_back(step());
    life_.steps.push_back({StuckStep::kRest});
    return life_;
  }

 private:
  StuckStep step() {
    using Kind = StuckStep::Kind;
    const int place = dice_.oneIn(3) ? dice_.below(2) : placeOf(dice_.below(2 + life_.furtherNodes));
    switch (dice_.below(16)) {
      case 0:
      case 1:
      case 2: return {Kind::kPress, place, dice_.pick(kKeysOfNodes)};
      case 3:
      case 4: return {Kind::kRelease, place, dice_.pick(kKeysOfNodes)};
      case 5: return {Kind::kRepeat, place, dice_.pick(kKeysOfNodes)};
      case 6: return {Kind::kTaps, place, dice_.pick(kKeysOfNodes), dice_.between(1, kMostTaps)};
      case 7: return {Kind::kMoves, place, 0, dice_.between(1, kMostTaps)};
      case 8: return {dice_.oneIn(2) ? Kind::kPlug : Kind::kUnplug, place, 0, number(place)};
      case 9: return {dice_.pick({Kind::kPlug, Kind::kOpen, Kind::kOpen}), place, 0, number(place)};
      case 10: return {dice_.oneIn(4) ? Kind::kGrabElsewhere : Kind::kGrab, place};
      case 11: return ofTheRemote();
      case 12: return {dice_.oneIn(6) ? Kind::kJump : Kind::kPass, 0, 0, dice_.pick({1, 20, 49, 50, -300, 999, 1000})};
      case 13: return {Kind::kRest};
      default: return {Kind::kRound};
    }
  }

  StuckStep ofTheRemote() {
    using Kind = StuckStep::Kind;
    return {dice_.pick({Kind::kLines, Kind::kLines, Kind::kHangUp, Kind::kDaemonStops, Kind::kDaemonStarts,
                        Kind::kDaemonStarts, Kind::kOpen}),
            InputLoop::kRemote, 0, dice_.between(1, 4)};
  }

  static int placeOf(int index) { return index < InputLoop::kRemote ? index : index + 1; }

  // The one that it has had at first, or any.
  int number(int place) { return dice_.oneIn(2) ? place : dice_.below(kNumbers); }

  Dice dice_;
  StuckLife life_;
};

std::string text(const StuckStep& step) {
  const std::string place = "source " + std::to_string(step.place);
  const std::string code = std::to_string(step.code);
  const std::string count = std::to_string(step.count);
  switch (step.kind) {
    case StuckStep::kPress: return place + ": " + code + " goes down";
    case StuckStep::kRelease: return place + ": " + code + " comes up";
    case StuckStep::kRepeat: return place + ": " + code + " repeats";
    case StuckStep::kTaps: return place + ": " + count + " taps of " + code;
    case StuckStep::kMoves: return place + ": " + count + " moves";
    case StuckStep::kUnplug: return place + " goes";
    case StuckStep::kPlug: return place + " comes as number " + count;
    case StuckStep::kGrabElsewhere: return place + " is grabbed by another process, or given back";
    case StuckStep::kLines: return "the daemon sends " + count + " lines";
    case StuckStep::kHangUp: return "the daemon hangs up";
    case StuckStep::kDaemonStops: return "the daemon stops";
    case StuckStep::kDaemonStarts: return "the daemon starts";
    case StuckStep::kPass: return count + " ms pass";
    case StuckStep::kJump: return "the clock jumps by " + count + " ms";
    case StuckStep::kOpen: return "the application opens " + place;
    case StuckStep::kGrab: return "the application grabs " + place + ", or gives it back";
    case StuckStep::kRound: return "round";
    case StuckStep::kRest: return "rest";
  }
  return "";
}

}  // namespace

StuckLife stuckLife(std::uint64_t seed) { return StuckAuthor(seed).life(); }

std::string text(const StuckLife& life) {
  constexpr const char* kWaits[] = {"with the loop", "elsewhere", "elsewhere, which does not tell what is ready"};
  std::string lines = "seed " + std::to_string(life.seed) + ", " + std::to_string(life.furtherNodes) +
                      " further nodes, waits " + kWaits[static_cast<std::size_t>(life.waiting)] + ", takes " +
                      (life.takesRecords ? "records" : "events") + ", bound " + std::to_string(life.bound) +
                      ", opens every";
  for (const unsigned everyMs : life.everyMs) lines += " " + std::to_string(everyMs);
  lines += " ms\n";
  for (const StuckStep& step : life.steps) lines += text(step) + "\n";
  return lines;
}

}  // namespace quarlo::test::lives
