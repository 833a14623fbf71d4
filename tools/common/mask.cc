#include "tools/common/mask.h"

#include <linux/input-event-codes.h>
#include <strings.h>

#include <algorithm>
#include <string_view>

#include "tools/common/describe.h"

namespace quarlo::tools {
namespace {

using msg::KeyInput;

bool typesForTheReader(int code, LinuxInputReader::Modifier modifiers) {
  constexpr bool kNumLock = true;
  InputEvent::KeyData key = {};
  LinuxInputReader::translateKey(code, modifiers, kNumLock, key.key, key.ch);
  return showsWhatWasTyped(key);
}

// Keys that the reader has no character for, but other programs do.
bool typesElsewhere(int code) {
  switch (code) {
    case KEY_102ND:
    case KEY_RO:
    case KEY_YEN:
    case KEY_DOLLAR:
    case KEY_EURO:
    case KEY_QUESTION:
    case KEY_KPDOT:
    case KEY_KPEQUAL:
    case KEY_KPJPCOMMA:
    case KEY_KPLEFTPAREN:
    case KEY_KPPLUSMINUS:
    case KEY_KPRIGHTPAREN:
    case KEY_NUMERIC_A:
    case KEY_NUMERIC_B:
    case KEY_NUMERIC_C:
    case KEY_NUMERIC_D:
    case KEY_NUMERIC_11:
    case KEY_NUMERIC_12:
    case KEY_NUMERIC_POUND:
    case KEY_NUMERIC_STAR: return true;
    default: return code >= KEY_BRL_DOT1 && code <= KEY_BRL_DOT10;
  }
}

bool types(int code) {
  return typesForTheReader(code, KeyInput::kNoModifier) || typesForTheReader(code, KeyInput::kShiftModifier) ||
         typesElsewhere(code);
}

bool isScanCode(const recording::Record& record) {
  return record.type == EV_MSC && (record.code == MSC_SCAN || record.code == MSC_RAW);
}

// What is left of a button's name without the prefixes that the reader drops, and that of the keypad.
std::string_view withoutPrefixes(std::string_view name) {
  for (const std::string_view prefix : {"KEY_NUMERIC_", "KEY_", "KP"}) {
    const bool fits = name.size() >= prefix.size();
    if (fits && strncasecmp(name.data(), prefix.data(), prefix.size()) == 0) name.remove_prefix(prefix.size());
  }
  return name;
}

}  // namespace

recording::Record masked(recording::Record record) {
  if (record.type == EV_KEY && types(record.code)) record.code = KEY_A;
  if (isScanCode(record)) record.value = 0;
  return record;
}

recording::DeviceDescription masked(recording::DeviceDescription device) {
  const auto found = device.codes.find(EV_KEY);
  if (found != device.codes.end() && std::any_of(found->second.begin(), found->second.end(), types)) {
    found->second.insert(KEY_A);
  }
  return device;
}

// "<code> <repeat count> <button> <remote>". A daemon that sends releases, too, adds to their buttons _UP or what else
// it was told to, which stays.
std::string maskedLine(const std::string& line) {
  const std::size_t repeat = line.find(' ');
  if (repeat == std::string::npos) return line;
  const std::size_t name = line.find(' ', repeat + 1) + 1;
  if (name == 0) return line;
  const std::size_t end = std::min(line.find(' ', name), line.size());
  const std::string_view character = withoutPrefixes(std::string_view(line).substr(name, end - name));
  const bool single = character.size() == 1 || (character.size() > 1 && character[1] == '_');
  if (!single) return line;
  return "0000000000000000" + line.substr(repeat, name - repeat) + "KEY_1" + std::string(character.substr(1)) +
         line.substr(end);
}

}  // namespace quarlo::tools
