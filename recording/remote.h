// The lines that a LIRC daemon sent, each with the time of its receipt: "<seconds>.<microseconds> <line>".
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// Reads and checks a recording of a remote. Errors call the file `name`. Throws Error.
std::vector<RemoteLine> readRemote(std::FILE* file, const std::string& name, Start start);

}  // namespace quarlo::recording
