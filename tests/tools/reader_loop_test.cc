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
  ReaderLoop loop_{reader_, std::nullopt, ReaderLoop::Empty::kUnknown};
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

// Which source each event of a round is from, and what came.
Events originsOf(ReaderLoop& loop) {
  loop.wait(0);
  Events events;
  InputEvent event = {};
  while (loop.next(event)) events.push_back(describeWithSource(event, loop.origin()));
  return events;
}

TEST_F(ReaderLoopTest, TellsWhereAnEventCameFrom) {
  sim::Node& further = machine_.addNode(pathOf(20), sim::Device::keyboard());
  loop_.join(pathOf(20));
  keyboard_.press(KEY_UP);
  further.press(KEY_DOWN);
  mouse_.move(3, 4);
  EXPECT_EQ(originsOf(loop_),
            (Events{"keyboard  key down    Up", "node 1    key down    Down", "mouse     mouse move  3,4"}));
  further.unplug();
  originsOf(loop_);
  EXPECT_EQ(originsOf(loop_), Events{"node 1    key up      Down"});
}

TEST_F(ReaderLoopTest, TellsWhichKeyIsUnknownAndWhichButton) {
  sim::LircDaemon& daemon = machine_.addLircDaemon("remote");
  reader_.lircFd = reader_.openLircSocket("remote");
  sim::Node& keys = machine_.addNode(pathOf(20), {"Media keys", {{EV_KEY, {KEY_PLAYPAUSE}}}});
  loop_.join(pathOf(20));
  keys.press(KEY_PLAYPAUSE);
  daemon.send("KEY_PLAYPAUSE");
  daemon.send("KEY_UP");
  daemon.send("KEY_UP", 1);
  Events all;
  for (Events events = originsOf(loop_); !events.empty(); events = originsOf(loop_)) {
    all.insert(all.end(), events.begin(), events.end());
  }
  EXPECT_EQ(all, (Events{"node 1    key down    key 0           KEY_PLAYPAUSE 164",
                         "remote    no event    KEY_PLAYPAUSE   an unknown button", "remote    key down    Up"}));
}

TEST_F(ReaderLoopTest, GivesRecordsWithoutAnEventWhenAskedTo) {
  ReaderLoop loop(reader_, std::nullopt, ReaderLoop::Empty::kAll);
  mouse_.inject(EV_MSC, MSC_SCAN, 7);
  mouse_.press(BTN_SIDE);
  EXPECT_EQ(originsOf(loop), (Events{"mouse     no event    MSC_SCAN 4      EV_MSC, value 7",
                                     "mouse     no event    BTN_SIDE 275    EV_KEY, value 1"}));
}

// A machine with a loop that polls.
class PollingLoopTest : public testing::Test {
 protected:
  Events round(ReaderLoop::Empty empty = ReaderLoop::Empty::kUnknown) {
    ReaderLoop loop(reader_, 1, empty);
    return originsOf(loop);
  }

  void connect() {
    daemon_ = &machine_.addLircDaemon("remote");
    reader_.lircFd = reader_.openLircSocket("remote");
  }

  sim::Machine machine_;
  sim::Node& keyboard_ = machine_.addNode(kKeyboard, sim::Device::keyboard());
  sim::Node& mouse_ = machine_.addNode(kMouse, sim::Device::mouse());
  sim::LircDaemon* daemon_ = nullptr;
  LinuxInputReader reader_;
};

TEST_F(PollingLoopTest, KnowsTheSourceIfThereIsOne) {
  reader_.init(kMouse, "/nowhere", "/nowhere", 1919, 1079);
  mouse_.move(1, 1);
  EXPECT_EQ(round(), Events{"mouse     mouse move  1,1"});
}

TEST_F(PollingLoopTest, KnowsWhatTheRemoteSent) {
  reader_.init(kMouse, kKeyboard, nullptr, 1919, 1079);
  connect();
  daemon_->send("KEY_UP");
  EXPECT_EQ(round(), Events{"remote    key down    Up"});
  keyboard_.press(KEY_UP);
  EXPECT_EQ(round(), Events{"unknown   key down    Up"});
}

TEST_F(PollingLoopTest, KnowsTheNodeBesideTheRemoteIfThereIsOne) {
  reader_.keyboardFd = reader_.openDevice(kKeyboard, false);
  connect();
  keyboard_.press(KEY_UP);
  EXPECT_EQ(round(), Events{"keyboard  key down    Up"});
  daemon_->send("KEY_UP");
  EXPECT_EQ(round(), Events{"remote    key down    Up"});
}

TEST_F(PollingLoopTest, GivesKeysWithoutAnEventWhenAskedTo) {
  reader_.mouseFd = reader_.openDevice(kMouse, true);
  for (const bool isAsked : {false, true}) {
    mouse_.inject(EV_MSC, MSC_SCAN, 7);
    mouse_.press(BTN_SIDE);
    mouse_.press(BTN_LEFT);
    mouse_.release(BTN_LEFT);
    mouse_.release(BTN_SIDE);
    EXPECT_EQ(round(isAsked ? ReaderLoop::Empty::kAll : ReaderLoop::Empty::kUnknown).size(), isAsked ? 4U : 2U);
  }
}

}  // namespace
}  // namespace quarlo::tools
