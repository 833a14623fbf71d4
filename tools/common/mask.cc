#include "tools/common/mask.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "tools/common/letter_case.h"
#include "tools/common/lirc_line.h"

namespace quarlo::tools {
namespace {

using msg::KeyInput;
using Key = LinuxInputReader::Key;

// ---- What is shown ------------------------------------------------------------------------------

struct ShownKey {
  std::string_view name;  // also LIRC's
  int code;
  bool changesTyping;
};

constexpr ShownKey kShownKeys[] = {
#define DOES_NOT_TYPE(name) {#name, name, false},
#define CHANGES_TYPING(name) {#name, name, true},
#include "tools/common/shown_keys.inc"
#undef DOES_NOT_TYPE
#undef CHANGES_TYPING
};

bool isShown(Mask mask, const ShownKey& key) { return mask != Mask::kTypingAndModifiers || !key.changesTyping; }

// The application's keys that the shown keys give. The remote's named buttons give no others.
std::set<Key> findShownKeys(Mask mask) {
  std::set<Key> keys;
  for (const ShownKey& shown : kShownKeys) {
    InputEvent::KeyData data = {};
    LinuxInputReader::translateKey(shown.code, KeyInput::kNoModifier, /*numLock=*/false, data.key, data.ch);
    if (data.key != KeyInput::kNone && isShown(mask, shown)) keys.insert(data.key);
  }
  return keys;
}

// A remote's button that is called by one character gives that character's number as its key, which may be that of
// another key: "%" is 37, as Left is.
bool canBeSeen(char ch) {
  constexpr int kFirstVisible = 0x20;
  constexpr int kFirstAfterAscii = 0x7f;
  constexpr int kFirstVisibleLatin = 0xa0;  // of the upper half of ISO 8859-1
  const int number = static_cast<unsigned char>(ch);
  return (number >= kFirstVisible && number < kFirstAfterAscii) || number >= kFirstVisibleLatin;
}

bool isKeyShown(Mask mask, const InputEvent::KeyData& data) {
  static const std::set<Key> withModifiers = findShownKeys(Mask::kTyping);
  static const std::set<Key> withoutModifiers = findShownKeys(Mask::kTypingAndModifiers);
  if (mask == Mask::kNothing) return true;
  const std::set<Key>& shown = mask == Mask::kTyping ? withModifiers : withoutModifiers;
  return !canBeSeen(data.ch) && shown.count(data.key) != 0;
}

// A key that the reader does not know, and that is known not to type all the same.
bool isUnknownKeyShown(Mask mask, const InputEvent::KeyData& data, const Origin& origin) {
  return data.key == KeyInput::kNone && origin.record && isCodeShown(mask, origin.record->code);
}

// ---- The remote's lines -------------------------------------------------------------------------

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && isSameText(text.substr(text.size() - end.size()), end);
}

std::string releaseSuffix(std::string_view name) {
  for (const char* suffix : {"_EVUP", "_UP"}) {
    if (endsWith(name, suffix)) return suffix;
  }
  return "";
}

bool isNameShown(Mask mask, std::string_view name) {
  return std::any_of(std::begin(kShownKeys), std::end(kShownKeys),
                     [&](const ShownKey& key) { return isShown(mask, key) && isSameText(key.name, name); }) ||
         isNamedButton(name);
}

bool isButtonShown(Mask mask, std::string_view name) {
  return isNameShown(mask, name) || isNameShown(mask, name.substr(0, name.size() - releaseSuffix(name).size()));
}

// The line with `substitute` in place of a button that is hidden.
std::string hideButton(Mask mask, const std::string& line, const char* substitute) {
  constexpr char kNoCode[] = "0000000000000000";
  if (mask == Mask::kNothing || isLircBroadcast(line)) return line;
  const std::optional<LircLine> fields = parseLircLine(line);
  if (!fields) return kNoCode;
  if (isButtonShown(mask, fields->button)) return line;
  return std::string(kNoCode) + " " + std::string(fields->repeat) + " " + substitute + releaseSuffix(fields->button) +
         " " + std::string(fields->remote);
}

}  // namespace

const char* remarkOn(Mask mask) {
  switch (mask) {
    case Mask::kNothing: return "Keys and remote buttons are recorded as they were pressed: this can show passwords.";
    case Mask::kTyping:
      return "Keys and remote buttons that may type are recorded as A and 1 (--show-keycodes keeps them).";
    default:
      return "Keys and remote buttons that may type, modifiers and editing keys are recorded as A and 1 "
             "(--show-keycodes keeps them).";
  }
}

bool isCodeShown(Mask mask, int code) {
  return mask == Mask::kNothing || std::any_of(std::begin(kShownKeys), std::end(kShownKeys), [&](const ShownKey& key) {
           return key.code == code && isShown(mask, key);
         });
}

InputEvent masked(Mask mask, const InputEvent& event, const Origin& origin) {
  if (event.kind != InputEvent::kKeyEvent) return event;
  InputEvent result = event;
  InputEvent::KeyData& key = result.keyData;
  if (mask == Mask::kTypingAndModifiers) key.modifiers = KeyInput::kNoModifier;
  if (isKeyShown(mask, event.keyData) || isUnknownKeyShown(mask, event.keyData, origin)) return result;
  key.key = KeyInput::kA;
  key.ch = (key.modifiers & KeyInput::kShiftModifier) != 0 ? 'A' : 'a';
  return result;
}

std::optional<recording::Record> masked(Mask mask, recording::Record record) {
  if (mask == Mask::kNothing) return record;
  switch (record.type) {
    case EV_SYN:
    case EV_REL:
    case EV_ABS:
    case EV_SW:
    case EV_SND:
    case EV_REP:
    case EV_FF:
    case EV_PWR:
    case EV_FF_STATUS: break;
    case EV_KEY:
      if (!isCodeShown(mask, record.code)) record.code = KEY_A;
      break;
    case EV_MSC:
      if (record.code != MSC_TIMESTAMP) record.value = 0;
      break;
    case EV_LED:
      if (mask == Mask::kTypingAndModifiers) return std::nullopt;
      break;
    default: record.value = 0;
  }
  return record;
}

recording::DeviceDescription masked(Mask mask, recording::DeviceDescription device) {
  const auto keys = device.codes.find(EV_KEY);
  if (keys != device.codes.end() &&
      std::any_of(keys->second.begin(), keys->second.end(), [&](int code) { return !isCodeShown(mask, code); })) {
    keys->second.insert(KEY_A);
  }
  if (mask == Mask::kTypingAndModifiers) device.ledsOn.clear();
  return device;
}

std::string maskedLine(Mask mask, const std::string& line) { return hideButton(mask, line, "KEY_1"); }

std::optional<Origin> masked(Mask mask, Origin origin) {
  if (!origin.line.empty()) origin.line = hideButton(mask, origin.line, "(hidden)");
  if (!origin.record) return origin;
  origin.record = masked(mask, *origin.record);
  return origin.record ? std::optional(origin) : std::nullopt;
}

}  // namespace quarlo::tools
