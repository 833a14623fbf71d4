// The command line of `record`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/record/record.h"

namespace quarlo::tools::record {

void addOptions(CommandLine& line, RecordOptions& options);

Command command();

}  // namespace quarlo::tools::record
