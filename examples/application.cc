#include "examples/application.h"

#include <cstdio>

namespace example {

using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

bool open(LinuxInputReader& reader, int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // each line at once, through a pipe as well
  const bool isGiven = argc == 4;
  const bool isAnyOpen =
      reader.init(isGiven ? argv[1] : nullptr, isGiven ? argv[2] : nullptr, isGiven ? argv[3] : nullptr, 1919, 1079);
  std::printf("sources: mouse %s, keyboard %s, remote %s\n", reader.mouseFd == -1 ? "no" : "yes",
              reader.keyboardFd == -1 ? "no" : "yes", reader.lircFd == -1 ? "no" : "yes");
  return isAnyOpen;
}

namespace {

void printKey(const KeyData& data) {
  if (data.action == KeyData::kUp) {
    std::printf("key up %d\n", data.key);
  } else {
    std::printf("key down %d char %d\n", data.key, static_cast<unsigned char>(data.ch));
  }
}

void printMouse(const MouseData& data) {
  if (data.action == MouseData::kMove) {
    std::printf("pointer %d,%d\n", data.x, data.y);
  } else {
    std::printf("button %s %d\n", data.action == MouseData::kButtonUp ? "up" : "down", data.button);
  }
}

void printWheel(const MouseData& data) {
  const bool isVertical = data.action == InputLoop::kVertical;
  const char* forward = isVertical ? "up" : "right";
  const char* backward = isVertical ? "down" : "left";
  std::printf("wheel %s %d\n", data.button > 0 ? forward : backward, data.button > 0 ? data.button : -data.button);
}

}  // namespace

void Application::handle(const InputEvent& event) {
  if (reader_.lircKey != 0) held_ = reader_.lircKey;
  switch (event.kind) {
    case InputEvent::kKeyEvent:
      printKey(event.keyData);
      if (event.keyData.key == quarlo::msg::KeyInput::kEscape) isOver_ = true;
      break;
    case InputEvent::kMouseEvent: printMouse(event.mouseData); break;
    case InputLoop::kWheelEvent: printWheel(event.mouseData); break;
    default: break;
  }
}

void Application::lose(InputLoop::SourceSet gone) {
  constexpr const char* kNames[] = {"keyboard", "mouse", "remote"};
  for (int source = 0; source < InputLoop::kFurther; ++source) {
    if (((gone & ~gone_) >> source & 1) != 0) std::printf("gone: %s\n", kNames[source]);
  }
  gone_ |= gone;
}

void Application::draw() {
  ++frames_;
  if (held_ == 0 || reader_.lircKey != 0) return;
  std::printf("no longer held on the remote: %d\n", held_);
  held_ = 0;
}

int Application::end() const {
  std::printf("%d frames\n", frames_);
  return 0;
}

}  // namespace example
