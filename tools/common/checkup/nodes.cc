#include "tools/common/checkup/nodes.h"

#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>

#include "input/linux_input_reader_limits.h"
#include "tools/common/accounts.h"
#include "tools/common/checkup/files.h"
#include "tools/common/code_names.h"
#include "tools/common/evdev_node.h"
#include "tools/common/mask.h"
#include "tools/common/output.h"

namespace quarlo::tools::checkup {
namespace {

using components::input::kHighestScannedNode;

// ---- Gathering: who may ------------------------------------------------------------------------

bool isInSession(gid_t group) {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(count, 0)));
  return getegid() == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::string groupToLogInFor(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == -1 || (status.st_mode & S_IRGRP) == 0) return "";
  return isMember(geteuid(), status.st_gid) && !isInSession(status.st_gid) ? groupName(status.st_gid) : "";
}

void noteIfForbidden(const std::string& path, int error, NodesFacts& facts) {
  if (error != EACCES && error != EPERM) return;
  facts.forbidden.push_back({path, whyNotOpened(path, error), groupToLogInFor(path)});
}

// ---- Gathering: what is given -------------------------------------------------------------------

std::vector<std::string> givenPaths(const SourcePaths& sources) {
  std::vector<std::string> paths;
  for (const SourcePath& source : {sources.mouse, sources.keyboard}) {
    if (source && !isLeftOut(source)) paths.push_back(*source);
  }
  paths.insert(paths.end(), sources.further.begin(), sources.further.end());
  return paths;
}

GivenNode lookAtGiven(const std::string& path) {
  GivenNode node = {path, withoutLinks(path)};
  const int fd = openForReading(path);
  if (fd == -1) {
    node.error = errno;
    return node;
  }
  node.isNode = isEvdevNode(fd);
  close(fd);
  return node;
}

int errnoOfOpeningNode(const std::string& path) {
  const int fd = openForReading(path);
  if (fd == -1) return errno;
  close(fd);
  return 0;
}

// Autodetection does not look further.
bool isScanned(const NodeReport& report) { return report.number <= kHighestScannedNode; }

bool isSearched(const NodesFacts& facts) { return facts.mouseIsSearched || facts.keyboardIsSearched; }

// ---- Gathering: what is down --------------------------------------------------------------------

std::vector<int> keysDown(const std::string& path) {
  constexpr std::size_t kBitsPerByte = 8;
  unsigned char bits[KEY_CNT / kBitsPerByte] = {};
  const int fd = openForReading(path);
  if (fd == -1) return {};
  ioctl(fd, EVIOCGKEY(sizeof bits), bits);
  close(fd);
  std::vector<int> codes;
  for (std::size_t code = 0; code < KEY_CNT; ++code) {
    if ((bits[code / kBitsPerByte] >> code % kBitsPerByte & 1) != 0) codes.push_back(static_cast<int>(code));
  }
  return codes;
}

std::vector<HeldKeys> keysDownOn(const std::vector<std::string>& nodes) {
  std::vector<HeldKeys> held;
  for (const std::string& node : nodes) {
    std::vector<int> codes = keysDown(node);
    if (!codes.empty()) held.push_back({node, std::move(codes)});
  }
  return held;
}

// What is down in both. REQUIRES: codes in their order.
std::vector<HeldKeys> stillHeld(const std::vector<HeldKeys>& before, const std::vector<HeldKeys>& now) {
  std::vector<HeldKeys> held;
  for (const HeldKeys& keys : now) {
    const auto same =
        std::find_if(before.begin(), before.end(), [&](const HeldKeys& earlier) { return earlier.path == keys.path; });
    if (same == before.end()) continue;
    std::vector<int> codes;
    std::set_intersection(same->codes.begin(), same->codes.end(), keys.codes.begin(), keys.codes.end(),
                          std::back_inserter(codes));
    if (!codes.empty()) held.push_back({keys.path, std::move(codes)});
  }
  return held;
}

