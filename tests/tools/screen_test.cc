// `monitor --tui` in a terminal: what it shows, and how it leaves the terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>
#include <thread>

#include "tests/tools/daemon.h"
#include "tests/tools/program.h"
#include "tests/tools/tmux.h"

namespace quarlo::tools {
namespace {

using Rows = std::vector<std::string>;

class ScreenTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!hasTmux()) GTEST_SKIP() << "there is no tmux (package tmux)";
  }

  // Has a shell in a terminal run the program with these arguments, and waits for its screen.
  void startWith(const std::string& arguments, const std::string& environment = "LC_ALL=C.UTF-8") {
    terminal_.emplace(folder_, environment);
    terminal_->enter("stty -g >" + folder_.path("before") + "; echo earlier");
    ASSERT_TRUE(terminal_->waitFor("\nearlier"));
    // A sanitizer's look for leaks at the end spins for good if the terminal hangs up meanwhile.
    terminal_->enter("sh -c 'echo $$ >" + folder_.path("pid") +
                     "; exec env LSAN_OPTIONS=detect_leaks=0 " QUARLO_PROGRAM " monitor --tui " + arguments +
                     "'; echo status $?");
    ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends "));
  }

  // The same, with a mouse, a keyboard and a remote.
  void start(const std::string& more = "", const std::string& environment = "LC_ALL=C.UTF-8") {
    startWith("--mouse " + mousePath_ + " --keyboard " + keyboardPath_ + " --lirc " + socket_ + " " + more,
              environment);
  }

  int pid() const {
    int pid = 0;
    std::ifstream(folder_.path("pid")) >> pid;
    return pid;
  }

  // Sends a signal, and waits until it was taken.
  void signal(int number) const {
    ASSERT_EQ(kill(pid(), number), 0);
    while (hasPendingSignal()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  bool hasPendingSignal() const {
    std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("ShdPnd:", 0) == 0) return line.find_first_not_of("0\t", 7) != std::string::npos;
    }
    return false;
  }

  // After the end: the shell's lines are back, the terminal has its settings, and the shell takes commands.
  void expectTerminalAsBefore(int status) const {
    ASSERT_TRUE(terminal_->waitFor("status " + std::to_string(status) + "\n"));
    EXPECT_TRUE(terminal_->waitFor("\nearlier"));
    EXPECT_FALSE(shows("quarlo-input monitor  "));
    terminal_->enter("stty -g | cmp - " + folder_.path("before") + " && echo 'settings 'same");
    EXPECT_TRUE(terminal_->waitFor("settings same"));
  }

  bool shows(const std::string& text) const {
    std::string all;
    for (const std::string& row : terminal_->rows()) all += row + "\n";
    return all.find(text) != std::string::npos;
  }

  Folder folder_;
  std::string mousePath_ = folder_.path("mouse");
  std::string keyboardPath_ = folder_.path("keyboard");
  std::string socket_ = folder_.path("lircd");
  Fifo mouse_{mousePath_};
  Fifo keyboard_{keyboardPath_};
  Daemon daemon_{socket_};
  std::optional<Tmux> terminal_;
};

TEST_F(ScreenTest, ShowsTheSources) {
  startWith("--mouse none --keyboard " + folder_.path("nothing") + " --lirc " + socket_);
  const Rows rows = terminal_->rows();
  EXPECT_EQ(rows[2], " mouse      left out");
  EXPECT_EQ(rows[3],
            (" keyboard   not open  " + folder_.path("nothing") + ": No such file or directory").substr(0, 79));
  EXPECT_EQ(rows[4], " remote     open      " + socket_);
}

TEST_F(ScreenTest, ShowsThePointerInItsBoxAndTheTrailOfADrag) {
  start();
  mouse_.send({{EV_REL, REL_X, 640}, {EV_REL, REL_Y, 540}});
  ASSERT_TRUE(terminal_->waitFor(" pointer    640,540"));
  EXPECT_TRUE(shows(" │         +                  │"));
  mouse_.send({{EV_KEY, BTN_LEFT, 1}});
  mouse_.send({{EV_REL, REL_X, 640}});
  ASSERT_TRUE(terminal_->waitFor(" pointer    1280,540"));
  EXPECT_TRUE(shows(" button    [left] middle  right"));
  EXPECT_TRUE(shows(" at 640,540"));
  EXPECT_TRUE(shows(" │         *********L         │"));
  mouse_.send({{EV_KEY, BTN_LEFT, 0}});
  ASSERT_TRUE(terminal_->waitFor(" button     left  middle  right"));
  EXPECT_TRUE(shows(" │         *********+         │"));
}

