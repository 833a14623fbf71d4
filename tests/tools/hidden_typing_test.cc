// What is typed at the terminal while `record` or `monitor` runs, and how they leave the terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/tools/daemon.h"
#include "tests/tools/program.h"
#include "tests/tools/tmux.h"

namespace quarlo::tools {
namespace {

class HiddenTypingTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasTmux()) GTEST_SKIP() << "there is no tmux (package tmux)";
    terminal_ = std::make_unique<Tmux>(folder_);
    terminal_->enter("stty -g >" + folder_.path("before") + "; cd " + folder_.path() + "; clear");
    ASSERT_TRUE(terminal_->waitUntilGone("stty"));
    tty_ = open(terminal_->tty().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  }

  void TearDown() override { close(tty_); }

  // The command line of the program, which leaves its process id behind. `command` is record or monitor.
  std::string commandLine(const std::string& command) const {
    const std::string output = command == "record" ? " -o session" : "";
    return "sh -c 'echo $$ >pid; exec " QUARLO_PROGRAM " " + command + " --mouse none --keyboard none --lirc lircd" +
           output + "'";
  }

  void start(const std::string& command, const std::string& end = "; echo status $?") {
    terminal_->enter(commandLine(command) + end);
    ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
    ASSERT_TRUE(waitForEcho(false));
  }

  // Has the daemon go away, whose client there must be.
  void loseSource() {
    daemon_.send("0 00 KEY_OK tv\n");
    daemon_.hangUp();
  }

  termios settings() const {
    termios settings = {};
    EXPECT_EQ(tcgetattr(tty_, &settings), 0);
    return settings;
  }

  // Whether what is typed shows.
  bool hasEcho() const { return (settings().c_lflag & ECHO) != 0; }

  // Waits until what is typed shows, or shows no more. Returns whether it came to that.
  bool waitForEcho(bool wanted) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (hasEcho() != wanted && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return hasEcho() == wanted;
  }

  void signal(int number) const {
    int pid = 0;
    std::ifstream(folder_.path("pid")) >> pid;
    ASSERT_EQ(kill(pid, number), 0);
  }

  // What a shell would run, and would show.
  void typeSecret() const {
    terminal_->enter("touch hunter2");
    terminal_->enter("");
  }

  // After the end: the terminal is as it was, and the shell got nothing of what was typed.
  void expectSecretKept(int status) const {
    ASSERT_TRUE(terminal_->waitFor("status " + std::to_string(status)));
    expectSettingsAsBefore();
    EXPECT_FALSE(std::filesystem::exists(folder_.path("hunter2")));
    for (const std::string& row : terminal_->rows()) EXPECT_EQ(row.find("hunter2"), std::string::npos) << row;
  }

  void expectHiddenUntilASourceIsLost() {
    ASSERT_TRUE(waitForEcho(false));
    typeSecret();
    loseSource();
    expectSecretKept(1);
  }

  bool contains(const std::string& file, const std::string& text) const { return countOf(file, text) > 0; }

  // How many lines of the file have the text.
  int countOf(const std::string& file, const std::string& text) const {
    std::ifstream content(folder_.path(file));
    int count = 0;
    for (std::string line; std::getline(content, line);) count += line.find(text) != std::string::npos ? 1 : 0;
    return count;
  }

  void expectSettingsAsBefore() const {
    terminal_->enter("stty -g | cmp - before && echo 'settings 'same");
    EXPECT_TRUE(terminal_->waitFor("settings same"));
  }

  Folder folder_;
  Daemon daemon_{folder_.path("lircd")};
  std::unique_ptr<Tmux> terminal_;
  int tty_ = -1;
};

class CommandTest : public HiddenTypingTest, public testing::WithParamInterface<std::string> {};

TEST_P(CommandTest, WhatIsTypedUntilASourceIsLostReachesNoShell) {
  start(GetParam());
  expectHiddenUntilASourceIsLost();
}

TEST_P(CommandTest, WhatIsTypedUntilCtrlCReachesNoShell) {
  start(GetParam());
  daemon_.send("0 00 KEY_OK tv\n");
  typeSecret();
  terminal_->press("C-c");
  expectSecretKept(0);
}

// Nothing else wakes it meanwhile: of a button that the reader does not know, nothing becomes due.
TEST_P(CommandTest, CtrlCEndsItHoweverMuchWasTyped) {
  start(GetParam());
  daemon_.send("0 00 KEY_UNKNOWN tv\n");
  constexpr int kMoreThanATerminalKeeps = 6000;
  terminal_->enter(std::string(kMoreThanATerminalKeeps, 'x'));
  terminal_->press("C-c");
  EXPECT_TRUE(terminal_->waitFor("status 0"));
}

TEST_P(CommandTest, AStopGivesTheTerminalBackAndGoingOnTakesIt) {
  start(GetParam(), "");
  terminal_->press("C-z");
  ASSERT_TRUE(terminal_->waitFor("Stopped"));
  expectSettingsAsBefore();
  terminal_->enter("clear; fg; echo status $?");
  expectHiddenUntilASourceIsLost();
}

// It gets no signal then, and the daemon sends nothing.
TEST_P(CommandTest, WhatBashBringsToTheForegroundHides) {
  terminal_->enter("exec bash --norc --noediting");
  terminal_->enter("PS1='$ '; clear; " + commandLine(GetParam()) + " >out &");
  while (!contains("out", "Ctrl-C ends.")) std::this_thread::yield();
  ASSERT_TRUE(waitForEcho(true));
  terminal_->enter("fg; echo status $?");
  expectHiddenUntilASourceIsLost();
}

