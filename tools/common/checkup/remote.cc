#include "tools/common/checkup/remote.h"

#include <linux/input-event-codes.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>

#include "input/linux_input_reader_limits.h"
#include "tools/common/checkup/files.h"
#include "tools/common/lirc_line.h"
#include "tools/common/lirc_socket.h"
#include "tools/common/numbers.h"
#include "tools/common/obstacle.h"
#include "tools/common/output.h"

namespace quarlo::tools::checkup {
namespace {

using components::input::kLircSocketPaths;
using components::input::kLongestLircPath;

// ---- Gathering ----------------------------------------------------------------------------------

SocketFacts lookAtSocket(const std::string& path) {
  SocketFacts facts;
  facts.path = path;
  struct stat status;
  facts.isThere = stat(path.c_str(), &status) == 0;
  facts.isSocket = facts.isThere && S_ISSOCK(status.st_mode);
  facts.error = path.size() > kLongestLircPath ? ENAMETOOLONG : errnoOfConnecting(path);
  return facts;
}

// The reader takes the first that it can connect to.
std::vector<SocketFacts> lookAtSockets(const SourcePath& lirc) {
  if (lirc) return {lookAtSocket(*lirc)};
  std::vector<SocketFacts> sockets;
  for (const char* path : kLircSocketPaths) {
    sockets.push_back(lookAtSocket(path));
    if (sockets.back().error == 0) break;
  }
  return sockets;
}

// Of "rc-5 [nec] [lirc]", those in brackets. "lirc" is not a protocol: it stands for the pulses themselves.
std::vector<std::string> protocolsThatAreOn(const std::string& text) {
  std::vector<std::string> protocols;
  for (const std::string& word : wordsIn(text)) {
    if (word.front() == '[' && word.back() == ']' && word != "[lirc]") {
      protocols.push_back(word.substr(1, word.size() - 2));
    }
  }
  return protocols;
}

bool startsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }

Receiver lookAtReceiver(const std::string& folder, const std::string& name) {
  Receiver receiver;
  receiver.name = name;
  receiver.decoding = protocolsThatAreOn(contentOf(folder + "/protocols"));
  for (const std::string& child : namesIn(folder)) {
    if (startsWith(child, "lirc")) receiver.lirc = "/dev/" + child;
    if (!startsWith(child, "input")) continue;
    for (const std::string& node : namesIn(folder + "/" + child)) {
      if (startsWith(node, "event")) receiver.nodes.push_back("/dev/input/" + node);
    }
  }
  return receiver;
}

std::vector<Receiver> lookAtReceivers(const std::string& root) {
  const std::string folder = root + "/sys/class/rc";
  std::vector<Receiver> receivers;
  for (const std::string& name : namesIn(folder)) receivers.push_back(lookAtReceiver(folder + "/" + name, name));
  return receivers;
}

bool isSamePath(const std::string& a, const std::string& b) { return a == b || withoutLinks(a) == withoutLinks(b); }

bool listensOn(const LircDaemon& daemon, const std::string& path) {
  return std::any_of(daemon.sockets.begin(), daemon.sockets.end(),
                     [&](const std::string& socket) { return isSamePath(socket, path); });
}

// inputlircd takes no questions.
bool takesQuestions(const std::vector<LircDaemon>& daemons, const std::string& path) {
  return std::none_of(daemons.begin(), daemons.end(), [&](const LircDaemon& daemon) {
    return daemon.kind == DaemonKind::kInputlircd && listensOn(daemon, path);
  });
}

// ---- The socket ---------------------------------------------------------------------------------

constexpr std::size_t kMostNames = 20;

bool isConnected(const RemoteFacts& facts) { return !facts.sockets.empty() && facts.sockets.back().error == 0; }

std::string startDaemon() { return "Start it (sudo systemctl restart lircd.socket lircd), and look at its log"; }

void checkLength(const std::string& path, const std::string& shorten, Findings& findings) {
  if (path.size() <= kLongestLircPath) return;
  findings.push_back({Problem::kSocketPathTooLong,
                      "The path of the socket has " + std::to_string(path.size()) +
                          " characters, and the longest that can be used has " + std::to_string(kLongestLircPath) +
                          ": the reader ends the application at it",
                      path, shorten});
}

// What is wrong with a path that the reader tries in vain; nothing if there is just nothing. What a person has given
// may be a file of his: nobody is advised to remove it.
void checkSocket(const SocketFacts& socket, bool isGiven, Findings& findings) {
  const auto add = [&](Problem problem, const std::string& what, const std::string& remedy) {
    findings.push_back({problem, what, socket.path, remedy});
  };
  if (socket.error == EACCES || socket.error == EPERM) {
    const Obstacle obstacle = whyNotConnected(socket.path, socket.error);
    add(Problem::kSocketNotPermitted, "This user may not connect to the socket: " + obstacle.reason, obstacle.remedy);
  } else if (socket.isThere && !socket.isSocket) {
    add(Problem::kNotASocket, "What is in the place of the LIRC daemon's socket is none",
        isGiven ? "Pass the path of the daemon's socket with --lirc"
                : "Remove it, and start the daemon again, or pass the path of the daemon's socket with --lirc");
  } else if (socket.error == ECONNREFUSED) {
    add(Problem::kDaemonNotRunning, "Nobody listens on the socket: the daemon that made it has ended", startDaemon());
  } else if (socket.error == EAGAIN) {
    add(Problem::kDaemonSilent,
        "The daemon takes no more connections, as one does that hangs: the reader waits for it without an end",
        startDaemon());
  }
}

// Daemons that run, and that the reader does not look for where they are. Any process can be called as they are: keep
// its paths out of commands, which somebody may copy into a shell.
void checkOtherSockets(const RemoteFacts& facts, Findings& findings) {
  for (const LircDaemon& daemon : facts.daemons) {
    if (daemon.sockets.empty()) continue;
    const std::string& socket = daemon.sockets.front();
    const bool isTried = std::any_of(facts.sockets.begin(), facts.sockets.end(),
                                     [&](const SocketFacts& tried) { return listensOn(daemon, tried.path); });
    checkLength(socket, "Have the daemon listen on a shorter one (lircd: output in lirc_options.conf)", findings);
    if (isTried || socket.size() > kLongestLircPath) continue;
    findings.push_back({Problem::kOtherSocket,
                        daemon.process + " listens on " + socket + ", and the reader looks at " +
                            pathsOf(facts.sockets) + ", where nobody takes connections",
                        socket,
                        "Pass its path with --lirc, or have the daemon listen where the reader looks (lircd: output in "
                        "lirc_options.conf; inputlircd: -d)"});
  }
}

void checkSockets(const RemoteFacts& facts, Findings& findings) {
  for (const SocketFacts& socket : facts.sockets)
    checkLength(socket.path, "Use a shorter path, such as a link", findings);
  if (isConnected(facts) || !findings.empty()) return;
  checkOtherSockets(facts, findings);
  if (!findings.empty()) return;
  for (const SocketFacts& socket : facts.sockets) checkSocket(socket, facts.isGiven, findings);
  if (!findings.empty() || !facts.isGiven) return;
  findings.push_back({Problem::kNoSocket, "There is no socket at the path that was given", facts.sockets.front().path,
                      "Is a LIRC daemon running (systemctl status lircd)? Is this the socket that it writes to?"});
}

// ---- What the daemon knows ----------------------------------------------------------------------

std::vector<std::string> unknownButtons(const Remote& remote) {
  std::vector<std::string> unknown;
  std::copy_if(remote.buttons.begin(), remote.buttons.end(), std::back_inserter(unknown),
               [](const std::string& button) { return !isKnownButton(button); });
  return unknown;
}

// lircd's file for receivers that the kernel decodes has all keys of Linux, which no remote has.
bool standsForAllKeys(const Remote& remote) { return startsWith(remote.name, "devinput"); }

void checkButtons(const Remote& remote, Findings& findings) {
  const std::vector<std::string> unknown = unknownButtons(remote);
  if (unknown.empty() || standsForAllKeys(remote)) return;
  findings.push_back(
      {Problem::kUnknownButtons,
       "The reader does not know " + std::to_string(unknown.size()) + " of its " +
           counted(static_cast<long>(remote.buttons.size()), "button") +
           ", and gives nothing for them: " + enumerated(unknown, kMostNames),
       "remote " + remote.name,
       "In the remote's file for lircd, give them names that `quarlo-input keymap` has, then sudo systemctl "
       "restart lircd"});
}

bool knowsNothingOf(const std::vector<Remote>& remotes) {
  return std::all_of(remotes.begin(), remotes.end(), [](const Remote& remote) {
    return std::none_of(remote.buttons.begin(), remote.buttons.end(), isKnownButton);
  });
}

void checkRemotes(const std::vector<Remote>& remotes, const std::string& socket, Findings& findings) {
  if (remotes.empty()) {
    findings.push_back({Problem::kNoRemotes, "lircd knows no remote: it decodes nothing", socket,
                        "Put the remote's file into /etc/lirc/lircd.conf.d (irdb-get, irrecord), then sudo systemctl "
                        "restart lircd"});
  } else if (knowsNothingOf(remotes)) {
    findings.push_back(
        {Problem::kNoKnownButton, "lircd knows remotes, but not one button by a name that the reader knows", socket,
         "In the remotes' files for lircd, give the buttons names that `quarlo-input keymap` has, then sudo "
         "systemctl restart lircd"});
  } else {
    for (const Remote& remote : remotes) checkButtons(remote, findings);
  }
}

void checkAnswer(const RemotesAnswer& answer, const std::string& socket, Findings& findings) {
  const auto addSilence = [&](const std::string& what) {
    findings.push_back({Problem::kDaemonSilent, what, socket,
                        "If it is lircd, restart it (sudo systemctl restart lircd), and look at its log"});
  };
  switch (answer.outcome) {
    case Outcome::kComplete: return checkRemotes(answer.remotes, socket, findings);
    case Outcome::kTimedOut:
      return addSilence(
          "The daemon takes connections, and does not answer within two seconds (command LIST): it hangs, or it is "
          "another one than lircd");
    case Outcome::kClosed:
      return addSilence(
          "The daemon takes connections, and closes them without an answer (command LIST): it ends, or it is another "
          "one than lircd");
    case Outcome::kRefused:
    case Outcome::kTooMuch: break;  // unseen
  }
}

// ---- The receiver -------------------------------------------------------------------------------

// What is missing in the kernel where lircd's device is not there.
std::string whyNoReceiver(const RemoteFacts& facts) {
  if (facts.receivers.empty()) {
    return "; the kernel knows no receiver (/sys/class/rc): its driver is not loaded, or not built (CONFIG_RC_CORE, "
           "CONFIG_RC_DEVICES)";
  }
  const bool anyIsRaw = std::any_of(facts.receivers.begin(), facts.receivers.end(),
                                    [](const Receiver& receiver) { return !receiver.lirc.empty(); });
  return anyIsRaw ? "" : "; the kernel has a receiver, but gives no pulses of it (CONFIG_LIRC)";
}

bool isAutomatic(const LircDaemon& daemon) { return daemon.device == "auto"; }

// What lircd's drivers find by themselves: devinput the one node of the kernel's first receiver, default any pulses.
// Nothing is known of others.
bool isFound(const RemoteFacts& facts, const std::string& driver) {
  if (driver != "devinput" && driver != "default") return true;
  return std::any_of(facts.receivers.begin(), facts.receivers.end(), [&](const Receiver& receiver) {
    return driver == "devinput" ? receiver.name == "rc0" && receiver.nodes.size() == 1 : !receiver.lirc.empty();
  });
}

void checkReceiver(const RemoteFacts& facts, const LircDaemon& daemon, Findings& findings) {
  const std::string remedy =
      "Set driver and device in lircd's options file to those of the receiver (driver = default, device = /dev/lirc0), "
      "then sudo systemctl restart lircd";
  if (isAutomatic(daemon) && !isFound(facts, daemon.driver)) {
    findings.push_back({Problem::kNoReceiver,
                        daemon.process + " is to find a receiver for its driver " + daemon.driver +
                            " by itself, and there is none" + whyNoReceiver(facts),
                        daemon.optionsFile, remedy});
  }
  const bool isPath = startsWith(daemon.device, "/");
  const auto& there = facts.deviceFiles;
  if (isPath && std::find(there.begin(), there.end(), daemon.device) == there.end()) {
    findings.push_back({Problem::kNoReceiver,
                        daemon.process + " is to read from " + daemon.device + " (options file " + daemon.optionsFile +
                            "), which is not there" + whyNoReceiver(facts),
                        daemon.device, remedy});
  }
}

// ---- Two ways -----------------------------------------------------------------------------------

bool readsPulsesOf(const LircDaemon& daemon, const Receiver& receiver) {
  return daemon.kind == DaemonKind::kLircd && daemon.driver == "default" && !receiver.lirc.empty() &&
         (isAutomatic(daemon) || daemon.device == receiver.lirc);
}

std::vector<std::string> thoseRead(const RemoteFacts& facts, const std::vector<std::string>& nodes) {
  std::vector<std::string> read;
  std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(read), [&](const std::string& node) {
    return std::find(facts.nodesRead.begin(), facts.nodesRead.end(), node) != facts.nodesRead.end();
  });
  return read;
}

