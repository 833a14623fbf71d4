// The command `record`.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "recording/writer.h"
#include "tools/common/mask.h"
#include "tools/common/sources.h"

namespace quarlo::tools::record {

struct RecordOptions : SourcePaths {
  std::string session;                                // the path of the directory to make
  std::optional<std::chrono::microseconds> duration;  // none: record until a stop is requested
  MaskOptions shown;
  bool syncsAtOnce = false;  // the disk has no rest while something comes
  recording::WriterOptions writing;
};

// Returns the exit status.
int run(const RecordOptions& options);

}  // namespace quarlo::tools::record
