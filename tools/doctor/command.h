// The command line of `doctor`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/doctor/doctor.h"

namespace quarlo::tools::doctor {

void addOptions(CommandLine& line, DoctorOptions& options);

Command command();

}  // namespace quarlo::tools::doctor
