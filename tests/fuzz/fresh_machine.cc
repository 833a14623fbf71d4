#include "tests/fuzz/fresh_machine.h"

#include <linux/input.h>

#include <cstdint>
#include <initializer_list>

#include "input/linux_input_reader.h"

namespace quarlo::fuzz {
namespace {

using namespace std::chrono_literals;
using components::input::LinuxInputReader;

// The second round's presses come too late to be double clicks.
void forgetClicks(sim::Machine& machine) {
  LinuxInputReader reader;
  LinuxInputReader::InputEvent event;
  for (int round = 0; round < 2; ++round) {
    for (const int button : {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}) {
      input_event press = {};
      press.type = EV_KEY;
      press.code = static_cast<std::uint16_t>(button);
      press.value = 1;
      reader.translateEvent(&press, event);
    }
    machine.advance(1s);
  }
}

}  // namespace

FreshMachine::FreshMachine() {
  setTracing(false);
  forgetClicks(*this);
}

FreshMachine::~FreshMachine() { jumpClock(-jumped_); }

void FreshMachine::jump(std::chrono::milliseconds by) {
  jumpClock(by);
  jumped_ += by;
}

}  // namespace quarlo::fuzz
