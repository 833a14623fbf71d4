// An evdev node, as a session has it.
#pragma once

#include <linux/input.h>

#include "recording/writer.h"

namespace quarlo::tools::record {

// Asks the node what it says about itself. What it does not answer is left empty.
recording::DeviceDescription describeNode(int fd);

// Makes the kernel stamp the records of `fd` with CLOCK_MONOTONIC, so that they can be compared with those of other
// sources. Returns false, with errno, if it does not.
bool setMonotonicClock(int fd);

// The record as a session has it, with its time since `start`; both are on the same clock.
recording::Record toRecord(const input_event& event, recording::microseconds start);

}  // namespace quarlo::tools::record
