// The terminal of standard output while a screen is on it: what is typed neither shows nor reaches the shell, what the
// program writes to standard error does not scribble over it, and it is given back as it was, even after a crash.
#pragma once

#include <string>
#include <vector>

#include "recording/line_splitter.h"
#include "tools/common/terminal_loan.h"

namespace quarlo::tools::monitor {

// There can be one at a time. REQUIRES: standard output is a terminal.
class Terminal {
 public:
  // Remembers how the terminal is. If standard error is a terminal, too, what is written to it is kept from now on.
  Terminal();

  // Writes what was kept to standard error, and gives the terminal back, without what was typed and not discarded.
  ~Terminal();

  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // From now on, Ctrl-C (or what else is set as the interrupt character) is the only key that does something, and
  // nothing that is typed is echoed. A signal that kills the program, the second Ctrl-C included, first writes
  // `restore` to the terminal, and gives it back. REQUIRES: catchStopRequests() was called.
  void takeOver(const std::string& restore);

  // Throws away what was typed.
  void discardInput();

  // The lines that were written to standard error since the last call.
  std::vector<std::string> takeErrors();

 private:
  int typed_;  // a way of its own to the terminal, so that reads do not wait
  TerminalLoan loan_;
  recording::LineSplitter errors_;
};

}  // namespace quarlo::tools::monitor
