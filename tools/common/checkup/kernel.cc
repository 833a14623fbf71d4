#include "tools/common/checkup/kernel.h"

#include <algorithm>
#include <iterator>

#include "tools/common/checkup/files.h"
#include "tools/common/output.h"

namespace quarlo::tools::checkup {
namespace {

constexpr std::size_t kMostNodes = 5;

// ---- Gathering ----------------------------------------------------------------------------------

// In /proc/bus/input/devices, each device has a line such as "H: Handlers=sysrq kbd event0 leds".
void readDevices(const std::string& text, KernelFacts& facts) {
  const std::string start = "H: Handlers=";
  for (const std::string& line : linesIn(text)) {
    if (line.rfind(start, 0) != 0) continue;
    ++facts.devices;
    for (const std::string& handler : wordsIn(line.substr(start.size()))) {
      if (handler.rfind("event", 0) == 0) facts.nodesOfKernel.push_back(handler);
    }
  }
}

bool hasAny(const std::string& text, const std::vector<const char*>& words) {
  return std::any_of(words.begin(), words.end(),
                     [&](const char* word) { return text.find(word) != std::string::npos; });
}

// None of these is certain: each is what one kind of container leaves.
std::vector<std::string> findContainerHints(const std::string& root) {
  std::vector<std::string> hints;
  for (const char* file : {"/.dockerenv", "/run/.containerenv", "/run/systemd/container"}) {
    if (exists(root + file)) hints.emplace_back(file);
  }
  const std::string environment = '\0' + contentOf(root + "/proc/1/environ");
  if (environment.find(std::string("\0container=", 11)) != std::string::npos) {
    hints.emplace_back("container= in /proc/1/environ");
  }
  if (hasAny(contentOf(root + "/proc/1/cgroup"), {"docker", "lxc", "kubepods", "libpod", "containerd"})) {
    hints.emplace_back("/proc/1/cgroup");
  }
  return hints;
}

// ---- Rules --------------------------------------------------------------------------------------

Finding noNodeAtAll(const KernelFacts& facts) {
  if (!facts.containerHints.empty()) {
    return {
        Problem::kContainerWithoutNodes,
        "There is no event node, and this seems to be a container (" +
            enumerated(facts.containerHints, facts.containerHints.size()) + ")",
        "/dev/input",
        "Pass the nodes into it, such as with --device /dev/input/event0, or --volume /dev/input:/dev/input and a rule "
        "for devices of major number 13"};
  }
  if (!facts.nodesOfKernel.empty()) {
    return {Problem::kNodesNotMade,
            "The kernel has " + enumerated(facts.nodesOfKernel, kMostNodes) + ", and none of them is in /dev/input",
            "/dev/input", "Mount devtmpfs on /dev (mount -t devtmpfs none /dev), or run udev or mdev"};
  }
  if (facts.devices > 0) {
    return {Problem::kNoEvdev,
            "The kernel knows " + counted(facts.devices, "input device") +
                ", and gives event nodes for none: its driver evdev is missing",
            "/proc/bus/input/devices", "Load it (sudo modprobe evdev), or build the kernel with CONFIG_INPUT_EVDEV"};
  }
  return {Problem::kNoNode, "There is no event node: the kernel has a driver for no input device", "/dev/input",
          "Plug one in, and look at dmesg; if only a remote is used, pass --mouse none --keyboard none"};
}

std::vector<std::string> nodesNotMade(const KernelFacts& facts) {
  std::vector<std::string> missing;
  std::copy_if(facts.nodesOfKernel.begin(), facts.nodesOfKernel.end(), std::back_inserter(missing),
               [&](const std::string& node) {
                 return std::find(facts.nodes.begin(), facts.nodes.end(), node) == facts.nodes.end();
               });
  return missing;
}

}  // namespace

KernelFacts gatherKernel(const std::vector<std::string>& nodes, bool nodesAreNeeded, const std::string& root) {
  KernelFacts facts;
  facts.nodes = nodes;
  facts.nodesAreNeeded = nodesAreNeeded;
  readDevices(contentOf(root + "/proc/bus/input/devices"), facts);
  facts.containerHints = findContainerHints(root);
  return facts;
}

Findings checkKernel(const KernelFacts& facts) {
  if (!facts.nodesAreNeeded) return {};
  if (facts.nodes.empty()) return {noNodeAtAll(facts)};
  const std::vector<std::string> missing = nodesNotMade(facts);
  // A container has the nodes that it is to have.
  if (missing.empty() || !facts.containerHints.empty()) return {};
  return {{Problem::kNodesNotMade, "The kernel has " + enumerated(missing, kMostNodes) + ", which /dev/input has not",
           "/dev/input", "Run udev or mdev, or mount devtmpfs on /dev; if that was done, run this again"}};
}

}  // namespace quarlo::tools::checkup
