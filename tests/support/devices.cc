#include "tests/support/devices.h"

#include <linux/input.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <set>
#include <utility>

namespace quarlo::test {
namespace {

using sim::Device;

// ---- A small language for codes and axes --------------------------------------------------------

// A code, or all from one to another.
struct Range {
  Range(int code) : first(code), last(code) {}
  Range(int from, int to) : first(from), last(to) {}
  int first;
  int last;
};

using Ranges = std::initializer_list<Range>;
using Codes = std::set<int>;

Codes codes(Ranges ranges) {
  Codes result;
  for (const Range& range : ranges) {
    for (int code = range.first; code <= range.last; ++code) result.insert(code);
  }
  return result;
}

Codes operator+(Codes some, const Codes& more) {
  some.insert(more.begin(), more.end());
  return some;
}

struct Axis {
  int code;
  int minimum;
  int maximum;
  int resolution = 0;  // units per millimetre
  int fuzz = 0;
};

using Axes = std::vector<Axis>;

// Gives the device these absolute axes.
Device withAxes(Device device, const Axes& axes) {
  for (const Axis& axis : axes) {
    device.codes[EV_ABS].insert(axis.code);
    input_absinfo& info = device.axes[axis.code];
    info.minimum = axis.minimum;
    info.maximum = axis.maximum;
    info.fuzz = axis.fuzz;
    info.resolution = axis.resolution;
  }
  return device;
}

Device withPhys(Device device, const std::string& phys) {
  device.phys = phys;
  return device;
}

// ---- Keys that many have ------------------------------------------------------------------------

// Those of a PC keyboard with a keypad, as USB keyboards declare them.
const Codes kPcKeys = codes({{KEY_ESC, KEY_KPDOT},
                             {KEY_102ND, KEY_F12},
                             {KEY_KPENTER, KEY_RIGHTALT},
                             {KEY_HOME, KEY_DELETE},
                             KEY_PAUSE,
                             {KEY_LEFTMETA, KEY_COMPOSE}});

// Those that sit above it: volume, player, browser, and so on.
const Codes kMediaKeys = codes({{KEY_MUTE, KEY_VOLUMEUP},
                                KEY_CALC,
                                KEY_MAIL,
                                KEY_BOOKMARKS,
                                KEY_BACK,
                                KEY_FORWARD,
                                {KEY_NEXTSONG, KEY_STOPCD},
                                KEY_HOMEPAGE,
                                KEY_REFRESH,
                                KEY_SEARCH});

const Codes kArrows = codes({KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN});

// What the kernel makes of a HID consumer page that is declared whole: 135 keys, among them the arrows, and no letter.
const Codes kWholeConsumerPage = codes({KEY_ESC,
                                        KEY_ENTER,
                                        KEY_KPMINUS,
                                        KEY_KPPLUS,
                                        KEY_UP,
                                        {KEY_LEFT, KEY_RIGHT},
                                        KEY_DOWN,
                                        {KEY_MUTE, KEY_POWER},
                                        KEY_PAUSE,
                                        KEY_STOP,
                                        {KEY_PROPS, KEY_UNDO},
                                        {KEY_COPY, KEY_CALC},
                                        KEY_SLEEP,
                                        KEY_FILE,
                                        KEY_WWW,
                                        KEY_COFFEE,
                                        {KEY_MAIL, KEY_BOOKMARKS},
                                        {KEY_BACK, KEY_FORWARD},
                                        KEY_EJECTCD,
                                        {KEY_NEXTSONG, KEY_PHONE},
                                        {KEY_CONFIG, KEY_EXIT},
                                        {KEY_SCROLLUP, KEY_SCROLLDOWN},
                                        KEY_NEW,
                                        {KEY_CLOSE, KEY_PRINT},
                                        KEY_CAMERA,
                                        {KEY_CHAT, KEY_SEARCH},
                                        KEY_FINANCE,
                                        {KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP},
                                        {KEY_KBDILLUMTOGGLE, KEY_KBDILLUMUP},
                                        {KEY_SAVE, KEY_DOCUMENTS},
                                        {KEY_UNKNOWN, KEY_VIDEO_NEXT},
                                        KEY_BRIGHTNESS_AUTO,
                                        BTN_0,
                                        {KEY_SELECT, KEY_GOTO},
                                        KEY_INFO,
                                        KEY_PROGRAM,
                                        KEY_PVR,
                                        KEY_SUBTITLE,
                                        KEY_FULL_SCREEN,
                                        {KEY_KEYBOARD, KEY_SAT},
                                        {KEY_CD, KEY_TAPE},
                                        {KEY_TUNER, KEY_PLAYER},
                                        KEY_DVD,
                                        {KEY_AUDIO, KEY_VIDEO},
                                        {KEY_MEMO, KEY_CHANNELDOWN},
                                        KEY_LAST,
                                        {KEY_NEXT, KEY_SHUFFLE},
                                        KEY_PREVIOUS,
                                        {KEY_VIDEOPHONE, KEY_LOGOFF},
                                        KEY_MEDIA_REPEAT,
                                        KEY_IMAGES,
                                        {KEY_BUTTONCONFIG, KEY_ASSISTANT},
                                        {KEY_EMOJI_PICKER, KEY_DICTATE},
                                        {KEY_BRIGHTNESS_MIN, KEY_BRIGHTNESS_MAX}});

// A HID system control page, declared whole.
const Codes kWholeSystemPage = kArrows + codes({KEY_POWER, KEY_SLEEP, KEY_WAKEUP, KEY_CONTEXT_MENU, KEY_MENU, KEY_PROG1,
                                                KEY_HELP, KEY_EXIT, KEY_SELECT, KEY_POWER2, KEY_RESTART});

const Codes kThreeButtons = codes({{BTN_LEFT, BTN_MIDDLE}});
const Codes kFiveButtons = codes({{BTN_LEFT, BTN_EXTRA}});
const Codes kThreeLights = codes({LED_NUML, LED_CAPSL, LED_SCROLLL});
const Codes kFiveLights = kThreeLights + codes({LED_COMPOSE, LED_KANA});
const Codes kScanCode = {MSC_SCAN};

// Of a touchpad that tells two fingers and one that tells five.
const Codes kTwoFingers = codes({BTN_LEFT, BTN_TOUCH, BTN_TOOL_FINGER, BTN_TOOL_DOUBLETAP});
const Codes kFiveFingers = kTwoFingers + codes({BTN_TOOL_TRIPLETAP, BTN_TOOL_QUADTAP, BTN_TOOL_QUINTTAP});

const Codes kPen = codes({BTN_TOUCH, BTN_STYLUS, BTN_STYLUS2, BTN_TOOL_PEN, BTN_TOOL_RUBBER});

const Codes kGamepadButtons = codes({BTN_SOUTH, BTN_EAST, BTN_NORTH, BTN_WEST, BTN_TL, BTN_TR, BTN_SELECT, BTN_START,
                                     BTN_MODE, BTN_THUMBL, BTN_THUMBR});

// What a key map of a television's remote has.
const Codes kRemoteKeys = kArrows + codes({KEY_OK,
                                           KEY_POWER,
                                           {KEY_MUTE, KEY_VOLUMEUP},
                                           KEY_MENU,
                                           KEY_EXIT,
                                           KEY_CHANNELUP,
                                           KEY_CHANNELDOWN,
                                           KEY_RED,
                                           KEY_GREEN,
                                           KEY_YELLOW,
                                           KEY_BLUE,
                                           KEY_EPG,
                                           {KEY_NUMERIC_0, KEY_NUMERIC_9}});

// ---- Kinds --------------------------------------------------------------------------------------

Device keyboardNode(std::string name, input_id id, const Codes& keys, const Codes& lights = kThreeLights) {
  return {std::move(name), {{EV_KEY, keys}, {EV_MSC, kScanCode}, {EV_LED, lights}, {EV_REP, {}}}, id};
}

Device keysNode(std::string name, input_id id, const Codes& keys) {
  return {std::move(name), {{EV_KEY, keys}, {EV_MSC, kScanCode}}, id};
}

Device mouseNode(std::string name, input_id id, const Codes& buttons, const Codes& axes) {
  return {std::move(name), {{EV_KEY, buttons}, {EV_REL, axes}, {EV_MSC, kScanCode}}, id};
}

// Contacts in slots, and the first one as a plain position, too.
Axes contacts(int slots, int maxX, int maxY, int resolution = 0) {
  return {{ABS_X, 0, maxX, resolution},
          {ABS_Y, 0, maxY, resolution},
          {ABS_MT_SLOT, 0, slots - 1},
          {ABS_MT_POSITION_X, 0, maxX, resolution},
          {ABS_MT_POSITION_Y, 0, maxY, resolution},
          {ABS_MT_TRACKING_ID, 0, 65535}};
}

Device touchpadNode(std::string name, input_id id, const Codes& keys, const Axes& axes, const Codes& properties) {
  return withAxes({std::move(name), {{EV_KEY, keys}}, id, properties}, axes);
}

Device touchscreenNode(std::string name, input_id id, const Axes& axes) {
  return withAxes({std::move(name), {{EV_KEY, {BTN_TOUCH}}}, id, {INPUT_PROP_DIRECT}}, axes);
}

Device penNode(std::string name, input_id id, const Codes& keys, int maxX, int maxY, const Codes& properties) {
  return withAxes({std::move(name), {{EV_KEY, keys}}, id, properties},
                  {{ABS_X, 0, maxX, 100}, {ABS_Y, 0, maxY, 100}, {ABS_PRESSURE, 0, 2047}, {ABS_DISTANCE, 0, 63}});
}

// As the kernel's rc-core makes each node: with relative axes and the property of a pointing stick, whatever its keys.
Device rcNode(std::string name, input_id id, const Codes& keys, std::string phys) {
  Device device = {std::move(name),
                   {{EV_KEY, keys}, {EV_REL, {REL_X, REL_Y}}, {EV_MSC, kScanCode}, {EV_REP, {}}},
                   id,
                   {INPUT_PROP_POINTING_STICK}};
  device.phys = std::move(phys);
  device.repeatDelay = std::chrono::milliseconds(500);
  device.repeatPeriod = std::chrono::milliseconds(125);
  return device;
}

Device cecNode() {
  Device device = rcNode("vc4-hdmi-0", {BUS_CEC, 0, 0, 1}, kRemoteKeys + codes({KEY_PLAY, KEY_STOP, KEY_PAUSE}),
                         "vc4-hdmi-0/input0");
  device.repeatDelay = std::chrono::milliseconds(0);  // the television repeats
  return device;
}

// One that a kernel made which did not declare relative axes yet.
Device oldInfraredNode() {
  Device device = keysNode("ITE8708 CIR transceiver", {BUS_HOST, 0x1283, 0, 0}, kRemoteKeys);
  device.codes[EV_REP];
  device.phys = "ite-cir/input0";
  return device;
}

Device unifyingKeyboardWithPointer() {
  Device device = keyboardNode("Logitech K400 Plus", {BUS_USB, 0x046d, 0x404d, 0x0111},
                               kPcKeys + kMediaKeys + kFiveButtons, kFiveLights);
  device.codes[EV_REL] = {REL_X, REL_Y, REL_HWHEEL, REL_WHEEL};
  return withPhys(device, "usb-0000:00:14.0-1/input1:1");
}

Device surfaceTypeCover() {
  Device device = keyboardNode("Microsoft Surface Type Cover", {BUS_USB, 0x045e, 0x07dc, 0x0111},
                               kPcKeys + kMediaKeys + kThreeButtons + codes({BTN_TOUCH, BTN_TOOL_FINGER}));
  device.codes[EV_REL] = {REL_X, REL_Y, REL_HWHEEL, REL_WHEEL};
  return withAxes(device, {{ABS_X, 0, 1023}, {ABS_Y, 0, 1023}});
}

// A mouse whose second node has a keyboard's keys, and axes without a button.
Device gamingMouseKeys() {
  Device device =
      keyboardNode("ASUS ROG GLADIUS", {BUS_USB, 0x0b05, 0x181a, 0x0111}, kPcKeys + kMediaKeys, kFiveLights);
  device.codes[EV_REL] = {REL_X, REL_Y, REL_HWHEEL};
  return withPhys(device, "usb-0000:00:14.0-3/input1");
}

Device trackpointOfAKeyboard() {
  Device device = mouseNode("Lenovo ThinkPad Compact USB Keyboard with TrackPoint", {BUS_USB, 0x17ef, 0x6047, 0x0100},
                            kFiveButtons + kWholeConsumerPage, {REL_X, REL_Y, REL_HWHEEL, REL_WHEEL});
  device.properties = {INPUT_PROP_POINTER, INPUT_PROP_POINTING_STICK};
  return withPhys(device, "usb-0000:00:14.0-4/input1");
}

Device motionSensors() {
  Device device = {"Sony Interactive Entertainment Wireless Controller Motion Sensors",
                   {{EV_MSC, {MSC_TIMESTAMP}}},
                   {BUS_USB, 0x054c, 0x09cc, 0x8111},
                   {INPUT_PROP_ACCELEROMETER}};
  Axes axes;
  for (int axis = ABS_X; axis <= ABS_RZ; ++axis) axes.push_back({axis, -32768, 32767, 8192, 16});
  return withAxes(device, axes);
}

Device gamepadNode(std::string name, input_id id, const Codes& buttons) {
  Axes axes;
  for (const int stick : {ABS_X, ABS_Y, ABS_RX, ABS_RY}) axes.push_back({stick, -32768, 32767, 0, 16});
  for (const int trigger : {ABS_Z, ABS_RZ}) axes.push_back({trigger, 0, 255});
  for (const int hat : {ABS_HAT0X, ABS_HAT0Y}) axes.push_back({hat, -1, 1});
  return withAxes({std::move(name), {{EV_KEY, buttons}}, id}, axes);
}

Device padNode(std::string name, input_id id, const Codes& buttons) {
  return withAxes({std::move(name), {{EV_KEY, buttons + codes({BTN_STYLUS})}}, id},
                  {{ABS_X, 0, 1}, {ABS_Y, 0, 1}, {ABS_WHEEL, 0, 71}, {ABS_MISC, 0, 0}});
}

// ---- The devices --------------------------------------------------------------------------------

constexpr Taken kMouse = Taken::kAsMouse;
constexpr Taken kKeyboard = Taken::kAsKeyboard;
constexpr Taken kNot = Taken::kNot;

const Codes kWheel = {REL_X, REL_Y, REL_WHEEL};
const char* const kNano = "Microsoft Microsoft\u00ae Nano Transceiver v2.0";
constexpr input_id kNanoId = {BUS_USB, 0x045e, 0x0745, 0x0111};
constexpr input_id kTouchpadOnI2c = {BUS_I2C, 0x06cb, 0x76ad, 0x0100};

std::vector<RealDevice> keyboards() {
  return {
      {"AtKeyboard", "keyboard", kKeyboard,
       withPhys(keyboardNode("AT Translated Set 2 keyboard", {BUS_I8042, 1, 1, 0xab41}, kPcKeys + kMediaKeys),
                "isa0060/serio0/input0")},
      {"UsbKeyboard", "keyboard", kKeyboard,
       withPhys(keyboardNode("Logitech USB Keyboard", {BUS_USB, 0x046d, 0xc31c, 0x0110}, kPcKeys, kFiveLights),
                "usb-0000:00:14.0-2/input0")},
      {"KeyboardOfATabletPc", "keyboard", kKeyboard,
       keyboardNode("Chicony ACER Hawaii Keyboard", {BUS_USB, 0x04f2, 0x1558, 0x0111}, kPcKeys + kMediaKeys)},
      {"GamingKeyboard", "keyboard", kKeyboard,
       withAxes({"Razer Razer BlackWidow 2013",
                 {{EV_KEY, kPcKeys + kWholeConsumerPage}, {EV_REL, {REL_HWHEEL}}, {EV_MSC, kScanCode}, {EV_REP, {}}},
                 {BUS_USB, 0x1532, 0x011b, 0x0111}},
                {{ABS_VOLUME, 0, 572}})},
      {"SecurityKey", "keyboard", kKeyboard,
       keyboardNode("Yubico Yubico Yubikey II", {BUS_USB, 0x1050, 0x0010, 0x0111}, kPcKeys, kFiveLights)},
      {"BluetoothKeyboard", "keyboard", kKeyboard,
       withPhys(keyboardNode("Apple Wireless Keyboard", {BUS_BLUETOOTH, 0x05ac, 0x0239, 0x0050}, kPcKeys),
                "00:1a:7d:da:71:11")},
      {"NanoKeyboard", "keyboard", kKeyboard,
       withPhys(keyboardNode(kNano, kNanoId, kPcKeys), "usb-0000:00:14.0-6/input0")},
  };
}

std::vector<RealDevice> mediaKeys() {
  return {
      {"NanoConsumerControl", "media keys", kKeyboard,
       withPhys(withAxes(keysNode(std::string(kNano) + " Consumer Control", kNanoId, kWholeConsumerPage),
                         {{ABS_VOLUME, 0, 572}}),
                "usb-0000:00:14.0-6/input2")},
      {"NanoSystemControl", "media keys", kKeyboard,
       withPhys(keysNode(std::string(kNano) + " System Control", kNanoId, kWholeSystemPage),
                "usb-0000:00:14.0-6/input2")},
      {"ConsumerControl", "media keys", kNot,
       withPhys(keysNode("Logitech USB Keyboard Consumer Control", {BUS_USB, 0x046d, 0xc31c, 0x0110}, kMediaKeys),
                "usb-0000:00:14.0-2/input1")},
      {"SystemControl", "buttons", kNot,
       withPhys(keysNode("Logitech USB Keyboard System Control", {BUS_USB, 0x046d, 0xc31c, 0x0110},
                         codes({KEY_POWER, KEY_SLEEP, KEY_WAKEUP})),
                "usb-0000:00:14.0-2/input1")},
      {"KeysOfAMouse", "media keys", kKeyboard,
       withAxes({"USB Laser Game Mouse",
                 {{EV_KEY, kWholeConsumerPage}, {EV_REL, {REL_HWHEEL}}, {EV_MSC, kScanCode}},
                 {BUS_USB, 0x04d9, 0xfa50, 0x0111}},
                {{ABS_VOLUME, 0, 572}})},
      {"LaptopHotkeys",
       "media keys",
       kNot,
       {"ThinkPad Extra Buttons",
        {{EV_KEY, codes({{KEY_MUTE, KEY_VOLUMEUP},
                         KEY_SLEEP,
                         KEY_PROG1,
                         KEY_COFFEE,
                         KEY_SUSPEND,
                         KEY_BATTERY,
                         KEY_WLAN,
                         KEY_BRIGHTNESSDOWN,
                         KEY_BRIGHTNESSUP,
                         KEY_ZOOM})},
         {EV_MSC, kScanCode},
         {EV_SW, {SW_TABLET_MODE, SW_RFKILL_ALL}}},
        {BUS_HOST, 0x17aa, 0x5054, 0x4101}}},
      {"WmiHotkeys",
       "media keys",
       kNot,
       {"HP WMI hotkeys",
        {{EV_KEY, codes({KEY_HELP, KEY_SETUP, KEY_PROG1, KEY_COFFEE, KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP, KEY_MEDIA,
                         KEY_INFO})},
         {EV_MSC, kScanCode},
         {EV_SW, {SW_TABLET_MODE, SW_DOCK}}},
        {BUS_HOST, 0, 0, 0}}},
  };
}

std::vector<RealDevice> remotes() {
  return {
      {"RemoteOfTheKernel", "remote", kNot,
       rcNode("rc-core loopback device", {BUS_VIRTUAL, 0, 0, 1}, kRemoteKeys, "rc-core/virtual")},
      {"RemoteWithTheButtonsOfAMouse", "remote", kMouse,
       rcNode("iMON Panel, Knob and Mouse(15c2:0036)", {BUS_USB, 0x15c2, 0x0036, 0x0001},
              kRemoteKeys + codes({BTN_LEFT, BTN_RIGHT}), "usb-0000:00:1d.7-1/input0")},
      {"RemoteOfAMediaCenter", "remote", kNot,
       rcNode("Media Center Ed. eHome Infrared Remote Transceiver (0471:0815)", {BUS_USB, 0x0471, 0x0815, 0x0000},
              kRemoteKeys + codes({KEY_ENTER, KEY_PLAY, KEY_STOP, KEY_RECORD}), "usb-0000:00:1d.7-2/input0")},
      {"RemoteThroughTheTelevision", "remote", kNot, cecNode()},
      {"RemoteOfAnOldKernel", "remote", kKeyboard, oldInfraredNode()},
  };
}

std::vector<RealDevice> mice() {
  return {
      {"UsbMouse", "mouse", kMouse,
       withPhys(mouseNode("Lenovo Optical USB Mouse", {BUS_USB, 0x17ef, 0x6019, 0x0111}, kThreeButtons, kWheel),
                "usb-0000:00:14.0-5/input0")},
      {"Ps2Mouse", "mouse", kMouse,
       withPhys({"PS/2 Generic Mouse", {{EV_KEY, kThreeButtons}, {EV_REL, {REL_X, REL_Y}}}, {BUS_I8042, 2, 1, 0}},
                "isa0060/serio1/input0")},
      {"Trackpoint",
       "mouse",
       kMouse,
       {"TPPS/2 IBM TrackPoint",
        {{EV_KEY, kThreeButtons}, {EV_REL, {REL_X, REL_Y}}},
        {BUS_I8042, 2, 10, 0},
        {INPUT_PROP_POINTER, INPUT_PROP_POINTING_STICK}}},
      {"Trackball", "mouse", kMouse,
       mouseNode("Logitech USB Trackball", {BUS_USB, 0x046d, 0xc408, 0x0110}, kFiveButtons, {REL_X, REL_Y})},
      {"GamingMouse", "mouse", kMouse,
       mouseNode("Saitek Cyborg R.A.T.5 Mouse", {BUS_USB, 0x06a3, 0x0cd5, 0x0111},
                 codes({{BTN_LEFT, BTN_FORWARD}, {0x117, 0x11a}}), kWheel)},
      {"MouseWithMediaKeys", "mouse", kMouse,
       mouseNode("ROCCAT ROCCAT Kone XTD", {BUS_USB, 0x1e7d, 0x2e22, 0x0111}, kFiveButtons + kWholeConsumerPage,
                 {REL_X, REL_Y, REL_WHEEL, REL_HWHEEL, REL_DIAL})},
      {"MouseWithATouchSurface", "mouse", kMouse,
       withAxes(mouseNode("Apple Magic Mouse", {BUS_BLUETOOTH, 0x05ac, 0x030d, 0x0084}, kThreeButtons,
                          {REL_X, REL_Y, REL_WHEEL, REL_HWHEEL}),
                {{ABS_MT_SLOT, 0, 15},
                 {ABS_MT_TOUCH_MAJOR, 0, 1020},
                 {ABS_MT_TOUCH_MINOR, 0, 1020},
                 {ABS_MT_ORIENTATION, -31, 32},
                 {ABS_MT_POSITION_X, -1100, 1258, 26},
                 {ABS_MT_POSITION_Y, -1589, 2047, 26},
                 {ABS_MT_TRACKING_ID, 0, 65535}})},
      {"NanoMouse", "mouse", kMouse,
       withPhys(mouseNode(std::string(kNano) + " Mouse", kNanoId, kFiveButtons, {REL_X, REL_Y, REL_HWHEEL, REL_WHEEL}),
                "usb-0000:00:14.0-6/input1")},
      {"TrackpointOfAKeyboard", "mouse", kMouse, trackpointOfAKeyboard()},
      {"SilentHalfOfATouchpad", "mouse", kMouse,
       withPhys(mouseNode("DLL0704:01 06CB:76AD Mouse", kTouchpadOnI2c, codes({BTN_LEFT, BTN_RIGHT}), {REL_X, REL_Y}),
                "i2c-DLL0704:01")},
  };
}

std::vector<RealDevice> absoluteMice() {
  return {
      {"QemuTablet", "absolute mouse", kNot,
       withAxes({"QEMU QEMU USB Tablet",
                 {{EV_KEY, kThreeButtons}, {EV_REL, {REL_WHEEL}}, {EV_MSC, kScanCode}},
                 {BUS_USB, 0x0627, 0x0001, 0x0111}},
                {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}})},
      {"VmwareMouse", "absolute mouse", kNot,
       withAxes(
           {"VMware VMware Virtual USB Mouse",
            {{EV_KEY, codes({{BTN_MOUSE, BTN_MOUSE + 15}})}, {EV_REL, {REL_HWHEEL, REL_WHEEL}}, {EV_MSC, kScanCode}},
            {BUS_USB, 0x0e0f, 0x0003, 0x0110}},
           {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}})},
  };
}

