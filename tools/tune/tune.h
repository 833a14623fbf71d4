// The command `tune`.
#pragma once

#include <chrono>
#include <string>

#include "tools/tune/study.h"

namespace quarlo::tools::tune {

struct TuneOptions {
  std::string session;                   // the path of a directory or a file; empty: a remote of `protocol` is imagined
  Protocol protocol;                     // its tap is shorter than kShortestHold
  std::chrono::milliseconds hold{2000};  // not less than kShortestHold
  Grid grid;
  bool json = false;
  std::string plot;  // the path of the picture to write; empty: none
};

// Returns the exit status.
int run(const TuneOptions& options);

}  // namespace quarlo::tools::tune
