// All rules at once.
#pragma once

#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"
#include "tools/common/sources.h"

namespace quarlo::tools::checkup {

struct Checkup {
  Findings findings;                // in the order of harm
  std::vector<std::string> unseen;  // what could not be looked at, and why: sentences without their full stop
};

// Looks at the machine as an application finds it that reads from `sources`; a path to a socket may be too long here.
// REQUIRES: not all sources are left out. Changes nothing, but grabs each node for a moment. The files of the system
// are looked for below `root`, which is "" for the machine itself.
Checkup examine(const SourcePaths& sources, const std::string& root = "");

}  // namespace quarlo::tools::checkup
