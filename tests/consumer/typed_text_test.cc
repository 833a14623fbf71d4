// The application's own test of its loop, on a machine with a keyboard that needs no hardware.
#include "typed_text.h"

#include <cstdio>

#include "sim/machine.h"

int main() {
  quarlo::sim::Machine machine;
  quarlo::sim::Node& keyboard = machine.addNode("/dev/input/event0", quarlo::sim::Device::keyboard());
  quarlo::components::input::LinuxInputReader reader;
  if (!reader.init(nullptr, nullptr, nullptr, 1919, 1079)) return 1;
  quarlo::components::input::InputLoop loop(reader);
  keyboard.press(KEY_O);
  keyboard.release(KEY_O);
  keyboard.press(KEY_K);
  const std::string text = typedText(loop);
  std::printf("typed: %s\n", text.c_str());
  return text == "ok" ? 0 : 1;
}
