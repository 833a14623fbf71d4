#include "tools/common/checkup/finding.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace quarlo::tools::checkup {

const char* nameOf(Severity severity) {
  static constexpr const char* kNames[] = {"error", "warning", "notice"};
  return kNames[static_cast<int>(severity)];
}

const std::vector<Kind>& kinds() {
  static const std::vector<Kind> kKinds = {
      {Problem::kContainerWithoutNodes, "container-without-nodes", Severity::kError},
      {Problem::kNoEvdev, "no-evdev", Severity::kError},
      {Problem::kNodesNotMade, "nodes-not-made", Severity::kError},
      {Problem::kNoNode, "no-node", Severity::kError},
      {Problem::kNotPermitted, "not-permitted", Severity::kError},
      {Problem::kGroupNotInSession, "group-not-in-session", Severity::kError},
      {Problem::kNodeNotUsable, "node-not-usable", Severity::kError},
      {Problem::kNodeGrabbed, "node-grabbed", Severity::kError},
      {Problem::kBeyondScan, "beyond-scan", Severity::kError},
      {Problem::kNoLetters, "no-letters", Severity::kError},
      {Problem::kTouchHalf, "touch-half", Severity::kError},
      {Problem::kSocketPathTooLong, "socket-path-too-long", Severity::kError},
      {Problem::kOtherSocket, "other-socket", Severity::kError},
      {Problem::kNoSocket, "no-socket", Severity::kError},
      {Problem::kNotASocket, "not-a-socket", Severity::kError},
      {Problem::kDaemonNotRunning, "daemon-not-running", Severity::kError},
      {Problem::kSocketNotPermitted, "socket-not-permitted", Severity::kError},
      {Problem::kDaemonSilent, "daemon-silent", Severity::kError},
      {Problem::kNoReceiver, "no-receiver", Severity::kError},
      {Problem::kNoRemotes, "no-remotes", Severity::kError},
      {Problem::kNoKnownButton, "no-known-button", Severity::kError},
      {Problem::kNoSource, "no-source", Severity::kError},
      {Problem::kRemoteTwice, "remote-twice", Severity::kWarning},
      {Problem::kRemoteAsMouse, "remote-as-mouse", Severity::kWarning},
      {Problem::kUnknownButtons, "unknown-buttons", Severity::kWarning},
      {Problem::kRepeatsArePresses, "repeats-are-presses", Severity::kWarning},
      {Problem::kDigitsLeftOut, "digits-left-out", Severity::kWarning},
      {Problem::kTimeoutIgnored, "timeout-ignored", Severity::kWarning},
      {Problem::kTimeoutMisread, "timeout-misread", Severity::kWarning},
      {Problem::kTimeoutUnusable, "timeout-unusable", Severity::kWarning},
      {Problem::kHeldAtStart, "held-at-start", Severity::kWarning},
      {Problem::kConsoleTypes, "console-types", Severity::kWarning},
      {Problem::kClockNotSet, "clock-not-set", Severity::kNotice},
      {Problem::kClockEnds, "clock-ends", Severity::kNotice}};
  return kKinds;
}

const Kind& kindOf(const Finding& finding) { return kinds()[static_cast<std::size_t>(finding.problem)]; }

void sortByHarm(Findings& findings) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.problem < b.problem; });
}

nlohmann::ordered_json toJson(const Finding& finding) {
  const Kind& kind = kindOf(finding);
  nlohmann::ordered_json json;
  json["id"] = kind.id;
  json["severity"] = nameOf(kind.severity);
  json["what"] = finding.what;
  json["where"] = finding.where;
  json["remedy"] = finding.remedy;
  return json;
}

}  // namespace quarlo::tools::checkup