std::vector<RealDevice> keyboardsWithPointers() {
  return {
      {"KeyboardWithATouchpad", "keyboard with pointer", kMouse, unifyingKeyboardWithPointer()},
      {"KeyboardCover", "keyboard with pointer", kMouse, surfaceTypeCover()},
      {"KeysOfAGamingMouse", "keyboard with pointer", kNot, gamingMouseKeys()},
  };
}

std::vector<RealDevice> touchpads() {
  return {
      {"TouchpadOnI2c", "touchpad", kNot,
       withPhys(touchpadNode("DLL0704:01 06CB:76AD Touchpad", kTouchpadOnI2c, kFiveFingers, contacts(5, 1216, 680, 12),
                             {INPUT_PROP_POINTER, INPUT_PROP_BUTTONPAD}),
                "i2c-DLL0704:01")},
      {"TouchpadOnPs2", "touchpad", kNot,
       withPhys(touchpadNode("SynPS/2 Synaptics TouchPad", {BUS_I8042, 2, 7, 0x01b1}, kTwoFingers + codes({BTN_RIGHT}),
                             {{ABS_X, 1266, 5674, 43, 8},
                              {ABS_Y, 1094, 4658, 68, 8},
                              {ABS_PRESSURE, 0, 255},
                              {ABS_TOOL_WIDTH, 0, 15},
                              {ABS_MT_SLOT, 0, 1},
                              {ABS_MT_POSITION_X, 1266, 5674, 43, 8},
                              {ABS_MT_POSITION_Y, 1094, 4658, 68, 8},
                              {ABS_MT_TRACKING_ID, 0, 65535}},
                             {INPUT_PROP_POINTER}),
                "isa0060/serio1/input0")},
      {"TouchpadForOneFinger", "touchpad", kNot,
       touchpadNode("AlpsPS/2 ALPS DualPoint TouchPad", {BUS_I8042, 2, 8, 0x0200},
                    kThreeButtons + codes({BTN_TOUCH, BTN_TOOL_FINGER}),
                    {{ABS_X, 0, 1023}, {ABS_Y, 0, 767}, {ABS_PRESSURE, 0, 127}}, {})},
      {"TouchpadByBluetooth", "touchpad", kNot,
       touchpadNode("Apple Wireless Trackpad", {BUS_BLUETOOTH, 0x05ac, 0x030e, 0x0160}, kFiveFingers,
                    contacts(16, 3167, 2565, 46), {INPUT_PROP_BUTTONPAD})},
      {"FingersOnAPenTablet", "touchpad", kNot,
       touchpadNode("Wacom Bamboo 2FG 4x5 Finger", {BUS_USB, 0x056a, 0x00d1, 0x0106},
                    codes({BTN_LEFT, BTN_RIGHT, BTN_FORWARD, BTN_BACK, BTN_TOUCH, BTN_TOOL_FINGER, BTN_TOOL_DOUBLETAP}),
                    contacts(2, 480, 320, 4), {INPUT_PROP_POINTER})},
  };
}

