// The command line of `tune`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/tune/tune.h"

namespace quarlo::tools::tune {

void addOptions(CommandLine& line, TuneOptions& options);

Command command();

}  // namespace quarlo::tools::tune
