#include "tools/keymap/mapping_text.h"

#include <vector>

#include "tools/common/output.h"

namespace quarlo::tools::keymap {

std::string linuxCode(const Mapping& mapping) { return mapping.linuxCode ? std::to_string(*mapping.linuxCode) : ""; }

bool isKey(const Mapping& mapping) { return mapping.event.kind == InputEvent::kKeyEvent; }

std::string given(const Mapping& mapping) {
  switch (mapping.event.kind) {
    case InputEvent::kKeyEvent: return keyName(mapping.event.keyData.key);
    case InputEvent::kMouseEvent: return std::string(buttonName(mapping.event.mouseData.button)) + " button";
    default: return "no event";
  }
}

std::string keyCode(const Mapping& mapping) { return isKey(mapping) ? std::to_string(mapping.event.keyData.key) : ""; }

std::string effect(const Mapping& mapping) {
  if (!isKey(mapping)) return "";
  const InputEvent::KeyData& key = mapping.event.keyData;
  std::vector<std::string> parts;
  if (key.modifiers != 0) parts.push_back("modifier " + describeModifiers(key.modifiers));
  if (key.ch != 0) parts.push_back(describeCharacter(key.ch));
  if (mapping.withShift != key.ch) parts.push_back("Shift " + describeCharacter(mapping.withShift));
  if (mapping.withNumLock != key.ch) parts.push_back("Num Lock " + describeCharacter(mapping.withNumLock));
  return joined(parts, ", ");
}

}  // namespace quarlo::tools::keymap