std::vector<RealDevice> touchscreens() {
  return {
      {"TouchscreenForOneFinger", "touchscreen", kNot,
       touchscreenNode("ADS7846 Touchscreen", {BUS_SPI, 0, 7846, 0},
                       {{ABS_X, 0, 4095}, {ABS_Y, 0, 4095}, {ABS_PRESSURE, 0, 255}})},
      {"TouchscreenForTenFingers", "touchscreen", kNot,
       touchscreenNode("Atmel maXTouch Touchscreen", {BUS_I2C, 0, 0, 0}, contacts(10, 2559, 1699))},
      {"TouchscreenOnUsb", "touchscreen", kNot,
       touchscreenNode("QUANTA OpticalTouchScreen", {BUS_USB, 0x0408, 0x3001, 0x0110}, contacts(2, 32767, 32767))},
      {"FingersOnAScreenWithAPen", "touchscreen", kNot,
       touchscreenNode("Wacom Cintiq Pro 16 Finger", {BUS_USB, 0x056a, 0x0354, 0x0110}, contacts(10, 10368, 5832, 30))},
  };
}

std::vector<RealDevice> tablets() {
  return {
      {"PenOnAScreen", "pen", kNot,
       penNode("Wacom ISDv4 E6 Pen", {BUS_USB, 0x056a, 0x00e6, 0x0139}, kPen, 27760, 15694, {INPUT_PROP_DIRECT})},
      {"PenOnATablet", "pen", kNot,
       penNode("Wacom Intuos5 touch M Pen", {BUS_USB, 0x056a, 0x0027, 0x0107}, kPen + kFiveButtons, 44704, 27940,
               {INPUT_PROP_POINTER})},
      {"PenWithoutProperties", "pen", kNot,
       penNode("HUION PenTablet Pen", {BUS_USB, 0x256c, 0x006e, 0x0111}, kPen, 50800, 31750, {})},
      {"TabletButtons", "tablet buttons", kNot,
       padNode("Wacom Intuos5 touch M Pad", {BUS_USB, 0x056a, 0x0027, 0x0107}, codes({{BTN_0, BTN_8}}))},
      {"ManyTabletButtons", "tablet buttons", kNot,
       padNode("Wacom Express Key Remote Pad", {BUS_USB, 0x056a, 0x0331, 0x0110},
               codes({{BTN_0, BTN_9}, {BTN_BASE, BTN_BASE2}, {BTN_SOUTH, BTN_Z}}))},
  };
}

