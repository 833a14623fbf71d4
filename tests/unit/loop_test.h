// What tests of the loop start from: the reader of ReaderTest, and a loop around it.
#pragma once

#include <string>

#include "input/input_loop.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test {

using components::input::InputLoop;

inline std::string text(InputLoop::Source source) {
  constexpr const char* kNames[] = {"keyboard", "mouse", "remote"};
  return source < InputLoop::kFurther ? kNames[source] : "node " + std::to_string(source - InputLoop::kFurther + 1);
}

inline std::string wheel(const char* axis, int steps, int x, int y) {
  return "wheel " + std::string(axis) + " " + std::to_string(steps) + " at " + std::to_string(x) + "," +
         std::to_string(y);
}

// As text(), also of the events that only the loop has.
inline std::string loopText(const InputEvent& event) {
  if (event.kind != InputLoop::kWheelEvent) return text(event);
  const InputEvent::MouseData& data = event.mouseData;
  return wheel(data.action == InputLoop::kVertical ? "vertical" : "horizontal", data.button, data.x, data.y);
}

// What next() gives, until it returns false.
inline Lines takeAll(InputLoop& loop) {
  Lines lines;
  for (;;) {
    InputEvent event = untouched();
    if (!loop.next(event)) return lines;
    lines.push_back(loopText(event));
  }
}

// The same after a look at what is there.
inline Lines takeNow(InputLoop& loop) {
  loop.wait(0);
  return takeAll(loop);
}

// Why a wait ended, in words.
inline std::string text(const InputLoop::Wake& wake) {
  std::string words;
  const auto add = [&](bool holds, const std::string& word) {
    if (holds) words += (words.empty() ? "" : ", ") + word;
  };
  add(wake.input, "input");
  add(wake.remote, "remote");
  add(wake.timeout, "timeout");
  add(wake.ownFd, "own descriptor");
  add(wake.signal, "signal");
  for (int source = 0; source < InputLoop::kSources; ++source) {
    add((wake.gone >> source & 1) != 0, text(static_cast<InputLoop::Source>(source)) + " is gone");
  }
  return words;
}

class LoopTest : public ReaderTest {
 protected:
  InputLoop loop{reader};
};

}  // namespace quarlo::test
