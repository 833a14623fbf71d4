// What can be wrong with the remote's two timeouts in the environment.
#pragma once

#include <optional>
#include <string>

#include "tools/common/checkup/finding.h"

namespace quarlo::tools::checkup {

// None: it is not set.
struct EnvironmentFacts {
  std::optional<std::string> repeatTimeout;
  std::optional<std::string> releaseTimeout;
};

EnvironmentFacts gatherEnvironment();

Findings checkEnvironment(const EnvironmentFacts& facts);

}  // namespace quarlo::tools::checkup
