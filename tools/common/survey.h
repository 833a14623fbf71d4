// All evdev nodes, and what the reader's autodetection makes of each.
#pragma once

#include <string>
#include <vector>

#include "tools/common/node_facts.h"
#include "tools/common/node_report.h"

namespace quarlo::tools {

// Opens /dev/input/event0 to event1023, those that exist, and grabs each for a moment, as the reader does. In the order
// of their numbers.
std::vector<NodeReport> surveyNodes(const SystemFolders& folders = {});

// What is wrong with the nodes that a reader has open.
struct TakenWarnings {
  std::vector<NodeWarning> mouse;
  std::vector<NodeWarning> keyboard;
};

// The nodes that autodetection has taken are given by their paths; empty: none. Looks at all nodes, and grabs none.
TakenWarnings warningsOfTaken(const std::string& mouse, const std::string& keyboard, const SystemFolders& folders = {});

}  // namespace quarlo::tools
