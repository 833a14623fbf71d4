// The command `report`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/report/live.h"

namespace quarlo::tools::report {

struct ReportOptions {
  std::string session;                // the path of a directory or a file; empty: it is recorded first
  std::optional<std::string> events;  // that of a second file, if description and records are apart
  LiveOptions live;                   // how, and for how long
  std::string output;                 // the path of the page
  std::uint32_t maxX = 1919;          // the largest coordinates of the pointer
  std::uint32_t maxY = 1079;
};

// Returns the exit status.
int run(const ReportOptions& options);

}  // namespace quarlo::tools::report
