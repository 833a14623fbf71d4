#include "bench/peer.h"

#include <fcntl.h>
#include <lirc_client.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "bench/fail.h"
#include "bench/opening.h"

namespace quarlo::bench {

using msg::KeyInput;

namespace {

constexpr xkb_keycode_t kXkbOffset = 8;  // from the kernel's codes to those of XKB

// Compiled once: a contestant that is opened again must not pay for it again.
xkb_keymap* keymap() {
  static xkb_keymap* const map = [] {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (context == nullptr) fail("libxkbcommon finds no keyboard data: is the package xkb-data installed?");
    xkb_rule_names names = {};
    names.model = "pc105";
    names.layout = "us";
    xkb_keymap* compiled = xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (compiled == nullptr) fail("libxkbcommon cannot compile a US keyboard: is the package xkb-data installed?");
    return compiled;
  }();
  return map;
}

// The key code of what a key types without Shift. Only what the workloads type has one.
KeyInput::Key keyOf(xkb_keysym_t symbol) {
  if (symbol >= XKB_KEY_a && symbol <= XKB_KEY_z) {
    return KeyInput::kA + static_cast<KeyInput::Key>(symbol - XKB_KEY_a);
  }
  if (symbol >= XKB_KEY_0 && symbol <= XKB_KEY_9) {
    return KeyInput::k0 + static_cast<KeyInput::Key>(symbol - XKB_KEY_0);
  }
  switch (symbol) {
    case XKB_KEY_space: return KeyInput::kSpace;
    case XKB_KEY_Return: return KeyInput::kEnter;
    case XKB_KEY_comma: return KeyInput::kComma;
    case XKB_KEY_period: return KeyInput::kFullStop;
    case XKB_KEY_Shift_L: return KeyInput::kShift;
    default: return KeyInput::kNone;
  }
}

}  // namespace

XkbKeyboard::XkbKeyboard()
    : state_(xkb_state_new(keymap())),
      shift_(xkb_keymap_mod_get_index(keymap(), XKB_MOD_NAME_SHIFT)),
      control_(xkb_keymap_mod_get_index(keymap(), XKB_MOD_NAME_CTRL)),
      alt_(xkb_keymap_mod_get_index(keymap(), XKB_MOD_NAME_ALT)) {}

XkbKeyboard::~XkbKeyboard() { xkb_state_unref(state_); }

void XkbKeyboard::translate(int code, bool pressed, InputEvent& event) {
  const xkb_keycode_t key = static_cast<xkb_keycode_t>(code) + kXkbOffset;
  xkb_state_update_key(state_, key, pressed ? XKB_KEY_DOWN : XKB_KEY_UP);
  const xkb_keysym_t* symbols = nullptr;
  const int count = xkb_keymap_key_get_syms_by_level(keymap(), key, 0, 0, &symbols);
  char text[8] = {};
  xkb_state_key_get_utf8(state_, key, text, sizeof text);
  const xkb_mod_mask_t held = xkb_state_serialize_mods(state_, XKB_STATE_MODS_EFFECTIVE);

  event.kind = InputEvent::kKeyEvent;
  event.flags = 0;
  event.keyData.action = pressed ? InputEvent::KeyData::kDown : InputEvent::KeyData::kUp;
  event.keyData.key = count > 0 ? keyOf(symbols[0]) : KeyInput::kNone;
  event.keyData.ch = text[0];
  event.keyData.modifiers = ((held >> shift_ & 1) != 0 ? KeyInput::kShiftModifier : 0) |
                            ((held >> control_ & 1) != 0 ? KeyInput::kControlModifier : 0) |
                            ((held >> alt_ & 1) != 0 ? KeyInput::kAltModifier : 0);
}

void Pointer::move(double dx, double dy) {
  x_ = std::clamp(x_ + static_cast<int>(dx), 0, kMaxX);
  y_ = std::clamp(y_ + static_cast<int>(dy), 0, kMaxY);
}

void Pointer::fill(InputEvent& event) const {
  event.kind = InputEvent::kMouseEvent;
  event.flags = 0;
  event.mouseData.action = InputEvent::MouseData::kMove;
  event.mouseData.button = InputEvent::MouseData::kNoButton;
  event.mouseData.x = static_cast<std::uint16_t>(x_);
  event.mouseData.y = static_cast<std::uint16_t>(y_);
  event.mouseData.clicks = 0;
}

namespace {

struct Button {
  KeyInput::Key key;
  char ch;
};

const std::unordered_map<std::string_view, Button>& buttons() {
  static const std::unordered_map<std::string_view, Button> table = {
#define LIRC_BUTTON(name, key, character) {"KEY_" name, {KeyInput::key, static_cast<char>(character)}},
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
  };
  return table;
}

// Fills `event` with a key-down. Returns false for a button that nobody knows.
bool press(std::string_view name, InputEvent& event) {
  const auto button = buttons().find(name);
  if (button == buttons().end()) return false;
  event.kind = InputEvent::kKeyEvent;
  event.flags = 0;
  event.keyData.action = InputEvent::KeyData::kDown;
  event.keyData.key = button->second.key;
  event.keyData.ch = button->second.ch;
  event.keyData.modifiers = KeyInput::kNoModifier;
  return true;
}

}  // namespace

LircClient::LircClient(const std::string& socket) {
  setenv("LIRC_SOCKET_PATH", socket.c_str(), 1);
  fd_ = checked(lirc_init("input_bench", 0), socket);
  checked(fcntl(fd_, F_SETFL, O_NONBLOCK), socket);
}

LircClient::~LircClient() { lirc_deinit(); }

bool LircClient::read(InputEvent& event) const {
  char* line = nullptr;
  if (lirc_nextcode(&line) != 0 || line == nullptr) return false;
  unsigned repeat = 0;
  char name[32];
  const bool isLine = std::sscanf(line, "%*s %x %31s", &repeat, name) == 2;
  std::free(line);
  return isLine && repeat == 0 && press(name, event);
}

LircLines::LircLines(const std::string& socket) : fd_(connectTo(socket)) {}

LircLines::~LircLines() { close(fd_); }

bool LircLines::nextLine(std::string_view& line) {
  for (;;) {
    const char* const begin = text_ + begin_;
    if (const void* end = std::memchr(begin, '\n', end_ - begin_)) {
      line = {begin, static_cast<std::size_t>(static_cast<const char*>(end) - begin)};
      begin_ += line.size() + 1;
      return true;
    }
    std::memmove(text_, begin, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const ssize_t size = ::read(fd_, text_ + end_, sizeof text_ - end_);
    if (size <= 0) return false;
    end_ += static_cast<std::size_t>(size);
  }
}

// A line is "code repeat-count button-name remote-name".
bool LircLines::read(InputEvent& event) {
  std::string_view line;
  if (!nextLine(line)) return false;
  const std::size_t count = line.find(' ') + 1;
  const std::size_t name = line.find(' ', count) + 1;
  const std::size_t end = line.find(' ', name);
  if (count == 0 || name == 0 || end == std::string_view::npos) return false;
  unsigned repeat = 0;
  std::from_chars(line.data() + count, line.data() + name - 1, repeat, 16);
  return repeat == 0 && press(line.substr(name, end - name), event);
}

}  // namespace quarlo::bench
