#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "tests/tools/daemon.h"
#include "tests/tools/program.h"
#include "tests/tools/tmux.h"

namespace quarlo::tools {
namespace {

const std::string kMark = "# quarlo-input session 2";
const std::string kMaskedComment =
    "# Keys and remote buttons that may type, modifiers and editing keys are recorded as A and 1 (--show-keycodes "
    "keeps "
    "them).\n";
const std::string kStarted = "Ctrl-C ends.\n";
const std::string kVolume = "0000000000f40bf0 00 KEY_VOLUMEUP tv\n";
const std::string kDigit = "0000000000f40bf1 00 KEY_5 tv\n";

class RecordTest : public testing::Test {
 protected:
  // The arguments of `record` with these sources.
  Arguments sources(const std::string& mouse, const std::string& keyboard, const std::string& lirc) const {
    return {"record", "--mouse", mouse, "--keyboard", keyboard, "--lirc", lirc, "-o", session_};
  }

  // The same with the remote only, or with more arguments.
  Arguments remote(const Arguments& more = {}) const {
    Arguments arguments = sources("none", "none", socket_);
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // Records what the daemon sends, until a stop is requested.
  Result record(const std::string& sent, const Arguments& more = {}, int signal = SIGINT) {
    Program program(remote(more));
    EXPECT_TRUE(program.waitFor(kStarted));
    daemon_.send(sent);
    program.signal(signal);
    return program.finish();
  }

  // The lines of the remote's file below its mark, without the times.
  std::string recorded() const {
    std::ifstream file(session_ + "/remote.lirc");
    std::string text;
    for (std::string line; std::getline(file, line);) {
      if (line == kMark) continue;
      text += (line.front() == '#' ? line : line.substr(line.find(' ') + 1)) + "\n";
    }
    return text;
  }

  bool hasSession() const { return std::filesystem::exists(session_); }

  Folder folder_;
  std::string session_ = folder_.path("session");
  std::string socket_ = folder_.path("lircd");
  Daemon daemon_{socket_};
};

TEST_F(RecordTest, WritesWhatCameBeforeItWasAskedToStop) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    daemon_.hangUp();
    std::filesystem::remove_all(session_);
    const Result result = record(kVolume + kVolume, {}, signal);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(recorded(), kMaskedComment + kVolume + kVolume);
  }
}

TEST_F(RecordTest, SaysWhatIsOpenAndInTheEndWhatItRecorded) {
  const std::vector<std::string> lines = linesOf(record(kVolume).out);
  ASSERT_EQ(lines.size(), 8U);
  EXPECT_EQ(lines[0], "Sources: mouse none, keyboard none, remote " + socket_);
  EXPECT_EQ(lines[1], "  mouse     left out");
  EXPECT_EQ(lines[2], "  keyboard  left out");
  EXPECT_EQ(lines[3], "  remote    " + socket_);
  EXPECT_EQ("# " + lines[4] + "\n", kMaskedComment);
  EXPECT_EQ(lines[5], "Recording to " + session_ + "; Ctrl-C ends.");
  EXPECT_EQ(lines[6].rfind("Recorded for ", 0), 0U);
  EXPECT_EQ(lines[7], "  remote.lirc     1 line");
}

TEST_F(RecordTest, CountsOnATerminalWhatHasCome) {
  if (!hasTerminals()) GTEST_SKIP() << "there are no pseudo-terminals here";
  Program program(remote(), Output::kTerminal);
  EXPECT_TRUE(program.waitFor("\rremote 0 lines"));
  daemon_.send(kVolume);
  EXPECT_TRUE(program.waitFor("\rremote 1 line"));
  daemon_.send(kDigit + kVolume);
  EXPECT_TRUE(program.waitFor("\rremote 3 lines"));
  program.signal(SIGINT);
  const std::string out = program.finish().out;
  EXPECT_EQ(out.substr(out.find("\rremote 3 lines"), out.find("Recorded") - out.find("\rremote 3 lines")),
            "\rremote 3 lines\r              \r");
}

class RecordOnATerminalTest : public RecordTest {
 protected:
  void SetUp() override {
    if (!hasTmux()) GTEST_SKIP() << "there is no tmux (package tmux)";
    terminal_ = std::make_unique<Tmux>(folder_);
    terminal_->enter("cd " + folder_.path() + "; clear");
    ASSERT_TRUE(terminal_->waitUntilGone("clear"));
  }

  void start(const std::string& end) const {
    terminal_->enter(QUARLO_PROGRAM " record --mouse none --keyboard none --lirc lircd -o session" + end);
    ASSERT_TRUE(terminal_->waitFor("Ctrl-C ends."));
  }

  bool shows(const std::string& row) const {
    const std::vector<std::string> rows = terminal_->rows();
    return std::find(rows.begin(), rows.end(), row) != rows.end();
  }

