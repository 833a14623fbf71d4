#include "tools/common/reader_loop.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace quarlo::tools {
namespace {

using Events = std::vector<std::string>;

constexpr char kKeyboard[] = "/dev/input/event0";
constexpr char kMouse[] = "/dev/input/event1";

class ReaderLoopTest : public testing::Test {
 protected:
  ReaderLoopTest() { reader_.init(kMouse, kKeyboard, nullptr, 1919, 1079); }

  // The events of one round.
  Events round() {
    loop_.wait(0);
    Events events;
    InputEvent event = {};
    while (loop_.next(event)) events.push_back(describe(event));
    return events;
  }

  static std::string pathOf(int number) { return "/dev/input/event" + std::to_string(number); }

  static InputLoop::SourceSet only(int source) { return InputLoop::SourceSet{1} << source; }

  sim::Machine machine_;
  sim::Node& keyboard_ = machine_.addNode(kKeyboard, sim::Device::keyboard());
  sim::Node& mouse_ = machine_.addNode(kMouse, sim::Device::mouse());
  LinuxInputReader reader_;
  ReaderLoop loop_{reader_, std::nullopt, ReaderLoop::Empty::kKeys};
};

TEST_F(ReaderLoopTest, TakesFurtherNodesBetweenTheKeyboardAndTheMouse) {
  std::vector<sim::Node*> further;
  for (int i = 0; i < InputLoop::kMostFurtherNodes; ++i) {
    further.push_back(&machine_.addNode(pathOf(20 + i), sim::Device::keyboard()));
    EXPECT_EQ(loop_.join(pathOf(20 + i)), 0);
  }
  mouse_.press(BTN_LEFT);
  for (auto node = further.rbegin(); node != further.rend(); ++node) (*node)->press(KEY_UP);
  keyboard_.press(KEY_DOWN);
  const Events events = round();
  ASSERT_EQ(events.size(), further.size() + 2);
  EXPECT_EQ(events.front(), "key down    Down");
  EXPECT_EQ(events[1], "key down    Up");
  EXPECT_EQ(events.back(), "mouse down  left x1         0,0");
}

TEST_F(ReaderLoopTest, SaysWhyAFurtherNodeIsNotOpen) {
  machine_.addNode(pathOf(20), sim::Device::keyboard());
  EXPECT_EQ(loop_.join(pathOf(20)), 0);
  EXPECT_EQ(loop_.join(pathOf(20)), EEXIST);
  EXPECT_EQ(loop_.join(kKeyboard), EEXIST);
  EXPECT_EQ(loop_.join(kMouse), EEXIST);
  EXPECT_EQ(loop_.join(pathOf(21)), ENOENT);
}

TEST_F(ReaderLoopTest, SaysThatASourceIsGoneWhenWhatItHeldHasComeUp) {
  sim::Node& further = machine_.addNode(pathOf(20), sim::Device::keyboard());
  loop_.join(pathOf(20));
  further.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Events{"key down    Shift                shift"});
  further.unplug();
  EXPECT_EQ(round(), Events{});
  EXPECT_EQ(loop_.gone(), 0U);
  EXPECT_EQ(round(), Events{"key up      Shift"});
  EXPECT_EQ(loop_.gone(), only(InputLoop::kFurther));
}

TEST_F(ReaderLoopTest, MendsWhatWasLostAndSaysSo) {
  keyboard_.press(KEY_LEFTSHIFT);
  round();
  keyboard_.release(KEY_LEFTSHIFT);
  for (int i = 0; i < 40; ++i) {
    keyboard_.press(KEY_UP);
    keyboard_.release(KEY_UP);
  }
  const Events left = round();
  ASSERT_FALSE(left.empty());
  EXPECT_EQ(left.back(), "key up      Up                   shift");
  EXPECT_EQ(loop_.lost(), 0U);
  EXPECT_EQ(round(), Events{"key up      Shift"});
  EXPECT_EQ(loop_.lost(), only(InputLoop::kKeyboard));
  round();
  EXPECT_EQ(loop_.lost(), 0U);
}

}  // namespace
}  // namespace quarlo::tools
