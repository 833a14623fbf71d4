// What comes through evdev nodes: any records in any order, and whatever read() can make of them.
#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "sim/machine.h"
#include "tests/fuzz/checked_reader.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"

namespace quarlo::fuzz {
namespace {

constexpr char kMouse[] = "/dev/input/event0";
constexpr char kKeyboard[] = "/dev/input/event1";

// The bounds of a screen, the smallest possible ones, and some that no screen has.
constexpr std::uint32_t kBounds[] = {1279, 0, 1, 65535, 65536, 0x7fffffff, 0x80000000, 0xffffffff};

// Codes with a meaning.
constexpr std::uint16_t kCodes[] = {REL_X,       REL_Y,       REL_WHEEL, KEY_A,     KEY_LEFTSHIFT,   KEY_RIGHTCTRL,
                                    KEY_LEFTALT, KEY_NUMLOCK, KEY_KP7,   KEY_POWER, BTN_LEFT,        BTN_RIGHT,
                                    BTN_MIDDLE,  BTN_SIDE,    BTN_TASK,  BTN_TOUCH, BTN_TOOL_FINGER, KEY_NUMERIC_0};

constexpr int kFaultsAhead = 24;  // reads: more than one drain makes

void injectKnown(sim::Node& node, int type, InputBytes& input) {
  const std::uint16_t code = input.pick(kCodes);
  node.inject(type, code, input.take<std::int8_t>());
}

void injectAny(sim::Node& node, InputBytes& input) {
  const auto type = input.take<std::uint16_t>();
  const auto code = input.take<std::uint16_t>();
  node.inject(type, code, input.take<std::int32_t>());
}

void injectScanCodes(sim::Node& node, InputBytes& input) {
  for (int count = input.takeBelow(64); count > 0; --count) node.inject(EV_MSC, MSC_SCAN, count);
}

void truncateRead(sim::Machine& machine, InputBytes& input) {
  const int count = 1 + input.takeBelow(kFaultsAhead);
  machine.truncateRead(count, input.take<std::uint8_t>());
}

void failRead(sim::Machine& machine, InputBytes& input) {
  const int count = 1 + input.takeBelow(kFaultsAhead);
  machine.fail(sim::Call::kRead, count, input.pick({EINTR, EIO, ENODEV, EINVAL}));
}

void step(sim::Machine& machine, sim::Node& node, CheckedReader& reader, InputBytes& input) {
  switch (input.takeBelow(9)) {
    case 0: injectKnown(node, EV_KEY, input); break;
    case 1: injectKnown(node, EV_REL, input); break;
    case 2: injectAny(node, input); break;
    case 3: injectScanCodes(node, input); break;
    case 4: node.inject(EV_SYN, SYN_REPORT, 0); break;
    case 5: truncateRead(machine, input); break;
    case 6: failRead(machine, input); break;
    case 7: reader.readInput(input.take<std::uint8_t>()); break;
    default: reader.readInput(0);
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  using quarlo::sim::Device;
  InputBytes input(data, size);
  FreshMachine machine;
  quarlo::sim::Node* nodes[] = {&machine.addNode(kMouse, Device::mouse()),
                                &machine.addNode(kKeyboard, Device::keyboard())};
  CheckedReader reader(machine);
  const std::uint32_t width = input.pick(kBounds);
  const std::uint32_t height = input.pick(kBounds);
  reader.init(kMouse, kKeyboard, "/none", width, height);
  while (!input.isEmpty()) {
    quarlo::sim::Node& node = *input.pick(nodes);
    step(machine, node, reader, input);
  }
  while (reader.readInput(0)) {
  }
  return 0;
}