std::vector<RealDevice> gamepads() {
  return {
      {"GamepadOnUsb", "gamepad", kNot,
       gamepadNode("Microsoft X-Box 360 pad", {BUS_USB, 0x045e, 0x028e, 0x0110}, kGamepadButtons)},
      {"GamepadByBluetooth", "gamepad", kNot,
       gamepadNode("Wireless Controller", {BUS_BLUETOOTH, 0x054c, 0x09cc, 0x8100},
                   kGamepadButtons + codes({BTN_TL2, BTN_TR2}))},
      {"GamepadWithArrows",
       "gamepad",
       kKeyboard,
       {"Nintendo Wii Remote",
        {{EV_KEY, kArrows + codes({KEY_NEXT, KEY_PREVIOUS, BTN_1, BTN_2, BTN_A, BTN_B, BTN_MODE})}},
        {BUS_BLUETOOTH, 0x057e, 0x0306, 0x8600}}},
      {"Joystick", "gamepad", kNot,
       withAxes({"Logitech Extreme 3D",
                 {{EV_KEY, codes({{BTN_TRIGGER, BTN_BASE6}})}, {EV_MSC, kScanCode}},
                 {BUS_USB, 0x046d, 0xc215, 0x0110}},
                {{ABS_X, 0, 1023},
                 {ABS_Y, 0, 1023},
                 {ABS_RZ, 0, 255},
                 {ABS_THROTTLE, 0, 255},
                 {ABS_HAT0X, -1, 1},
                 {ABS_HAT0Y, -1, 1}})},
  };
}

