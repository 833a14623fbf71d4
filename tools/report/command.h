// The command line of `report`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/report/report.h"

namespace quarlo::tools::report {

void addOptions(CommandLine& line, ReportOptions& options);

Command command();

}  // namespace quarlo::tools::report
