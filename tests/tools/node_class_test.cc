#include "tools/common/node_class.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <set>
#include <string>

#include "sim/machine.h"
#include "tests/support/devices.h"
#include "tools/common/evdev_node.h"

namespace quarlo::tools {
namespace {

using Codes = std::set<int>;

Codes range(int first, int last) {
  Codes codes;
  for (int code = first; code <= last; ++code) codes.insert(code);
  return codes;
}

Codes operator+(Codes codes, Codes more) {
  codes.merge(more);
  return codes;
}

const Codes kPcKeys = range(KEY_ESC, KEY_COMPOSE);
const Codes kArrows = {KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT};
const Codes kMouseButtons = range(BTN_LEFT, BTN_EXTRA);
const Codes kXy = {REL_X, REL_Y};
const Codes kMultiTouch = {ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID};
// What the kernel declares for a control that is described as the whole of a page.
const Codes kAllMiscellaneousAxes = range(ABS_MISC, ABS_MT_TOOL_Y);

NodeFacts node(std::map<int, Codes> codes, Codes properties = {}) {
  NodeFacts facts;
  facts.codes = std::move(codes);
  facts.properties = std::move(properties);
  return facts;
}

std::string classNameOf(const NodeFacts& facts) { return nameOf(classOf(facts)); }

TEST(NodeClass, OfKeysIsByTheirLetters) {
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys}})), "keyboard");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys + Codes{BTN_TRIGGER_HAPPY}}})), "keyboard");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kArrows + Codes{KEY_PLAYPAUSE, KEY_POWER}}})), "media keys");
  EXPECT_EQ(classNameOf(node({{EV_KEY, range(KEY_Q, KEY_L)}})), "media keys");
}

TEST(NodeClass, OfKeysStaysWithAWheelAndAVolume) {
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys}, {EV_REL, {REL_HWHEEL, REL_WHEEL}}, {EV_ABS, {ABS_VOLUME}}})),
            "keyboard");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {KEY_MUTE, KEY_NEXTSONG, BTN_TOUCH, BTN_STYLUS}},
                              {EV_REL, {REL_HWHEEL}},
                              {EV_ABS, kAllMiscellaneousAxes}})),
            "media keys");
}

TEST(NodeClass, OfPowerVolumeAndDisplayAloneIsButtons) {
  EXPECT_EQ(classNameOf(node({{EV_KEY, {KEY_POWER}}})), "buttons");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_POWER}}, {EV_SW, {SW_LID}}})), "buttons");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {KEY_BRIGHTNESSUP, KEY_BRIGHTNESSDOWN, KEY_SWITCHVIDEOMODE}}})), "buttons");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_NEXTSONG}}})), "media keys");
}

TEST(NodeClass, OfARemoteIsByReceiverOrBus) {
  NodeFacts infrared = node({{EV_KEY, kArrows + Codes{KEY_OK, BTN_LEFT}}, {EV_REL, kXy}});
  EXPECT_EQ(classNameOf(infrared), "mouse");
  infrared.rc = RcFacts();
  EXPECT_EQ(classNameOf(infrared), "remote");
  NodeFacts cec = node({{EV_KEY, kArrows}});
  cec.ids.bus = BUS_CEC;
  EXPECT_EQ(classNameOf(cec), "remote");
}

TEST(NodeClass, OfARemoteIsByWhatRcCoreDeclaresWhereThereIsNoSysfs) {
  const NodeFacts remote = node({{EV_KEY, {KEY_OK, BTN_LEFT}}, {EV_REL, kXy}, {EV_MSC, {MSC_SCAN}}, {EV_REP, {}}},
                                {INPUT_PROP_POINTING_STICK});
  EXPECT_EQ(classNameOf(remote), "remote");
  NodeFacts stick = remote;
  stick.properties.insert(INPUT_PROP_POINTER);
  EXPECT_EQ(classNameOf(stick), "mouse");
  NodeFacts withoutRepeat = remote;
  withoutRepeat.codes.erase(EV_REP);
  EXPECT_EQ(classNameOf(withoutRepeat), "mouse");
  NodeFacts keyboard = remote;
  keyboard.codes[EV_KEY] = kPcKeys;
  keyboard.codes[EV_LED] = {LED_CAPSL};
  EXPECT_EQ(classNameOf(keyboard), "keyboard with pointer");
}

TEST(NodeClass, OfARemoteIsByItsDigitsWhereAnOldKernelDeclaresNoAxes) {
  const Codes digits = range(KEY_NUMERIC_0, KEY_NUMERIC_9);
  EXPECT_EQ(classNameOf(node({{EV_KEY, kArrows + digits}, {EV_REP, {}}})), "remote");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kArrows + digits}})), "media keys");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys + digits}, {EV_REP, {}}})), "keyboard");
}

TEST(NodeClass, OfTouchIsByWhereItPoints) {
  const Codes fingers = {BTN_TOUCH, BTN_TOOL_FINGER, BTN_LEFT, BTN_TOOL_DOUBLETAP};
  EXPECT_EQ(classNameOf(node({{EV_KEY, fingers}, {EV_ABS, kMultiTouch}}, {INPUT_PROP_POINTER})), "touchpad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, fingers}, {EV_ABS, {ABS_X, ABS_Y}}})), "touchpad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_TOUCH}}, {EV_ABS, kMultiTouch}}, {INPUT_PROP_BUTTONPAD})), "touchpad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, fingers}, {EV_ABS, kMultiTouch}}, {INPUT_PROP_DIRECT})), "touchscreen");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_TOUCH}}, {EV_ABS, {ABS_X, ABS_Y}}})), "touchscreen");
  EXPECT_EQ(classNameOf(node({{EV_ABS, {ABS_MT_POSITION_X, ABS_MT_POSITION_Y}}}, {INPUT_PROP_DIRECT})), "touchscreen");
}

