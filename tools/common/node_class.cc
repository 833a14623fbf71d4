#include "tools/common/node_class.h"

#include <linux/input.h>

#include <algorithm>
#include <initializer_list>

namespace quarlo::tools {
namespace {

// ---- Keys ---------------------------------------------------------------------------------------

// Power, sleep, volume, display.
constexpr int kButtonKeys[] = {KEY_POWER,           KEY_POWER2,         KEY_SLEEP,          KEY_WAKEUP,
                               KEY_SUSPEND,         KEY_MUTE,           KEY_MICMUTE,        KEY_VOLUMEDOWN,
                               KEY_VOLUMEUP,        KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP,   KEY_BRIGHTNESS_CYCLE,
                               KEY_BRIGHTNESS_AUTO, KEY_BRIGHTNESS_MIN, KEY_BRIGHTNESS_MAX, KEY_DISPLAY_OFF,
                               KEY_SWITCHVIDEOMODE, KEY_VIDEO_NEXT,     KEY_VIDEO_PREV};

bool isButtonKey(int code) {
  return std::find(std::begin(kButtonKeys), std::end(kButtonKeys), code) != std::end(kButtonKeys);
}

// Whether it is a button (BTN_...) and no key (KEY_...).
bool isButton(int code) {
  return (code >= BTN_MISC && code < KEY_OK) || (code >= BTN_DPAD_UP && code <= BTN_DPAD_RIGHT) ||
         (code >= BTN_TRIGGER_HAPPY && code <= BTN_TRIGGER_HAPPY40);
}

std::set<int> codesOf(const NodeFacts& facts, int type) {
  const auto found = facts.codes.find(type);
  return found == facts.codes.end() ? std::set<int>() : found->second;
}

bool hasKeys(const NodeFacts& facts) {
  const std::set<int> codes = codesOf(facts, EV_KEY);
  return !std::all_of(codes.begin(), codes.end(), isButton);
}

// ---- Axes ---------------------------------------------------------------------------------------

bool movesRelatively(const NodeFacts& facts) { return facts.hasAll(EV_REL, REL_X, REL_Y); }

// Where a device has an axis before the slot, it has all of them, and is not a multi-touch device.
bool hasMultiTouch(const NodeFacts& facts) {
  return facts.hasAll(EV_ABS, ABS_MT_POSITION_X, ABS_MT_POSITION_Y) && !facts.has(EV_ABS, ABS_MT_SLOT - 1);
}

bool hasPositions(const NodeFacts& facts) { return facts.hasAll(EV_ABS, ABS_X, ABS_Y) || hasMultiTouch(facts); }

bool hasCodes(const NodeFacts& facts, std::initializer_list<int> types) {
  return std::any_of(types.begin(), types.end(), [&](int type) { return !codesOf(facts, type).empty(); });
}

// ---- Classes ------------------------------------------------------------------------------------

// Each node of rc-core declares these, whatever its receiver and keys, and no other device has exactly them. Where
// sysfs is missing, nothing else tells.
bool isMadeByRcCore(const NodeFacts& facts) {
  return facts.properties == std::set<int>{INPUT_PROP_POINTING_STICK} &&
         codesOf(facts, EV_REL) == std::set<int>{REL_X, REL_Y} && facts.has(EV_MSC, MSC_SCAN) &&
         facts.codes.count(EV_REP) != 0 && !hasCodes(facts, {EV_ABS, EV_LED});
}

// Older kernels declare no axes. Digits apart from a keyboard's are the keys of a telephone, too, but those do not
// repeat.
bool hasKeysOfARemote(const NodeFacts& facts) {
  return facts.hasAll(EV_KEY, KEY_NUMERIC_0, KEY_NUMERIC_9) && facts.codes.count(EV_REP) != 0 && !hasLetters(facts);
}

bool isRemote(const NodeFacts& facts) {
  return facts.rc || facts.ids.bus == BUS_CEC || isMadeByRcCore(facts) || hasKeysOfARemote(facts);
}

// Drivers of tablets give such a node positions and a stylus that it has not, for others to know what it belongs to.
bool isTabletButtons(const NodeFacts& facts) {
  return hasPositions(facts) && facts.has(EV_KEY, BTN_STYLUS) && !facts.has(EV_KEY, BTN_TOOL_PEN) &&
         !facts.has(EV_KEY, BTN_TOUCH);
}

bool isPen(const NodeFacts& facts) {
  return hasPositions(facts) && (facts.has(EV_KEY, BTN_TOOL_PEN) || facts.has(EV_KEY, BTN_STYLUS));
}

bool isTouchpad(const NodeFacts& facts) {
  const bool pointsElsewhere = facts.hasProperty(INPUT_PROP_POINTER) || facts.hasProperty(INPUT_PROP_BUTTONPAD);
  return hasPositions(facts) && !facts.hasProperty(INPUT_PROP_DIRECT) &&
         (facts.has(EV_KEY, BTN_TOOL_FINGER) || (pointsElsewhere && facts.has(EV_KEY, BTN_TOUCH)));
}

bool pointsByItself(const NodeFacts& facts) {
  return movesRelatively(facts) || (hasPositions(facts) && facts.has(EV_KEY, BTN_LEFT));
}

// Where buttons are only numbered, from BTN_0 on, they reach into those of joysticks: then axes tell.
bool isGamepad(const NodeFacts& facts) {
  const bool hasItsButtons = facts.hasAny(EV_KEY, BTN_JOYSTICK, BTN_THUMBR) ||
                             facts.hasAny(EV_KEY, BTN_DPAD_UP, BTN_DPAD_RIGHT) ||
                             facts.hasAny(EV_KEY, BTN_TRIGGER_HAPPY, BTN_TRIGGER_HAPPY40);
  const bool areNumbered = facts.has(EV_KEY, BTN_0);
  return (hasItsButtons && !areNumbered) || (areNumbered && facts.hasAny(EV_ABS, ABS_RX, ABS_HAT3Y));
}

NodeClass classOfKeys(const NodeFacts& facts) {
  const std::set<int> codes = codesOf(facts, EV_KEY);
  return std::all_of(codes.begin(), codes.end(), isButtonKey) ? NodeClass::kButtons : NodeClass::kMediaKeys;
}

// Of a node that has neither keys nor buttons.
NodeClass classWithoutKeys(const NodeFacts& facts) {
  if (hasCodes(facts, {EV_REL})) return NodeClass::kOther;
  if (hasCodes(facts, {EV_ABS})) return NodeClass::kSensor;
  return hasCodes(facts, {EV_SW}) ? NodeClass::kSwitch : NodeClass::kOther;
}

}  // namespace

const char* nameOf(NodeClass nodeClass) {
  switch (nodeClass) {
    case NodeClass::kKeyboard: return "keyboard";
    case NodeClass::kMediaKeys: return "media keys";
    case NodeClass::kRemote: return "remote";
    case NodeClass::kTouchpad: return "touchpad";
    case NodeClass::kTouchscreen: return "touchscreen";
    case NodeClass::kPen: return "pen";
    case NodeClass::kTabletButtons: return "tablet buttons";
    case NodeClass::kGamepad: return "gamepad";
    case NodeClass::kMouse: return "mouse";
    case NodeClass::kAbsoluteMouse: return "absolute mouse";
    case NodeClass::kButtons: return "buttons";
    case NodeClass::kSwitch: return "switch";
    case NodeClass::kSensor: return "sensor";
    case NodeClass::kKeyboardWithPointer: return "keyboard with pointer";
    default: return "other";
  }
}

// The first that fits. What a bit says for certain comes before what keys and axes make likely.
NodeClass classOf(const NodeFacts& facts) {
  if (isRemote(facts)) return NodeClass::kRemote;
  if (facts.hasProperty(INPUT_PROP_ACCELEROMETER)) return NodeClass::kSensor;
  if (isTabletButtons(facts)) return NodeClass::kTabletButtons;
  if (isPen(facts)) return NodeClass::kPen;
  if (hasLetters(facts) && movesRelatively(facts)) return NodeClass::kKeyboardWithPointer;
  if (isTouchpad(facts)) return NodeClass::kTouchpad;
  if (hasPositions(facts) && facts.hasProperty(INPUT_PROP_DIRECT)) return NodeClass::kTouchscreen;
  if (hasLetters(facts)) return pointsByItself(facts) ? NodeClass::kKeyboardWithPointer : NodeClass::kKeyboard;
  if (movesRelatively(facts) && facts.has(EV_KEY, BTN_LEFT)) return NodeClass::kMouse;
  if (pointsByItself(facts)) return hasPositions(facts) ? NodeClass::kAbsoluteMouse : NodeClass::kOther;
  if (hasPositions(facts) && facts.has(EV_KEY, BTN_TOUCH)) return NodeClass::kTouchscreen;
  if (isGamepad(facts)) return NodeClass::kGamepad;
  if (hasKeys(facts)) return classOfKeys(facts);
  if (facts.hasAll(EV_KEY, BTN_0, BTN_1)) return NodeClass::kTabletButtons;
  return hasCodes(facts, {EV_KEY}) ? NodeClass::kOther : classWithoutKeys(facts);
}

bool hasLetters(const NodeFacts& facts) {
  return facts.hasAll(EV_KEY, KEY_Q, KEY_P) && facts.hasAll(EV_KEY, KEY_A, KEY_L) && facts.hasAll(EV_KEY, KEY_Z, KEY_M);
}

}  // namespace quarlo::tools
