// Plays a session: the real reader, on a simulated machine with the session's devices and a clock of its own.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "recording/session.h"
#include "tools/common/reader_loop.h"
#include "tools/common/reader_options.h"
#include "tools/common/sources.h"

namespace quarlo::tools {

// What is told of a session as it is played. All times are since its start.
class Audience {
 public:
  virtual ~Audience() = default;

  // First: the reader is set up.
  virtual void begin() {}

  // What came next; kNoEvent stands for what gave no event. Of a further node, its number is the one that it had when
  // it was recorded. A loop that polls has no `cause`: null. Returns whether to go on.
  virtual bool take(microseconds time, const InputEvent& event, const Origin& origin,
                    const InputLoop::Cause* cause) = 0;

  // A record of a node was read, and will be taken: the one with this number in its recording, counted from 1. Those
  // that are left out were lost. 0: the mark of that (SYN_DROPPED).
  virtual void read(InputLoop::Source /*source*/, std::uint64_t /*number*/) {}

  // After each take(), and at the end of each round: how the reader is.
  virtual void look(microseconds /*time*/, const LinuxInputReader& /*reader*/) {}
};

using Environment = std::map<std::string, std::string>;

struct PlayOptions : ReaderOptions {
  bool realtime = false;    // at the speed of the recording
  Environment environment;  // of the two timeouts of the remote
};

struct Played {
  microseconds duration;  // of what was played
  bool isWhole;           // false: the remote's lines came too fast for the reader, which ended it early
};

// The sources that are recorded, without paths.
std::vector<SourceReport> sourcesOf(const recording::Session& session);

// Plays it to its end, until the audience has enough, or until a stop is requested.
// REQUIRES: no simulated machine exists; a loop that polls plays no further nodes.
Played playSession(const recording::Session& session, const PlayOptions& options, ReaderLoop::Empty empty,
                   Audience& audience);

}  // namespace quarlo::tools
