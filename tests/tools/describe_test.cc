#include "tools/common/describe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <set>

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using msg::KeyInput;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

InputEvent keyEvent(std::int32_t action, LinuxInputReader::Key key, int ch, LinuxInputReader::Modifier modifiers) {
  InputEvent event = {};
  event.kind = InputEvent::kKeyEvent;
  event.keyData = {action, key, static_cast<char>(ch), modifiers};
  return event;
}

InputEvent keyDown(LinuxInputReader::Key key, int ch, LinuxInputReader::Modifier modifiers = 0) {
  return keyEvent(KeyData::kDown, key, ch, modifiers);
}

InputEvent mouseEvent(std::int32_t action, std::int32_t button, std::uint16_t x, std::uint16_t y, int clicks) {
  InputEvent event = {};
  event.kind = InputEvent::kMouseEvent;
  event.mouseData = {action, button, x, y, static_cast<std::uint8_t>(clicks)};
  return event;
}

InputEvent wheelEvent(std::int32_t axis, std::int32_t steps) {
  InputEvent event = mouseEvent(axis, steps, 312, 40, 0);
  event.kind = InputLoop::kWheelEvent;
  return event;
}

TEST(Describe, ShowsAKeyWithItsCharacterAndModifiers) {
  const LinuxInputReader::Modifier all = KeyInput::kControlModifier | KeyInput::kShiftModifier | KeyInput::kAltModifier;
  EXPECT_EQ(describe(keyDown(KeyInput::kA, 'a')), "key down    A               'a'");
  EXPECT_EQ(describe(keyEvent(KeyData::kUp, KeyInput::kA, 'A', KeyInput::kShiftModifier)),
            "key up      A               'A'  shift");
  EXPECT_EQ(describe(keyDown(KeyInput::kKeypadMultiply, '*', all)), "key down    KeypadMultiply  '*'  ctrl+shift+alt");
}

TEST(Describe, ShowsACharacterOnlyWhereThereIsOne) {
  EXPECT_EQ(describe(keyDown(KeyInput::kUp, 0)), "key down    Up");
  EXPECT_EQ(describe(keyDown(KeyInput::kShift, 0, KeyInput::kShiftModifier)), "key down    Shift                shift");
}

TEST(Describe, ShowsACharacterThatCannotBePrintedAsItsNumber) {
  EXPECT_EQ(describe(keyDown(KeyInput::kEnter, 13)), "key down    Enter           13");
  EXPECT_EQ(describe(keyDown(KeyInput::kDelete, 127)), "key down    Delete          127");
  EXPECT_EQ(describe(keyDown(KeyInput::kPower, 153)), "key down    Power           153");
  EXPECT_EQ(describe(keyDown(255, 255)), "key down    key 255         255");
  EXPECT_EQ(describe(keyDown(KeyInput::kSpace, ' ')), "key down    Space           ' '");
  EXPECT_EQ(describe(keyDown(126, '~')), "key down    key 126         '~'");
}

Origin ofRecord(InputLoop::Source source, int type, int code, int value) {
  const auto number = [](int it) { return static_cast<std::uint16_t>(it); };
  return {source, recording::Record{0us, number(type), number(code), value}, ""};
}

Origin ofLine(const std::string& line) { return {InputLoop::kRemote, std::nullopt, line}; }

InputEvent noEvent() {
  InputEvent event = {};
  event.kind = InputEvent::kNoEvent;
  return event;
}

TEST(Describe, ShowsAKeyWithoutACodeByItsNameInLinux) {
  EXPECT_EQ(describe(keyDown(0, 0)), "key down    key 0");
  EXPECT_EQ(describe(keyDown(0, 0), ofRecord(InputLoop::kKeyboard, EV_KEY, KEY_PLAYPAUSE, 1)),
            "key down    key 0           KEY_PLAYPAUSE 164");
  EXPECT_EQ(describe(keyDown(0, 0, KeyInput::kShiftModifier), ofRecord(InputLoop::kKeyboard, EV_KEY, 0x2ff, 1)),
            "key down    key 0           0x2ff 767  shift");
}

