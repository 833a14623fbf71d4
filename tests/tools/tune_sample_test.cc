#include <gtest/gtest.h>

#include <algorithm>

#include "tools/tune/sample.h"

namespace quarlo::tools::tune {
namespace {

using namespace std::chrono_literals;
using Numbers = std::vector<std::size_t>;

Candidate tap(microseconds length, microseconds pause = 2s) { return {false, length, pause, pause < 1s, 1}; }

Candidate hold(microseconds length, std::size_t cost) { return {true, length, 2s, false, cost}; }

bool has(const Numbers& chosen, std::size_t number) { return std::count(chosen.begin(), chosen.end(), number) != 0; }

TEST(TuneSample, IsEverythingIfThatFits) {
  EXPECT_EQ(choosePresses({tap(1ms), hold(600ms, 6), tap(2ms)}, 8), (Numbers{0, 1, 2}));
  EXPECT_TRUE(choosePresses({}, 8).empty());
}

TEST(TuneSample, HasTheShortestAndTheLongestFirst) {
  const std::vector<Candidate> presses = {tap(3ms),       tap(1ms, 1500ms), tap(2ms),       tap(5ms, 3s),
                                          hold(900ms, 1), hold(800ms, 1),   hold(700ms, 1), tap(4ms)};
  EXPECT_EQ(choosePresses(presses, 4), (Numbers{1, 3, 4, 6}));
}

TEST(TuneSample, HasThoseThatCameSoonestAndLatest) {
  std::vector<Candidate> presses(100, tap(100ms));
  presses[40].pause = 1500ms;
  presses[60].pause = 3s;
  const Numbers chosen = choosePresses(presses, 6);
  EXPECT_TRUE(has(chosen, 40));
  EXPECT_TRUE(has(chosen, 60));
}

TEST(TuneSample, IsSpreadEvenly) {
  std::vector<Candidate> presses;
  for (int i = 0; i < 1024; ++i) presses.push_back(tap(i * 100us));
  const Numbers chosen = choosePresses(presses, 33);
  ASSERT_EQ(chosen.size(), 33U);
  for (std::size_t i = 1; i < chosen.size(); ++i) EXPECT_NEAR(static_cast<double>(chosen[i] - chosen[i - 1]), 32, 2);
}

TEST(TuneSample, BringsThePressAlongThatOneFollows) {
  std::vector<Candidate> presses(50, tap(100ms));
  presses[30] = tap(1ms, 200ms);
  const Numbers chosen = choosePresses(presses, 4);
  EXPECT_TRUE(has(chosen, 29));
  EXPECT_TRUE(has(chosen, 30));
}

TEST(TuneSample, CostsNoMoreThanItsBudget) {
  std::vector<Candidate> presses;
  for (int i = 0; i < 300; ++i) presses.push_back(i % 3 == 0 ? hold(i * 10ms, 20) : tap(i * 1ms, i % 2 * 2s));
  const Numbers chosen = choosePresses(presses, 200);
  std::size_t cost = 0;
  for (const std::size_t number : chosen) cost += presses[number].cost;
  EXPECT_LE(cost, 200U);
  EXPECT_GT(cost, 170U);
  EXPECT_TRUE(std::is_sorted(chosen.begin(), chosen.end()));
  EXPECT_EQ(choosePresses(presses, 200), chosen);
}

}  // namespace
}  // namespace quarlo::tools::tune