void checkTwoWays(const RemoteFacts& facts, const LircDaemon& daemon, Findings& findings) {
  if (daemon.kind == DaemonKind::kLircdUinput) {
    findings.push_back({Problem::kRemoteTwice,
                        daemon.process +
                            " makes a keyboard of lircd's buttons: a press comes from the socket and, where "
                            "that node is read, a second time",
                        daemon.process, "Stop it: sudo systemctl disable --now lircd-uinput"});
  }
  const std::vector<std::string> shared = thoseRead(facts, daemon.nodes);
  if (!shared.empty()) {
    const std::string nodes = enumerated(shared, kMostNames);
    findings.push_back({Problem::kRemoteTwice,
                        daemon.process + " reads " + nodes + ", and so does the application: each press comes twice",
                        nodes,
                        "Start it with -g, so that only it reads them, or only for the nodes of the remote (EVENTS in "
                        "/etc/default/inputlirc)"});
  }
  for (const Receiver& receiver : facts.receivers) {
    if (!readsPulsesOf(daemon, receiver) || receiver.decoding.empty()) continue;
    const std::string node = enumerated(receiver.nodes, kMostNames);
    findings.push_back(
        {Problem::kRemoteTwice,
         daemon.process + " decodes " + receiver.name + ", and so does the kernel (" +
             enumerated(receiver.decoding, kMostNames) + "), which sends keys on " + node +
             (!thoseRead(facts, receiver.nodes).empty() ? ": each press comes twice"
                                                        : ": the console gets them, and who reads that node gets each "
                                                          "press twice"),
         receiver.name,
         "Leave it to one: echo lirc | sudo tee /sys/class/rc/" + receiver.name +
             "/protocols leaves it to lircd until the next start (ir-keytable(1) tells how to keep it)"});
  }
}

