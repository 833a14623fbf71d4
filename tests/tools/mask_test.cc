#include "tools/common/mask.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace quarlo::tools {
namespace {

using msg::KeyInput;
using KeyData = InputEvent::KeyData;
using Key = LinuxInputReader::Key;
using Modifier = LinuxInputReader::Modifier;

constexpr Mask kMasks[] = {Mask::kTyping, Mask::kTypingAndModifiers};

constexpr int kModifiers[] = {KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTCTRL,  KEY_RIGHTCTRL, KEY_LEFTALT,
                              KEY_RIGHTALT,  KEY_LEFTMETA,   KEY_RIGHTMETA, KEY_CAPSLOCK,  KEY_NUMLOCK};
constexpr int kEditingKeys[] = {KEY_BACKSPACE, KEY_DELETE, KEY_INSERT, KEY_CUT, KEY_COPY, KEY_PASTE, KEY_UNDO};

bool isModifier(int code) { return std::count(std::begin(kModifiers), std::end(kModifiers), code) != 0; }

// ---- Records ------------------------------------------------------------------------------------

recording::Record record(int type, int code, int value) {
  return {microseconds(5), static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(code), value};
}

int maskedCode(Mask mask, int code) { return masked(mask, record(EV_KEY, code, 1)).value().code; }

int maskedValue(Mask mask, int type, int code, int value) {
  return masked(mask, record(type, code, value)).value().value;
}

constexpr int kTypingKeys[] = {
#define TYPES(name) name,
#include "tests/tools/typing_keys.inc"
#undef TYPES
};

TEST(MaskedRecord, HidesEveryKeyThatTypesAnywhere) {
  for (const int code : kTypingKeys) {
    EXPECT_EQ(maskedCode(Mask::kTypingAndModifiers, code), KEY_A) << code;
    EXPECT_EQ(maskedCode(Mask::kTyping, code), isModifier(code) ? code : KEY_A) << code;
  }
}

TEST(MaskedRecord, HidesEveryKeyThatTypesForTheReader) {
  int hidden = 0;
  for (int code = 0; code <= KEY_MAX; ++code) {
    bool types = false;
    for (const Modifier modifiers : {KeyInput::kNoModifier, KeyInput::kShiftModifier}) {
      for (const bool numLock : {false, true}) {
        KeyData key = {};
        LinuxInputReader::translateKey(code, modifiers, numLock, key.key, key.ch);
        types = types || (key.ch >= ' ' && key.ch <= '~');
      }
    }
    if (!types) continue;
    for (const Mask mask : kMasks) EXPECT_EQ(maskedCode(mask, code), KEY_A) << code;
    ++hidden;
  }
  EXPECT_GT(hidden, 70);
}

TEST(MaskedRecord, HidesWhatIsNotKnown) {
  constexpr int kNobodysCode = KEY_MAX;
  for (const int code :
       {KEY_RESERVED, KEY_UNKNOWN, KEY_MACRO1, KEY_HANGEUL, KEY_TEEN, KEY_EMOJI_PICKER, kNobodysCode}) {
    for (const Mask mask : kMasks) EXPECT_EQ(maskedCode(mask, code), KEY_A) << code;
  }
}

TEST(MaskedRecord, ShowsWhatIsKnownNotToType) {
  for (const int code : {KEY_ENTER, KEY_TAB, KEY_ESC, KEY_UP, KEY_F1, KEY_F24, KEY_POWER, KEY_VOLUMEUP, KEY_MENU,
                         KEY_RED, KEY_EPG, KEY_OK, BTN_LEFT, BTN_TASK, BTN_TOUCH}) {
    for (const Mask mask : kMasks) EXPECT_EQ(maskedCode(mask, code), code);
  }
}

TEST(MaskedRecord, ShowsModifiersAndEditingKeysOnlyWhenAskedTo) {
  for (const auto& keys : {std::vector<int>(std::begin(kModifiers), std::end(kModifiers)),
                           std::vector<int>(std::begin(kEditingKeys), std::end(kEditingKeys))}) {
    for (const int code : keys) {
      EXPECT_EQ(maskedCode(Mask::kTypingAndModifiers, code), KEY_A) << code;
      EXPECT_EQ(maskedCode(Mask::kTyping, code), code);
    }
  }
}

TEST(MaskedRecord, KeepsTheValueOfAKey) {
  for (const int value : {0, 1, 2}) EXPECT_EQ(maskedValue(Mask::kTypingAndModifiers, EV_KEY, KEY_X, value), value);
}

TEST(MaskedRecord, HidesScanCodesAndWhatElseADeviceSaysOfItsKeys) {
  for (const Mask mask : kMasks) {
    for (const int code : {MSC_SCAN, MSC_RAW, MSC_SERIAL, MSC_PULSELED, MSC_GESTURE, MSC_MAX}) {
      EXPECT_EQ(maskedValue(mask, EV_MSC, code, 458763), 0) << code;
    }
    EXPECT_EQ(maskedValue(mask, EV_MSC, MSC_TIMESTAMP, 7), 7);
    constexpr int kNobodysType = 0x1e;
    EXPECT_EQ(maskedValue(mask, kNobodysType, 0, 30), 0);
  }
}

TEST(MaskedRecord, LeavesOutLightsWithTheModifiers) {
  EXPECT_FALSE(masked(Mask::kTypingAndModifiers, record(EV_LED, LED_CAPSL, 1)));
  EXPECT_EQ(maskedValue(Mask::kTyping, EV_LED, LED_CAPSL, 1), 1);
}

TEST(MaskedRecord, KeepsMotionAndItsTime) {
  for (const int type : {EV_SYN, EV_REL, EV_ABS, EV_SW, EV_REP, EV_SND, EV_FF, EV_PWR, EV_FF_STATUS}) {
    const recording::Record kept = masked(Mask::kTypingAndModifiers, record(type, KEY_7, -1)).value();
    EXPECT_EQ(kept.code, KEY_7);
    EXPECT_EQ(kept.value, -1);
    EXPECT_EQ(kept.time, microseconds(5));
  }
}

TEST(MaskedRecord, IsAsItWasWhenNothingIsHidden) {
  for (int code = 0; code <= KEY_MAX; ++code) EXPECT_EQ(maskedCode(Mask::kNothing, code), code);
  EXPECT_EQ(maskedValue(Mask::kNothing, EV_MSC, MSC_SCAN, 458763), 458763);
}

// ---- Devices ------------------------------------------------------------------------------------

std::set<int> maskedKeys(const std::set<int>& keys) {
  recording::DeviceDescription device;
  device.codes[EV_KEY] = keys;
  return masked(Mask::kTypingAndModifiers, device).codes[EV_KEY];
}

TEST(MaskedDevice, HasAIfAKeyBecomesThat) {
  EXPECT_EQ(maskedKeys({KEY_ENTER, KEY_5}), (std::set<int>{KEY_ENTER, KEY_5, KEY_A}));
  EXPECT_EQ(maskedKeys({KEY_ENTER, BTN_LEFT}), (std::set<int>{KEY_ENTER, BTN_LEFT}));
  EXPECT_TRUE(masked(Mask::kTypingAndModifiers, recording::DeviceDescription()).codes.empty());
}

TEST(MaskedDevice, HidesItsLightsWithTheModifiers) {
  recording::DeviceDescription device;
  device.ledsOn = {LED_CAPSL};
  EXPECT_TRUE(masked(Mask::kTypingAndModifiers, device).ledsOn.empty());
  EXPECT_EQ(masked(Mask::kTyping, device).ledsOn, std::set<int>{LED_CAPSL});
}

// ---- The remote's lines -------------------------------------------------------------------------

std::string lineOf(const std::string& button) { return "0000000000f40bf0 0a " + button + " my-tv"; }

const std::string kHidden = "0000000000000000 0a KEY_1 my-tv";

std::string maskedButton(const std::string& button) { return maskedLine(Mask::kTypingAndModifiers, lineOf(button)); }

struct LircName {
  std::string name;
  int code;  // Linux has a key of the same name
};

const LircName kLircNames[] = {
#define LIRC_NAME(name) {#name, name},
#include "tests/tools/lirc_names.inc"
#undef LIRC_NAME
};

TEST(MaskedLine, HidesEachOfLircsNamesWhoseKeyTypesAnywhere) {
  int hidden = 0;
  for (const LircName& button : kLircNames) {
    const bool typesAnywhere = std::count(std::begin(kTypingKeys), std::end(kTypingKeys), button.code) != 0;
    if (!typesAnywhere) continue;
    EXPECT_EQ(maskedButton(button.name), kHidden) << button.name;
    ++hidden;
  }
  EXPECT_GT(hidden, 110);
}

// As its node would be recorded if the kernel decoded it; so the two sides hide the same. LIRC has several names for
// some codes: letters that are buttons of a gamepad, for one.
TEST(MaskedLine, ShowsNoneOfLircsNamesWhoseKeyIsHidden) {
  int shown = 0;
  for (const LircName& button : kLircNames) {
    if (maskedButton(button.name) != lineOf(button.name)) continue;
    EXPECT_EQ(maskedCode(Mask::kTypingAndModifiers, button.code), button.code) << button.name;
    ++shown;
  }
  EXPECT_GT(shown, 200);
}

TEST(MaskedLine, HidesWhatIsNotOneOfLircsNames) {
  for (const std::string button :
       {"5",         "KEY_5", "key_numeric_5", "KEY_NUMERIC_0", "KEY_KP7",  "KEY_Q",   "x",        "KEY_?",
        "num_1",     "Num1",  "BTN_1",         "one",           "digit_1",  "Key5",    "REMOTE_5", "KEY_1-up",
        "key_5EVUP", "BTN_A", "KEY_",          "KEY_FOO",       "\xc3\xa4", "KEY_\xe4"}) {
    EXPECT_EQ(maskedButton(button), kHidden) << button;
  }
}

TEST(MaskedLine, ShowsTheReadersOwnButtonsHoweverTheyAreWritten) {
  for (const std::string button : {"KEY_OK", "ok", "key_volumeup", "KEY_NUMERIC_KEY_UP", "CURSOR_LEFT", "TRACK_NEXT",
                                   "Power", "FASTFORWARD", "KEY_MENU", "key_epg"}) {
    EXPECT_EQ(maskedButton(button), lineOf(button));
  }
}

TEST(MaskedLine, ShowsModifiersAndEditingButtonsOnlyWhenAskedTo) {
  for (const std::string button : {"KEY_LEFTSHIFT", "KEY_BACKSPACE", "KEY_CLEAR"}) {
    EXPECT_EQ(maskedButton(button), kHidden);
    EXPECT_EQ(maskedLine(Mask::kTyping, lineOf(button)), lineOf(button));
  }
}

TEST(MaskedLine, KeepsThatALineIsARelease) {
  EXPECT_EQ(maskedButton("KEY_5_EVUP"), "0000000000000000 0a KEY_1_EVUP my-tv");
  EXPECT_EQ(maskedButton("key_5_up"), "0000000000000000 0a KEY_1_UP my-tv");
  EXPECT_EQ(maskedButton("KEY_OK_EVUP"), lineOf("KEY_OK_EVUP"));
  EXPECT_EQ(maskedButton("_EVUP"), "0000000000000000 0a KEY_1_EVUP my-tv");
  EXPECT_EQ(maskedButton("UP_"), kHidden);
}

TEST(MaskedLine, KeepsNothingOfALineOfAnotherForm) {
  for (const std::string line : {"5",
                                 "5 5",
                                 "KEY_5",
                                 "",
                                 " ",
                                 "begin",
                                 "f40bf0 00 KEY_5",
                                 "f40bf0 00 KEY_VOL",
                                 "f40bf0 00 KEY_OK ",
                                 "f40bf0  KEY_5 tv",
                                 " f40bf0 00 KEY_5 tv",
                                 "f40bf0 00  KEY_5 tv",
                                 "f40bf0 00  tv",
                                 "hunter2 00 KEY_OK tv",
                                 "f4 hunter2 KEY_OK tv",
                                 "00000000000000001 00 KEY_OK tv",
                                 "f4 123456789 KEY_OK tv",
                                 "f4 00 KEY_OK 4711 hunter2",
                                 "SIMULATE 0 00 KEY_5 tv",
                                 "f40bf0\t00 KEY_5 tv"}) {
    EXPECT_EQ(maskedLine(Mask::kTyping, line), "0000000000000000") << line;
  }
}

TEST(MaskedLine, ShowsWhatTheDaemonSaysOfAReload) {
  for (const std::string line : {"BEGIN", "SIGHUP", "END"}) EXPECT_EQ(maskedLine(Mask::kTyping, line), line);
}

TEST(MaskedLine, IsAsItWasWhenNothingIsHidden) {
  for (const std::string line : {"f4 00 KEY_5 tv", "5", ""}) EXPECT_EQ(maskedLine(Mask::kNothing, line), line);
}

// ---- Events -------------------------------------------------------------------------------------

InputEvent keyEvent(Key key, int ch, Modifier modifiers = KeyInput::kNoModifier, std::int32_t action = KeyData::kDown) {
  InputEvent event = {};
  event.kind = InputEvent::kKeyEvent;
  event.keyData = {action, key, static_cast<char>(ch), modifiers};
  return event;
}

std::string maskedText(Mask mask, const InputEvent& event) { return describe(masked(mask, event)); }

const std::string kHiddenKey = "key down    A               'a'";

TEST(MaskedEvent, HidesWhatMayType) {
  for (const InputEvent& event :
       {keyEvent(KeyInput::kX, 'x'), keyEvent(KeyInput::kSpace, ' '), keyEvent(KeyInput::kKeypad0, 0),
        keyEvent(KeyInput::kKeypad9, 0), keyEvent(KeyInput::kKeypadDecimal, '.'), keyEvent(255, 255),
        keyEvent(160, 160), keyEvent(KeyInput::kNone, 0)}) {
    for (const Mask mask : kMasks) EXPECT_EQ(maskedText(mask, event), kHiddenKey) << describe(event);
  }
}

TEST(MaskedEvent, HidesTheKeysOfEveryCodeThatIsHiddenInARecord) {
  for (int code = 0; code <= KEY_MAX; ++code) {
    if (maskedCode(Mask::kTypingAndModifiers, code) == code) continue;
    for (const Modifier modifiers : {KeyInput::kNoModifier, KeyInput::kShiftModifier, KeyInput::kControlModifier}) {
      for (const bool numLock : {false, true}) {
        KeyData key = {};
        LinuxInputReader::translateKey(code, modifiers, numLock, key.key, key.ch);
        EXPECT_EQ(maskedText(Mask::kTypingAndModifiers, keyEvent(key.key, key.ch, modifiers)), kHiddenKey) << code;
      }
    }
  }
}

// Such as "%", whose number is that of Left.
TEST(MaskedEvent, HidesARemotesCharacterWhateverKeyHasItsNumber) {
  for (int character = ' '; character <= '~'; ++character) {
    EXPECT_EQ(maskedText(Mask::kTyping, keyEvent(character, character)), kHiddenKey) << character;
  }
}

TEST(MaskedEvent, ShowsACharacterOnlyIfItCannotBeSeen) {
  for (const int control : {0, 0x1f, 0x7f, 0x9f}) {
    const InputEvent event = keyEvent(KeyInput::kLeft, control);
    EXPECT_EQ(maskedText(Mask::kTyping, event), describe(event));
  }
  for (const int character : {0x20, 0x7e, 0xa0, 0xff}) {
    EXPECT_EQ(maskedText(Mask::kTyping, keyEvent(KeyInput::kLeft, character)), kHiddenKey) << character;
  }
}

TEST(MaskedEvent, ShowsWhatTheRemotesNamedButtonsGive) {
  const InputEvent buttons[] = {
#define LIRC_BUTTON(name, key, character) keyEvent(KeyInput::key, character),
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
  };
  for (const InputEvent& event : buttons) {
    for (const Mask mask : kMasks) EXPECT_EQ(maskedText(mask, event), describe(event));
  }
}

TEST(MaskedEvent, ShowsWheelsWhichNeverType) {
  InputEvent event = {};
  event.kind = InputLoop::kWheelEvent;
  event.mouseData = {InputLoop::kHorizontal, KeyInput::kA, 1, 2, 0};
  for (const Mask mask : kMasks) EXPECT_EQ(maskedText(mask, event), "wheel       right x65       1,2");
}

TEST(MaskedEvent, ShowsWhatIsKnownNotToType) {
  for (const InputEvent& event :
       {keyEvent(KeyInput::kEnter, 13), keyEvent(KeyInput::kTab, 9), keyEvent(KeyInput::kLeft, 0),
        keyEvent(KeyInput::kPower, 153), keyEvent(KeyInput::kChannelUp, 0), keyEvent(KeyInput::kF12, 0)}) {
    for (const Mask mask : kMasks) EXPECT_EQ(maskedText(mask, event), describe(event));
  }
}

TEST(MaskedEvent, ShowsModifiersAndEditingKeysOnlyWhenAskedTo) {
  for (const InputEvent& event : {keyEvent(KeyInput::kShift, 0), keyEvent(KeyInput::kNumLock, 0),
                                  keyEvent(KeyInput::kBackspace, 8), keyEvent(KeyInput::kDelete, 127)}) {
    EXPECT_EQ(maskedText(Mask::kTypingAndModifiers, event), kHiddenKey);
    EXPECT_EQ(maskedText(Mask::kTyping, event), describe(event));
  }
}

TEST(MaskedEvent, HidesThatAModifierWasHeld) {
  const InputEvent typed = keyEvent(KeyInput::k1, '!', KeyInput::kShiftModifier, KeyData::kUp);
  EXPECT_EQ(maskedText(Mask::kTypingAndModifiers, typed), "key up      A               'a'");
  EXPECT_EQ(maskedText(Mask::kTyping, typed), "key up      A               'A'  shift");
  const InputEvent shown = keyEvent(KeyInput::kUp, 0, KeyInput::kControlModifier);
  EXPECT_EQ(maskedText(Mask::kTypingAndModifiers, shown), "key down    Up");
  EXPECT_EQ(maskedText(Mask::kTyping, shown), "key down    Up                   ctrl");
}

TEST(MaskedEvent, KeepsThePointer) {
  InputEvent event = {};
  event.kind = InputEvent::kMouseEvent;
  event.mouseData = {InputEvent::MouseData::kMove, InputEvent::MouseData::kLeft, 3, 4, 0};
  EXPECT_EQ(maskedText(Mask::kTypingAndModifiers, event), describe(event));
}

TEST(MaskedEvent, IsAsItWasWhenNothingIsHidden) {
  const InputEvent event = keyEvent(KeyInput::k1, '!', KeyInput::kShiftModifier);
  EXPECT_EQ(maskedText(Mask::kNothing, event), describe(event));
}

// ---- Where events came from ---------------------------------------------------------------------

Origin ofRecord(const recording::Record& it) { return {InputLoop::kKeyboard, it, ""}; }

Origin ofLine(const std::string& line) { return {InputLoop::kRemote, std::nullopt, line}; }

// What is printed of an event, or of what gave none; "nothing" if it may not be told.
std::string shownText(Mask mask, const InputEvent& event, const Origin& origin) {
  const std::optional<Origin> shown = masked(mask, origin);
  if (!shown) return "nothing";
  const InputEvent visible = masked(mask, event, origin);
  const std::string text = describeWithSource(visible, *shown);
  return event.kind == InputEvent::kNoEvent ? text : text + " " + toJson(visible, *shown).dump();
}

InputEvent noEvent() {
  InputEvent event = {};
  event.kind = InputEvent::kNoEvent;
  return event;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

InputEvent eventOf(int code) {
  KeyData key = {};
  LinuxInputReader::translateKey(code, KeyInput::kNoModifier, false, key.key, key.ch);
  return keyEvent(key.key, key.ch);
}

// As an oracle that knows only what is typed: all keys that are hidden look alike.
TEST(MaskedOrigin, OfAKeyThatIsHiddenTellsNothing) {
  int hidden = 0;
  for (const Mask mask : kMasks) {
    const std::string any = shownText(mask, eventOf(KEY_Q), ofRecord(record(EV_KEY, KEY_Q, 1)));
    const std::string none = shownText(mask, noEvent(), ofRecord(record(EV_KEY, KEY_Q, 1)));
    for (int code = 0; code <= KEY_MAX; ++code) {
      if (maskedCode(mask, code) == code) continue;
      const Origin origin = ofRecord(record(EV_KEY, code, 1));
      EXPECT_EQ(shownText(mask, eventOf(code), origin), any) << code;
      EXPECT_EQ(shownText(mask, noEvent(), origin), none) << code;
      ++hidden;
    }
  }
  EXPECT_GT(hidden, 500);
}

TEST(MaskedOrigin, OfAKeyThatTheReaderDoesNotKnowIsShownIfItDoesNotType) {
  for (const Mask mask : kMasks) {
    EXPECT_TRUE(contains(shownText(mask, eventOf(KEY_PLAYPAUSE), ofRecord(record(EV_KEY, KEY_PLAYPAUSE, 1))),
                         "key 0           KEY_PLAYPAUSE 164"));
    EXPECT_TRUE(contains(shownText(mask, eventOf(KEY_HANGEUL), ofRecord(record(EV_KEY, KEY_HANGEUL, 1))),
                         "A               'a'"));
    const InputEvent withShift = keyEvent(KeyInput::kNone, 0, KeyInput::kShiftModifier);
    EXPECT_EQ(contains(shownText(mask, withShift, ofRecord(record(EV_KEY, KEY_PLAYPAUSE, 1))), "shift"),
              mask == Mask::kTyping);
  }
}

TEST(MaskedOrigin, TellsNoScanCode) {
  for (const Mask mask : kMasks) {
    EXPECT_EQ(shownText(mask, noEvent(), ofRecord(record(EV_MSC, MSC_SCAN, 458756))),
              shownText(mask, noEvent(), ofRecord(record(EV_MSC, MSC_SCAN, 458757))));
  }
}

TEST(MaskedOrigin, OfALightIsLeftOutWithTheModifiers) {
  const Origin light = ofRecord(record(EV_LED, LED_CAPSL, 1));
  EXPECT_EQ(shownText(Mask::kTypingAndModifiers, noEvent(), light), "nothing");
  EXPECT_TRUE(contains(shownText(Mask::kTyping, noEvent(), light), "LED_CAPSL 1"));
}

TEST(MaskedOrigin, OfAnUnknownButtonHasItsNameOnlyIfItDoesNotType) {
  for (const Mask mask : kMasks) {
    const std::string hidden = shownText(mask, noEvent(), ofLine("f4 00 letmein tv"));
    EXPECT_EQ(hidden, "remote    no event    (hidden)        an unknown button");
    for (const std::string button : {"hunter2", "KEY_HANGEUL", "KEY_KP7", "15", "KEY_Q", "\xc3\xa4"}) {
      EXPECT_EQ(shownText(mask, noEvent(), ofLine("f4 00 " + button + " tv")), hidden) << button;
    }
    EXPECT_TRUE(contains(shownText(mask, noEvent(), ofLine("f4 00 KEY_PLAYPAUSE tv")), " KEY_PLAYPAUSE "));
    const std::string cut = shownText(mask, noEvent(), ofLine("hunter2"));
    for (const std::string line : {"hunter2 3", "f4 00 hunter2 tv 0 hunter2", "hunter2 00 KEY_TV tv"}) {
      EXPECT_EQ(shownText(mask, noEvent(), ofLine(line)), cut) << line;
    }
    EXPECT_TRUE(contains(cut, "a cut line"));
  }
}

TEST(MaskedOrigin, IsAsItWasWhenNothingIsHidden) {
  const Origin key = ofRecord(record(EV_KEY, KEY_HANGEUL, 1));
  EXPECT_TRUE(contains(shownText(Mask::kNothing, eventOf(KEY_HANGEUL), key), "KEY_HANGEUL 122"));
  EXPECT_TRUE(contains(shownText(Mask::kNothing, noEvent(), ofLine("f4 00 hunter2 tv")), " hunter2 "));
}

}  // namespace
}  // namespace quarlo::tools
