// What the reader makes of an evdev node, and what a person can do about it. All texts are as devices have them: escape
// them before they reach a terminal.
#pragma once

#include <string>
#include <vector>

#include "tools/common/node_report.h"

namespace quarlo::tools {

// What fits to NodeReport::delivers.
std::vector<std::string> deliveriesOf(const NodeFacts& facts);

// For a node that the reader's tests pass over: the reason and the remedy.
void explainUnsuitable(NodeReport& report);

// What is wrong with `taken`, which autodetection takes by its verdict although there are these nodes. Those that
// cannot be passed instead (grabbed, not readable) do not count.
std::vector<NodeWarning> warningsOf(const NodeReport& taken, const std::vector<NodeReport>& nodes);

}  // namespace quarlo::tools
