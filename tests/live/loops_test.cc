// The loops of examples/ as programs, with FIFOs in the place of evdev nodes and a daemon of the test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/example.h"
#include "tests/support/files.h"
#include "tests/tools/daemon.h"

namespace quarlo::test {
namespace {

using Lines = std::vector<std::string>;

const std::filesystem::path kExamples = QUARLO_EXAMPLES;

class OneLoop : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const std::string program = kExamples / GetParam();
    if (!std::filesystem::exists(program)) GTEST_SKIP() << GetParam() << " was not built: its library is missing";
    // So that a remote's key is forgotten soon.
    setenv("LIRC_RELEASE_TIMEOUT", "1", 1);
    setenv("LIRC_REPEAT_TIMEOUT", "1", 1);
    example.emplace(Lines{program, folder.path("mouse"), folder.path("keyboard"), folder.path("lircd")},
                    folder.path("log"));
    EXPECT_EQ(next(), "sources: mouse yes, keyboard yes, remote yes");
  }

  std::string next() {
    const Lines lines = example->next(1);
    return lines.empty() ? "the end" : lines[0];
  }

  Folder folder;
  Fifo mouse{folder.path("mouse")};
  Fifo keyboard{folder.path("keyboard")};
  tools::Daemon daemon{folder.path("lircd")};
  std::optional<Example> example;
};

class EachLoop : public OneLoop {};

TEST_P(EachLoop, TakesWhatComesFromEachSource) {
  keyboard.send({{EV_KEY, KEY_A, 1}});
  EXPECT_EQ(next(), "key down 65 char 97");
  mouse.send({{EV_REL, REL_X, 10}, {EV_REL, REL_Y, 20}, {EV_KEY, BTN_RIGHT, 1}});
  EXPECT_EQ(example->next(2), Lines({"pointer 10,20", "button down 2"}));
  daemon.send("0000000000f40bf0 00 KEY_UP myremote\n");
  EXPECT_EQ(next(), "key down 38 char 0");
  EXPECT_EQ(next(), "no longer held on the remote: 38");
  keyboard.send({{EV_KEY, KEY_A, 0}});
  EXPECT_EQ(next(), "key up 65");
}

TEST_P(EachLoop, EndsWithSuccessWhenEscapeIsPressed) {
  keyboard.send({{EV_KEY, KEY_ESC, 1}});
  EXPECT_EQ(next(), "key down 27 char 27");
  EXPECT_TRUE(std::regex_match(next(), std::regex("\\d+ frames")));
  EXPECT_EQ(next(), "the end");
  EXPECT_EQ(example->end(), 0);
}

class EachLoopOfInputLoop : public OneLoop {};

TEST_P(EachLoopOfInputLoop, GivesTheStepsOfAWheel) {
  mouse.send({{EV_REL, REL_WHEEL, -2}});
  EXPECT_EQ(next(), "wheel down 2");
}

TEST_P(EachLoopOfInputLoop, GoesOnWithoutASourceThatIsGone) {
  mouse.close();
  EXPECT_EQ(next(), "gone: mouse");
  keyboard.send({{EV_KEY, KEY_A, 1}});
  EXPECT_EQ(next(), "key down 65 char 97");
  daemon.send("0000000000f40bf0 00 KEY_UP myremote\n");
  daemon.hangUp();
  EXPECT_EQ(next(), "key down 38 char 0");
  Lines end = example->next(2);
  std::sort(end.begin(), end.end());
  EXPECT_EQ(end, Lines({"gone: remote", "no longer held on the remote: 38"}));
  keyboard.send({{EV_KEY, KEY_A, 0}});
  EXPECT_EQ(next(), "key up 65");
}

const auto kName = [](const auto& program) { return program.param; };
INSTANTIATE_TEST_SUITE_P(Loops, EachLoop, testing::Values(QUARLO_LOOPS, "polling_loop"), kName);
INSTANTIATE_TEST_SUITE_P(Loops, EachLoopOfInputLoop, testing::Values(QUARLO_LOOPS), kName);

}  // namespace
}  // namespace quarlo::test
