// What was typed, hidden from a recording: passwords and PINs.
//
// Keys that type become KEY_A, so that records and their order stay: two of them held at the same time are pressed
// twice, and released twice.
#pragma once

#include <string>

#include "recording/writer.h"

namespace quarlo::tools {

// The record without what was typed: a key that types something that can be seen, here or on another country's
// keyboard, becomes KEY_A, and a scan code 0.
recording::Record masked(recording::Record record);

// The device with KEY_A among its keys, if one of them becomes that.
recording::DeviceDescription masked(recording::DeviceDescription device);

// The LIRC daemon's line without what was typed: the button of a digit or any other single character, as the reader
// takes it for one, becomes KEY_1, and its code 0.
std::string maskedLine(const std::string& line);

}  // namespace quarlo::tools
