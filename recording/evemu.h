// evemu's text format: what a device says about itself (N: name, B: capability bits, ...) and its records (E:), as
// evemu-record writes them and evemu-play plays them.
#pragma once

#include <cstdio>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// Reads and checks a recording of one device, in any version of the format. Errors call the file `name`. Throws Error.
DeviceRecording readEvemu(std::FILE* file, const std::string& name, Start start);

}  // namespace quarlo::recording