INSTANTIATE_TEST_SUITE_P(HiddenTyping, CommandTest, testing::Values("record", "monitor"),
                         [](const auto& test) { return test.param; });

TEST_F(HiddenTypingTest, GoingOnAfterAStopThatCannotBeCaughtHidesAgain) {
  start("record", "");
  signal(SIGSTOP);
  ASSERT_TRUE(terminal_->waitFor("Stopped"));
  terminal_->enter("stty $(cat before)");
  ASSERT_TRUE(waitForEcho(true));
  terminal_->enter("fg; echo status $?");
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, InTheBackgroundTheTerminalIsTheShells) {
  terminal_->enter(commandLine("monitor") + " >out &");
  while (!std::filesystem::exists(folder_.path("pid"))) std::this_thread::yield();
  terminal_->enter("echo typed 'at the shell'");
  EXPECT_TRUE(terminal_->waitFor("typed at the shell"));
  EXPECT_TRUE(waitForEcho(true));
  terminal_->enter("clear; fg; echo status $?");
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, OfTwoAtOnceTheSecondHidesWhenTheFirstHasEnded) {
  const std::string first = QUARLO_PROGRAM " record --mouse none --keyboard none --lirc other -o first";
  Daemon other(folder_.path("other"));
  terminal_->enter("sh -c '" + first + " >out & until grep -q Ctrl-C out; do :; done; " +
                   commandLine("record").substr(std::string("sh -c '").size()) + "; echo status $?");
  ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
  ASSERT_TRUE(waitForEcho(false));
  other.send("0 00 KEY_OK tv\n");
  other.hangUp();
  while (!contains("out", "Recorded for")) std::this_thread::yield();
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, ARecordingHidesBeforeItSaysHowItEnds) {
  terminal_->enter(commandLine("record"));
  ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
  EXPECT_FALSE(hasEcho());
}

// A pager does that, and gives the terminal back itself.
TEST_F(HiddenTypingTest, WhatAnotherProgramMakesOfTheTerminalMeanwhileStays) {
  start("record");
  termios others = settings();
  others.c_lflag |= ECHO;
  ASSERT_EQ(tcsetattr(tty_, TCSANOW, &others), 0);
  daemon_.send("0 00 KEY_OK tv\n");
  while (!contains("session/remote.lirc", "KEY_")) std::this_thread::yield();
  EXPECT_TRUE(hasEcho());
  daemon_.hangUp();
  ASSERT_TRUE(terminal_->waitFor("status 1"));
  EXPECT_EQ(settings().c_lflag, others.c_lflag);
}

TEST_F(HiddenTypingTest, ATerminalThatGivesNothingAtOnceIsNotTakenForOneThatIsGone) {
  terminal_->enter("stty min 0; stty -g >before");
  start("record");
  daemon_.send("0 00 KEY_OK tv\n");
  while (!contains("session/remote.lirc", "KEY_OK")) std::this_thread::yield();
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, ASignalThatWasIgnoredIsIgnored) {
  terminal_->enter("trap '' USR1");
  start("record");
  signal(SIGUSR1);
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, AProgramThatReadsSomethingElseHidesToo) {
  start("record", " </dev/null; echo status $?");
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, AProgramThatSharesATerminalThatControlsNobodyHidesToo) {
  terminal_->enter("setsid -w sh -c \"" + commandLine("record") + "; echo status \\$?\"");
  ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
  expectHiddenUntilASourceIsLost();
}

TEST_F(HiddenTypingTest, AProgramWithASessionOfItsOwnLeavesTheTerminalAlone) {
  terminal_->enter("setsid " QUARLO_PROGRAM " record --mouse none --keyboard none --lirc lircd -o session &");
  ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
  terminal_->enter("echo typed 'at the shell'");
  EXPECT_TRUE(terminal_->waitFor("typed at the shell"));
  EXPECT_TRUE(waitForEcho(true));
  loseSource();
  EXPECT_TRUE(terminal_->waitFor("remote.lirc     1 line"));
}

TEST_F(HiddenTypingTest, ARecordingGoesOnWithoutItsTerminal) {
  terminal_->enter("trap '' HUP");
  start("record");
  terminal_.reset();
  for (int lines = 1; lines <= 2; ++lines) {
    daemon_.send("0 00 KEY_OK tv\n");
    while (countOf("session/remote.lirc", "KEY_OK") < lines) std::this_thread::yield();
  }
  signal(SIGTERM);
}

class DeathTest : public HiddenTypingTest, public testing::WithParamInterface<int> {};

TEST_P(DeathTest, LeavesTheTerminalAsItWas) {
  terminal_->enter("export ASAN_OPTIONS=handle_segv=0");
  start("record");
  typeSecret();
  signal(GetParam());
  expectSecretKept(128 + GetParam());
}

INSTANTIATE_TEST_SUITE_P(HiddenTyping, DeathTest,
                         testing::Values(SIGABRT, SIGSEGV, SIGQUIT, SIGUSR1, SIGUSR2, SIGIO, SIGPWR, SIGRTMIN));
}  // namespace
}  // namespace quarlo::tools