TEST_F(ScreenTest, TheBoundsAreThoseOfTheSize) {
  start("--size 800x600");
  EXPECT_TRUE(shows(" 800x600 "));
  mouse_.send({{EV_REL, REL_X, 5000}, {EV_REL, REL_Y, 5000}});
  EXPECT_TRUE(terminal_->waitFor(" pointer    799,599"));
}

TEST_F(ScreenTest, ShowsHeldModifiersAndTheLastEvents) {
  start();
  keyboard_.send({{EV_KEY, KEY_LEFTSHIFT, 1}});
  keyboard_.send({{EV_KEY, KEY_NUMLOCK, 1}});
  keyboard_.send({{EV_KEY, KEY_Q, 1}});
  ASSERT_TRUE(terminal_->waitFor("  keyboard  key down    Q               'Q'  shift\n"));
  EXPECT_TRUE(shows(" modifiers  ctrl [shift] alt [num lock]"));
  EXPECT_TRUE(shows("  keyboard  key down    NumLock              shift\n"));
  keyboard_.send({{EV_KEY, KEY_LEFTSHIFT, 0}});
  EXPECT_TRUE(terminal_->waitFor(" modifiers  ctrl  shift  alt [num lock]"));
}

TEST_F(ScreenTest, ShowsTheRemoteHeldThenRepeatingThenIdle) {
  start("", "LC_ALL=C.UTF-8 LIRC_RELEASE_TIMEOUT=1000 LIRC_REPEAT_TIMEOUT=1000");
  EXPECT_TRUE(shows(" remote     idle"));
  daemon_.send("0 00 KEY_VOLUMEUP myremote\n");
  ASSERT_TRUE(terminal_->waitFor(" remote     held, skips 1000 ms"));
  EXPECT_TRUE(shows(" key        VolumeUp"));
  EXPECT_TRUE(terminal_->waitFor(".|-"));
  EXPECT_TRUE(terminal_->waitFor(" remote     repeating, skips 1000 ms"));
  EXPECT_TRUE(terminal_->waitFor("-="));
  EXPECT_TRUE(terminal_->waitFor(" remote     idle"));
  EXPECT_TRUE(terminal_->waitFor("=.."));
}

TEST_F(ScreenTest, ASourceThatIsGoneIsShownAndTheOthersGoOn) {
  start();
  daemon_.send("0 00 KEY_UP myremote\n");
  ASSERT_TRUE(terminal_->waitFor("key down    Up"));
  daemon_.hangUp();
  ASSERT_TRUE(terminal_->waitFor(" remote     gone      " + socket_));
  mouse_.close();
  ASSERT_TRUE(terminal_->waitFor(" mouse      gone      " + mousePath_));
  keyboard_.send({{EV_KEY, KEY_DOWN, 1}});
  ASSERT_TRUE(terminal_->waitFor("key down    Down"));
  keyboard_.close();
  expectTerminalAsBefore(1);
  EXPECT_TRUE(shows("quarlo-input: no source is left"));
}

TEST_F(ScreenTest, FollowsTheSizeOfTheTerminal) {
  start();
  terminal_->resize(59, 24);
  ASSERT_TRUE(terminal_->waitFor("It is 59x24 and must be 60x16."));
  terminal_->resize(132, 43);
  ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends "));
  ASSERT_TRUE(terminal_->waitUntilGone("must be"));
  EXPECT_EQ(terminal_->rows()[42].find(" Ctrl-C ends "), 0U);
  EXPECT_EQ(terminal_->rows()[42].size(), 131U);
}

TEST_F(ScreenTest, TheLogIsAmongTheEvents) {
  start("-vv");
  terminal_->resize(80, 43);  // room for all that comes of it
  daemon_.send("0 00 KEY_UP " + kHostile + "\n");
  EXPECT_TRUE(terminal_->waitFor("VERBOSE2 LIRC string: 0 00 KEY_UP " + kHostileEscaped.substr(0, 10)));
  EXPECT_TRUE(terminal_->waitFor("VERBOSE10 LIRC timeout 300ms."));
  EXPECT_TRUE(shows(" mouse      open      "));
}