std::vector<RealDevice> partsOfTheMachine() {
  return {
      {"PowerButton", "buttons", kNot,
       withPhys({"Power Button", {{EV_KEY, {KEY_POWER}}}, {BUS_HOST, 0, 1, 0}}, "PNP0C0C/button/input0")},
      {"VolumeButtons", "buttons", kNot,
       withPhys({"gpio-keys", {{EV_KEY, {KEY_POWER, KEY_VOLUMEDOWN, KEY_VOLUMEUP}}}, {BUS_HOST, 1, 1, 0x0100}},
                "gpio-keys/input0")},
      {"BrightnessButtons", "buttons", kNot,
       withPhys({"Video Bus",
                 {{EV_KEY, codes({KEY_SWITCHVIDEOMODE, KEY_BRIGHTNESSDOWN, KEY_BRIGHTNESSUP, KEY_BRIGHTNESS_CYCLE,
                                  KEY_BRIGHTNESS_ZERO, KEY_DISPLAY_OFF})}},
                 {BUS_HOST, 0, 6, 0}},
                "LNXVIDEO/video/input0")},
      {"LidSwitch", "switch", kNot,
       withPhys({"Lid Switch", {{EV_SW, {SW_LID}}}, {BUS_HOST, 0, 5, 0}}, "PNP0C0D/button/input0")},
      {"HeadphoneJack", "switch", kNot,
       withPhys({"HDA Intel PCH Headphone", {{EV_SW, {SW_HEADPHONE_INSERT}}}, {0, 0, 0, 0}}, "ALSA")},
      {"Accelerometer", "sensor", kNot,
       withPhys(withAxes({"ST LIS3LV02DL Accelerometer", {}, {BUS_HOST, 0, 0, 0}},
                         {{ABS_X, -51, 51, 0, 3}, {ABS_Y, -51, 51, 0, 3}, {ABS_Z, -51, 51, 0, 3}}),
                "lis3lv02d/input0")},
      {"MotionSensors", "sensor", kNot, motionSensors()},
      {"Beeper", "other", kNot,
       withPhys({"PC Speaker", {{EV_SND, {SND_BELL, SND_TONE}}}, {BUS_ISA, 0x001f, 0x0001, 0x0100}}, "isa0061/input0")},
      {"WheelAlone", "other", kNot, {"wheel only device", {{EV_REL, {REL_WHEEL}}}, {BUS_USB, 1, 2, 1}}},
  };
}

std::vector<RealDevice> all() {
  std::vector<RealDevice> result;
  for (const auto& some : {keyboards(), mediaKeys(), remotes(), mice(), absoluteMice(), keyboardsWithPointers(),
                           touchpads(), touchscreens(), tablets(), gamepads(), partsOfTheMachine()}) {
    result.insert(result.end(), some.begin(), some.end());
  }
  return result;
}

}  // namespace

const std::vector<RealDevice>& realDevices() {
  static const std::vector<RealDevice> devices = all();
  return devices;
}

const RealDevice& realDevice(const std::string& id) {
  const auto found = std::find_if(realDevices().begin(), realDevices().end(),
                                  [&](const RealDevice& device) { return device.id == id; });
  if (found == realDevices().end()) std::abort();
  return *found;
}

std::vector<RealDevice> nanoTransceiver() {
  return {realDevice("NanoKeyboard"), realDevice("NanoMouse"), realDevice("NanoConsumerControl"),
          realDevice("NanoSystemControl")};
}

}  // namespace quarlo::test
