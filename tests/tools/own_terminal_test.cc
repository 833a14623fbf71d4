// What is typed is thrown away: on a terminal of the test's own, from within the program.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/files.h"
#include "tools/common/hidden_typing.h"
#include "tools/common/stop_request.h"
#include "tools/common/terminal_loan.h"

namespace quarlo::tools {
namespace {

using test::openDescriptors;

// Runs `body` in a process of its own, whose failures are the test's.
template <typename Body>
void inAProcess(Body body) {
  std::fflush(nullptr);  // what is waiting would come twice
  const pid_t pid = fork();
  if (pid == 0) {
    catchStopRequests();
    body();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
  }
  int status = -1;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
}

// The terminal of a session that this process starts.
class PseudoTerminal {
 public:
  PseudoTerminal() {
    EXPECT_NE(setsid(), -1);
    EXPECT_EQ(grantpt(keyboard_), 0);
    EXPECT_EQ(unlockpt(keyboard_), 0);
    fd_ = open(ptsname(keyboard_), O_RDWR | O_CLOEXEC);
    EXPECT_NE(fd_, -1);
  }

  // Somebody types: it has arrived when this returns.
  void type(std::string_view text) const {
    EXPECT_EQ(write(keyboard_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    pollfd typed = {fd_, POLLIN, 0};
    EXPECT_EQ(poll(&typed, 1, -1), 1);
  }

  int typed() const {
    int count = -1;
    EXPECT_EQ(ioctl(fd_, FIONREAD, &count), 0);
    return count;
  }

  void hangUp() const { close(keyboard_); }

  termios settings() const {
    termios settings = {};
    EXPECT_EQ(tcgetattr(fd_, &settings), 0);
    return settings;
  }

  void set(const termios& settings) const { EXPECT_EQ(tcsetattr(fd_, TCSANOW, &settings), 0); }

  bool hasEcho() const { return (settings().c_lflag & ECHO) != 0; }

  void becomeStandardInput() const { EXPECT_EQ(dup2(fd_, STDIN_FILENO), STDIN_FILENO); }

  // Also from the background.
  void bringToForeground(pid_t group) const {
    std::signal(SIGTTOU, SIG_IGN);
    EXPECT_EQ(tcsetpgrp(fd_, group), 0);
  }

 private:
  int keyboard_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  int fd_;
};

TEST(OwnTerminal, GivesNothingOfWhatIsTyped) {
  inAProcess([] {
    const PseudoTerminal terminal;
    HiddenTyping typing;
    EXPECT_FALSE(terminal.hasEcho());
    for (const std::string_view text : {"hunter2\n", "x"}) {
      terminal.type(text);
      typing.discard();
      EXPECT_EQ(terminal.typed(), 0);
    }
    typing.discard();
    EXPECT_NE(typing.descriptor(), -1);
    EXPECT_EQ(typing.limited(-1), -1);
    EXPECT_EQ(typing.limited(1000), 1000);
  });
}

TEST(OwnTerminal, GivesSingleCharactersAtOnce) {
  inAProcess([] {
    const PseudoTerminal terminal;
    termios settings = terminal.settings();
    settings.c_cc[VMIN] = 2;
    settings.c_cc[VTIME] = 3;
    terminal.set(settings);
    const HiddenTyping typing;
    EXPECT_EQ(terminal.settings().c_cc[VMIN], 1);
    EXPECT_EQ(terminal.settings().c_cc[VTIME], 0);
  });
}

TEST(OwnTerminal, IsAsItWasAfterwards) {
  inAProcess([] {
    const PseudoTerminal terminal;
    const auto before = openDescriptors();
    { const HiddenTyping typing; }
    EXPECT_TRUE(terminal.hasEcho());
    EXPECT_EQ(openDescriptors(), before);
  });
}

TEST(OwnTerminal, IsNotWaitedForWhenItIsGone) {
  inAProcess([] {
    std::signal(SIGHUP, SIG_IGN);
    sigset_t goingOn;  // which comes with SIGHUP, at any time
    sigemptyset(&goingOn);
    sigaddset(&goingOn, SIGCONT);
    sigprocmask(SIG_BLOCK, &goingOn, nullptr);
    const PseudoTerminal terminal;
    const auto before = openDescriptors();
    {
      HiddenTyping typing;
      terminal.hangUp();
      errno = EAGAIN;  // of something before
      typing.discard();
      EXPECT_EQ(typing.descriptor(), -1);
      EXPECT_EQ(typing.limited(-1), -1);
      EXPECT_EQ(openDescriptors(), before - 1);
      typing.discard();
    }
    EXPECT_EQ(openDescriptors(), before - 1);
  });
}

TEST(OwnTerminal, IsTakenWhenTheProgramComesToTheForeground) {
  inAProcess([] {
    const PseudoTerminal terminal;
    inAProcess([&terminal] {
      ASSERT_EQ(setpgid(0, 0), 0);
      HiddenTyping typing;
      EXPECT_TRUE(terminal.hasEcho());
      EXPECT_EQ(typing.descriptor(), -1);
      for (const int timeoutMs : {-1, 1000, 251, 250}) EXPECT_EQ(typing.limited(timeoutMs), 250);
      EXPECT_EQ(typing.limited(249), 249);
      typing.discard();
      EXPECT_EQ(typing.descriptor(), -1);
      terminal.bringToForeground(getpgrp());
      typing.discard();
      EXPECT_FALSE(terminal.hasEcho());
      EXPECT_NE(typing.descriptor(), -1);
      EXPECT_EQ(typing.limited(-1), -1);
    });
  });
}

TEST(OwnTerminal, IsTakenWhenTheProgramGoesOnInTheForeground) {
  inAProcess([] {
    const PseudoTerminal terminal;
    const pid_t shell = getpgrp();
    inAProcess([&terminal, shell] {
      ASSERT_EQ(setpgid(0, 0), 0);
      const HiddenTyping typing;
      raise(SIGCONT);
      EXPECT_TRUE(terminal.hasEcho());
      terminal.bringToForeground(getpgrp());
      raise(SIGCONT);
      EXPECT_FALSE(terminal.hasEcho());
      terminal.bringToForeground(shell);
      raise(SIGCONT);
      EXPECT_EQ(typing.descriptor(), -1);
    });
  });
}

TEST(OwnTerminal, StaysTakenWhateverSignalMeansNothing) {
  inAProcess([] {
    const PseudoTerminal terminal;
    terminal.becomeStandardInput();
    TerminalLoan loan(STDIN_FILENO);
    loan.take([](termios& settings) { settings.c_lflag &= ~static_cast<tcflag_t>(ECHO); });
    for (const int signal : {SIGCHLD, SIGCONT, SIGURG, SIGWINCH}) {
      raise(signal);
      EXPECT_TRUE(loan.isTaken() && !terminal.hasEcho()) << signal;
    }
  });
}

// What each signal does, and where handlers have their stack.
auto reactions() {
  std::vector<void (*)(int)> handlers;
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    handlers.push_back(action.sa_handler);
  }
  stack_t stack = {};
  EXPECT_EQ(sigaltstack(nullptr, &stack), 0);
  return std::pair(handlers, stack.ss_sp);
}

TEST(OwnTerminal, LeavesSignalsAsTheyWere) {
  inAProcess([] {
    const PseudoTerminal terminal;
    terminal.becomeStandardInput();
    std::signal(SIGUSR1, SIG_IGN);
    std::signal(SIGTSTP, SIG_IGN);
    const auto before = reactions();
    { const TerminalLoan notTaken(STDIN_FILENO); }
    EXPECT_EQ(reactions(), before);
    {
      const HiddenTyping typing;
      EXPECT_NE(reactions().first, before.first);
      EXPECT_NE(reactions().second, before.second);
      for (const int ignored : {SIGUSR1, SIGTSTP})
        EXPECT_EQ(reactions().first[static_cast<std::size_t>(ignored) - 1], SIG_IGN);
    }
    EXPECT_EQ(reactions(), before);
  });
}

// Where the acts below say whether what is typed shows.
int actsFd = -1;

void sayWhetherItShows() {
  termios settings = {};
  tcgetattr(STDIN_FILENO, &settings);
  EXPECT_EQ(write(actsFd, (settings.c_lflag & ECHO) != 0 ? "s" : "h", 1), 1);
}

TEST(OwnTerminal, IsGivenBackBetweenTheLastActsOfAProgramThatASignalEnds) {
  inAProcess([] {
    const PseudoTerminal terminal;
    terminal.becomeStandardInput();
    int acts[2];
    ASSERT_EQ(pipe2(acts, O_CLOEXEC), 0);
    actsFd = acts[1];
    const pid_t pid = fork();
    if (pid == 0) {
      TerminalLoan loan(STDIN_FILENO);
      loan.take([](termios& settings) { settings.c_lflag &= ~static_cast<tcflag_t>(ECHO); },
                {sayWhetherItShows, sayWhetherItShows});
      raise(SIGUSR1);
      _exit(EXIT_SUCCESS);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGUSR1) << status;
    std::string said(2, '\0');
    EXPECT_EQ(read(acts[0], said.data(), said.size()), 2);
    EXPECT_EQ(said, "hs");
    EXPECT_TRUE(terminal.hasEcho());
  });
}

TEST(OwnTerminal, NeedNotBe) {
  inAProcess([] {
    EXPECT_NE(setsid(), -1);
    HiddenTyping typing;
    typing.discard();
    EXPECT_EQ(typing.descriptor(), -1);
    EXPECT_EQ(typing.limited(-1), -1);
  });
}

}  // namespace
}  // namespace quarlo::tools
