// The loops of examples/ with devices of a real kernel. (tests/live/ has them with a daemon.)
#include <gtest/gtest.h>
#include <linux/input.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/support/example.h"
#include "tests/support/files.h"

namespace quarlo::test {
namespace {

using Lines = std::vector<std::string>;

class KernelLoop : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    pointer.emplace(mouse());
    keys.emplace(keyboard());
    example.emplace(Lines{GetParam()}, folder.path("log"));
    EXPECT_EQ(example->next(1), Lines{"sources: mouse yes, keyboard yes, remote no"});
  }

  Folder folder;
  std::optional<UinputDevice> pointer;
  std::optional<UinputDevice> keys;
  std::optional<Example> example;
};

TEST_P(KernelLoop, TakesWhatComesUntilEscapeIsPressed) {
  pointer->move(10, 20);
  pointer->tap(BTN_RIGHT);
  EXPECT_EQ(example->next(3), Lines({"pointer 10,20", "button down 2", "button up 2"}));
  pointer->report(EV_REL, REL_WHEEL, -1);
  pointer->report(EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(example->next(1), Lines{"wheel down 1"});
  keys->tap(KEY_ESC);
  EXPECT_EQ(example->next(1), Lines{"key down 27 char 27"});
  EXPECT_EQ(example->end(), 0);
}

TEST_P(KernelLoop, GoesOnWithoutADeviceThatIsUnplugged) {
  pointer->unplug();
  EXPECT_EQ(example->next(1), Lines{"gone: mouse"});
  keys->tap(KEY_A);
  EXPECT_EQ(example->next(2), Lines({"key down 65 char 97", "key up 65"}));
}

INSTANTIATE_TEST_SUITE_P(Loops, KernelLoop, testing::Values("drawing_loop", "epoll_loop"),
                         [](const auto& program) { return program.param; });

}  // namespace
}  // namespace quarlo::test
