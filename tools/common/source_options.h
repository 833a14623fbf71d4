// Which sources a command reads from.
#pragma once

#include "tools/common/command_line.h"
#include "tools/common/sources.h"

namespace quarlo::tools {

void addSourceOptions(CommandLine& line, SourcePaths& sources);

}  // namespace quarlo::tools
