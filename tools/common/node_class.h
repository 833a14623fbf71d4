// What kind of device an evdev node is, by what it says of itself.
#pragma once

#include "tools/common/node_facts.h"

namespace quarlo::tools {

enum class NodeClass {
  kKeyboard,             // with letters
  kMediaKeys,            // keys, but no letters: "Consumer Control", "System Control", hotkeys
  kRemote,               // a remote that the kernel decodes: infrared or HDMI-CEC
  kTouchpad,             //
  kTouchscreen,          //
  kPen,                  // the pen of a tablet or of a screen
  kTabletButtons,        // the buttons of a drawing tablet
  kGamepad,              // a joystick, too
  kMouse,                // a trackball, a trackpoint, a touchpad's legacy node, too
  kAbsoluteMouse,        // as virtual machines have
  kButtons,              // power, sleep, volume, display, and nothing else
  kSwitch,               // of a lid, a jack
  kSensor,               // acceleration, or axes alone
  kKeyboardWithPointer,  // letters and relative axes, in one node
  kOther,
};

// "keyboard", "media keys", "remote", "touchpad", "touchscreen", "pen", "tablet buttons", "gamepad", "mouse",
// "absolute mouse", "buttons", "switch", "sensor", "keyboard with pointer", "other".
const char* nameOf(NodeClass nodeClass);

NodeClass classOf(const NodeFacts& facts);

// Whether it has all 26 letters.
bool hasLetters(const NodeFacts& facts);

}  // namespace quarlo::tools
