// The first click of a process is measured against a time of zero, so it needs processes of its own: new ones, in which
// no other test has clicked.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

// Ends the process with the click count of its first click, at this time on the clock.
[[noreturn]] void exitWithFirstClick(std::chrono::seconds time, int code = BTN_LEFT) {
  sim::Machine machine;
  machine.jumpClock(time - machine.now());
  LinuxInputReader reader;
  input_event record = makeEvdevRecord(EV_KEY, code, 1);
  InputEvent event = untouched();
  reader.handleKeyEvent(&record, event);
  std::exit(event.mouseData.clicks);
}

class FirstClickDeathTest : public testing::Test {
 protected:
  // A program in an emulator cannot start itself; there, it forks, before any other test has clicked.
  FirstClickDeathTest() { GTEST_FLAG_SET(death_test_style, QUARLO_IS_EMULATED ? "fast" : "threadsafe"); }
};

TEST_F(FirstClickDeathTest, IsASingleOneWhileTheWrappedTimeIsPositive) {
  EXPECT_EXIT(exitWithFirstClick(1'000'000s), testing::ExitedWithCode(1), "");
  EXPECT_EXIT(exitWithFirstClick(1s), testing::ExitedWithCode(1), "");
}

TEST_F(FirstClickDeathTest, CountsAsTheSecondWhileItIsNegative) {
  EXPECT_EXIT(exitWithFirstClick(3'000'000s), testing::ExitedWithCode(2), "");
  EXPECT_EXIT(exitWithFirstClick(0s), testing::ExitedWithCode(2), "");
}

TEST_F(FirstClickDeathTest, CountsAsTheSecondWithEachButton) {
  EXPECT_EXIT(exitWithFirstClick(0s, BTN_RIGHT), testing::ExitedWithCode(2), "");
  EXPECT_EXIT(exitWithFirstClick(0s, BTN_MIDDLE), testing::ExitedWithCode(2), "");
}

}  // namespace
}  // namespace quarlo::test
