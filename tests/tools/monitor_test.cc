#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/tools/daemon.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

class MonitorTest : public testing::Test {
 protected:
  // The arguments of `monitor` with the mouse, or the keyboard, only.
  Arguments mouse(const Arguments& more = {}) const { return only("--mouse", "--keyboard", more); }
  Arguments keyboard(const Arguments& more = {}) const { return only("--keyboard", "--mouse", more); }

  Folder folder_;
  std::string path_ = folder_.path("node");
  Fifo node_{path_};

 private:
  Arguments only(const std::string& option, const std::string& other, const Arguments& more) const {
    Arguments arguments = {"monitor", option, path_, other, "none", "--lirc", "none"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
};

using Events = std::vector<std::string>;

const Arguments kPolling = {"--loop", "poll"};

TEST_F(MonitorTest, SaysWhatIsOpenPrintsTheEventsAndEndsAfterTheLastOneWanted) {
  node_.send({{EV_REL, REL_X, 5}, {EV_REL, REL_Y, 7}});
  node_.send({{EV_KEY, BTN_RIGHT, 0}});
  const Result result = run(mouse({"--count", "2"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const std::vector<std::string> lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 9U);
  EXPECT_EQ(lines[0], "Sources: mouse " + path_ + ", keyboard none, remote none");
  EXPECT_EQ(lines[1], "  mouse     " + path_);
  EXPECT_EQ(lines[2], "  keyboard  left out");
  EXPECT_EQ(lines[3], "  remote    left out");
  EXPECT_EQ(
      lines[4],
      "Keys that may type, modifiers and editing keys are shown as A, since this is not a terminal; --show-keycodes "
      "shows them.");
  EXPECT_EQ(lines[5], "seconds  source    event       key or button   character, modifiers; position");
  EXPECT_EQ(eventsOf(result.out), (Events{"mouse move  5,7", "mouse up    right x1        5,7"}));
  EXPECT_EQ(lines[8].rfind("2 events in ", 0), 0U);
  EXPECT_NE(lines[8].find(" s: 0 keys, 1 move, 1 button"), std::string::npos);
}

TEST_F(MonitorTest, LosesNothingOfABurst) {
  constexpr int kTaps = 300;
  for (int i = 0; i < kTaps; ++i) {
    node_.send({{EV_MSC, MSC_SCAN, 1}, {EV_KEY, KEY_UP, 1}});
    node_.send({{EV_KEY, KEY_UP, 0}});
  }
  const Result result = run(keyboard({"--count", std::to_string(2 * kTaps)}));
  Events expected;
  for (int i = 0; i < kTaps; ++i) {
    expected.push_back("key down    Up");
    expected.push_back("key up      Up");
  }
  EXPECT_EQ(eventsOf(result.out), expected);
}

TEST_F(MonitorTest, PrintsWheels) {
  node_.send({{EV_REL, REL_X, 5}, {EV_REL, REL_WHEEL, -1}, {EV_REL, REL_WHEEL_HI_RES, -120}});
  node_.send({{EV_REL, REL_HWHEEL, 2}});
  const Result result = run(mouse({"--count", "3"}));
  EXPECT_EQ(eventsOf(result.out),
            (Events{"mouse move  5,0", "wheel       down x1         5,0", "wheel       right x2        5,0"}));
  EXPECT_NE(result.out.find(" s: 0 keys, 1 move, 0 buttons, 2 wheels\n"), std::string::npos) << result.out;
}

TEST_F(MonitorTest, PrintsRecordsWithoutAnEventOnlyWhenAskedTo) {
  for (const std::string loop : {"wait", "poll"}) {
    for (const bool isVerbose : {false, true}) {
      node_.send({{EV_MSC, MSC_SCAN, 1}, {EV_KEY, BTN_SIDE, 1}});
      node_.send({{EV_KEY, BTN_LEFT, 1}});
      Arguments arguments = mouse({"--count", "1", "--loop", loop});
      if (isVerbose) arguments.emplace_back("-v");
      Events expected = {"mouse down  left x1         0,0"};
      if (isVerbose && loop == "poll") expected.insert(expected.begin(), "no event    a key or button");
      if (isVerbose && loop == "wait") {
        expected.insert(expected.begin(),
                        {"no event    MSC_SCAN 4      EV_MSC, value 0", "no event    BTN_SIDE 275    EV_KEY, value 1"});
      }
      EXPECT_EQ(eventsOf(run(arguments).out), expected) << loop;
    }
  }
}

TEST_F(MonitorTest, MasksWhatWasTypedWhereTheOutputIsNoTerminal) {
  node_.send({{EV_KEY, KEY_H, 1}});
  node_.send({{EV_KEY, KEY_KP7, 1}});
  node_.send({{EV_KEY, KEY_ENTER, 1}});
  EXPECT_EQ(
      eventsOf(run(keyboard({"--count", "3"})).out),
      (Events{"key down    A               'a'", "key down    A               'a'", "key down    Enter           13"}));
}

TEST_F(MonitorTest, ShowsModifiersThereWhenAskedTo) {
  node_.send({{EV_KEY, KEY_LEFTSHIFT, 1}});
  node_.send({{EV_KEY, KEY_H, 1}});
  const Result result = run(keyboard({"--count", "2", "--show-modifiers"}));
  EXPECT_EQ(eventsOf(result.out),
            (Events{"key down    Shift                shift", "key down    A               'A'  shift"}));
  EXPECT_NE(result.out.find("Keys that may type are shown as A, since this is not a terminal; "), std::string::npos);
}

TEST_F(MonitorTest, LetsNoOtherProcessReadItsMemoryWhileItHides) {
  chmod(folder_.path().c_str(), 0755);
  chmod(path_.c_str(), 0644);
  for (const Arguments& options : {Arguments{}, Arguments{"--show-keycodes"}}) {
    Program program(keyboard(options), Output::kPipe, asNobody());
    ASSERT_TRUE(program.waitFor("Ctrl-C ends."));
    EXPECT_EQ(canReadMemory(program.pid()), !options.empty());
    program.signal(SIGINT);
    program.finish();
  }
}

TEST_F(MonitorTest, ShowsWhatWasTypedWhenAskedTo) {
  node_.send({{EV_KEY, KEY_H, 1}});
  const Result result = run(keyboard({"--count", "1", "--show-keycodes"}));
  EXPECT_EQ(eventsOf(result.out), Events{"key down    H               'h'"});
  EXPECT_EQ(result.out.find("shown as A"), std::string::npos);
}

TEST_F(MonitorTest, ShowsWhatWasTypedOnATerminal) {
  if (!hasTerminals()) GTEST_SKIP() << "no pseudo-terminals here: /dev/pts is not mounted";
  node_.send({{EV_KEY, KEY_H, 1}});
  const Result result = run(keyboard({"--count", "1"}), Output::kTerminal);
  EXPECT_EQ(eventsOf(result.out), Events{"key down    H               'h'"});
}

TEST_F(MonitorTest, PrintsItsLegendOnceAndOnlyAboveEvents) {
  node_.send({{EV_KEY, KEY_UP, 1}});
  node_.send({{EV_KEY, KEY_UP, 0}});
  const std::string out = run(keyboard({"--count", "2"})).out;
  EXPECT_NE(out.find("\nseconds  source "), std::string::npos);
  EXPECT_EQ(out.find("\nseconds  source "), out.rfind("\nseconds  source "));
  Program program(keyboard());
  ASSERT_TRUE(program.waitFor("Ctrl-C ends."));
  program.signal(SIGINT);
  EXPECT_EQ(program.finish().out.find("seconds  source "), std::string::npos);
}

// What follows a time of day of this zone.
std::string afterClock(const std::string& text) {
  const std::string zone = "+05:30";
  const std::string form = "2026-11-23T04:46:05.301";
  const std::size_t end = text.find(zone);
  EXPECT_EQ(end, form.size()) << text;
  for (const std::size_t at : {4U, 7U, 10U, 13U, 16U, 19U}) EXPECT_EQ(text[at], form[at]) << text;
  return end == std::string::npos ? "" : text.substr(end + zone.size());
}

TEST_F(MonitorTest, PrintsTheTimeOfDayWhenAskedTo) {
  const Arguments inZone = {"env", "TZ=IST-5:30"};
  node_.send({{EV_KEY, KEY_UP, 1}});
  const std::vector<std::string> lines = linesOf(run(keyboard({"--count", "1", "--clock"}), Output::kPipe, inZone).out);
  EXPECT_EQ(lines[5].rfind("time of day                    source    event ", 0), 0U) << lines[5];
  EXPECT_EQ(afterClock(lines[6]), "  keyboard  key down    Up");

  node_.send({{EV_KEY, KEY_UP, 0}});
  const Result json = run(keyboard({"--count", "1", "--clock", "--json"}), Output::kPipe, inZone);
  for (const std::string& line : linesOf(json.out)) {
    EXPECT_EQ(afterClock(nlohmann::json::parse(line)["clock"].get<std::string>()), "");
  }
}

TEST_F(MonitorTest, GivesJsonOnlyOfTheSourcesAndEvents) {
  node_.send({{EV_KEY, KEY_ENTER, 1}});
  const Result result = run(keyboard({"--count", "1", "--json"}));
  EXPECT_EQ(result.status, 0);
  const std::vector<std::string> lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(nlohmann::json::parse(lines[0])["kind"], "start");
  auto event = nlohmann::json::parse(lines[1]);
  EXPECT_TRUE(event["time"].is_number());
  event.erase("time");
  EXPECT_EQ(event.dump(),
            R"({"action":"down","ch":13,"code":13,"key":"Enter","kind":"key","modifiers":[],"source":"keyboard"})");
  EXPECT_EQ(linesOf(result.err).front(), "Sources: mouse none, keyboard " + path_ + ", remote none");
}

TEST_F(MonitorTest, BeginsItsJsonWithTheSources) {
  node_.send({{EV_KEY, KEY_UP, 1}});
  const std::string missing = folder_.path("no\xff");
  const Result result =
      run({"monitor", "--json", "--count", "1", "--mouse", "none", "--keyboard", path_, "--lirc", missing});
  ASSERT_EQ(linesOf(result.out).size(), 2U);
  auto start = nlohmann::ordered_json::parse(linesOf(result.out)[0]);
  EXPECT_TRUE(start["version"].is_string());
  start.erase("version");
  const std::string escaped = folder_.path("no\\ufffd");
  EXPECT_EQ(start.dump(-1, ' ', true),
            R"({"kind":"start","format":1,"sources":[{"source":"mouse","state":"left out"},)"
            R"({"source":"keyboard","state":"open","path":")" +
                path_ + R"("},{"source":"remote","state":"not open","path":")" + escaped + R"(","problem":")" +
                escaped +
                R"(: No such file or directory","remedy":"Is lircd running (systemctl status lircd)? )"
                R"(Is this the socket that it writes to?"}]})");
}

