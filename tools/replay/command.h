// The command line of `replay`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/replay/replay.h"

namespace quarlo::tools::replay {

void addOptions(CommandLine& line, ReplayOptions& options);

Command command();

}  // namespace quarlo::tools::replay
