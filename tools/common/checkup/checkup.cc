#include "tools/common/checkup/checkup.h"

#include <algorithm>
#include <iterator>

#include "tools/common/checkup/clock.h"
#include "tools/common/checkup/console.h"
#include "tools/common/checkup/environment.h"
#include "tools/common/checkup/kernel.h"
#include "tools/common/checkup/nodes.h"
#include "tools/common/checkup/remote.h"

namespace quarlo::tools::checkup {
namespace {

bool readsNodes(const SourcePaths& sources) {
  return !isLeftOut(sources.mouse) || !isLeftOut(sources.keyboard) || !sources.further.empty();
}

std::vector<std::string> namesOf(const std::vector<NodeReport>& survey) {
  std::vector<std::string> names;
  names.reserve(survey.size());
  for (const NodeReport& report : survey) names.push_back("event" + std::to_string(report.number));
  return names;
}

void add(Findings more, Findings& findings) { std::move(more.begin(), more.end(), std::back_inserter(findings)); }

bool anyIsError(const Findings& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return kindOf(finding).severity == Severity::kError; });
}

bool remoteIsThere(const RemoteFacts& remote) { return !remote.sockets.empty() && remote.sockets.back().error == 0; }

// If nothing else says why.
void checkSources(const SourcePaths& sources, const NodesFacts& nodes, const RemoteFacts& remote, Findings& findings) {
  if (anyIsError(findings) || !nodesRead(nodes).empty() || remoteIsThere(remote)) return;
  if (!readsNodes(sources)) {
    findings.push_back({Problem::kNoSource,
                        "The application finds nothing to read from: no LIRC socket, and nodes are left out",
                        pathsOf(remote.sockets), "Start lircd, or pass the path of its socket with --lirc"});
    return;
  }
  findings.push_back({Problem::kNoSource,
                      "The application finds nothing to read from: no mouse, no keyboard, no remote", "/dev/input",
                      "`quarlo-input list` says of each node why it is not taken: pass the path of one"});
}

// It matters where a node is grabbed, or a daemon runs.
std::string unseenOfProcesses(const std::vector<Process>& processes, const NodesFacts& nodes,
                              const RemoteFacts& remote) {
  const bool matters = !remote.daemons.empty() || std::any_of(nodes.survey.begin(), nodes.survey.end(),
                                                              [](const NodeReport& report) { return report.grabbed; });
  const bool allAreKnown =
      std::all_of(processes.begin(), processes.end(), [](const Process& process) { return process.openFilesAreKnown; });
  if (!matters || allAreKnown) return "";
  return "which nodes and sockets the processes of other users have open: run this with sudo";
}

}  // namespace

Checkup examine(const SourcePaths& sources, const std::string& root) {
  const std::vector<Process> processes = findProcesses(root);
  const NodesFacts nodes = gatherNodes(sources, processes, findLircDaemons(processes, root));
  const std::vector<std::string> read = nodesRead(nodes);
  RemoteFacts remote = gatherRemote(sources.lirc, processes, root);
  remote.nodesRead = read;
  const ConsoleFacts console = gatherConsole(processes, !read.empty(), root);

  Checkup checkup;
  add(checkKernel(gatherKernel(namesOf(nodes.survey), readsNodes(sources), root)), checkup.findings);
  add(checkNodes(nodes), checkup.findings);
  add(checkRemote(remote), checkup.findings);
  add(checkEnvironment(gatherEnvironment()), checkup.findings);
  add(checkConsole(console), checkup.findings);
  add(checkClock(gatherClock()), checkup.findings);
  checkSources(sources, nodes, remote, checkup.findings);
  sortByHarm(checkup.findings);
  for (const std::string& unseen : {unseenOfNodes(nodes), unseenOfProcesses(processes, nodes, remote),
                                    unseenOfRemote(remote), unseenOfConsole(console)}) {
    if (!unseen.empty()) checkup.unseen.push_back(unseen);
  }
  return checkup;
}

}  // namespace quarlo::tools::checkup