std::vector<HeldKeys> keysThatStayDownOn(const std::vector<std::string>& nodes) {
  constexpr int kTries = 10;
  constexpr int kPauseMs = 100;
  std::vector<HeldKeys> held = keysDownOn(nodes);
  for (int i = 0; i < kTries && !held.empty(); ++i) {
    poll(nullptr, 0, kPauseMs);
    held = stillHeld(held, keysDownOn(nodes));
  }
  return held;
}

// ---- Rules --------------------------------------------------------------------------------------

constexpr std::size_t kMostPaths = 11;

bool fitsAsMouse(const NodeReport& report) { return report.tests.relative && report.tests.pointerButton; }
bool fitsAsKeyboard(const NodeReport& report) { return !report.tests.relative && report.tests.arrows; }

bool isTaken(const NodesFacts& facts, Verdict verdict) {
  return std::any_of(facts.survey.begin(), facts.survey.end(),
                     [&](const NodeReport& report) { return report.verdict == verdict; });
}

std::string describe(const NodeReport& report) {
  return report.facts.name.empty() ? report.path : report.facts.name + " (" + report.path + ")";
}

// A node that may not be read can be what autodetection searches, as long as it has not found that.
bool isMissed(const NodesFacts& facts, const ForbiddenNode& node) {
  const bool isGiven = std::any_of(facts.given.begin(), facts.given.end(),
                                   [&](const GivenNode& given) { return given.path == node.path; });
  return isGiven || (facts.mouseIsSearched && !isTaken(facts, Verdict::kMouse)) ||
         (facts.keyboardIsSearched && !isTaken(facts, Verdict::kKeyboard));
}

// One finding for nodes that have the same obstacle.
void checkForbidden(const NodesFacts& facts, Findings& findings) {
  std::map<std::string, std::vector<const ForbiddenNode*>> byObstacle;
  for (const ForbiddenNode& node : facts.forbidden) {
    if (!isMissed(facts, node)) continue;
    byObstacle[node.groupToLogInFor + "\n" + node.obstacle.reason].push_back(&node);
  }
  for (const auto& [obstacle, nodes] : byObstacle) {
    const ForbiddenNode& first = *nodes.front();
    std::vector<std::string> paths;
    for (const ForbiddenNode* node : nodes) paths.push_back(node->path);
    const std::string where = enumerated(paths, kMostPaths);
    const std::string what =
        "This user may not read " + counted(static_cast<long>(nodes.size()), "node") + ": " + first.obstacle.reason;
    if (first.groupToLogInFor.empty()) {
      findings.push_back({Problem::kNotPermitted, what, where, first.obstacle.remedy});
    } else {
      findings.push_back(
          {Problem::kGroupNotInSession,
           what + "; the user is a member of " + first.groupToLogInFor + ", but was not when this session began", where,
           "Log out and in again, or start this with sg " + first.groupToLogInFor});
    }
  }
}

const NodeReport* reportOf(const NodesFacts& facts, const std::string& path) {
  const auto found = std::find_if(facts.survey.begin(), facts.survey.end(),
                                  [&](const NodeReport& report) { return report.path == path; });
  return found == facts.survey.end() ? nullptr : &*found;
}

std::vector<std::string> processesWith(const NodesFacts& facts, const std::string& path) {
  const auto found = facts.openIn.find(path);
  return found == facts.openIn.end() ? std::vector<std::string>() : found->second;
}

void addGrabbed(const NodesFacts& facts, const NodeReport& report, Findings& findings) {
  constexpr std::size_t kMostProcesses = 5;
  const std::vector<std::string> processes = processesWith(facts, report.path);
  const std::string who = processes.empty() ? ""
                                            : "; open in " + enumerated(processes, kMostProcesses) +
                                                  " (the kernel does not tell which of them has grabbed it)";
  findings.push_back(
      {Problem::kNodeGrabbed,
       describe(report) + " is grabbed by another process, so the application gets nothing of it" + who, report.path,
       "End the process that has grabbed it, or keep it from this node" +
           (processes.empty() ? " (sudo fuser -v " + report.path + " names those that have it open)" : "")});
}

