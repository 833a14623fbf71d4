// What can be wrong with the nodes: those that the application is given, and those that autodetection takes or misses.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"
#include "tools/common/checkup/lirc_daemons.h"
#include "tools/common/checkup/processes.h"
#include "tools/common/obstacle.h"
#include "tools/common/sources.h"
#include "tools/common/survey.h"

namespace quarlo::tools::checkup {

// A node that this user may not read.
struct ForbiddenNode {
  std::string path;
  Obstacle obstacle;
  std::string groupToLogInFor;  // the user is a member, but was not at the login; empty if there is no such group
};

// A path that the application is given.
struct GivenNode {
  std::string path;      // as it is given
  std::string realPath;  // where it leads to
  int error = 0;         // the errno of opening; 0: it opens
  bool isNode = false;   // whether it leads to an evdev node
};

// What is down on a node that the application reads.
struct HeldKeys {
  std::string path;
  std::vector<int> codes;
};

struct NodesFacts {
  bool mouseIsSearched = false;
  bool keyboardIsSearched = false;
  std::vector<NodeReport> survey;                          // all nodes of /dev/input
  std::vector<GivenNode> given;                            // paths that were given
  std::vector<ForbiddenNode> forbidden;                    // those among both
  std::vector<HeldKeys> held;                              // nodes on which something stays down
  std::map<std::string, std::vector<std::string>> openIn;  // the processes that have a node open, by its path
  std::vector<LircDaemon> daemons;                         // the LIRC daemons that run
};

// Grabs each node for a moment, as autodetection does. If a key is down, such as the Enter that started the program, it
// gets a second to come up.
NodesFacts gatherNodes(const SourcePaths& sources, const std::vector<Process>& processes,
                       const std::vector<LircDaemon>& daemons);

// The nodes that the application reads: those that it is given, and those that autodetection takes; not those that
// another process has grabbed, for they give nothing.
std::vector<std::string> nodesRead(const NodesFacts& facts);

Findings checkNodes(const NodesFacts& facts);

// Nodes that this user may not read, if the application finds what it searches without them; empty if there are none.
std::string unseenOfNodes(const NodesFacts& facts);

}  // namespace quarlo::tools::checkup
