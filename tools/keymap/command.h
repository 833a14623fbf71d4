// The command line of `keymap`.
#pragma once

#include "tools/common/command_line.h"
#include "tools/keymap/keymap.h"

namespace quarlo::tools::keymap {

void addOptions(CommandLine& line, KeymapOptions& options);

Command command();

}  // namespace quarlo::tools::keymap
