#include "tests/unit/events.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace quarlo::test {
namespace {

constexpr unsigned char kUntouchedByte = 0xEE;

std::string action(int number, const char* const (&names)[3]) {
  return number >= 0 && number < 3 ? names[number] : "action " + std::to_string(number);
}

std::string keyText(int action, int key, int ch, unsigned modifiers) {
  return test::action(action, {"key down", "key up", "key action 2"}) + " " + std::to_string(key) + " ch " +
         std::to_string(ch) + " modifiers " + std::to_string(modifiers);
}

std::string mouseText(int action, int button, int x, int y, int clicks) {
  return test::action(action, {"mouse move", "mouse down", "mouse up"}) + " button " + std::to_string(button) + " at " +
         std::to_string(x) + "," + std::to_string(y) + " clicks " + std::to_string(clicks);
}

}  // namespace

InputEvent untouched() {
  InputEvent event;
  std::memset(static_cast<void*>(&event), kUntouchedByte, sizeof event);
  return event;
}

bool isUntouched(const InputEvent& event) {
  const auto bytes = bytesOf(event);
  return std::all_of(std::begin(bytes), std::end(bytes), [](unsigned char byte) { return byte == kUntouchedByte; });
}

std::array<unsigned char, sizeof(InputEvent)> bytesOf(const InputEvent& event) {
  std::array<unsigned char, sizeof(InputEvent)> bytes = {};
  std::memcpy(bytes.data(), &event, bytes.size());
  return bytes;
}

std::string text(const InputEvent& event) {
  if (isUntouched(event)) return kNothingWritten;
  const std::string flags = event.flags == 0 ? "" : " flags " + std::to_string(event.flags);
  if (event.kind == InputEvent::kKeyEvent) {
    const InputEvent::KeyData& data = event.keyData;
    return keyText(data.action, data.key, static_cast<unsigned char>(data.ch), data.modifiers) + flags;
  }
  if (event.kind == InputEvent::kMouseEvent) {
    const InputEvent::MouseData& data = event.mouseData;
    return mouseText(data.action, data.button, data.x, data.y, data.clicks) + flags;
  }
  return "kind " + std::to_string(event.kind) + flags;
}

std::string keyDown(int key, int ch, unsigned modifiers) { return keyText(0, key, ch, modifiers); }
std::string keyUp(int key, int ch, unsigned modifiers) { return keyText(1, key, ch, modifiers); }
std::string moved(int x, int y, int button) { return mouseText(0, button, x, y, 0); }
std::string buttonDown(int button, int x, int y, int clicks) { return mouseText(1, button, x, y, clicks); }
std::string buttonUp(int button, int x, int y, int clicks) { return mouseText(2, button, x, y, clicks); }

std::string readOne(LinuxInputReader& reader, int timeoutMs) {
  InputEvent event = untouched();
  return reader.readInput(event, timeoutMs) ? text(event) : kNone;
}

Lines readAll(LinuxInputReader& reader) {
  Lines events;
  for (std::string event = readOne(reader); event != kNone; event = readOne(reader)) events.push_back(event);
  return events;
}

input_event makeEvdevRecord(int type, int code, int value) {
  input_event record = {};
  record.type = static_cast<__u16>(type);
  record.code = static_cast<__u16>(code);
  record.value = value;
  return record;
}

}  // namespace quarlo::test
