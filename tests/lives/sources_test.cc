// Equal events in random lives: what a loop gives without InputSources, with it, and of a keyboard that is a further
// node.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "input/input_loop.h"
#include "tests/lives/life.h"
#include "tests/lives/living.h"
#include "tests/unit/test_log.h"

namespace quarlo::test::lives {
namespace {

using components::input::InputLoop;

constexpr std::uint64_t kLives = QUARLO_LIVES;

constexpr int kBounds[] = {0, InputLoop::kDefaultBoundEvents, 3};

class SourcesLives : public testing::Test {
 protected:
  SourcesLives() {
    resetLog();
    setMinLogLevel(3);
    setVlogLevel(0);
  }
};

// But for the time: each machine starts later than the last one. What was made up has none.
bool isAlike(const input_event& a, const input_event& b) {
  return (a.input_event_sec == 0) == (b.input_event_sec == 0) && a.type == b.type && a.code == b.code &&
         a.value == b.value;
}

// But for the keyboard's name, which is that of a further node in `further`.
bool isAlikeCause(const InputLoop::Cause& keyboard, const InputLoop::Cause& further) {
  const bool isKeyboard = keyboard.source == InputLoop::kKeyboard;
  return further.source == (isKeyboard ? InputLoop::kFurther : keyboard.source) && further.number == keyboard.number &&
         (further.source == InputLoop::kRemote || isAlike(further.record, keyboard.record));
}

bool haveAlikeCauses(const Outcome& keyboard, const Outcome& further) {
  return std::equal(keyboard.causes.begin(), keyboard.causes.end(), further.causes.begin(), further.causes.end(),
                    isAlikeCause);
}

void expectTheSameOfAFurtherNode(const Life& life) {
  const int bound = kBounds[life.seed % 3];
  const Outcome keyboard = liveWithSources(life, Keyboard::kOfTheReader, bound);
  const Outcome further = liveWithSources(life, Keyboard::kFurtherNode, bound);
  ASSERT_TRUE(further == keyboard) << text(life) << "\nwith a keyboard:\n"
                                   << text(keyboard) << "\nwith a further node:\n"
                                   << text(further);
  ASSERT_TRUE(haveAlikeCauses(keyboard, further)) << text(life);
}

TEST_F(SourcesLives, GiveOfAFurtherNodeWhatTheyGiveOfTheKeyboard) {
  for (std::uint64_t seed = 0; seed < kLives; ++seed) {
    ASSERT_NO_FATAL_FAILURE(expectTheSameOfAFurtherNode(plainLife(seed)));
    ASSERT_NO_FATAL_FAILURE(expectTheSameOfAFurtherNode(oddLife(seed)));
  }
}

// Counts those lives in which there is something to compare.
void expectTheSameWithoutSources(const Life& life, int& compared) {
  const Outcome sources = liveWithSources(life, Keyboard::kOfTheReader, 0);
  if (sources.isHarmed) return;
  ++compared;
  const Outcome loop = liveWithLoop(life);
  ASSERT_TRUE(sources == loop) << text(life) << "\nwithout attend():\n"
                               << text(loop) << "\nwith attend():\n"
                               << text(sources);
}

TEST_F(SourcesLives, GiveTheSameWithoutThemWhereNothingIsLostAndNothingGoes) {
  int compared = 0;
  for (std::uint64_t seed = 0; seed < kLives; ++seed) {
    ASSERT_NO_FATAL_FAILURE(expectTheSameWithoutSources(plainLife(seed), compared));
    ASSERT_NO_FATAL_FAILURE(expectTheSameWithoutSources(oddLife(seed), compared));
  }
  EXPECT_GT(compared, static_cast<int>(kLives));
}

}  // namespace
}  // namespace quarlo::test::lives
