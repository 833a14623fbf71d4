// Prints keys, the pointer's position and the steps of a wheel until Escape is pressed.
#include <cstdio>

#include "input/input_loop.h"

using quarlo::components::input::InputLoop;
using quarlo::components::input::LinuxInputReader;
using Event = InputLoop::InputEvent;

int main() {
  LinuxInputReader reader;
  if (!reader.init(nullptr, nullptr, nullptr, 1919, 1079)) return 1;  // no mouse, no keyboard, no remote
  InputLoop loop(reader);
  Event event;
  for (;;) {
    loop.wait(-1);  // sleeps until there is something
    while (loop.next(event)) {
      if (event.kind == Event::kKeyEvent && event.keyData.action == Event::KeyData::kDown) {
        std::printf("key %d\n", event.keyData.key);
        if (event.keyData.key == quarlo::msg::KeyInput::kEscape) return 0;
      } else if (event.kind == Event::kMouseEvent) {
        std::printf("pointer at %d,%d\n", event.mouseData.x, event.mouseData.y);
      } else if (event.kind == InputLoop::kWheelEvent) {
        std::printf("wheel by %d\n", event.mouseData.button);
      }
    }
    // What had come is taken: draw, run timers, and come back.
  }
}
