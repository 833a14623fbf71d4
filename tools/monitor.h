// The subcommand `monitor`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quarlo::tools {

// The path of a source; none: the reader is to search for it.
using SourcePath = std::optional<std::string>;

// In place of a path: leave this source out.
constexpr char kLeaveOut[] = "none";

// What every subcommand that runs the reader lets one choose.
struct ReaderOptions {
  std::uint32_t maxX = 1919;  // the largest coordinates of the pointer
  std::uint32_t maxY = 1079;
  int timeoutMs = 10;  // of the first wait in each round
  bool json = false;
  int verbosity = 0;  // how often -v was given
};

struct MonitorOptions : ReaderOptions {
  SourcePath mouse;
  SourcePath keyboard;
  SourcePath lirc;  // REQUIRES: at most 107 characters
  long count = 0;   // end after so many events; 0: go on until a stop is requested
  bool showKeycodes = false;
};

// Returns the exit status.
int monitor(const MonitorOptions& options);

}  // namespace quarlo::tools
