#include "tools/common/code_names.h"

#include <gtest/gtest.h>
#include <linux/input.h>

namespace quarlo::tools {
namespace {

TEST(TypeName, IsLinuxs) {
  EXPECT_EQ(typeName(EV_SYN), "EV_SYN");
  EXPECT_EQ(typeName(EV_KEY), "EV_KEY");
  EXPECT_EQ(typeName(EV_FF_STATUS), "EV_FF_STATUS");
}

TEST(TypeName, IsANumberWhereThereIsNone) {
  EXPECT_EQ(typeName(0x18), "0x18");
  EXPECT_EQ(typeName(EV_MAX), "0x1f");
  EXPECT_EQ(typeName(0xffff), "0xffff");
}

TEST(CodeName, IsLinuxs) {
  EXPECT_EQ(codeName(EV_SYN, SYN_DROPPED), "SYN_DROPPED");
  EXPECT_EQ(codeName(EV_KEY, KEY_RESERVED), "KEY_RESERVED");
  EXPECT_EQ(codeName(EV_KEY, 164), "KEY_PLAYPAUSE");
  EXPECT_EQ(codeName(EV_KEY, KEY_OK), "KEY_OK");
  EXPECT_EQ(codeName(EV_KEY, BTN_TL), "BTN_TL");
  EXPECT_EQ(codeName(EV_REL, REL_WHEEL), "REL_WHEEL");
  EXPECT_EQ(codeName(EV_ABS, ABS_MT_SLOT), "ABS_MT_SLOT");
  EXPECT_EQ(codeName(EV_MSC, MSC_SCAN), "MSC_SCAN");
  EXPECT_EQ(codeName(EV_SW, SW_LID), "SW_LID");
  EXPECT_EQ(codeName(EV_LED, LED_CAPSL), "LED_CAPSL");
  EXPECT_EQ(codeName(EV_SND, SND_TONE), "SND_TONE");
  EXPECT_EQ(codeName(EV_REP, REP_PERIOD), "REP_PERIOD");
  EXPECT_EQ(codeName(EV_FF, FF_GAIN), "FF_GAIN");
  EXPECT_EQ(codeName(EV_FF_STATUS, FF_STATUS_PLAYING), "FF_STATUS_PLAYING");
}

TEST(CodeName, IsNotThatOfAGroup) {
  EXPECT_EQ(codeName(EV_KEY, KEY_MIN_INTERESTING), "KEY_MUTE");
  EXPECT_EQ(codeName(EV_KEY, BTN_MISC), "BTN_0");
  EXPECT_EQ(codeName(EV_KEY, BTN_MOUSE), "BTN_LEFT");
  EXPECT_EQ(codeName(EV_KEY, BTN_JOYSTICK), "BTN_TRIGGER");
  EXPECT_EQ(codeName(EV_KEY, BTN_DIGI), "BTN_TOOL_PEN");
  EXPECT_EQ(codeName(EV_KEY, BTN_WHEEL), "BTN_GEAR_DOWN");
  EXPECT_EQ(codeName(EV_KEY, BTN_TRIGGER_HAPPY), "BTN_TRIGGER_HAPPY1");
}

TEST(CodeName, IsNotAnAlias) {
  EXPECT_EQ(codeName(EV_KEY, KEY_SCREENLOCK), "KEY_COFFEE");
  EXPECT_EQ(codeName(EV_KEY, KEY_BRIGHTNESS_ZERO), "KEY_BRIGHTNESS_AUTO");
  EXPECT_EQ(codeName(EV_KEY, BTN_A), "BTN_SOUTH");
  EXPECT_EQ(codeName(EV_SW, SW_RADIO), "SW_RFKILL_ALL");
}

TEST(CodeName, IsNotALimit) {
  EXPECT_EQ(codeName(EV_REP, REP_MAX), "REP_PERIOD");
  EXPECT_EQ(codeName(EV_FF, FF_EFFECT_MIN), "FF_RUMBLE");
  EXPECT_EQ(codeName(EV_KEY, KEY_BRIGHTNESS_MAX), "KEY_BRIGHTNESS_MAX");
}

TEST(CodeName, IsANumberWhereThereIsNone) {
  EXPECT_EQ(codeName(EV_KEY, KEY_MAX), "0x2ff");
  EXPECT_EQ(codeName(EV_REL, REL_MAX), "0x0f");
  EXPECT_EQ(codeName(EV_PWR, 0), "0x00");
  EXPECT_EQ(codeName(0x18, 0xffff), "0xffff");
}

}  // namespace
}  // namespace quarlo::tools
