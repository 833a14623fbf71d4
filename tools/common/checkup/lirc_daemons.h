// The LIRC daemons that run, and what they were started with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/common/checkup/processes.h"

namespace quarlo::tools::checkup {

enum class DaemonKind { kLircd, kInputlircd, kLircdUinput };

// Its texts are as its command line and its files have them: escape them.
struct LircDaemon {
  DaemonKind kind = DaemonKind::kLircd;
  std::string process;               // "lircd (process 412)"
  std::vector<std::string> sockets;  // the paths that it listens on, or, where they cannot be seen, should listen on
  std::string optionsFile;           // lircd: where its options stand that the command line leaves open
  std::string driver;                // lircd: empty if nothing says it
  std::string device;                // lircd: the same
  std::optional<int> repeatMs;       // inputlircd: -r, if it is there and a number
  std::string lowestKey;             // inputlircd: -m as it is there; empty if it is not
  std::vector<std::string> nodes;    // inputlircd: those that it reads, as far as can be seen
};

// Those among `processes`. What their files say is read below `root`, which is "" for the machine itself.
std::vector<LircDaemon> findLircDaemons(const std::vector<Process>& processes, const std::string& root);

}  // namespace quarlo::tools::checkup
