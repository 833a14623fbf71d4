#include "tools/record/node.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

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
