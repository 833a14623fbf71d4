// How the tests themselves run a program: with a limit, and with signals as a shell leaves them.
#include "tests/tools/program.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;

Arguments shell(const std::string& script) { return {"sh", "-c", script}; }

TEST(ProgramTest, OneThatDoesNotEndIsAFailureThatShowsWhatItHasPrinted) {
  Program program({}, Output::kPipe, shell("echo this far; echo and this >&2; exec sleep 600"));
  ASSERT_TRUE(program.waitFor("this far"));
  program.setLimit(50ms);
  Result result = {};
  EXPECT_NONFATAL_FAILURE(result = program.finish(),
                          "did not end within 50 ms. Its standard output so far:\nthis far\n\n"
                          "Its standard error:\nand this\n");
  EXPECT_EQ(result.status, 128 + SIGKILL);
}

TEST(ProgramTest, OneThatDoesNotEndThoughItHasClosedItsOutputIsAFailure) {
  Program program({}, Output::kPipe, shell("exec sleep 600 >&- 2>&-"));
  program.setLimit(50ms);
  EXPECT_NONFATAL_FAILURE(program.finish(), "did not end within 50 ms");
}

TEST(ProgramTest, WaitingForWhatDoesNotComeHasAnEnd) {
  Program program({}, Output::kPipe, shell("echo this far; exec sleep 600"));
  program.setLimit(50ms);
  const testing::AssertionResult result = program.waitFor("more");
  EXPECT_FALSE(result);
  EXPECT_NE(std::string(result.message()).find("did not print \"more\" within 50 ms"), std::string::npos)
      << result.message();
  program.setLimit(1min);
  program.signal(SIGKILL);
}

TEST(ProgramTest, ASignalThatTheTestIgnoresEndsIt) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  Program program({}, Output::kPipe, shell("kill -HUP $$; echo survived"));
  const Result result = program.finish();
  std::signal(SIGHUP, before);
  EXPECT_EQ(result.status, 128 + SIGHUP);
  EXPECT_EQ(result.out, "");
}

}  // namespace
}  // namespace quarlo::tools
