// The command `replay`.
#pragma once

#include <optional>
#include <string>

#include "recording/session.h"
#include "tools/common/reader_options.h"

namespace quarlo::tools::replay {

struct ReplayOptions : ReaderOptions {
  std::string session;                // the path of a directory or a file
  std::optional<std::string> events;  // that of a second file, if description and records are apart
  bool records = false;               // in JSON, print what the events came of, too
  bool realtime = false;              // at the speed of the recording
  bool lircEnvironment = false;       // take the remote's two timeouts from the environment
};

// Plays a session that was read, and prints its events, until its end or until a stop is requested. Does not look at
// `options.session` and `options.events`. Returns false if it ended early, because the remote's lines came too fast for
// the reader. REQUIRES: no simulated machine exists; a loop that polls plays no further nodes.
bool play(const recording::Session& session, const ReplayOptions& options);

// Returns the exit status.
int run(const ReplayOptions& options);

}  // namespace quarlo::tools::replay
