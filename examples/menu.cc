#include "examples/menu.h"

#include <algorithm>

namespace example {

using quarlo::components::input::InputLoop;
using quarlo::msg::KeyInput;
using Event = InputLoop::InputEvent;

void Menu::readInput(InputLoop& loop, int timeoutMs) {
  loop.wait(timeoutMs);
  Event event;
  while (loop.next(event)) handle(event);
}

void Menu::handle(const Event& event) {
  if (event.kind != Event::kKeyEvent || event.keyData.action != Event::KeyData::kDown) return;
  switch (event.keyData.key) {
    case KeyInput::kUp: select(selected_ - 1); break;
    case KeyInput::kDown: select(selected_ + 1); break;
    case KeyInput::kEnter: chosen_ = true; break;
    default: break;
  }
}

void Menu::select(int entry) { selected_ = std::clamp(entry, 0, entries_ - 1); }

}  // namespace example
