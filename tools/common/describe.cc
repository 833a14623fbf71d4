#include "tools/common/describe.h"

#include <cinttypes>
#include <cstdio>

namespace quarlo::tools {
namespace {

using msg::KeyInput;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

struct KeyName {
  LinuxInputReader::Key key;
  const char* name;
};

// In the order of msg/key_input.h.
constexpr KeyName kKeyNames[] = {
#define KEY_NAME(name) \
  { KeyInput::k##name, #name }
    // clang-format off
    KEY_NAME(Backspace), KEY_NAME(Tab), KEY_NAME(Enter), KEY_NAME(Shift), KEY_NAME(Control), KEY_NAME(Alt),
    KEY_NAME(Pause), KEY_NAME(Escape), KEY_NAME(Space), KEY_NAME(PageUp), KEY_NAME(PageDown), KEY_NAME(End),
    KEY_NAME(Home), KEY_NAME(Left), KEY_NAME(Up), KEY_NAME(Right), KEY_NAME(Down), KEY_NAME(Insert), KEY_NAME(Delete),

    KEY_NAME(0), KEY_NAME(1), KEY_NAME(2), KEY_NAME(3), KEY_NAME(4), KEY_NAME(5), KEY_NAME(6), KEY_NAME(7),
    KEY_NAME(8), KEY_NAME(9),

    KEY_NAME(A), KEY_NAME(B), KEY_NAME(C), KEY_NAME(D), KEY_NAME(E), KEY_NAME(F), KEY_NAME(G), KEY_NAME(H),
    KEY_NAME(I), KEY_NAME(J), KEY_NAME(K), KEY_NAME(L), KEY_NAME(M), KEY_NAME(N), KEY_NAME(O), KEY_NAME(P),
    KEY_NAME(Q), KEY_NAME(R), KEY_NAME(S), KEY_NAME(T), KEY_NAME(U), KEY_NAME(V), KEY_NAME(W), KEY_NAME(X),
    KEY_NAME(Y), KEY_NAME(Z),

    KEY_NAME(Keypad0), KEY_NAME(Keypad1), KEY_NAME(Keypad2), KEY_NAME(Keypad3), KEY_NAME(Keypad4), KEY_NAME(Keypad5),
    KEY_NAME(Keypad6), KEY_NAME(Keypad7), KEY_NAME(Keypad8), KEY_NAME(Keypad9), KEY_NAME(KeypadMultiply),
    KEY_NAME(KeypadAdd), KEY_NAME(KeypadSubtract), KEY_NAME(KeypadDecimal), KEY_NAME(KeypadDivide),

    KEY_NAME(F1), KEY_NAME(F2), KEY_NAME(F3), KEY_NAME(F4), KEY_NAME(F5), KEY_NAME(F6), KEY_NAME(F7), KEY_NAME(F8),
    KEY_NAME(F9), KEY_NAME(F10), KEY_NAME(F11), KEY_NAME(F12),

    KEY_NAME(NumLock),

    KEY_NAME(Semicolon), KEY_NAME(Equals), KEY_NAME(Comma), KEY_NAME(Minus), KEY_NAME(FullStop), KEY_NAME(Slash),
    KEY_NAME(Grave), KEY_NAME(LeftBracket), KEY_NAME(Backslash), KEY_NAME(RightBracket), KEY_NAME(Apostrophe),

    KEY_NAME(Red), KEY_NAME(Green), KEY_NAME(Yellow), KEY_NAME(Blue), KEY_NAME(Power), KEY_NAME(Rewind),
    KEY_NAME(Stop), KEY_NAME(Play), KEY_NAME(Record), KEY_NAME(FastForward), KEY_NAME(PreviousTrack),
    KEY_NAME(NextTrack), KEY_NAME(ChannelUp), KEY_NAME(ChannelDown), KEY_NAME(VolumeUp), KEY_NAME(VolumeDown),
    KEY_NAME(Mute), KEY_NAME(Back), KEY_NAME(Menu),
// clang-format on
#undef KEY_NAME
};

struct ModifierName {
  LinuxInputReader::Modifier modifier;
  const char* name;
};

constexpr ModifierName kModifierNames[] = {
    {KeyInput::kControlModifier, "ctrl"}, {KeyInput::kShiftModifier, "shift"}, {KeyInput::kAltModifier, "alt"}};

constexpr int kFirstPrintable = 0x20;
constexpr int kLastPrintable = 0x7e;

int characterNumber(char ch) { return static_cast<unsigned char>(ch); }

const char* keyAction(const KeyData& key) { return key.action == KeyData::kUp ? "up" : "down"; }

const char* mouseAction(const MouseData& mouse) {
  switch (mouse.action) {
    case MouseData::kMove: return "move";
    case MouseData::kButtonDown: return "down";
    default: return "up";
  }
}

// The columns of an event, without blanks at the end.
std::string columns(const std::string& what, const std::string& subject, const std::string& details) {
  char text[128];
  std::snprintf(text, sizeof text, "%-10s  %-14s  %s", what.c_str(), subject.c_str(), details.c_str());
  std::string line = text;
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string describeKey(const KeyData& key) {
  char details[64];
  std::snprintf(details, sizeof details, "%-3s  %s", describeCharacter(key.ch).c_str(),
                describeModifiers(key.modifiers).c_str());
  return columns(std::string("key ") + keyAction(key), keyName(key.key), details);
}

std::string describeMouse(const MouseData& mouse) {
  const std::string what = std::string("mouse ") + mouseAction(mouse);
  const std::string position = std::to_string(mouse.x) + "," + std::to_string(mouse.y);
  if (mouse.action != MouseData::kMove) {
    return columns(what, std::string(buttonName(mouse.button)) + " x" + std::to_string(mouse.clicks), position);
  }
  const bool held = mouse.button != MouseData::kNoButton;
  return columns(what, position, held ? std::string(buttonName(mouse.button)) + " held" : "");
}

void addKey(nlohmann::ordered_json& json, const KeyData& key) {
  json["kind"] = "key";
  json["action"] = keyAction(key);
  json["key"] = keyName(key.key);
  json["code"] = key.key;
  json["ch"] = characterNumber(key.ch);
  json["modifiers"] = nlohmann::ordered_json::array();
  for (const ModifierName& entry : kModifierNames) {
    if ((key.modifiers & entry.modifier) != 0) json["modifiers"].push_back(entry.name);
  }
}

void addMouse(nlohmann::ordered_json& json, const MouseData& mouse) {
  json["kind"] = "mouse";
  json["action"] = mouseAction(mouse);
  json["button"] = buttonName(mouse.button);
  json["x"] = mouse.x;
  json["y"] = mouse.y;
  json["clicks"] = mouse.clicks;
}

}  // namespace

std::string keyName(LinuxInputReader::Key key) {
  for (const KeyName& entry : kKeyNames) {
    if (entry.key == key) return entry.name;
  }
  return "key " + std::to_string(key);
}

const char* buttonName(std::int32_t button) {
  switch (button) {
    case MouseData::kNoButton: return "none";
    case MouseData::kLeft: return "left";
    case MouseData::kRight: return "right";
    default: return "middle";
  }
}

std::string describeCharacter(char ch) {
  const int number = characterNumber(ch);
  if (number < kFirstPrintable || number > kLastPrintable) return std::to_string(number);
  return {'\'', ch, '\''};
}

std::string describeModifiers(LinuxInputReader::Modifier modifiers) {
  std::string text;
  for (const ModifierName& entry : kModifierNames) {
    if ((modifiers & entry.modifier) != 0) text += (text.empty() ? "" : "+") + std::string(entry.name);
  }
  return text;
}

std::string describe(const InputEvent& event) {
  switch (event.kind) {
    case InputEvent::kKeyEvent: return describeKey(event.keyData);
    case InputEvent::kMouseEvent: return describeMouse(event.mouseData);
    default: return "record without an event";
  }
}

std::string describeTime(microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64 ".%03" PRId64, std::int64_t{time.count() / 1000000},
                std::int64_t{time.count() / 1000 % 1000});
  return text;
}

nlohmann::ordered_json toJson(microseconds time, const InputEvent& event) {
  nlohmann::ordered_json json;
  json["time"] = static_cast<double>(time.count()) / 1e6;
  if (event.kind == InputEvent::kKeyEvent) {
    addKey(json, event.keyData);
  } else {
    addMouse(json, event.mouseData);
  }
  return json;
}

}  // namespace quarlo::tools