TEST_F(MonitorTest, SaysWhereAnEventCameFrom) {
  for (const std::string loop : {"wait", "poll"}) {
    const std::string socket = folder_.path(loop);
    Daemon daemon(socket);
    Program program({"monitor", "--mouse", "none", "--keyboard", path_, "--lirc", socket, "--loop", loop});
    node_.send({{EV_KEY, KEY_UP, 1}});
    EXPECT_TRUE(program.waitFor("  keyboard  key down    Up\n"));
    daemon.send("0 00 KEY_UP myremote\n");
    EXPECT_TRUE(program.waitFor("  remote    key down    Up\n"));
    program.signal(SIGINT);
    EXPECT_EQ(program.finish().status, 0);
  }
}

TEST_F(MonitorTest, NamesKeysAndButtonsThatTheReaderDoesNotKnow) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "--mouse", "none", "--keyboard", path_, "--lirc", socket});
  daemon.send("0 00 KEY_PLAYPAUSE myremote\n0 00 hunter2 myremote\n0 0");
  daemon.send("0\n");
  ASSERT_TRUE(program.waitFor("a cut line\n"));
  node_.send({{EV_KEY, KEY_PLAYPAUSE, 1}});
  node_.send({{EV_KEY, KEY_HANGEUL, 1}});
  ASSERT_TRUE(program.waitFor("'a'\n"));
  program.signal(SIGINT);
  const Result result = program.finish();
  EXPECT_EQ(eventsOf(result.out),
            (Events{"no event    KEY_PLAYPAUSE   an unknown button", "no event    (hidden)        an unknown button",
                    "no event                    a cut line", "key down    key 0           KEY_PLAYPAUSE 164",
                    "key down    A               'a'"}));
  EXPECT_NE(linesOf(result.out).back().find(" s: 2 keys, 0 moves, 0 buttons, 3 lines without an event"),
            std::string::npos);
}

