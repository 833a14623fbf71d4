// An application's own loop around the reader.
#pragma once

#include <string>

#include "input/linux_input_reader.h"

// What was typed up to now. Waits 10 ms for it if there is nothing yet.
inline std::string typedText(quarlo::components::input::LinuxInputReader& reader) {
  using Event = quarlo::components::input::LinuxInputReader::InputEvent;
  std::string text;
  Event event;
  event.kind = Event::kNoEvent;
  for (int timeoutMs = 10; reader.readInput(event, timeoutMs); timeoutMs = 0) {
    if (event.kind == Event::kKeyEvent && event.keyData.action == Event::KeyData::kDown) text += event.keyData.ch;
    event.kind = Event::kNoEvent;
  }
  return text;
}