void checkGiven(const NodesFacts& facts, const GivenNode& node, Findings& findings) {
  const NodeReport* report = reportOf(facts, node.realPath);
  if (node.error == EACCES || node.error == EPERM) return;  // forbidden
  if (node.error != 0) {
    const Obstacle obstacle = whyNotOpened(node.path, node.error);
    findings.push_back({Problem::kNodeNotUsable, "The node cannot be opened: " + obstacle.reason, node.path,
                        obstacle.remedy.empty() ? "`quarlo-input list` shows the nodes that exist" : obstacle.remedy});
  } else if (!node.isNode) {
    findings.push_back({Problem::kNodeNotUsable, "This is not an evdev node", node.path,
                        "`quarlo-input list` shows the nodes that exist"});
  } else if (report != nullptr && report->grabbed) {
    addGrabbed(facts, *report, findings);
  }
}

bool isWanted(const NodesFacts& facts, const NodeReport& report) {
  return (facts.mouseIsSearched && fitsAsMouse(report)) || (facts.keyboardIsSearched && fitsAsKeyboard(report));
}

bool isGiven(const NodesFacts& facts, const NodeReport& report) {
  return std::any_of(facts.given.begin(), facts.given.end(),
                     [&](const GivenNode& node) { return node.realPath == report.path; });
}

bool has(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// A LIRC daemon grabs the node that it reads: then the remote comes by the socket. Where its open files cannot be seen,
// there are its arguments and options.
bool isLircDaemons(const NodesFacts& facts, const NodeReport& report) {
  return std::any_of(facts.daemons.begin(), facts.daemons.end(), [&](const LircDaemon& daemon) {
    return has(processesWith(facts, report.path), daemon.process) || has(daemon.nodes, report.path) ||
           withoutLinks(daemon.device) == report.path;
  });
}

// What autodetection passes over because another process has grabbed it.
void checkScanned(const NodesFacts& facts, Findings& findings) {
  for (const NodeReport& report : facts.survey) {
    if (!isScanned(report) || !report.grabbed || isGiven(facts, report)) continue;
    if (isWanted(facts, report) && !isLircDaemons(facts, report)) addGrabbed(facts, report, findings);
  }
}

void checkBeyond(const NodesFacts& facts, Verdict verdict, Findings& findings) {
  const bool isMouse = verdict == Verdict::kMouse;
  if (isTaken(facts, verdict)) return;
  for (const NodeReport& report : facts.survey) {
    if (isScanned(report) || !(isMouse ? fitsAsMouse(report) : fitsAsKeyboard(report))) continue;
    const std::string& path = report.byId.empty() ? report.path : report.byId.front();
    findings.push_back({Problem::kBeyondScan,
                        describe(report) + " would be the " + (isMouse ? "mouse" : "keyboard") +
                            ", but autodetection looks no further than event" + std::to_string(kHighestScannedNode) +
                            ", and finds none there",
                        report.path,
                        "Pass its path: " + std::string(isMouse ? "--mouse " : "--keyboard ") + path +
                            ", in the application to init()"});
  }
}

std::optional<Problem> problemOf(const NodeWarning& warning) {
  for (const Kind& kind : kinds()) {
    if (warning.id == kind.id) return kind.problem;
  }
  return std::nullopt;
}

bool isTakenBySearch(const NodesFacts& facts, const NodeReport& report) {
  return (facts.mouseIsSearched && report.verdict == Verdict::kMouse) ||
         (facts.keyboardIsSearched && report.verdict == Verdict::kKeyboard);
}

void checkTaken(const NodesFacts& facts, Findings& findings) {
  for (const NodeReport& report : facts.survey) {
    if (!isTakenBySearch(facts, report)) continue;
    for (const NodeWarning& warning : report.warnings) {
      const std::optional<Problem> problem = problemOf(warning);
      if (problem) findings.push_back({*problem, describe(report) + ": " + warning.text, report.path, warning.remedy});
    }
  }
}

// A key that types can be part of a password, and what is said here can end up in a journal: it is counted only.
std::string keysIn(const std::vector<int>& codes) {
  constexpr std::size_t kMostNames = 10;
  std::vector<std::string> keys;
  for (const int code : codes) {
    if (keys.size() < kMostNames && isCodeShown(Mask::kTyping, code)) keys.push_back(codeName(EV_KEY, code));
  }
  const std::size_t left = codes.size() - keys.size();
  if (left != 0) keys.push_back(counted(static_cast<long>(left), keys.empty() ? "key" : "other key"));
  return enumerated(keys, keys.size());
}

void checkHeld(const NodesFacts& facts, Findings& findings) {
  for (const HeldKeys& held : facts.held) {
    findings.push_back(
        {Problem::kHeldAtStart,
         keysIn(held.codes) + (held.codes.size() == 1 ? " is" : " are") +
             " down, and the application does not know: only the key-up comes, and a modifier does not count",
         held.path, "Release it, or free what is stuck; an application with InputSources calls adopt()"});
  }
}

}  // namespace

