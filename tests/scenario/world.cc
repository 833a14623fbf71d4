#include "tests/scenario/world.h"

#include <linux/input-event-codes.h>

#include <set>

namespace quarlo::test {

Description keyboard(const std::string& name) {
  std::set<int> keys;
  for (int code = KEY_ESC; code <= KEY_COMPOSE; ++code) keys.insert(code);
  return {name, {{EV_KEY, keys}, {EV_MSC, {MSC_SCAN}}, {EV_REP, {}}}};
}

Description mouse(const std::string& name) {
  return {name,
          {{EV_KEY, {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE, BTN_EXTRA}}, {EV_REL, {REL_X, REL_Y, REL_WHEEL}}}};
}

Description keyboardWithTouchpad() {
  Description device = keyboard("Keyboard with Touchpad");
  device.codes[EV_KEY].insert({BTN_LEFT, BTN_RIGHT});
  device.codes[EV_REL] = {REL_X, REL_Y};
  return device;
}

Description touchscreen() {
  Description device = {"Touchscreen", {{EV_KEY, {BTN_TOUCH}}, {EV_ABS, {ABS_X, ABS_Y}}}};
  for (const int axis : {ABS_X, ABS_Y}) device.axes[axis].maximum = 4095;
  return device;
}

Description powerButton() { return {"Power Button", {{EV_KEY, {KEY_POWER}}}}; }

Description mediaKeys() { return {"Media Keys", {{EV_KEY, {KEY_MUTE, KEY_VOLUMEDOWN, KEY_VOLUMEUP, KEY_PLAYPAUSE}}}}; }

void Plugged::press(int code) {
  report(EV_KEY, code, 1);
  report(EV_SYN, SYN_REPORT, 0);
}

void Plugged::release(int code) {
  report(EV_KEY, code, 0);
  report(EV_SYN, SYN_REPORT, 0);
}

void Plugged::tap(int code) {
  press(code);
  release(code);
}

void Plugged::move(int dx, int dy) {
  report(EV_REL, REL_X, dx);
  report(EV_REL, REL_Y, dy);
  report(EV_SYN, SYN_REPORT, 0);
}

}  // namespace quarlo::test
