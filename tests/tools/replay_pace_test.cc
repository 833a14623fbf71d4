// How fast `replay --realtime` plays: what it sleeps until. Nothing in this test's program really sleeps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <vector>

#include "tools/replay/replay.h"

namespace {

using std::chrono::microseconds;

microseconds toMicroseconds(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + microseconds(time.tv_nsec / 1000);
}

// The ends of the sleeps that were asked for.
std::vector<microseconds> wakings;

}  // namespace

// In the place of libc's.
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* /*left*/) {
  if (clock != CLOCK_MONOTONIC || flags != TIMER_ABSTIME) return EINVAL;
  wakings.push_back(toMicroseconds(*time));
  return 0;
}

namespace quarlo::tools::replay {
namespace {

using namespace std::chrono_literals;

microseconds now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return toMicroseconds(time);
}

constexpr microseconds kTimes[] = {50ms, 80ms, 3500ms};

recording::Session session() {
  recording::Session session;
  session.keyboard.emplace();
  session.keyboard->codes[EV_KEY] = {KEY_UP};
  int value = 0;
  for (const microseconds time : kTimes) {
    value = 1 - value;
    session.keyboard->records.push_back({time, EV_KEY, KEY_UP, value});
    session.keyboard->records.push_back({time, EV_SYN, SYN_REPORT, 0});
  }
  return session;
}

void playIt(bool realtime) {
  ReplayOptions options;
  options.realtime = realtime;
  wakings.clear();
  testing::internal::CaptureStdout();
  EXPECT_TRUE(play(session(), options));
  EXPECT_NE(testing::internal::GetCapturedStdout().find("3 events"), std::string::npos);
}

TEST(ReplayPace, OfRealTimeIsThatOfTheRecording) {
  const microseconds before = now();
  playIt(true);
  const microseconds after = now();
  ASSERT_FALSE(wakings.empty());
  const microseconds start = wakings.front() - kTimes[0];
  EXPECT_GE(start, before);
  EXPECT_LE(start, after);
  EXPECT_TRUE(std::is_sorted(wakings.begin(), wakings.end()));
  for (const microseconds time : kTimes) EXPECT_GT(std::count(wakings.begin(), wakings.end(), start + time), 0);
  EXPECT_LT(wakings.back(), start + kTimes[2] + 1ms);
}

TEST(ReplayPace, OtherwiseIsThatOfTheProgram) {
  playIt(false);
  EXPECT_TRUE(wakings.empty());
}

}  // namespace
}  // namespace quarlo::tools::replay