TEST_F(ScreenTest, ARecordWithoutAnEventIsNotShown) {
  start();
  mouse_.send({{EV_KEY, BTN_SIDE, 1}});
  mouse_.send({{EV_REL, REL_X, 1}});
  ASSERT_TRUE(terminal_->waitFor("  mouse     mouse move  1,0\n"));
  EXPECT_FALSE(shows("no event"));
}

TEST_F(ScreenTest, ARecordWithoutAnEventIsShownWithV) {
  start("-v");
  mouse_.send({{EV_KEY, BTN_SIDE, 1}});
  EXPECT_TRUE(terminal_->waitFor("  mouse     no event    BTN_SIDE 275    EV_KEY, value 1\n"));
}

TEST_F(ScreenTest, NamesKeysAndButtonsThatTheReaderDoesNotKnow) {
  start();
  keyboard_.send({{EV_KEY, KEY_PLAYPAUSE, 1}});
  ASSERT_TRUE(terminal_->waitFor("  keyboard  key down    key 0           KEY_PLAYPAUSE 164\n"));
  daemon_.send("0 00 KEY_PLAYPAUSE myremote\n");
  EXPECT_TRUE(terminal_->waitFor("  remote    no event    KEY_PLAYPAUSE   an unknown button\n"));
}

TEST_F(ScreenTest, AWheelIsAmongTheEvents) {
  start();
  mouse_.send({{EV_REL, REL_WHEEL, 1}});
  EXPECT_TRUE(terminal_->waitFor("  wheel       up x1           0,0\n"));
}

TEST_F(ScreenTest, ShowsTheSameWithALoopThatPolls) {
  start("--loop poll");
  mouse_.send({{EV_REL, REL_X, 1}});
  ASSERT_TRUE(terminal_->waitFor("  unknown   mouse move  1,0\n"));
  daemon_.send("0 00 KEY_UP myremote\n");
  ASSERT_TRUE(terminal_->waitFor("key down    Up"));
  daemon_.hangUp();
  ASSERT_TRUE(terminal_->waitFor(" remote     gone      " + socket_));
  terminal_->press("C-c");
  expectTerminalAsBefore(0);
}

TEST_F(ScreenTest, EndsAfterTheCountWithTheSummary) {
  start("--count 1");
  keyboard_.send({{EV_KEY, KEY_UP, 1}});
  expectTerminalAsBefore(0);
  EXPECT_TRUE(shows("1 event in "));
}

TEST_F(ScreenTest, CtrlCEndsItAndWhatWasTypedReachesNoShell) {
  start();
  for (const std::string key : {"q", "e", "C-d", "C-z", "C-\\", "C-s", "C-v", "Enter", "r", "m"}) terminal_->press(key);
  terminal_->press("C-c");
  expectTerminalAsBefore(0);
  EXPECT_FALSE(shows("not found"));
  EXPECT_FALSE(shows("$ qe"));
}

TEST_F(ScreenTest, WhatIsTypedDoesNothingToTheScreen) {
  start("--count 1");
  terminal_->enter("never seen");
  for (const std::string key : {"C-z", "C-\\", "C-s"}) terminal_->press(key);
  terminal_->resize(100, 30);  // a screen that goes on follows it
  ASSERT_TRUE(terminal_->waitFor("remote: | key-down"));
  keyboard_.send({{EV_KEY, KEY_UP, 1}});
  expectTerminalAsBefore(0);
  EXPECT_FALSE(shows("never seen"));
}

TEST_F(ScreenTest, SignalsThatAskItToStopLeaveTheTerminalAsItWas) {
  start();
  signal(SIGTERM);
  expectTerminalAsBefore(0);
}

class CrashTest : public ScreenTest, public testing::WithParamInterface<int> {};

TEST_P(CrashTest, LeavesTheTerminalAsItWas) {
  start("", "LC_ALL=C.UTF-8 ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0");
  terminal_->enter("never seen");
  signal(GetParam());
  expectTerminalAsBefore(128 + GetParam());
  EXPECT_FALSE(shows("never seen"));
}

