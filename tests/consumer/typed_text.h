// An application's own use of the loop.
#pragma once

#include <string>

#include "input/input_loop.h"

// What was typed up to now. Waits for input if there is none yet.
inline std::string typedText(quarlo::components::input::InputLoop& loop) {
  using Event = quarlo::components::input::InputLoop::InputEvent;
  std::string text;
  loop.wait(-1);
  Event event;
  while (loop.next(event)) {
    if (event.kind == Event::kKeyEvent && event.keyData.action == Event::KeyData::kDown) text += event.keyData.ch;
  }
  return text;
}