  std::unique_ptr<Tmux> terminal_;
};

TEST_F(RecordOnATerminalTest, ErrorsHaveARowOfTheirOwn) {
  start("");
  daemon_.send(kVolume);
  ASSERT_TRUE(terminal_->waitFor("remote 1 line"));
  daemon_.hangUp();
  ASSERT_TRUE(terminal_->waitFor("remote.lirc     1 line"));
  EXPECT_TRUE(shows("quarlo-input: the LIRC daemon has closed the connection; no source is left"));
  EXPECT_TRUE(terminal_->waitUntilGone("remote 1 line"));
}

TEST_F(RecordOnATerminalTest, GoesOnCountingAfterAStop) {
  start("");
  ASSERT_TRUE(terminal_->waitFor("remote 0 lines"));
  terminal_->press("C-z");
  ASSERT_TRUE(terminal_->waitFor("Stopped"));
  terminal_->enter("clear; fg");
  daemon_.send(kVolume);
  ASSERT_TRUE(terminal_->waitFor("remote 1 line"));
  EXPECT_TRUE(shows("remote 1 line"));
  terminal_->press("C-c");
  ASSERT_TRUE(terminal_->waitFor("remote.lirc     1 line"));
}

TEST_F(RecordOnATerminalTest, DoesNotCountBehindTheShellsLine) {
  start(" &");
  daemon_.send(kVolume);
  while (recorded() != kMaskedComment + kVolume) std::this_thread::yield();
  terminal_->enter("echo typed 'at the shell'");
  ASSERT_TRUE(terminal_->waitFor("typed at the shell"));
  for (const std::string& row : terminal_->rows()) EXPECT_EQ(row.find("remote 0 lines"), std::string::npos) << row;
  terminal_->enter("clear; fg");
  ASSERT_TRUE(terminal_->waitUntilGone("typed"));
  daemon_.send(kVolume);
  ASSERT_TRUE(terminal_->waitFor("remote 2 lines"));
  terminal_->press("C-c");
  ASSERT_TRUE(terminal_->waitFor("remote.lirc     2 lines"));
}

TEST_F(RecordTest, CanBeReplayed) {
  record(kVolume);
  EXPECT_EQ(eventsOf(run({"replay", session_}).out), std::vector<std::string>{"key down    VolumeUp"});
}

TEST_F(RecordTest, KeepsEachByteAndTheReplayGivesItToTheReader) {
  const std::string hostile(" \\x41 \x1b]0;x\x07 \x00KEY_\x9b \\tv\r", 24);
  record(hostile + "\n\n" + kVolume, {"--show-keycodes"});
  const std::string lines = recorded();
  EXPECT_EQ(lines.substr(lines.find('\n') + 1), R"(\x20\\x41 \x1b]0;x\x07 \x00KEY_\x9b \\tv\x0d)"
                                                "\n\n" +
                                                    kVolume);
  std::string taken;
  for (const std::string& line : linesOf(run({"replay", "-v", session_}).err)) {
    if (line.rfind("VERBOSE2 LIRC string:", 0) == 0) taken += line + "\n";
  }
  EXPECT_EQ(taken, R"(VERBOSE2 LIRC string:  \\x41 \x1b]0;x\x07 
VERBOSE2 LIRC string: \n
VERBOSE2 LIRC string: 0000000000f40bf0 00 KEY_VOLUMEUP tv\n
)");
}

TEST_F(RecordTest, HidesWhatWasTyped) {
  record(kDigit + "0000000000f40bf2 00 KEY_OK tv\n");
  EXPECT_EQ(recorded(), kMaskedComment + "0000000000000000 00 KEY_1 tv\n0000000000f40bf2 00 KEY_OK tv\n");
}

TEST_F(RecordTest, ShowsModifiersAndEditingButtonsWhenAskedTo) {
  const std::string shift = "0000000000f40bf3 00 KEY_LEFTSHIFT tv\n";
  record(kDigit + shift, {"--show-modifiers"});
  EXPECT_EQ(recorded(),
            "# Keys and remote buttons that may type are recorded as A and 1 (--show-keycodes keeps them).\n"
            "0000000000000000 00 KEY_1 tv\n" +
                shift);
}

TEST_F(RecordTest, KeepsWhatWasTypedForItsOwnerWhenAskedTo) {
  const Result result = record(kDigit, {"--show-keycodes"});
  const std::string warning = "Keys and remote buttons are recorded as they were pressed: this can show passwords.\n";
  EXPECT_EQ(recorded(), "# " + warning + kDigit);
  EXPECT_NE(result.out.find(warning), std::string::npos);
  struct stat status = {};
  ASSERT_EQ(stat(session_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(RecordTest, LetsNoOtherProcessReadItsMemoryWhileItHides) {
  chmod(folder_.path().c_str(), 0777);
  chmod(socket_.c_str(), 0777);
  for (const Arguments& options : {Arguments{}, Arguments{"--show-keycodes"}}) {
    Program program(remote(options), Output::kPipe, asNobody());
    ASSERT_TRUE(program.waitFor(kStarted));
    EXPECT_EQ(canReadMemory(program.pid()), !options.empty());
    program.signal(SIGINT);
    program.finish();
  }
}

TEST_F(RecordTest, WorksInADirectoryThatCannotBeListed) {
  chmod(folder_.path().c_str(), 0333);
  chmod(socket_.c_str(), 0777);
  Program program(remote(), Output::kPipe, asNobody());
  ASSERT_TRUE(program.waitFor(kStarted));
  daemon_.send(kVolume);
  program.signal(SIGINT);
  const Result result = program.finish();
  chmod(folder_.path().c_str(), 0755);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

TEST_F(RecordTest, ThatCannotStartAThreadSaysSo) {
  chmod(folder_.path().c_str(), 0777);
  chmod(socket_.c_str(), 0777);
  Arguments launcher = asNobody();
  // Who may nothing has to find the program all the same, which is perhaps below /root.
  if (!launcher.empty()) launcher.insert(launcher.end(), {"--inh-caps=+dac_override", "--ambient-caps=+dac_override"});
  // A sanitizer's look for leaks needs a process, too.
  launcher.insert(launcher.end(), {"prlimit", "--nproc=0", "env", "LSAN_OPTIONS=detect_leaks=0"});
  const Result result = run(remote({}), Output::kPipe, launcher);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("quarlo-input: a thread that waits for the disk cannot be started: Resource temporarily"),
            std::string::npos)
      << result.err;
}

TEST_F(RecordTest, LeavesNoCoreDumpWhileItHides) {
  const auto leavesCoreDump = [&](const Arguments& options) {
    Program program(remote(options), Output::kPipe,
                    {"sh", "-c", "cd \"$0\" && ulimit -c unlimited && exec \"$@\"", folder_.path()});
    EXPECT_TRUE(program.waitFor(kStarted));
    daemon_.send(kDigit);
    program.signal(SIGABRT);
    program.finish();
    daemon_.hangUp();
    std::filesystem::remove_all(session_);
    const std::filesystem::directory_iterator files(folder_.path());
    return std::any_of(begin(files), end(files),
                       [](const auto& file) { return file.path().filename().string().rfind("core", 0) == 0; });
  };
  EXPECT_FALSE(leavesCoreDump({}));
  if (!leavesCoreDump({"--show-keycodes"})) GTEST_SKIP() << "core dumps go elsewhere here, or nowhere";
}

TEST_F(RecordTest, KeepsWhatItHasWhenTheDaemonGoesAway) {
  Program program(remote());
  const std::string unfinished = "0000000000f40bf0 01 KEY_VOLUMEUP tv";  // no newline
  daemon_.send(kVolume + unfinished);
  daemon_.hangUp();
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: the LIRC daemon has closed the connection; no source is left\n");
  EXPECT_EQ(recorded(), kMaskedComment + kVolume + unfinished + "\n");
  EXPECT_EQ(linesOf(result.out).back(), "  remote.lirc     2 lines");
}

TEST_F(RecordTest, KeepsWhatCameWhenItIsKilled) {
  Program program(remote());
  daemon_.send(kVolume);
  while (recorded() != kMaskedComment + kVolume) std::this_thread::yield();
  program.signal(SIGKILL);
  EXPECT_EQ(program.finish().status, 128 + SIGKILL);
  EXPECT_EQ(run({"replay", session_}).status, 0);
}

TEST_F(RecordTest, GoesOnWhenNobodyReadsWhatItSays) {
  Program program(remote(), Output::kClosedPipe);
  daemon_.send(kVolume);
  while (recorded() != kMaskedComment + kVolume) std::this_thread::yield();
  daemon_.send(kVolume);
  program.signal(SIGINT);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(recorded(), kMaskedComment + kVolume + kVolume);
}

TEST_F(RecordTest, PrintsNothingIntoTheSessionWhenItsOutputIsClosed) {
  Program program(remote(), Output::kPipe, redirected(">&- 2>&-"));
  daemon_.send(kVolume);
  daemon_.hangUp();
  EXPECT_EQ(program.finish().status, 1);
  EXPECT_EQ(recorded(), kMaskedComment + kVolume);
}

TEST_F(RecordTest, EscapesWhatItSays) {
  session_ = folder_.path(kHostile);
  const Result result = record("0 00 KEY_OK " + kHostile + kVolume);
  EXPECT_NE(result.out.find("Recording to " + folder_.path(kHostileEscaped) + ";"), std::string::npos) << result.out;
  EXPECT_TRUE(isHarmless(result.out + result.err)) << result.out << result.err;
  const Result again = run(remote());
  EXPECT_EQ(again.err,
            "quarlo-input: " + folder_.path(kHostileEscaped) + " exists already: give another name, or remove it\n");
}

TEST_F(RecordTest, KeepsTheWholeLinesWhenTheDiskIsFull) {
  // A limit to the size of files is as good as a full disk.
  const std::size_t two =
      kMark.size() + 1 + kMaskedComment.size() + 2 * (std::string("0.000000 ").size() + kVolume.size());
  Program program(remote(), Output::kPipe, {"prlimit", "--fsize=" + std::to_string(two + 5)});
  daemon_.send(kVolume + kVolume + kVolume);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: " + session_ +
                            "/remote.lirc: File too large: the recording ends here, and what came before is kept\n");
  EXPECT_EQ(recorded(), kMaskedComment + kVolume + kVolume);
  EXPECT_EQ(linesOf(result.out).back(), "  remote.lirc     2 lines");
}

TEST_F(RecordTest, IsForThoseForWhomNewFilesAre) {
  const mode_t before = umask(027);
  record(kVolume);
  umask(before);
  struct stat status = {};
  EXPECT_EQ(stat((session_ + "/remote.lirc").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(RecordTest, SaysOnlyWhyNothingIsKept) {
  Program program(remote(), Output::kPipe, {"prlimit", "--fsize=10"});
  daemon_.send(kVolume);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "quarlo-input: " + session_ +
                "/remote.lirc: File too large: the recording ends here, and nothing of this file is kept\n");
}

TEST_F(RecordTest, EndsAfterItsDurationAndMakesNoSessionOfNothing) {
  const Result result = run(remote({"--duration", "0.1"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: nothing came from the remote, so there is no session\n");
  EXPECT_FALSE(hasSession());
}

TEST_F(RecordTest, CanWriteAtOnceAndGoOnInANextFile) {
  const Result result = record(kVolume, {"--sync", "--rotate"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(recorded(), kMaskedComment + kVolume);
}

TEST_F(RecordTest, NeverOverwrites) {
  const std::string file = folder_.write("file", "theirs");
  for (const std::string& existing : {file, folder_.path()}) {
    Arguments arguments = remote();
    arguments.back() = existing;
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "quarlo-input: " + existing + " exists already: give another name, or remove it\n");
  }
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  EXPECT_EQ(content.str(), "theirs");
}

TEST_F(RecordTest, RefusesWhatIsNoEvdevNode) {
  const Fifo fifo(folder_.path("fifo"));
  for (const std::string& path : {folder_.path("fifo"), folder_.write("file", ""), std::string("/dev/null")}) {
    for (const Arguments& arguments : {sources(path, "none", socket_), sources("none", path, socket_)}) {
      const Result result = run(arguments);
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.err,
                "quarlo-input: " + path + " is not an evdev node; `quarlo-input list` shows the nodes that exist\n");
    }
  }
  EXPECT_FALSE(hasSession());
}

TEST_F(RecordTest, RefusesAFurtherNodeThatIsNone) {
  const Fifo fifo(folder_.path("fifo"));
  for (const std::string& path : {folder_.path("fifo"), folder_.write("file", ""), std::string("/dev/null")}) {
    const Result result = run(remote({"--also", path}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "quarlo-input: " + path + " is not an evdev node; `quarlo-input list` shows the nodes that exist\n");
  }
  EXPECT_FALSE(hasSession());
}

TEST_F(RecordTest, GoesOnWithoutAFurtherNodeThatCannotBeOpened) {
  const Result result = record(kVolume, {"--also", folder_.path("nothing")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(linesOf(result.out).front(),
            "Sources: mouse none, keyboard none, remote " + socket_ + ", also " + folder_.path("nothing"));
  EXPECT_NE(result.out.find("  node 1    not open: " + folder_.path("nothing") + ": No such file or directory\n"),
            std::string::npos)
      << result.out;
}

TEST_F(RecordTest, GoesOnWithoutASourceThatCannotBeOpened) {
  Program program(sources(folder_.path("nothing"), "none", socket_));
  EXPECT_TRUE(program.waitFor(kStarted));
  daemon_.send(kVolume);
  program.signal(SIGINT);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("  mouse     not open: " + folder_.path("nothing") +
                            ": No such file or directory\n"
                            "            `quarlo-input list` shows the nodes that exist\n"),
            std::string::npos);
}

TEST_F(RecordTest, WithoutAnySourceFails) {
  const Result result = run(sources(folder_.path("nothing"), "none", folder_.path("nobody")));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: no source is open\n");
  EXPECT_FALSE(hasSession());
}

}  // namespace
}  // namespace quarlo::tools
