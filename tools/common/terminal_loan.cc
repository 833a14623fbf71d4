#include "tools/common/terminal_loan.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "tools/common/stop_request.h"

namespace quarlo::tools {
namespace {

// What the handlers of signals need. They may call little, and must find all of it ready.
struct {
  int fd = -1;
  termios settings;  // to be given back
  termios changed;   // from them
  void (*change)(termios&) = nullptr;
  LastActs lastActs;
  volatile std::sig_atomic_t taken = 0;
} loan;

// What is put back at the end.
struct {
  std::array<struct sigaction, NSIG> actions;
  stack_t stack;
} before;

// The handlers' own stack: the program's may be what has overflowed.
char handlerStack[1 << 16];

// ---- The terminal: safe in a signal handler -----------------------------------------------------

void applyChange() {
  if (!isInForeground(loan.fd) || tcgetattr(loan.fd, &loan.changed) == -1) return;
  loan.change(loan.changed);
  loan.taken = 1;  // before it is true, for a signal can come in between
  tcsetattr(loan.fd, TCSANOW, &loan.changed);
}

// A pager that came later may have changed the terminal, too: then it gives it back.
bool isAsChanged() {
  termios now;
  return tcgetattr(loan.fd, &now) == 0 && now.c_iflag == loan.changed.c_iflag && now.c_lflag == loan.changed.c_lflag;
}

void giveBack() {
  if (loan.taken == 0) return;
  loan.taken = 0;
  if (!isInForeground(loan.fd)) return;
  if (isAsChanged()) tcsetattr(loan.fd, TCSANOW, &loan.settings);
  tcflush(loan.fd, TCIFLUSH);
}

// Whoever had the terminal meanwhile may have changed it. Where neither lines nor echo are on, another program has it
// now: a second one of ours, or a pager.
void takeBack() {
  termios now;
  if (loan.taken != 0 || !isInForeground(loan.fd) || tcgetattr(loan.fd, &now) == -1) return;
  if ((now.c_lflag & (ICANON | ECHO)) == 0) return;
  loan.settings = now;
  applyChange();
}

// ---- Signals ------------------------------------------------------------------------------------

void setDefaultAction(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// If the terminal takes nothing any more, a third Ctrl-C ends this, too.
void giveBackAndDie(int signal) {
  setDefaultAction(signal);
  if (loan.lastActs.before != nullptr) loan.lastActs.before();
  giveBack();
  if (loan.lastActs.after != nullptr) loan.lastActs.after();
  raise(signal);
}

void catchSignal(int signal, void (*handler)(int), int flags = SA_ONSTACK) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

void stop(int signal) {
  const int error = errno;
  giveBack();
  setDefaultAction(signal);
  raise(signal);
  catchSignal(signal, stop, SA_RESTART);
  takeBack();
  errno = error;
}

// After a stop that could not be caught, a shell has put the terminal back for itself.
void goOn(int /*signal*/) {
  const int error = errno;
  if (loan.taken != 0) {
    loan.taken = 0;
    applyChange();
  } else {
    takeBack();
  }
  errno = error;
}

// Whether a signal would end the program, as far as that can be caught and nothing else does: a sanitizer, a profiler.
bool ends(int signal) {
  switch (signal) {
    case SIGKILL:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
    case SIGCONT:
    case SIGCHLD:
    case SIGURG:
    case SIGWINCH: return false;
    default: return before.actions[static_cast<std::size_t>(signal)].sa_handler == SIG_DFL && !isStopRequest(signal);
  }
}

template <typename Action>
void forEachSignal(Action action) {
  for (int signal = 1; signal < NSIG; ++signal) action(signal);
}

void catchEnds() {
  stack_t stack = {};
  stack.ss_sp = handlerStack;
  stack.ss_size = sizeof handlerStack;
  sigaltstack(&stack, &before.stack);
  forEachSignal([](int signal) { sigaction(signal, nullptr, &before.actions[static_cast<std::size_t>(signal)]); });
  forEachSignal([](int signal) {
    if (ends(signal)) catchSignal(signal, giveBackAndDie);
  });
  onSecondStopRequest(giveBackAndDie);
}

void leaveEnds() {
  onSecondStopRequest(SIG_DFL);
  forEachSignal([](int signal) {
    if (!isStopRequest(signal)) sigaction(signal, &before.actions[static_cast<std::size_t>(signal)], nullptr);
  });
  sigaltstack(&before.stack, nullptr);
}

}  // namespace

// Without job control, a terminal has no foreground: a shell on the console of a small system has none.
bool isInForeground(int fd) {
  const pid_t group = tcgetpgrp(fd);
  return group == getpgrp() || (group == -1 && errno == ENOTTY);
}

TerminalLoan::TerminalLoan(int fd) {
  loan.fd = fd;
  loan.change = nullptr;
  tcgetattr(fd, &loan.settings);
}

TerminalLoan::~TerminalLoan() {
  giveBack();
  if (loan.change != nullptr) leaveEnds();
}

void TerminalLoan::take(void (*change)(termios&), const LastActs& lastActs) {
  prepare(change, lastActs);
  applyChange();
}

void TerminalLoan::prepare(void (*change)(termios&), const LastActs& lastActs) {
  loan.change = change;
  loan.lastActs = lastActs;
  catchEnds();
}

void TerminalLoan::followStops() {
  if (before.actions[SIGTSTP].sa_handler != SIG_IGN) catchSignal(SIGTSTP, stop, SA_RESTART);
  followContinuations();
}

void TerminalLoan::followContinuations() { catchSignal(SIGCONT, goOn, SA_RESTART); }

// The handlers do the same, and must not come in between.
void TerminalLoan::takeAgain() {
  sigset_t stops;
  sigset_t mask;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTSTP);
  sigaddset(&stops, SIGCONT);
  sigprocmask(SIG_BLOCK, &stops, &mask);
  takeBack();
  sigprocmask(SIG_SETMASK, &mask, nullptr);
}

bool TerminalLoan::isTaken() const { return loan.taken != 0; }

}  // namespace quarlo::tools
