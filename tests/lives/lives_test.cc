// Equal events in random lives: what the loop gives, and what the class gives alone.

#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "input/input_loop.h"
#include "tests/lives/life.h"
#include "tests/lives/living.h"
#include "tests/unit/test_log.h"

namespace quarlo::test::lives {
namespace {

using components::input::InputLoop;

constexpr std::uint64_t kLives = QUARLO_LIVES;

// ---- What may differ ----------------------------------------------------------------------------

// The class knows no events of wheels.
Outcome withoutWheels(Outcome outcome) {
  Events& events = outcome.events;
  events.erase(std::remove_if(events.begin(), events.end(),
                              [](const Given& given) { return given.event().kind == InputLoop::kWheelEvent; }),
               events.end());
  return outcome;
}

bool isMove(const Given& given) {
  const InputEvent event = given.event();
  return event.kind == InputEvent::kMouseEvent && event.mouseData.action == InputEvent::MouseData::kMove;
}

// The class gives a move twice where what follows gives nothing, and one where the loop gives two, with a wheel, or a
// code that it leaves out, in between. The last one of moves that follow each other counts.
Outcome withMergedMoves(Outcome outcome) {
  Events merged;
  for (const Given& given : outcome.events) {
    if (!merged.empty() && isMove(merged.back()) && isMove(given) && merged.back().round == given.round) {
      merged.back() = given;
    } else {
      merged.push_back(given);
    }
  }
  outcome.events = std::move(merged);
  return outcome;
}

// What the loop gives no move twice for: motion between keys and steps of wheels, in what is read in one round.
std::size_t runsOfMotion(const Life& life) {
  std::size_t runs = 0;
  bool isRun = false;
  bool isGone = false;
  std::vector<Step> unread;  // up to the last report
  for (const Step& step : life.steps) {
    if (step.kind == Step::kRecord && step.node == kMouseNode && !isGone) unread.push_back(step);
    if (step.kind == Step::kUnplug && step.node == kMouseNode) isGone = true;
    if (isGone) unread.clear();
    if (step.kind != Step::kRound) continue;
    const auto end = std::find_if(unread.rbegin(), unread.rend(), [](const Step& record) {
                       return record.type == EV_SYN && record.code == SYN_REPORT;
                     }).base();
    isRun = false;
    for (auto record = unread.begin(); record != end; ++record) {
      const bool isMotion = record->type == EV_REL && (record->code == REL_X || record->code == REL_Y);
      const bool isStep = record->type == EV_REL && (record->code == REL_WHEEL || record->code == REL_HWHEEL);
      if (isMotion && !isRun) ++runs;
      if (isMotion) isRun = true;
      if (record->type == EV_KEY || (isStep && record->value != 0)) isRun = false;
    }
    unread.erase(unread.begin(), end);
  }
  return runs;
}

std::size_t movesOf(const Outcome& outcome) {
  return static_cast<std::size_t>(std::count_if(outcome.events.begin(), outcome.events.end(), isMove));
}

// What the fields say that belong to an event's kind: what was in the others before is not the same.
bool isAlike(const Given& a, const Given& b) {
  return a.round == b.round && (a.bytes == b.bytes || test::text(a.event()) == test::text(b.event()));
}

bool isAlike(const Outcome& a, const Outcome& b) {
  return a.end == b.end && std::equal(a.events.begin(), a.events.end(), b.events.begin(), b.events.end(),
                                      [](const Given& x, const Given& y) { return isAlike(x, y); });
}

// ---- Causes -------------------------------------------------------------------------------------

Lines causesOf(const Outcome& outcome) {
  Lines lines;
  for (const InputLoop::Cause& cause : outcome.causes) {
    if (cause.source == InputLoop::kRemote) {
      lines.emplace_back("a line");
      continue;
    }
    lines.push_back(std::to_string(cause.record.type) + " " + std::to_string(cause.record.code) + " " +
                    std::to_string(cause.record.value));
  }
  return lines;
}

// What the sources sent that have the causes' numbers.
Lines recordsOf(const Life& life, const Outcome& outcome) {
  std::array<Lines, InputLoop::kSources> sent;
  for (const Step& step : life.steps) {
    if (step.kind == Step::kText) sent[InputLoop::kRemote].emplace_back("a line");
    if (step.kind != Step::kRecord) continue;
    sent[step.node == kMouseNode ? InputLoop::kMouse : InputLoop::kKeyboard].push_back(
        std::to_string(step.type) + " " + std::to_string(step.code) + " " + std::to_string(step.value));
  }
  Lines lines;
  for (const InputLoop::Cause& cause : outcome.causes) lines.push_back(sent[cause.source].at(cause.number - 1));
  return lines;
}

// ---- The lives ----------------------------------------------------------------------------------

class LoopLives : public testing::Test {
 protected:
  LoopLives() {
    resetLog();
    setMinLogLevel(3);
    setVlogLevel(0);
  }
};

TEST_F(LoopLives, GiveTheEventsOfTheClassByteForByte) {
  for (std::uint64_t seed = 0; seed < kLives; ++seed) {
    const Life life = plainLife(seed);
    const Outcome alone = liveWithReader(life);
    const Outcome loop = liveWithLoop(life);
    ASSERT_EQ(causesOf(loop), recordsOf(life, loop)) << text(life);
    ASSERT_TRUE(loop == alone) << text(life) << "\nwith the class alone:\n"
                               << text(alone) << "\nwith the loop:\n"
                               << text(loop);
  }
}

TEST_F(LoopLives, GiveTheEventsOfTheClassButForItsSurprises) {
  for (std::uint64_t seed = 0; seed < kLives; ++seed) {
    const Life life = oddLife(seed);
    const Outcome alone = withMergedMoves(liveWithoutSurprises(life));
    const Outcome taken = liveWithLoop(life);
    const Outcome loop = withMergedMoves(withoutWheels(taken));
    ASSERT_TRUE(isAlike(loop, alone)) << text(life) << "\nwith the class alone:\n"
                                      << text(alone) << "\nwith the loop:\n"
                                      << text(loop);
    ASSERT_EQ(movesOf(taken), runsOfMotion(life)) << text(life) << "\n" << text(taken);
  }
}

}  // namespace
}  // namespace quarlo::test::lives
