#include "tools/common/describe.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>

#include "tools/common/code_names.h"
#include "tools/common/columns.h"
#include "tools/common/lirc_line.h"
#include "tools/common/output.h"
#include "tools/common/sources.h"

namespace quarlo::tools {
namespace {

using msg::KeyInput;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

struct KeyName {
  LinuxInputReader::Key key;
  const char* name;
};

constexpr KeyName kKeyNames[] = {
#define KEY_NAME(name) {KeyInput::k##name, #name},
#include "key_names.inc"  // from msg/key_input.h
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
  return withoutTrailingBlanks(leftAligned(what, 10) + "  " + leftAligned(subject, 14) + "  " + details);
}

// The record of a key that has no code here.
const recording::Record* unknownKey(const KeyData& key, const Origin& origin) {
  return key.key == KeyInput::kNone && origin.record ? &*origin.record : nullptr;
}

std::string describeCode(const recording::Record& record) {
  return codeName(record.type, record.code) + " " + std::to_string(record.code);
}

std::string describeKey(const KeyData& key, const Origin& origin) {
  const recording::Record* const unknown = unknownKey(key, origin);
  const std::string character = unknown != nullptr ? describeCode(*unknown)
                                : key.ch != 0      ? describeCharacter(key.ch)
                                                   : "";
  const std::string details = leftAligned(character, 3) + "  " + describeModifiers(key.modifiers);
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

// How often a wheel was turned, and where to.
std::string describeSteps(const MouseData& wheel) {
  const bool isVertical = wheel.action == InputLoop::kVertical;
  const std::int64_t steps = wheel.button;
  const char* direction = steps > 0 ? (isVertical ? "up" : "right") : (isVertical ? "down" : "left");
  return direction + (" x" + std::to_string(std::abs(steps)));
}

std::string describeWheel(const MouseData& wheel) {
  return columns("wheel", describeSteps(wheel), std::to_string(wheel.x) + "," + std::to_string(wheel.y));
}

// What gave no event.
std::string describeNothing(const Origin& origin) {
  constexpr char kWhat[] = "no event";
  if (const auto unknown = findUnknown(origin.line)) {
    return columns(kWhat, printable(std::string(unknown->button)), unknown->description);
  }
  if (!origin.record) return columns(kWhat, "a key or button", "");
  const recording::Record& record = *origin.record;
  return columns(kWhat, describeCode(record), typeName(record.type) + ", value " + std::to_string(record.value));
}

void addKey(nlohmann::ordered_json& json, const KeyData& key, const Origin& origin) {
  json["kind"] = "key";
  json["action"] = keyAction(key);
  json["key"] = keyName(key.key);
  json["code"] = key.key;
  json["ch"] = characterNumber(key.ch);
  json["modifiers"] = nlohmann::ordered_json::array();
  for (const ModifierName& entry : kModifierNames) {
    if ((key.modifiers & entry.modifier) != 0) json["modifiers"].push_back(entry.name);
  }
  if (const recording::Record* const unknown = unknownKey(key, origin)) {
    json["linuxName"] = codeName(unknown->type, unknown->code);
    json["linuxCode"] = unknown->code;
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

void addWheel(nlohmann::ordered_json& json, const MouseData& wheel) {
  json["kind"] = "wheel";
  json["axis"] = wheel.action == InputLoop::kVertical ? "vertical" : "horizontal";
  json["steps"] = wheel.button;
  json["x"] = wheel.x;
  json["y"] = wheel.y;
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

std::string describe(const InputEvent& event, const Origin& origin) {
  switch (event.kind) {
    case InputEvent::kKeyEvent: return describeKey(event.keyData, origin);
    case InputEvent::kMouseEvent: return describeMouse(event.mouseData);
    case InputLoop::kWheelEvent: return describeWheel(event.mouseData);
    default: return describeNothing(origin);
  }
}

std::string describeWithSource(const InputEvent& event, const Origin& origin) {
  return leftAligned(describeSource(origin), 8) + "  " + describe(event, origin);
}

std::string describeSource(const Origin& origin) { return origin.source ? sourceName(*origin.source) : "unknown"; }

std::string describeTime(microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64 ".%03" PRId64, std::int64_t{time.count() / 1000000},
                std::int64_t{time.count() / 1000 % 1000});
  return text;
}

std::string describeClock(std::chrono::system_clock::time_point time) {
  const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local = {};
  localtime_r(&seconds, &local);
  char date[32];
  char offset[8];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::strftime(offset, sizeof offset, "%z", &local);
  char text[64];
  std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", date, static_cast<int>(sinceEpoch.count() % 1000), offset,
                offset + 3);
  return text;
}

nlohmann::ordered_json toJson(const InputEvent& event, const Origin& origin) {
  nlohmann::ordered_json json;
  if (event.kind == InputEvent::kKeyEvent) {
    addKey(json, event.keyData, origin);
  } else if (event.kind == InputLoop::kWheelEvent) {
    addWheel(json, event.mouseData);
  } else {
    addMouse(json, event.mouseData);
  }
  return json;
}

}  // namespace quarlo::tools
