// Masking: no typed character may survive, whatever is typed on whatever device or remote. What types is known here
// from keyboard layouts and from the kernel's and LIRC's names, not from what the mask goes by.
#include <linux/input-event-codes.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "sim/machine.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"
#include "tools/common/code_names.h"
#include "tools/common/describe.h"
#include "tools/common/mask.h"
#include "tools/common/output.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;
using msg::KeyInput;
using recording::Record;

constexpr Mask kMasks[] = {Mask::kTyping, Mask::kTypingAndModifiers};

// ---- What types ---------------------------------------------------------------------------------

constexpr int kTypingKeys[] = {
#define TYPES(name) name,
#include "tests/tools/typing_keys.inc"
#undef TYPES
};

constexpr int kModifiers[] = {KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTCTRL,  KEY_RIGHTCTRL, KEY_LEFTALT,
                              KEY_RIGHTALT,  KEY_LEFTMETA,   KEY_RIGHTMETA, KEY_CAPSLOCK,  KEY_NUMLOCK};

struct LircName {
  const char* name;
  int code;  // Linux has a key of the same name
};

constexpr LircName kLircNames[] = {
#define LIRC_NAME(name) {#name, name},
#include "tests/tools/lirc_names.inc"
#undef LIRC_NAME
};

constexpr const char* kReadersButtons[] = {
#define LIRC_BUTTON(name, key, character) name,
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
};

template <typename Values, typename Value>
bool contains(const Values& values, const Value& value) {
  return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

bool types(Mask mask, int code) {
  return contains(kTypingKeys, code) && (mask == Mask::kTypingAndModifiers || !contains(kModifiers, code));
}

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char byte) { return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 'a' + 'A') : byte; });
  return text;
}

void takeAway(std::string& text, const std::string& start) {
  if (text.compare(0, start.size(), start) == 0) text.erase(0, start.size());
}

// The keys by their names, LIRC's and the kernel's. Some have several.
std::map<std::string, int> findKeys() {
  std::map<std::string, int> keys;
  for (int code = 0; code <= KEY_MAX; ++code) keys[codeName(EV_KEY, code)] = code;
  for (const LircName& entry : kLircNames) keys[entry.name] = entry.code;
  return keys;
}

// Whether a button of this name is known not to type: it has the name of a key that does not, or the reader has it in
// its list, with the prefixes that the reader drops.
bool isKnownNotToType(Mask mask, const std::string& button) {
  static const std::map<std::string, int> keys = findKeys();
  std::string name = upper(button);
  const auto key = keys.find(name);
  if (key != keys.end() && !types(mask, key->second)) return true;
  takeAway(name, "KEY_NUMERIC_");
  takeAway(name, "KEY_");
  return std::any_of(std::begin(kReadersButtons), std::end(kReadersButtons),
                     [&](const char* known) { return name == upper(known); });
}

// With the endings that lircd gives the line of a release.
bool mayBeShown(Mask mask, const std::string& button) {
  const std::string name = upper(button);
  for (const std::string ending : {"", "_EVUP", "_UP"}) {
    if (name.size() < ending.size() || name.substr(name.size() - ending.size()) != ending) continue;
    if (isKnownNotToType(mask, name.substr(0, name.size() - ending.size()))) return true;
  }
  return false;
}

// ---- Records ------------------------------------------------------------------------------------

Record takeRecord(InputBytes& input) {
  const auto type = static_cast<std::uint16_t>(input.takeBool() ? EV_KEY : input.takeBelow(EV_CNT));
  const bool isTyped = input.takeBool();
  const int typed = input.pick(kTypingKeys);
  const auto any = input.take<std::uint16_t>();
  const auto code = static_cast<std::uint16_t>(isTyped ? typed : any);
  return {std::chrono::microseconds(1), type, code, input.take<std::int32_t>()};
}

