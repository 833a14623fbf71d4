// The command line of `list`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/list/list.h"

namespace quarlo::tools::list {

void addOptions(CommandLine& line, ListOptions& options);

Command command();

}  // namespace quarlo::tools::list