TEST(Describe, ShowsTheSource) {
  EXPECT_EQ(describeWithSource(keyDown(KeyInput::kUp, 0), ofRecord(InputLoop::kKeyboard, EV_KEY, KEY_UP, 1)),
            "keyboard  key down    Up");
  EXPECT_EQ(describeWithSource(keyDown(KeyInput::kUp, 0), ofLine("0 00 KEY_UP tv")), "remote    key down    Up");
  EXPECT_EQ(describeWithSource(keyDown(KeyInput::kUp, 0), {InputLoop::kMouse, std::nullopt, ""}),
            "mouse     key down    Up");
  constexpr auto kLast = static_cast<InputLoop::Source>(InputLoop::kFurther + InputLoop::kMostFurtherNodes - 1);
  EXPECT_EQ(describeWithSource(keyDown(KeyInput::kUp, 0), {kLast, std::nullopt, ""}), "node 8    key down    Up");
  EXPECT_EQ(describeWithSource(keyDown(KeyInput::kUp, 0), {}), "unknown   key down    Up");
}

TEST(Describe, ShowsTheMouse) {
  EXPECT_EQ(describe(mouseEvent(MouseData::kMove, MouseData::kNoButton, 312, 40, 0)), "mouse move  312,40");
  EXPECT_EQ(describe(mouseEvent(MouseData::kMove, MouseData::kLeft, 65535, 65535, 0)),
            "mouse move  65535,65535     left held");
  EXPECT_EQ(describe(mouseEvent(MouseData::kButtonDown, MouseData::kLeft, 312, 40, 2)),
            "mouse down  left x2         312,40");
  EXPECT_EQ(describe(mouseEvent(MouseData::kButtonUp, MouseData::kRight, 0, 0, 1)), "mouse up    right x1        0,0");
  EXPECT_EQ(describe(mouseEvent(MouseData::kButtonDown, MouseData::kMiddle, 1, 2, 255)),
            "mouse down  middle x255     1,2");
}

TEST(Describe, ShowsWhereAWheelWasTurnedTo) {
  EXPECT_EQ(describe(wheelEvent(InputLoop::kVertical, 1)), "wheel       up x1           312,40");
  EXPECT_EQ(describe(wheelEvent(InputLoop::kVertical, -3)), "wheel       down x3         312,40");
  EXPECT_EQ(describe(wheelEvent(InputLoop::kHorizontal, 2)), "wheel       right x2        312,40");
  EXPECT_EQ(describe(wheelEvent(InputLoop::kHorizontal, INT32_MIN)), "wheel       left x2147483648  312,40");
}

TEST(Describe, ShowsARecordWithoutAnEventByItsNamesAndItsValue) {
  EXPECT_EQ(describe(noEvent(), ofRecord(InputLoop::kMouse, EV_KEY, BTN_SIDE, 1)),
            "no event    BTN_SIDE 275    EV_KEY, value 1");
  EXPECT_EQ(describe(noEvent(), ofRecord(InputLoop::kKeyboard, EV_MSC, MSC_SCAN, -2)),
            "no event    MSC_SCAN 4      EV_MSC, value -2");
  EXPECT_EQ(describe(noEvent(), ofRecord(InputLoop::kKeyboard, 0x1e, 0xffff, 0)),
            "no event    0xffff 65535    0x1e, value 0");
  EXPECT_EQ(describe(noEvent()), "no event    a key or button");
}

TEST(Describe, ShowsALineWithoutAnEventByItsButton) {
  EXPECT_EQ(describe(noEvent(), ofLine("0 00 KEY_PLAYPAUSE tv")), "no event    KEY_PLAYPAUSE   an unknown button");
  EXPECT_EQ(describe(noEvent(), ofLine("0 00 \x1b[31m tv")), "no event    \\x1b[31m        an unknown button");
  EXPECT_EQ(describe(noEvent(), ofLine("0 00 15 tv")), "no event    15              an unknown button, or a cut line");
  EXPECT_EQ(describe(noEvent(), ofLine("0 0")), "no event                    a cut line");
}

TEST(Describe, ShowsTimeInSeconds) {
  EXPECT_EQ(describeTime(0us), "0.000");
  EXPECT_EQ(describeTime(1999us), "0.001");
  EXPECT_EQ(describeTime(86400s + 10ms), "86400.010");
}

// In a zone of its own, as this.
class ClockTest : public testing::Test {
 protected:
  ~ClockTest() override {
    unsetenv("TZ");
    tzset();
  }

  static std::string clockIn(const char* zone, std::chrono::milliseconds sinceEpoch) {
    setenv("TZ", zone, 1);
    tzset();
    return describeClock(std::chrono::system_clock::time_point(sinceEpoch));
  }
};

