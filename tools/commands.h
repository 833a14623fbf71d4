// All commands of the program, in the order of its help.
#pragma once

#include <vector>

#include "tools/common/command_line.h"

namespace quarlo::tools {

std::vector<Command> commands();

}  // namespace quarlo::tools