NodesFacts gatherNodes(const SourcePaths& sources, const std::vector<Process>& processes,
                       const std::vector<LircDaemon>& daemons) {
  NodesFacts facts;
  facts.mouseIsSearched = !sources.mouse;
  facts.keyboardIsSearched = !sources.keyboard;
  for (const std::string& path : givenPaths(sources)) {
    facts.given.push_back(lookAtGiven(path));
    noteIfForbidden(path, facts.given.back().error, facts);
  }
  facts.survey = surveyNodes();
  for (const NodeReport& report : facts.survey) {
    if (!report.readable && isScanned(report) && isSearched(facts) && !isGiven(facts, report)) {
      noteIfForbidden(report.path, errnoOfOpeningNode(report.path), facts);
    }
  }
  for (const Process& process : processes) {
    for (const std::string& file : process.openFiles) {
      std::vector<std::string>& with = facts.openIn[file];
      if (with.empty() || with.back() != describe(process)) with.push_back(describe(process));
    }
  }
  facts.daemons = daemons;
  facts.held = keysThatStayDownOn(nodesRead(facts));
  return facts;
}

std::vector<std::string> nodesRead(const NodesFacts& facts) {
  std::vector<std::string> nodes;
  for (const GivenNode& node : facts.given) {
    const NodeReport* report = reportOf(facts, node.realPath);
    if (node.isNode && (report == nullptr || !report->grabbed)) nodes.push_back(node.realPath);
  }
  for (const NodeReport& report : facts.survey) {
    if (isTakenBySearch(facts, report) && !isGiven(facts, report)) nodes.push_back(report.path);
  }
  return nodes;
}

Findings checkNodes(const NodesFacts& facts) {
  Findings findings;
  checkForbidden(facts, findings);
  for (const GivenNode& node : facts.given) checkGiven(facts, node, findings);
  if (isSearched(facts)) checkScanned(facts, findings);
  if (facts.mouseIsSearched) checkBeyond(facts, Verdict::kMouse, findings);
  if (facts.keyboardIsSearched) checkBeyond(facts, Verdict::kKeyboard, findings);
  checkTaken(facts, findings);
  checkHeld(facts, findings);
  return findings;
}

std::string unseenOfNodes(const NodesFacts& facts) {
  std::vector<std::string> paths;
  for (const ForbiddenNode& node : facts.forbidden) {
    if (!isMissed(facts, node)) paths.push_back(node.path);
  }
  return paths.empty() ? "" : "what " + enumerated(paths, kMostPaths) + " can do: this user may not read it";
}

}  // namespace quarlo::tools::checkup