TEST_F(ClockTest, IsThatOfTheZone) {
  constexpr std::chrono::milliseconds kMoment = 1'700'000'000s + 7ms;
  EXPECT_EQ(clockIn("UTC0", kMoment), "2023-11-14T22:13:20.007+00:00");
  EXPECT_EQ(clockIn("IST-5:30", kMoment), "2023-11-15T03:43:20.007+05:30");
  EXPECT_EQ(clockIn("NST3:30", kMoment), "2023-11-14T18:43:20.007-03:30");
}

TEST_F(ClockTest, FollowsSummerTime) {
  constexpr char kZone[] = "CET-1CEST,M3.5.0,M10.5.0/3";
  EXPECT_EQ(clockIn(kZone, 1'711'846'799s + 999ms), "2024-03-31T01:59:59.999+01:00");
  EXPECT_EQ(clockIn(kZone, 1'711'846'800s), "2024-03-31T03:00:00.000+02:00");
}

TEST(Describe, GivesJsonAllFields) {
  EXPECT_EQ(toJson(keyDown(KeyInput::kA, 'A', KeyInput::kShiftModifier | KeyInput::kAltModifier)).dump(),
            R"({"kind":"key","action":"down","key":"A","code":65,"ch":65,"modifiers":["shift","alt"]})");
  EXPECT_EQ(toJson(keyEvent(KeyData::kUp, KeyInput::kPower, 153, 0)).dump(),
            R"({"kind":"key","action":"up","key":"Power","code":409,"ch":153,"modifiers":[]})");
  EXPECT_EQ(toJson(mouseEvent(MouseData::kMove, MouseData::kNoButton, 312, 40, 0)).dump(),
            R"({"kind":"mouse","action":"move","button":"none","x":312,"y":40,"clicks":0})");
  EXPECT_EQ(toJson(mouseEvent(MouseData::kButtonUp, MouseData::kMiddle, 1, 2, 3)).dump(),
            R"({"kind":"mouse","action":"up","button":"middle","x":1,"y":2,"clicks":3})");
  EXPECT_EQ(toJson(wheelEvent(InputLoop::kVertical, -3)).dump(),
            R"({"kind":"wheel","axis":"vertical","steps":-3,"x":312,"y":40})");
  EXPECT_EQ(toJson(wheelEvent(InputLoop::kHorizontal, 1)).dump(),
            R"({"kind":"wheel","axis":"horizontal","steps":1,"x":312,"y":40})");
}

TEST(Describe, GivesJsonTheNameInLinuxOfAKeyWithoutACodeHere) {
  EXPECT_EQ(toJson(keyDown(0, 0), ofRecord(InputLoop::kKeyboard, EV_KEY, KEY_TV, 1)).dump(),
            R"({"kind":"key","action":"down","key":"key 0","code":0,"ch":0,"modifiers":[],)"
            R"("linuxName":"KEY_TV","linuxCode":377})");
  EXPECT_EQ(toJson(keyDown(KeyInput::kUp, 0), ofRecord(InputLoop::kKeyboard, EV_KEY, KEY_UP, 1)).dump(),
            R"({"kind":"key","action":"down","key":"Up","code":38,"ch":0,"modifiers":[]})");
}

// Every key code that some key code or remote button gives.
std::set<LinuxInputReader::Key> producedKeys() {
  std::set<LinuxInputReader::Key> keys;
  for (int code = 0; code <= KEY_MAX; ++code) {
    LinuxInputReader::Key key;
    char ch;
    LinuxInputReader::translateKey(code, 0, false, key, ch);
    keys.insert(key);
  }
#define LIRC_BUTTON(name, key, character) keys.insert(KeyInput::key);
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
  keys.erase(KeyInput::kNone);
  return keys;
}

TEST(Describe, TakesTheNamesFromTheMessageTypes) {
  EXPECT_EQ(keyName(KeyInput::kBackspace), "Backspace");  // the first and the last of them
  EXPECT_EQ(keyName(KeyInput::kMenu), "Menu");
  EXPECT_EQ(keyName(KeyInput::k0), "0");
  EXPECT_EQ(keyName(KeyInput::kNone), "key 0");
}

TEST(Describe, NamesEveryKeyThatTheReaderProducesAndNoTwoAlike) {
  const std::set<LinuxInputReader::Key> keys = producedKeys();
  std::set<std::string> names;
  for (const LinuxInputReader::Key key : keys) {
    EXPECT_NE(keyName(key), "key " + std::to_string(key))
        << "msg/key_input.h has no constant `static constexpr Key kName = " << key << ";` for it";
    names.insert(keyName(key));
  }
  EXPECT_EQ(names.size(), keys.size());
  EXPECT_GT(keys.size(), 100U);
}

}  // namespace
}  // namespace quarlo::tools
