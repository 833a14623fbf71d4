// The lines that a LIRC daemon sent, each with the time of its receipt: "<seconds>.<microseconds> <line>".
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// What stands before the time in a line.
constexpr char kRemoteLabel[] = "";

// Reads and checks a recording of a remote; the session starts at `start`. Errors call the file `name`. Throws Error.
std::vector<RemoteLine> readRemote(std::FILE* file, const std::string& name, microseconds start);

}  // namespace quarlo::recording
