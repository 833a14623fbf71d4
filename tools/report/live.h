// What comes in the next seconds, recorded by this program's `record`, as a session that is gone with this object. It
// hides what `record` hides: a process that makes a page of it never sees the rest.
#pragma once

#include <chrono>
#include <string>

#include "recording/lines.h"
#include "tools/common/mask.h"
#include "tools/common/sources.h"

namespace quarlo::tools::report {

struct LiveOptions : SourcePaths {
  std::chrono::microseconds duration{0};  // 0: nothing is recorded
  MaskOptions shown;
};

class LiveSession {
 public:
  // Throws recording::Error if there is no place for it.
  LiveSession();
  ~LiveSession();
  LiveSession(const LiveSession&) = delete;
  LiveSession& operator=(const LiveSession&) = delete;

  // Records until the time is over or a stop is requested. Returns the exit status of `record`, which has said what is
  // wrong. Throws recording::Error if it cannot be run. REQUIRES: catchStopRequests() was called.
  int record(const LiveOptions& options) const;

  // Where the session is, if there is one.
  std::string path() const { return recording::pathIn(directory_, "live"); }

 private:
  std::string directory_;
};

}  // namespace quarlo::tools::report
