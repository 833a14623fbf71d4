// evemu's text format: what a device says about itself (N: name, B: capability bits, ...) and its records (E:), as
// evemu-record writes them and evemu-play plays them.
#pragma once

#include <cstdio>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// What stands before the time of a record.
constexpr char kRecordLabel[] = "E:";

// Reads and checks a recording of one device, in any version of the format; the session starts at `start`. Errors call
// the file `name`. Throws Error.
DeviceRecording readEvemu(std::FILE* file, const std::string& name, microseconds start);

}  // namespace quarlo::recording
