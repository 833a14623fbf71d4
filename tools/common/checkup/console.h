// What can be wrong with the console behind the screen: what is typed reaches it, too.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"
#include "tools/common/checkup/processes.h"

namespace quarlo::tools::checkup {

struct ConsoleFacts {
  std::string console;                 // the one in front, "tty1"; empty: there is none
  std::optional<int> keyboardMode;     // K_XLATE, K_UNICODE, K_OFF, ...; none: it could not be asked
  std::vector<std::string> processes;  // those that wait at it, "agetty (process 412)"
  bool keysAreRead = false;            // whether the application reads a node: otherwise, nobody types at the screen
};

ConsoleFacts gatherConsole(const std::vector<Process>& processes, bool keysAreRead, const std::string& root);

Findings checkConsole(const ConsoleFacts& facts);

// What could not be looked at, as a sentence without its full stop; empty if all could.
std::string unseenOfConsole(const ConsoleFacts& facts);

}  // namespace quarlo::tools::checkup