TEST_F(MonitorTest, PrintsTheRemote) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", socket});
  daemon.send("0000000000f40bf0 00 KEY_VOLUMEUP myremote\n");
  EXPECT_TRUE(program.waitFor("key down    VolumeUp\n"));
  daemon.hangUp();
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("  remote    " + socket + "\n"), std::string::npos);
  EXPECT_EQ(result.err,
            "ERROR Lost the remote, errno = 0\n"
            "quarlo-input: the LIRC daemon has closed the connection: start it again, then this\n");
}

TEST_F(MonitorTest, EndsWhenTheDaemonIsGoneWithALoopThatPollsToo) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", socket, "--loop", "poll"});
  daemon.send("0000000000f40bf0 00 KEY_VOLUMEUP myremote\n");
  EXPECT_TRUE(program.waitFor("key down    VolumeUp\n"));
  daemon.hangUp();
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: the LIRC daemon has closed the connection: start it again, then this\n");
}

TEST_F(MonitorTest, TakesEachOfTheRemotesLinesAlsoIfTheyComeTogether) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", socket, "--count", "3"});
  daemon.send("0 00 KEY_UP myremote\n0 00 KEY_DOWN myremote\n0 00 KEY_LEFT myrem");
  daemon.send("ote\n");
  EXPECT_EQ(eventsOf(program.finish().out), (Events{"key down    Up", "key down    Down", "key down    Left"}));
}

