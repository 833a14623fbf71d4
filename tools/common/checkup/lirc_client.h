// A conversation with lircd over its socket (lircd(8), "SOCKET COMMAND INTERFACE").
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quarlo::tools::checkup {

// A remote that lircd knows. Its texts are as lircd sends them: escape them.
struct Remote {
  std::string name;
  std::vector<std::string> buttons;
};

// What lircd says.
struct RemotesAnswer {
  bool isComplete = false;  // false: it did not answer, or not in time, or something else
  std::vector<Remote> remotes;
};

// Asks for all remotes and their buttons, and waits for no longer than `limit`.
RemotesAnswer askForRemotes(const std::string& socketPath, std::chrono::milliseconds limit);

}  // namespace quarlo::tools::checkup