TEST(NodeClass, OfATabletIsItsPenOrItsButtons) {
  const Codes pen = {BTN_TOOL_PEN, BTN_TOUCH, BTN_STYLUS};
  EXPECT_EQ(classNameOf(node({{EV_KEY, pen}, {EV_ABS, {ABS_X, ABS_Y, ABS_PRESSURE}}}, {INPUT_PROP_POINTER})), "pen");
  EXPECT_EQ(classNameOf(node({{EV_KEY, pen + kPcKeys}, {EV_ABS, {ABS_X, ABS_Y}}})), "pen");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_TOUCH, BTN_STYLUS}}, {EV_ABS, {ABS_X, ABS_Y}}})), "pen");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_TOOL_PEN, BTN_STYLUS}}, {EV_ABS, {ABS_X, ABS_Y}}})), "pen");
  EXPECT_EQ(classNameOf(node({{EV_KEY, pen + kMouseButtons}, {EV_ABS, {ABS_X, ABS_Y}}, {EV_REL, {REL_WHEEL}}})), "pen");
  const Codes buttons = {BTN_0, BTN_1, BTN_BASE, BTN_SOUTH, BTN_STYLUS};
  EXPECT_EQ(classNameOf(node({{EV_KEY, buttons}, {EV_ABS, {ABS_X, ABS_Y, ABS_RX}}})), "tablet buttons");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_LEFT, BTN_FORWARD, BTN_STYLUS}}, {EV_ABS, {ABS_X, ABS_Y}}})),
            "tablet buttons");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_0, BTN_1, BTN_2}}})), "tablet buttons");
}

TEST(NodeClass, OfAPointerIsByItsAxes) {
  EXPECT_EQ(classNameOf(node({{EV_KEY, kMouseButtons}, {EV_REL, kXy + Codes{REL_WHEEL}}})), "mouse");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kMouseButtons + kArrows}, {EV_REL, kXy}, {EV_ABS, kAllMiscellaneousAxes}})),
            "mouse");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kMouseButtons}, {EV_REL, {REL_WHEEL}}, {EV_ABS, {ABS_X, ABS_Y}}})),
            "absolute mouse");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys + kMouseButtons}, {EV_REL, kXy}})), "keyboard with pointer");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys}, {EV_REL, kXy}})), "keyboard with pointer");
  EXPECT_EQ(
      classNameOf(node(
          {{EV_KEY, kPcKeys + Codes{BTN_LEFT, BTN_TOUCH, BTN_TOOL_FINGER}}, {EV_REL, kXy}, {EV_ABS, {ABS_X, ABS_Y}}})),
      "keyboard with pointer");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kPcKeys + kMouseButtons}, {EV_ABS, {ABS_X, ABS_Y}}})), "keyboard with pointer");
}

TEST(NodeClass, OfAGamepadIsByItsButtons) {
  EXPECT_EQ(classNameOf(node({{EV_KEY, range(BTN_SOUTH, BTN_THUMBR)}, {EV_ABS, range(ABS_X, ABS_RZ)}})), "gamepad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, range(BTN_TRIGGER, BTN_BASE6)}, {EV_ABS, {ABS_X, ABS_Y}}})), "gamepad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, kArrows + Codes{BTN_1, BTN_2, BTN_A, BTN_B, BTN_MODE}}})), "gamepad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {BTN_0, BTN_1}}, {EV_ABS, range(ABS_X, ABS_RZ)}})), "gamepad");
  EXPECT_EQ(classNameOf(node({{EV_KEY, Codes{KEY_VOLUMEUP, KEY_VOLUMEDOWN, KEY_PHONE} + range(BTN_0, BTN_THUMBR)}})),
            "media keys");
}

TEST(NodeClass, OfWhatHasNoKeysIsByWhatItHas) {
  EXPECT_EQ(classNameOf(node({{EV_SW, {SW_LID}}})), "switch");
  EXPECT_EQ(classNameOf(node({{EV_ABS, {ABS_X, ABS_Y, ABS_Z}}}, {INPUT_PROP_ACCELEROMETER})), "sensor");
  EXPECT_EQ(classNameOf(node({{EV_ABS, {ABS_MISC}}})), "sensor");
  EXPECT_EQ(classNameOf(node({{EV_REL, {REL_WHEEL}}})), "other");
  EXPECT_EQ(classNameOf(node({{EV_KEY, {}}, {EV_SND, {SND_BELL}}})), "other");
  EXPECT_EQ(classNameOf(node({})), "other");
}

class RealDeviceTest : public testing::TestWithParam<test::RealDevice> {};

TEST_P(RealDeviceTest, HasTheClassThatAPersonWouldName) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", GetParam().device);
  const int fd = openForReading("/dev/input/event0");
  EXPECT_EQ(classNameOf(readNodeFacts(fd, {"/dev", "/nowhere"})), GetParam().deviceClass);
  close(fd);
}

INSTANTIATE_TEST_SUITE_P(NodeClass, RealDeviceTest, testing::ValuesIn(test::realDevices()),
                         [](const auto& device) { return std::string(device.param.id); });

}  // namespace
}  // namespace quarlo::tools
