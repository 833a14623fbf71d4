// The command line: what it asks for, checked.
#pragma once

#include <string>
#include <variant>

#include "tools/keymap/keymap.h"
#include "tools/list/list.h"
#include "tools/monitor/monitor.h"
#include "tools/record/record.h"
#include "tools/replay/replay.h"
#include "tools/tune/tune.h"

namespace quarlo::tools {

// A text for standard output, and nothing else: help, or the version.
struct Information {
  std::string text;
};

// Why the arguments are wrong, for a person. It can hold arguments as they are: escape it before it reaches a terminal.
struct UsageError {
  std::string message;
};

// A command is asked for by its options.
using Request = std::variant<UsageError, Information, MonitorOptions, ListOptions, KeymapOptions, RecordOptions,
                             ReplayOptions, TuneOptions>;

// Takes what main() gets. Prints nothing.
Request parseArguments(int argc, const char* const* argv);

}  // namespace quarlo::tools
