// What can be wrong where nodes are missing: the kernel, what makes the nodes, or a container.
#pragma once

#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"

namespace quarlo::tools::checkup {

struct KernelFacts {
  int devices = 0;                          // input devices that the kernel knows
  std::vector<std::string> nodesOfKernel;   // nodes that it has for them: "event0"
  std::vector<std::string> nodes;           // nodes that are there: "event0"
  std::vector<std::string> containerHints;  // what speaks for a container: "/.dockerenv"
  bool nodesAreNeeded = false;              // whether the application is to read any
};

// Looks below `root`, which is "" for the machine itself. `nodes` are those that are there.
KernelFacts gatherKernel(const std::vector<std::string>& nodes, bool nodesAreNeeded, const std::string& root);

Findings checkKernel(const KernelFacts& facts);

}  // namespace quarlo::tools::checkup
