// What is typed at the program's terminal while devices are read: it comes from the same keyboard, so it must neither
// show nor reach the shell, which would run a password and keep it in its history.
#pragma once

#include <memory>

#include "tools/common/terminal_loan.h"

namespace quarlo::tools {

// While this exists, what is typed is not echoed, and is thrown away. Ctrl-C and Ctrl-Z work. Does nothing where the
// program has no terminal, and gives it back when the program is stopped or ends, whatever ends it.
// REQUIRES: catchStopRequests() was called.
class HiddenTyping {
 public:
  HiddenTyping();
  ~HiddenTyping();
  HiddenTyping(const HiddenTyping&) = delete;
  HiddenTyping& operator=(const HiddenTyping&) = delete;

  // Throws away what was typed. To call whenever descriptor() is readable, and now and then, in case the program has
  // come to the foreground: a terminal whose typing nobody takes becomes full, and then takes no Ctrl-C either.
  void discard();

  // To be waited for; -1 if there is nothing to wait for.
  int descriptor() const;

  // For how long to wait at most, in ms, of `timeoutMs` (-1: without a limit): no signal tells a program that it has
  // come to the foreground.
  int limited(int timeoutMs) const;

 private:
  void close();

  int fd_;
  std::unique_ptr<TerminalLoan> loan_;  // null: there is no terminal
};

}  // namespace quarlo::tools
