// Evdev nodes that say anything of themselves, on the simulated machine.
#pragma once

#include <linux/input.h>

#include <cerrno>
#include <string>

#include "sim/machine.h"
#include "tests/fuzz/input_bytes.h"

namespace quarlo::fuzz {

inline sim::Device takeDevice(InputBytes& input) {
  const sim::Device kinds[] = {{"", {}}, sim::Device::mouse(), sim::Device::keyboard(), sim::Device::touchscreen()};
  sim::Device device = kinds[input.takeBelow(4)];
  device.name = input.takeText();
  if (input.takeBool()) device.phys = input.takeText();
  if (input.takeBool()) device.uniq = input.takeText();
  device.id = {input.take<std::uint8_t>(), input.take<std::uint8_t>(), 0, 0};
  device.repeatDelay = std::chrono::milliseconds(input.take<std::uint16_t>());
  for (int count = input.takeBelow(8); count > 0; --count) {
    const int type = 1 + input.takeBelow(EV_MAX);
    device.codes[type].insert(input.take<std::uint16_t>() % KEY_CNT);
  }
  if (input.takeBool()) device.properties.insert(input.takeBelow(INPUT_PROP_CNT));
  return device;
}

// Makes one thing go wrong, or nothing.
inline void obstruct(sim::Node& node, InputBytes& input) {
  constexpr int kErrors[] = {EACCES, EPERM, ENODEV, ENXIO, EBUSY, EIO};
  constexpr unsigned kRequests[] = {EVIOCGRAB,     EVIOCGVERSION, EVIOCGID,        EVIOCGREP,   EVIOCGNAME(0),
                                    EVIOCGPHYS(0), EVIOCGPROP(0), EVIOCGBIT(0, 0), EVIOCGKEY(0)};
  const int error = input.pick(kErrors);
  switch (input.takeBelow(6)) {
    case 0: node.setOpenError(error); break;
    case 1: node.setGrabbedElsewhere(true); break;
    case 2: node.setIoctlError(input.pick(kRequests), error); break;
    case 3: node.press(input.take<std::uint16_t>() % KEY_CNT); break;
    default: break;
  }
}

}  // namespace quarlo::fuzz
