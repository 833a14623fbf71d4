// Real devices, as their nodes describe themselves: what tests are made of that must know more than a plain keyboard
// and a plain mouse.
#pragma once

#include <string>
#include <vector>

#include "sim/machine.h"

namespace quarlo::test {

// What autodetection makes of a device that has no rival.
enum class Taken { kAsMouse, kAsKeyboard, kNot };

struct RealDevice {
  const char* id;           // its name in tests: letters and digits
  const char* deviceClass;  // what a person calls it
  Taken taken;              // by the rules, as a person reads them
  sim::Device device;
};

// All of them, in no order.
const std::vector<RealDevice>& realDevices();

// REQUIRES: there is one of this id.
const RealDevice& realDevice(const std::string& id);

// Nodes of one receiver, in the order of their numbers: the keyboard with letters comes first, then a mouse, media keys
// with arrows, and the system's buttons with arrows.
std::vector<RealDevice> nanoTransceiver();

}  // namespace quarlo::test
