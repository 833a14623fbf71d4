// What was typed, hidden from what is kept or passed on: passwords and PINs.
//
// What is known not to type (tools/common/shown_keys.inc) stays as it is; all else becomes the key A, and of a remote
// the button 1, so that records and their order stay: two keys held at the same time are pressed twice, and released
// twice.
#pragma once

#include <optional>
#include <string>

#include "recording/writer.h"
#include "tools/common/describe.h"

namespace quarlo::tools {

// What is hidden: nothing; what may type; that, and what tells about it: modifiers, lights, editing keys.
enum class Mask { kNothing, kTyping, kTypingAndModifiers };

// What the command line says of it.
struct MaskOptions {
  bool showKeycodes = false;
  bool showModifiers = false;

  Mask mask() const {
    if (showKeycodes) return Mask::kNothing;
    return showModifiers ? Mask::kTyping : Mask::kTypingAndModifiers;
  }
};

// What a recording tells of what was typed, as one line in it says.
const char* remarkOn(Mask mask);

// Whether the key of this code is known not to type, and so stays as it is.
bool isCodeShown(Mask mask, int code);

// The event without what was typed. A key that the reader does not know is hidden as well, unless the record that it
// came of is known not to type: it may type elsewhere.
InputEvent masked(Mask mask, const InputEvent& event, const Origin& origin = {});

// What an event came of, or what gave none, without what was typed. The name of a remote's button that is hidden
// becomes
// "(hidden)". None if not even that it came may be told.
std::optional<Origin> masked(Mask mask, Origin origin);

// The record without what was typed. Scan codes become 0, also those of keys that stay: they come before their key.
// None if not even that it came may be told: a light changes when a lock key was pressed.
std::optional<recording::Record> masked(Mask mask, recording::Record record);

// The device with KEY_A among its keys, if one of them becomes that, and without lights if those are hidden.
recording::DeviceDescription masked(Mask mask, recording::DeviceDescription device);

// The LIRC daemon's line without what was typed. Of a button that is hidden, the raw code becomes 0. It stays visible
// that a line is the release of a button, by the ending that lircd gives it (_EVUP, or _UP). Of a line that is not of
// the daemon's form, nothing stays but a code of 0, which gives no event.
std::string maskedLine(Mask mask, const std::string& line);

}  // namespace quarlo::tools
