// The command `tune`.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/tune/study.h"

namespace quarlo::tools::tune {

struct TuneOptions {
  std::string session;                   // the path of a directory or a file; empty: a remote of `protocol` is imagined
  Protocol protocol;                     // its tap is shorter than kShortestHold
  std::chrono::milliseconds hold{2000};  // not less than kShortestHold
  Grid grid;
  bool gridIsGiven = false;  // values of LIRC's timeouts are; then `kernel` and `nodeGridIsGiven` are not

  // Of a remote that the kernel decodes. It is studied if one of these is given, or if the session has no other.
  std::optional<NodeRepeat> kernel;         // how its node repeats now
  std::vector<int> delayMs{300, 400, 500};  // the values to try
  std::vector<int> periodMs{75, 100, 125, 150};
  bool nodeGridIsGiven = false;
  bool json = false;
  std::string plot;  // the path of the picture to write; empty: none
  std::string html;  // the same of the page
};

// Returns the exit status.
int run(const TuneOptions& options);

}  // namespace quarlo::tools::tune