void checkRecord(Mask mask, const Record& record) {
  const std::optional<Record> shown = masked(mask, record);
  if (record.type == EV_LED) {
    require(shown.has_value() == (mask == Mask::kTyping), "a light tells of a lock key");
    return;
  }
  require(shown.has_value(), "a record stays");
  require(shown->type == record.type && shown->time == record.time, "a record keeps its type and time");
  if (record.type == EV_KEY) {
    require(shown->value == record.value, "presses and releases stay");
    require(shown->code == record.code || shown->code == KEY_A, "a key stays, or is A");
    require(!types(mask, record.code) || shown->code == KEY_A, "what types is A");
  } else {
    require(shown->code == record.code, "what is not a key keeps its code");
    require(record.type != EV_MSC || record.code == MSC_TIMESTAMP || shown->value == 0, "a scan code is 0");
  }
}

void checkDevice(Mask mask, InputBytes& input) {
  recording::DeviceDescription device;
  for (int count = input.takeBelow(16); count > 0; --count) {
    device.codes[EV_KEY].insert(input.take<std::uint16_t>() % KEY_CNT);
  }
  device.ledsOn = {LED_CAPSL};
  const recording::DeviceDescription shown = masked(mask, device);
  for (const int code : device.codes[EV_KEY]) {
    const int sent =
        masked(mask, Record{std::chrono::microseconds(0), EV_KEY, static_cast<std::uint16_t>(code), 1})->code;
    require(shown.codes.at(EV_KEY).count(sent) != 0, "a device has the keys that it sends");
  }
  require(shown.ledsOn.empty() == (mask == Mask::kTypingAndModifiers), "a light that is on tells of a lock key");
}

// ---- Events -------------------------------------------------------------------------------------

// What is told of a key.
struct Press {
  bool wasDown;
  LinuxInputReader::Modifier modifiers;
  bool numLock;
};

Press takePress(InputBytes& input) {
  const bool wasDown = input.takeBool();
  const auto modifiers = static_cast<LinuxInputReader::Modifier>(input.takeBelow(8));
  return {wasDown, modifiers, input.takeBool()};
}

// All that is printed of a key of this code.
std::string textOf(Mask mask, const Press& press, int code) {
  const Record record = {std::chrono::microseconds(0), EV_KEY, static_cast<std::uint16_t>(code), 1};
  const std::optional<Origin> shown = masked(mask, Origin{InputLoop::kKeyboard, record, ""});
  if (!shown) return "";
  InputEvent event = {};
  event.kind = InputEvent::kKeyEvent;
  event.keyData.action = press.wasDown ? InputEvent::KeyData::kUp : InputEvent::KeyData::kDown;
  event.keyData.modifiers = press.modifiers;
  LinuxInputReader::translateKey(code, press.modifiers, press.numLock, event.keyData.key, event.keyData.ch);
  const InputEvent visible = masked(mask, event, Origin{InputLoop::kKeyboard, record, ""});
  InputEvent nothing = {};
  nothing.kind = InputEvent::kNoEvent;
  return describeWithSource(visible, *shown) + toJson(visible, *shown).dump() + describeWithSource(nothing, *shown);
}

// Of whoever sees only what is printed, nobody can tell one from the other.
void checkThatTheyLookAlike(Mask mask, InputBytes& input) {
  const Press press = takePress(input);
  const int one = input.pick(kTypingKeys);
  const int other = input.pick(kTypingKeys);
  if (!types(mask, one) || !types(mask, other)) return;
  require(textOf(mask, press, one) == textOf(mask, press, other), "all that types looks alike");
}

// ---- The remote's lines -------------------------------------------------------------------------

