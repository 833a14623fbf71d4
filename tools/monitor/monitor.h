// The subcommand `monitor`.
#pragma once

#include "tools/common/reader_options.h"
#include "tools/common/sources.h"

namespace quarlo::tools {

struct MonitorOptions : ReaderOptions, SourcePaths {
  long count = 0;  // end after so many events; 0: go on until a stop is requested
  bool showKeycodes = false;
  bool tui = false;  // a screen instead of lines; not together with json
};

// Returns the exit status.
int monitor(const MonitorOptions& options);

}  // namespace quarlo::tools