TEST_F(MonitorTest, LosesNothingOfTheRemotesLinesThatALoopThatPollsTakes) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program(
      {"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", socket, "--count", "1", "--loop", "poll"});
  // The reader takes 127 bytes at a time; of what is left, not a byte is one too many.
  daemon.send(std::string(127, 'x') + " 00 KEY_UP myremote\n");
  EXPECT_EQ(eventsOf(program.finish().out), Events{"key down    Up"});
}

// It ends after what it had sent.
TEST_F(MonitorTest, EndsWhenASourceIsGone) {
  Program program(mouse());
  node_.send({{EV_REL, REL_X, 1}});
  EXPECT_TRUE(program.waitFor("mouse move  1,0\n"));
  node_.send({{EV_KEY, BTN_LEFT, 1}});
  node_.close();
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "ERROR Lost the mouse, errno = 0\n"
            "quarlo-input: the mouse is gone: it was unplugged, or what wrote to it has ended\n");
  // What it held comes up.
  EXPECT_EQ(eventsOf(result.out),
            (Events{"mouse move  1,0", "mouse down  left x1         1,0", "mouse up    left x1         1,0"}));
}

TEST_F(MonitorTest, NamesAFurtherNodeThatIsNone) {
  node_.send({{EV_KEY, KEY_UP, 1}});
  for (const std::string& path : {path_, std::string("/dev/null"), folder_.write("file", ""), folder_.path("")}) {
    const Result result = run(keyboard({"--also", path}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "quarlo-input: " + path + " is not an evdev node; `quarlo-input list` shows the nodes that exist\n");
  }
}

TEST_F(MonitorTest, GoesOnWithoutAFurtherNodeThatCannotBeOpened) {
  node_.send({{EV_KEY, KEY_UP, 1}});
  const std::string one = folder_.path("o\x1bne");
  const std::string two = folder_.path("two");
  const Result result = run(keyboard({"--also", one, "--also", two, "--count", "1"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(linesOf(result.out).front(),
            "Sources: mouse none, keyboard " + path_ + ", remote none, also " + folder_.path("o\\x1bne") + ", " + two);
  EXPECT_NE(result.out.find("  node 1    not open: " + folder_.path("o\\x1bne") +
                            ": No such file or directory\n"
                            "            `quarlo-input list` shows the nodes that exist\n"
                            "  node 2    not open: " +
                            two + ": No such file or directory\n"),
            std::string::npos)
      << result.out;
}

TEST_F(MonitorTest, WithoutAnySourceFailsAlsoIfAFurtherOneIsNamed) {
  const Result result =
      run({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", "none", "--also", folder_.path("nothing")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: no source is open\n");
}

TEST_F(MonitorTest, EndsWhenASourceIsGoneWithALoopThatPollsToo) {
  Program program(keyboard(kPolling));
  node_.send({{EV_KEY, KEY_UP, 1}});
  EXPECT_TRUE(program.waitFor("key down    Up\n"));
  node_.close();
  const Result result = program.finish();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: the keyboard is gone: it was unplugged, or what wrote to it has ended\n");
}

// Without the signal, the wait would last forever, or for more than half an hour.
TEST_F(MonitorTest, EndsWithItsSummaryWhenAskedToStop) {
  for (const Arguments& options : {Arguments{}, Arguments{"--loop", "poll", "--timeout", "2147483"}}) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      Program program(keyboard(options));
      node_.send({{EV_KEY, KEY_UP, 1}});
      EXPECT_TRUE(program.waitFor("key down    Up\n"));
      program.signal(signal);
      const Result result = program.finish();
      EXPECT_EQ(result.status, 0);
      EXPECT_EQ(result.err, "");
      EXPECT_EQ(linesOf(result.out).back().rfind("1 event in ", 0), 0U) << result.out;
    }
  }
}

TEST_F(MonitorTest, OutlivesItsTerminalUnderNohup) {
  Program program(keyboard(), Output::kPipe, {"nohup"});
  node_.send({{EV_KEY, KEY_UP, 1}});
  ASSERT_TRUE(program.waitFor("key down    Up\n"));
  program.signal(SIGHUP);
  node_.send({{EV_KEY, KEY_DOWN, 1}});
  ASSERT_TRUE(program.waitFor("key down    Down\n"));
  node_.send({{EV_KEY, KEY_LEFT, 1}});
  ASSERT_TRUE(program.waitFor("key down    Left\n"));
}

TEST_F(MonitorTest, PrintsNothingIntoTheDaemonsSocketWhenItsOutputIsClosed) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  for (const std::string redirection : {">&-", ">&- 2>&-"}) {
    const Result result = run({"monitor", "-v", "--mouse", "none", "--keyboard", "none", "--lirc", socket},
                              Output::kPipe, redirected(redirection));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(daemon.received(), "");
    daemon.hangUp();
  }
}

TEST_F(MonitorTest, ShowsTheRemotesLinesEscaped) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "-vv", "--mouse", "none", "--keyboard", "none", "--lirc", socket, "--count", "2"});
  daemon.send("0 00 KEY_UP " + kHostile + "\n0 00 KEY_DOWN tv\n");
  const Result result = program.finish();
  // A new line within it begins the next one.
  const std::size_t end = kHostileEscaped.find("\\n") + 2;
  for (const std::string& line : {kHostileEscaped.substr(0, end), kHostileEscaped.substr(end)}) {
    EXPECT_NE(result.err.find(line), std::string::npos) << result.err;
  }
  EXPECT_TRUE(isHarmless(result.out + result.err)) << result.out << result.err;
}

