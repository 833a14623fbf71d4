#include <gtest/gtest.h>

#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

TEST(Screen, NeedsABuildWithNcurses) {
  const Result result = run({"monitor", "--tui"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "quarlo-input: this quarlo-input was built without ncurses, so it has no --tui; build it where "
            "libncurses-dev is installed\n");
}

}  // namespace
}  // namespace quarlo::tools
