// What each key and button gives, as the reader itself says.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/describe.h"

namespace quarlo::tools::keymap {

// A key or a button that is pressed while no other is held.
struct Mapping {
  std::optional<int> linuxCode;    // of an evdev device; none for a remote's button
  std::vector<std::string> names;  // the kernel's (KEY_..., BTN_...), or all by which the remote's button is known
  InputEvent event;                // a key-down, a button-down, or kNoEvent if the reader writes none
  // The character of the key-down while Shift is held, Num Lock is on, or both; a remote's is always the same.
  char withShift = 0;
  char withNumLock = 0;
  char withBoth = 0;
};

// Every code that linux/input-event-codes.h has a name for, in order; then the remote's buttons: those with names in
// the order of input/lirc_buttons.inc, digits, letters. Any other single character is a remote's button, too. REQUIRES:
// there is no sim::Machine.
std::vector<Mapping> allMappings();

// Such as
//   {"source":"evdev","names":["KEY_1"],"linuxCode":2,"kind":"key","key":"1","code":49,"ch":49,"modifiers":[],
//    "chShift":33,"chNumLock":49,"chNumLockShift":33}
//   {"source":"evdev","names":["BTN_RIGHT"],"linuxCode":273,"kind":"mouse","button":"right"}
//   {"source":"evdev","names":["BTN_SIDE"],"linuxCode":275,"kind":"none"}
//   {"source":"remote","names":["UP","KEY_UP"],"kind":"key","key":"Up","code":38,"ch":0,"modifiers":[]}
nlohmann::ordered_json toJson(const Mapping& mapping);

}  // namespace quarlo::tools::keymap
