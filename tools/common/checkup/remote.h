// What can be wrong with the remote: the LIRC daemon's socket, the daemon, its receiver, and the names of its buttons.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"
#include "tools/common/checkup/lirc_client.h"
#include "tools/common/checkup/lirc_daemons.h"
#include "tools/common/sources.h"

namespace quarlo::tools::checkup {

// A path that the reader tries.
struct SocketFacts {
  std::string path;
  int error = 0;          // the errno of connecting; 0: a daemon takes connections
  bool isThere = false;   // whether there is anything at the path
  bool isSocket = false;  // whether that is a socket
};

// An infrared receiver, or HDMI-CEC, as /sys/class/rc has it.
struct Receiver {
  std::string name;                   // "rc0"
  std::vector<std::string> decoding;  // the protocols that the kernel decodes: "nec"
  std::string lirc;                   // "/dev/lirc0"; empty if it has none
  std::vector<std::string> nodes;     // "/dev/input/event5": those that send what the kernel decodes
};

struct RemoteFacts {
  bool isLeftOut = false;
  bool isGiven = false;                 // whether the one socket is the application's choice
  std::vector<SocketFacts> sockets;     // in the reader's order, up to the first that takes connections
  std::vector<LircDaemon> daemons;      // that run
  std::optional<RemotesAnswer> answer;  // of the daemon that the reader is connected to, if it is one that answers
  std::vector<Receiver> receivers;
  std::vector<std::string> deviceFiles;  // of the files that lircd is to read from, those that are there
  std::vector<std::string> nodesRead;    // the nodes that the reader takes or is given, and that give it something
};

// Looks below `root`, which is "" for the machine itself. The daemon gets two seconds to answer.
RemoteFacts gatherRemote(const SourcePath& lirc, const std::vector<Process>& processes, const std::string& root);

Findings checkRemote(const RemoteFacts& facts);

// "/var/run/lirc/lircd, /run/lirc/lircd and /dev/lircd".
std::string pathsOf(const std::vector<SocketFacts>& sockets);

// What could not be looked at, as a sentence without its full stop; empty if all could.
std::string unseenOfRemote(const RemoteFacts& facts);

}  // namespace quarlo::tools::checkup
