// Which sources a command reads from.
#pragma once

#include "tools/common/command_line.h"
#include "tools/common/sources.h"

namespace quarlo::tools {

// What becomes of a path to a socket that is longer than kLongestLircPath.
enum class LongSocketPath {
  kIsRefused,
  kIsTaken  // by who does not open it
};

void addSourceOptions(CommandLine& line, SourcePaths& sources, LongSocketPath longPath = LongSocketPath::kIsRefused);

}  // namespace quarlo::tools
