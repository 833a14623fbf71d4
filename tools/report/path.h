// Where the pointer went, small enough for a page: thinned to a millisecond, and in coarser levels.
#pragma once

#include "tools/report/happened.h"
#include "tools/report/json_writer.h"

namespace quarlo::tools::report {

// Writes what docs/report.md says of `paths`: of each source with moves, an object.
void writePaths(const Happened& happened, const SourceIndex& indexOf, JsonWriter& writer);

}  // namespace quarlo::tools::report