INSTANTIATE_TEST_SUITE_P(Screen, CrashTest, testing::Values(SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGQUIT));

// The terminal takes nothing, so that the program cannot come to its end.
TEST_F(ScreenTest, ASecondRequestToStopLeavesTheTerminalAsItWasToo) {
  start();
  const int tty = open(terminal_->tty().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(tcflow(tty, TCOOFF), 0);
  signal(SIGTERM);
  signal(SIGTERM);
  ASSERT_EQ(tcflow(tty, TCOON), 0);
  close(tty);
  expectTerminalAsBefore(128 + SIGTERM);
}

TEST_F(ScreenTest, IsStoppedAndContinuedLikeAnyProgram) {
  start();
  signal(SIGTSTP);
  ASSERT_TRUE(terminal_->waitFor("\nearlier"));
  terminal_->enter("fg");
  ASSERT_TRUE(terminal_->waitFor("remote: | key-down"));
  keyboard_.send({{EV_KEY, KEY_UP, 1}});
  ASSERT_TRUE(terminal_->waitFor("key down    Up"));
  terminal_->press("C-c");
  ASSERT_TRUE(terminal_->waitFor("\n1 event in "));
}

TEST_F(ScreenTest, AfterAStopThatCannotBeCaughtItHidesWhatIsTypedAgain) {
  start("--count 1");
  signal(SIGSTOP);
  ASSERT_TRUE(terminal_->waitFor("Stopped"));
  // As a shell does that puts the terminal back for itself.
  const int tty = open(terminal_->tty().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings = {};
  tcgetattr(tty, &settings);
  settings.c_lflag |= ICANON | ECHO;
  settings.c_iflag |= ICRNL;
  tcsetattr(tty, TCSANOW, &settings);
  terminal_->enter("fg");
  for (int i = 0; i < 3000 && (settings.c_lflag & ECHO) != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    tcgetattr(tty, &settings);
  }
  close(tty);
  ASSERT_EQ(settings.c_lflag & (ICANON | ECHO), 0U);
  terminal_->enter("never seen");
  keyboard_.send({{EV_KEY, KEY_UP, 1}});
  ASSERT_TRUE(terminal_->waitFor("\n1 event in "));
  EXPECT_FALSE(shows("never seen"));
}

class TerminalTypeTest : public ScreenTest, public testing::WithParamInterface<std::string> {};

TEST_P(TerminalTypeTest, ShowsTheSame) {
  start("", "LC_ALL=C TERM=" + GetParam());
  mouse_.send({{EV_KEY, BTN_RIGHT, 1}});
  ASSERT_TRUE(terminal_->waitFor(" button     left  middle [right]"));
  EXPECT_TRUE(shows(" 1920x1080 "));
  EXPECT_TRUE(shows(" mouse      open      " + mousePath_));
  terminal_->press("C-c");
  ASSERT_TRUE(terminal_->waitFor("\nstatus 0\n"));
}

INSTANTIATE_TEST_SUITE_P(Screen, TerminalTypeTest,
                         testing::Values("vt100", "xterm", "linux", "screen", "tmux-256color"),
                         [](const auto& test) { return test.param.substr(0, test.param.find('-')); });

TEST(Screen, NeedsATerminal) {
  const Result result = run({"monitor", "--tui"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quarlo-input: --tui needs a terminal, and standard output is not one; leave --tui out\n");
}

TEST(Screen, NeedsToKnowTheTerminal) {
  if (!hasTerminals()) GTEST_SKIP() << "no pseudo-terminals here: /dev/pts is not mounted";
  const auto error = [](const Arguments& launcher) {
    return run({"monitor", "--tui"}, Output::kTerminal, launcher).err;
  };
  EXPECT_EQ(error({"env", "-u", "TERM"}), "quarlo-input: TERM is not set, which says what the terminal is\n");
  EXPECT_EQ(error({"env", "TERM=un\x1bknown"}),
            "quarlo-input: TERM is un\\x1bknown, which is not known here; the package ncurses-term knows more "
            "terminals\n");
  EXPECT_EQ(error({"env", "TERM=dumb"}),
            "quarlo-input: TERM is dumb, a terminal that nothing can be drawn on; leave --tui out\n");
}

}  // namespace
}  // namespace quarlo::tools