// ---- inputlircd ---------------------------------------------------------------------------------

// What comes of -m, behind the name of the daemon; empty if all digits are there.
std::string digitsLeftOut(const std::string& lowestKey) {
  if (lowestKey.empty()) return "leaves out keys below 88, as it does without -m: digits and Enter are among them";
  int lowest = 0;
  if (!isNumber(lowestKey, 0, KEY_MAX, lowest)) {
    return "runs with -m \"" + lowestKey + "\", which is not the number of a key: digits and Enter can be left out";
  }
  if (lowest <= KEY_1) return "";
  return "leaves out keys below " + std::to_string(lowest) +
         (lowest > KEY_ENTER ? ": digits and Enter are among them" : ": digits are among them");
}

void checkInputlircd(const LircDaemon& daemon, Findings& findings) {
  if (daemon.repeatMs.value_or(0) == 0) {
    findings.push_back(
        {Problem::kRepeatsArePresses,
         daemon.process + " runs without -r: each repeat of a held button counts as a press of its own", daemon.process,
         "Start it with -r 200 (OPTIONS in /etc/default/inputlirc), then sudo systemctl restart inputlirc"});
  }
  const std::string leftOut = digitsLeftOut(daemon.lowestKey);
  if (!leftOut.empty()) {
    findings.push_back(
        {Problem::kDigitsLeftOut, daemon.process + " " + leftOut, daemon.process,
         "Start it with -m 0 (OPTIONS in /etc/default/inputlirc), then sudo systemctl restart inputlirc"});
  }
}

