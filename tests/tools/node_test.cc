#include "tools/record/node.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace quarlo::tools::record {
namespace {

using namespace std::chrono_literals;
using std::chrono::seconds;
using Codes = std::map<int, std::set<int>>;

TEST(Node, SaysItsNameAndWhatItCanSend) {
  const Codes codes = {{EV_KEY, {KEY_ESC, KEY_MAX}}, {EV_REL, {REL_X, REL_Y}}, {EV_ABS, {ABS_X}}, {EV_PWR, {}}};
  sim::Machine machine;
  machine.addNode("/dev/input/event0", {"Combined", codes});
  const int fd = open("/dev/input/event0", O_RDONLY);
  const recording::DeviceDescription device = describeNode(fd);
  close(fd);
  EXPECT_EQ(device.name, "Combined");
  EXPECT_EQ(device.codes, codes);
  EXPECT_EQ(device.axes.size(), 1U);
  EXPECT_EQ(device.axes.count(ABS_X), 1U);
}

TEST(Node, SaysWhoItIsAndWhatIsOn) {
  sim::Device described = {"Combined", {{EV_LED, {LED_NUML, LED_CAPSL}}, {EV_SW, {SW_LID, SW_DOCK}}}};
  described.id = {BUS_USB, 0x1234, 0x5678, 0x0111};
  described.properties = {INPUT_PROP_POINTER, INPUT_PROP_MAX};
  sim::Machine machine;
  sim::Node& node = machine.addNode("/dev/input/event0", described);
  node.setState(EV_LED, LED_CAPSL, true);
  node.setState(EV_SW, SW_DOCK, true);
  const int fd = open("/dev/input/event0", O_RDONLY);
  const recording::DeviceDescription device = describeNode(fd);
  close(fd);
  EXPECT_EQ(device.bus, BUS_USB);
  EXPECT_EQ(device.vendor, 0x1234);
  EXPECT_EQ(device.product, 0x5678);
  EXPECT_EQ(device.version, 0x0111);
  EXPECT_EQ(device.properties, described.properties);
  EXPECT_EQ(device.ledsOn, std::set<int>{LED_CAPSL});
  EXPECT_EQ(device.switchesOn, std::set<int>{SW_DOCK});
}

TEST(Node, SaysTheRangeOfEachAxis) {
  sim::Device described = {"Stick", {{EV_ABS, {ABS_X, ABS_Y}}}};
  input_absinfo& axis = described.axes[ABS_X];
  axis.value = 9;
  axis.minimum = -100;
  axis.maximum = 200;
  axis.fuzz = 3;
  axis.flat = 4;
  axis.resolution = 5;
  described.axes[ABS_Y].maximum = 2;
  sim::Machine machine;
  machine.addNode("/dev/input/event0", described);
  const int fd = open("/dev/input/event0", O_RDONLY);
  const recording::DeviceDescription device = describeNode(fd);
  close(fd);
  const recording::DeviceDescription::Axis x = device.axes.at(ABS_X);
  EXPECT_EQ(x.minimum, -100);
  EXPECT_EQ(x.maximum, 200);
  EXPECT_EQ(x.fuzz, 3);
  EXPECT_EQ(x.flat, 4);
  EXPECT_EQ(x.resolution, 5);
  EXPECT_EQ(device.axes.at(ABS_Y).maximum, 2);
}

TEST(Node, ThatRepeatsKeysHasBothCodesOfThat) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", {"Keys", {{EV_REP, {}}}});
  const int fd = open("/dev/input/event0", O_RDONLY);
  EXPECT_EQ(describeNode(fd).codes, (Codes{{EV_REP, {REP_DELAY, REP_PERIOD}}}));
  close(fd);
}

TEST(Node, ThatAnswersNothingIsDescribedAsEmpty) {
  const recording::DeviceDescription device = describeNode(-1);
  EXPECT_EQ(device.name, "");
  EXPECT_TRUE(device.codes.empty());
  EXPECT_TRUE(device.properties.empty());
  EXPECT_TRUE(device.ledsOn.empty());
  EXPECT_TRUE(device.switchesOn.empty());
  EXPECT_EQ(device.bus, 0);
  EXPECT_EQ(device.vendor, 0);
  EXPECT_EQ(device.product, 0);
  EXPECT_EQ(device.version, 0);
}

TEST(Node, ThatTellsNothingOfAnAxisHasItWithoutARange) {
  sim::Device described = {"Stick", {{EV_ABS, {ABS_X}}}};
  described.axes[ABS_X].maximum = 100;
  sim::Machine machine;
  machine.addNode("/dev/input/event0", described).setIoctlError(EVIOCGABS(ABS_X), EIO);
  const int fd = open("/dev/input/event0", O_RDONLY);
  const recording::DeviceDescription::Axis axis = describeNode(fd).axes.at(ABS_X);
  close(fd);
  EXPECT_EQ(axis.minimum, 0);
  EXPECT_EQ(axis.maximum, 0);
  EXPECT_EQ(axis.resolution, 0);
}

TEST(Node, HasTheFirst255BytesOfALongName) {
  const std::string name = std::string(200, 'a') + std::string(200, 'b');
  sim::Machine machine;
  machine.addNode("/dev/input/event0", {name, {}});
  const int fd = open("/dev/input/event0", O_RDONLY);
  EXPECT_EQ(describeNode(fd).name, name.substr(0, 255));
  close(fd);
}

