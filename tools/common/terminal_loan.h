// A terminal with other settings for a while. It is given back as it was, without what was typed meanwhile, at every
// end of the program that can be caught, a crash included.
#pragma once

#include <termios.h>

namespace quarlo::tools {

// Whether the terminal `fd` is this program's now, and not that of a shell that has it in the background. Safe in a
// signal handler.
bool isInForeground(int fd);

// What is done when a signal kills the program. Called in a signal handler.
struct LastActs {
  void (*before)() = nullptr;  // before the terminal is given back; null: nothing
  void (*after)() = nullptr;
};

// There can be one at a time.
class TerminalLoan {
 public:
  // Remembers how the terminal is. The caller keeps `fd` open.
  explicit TerminalLoan(int fd);

  // Gives the terminal back.
  ~TerminalLoan();

  TerminalLoan(const TerminalLoan&) = delete;
  TerminalLoan& operator=(const TerminalLoan&) = delete;

  // Changes the settings, unless the program runs in the background: then the terminal is another program's. Leaves
  // handlers of signals alone that others have installed.
  // REQUIRES: catchStopRequests() was called. `change` is safe in a signal handler.
  void take(void (*change)(termios&), const LastActs& lastActs = {});

  // The same, but for the settings: takeAgain() will change them.
  void prepare(void (*change)(termios&), const LastActs& lastActs = {});

  // From now on, gives the terminal back when the program is stopped (Ctrl-Z), and takes it again when it goes on.
  // REQUIRES: prepare() was called.
  void followStops();

  // For a program that follows stops already: takes the terminal again when the program goes on after a stop that
  // cannot be caught. REQUIRES: take() was called.
  void followContinuations();

  // Takes the terminal if it is not taken and can be: the program has come to the foreground, or another one that hid
  // what is typed has ended. REQUIRES: followStops() was called.
  void takeAgain();

  // Whether the settings are changed now.
  bool isTaken() const;
};

}  // namespace quarlo::tools
