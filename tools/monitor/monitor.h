// The subcommand `monitor`.
#pragma once

#include <cstdint>

#include "tools/common/sources.h"

namespace quarlo::tools {

// What every subcommand that runs the reader lets one choose.
struct ReaderOptions {
  std::uint32_t maxX = 1919;  // the largest coordinates of the pointer
  std::uint32_t maxY = 1079;
  int timeoutMs = 10;  // of the first wait in each round
  bool json = false;
  int verbosity = 0;  // how often -v was given
};

struct MonitorOptions : ReaderOptions, SourcePaths {
  long count = 0;  // end after so many events; 0: go on until a stop is requested
  bool showKeycodes = false;
  bool tui = false;  // a screen instead of lines; not together with json
};

// Returns the exit status.
int monitor(const MonitorOptions& options);

}  // namespace quarlo::tools