// A descriptor of a simulated keyboard, and what is recorded of it.
class HeldKeysTest : public testing::Test {
 protected:
  ~HeldKeysTest() override { close(fd_); }

  // Reads what is there, and returns how many records that were.
  int follow() {
    input_event events[64];
    const ssize_t size = read(fd_, events, sizeof events);
    const int count = size > 0 ? static_cast<int>(size / static_cast<ssize_t>(sizeof(input_event))) : 0;
    std::for_each(events, events + count, [&](const input_event& event) { held_.follow(event); });
    return count;
  }

  // More than the queue holds, in which nothing is left but the last tap's release.
  void lose() {
    for (int i = 0; i < 32; ++i) {
      keyboard_.press(KEY_UP);
      keyboard_.release(KEY_UP);
    }
  }

  // "30+ 42- 0" for KEY_A down, Left Shift up, and the end of the report.
  static std::string text(const std::vector<recording::Record>& records) {
    std::string text;
    for (const recording::Record& record : records) {
      EXPECT_EQ(record.time, 7s);
      if (record.type == EV_KEY) {
        text += std::to_string(record.code) + (record.value == 1 ? "+ " : record.value == 0 ? "- " : "? ");
      } else {
        EXPECT_EQ(record.type, EV_SYN);
        text += std::to_string(record.code);
      }
    }
    return text;
  }

  sim::Machine machine_;
  sim::Node& keyboard_ = machine_.addNode("/dev/input/event0", sim::Device::keyboard());
  int fd_ = open("/dev/input/event0", O_RDONLY | O_NONBLOCK);
  HeldKeys held_;
};

TEST_F(HeldKeysTest, AreMendedAfterALossFirstWhatHasComeUp) {
  keyboard_.press(KEY_LEFTSHIFT);
  keyboard_.press(KEY_LEFTCTRL);
  follow();
  keyboard_.release(KEY_LEFTSHIFT);
  keyboard_.press(KEY_A);
  lose();
  EXPECT_GT(follow(), 0);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "42- 30+ 0");
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "");
  EXPECT_EQ(text(held_.release(7s)), "29- 30- 0");
  EXPECT_EQ(text(held_.release(7s)), "");
}

TEST_F(HeldKeysTest, AreNotAskedForAgainAfterThat) {
  lose();
  follow();
  held_.mend(fd_, 7s);
  const int asked = machine_.count(sim::Call::kIoctl);
  held_.mend(fd_, 7s);
  EXPECT_EQ(machine_.count(sim::Call::kIoctl), asked);
}

TEST_F(HeldKeysTest, AreNotWhatElseANodeSends) {
  input_event motion = {};
  motion.type = EV_REL;
  motion.code = REL_X;
  motion.value = 5;
  held_.follow(motion);
  EXPECT_EQ(text(held_.release(7s)), "");
}

TEST_F(HeldKeysTest, AreNotAskedForWithoutALoss) {
  keyboard_.press(KEY_LEFTSHIFT);
  follow();
  keyboard_.release(KEY_LEFTSHIFT);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "");
  EXPECT_EQ(follow(), 2);
  EXPECT_EQ(text(held_.release(7s)), "");
}

TEST_F(HeldKeysTest, AreNotAskedForEachTimeThatAllWasRead) {
  keyboard_.press(KEY_LEFTSHIFT);
  follow();
  const int asked = machine_.count(sim::Call::kIoctl);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "");
  EXPECT_EQ(machine_.count(sim::Call::kIoctl), asked);
}

// The answer would take what has come since.
TEST_F(HeldKeysTest, AreNotAskedForBeforeAllWasRead) {
  keyboard_.press(KEY_LEFTSHIFT);
  follow();
  keyboard_.release(KEY_LEFTSHIFT);
  lose();
  follow();
  keyboard_.press(KEY_B);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "");
  EXPECT_EQ(follow(), 2);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "42- 0");
}

TEST_F(HeldKeysTest, OfANodeThatDoesNotAnswerStay) {
  keyboard_.press(KEY_LEFTSHIFT);
  follow();
  keyboard_.release(KEY_LEFTSHIFT);
  lose();
  follow();
  keyboard_.setIoctlError(EVIOCGKEY(0), EIO);
  EXPECT_EQ(text(held_.mend(fd_, 7s)), "");
  EXPECT_EQ(text(held_.release(7s)), "42- 0");
}

TEST(ToRecord, CountsTheTimeFromTheStart) {
  input_event event = {};
  event.input_event_sec = INT32_MAX;  // the latest for which a 32-bit time_t has a place
  event.input_event_usec = 999999;
  event.type = EV_REL;
  event.code = REL_Y;
  event.value = -3;
  const recording::Record record = toRecord(event, seconds(INT32_MAX - 5) + 500ms);
  EXPECT_EQ(record.time, 5499999us);
  EXPECT_EQ(record.type, EV_REL);
  EXPECT_EQ(record.code, REL_Y);
  EXPECT_EQ(record.value, -3);
  EXPECT_EQ(toRecord(event, seconds(INT32_MAX) + 1s + 2us).time, -3us);
}

}  // namespace
}  // namespace quarlo::tools::record
