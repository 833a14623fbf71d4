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

// What came of asking.
enum class Outcome {
  kComplete,
  kTimedOut,
  kClosed,   // the daemon closed the connection
  kRefused,  // it answered, but with no success
  kTooMuch   // it sent more than the remotes of a machine need
};

// What lircd says.
struct RemotesAnswer {
  Outcome outcome = Outcome::kComplete;
  std::vector<Remote> remotes;  // only those before the outcome was known, unless it is kComplete
};

// Asks for all remotes and their buttons, and waits for no longer than `limit`.
RemotesAnswer askForRemotes(const std::string& socketPath, std::chrono::milliseconds limit);

}  // namespace quarlo::tools::checkup
