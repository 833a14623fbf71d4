// What the help of several commands says of files and of the environment.
#pragma once

#include "tools/common/command_line.h"

namespace quarlo::tools {

// The evdev nodes.
void addNodes(CommandLine& line);

// Where the LIRC daemon's socket is.
void addLircSockets(CommandLine& line);

// The two timeouts of the remote.
void addTimeoutVariables(CommandLine& line);

// What a session is made of.
void addSessionFiles(CommandLine& line);

}  // namespace quarlo::tools
