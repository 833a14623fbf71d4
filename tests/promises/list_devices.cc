// Prints `quarlo-input list --json` of a machine that has all the devices of tests/support/devices.h, and a mouse that
// cannot be read. The argument is the directory of its sysfs.
#include <cerrno>
#include <string>

#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/support/devices.h"
#include "tools/list/list.h"

int main(int /*argc*/, char** argv) {
  using namespace quarlo;

  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteOfAMediaCenter").device);
  machine.addNode("/dev/input/event1", sim::Device::mouse()).setOpenError(EACCES);
  machine.addNode("/dev/input/event2", test::realDevice("RemoteWithTheButtonsOfAMouse").device);
  int number = components::input::kHighestScannedNode;
  for (const test::RealDevice& real : test::realDevices()) {
    machine.addNode("/dev/input/event" + std::to_string(number++), real.device);
  }

  tools::list::ListOptions options;
  options.json = true;
  return tools::list::list(options, {"/dev", argv[1]});
}
