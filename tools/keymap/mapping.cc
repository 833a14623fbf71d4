#include "tools/keymap/mapping.h"

#include <linux/input.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"

namespace quarlo::tools::keymap {
namespace {

using msg::KeyInput;

// ---- Keys and buttons of evdev devices ----------------------------------------------------------

struct LinuxName {
  int type;
  int code;
  const char* name;
};

constexpr LinuxName kLinuxNames[] = {
#define LINUX_TYPE(name)
#define LINUX_CODE(type, name) {type, name, #name},
#define LINUX_ALIAS(type, name) {type, name, #name},
#include "linux_code_names.inc"
#undef LINUX_TYPE
#undef LINUX_CODE
#undef LINUX_ALIAS
};

InputEvent pressed(int linuxCode) {
  input_event record = {};
  record.type = EV_KEY;
  record.code = static_cast<std::uint16_t>(linuxCode);
  record.value = 1;
  InputEvent event = {};
  event.kind = InputEvent::kNoEvent;
  LinuxInputReader().translateEvent(&record, event);
  return event;
}

char typed(int linuxCode, LinuxInputReader::Modifier modifiers, bool numLock) {
  LinuxInputReader::Key key;
  char ch;
  LinuxInputReader::translateKey(linuxCode, modifiers, numLock, key, ch);
  return ch;
}

void addLinuxKeys(std::vector<Mapping>& mappings) {
  std::map<int, std::vector<std::string>> names;
  for (const LinuxName& entry : kLinuxNames) {
    if (entry.type == EV_KEY) names[entry.code].emplace_back(entry.name);
  }
  for (auto& [code, itsNames] : names) {
    mappings.push_back({code, std::move(itsNames), pressed(code), typed(code, KeyInput::kShiftModifier, false),
                        typed(code, KeyInput::kNoModifier, true), typed(code, KeyInput::kShiftModifier, true)});
  }
}

// ---- The remote's buttons -----------------------------------------------------------------------

constexpr const char* kNamedButtons[] = {
#define LIRC_BUTTON(name, key, character) name,
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
};

constexpr std::string_view kDigitsAndLetters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

class Remote {
 public:
  explicit Remote(sim::Machine& machine) : daemon_(machine.addLircDaemon(kSocket)) {
    reader_.lircFd = reader_.openLircSocket(kSocket);
  }

  Mapping mapping(const std::string& button, std::vector<std::string> names) {
    daemon_.send(button);
    InputEvent event = {};
    event.kind = InputEvent::kNoEvent;
    reader_.getLircEvent(reader_.lircFd, event);
    return {std::nullopt, std::move(names), event, event.keyData.ch, event.keyData.ch, event.keyData.ch};
  }

 private:
  static constexpr char kSocket[] = "remote";

  sim::LircDaemon& daemon_;
  LinuxInputReader reader_;
};

void addRemoteButtons(sim::Machine& machine, std::vector<Mapping>& mappings) {
  const auto& [numericPrefix, prefix] = components::input::kLircButtonPrefixes;
  const auto with = [](std::string_view itsPrefix, const std::string& name) { return std::string(itsPrefix) + name; };
  Remote remote(machine);
  for (const std::string name : kNamedButtons) {
    mappings.push_back(remote.mapping(name, {name, with(prefix, name)}));
  }
  for (const char character : kDigitsAndLetters) {
    const std::string name(1, character);
    mappings.push_back(remote.mapping(name, {name, with(prefix, name), with(numericPrefix, name)}));
  }
}

}  // namespace

std::vector<Mapping> allMappings() {
  sim::Machine machine;
  std::vector<Mapping> mappings;
  addLinuxKeys(mappings);
  addRemoteButtons(machine, mappings);
  return mappings;
}

nlohmann::ordered_json toJson(const Mapping& mapping) {
  nlohmann::ordered_json json;
  json["source"] = mapping.linuxCode ? "evdev" : "remote";
  json["names"] = mapping.names;
  if (mapping.linuxCode) json["linuxCode"] = *mapping.linuxCode;
  if (mapping.event.kind == InputEvent::kNoEvent) {
    json["kind"] = "none";
    return json;
  }
  json.update(tools::toJson(mapping.event));
  for (const char* always : {"action", "x", "y", "clicks"}) json.erase(always);
  if (mapping.linuxCode && mapping.event.kind == InputEvent::kKeyEvent) {
    json["chShift"] = static_cast<unsigned char>(mapping.withShift);
    json["chNumLock"] = static_cast<unsigned char>(mapping.withNumLock);
    json["chNumLockShift"] = static_cast<unsigned char>(mapping.withBoth);
  }
  return json;
}

}  // namespace quarlo::tools::keymap
