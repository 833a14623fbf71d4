// What is wrong with a machine, as the rules in this directory find it. Each rule is a function from facts, which
// another function gathers, to findings: tests make the facts, or the files that they are gathered from.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace quarlo::tools::checkup {

// What a finding costs.
enum class Severity {
  kError,    // a source gives nothing
  kWarning,  // what is pressed is lost, comes twice or goes elsewhere
  kNotice    // it can go wrong later
};

const char* nameOf(Severity severity);

// In the order of harm. docs/doctor.md has a row for each.
enum class Problem {
  kContainerWithoutNodes,
  kNoEvdev,
  kNodesNotMade,
  kNoNode,
  kNotPermitted,
  kGroupNotInSession,
  kNodeNotUsable,
  kNodeGrabbed,
  kBeyondScan,
  kNoLetters,
  kTouchHalf,
  kSocketPathTooLong,
  kOtherSocket,
  kNoSocket,
  kNotASocket,
  kDaemonNotRunning,
  kSocketNotPermitted,
  kDaemonSilent,
  kNoReceiver,
  kNoRemotes,
  kNoKnownButton,
  kNoSource,
  kRemoteTwice,
  kRemoteAsMouse,
  kUnknownButtons,
  kRepeatsArePresses,
  kDigitsLeftOut,
  kTimeoutIgnored,
  kTimeoutMisread,
  kTimeoutUnusable,
  kHeldAtStart,
  kConsoleTypes,
  kClockNotSet,
  kClockEnds
};

struct Kind {
  Problem problem;
  const char* id;  // stays the same from version to version
  Severity severity;
};

// Of each problem, in their order.
const std::vector<Kind>& kinds();

// Holds what devices, files and daemons say, as it is: escape it before it reaches a terminal.
struct Finding {
  Problem problem;
  std::string what;    // what is wrong, and what comes of it, as a sentence without its full stop
  std::string where;   // the node, socket, process, file or variable that it is about
  std::string remedy;  // what a person can do, in the same form
};

using Findings = std::vector<Finding>;

const Kind& kindOf(const Finding& finding);

// In the order of harm; those of one kind stay as they are.
void sortByHarm(Findings& findings);

// {"id":"node-grabbed","severity":"error","what":...,"where":...,"remedy":...}
nlohmann::ordered_json toJson(const Finding& finding);

}  // namespace quarlo::tools::checkup
