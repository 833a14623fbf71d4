// The command line of `monitor`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/monitor/monitor.h"

namespace quarlo::tools::monitor {

void addOptions(CommandLine& line, MonitorOptions& options);

Command command();

}  // namespace quarlo::tools::monitor