std::string withoutNewlines(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

std::string takeButton(InputBytes& input) {
  constexpr const char* kBefore[] = {"", "", "KEY_", "key_", "KEY_NUMERIC_", "BTN_"};
  constexpr const char* kAfter[] = {"", "", "_UP", "_EVUP", "_up", "-up"};
  std::string name = input.pick(kBefore);
  switch (input.takeBelow(4)) {
    case 0: name = kLircNames[input.take<std::uint16_t>() % std::size(kLircNames)].name; break;
    case 1: name += kReadersButtons[input.take<std::uint8_t>() % std::size(kReadersButtons)]; break;
    case 2: name += static_cast<char>(input.takeBelow(256)); break;
    default: name += input.takeText();
  }
  return name + input.pick(kAfter);
}

// The lines that the reader takes of a session, or of the daemon.
class Remote {
 public:
  Remote() : daemon_(machine_.addLircDaemon(kSocket)) {
    silenceReader();
    reader_.init("/dev/input/none", "/dev/input/none", kSocket, 1, 1);
  }

  // The character of the event that the line gives; 0 for none.
  char characterOf(const std::string& line) {
    constexpr std::chrono::seconds kUntilForgotten(5);
    machine_.advance(kUntilForgotten);
    daemon_.sendText(line + "\n");
    char character = 0;
    LinuxInputReader::InputEvent event = {};
    while (reader_.readInput(event, 0)) character = event.keyData.ch;
    return character;
  }

 private:
  static constexpr char kSocket[] = "/run/lircd";

  FreshMachine machine_;
  sim::LircDaemon& daemon_;
  LinuxInputReader reader_;
};

bool canBeSeen(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return (byte >= ' ' && byte < 0x7f) || byte >= 0xa0;
}

void checkReader(Remote& remote, const std::string& shown) {
  const char character = remote.characterOf(shown);
  require(!canBeSeen(character) || character == '1', "a line that is shown types nothing but the 1 of what is hidden");
}

std::string textOfNoEvent(Mask mask, const std::string& line) {
  InputEvent nothing = {};
  nothing.kind = InputEvent::kNoEvent;
  return describeWithSource(nothing, masked(mask, Origin{InputLoop::kRemote, std::nullopt, line}).value());
}

void checkFields(Mask mask, Remote& remote, InputBytes& input) {
  const std::string button = withoutNewlines(takeButton(input));
  const std::string line = "0000000000f40bf0 00 " + button + " tv";
  const std::string shown = maskedLine(mask, line);
  if (!mayBeShown(mask, button)) {
    require(shown == "0000000000000000" || shown == "0000000000000000 00 KEY_1 tv" ||
                upper(shown) == "0000000000000000 00 KEY_1_UP TV" ||
                upper(shown) == "0000000000000000 00 KEY_1_EVUP TV",
            "of a button that may type, nothing is left but that it came or went");
    const std::string text = textOfNoEvent(mask, line);
    require(text.find(" (hidden)") != std::string::npos || text == textOfNoEvent(mask, "another form"),
            "an unknown button that may type is not named");
  } else {
    require(shown == line || shown.rfind("0000000000000000", 0) == 0, "a line stays, or is hidden");
  }
  checkReader(remote, shown);
}

void checkAnyLine(Mask mask, Remote& remote, InputBytes& input) {
  const std::string line = withoutNewlines(input.takeText());
  const std::string shown = maskedLine(mask, line);
  if (shown == line) {
    require(std::count(line.begin(), line.end(), ' ') == 3 || line == "BEGIN" || line == "SIGHUP" || line == "END" ||
                line == "0000000000000000",
            "a line of another form is hidden");
  }
  checkReader(remote, shown);
}

void step(Remote& remote, InputBytes& input) {
  const Mask mask = input.pick(kMasks);
  switch (input.takeBelow(5)) {
    case 0: checkRecord(mask, takeRecord(input)); break;
    case 1: checkDevice(mask, input); break;
    case 2: checkThatTheyLookAlike(mask, input); break;
    case 3: checkFields(mask, remote, input); break;
    default: checkAnyLine(mask, remote, input);
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  InputBytes input(data, size);
  Remote remote;
  while (!input.isEmpty()) step(remote, input);
  return 0;
}
