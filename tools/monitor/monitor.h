// The command `monitor`.
#pragma once

#include "tools/common/mask.h"
#include "tools/common/reader_options.h"
#include "tools/common/sources.h"

namespace quarlo::tools::monitor {

struct MonitorOptions : ReaderOptions, SourcePaths {
  long count = 0;      // end after so many events; 0: go on until a stop is requested
  MaskOptions shown;   // where the output is not a terminal
  bool clock = false;  // print the time of day
  bool tui = false;    // a screen instead of lines; not together with json
};

// Returns the exit status.
int run(const MonitorOptions& options);

}  // namespace quarlo::tools::monitor
