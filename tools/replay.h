// The subcommand `replay`.
#pragma once

#include <string>

#include "tools/monitor.h"

namespace quarlo::tools {

struct ReplayOptions : ReaderOptions {
  std::string session;           // the path of a folder or a file
  bool realtime = false;         // at the speed of the recording
  bool lircEnvironment = false;  // take the remote's two timeouts from the environment
};

// Returns the exit status.
int replay(const ReplayOptions& options);

}  // namespace quarlo::tools