TEST_F(MonitorTest, WarnsOfCutLinesInTheLogOfALoopThatPolls) {
  const std::string socket = folder_.path("lircd");
  Daemon daemon(socket);
  Program program({"monitor", "-v", "--loop", "poll", "--mouse", "none", "--keyboard", "none", "--lirc", socket});
  EXPECT_TRUE(program.waitFor("\n\"LIRC unknown:\" with a number or the remote's name is not a button, "));
}

TEST_F(MonitorTest, IntoAClosedPipeFailsQuietly) {
  const Result result = run(keyboard(), Output::kClosedPipe);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

TEST_F(MonitorTest, GoesOnWithoutASourceThatCannotBeOpened) {
  node_.send({{EV_KEY, KEY_UP, 1}});
  const Result result = run({"monitor", "--keyboard", path_, "--mouse", folder_.path("nothing"), "--lirc",
                             folder_.path("no\x1bthing"), "--count", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_NE(result.out.find("  mouse     not open: " + folder_.path("nothing") +
                            ": No such file or directory\n"
                            "            `quarlo-input list` shows the nodes that exist\n"),
            std::string::npos);
  EXPECT_NE(result.out.find("  remote    not open: " + folder_.path("no\\x1bthing") +
                            ": No such file or directory\n"
                            "            Is lircd running (systemctl status lircd)? Is this the socket that it writes "
                            "to?\n"),
            std::string::npos);
}

TEST_F(MonitorTest, WithoutAnySourceFails) {
  const Result result = run({"monitor", "--mouse", folder_.path("nothing"), "--keyboard", "none", "--lirc", "none"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: no source is open\n");
}

TEST_F(MonitorTest, SaysWhoMayReadANode) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string node = folder_.write("forbidden", "");
  chmod(node.c_str(), 0);
  const Result result = run({"monitor", "--mouse", node, "--keyboard", "none", "--lirc", "none"}, Output::kPipe,
                            {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("  mouse     not open: " + node +
                            ": Permission denied (owner root, group root, mode 0000)\n"
                            "            Run this with sudo, or let a group of yours use it (chgrp, chmod g+rw)\n"),
            std::string::npos)
      << result.out;
}

TEST_F(MonitorTest, RefusesWhatSendsNoRecords) {
  for (const std::string& path : {std::string("/dev/null"), folder_.write("file", ""), folder_.path("")}) {
    const Result result = run({"monitor", "--mouse", path, "--keyboard", "none", "--lirc", "none"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "quarlo-input: " + path +
                              " is neither an evdev node nor a FIFO; `quarlo-input list` shows the nodes that exist\n");
  }
}

}  // namespace
}  // namespace quarlo::tools
