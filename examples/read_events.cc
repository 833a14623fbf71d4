// Prints keys and the pointer's position until Escape is pressed.
#include <cstdio>

#include "input/linux_input_reader.h"

using quarlo::components::input::LinuxInputReader;
using Event = LinuxInputReader::InputEvent;

int main() {
  LinuxInputReader reader;
  if (!reader.init(nullptr, nullptr, nullptr, 1919, 1079)) return 1;  // no mouse, no keyboard, no remote
  for (;;) {
    Event event;
    event.kind = Event::kNoEvent;
    for (int timeoutMs = 10; reader.readInput(event, timeoutMs); timeoutMs = 0) {
      if (event.kind == Event::kKeyEvent && event.keyData.action == Event::KeyData::kDown) {
        std::printf("key %d\n", event.keyData.key);
        if (event.keyData.key == quarlo::msg::KeyInput::kEscape) return 0;
      } else if (event.kind == Event::kMouseEvent) {
        std::printf("pointer at %d,%d\n", event.mouseData.x, event.mouseData.y);
      }
      event.kind = Event::kNoEvent;
    }
    // Everything that was there has been read: draw, run timers, and come back.
  }
}
