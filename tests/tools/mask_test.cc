#include "tools/common/mask.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include "tools/common/describe.h"

namespace quarlo::tools {
namespace {

using msg::KeyInput;

int maskedCode(int code) {
  return masked(recording::Record{microseconds(0), EV_KEY, static_cast<std::uint16_t>(code), 1}).code;
}

int maskedValue(int type, int code, int value) {
  return masked(recording::Record{microseconds(0), static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(code),
                                  value})
      .value;
}

std::set<int> maskedKeys(const std::set<int>& keys) {
  recording::DeviceDescription device;
  device.codes[EV_KEY] = keys;
  return masked(device).codes[EV_KEY];
}

TEST(MaskedRecord, HidesEveryKeyThatMonitorHides) {
  int hidden = 0;
  for (int code = 0; code <= KEY_MAX; ++code) {
    bool shows = false;
    for (const LinuxInputReader::Modifier modifiers : {KeyInput::kNoModifier, KeyInput::kShiftModifier}) {
      for (const bool numLock : {false, true}) {
        InputEvent::KeyData key = {};
        LinuxInputReader::translateKey(code, modifiers, numLock, key.key, key.ch);
        shows = shows || showsWhatWasTyped(key);
      }
    }
    if (!shows) continue;
    EXPECT_EQ(maskedCode(code), KEY_A) << code;
    ++hidden;
  }
  EXPECT_GT(hidden, 70);
}

TEST(MaskedRecord, HidesKeysThatTypeElsewhere) {
  for (const int code : {KEY_102ND, KEY_KPDOT, KEY_YEN, KEY_NUMERIC_POUND, KEY_BRL_DOT1, KEY_BRL_DOT10}) {
    EXPECT_EQ(maskedCode(code), KEY_A) << code;
  }
}

TEST(MaskedRecord, KeepsTheOtherKeys) {
  for (const int code : {KEY_ENTER, KEY_BACKSPACE, KEY_TAB, KEY_UP, KEY_F1, KEY_LEFTSHIFT, KEY_RIGHTALT, KEY_NUMLOCK,
                         KEY_POWER, KEY_DELETE, KEY_VOLUMEUP, BTN_LEFT, KEY_MAX}) {
    EXPECT_EQ(maskedCode(code), code);
  }
}

TEST(MaskedRecord, KeepsItsValue) {
  for (const int value : {0, 1, 2}) EXPECT_EQ(maskedValue(EV_KEY, KEY_X, value), value);
}

TEST(MaskedRecord, HidesScanCodes) {
  EXPECT_EQ(maskedValue(EV_MSC, MSC_SCAN, 458763), 0);
  EXPECT_EQ(maskedValue(EV_MSC, MSC_RAW, 30), 0);
  EXPECT_EQ(maskedValue(EV_MSC, MSC_TIMESTAMP, 7), 7);
}

TEST(MaskedRecord, KeepsOtherTypesWithAKeysCode) {
  const recording::Record wheel = masked(recording::Record{microseconds(5), EV_REL, KEY_7, -1});
  EXPECT_EQ(wheel.code, KEY_7);
  EXPECT_EQ(wheel.value, -1);
  EXPECT_EQ(wheel.time, microseconds(5));
}

TEST(MaskedDevice, HasAIfAKeyBecomesThat) {
  EXPECT_EQ(maskedKeys({KEY_ENTER, KEY_5}), (std::set<int>{KEY_ENTER, KEY_5, KEY_A}));
  EXPECT_EQ(maskedKeys({KEY_ENTER, BTN_LEFT}), (std::set<int>{KEY_ENTER, BTN_LEFT}));
  EXPECT_TRUE(masked(recording::DeviceDescription()).codes.empty());
}

TEST(MaskedLine, HidesDigitsAndSingleCharacters) {
  for (const std::string button : {"5", "KEY_5", "key_numeric_5", "KEY_NUMERIC_0", "KEY_KP7", "KEY_Q", "x", "KEY_?"}) {
    EXPECT_EQ(maskedLine("0000000000f40bf0 0a " + button + " my tv"), "0000000000000000 0a KEY_1 my tv") << button;
  }
}

TEST(MaskedLine, HidesTheReleaseOfAButton) {
  EXPECT_EQ(maskedLine("0000000000f40bf0 00 KEY_5_UP tv"), "0000000000000000 00 KEY_1_UP tv");
}

TEST(MaskedLine, HidesALineThatIsCutOff) { EXPECT_EQ(maskedLine("f40bf0 00 KEY_5"), "0000000000000000 00 KEY_1"); }

TEST(MaskedLine, KeepsTheRest) {
  for (const std::string line :
       {"0000000000f40bf0 00 KEY_VOLUMEUP tv", "0000000000f40bf0 00 KEY_OK tv", "f40bf0 00 KEY_ tv", "f40bf0 00  tv",
        "BEGIN", "SIGHUP", "END", "5", "5 5", "", " ", "  "}) {
    EXPECT_EQ(maskedLine(line), line);
  }
}

}  // namespace
}  // namespace quarlo::tools