void checkDaemon(const RemoteFacts& facts, const LircDaemon& daemon, Findings& findings) {
  checkTwoWays(facts, daemon, findings);
  if (daemon.kind == DaemonKind::kLircd) checkReceiver(facts, daemon, findings);
  if (daemon.kind == DaemonKind::kInputlircd) checkInputlircd(daemon, findings);
}

}  // namespace

RemoteFacts gatherRemote(const SourcePath& lirc, const std::vector<Process>& processes, const std::string& root) {
  constexpr std::chrono::seconds kPatience(2);
  RemoteFacts facts;
  facts.isLeftOut = isLeftOut(lirc);
  if (facts.isLeftOut) return facts;
  facts.isGiven = lirc.has_value();
  facts.sockets = lookAtSockets(lirc);
  facts.daemons = findLircDaemons(processes, root);
  facts.receivers = lookAtReceivers(root);
  for (const LircDaemon& daemon : facts.daemons) {
    if (exists(root + daemon.device)) facts.deviceFiles.push_back(daemon.device);
  }
  const SocketFacts& last = facts.sockets.back();
  if (last.error == 0 && takesQuestions(facts.daemons, last.path)) facts.answer = askForRemotes(last.path, kPatience);
  return facts;
}

Findings checkRemote(const RemoteFacts& facts) {
  Findings findings;
  if (facts.isLeftOut) return findings;
  checkSockets(facts, findings);
  if (facts.answer) checkAnswer(*facts.answer, facts.sockets.back().path, findings);
  for (const LircDaemon& daemon : facts.daemons) checkDaemon(facts, daemon, findings);
  return findings;
}

std::string pathsOf(const std::vector<SocketFacts>& sockets) {
  std::vector<std::string> paths;
  paths.reserve(sockets.size());
  for (const SocketFacts& socket : sockets) paths.push_back(socket.path);
  return enumerated(paths, paths.size());
}

std::string unseenOfRemote(const RemoteFacts& facts) {
  if (!facts.answer) return "";
  const std::string what = "which buttons the daemon at " + facts.sockets.back().path + " knows: it ";
  switch (facts.answer->outcome) {
    case Outcome::kRefused: return what + "refuses the question (command LIST), as another one than lircd does";
    case Outcome::kTooMuch: return what + "answers too much (command LIST), as another one than lircd does";
    default: return "";
  }
}

}  // namespace quarlo::tools::checkup
