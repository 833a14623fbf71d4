// A mapping in words.
#pragma once

#include <string>

#include "tools/keymap/mapping.h"

namespace quarlo::tools::keymap {

bool isKey(const Mapping& mapping);

// The code of a Linux key; empty for a remote's button.
std::string linuxCode(const Mapping& mapping);

// The name of the application's key, "left button", or "no event".
std::string given(const Mapping& mapping);

// The code of the application's key; empty if it is not a key.
std::string keyCode(const Mapping& mapping);

// "'a', Shift 'A'", "Num Lock '7'", "modifier ctrl". With both Num Lock and Shift, a key types what it does with the
// one that is named.
std::string effect(const Mapping& mapping);

}  // namespace quarlo::tools::keymap
