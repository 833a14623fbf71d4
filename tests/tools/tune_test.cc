#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "tests/tools/page_data.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

std::string sample(const std::string& name) { return std::string(QUARLO_SESSIONS) + "/" + name; }

// The whole output of a study that goes well, without messages.
std::string tuned(Arguments arguments, const Arguments& launcher = {}) {
  arguments.insert(arguments.begin(), "tune");
  const Result result = run(arguments, Output::kPipe, launcher);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

// What a study that fails says.
std::string failure(Arguments arguments, const Arguments& launcher = {}) {
  arguments.insert(arguments.begin(), "tune");
  const Result result = run(arguments, Output::kPipe, launcher);
  EXPECT_EQ(result.status, 1);
  return result.err;
}

// Few settings: the default one, and one that is better for an application that polls.
const Arguments kSmallGrid = {"--repeat-timeout", "75,100", "--release-timeout", "300"};
const Arguments kSmallPolledGrid = {"--repeat-timeout", "75,100", "--release-timeout", "300",
                                    "--loop",           "poll",   "--timeout",         "10"};

Arguments with(Arguments arguments, const Arguments& more) {
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

TEST(Tune, StudiesWhatIsWholeOfADamagedSession) {
  const Folder folder;
  const std::string whole = contentOf(sample("sofa") + "/remote.lirc");
  folder.write("remote.lirc", whole + "9.0");
  const Result result = run(with({"tune", "--json", folder.path()}, kSmallGrid));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err.rfind("quarlo-input: " + folder.path("remote.lirc") + ":", 0), 0U) << result.err;
  EXPECT_NE(result.err.find("; what comes before is played, the last 3 bytes are not\n"), std::string::npos);
  folder.write("remote.lirc", whole);
  EXPECT_EQ(result.out, tuned(with({"--json", folder.path()}, kSmallGrid)));
}

TEST(Tune, SaysWhatEachSettingGivesAndWhatToSet) {
  EXPECT_EQ(tuned(with({"--period", "108", "--hold", "2000", "--tap", "4"},
                       {"--repeat-timeout", "75,100", "--release-timeout", "300,400"})),
            "Remote: a line every 108 ms; a tap of 4 lines, and a button held for 2000 ms.\n"
            "Each setting is run 3 times: the application's own work takes 0.1, 1 and 3 ms a round. Ranges are\n"
            "over all runs; times are in ms.\n"
            "\n"
            "   repeat release downs    first   repeats  last down lines\n"
            "  timeout timeout a tap   repeat  a second  after end skip  faults\n"
            "       75     300     2      324       9.3         +0    4  ghosts\n"
            ">     100     300     2      324       9.3         +0    4  ghosts\n"
            " *     75     400     1      432       9.3         +0    6  good\n"
            "      100     400     1      432       9.3         +0    6  good\n"
            "\n"
            "> you are here, if you set nothing   * recommended\n"
            "ghosts: a tap gives more than one key-down: take a longer release timeout\n"
            "\n"
            "Now: ghosts. As recommended: no fault. A tap gives 1 key-down; a held button repeats after 432 ms,\n"
            "9.3 times a second. Of the settings without a fault that repeat this soon, it has the longest\n"
            "release timeout and the middle repeat timeout: the farthest from trouble.\n"
            "\n"
            "  export LIRC_REPEAT_TIMEOUT=75\n"
            "  export LIRC_RELEASE_TIMEOUT=400\n");
}

TEST(Tune, SaysTheSameOfALoopThatPollsAndItsTimeout) {
  EXPECT_EQ(tuned(with({"--period", "108", "--hold", "2000", "--tap", "3"}, kSmallPolledGrid)),
            "Remote: a line every 108 ms; a tap of 3 lines, and a button held for 2000 ms.\n"
            "Each setting is run 24 times: the press comes at 8 moments between two polls, and the application's\n"
            "own work takes 0.1, 1 and 3 ms a round. Ranges are over all runs; times are in ms.\n"
            "\n"
            "   repeat release    poll downs    first   repeats  last down lines\n"
            "  timeout timeout timeout a tap   repeat  a second  after end skip lost  faults\n"
            " *     75     300      10     1  314-326       9.2     +6..+9    4    0  good\n"
            ">     100     300      10     1  314-323   8.0-9.2     +6..+9    6    0  uneven\n"
            "\n"
            "> you are here, if you set nothing   * recommended\n"
            "uneven: pauses between repeats differ 1.75-fold: take another repeat timeout, or poll more often\n"
            "\n"
            "Now: uneven. As recommended: no fault. A tap gives 1 key-down; a held button repeats after 314-326\n"
            "ms, 9.2 times a second. Of the settings without a fault that repeat this soon, it has the longest\n"
            "release timeout and the middle repeat timeout: the farthest from trouble.\n"
            "\n"
            "  export LIRC_REPEAT_TIMEOUT=75\n"
            "  export LIRC_RELEASE_TIMEOUT=300\n"
            "  and the first readInput() of each round of the loop waits 10 ms\n");
}

TEST(Tune, StudiesTheNecProtocolUnlessToldOtherwise) {
  EXPECT_EQ(linesOf(tuned(kSmallGrid)).front(),
            "Remote: nec, a line every 108 ms; a tap of 3 lines, and a button held for 2000 ms.");
}

TEST(Tune, KnowsProtocols) {
  EXPECT_EQ(linesOf(tuned(with(kSmallGrid, {"--protocol", "rc-5"}))).front(),
            "Remote: rc-5, a line every 114 ms; a tap of 3 lines, and a button held for 2000 ms.");
  EXPECT_EQ(linesOf(tuned(with(kSmallGrid, {"--protocol", "rc-6"}))).front(),
            "Remote: rc-6, a line every 107 ms; a tap of 3 lines, and a button held for 2000 ms.");
  EXPECT_EQ(linesOf(tuned(with(kSmallGrid, {"--protocol", "sirc", "--tap", "3"}))).front(),
            "Remote: sirc, a line every 45 ms; a tap of 3 lines, and a button held for 2000 ms.");
}

TEST(Tune, StudiesWhatWasRecorded) {
  const std::string out = tuned(with({sample("sofa")}, kSmallGrid));
  EXPECT_EQ(linesOf(out).front(), "Remote: " + sample("sofa") + ", a line every 110 ms; 6 taps, and 1 held button.");
  EXPECT_NE(out.find("No other setting\nis better: leave it as it is.\n"), std::string::npos) << out;
}

TEST(Tune, SaysWhenOnlyTheDefaultSettingIsWithoutAFault) {
  const std::string out = tuned({sample("sofa"), "--repeat-timeout", "50", "--release-timeout", "300"});
  EXPECT_NE(out.find("None of the settings to try is without a fault; the default one is. Of the others, this one has"),
            std::string::npos)
      << out;
}

TEST(Tune, SaysWhenNoSettingIsWithoutAFault) {
  const std::string out = tuned({"--tap", "4", "--repeat-timeout", "100", "--release-timeout", "200,300"});
  EXPECT_NE(out.find("None of the settings to try is without a fault; this one has the fewest (ghosts)."),
            std::string::npos)
      << out;
}

TEST(Tune, StudiesAFileAlone) {
  const Result result = run(with({"tune", sample("sofa") + "/remote.lirc"}, kSmallGrid));
  EXPECT_EQ(result.status, 0);
}

TEST(Tune, CountsTheLinesThatItLeavesOut) {
  const Folder folder;
  const std::string session = contentOf(sample("sofa") + "/remote.lirc") + "9.000000 1 00 KEY_UNKNOWN sample\n";
  EXPECT_NE(tuned(with({folder.write("remote.lirc", session)}, kSmallGrid)).find("1 held button; left out: 1 line.\n"),
            std::string::npos);
}

// Two taps and a button that is held for half a second, again and again.
std::string longSession() {
  std::string text;
  for (int i = 0; i < 2000; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%d.000000 1 00 KEY_OK r\n%d.500000 1 %s KEY_OK r\n", i, i,
                  i % 2 == 0 ? "00" : "01");
    text += line;
  }
  return text;
}

TEST(Tune, SaysHowManyPressesOfALongSessionItStudied) {
  const Folder folder;
  const std::string path = folder.write("remote.lirc", longSession());
  const std::string heading = linesOf(tuned(with({path}, kSmallGrid))).front();
  EXPECT_EQ(heading, "Remote: " + path + ", a line every 500 ms; 415 of 2000 taps, and 292 of 1000 held buttons.");
  const auto json = nlohmann::json::parse(linesOf(tuned(with({path, "--json"}, kSmallGrid))).back());
  EXPECT_EQ(json["presses"], 3000);
  EXPECT_EQ(json["pressesStudied"], 707);
}

TEST(Tune, IsTheSameEachTime) { EXPECT_EQ(tuned({}), tuned({})); }

TEST(Tune, IgnoresTheEnvironment) {
  EXPECT_EQ(tuned(kSmallGrid, {"env", "LIRC_REPEAT_TIMEOUT=1", "LIRC_RELEASE_TIMEOUT=1"}), tuned(kSmallGrid));
}

TEST(Tune, FitsATerminalOf100Columns) {
  for (const std::string& line :
       linesOf(tuned({"--repeat-timeout", "25,75,100", "--protocol", "sirc", "--loop", "poll"}))) {
    EXPECT_LE(line.size(), 100U) << line;
  }
}

TEST(Tune, GivesAnObjectForEachSettingAndTheRecommendation) {
  const std::vector<std::string> lines = linesOf(tuned(with({"--json"}, kSmallPolledGrid)));
  ASSERT_EQ(lines.size(), 3U);
  const auto best = nlohmann::json::parse(lines[0]);
  EXPECT_EQ(best["kind"], "setting");
  EXPECT_EQ(best["repeatTimeoutMs"], 75);
  EXPECT_EQ(best["releaseTimeoutMs"], 300);
  EXPECT_EQ(best["timeoutMs"], 10);
  EXPECT_EQ(best["keyDownsPerTap"]["maximum"], 1);
  EXPECT_NEAR(double{best["firstRepeatMs"]["minimum"]}, 314, 0.5);
  EXPECT_NEAR(double{best["repeatsPerSecond"]["maximum"]}, 9.2, 0.05);
  EXPECT_EQ(best["linesSkipped"], 4);
  EXPECT_EQ(best["linesLost"], 0);
  EXPECT_EQ(best["faults"], nlohmann::json::array());
  EXPECT_EQ(best["default"], false);
  const auto byDefault = nlohmann::json::parse(lines[1]);
  EXPECT_EQ(byDefault["faults"], nlohmann::json({"uneven"}));
  EXPECT_EQ(byDefault["default"], true);
  const auto recommendation = nlohmann::json::parse(lines[2]);
  EXPECT_EQ(recommendation["kind"], "recommendation");
  EXPECT_EQ(recommendation["repeatTimeoutMs"], 75);
  EXPECT_EQ(std::string(recommendation["reason"]).substr(0, 12), "Now: uneven.");
}

TEST(Tune, OfALoopThatWaitsHasNoTimeoutInJson) {
  const std::vector<std::string> lines = linesOf(tuned(with({"--json"}, kSmallGrid)));
  ASSERT_EQ(lines.size(), 3U);
  const auto setting = nlohmann::json::parse(lines[1]);
  EXPECT_EQ(setting["default"], true);
  EXPECT_EQ(setting["faults"], nlohmann::json::array());
  EXPECT_FALSE(setting.contains("timeoutMs"));
}

TEST(Tune, OfWhatNeverCameIsNullInJson) {
  const std::vector<std::string> lines =
      linesOf(tuned({"--json", "--repeat-timeout", "75", "--release-timeout", "9000"}));
  const auto setting = nlohmann::json::parse(lines.at(1));
  EXPECT_EQ(setting["releaseTimeoutMs"], 9000);
  EXPECT_TRUE(setting["firstRepeatMs"].is_null());
  EXPECT_EQ(setting["faults"], nlohmann::json({"no repeats"}));
}

TEST(Tune, NeedsARemoteInTheSession) {
  EXPECT_EQ(failure(with({sample("desk")}, kSmallGrid)),
            "quarlo-input: " + sample("desk") +
                ": no remote of the LIRC daemon was recorded in this session, and --repeat-timeout and "
                "--release-timeout are for one: leave them out to study its keys\n");
  EXPECT_EQ(failure({"/nowhere"}), "quarlo-input: /nowhere: No such file or directory\n");
}

TEST(Tune, EscapesWhatASessionHolds) {
  const Folder folder;
  const std::string path = folder.write(kHostile + ".lirc", "1.0 1 00 " + kHostile + "\n");
  const std::string error = failure({path});
  EXPECT_TRUE(isHarmless(error)) << error;
  EXPECT_EQ(linesOf(error).size(), 1U) << error;
}

TEST(Tune, StopsQuietlyWhenNobodyReads) {
  const Result result = run(with({"tune"}, kSmallGrid), Output::kClosedPipe);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

// ---- A remote that the kernel decodes -----------------------------------------------------------

TEST(TuneKernel, SaysWhatEachDelayAndPeriodGiveAndWhatToSet) {
  const std::string table =
      "Remote: nec, a frame every 108 ms; a tap of 3 frames, and a button held for 2000 ms.\n"
      "The kernel lets a button go 126 ms after its last frame.\n"
      "The kernel's timers are on time, or as late as with 250 ticks a second.\n"
      "Each setting is run 6 times: the application's own work takes 0.1, 1 and 3 ms a round. Ranges are\n"
      "over all runs; times are in ms.\n"
      "\n"
      "                  downs    first   repeats  last down\n"
      "    delay  period a tap   repeat  a second  after end  faults\n"
      ">     250      33   3-4  250-284 25.0-30.3 +100..+121  ghosts, hasty, fast\n"
      "      400     100     1  400-432  9.6-10.0   +48..+56  good\n"
      "      400     125     1  400-432   7.6-8.0   +72..+81  good\n"
      " *    500     100     1  500-532  9.6-10.0   +44..+56  good\n"
      "      500     125     1  500-532   7.6-8.0   +40..+56  good\n";
  const std::string out = tuned({"--kernel", "250,33", "--repeat-delay", "400,500", "--repeat-period", "100,125"});
  EXPECT_EQ(out.substr(0, table.size()), table);
}

// A node with auto-repeat whose frames come each 108 ms, as evemu-record writes it.
class RecordedNode {
 public:
  void press(double start, int frames) {
    for (int i = 0; i < frames; ++i) {
      add(start + i * 0.108, 4, 4, 7);
      if (i == 0) add(start, 1, 103, 1);
      add(start + i * 0.108, 0, 0, 0);
    }
    const double up = start + (frames - 1) * 0.108 + 0.126;
    for (double repeat = start + 0.5; repeat < up; repeat += 0.132) {
      add(repeat, 1, 103, 2);
      add(repeat, 0, 0, 1);
    }
    add(up, 1, 103, 0);
    add(up, 0, 0, 0);
  }

  std::string text() {
    std::stable_sort(records_.begin(), records_.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string text =
        "N: receiver\nB: 00 17 00 10 00 00 00 00 00\nB: 01 00 00 00 00 00 00 00 00\n"
        "B: 01 00 00 00 00 80 16 00 00\nB: 02 03\nB: 04 10\nB: 14 03\n";
    for (const auto& record : records_) text += record.second;
    return text;
  }

 private:
  void add(double time, int type, int code, int value) {
    char line[64];
    std::snprintf(line, sizeof line, "E: %.6f %04x %04x %d\n", time, static_cast<unsigned>(type),
                  static_cast<unsigned>(code), value);
    records_.emplace_back(time, line);
  }

  std::vector<std::pair<double, std::string>> records_;
};

std::string recordedNode() {
  RecordedNode node;
  node.press(1, 3);
  node.press(3, 20);
  return node.text();
}

TEST(TuneKernel, StudiesARecordedNode) {
  const Folder folder;
  const std::string file = folder.write("node-1.evemu", recordedNode());
  for (const std::string& session : {file, folder.path()}) {
    const std::vector<std::string> lines = linesOf(tuned({session}));
    EXPECT_EQ(lines.front(), "Remote: " + session + ", a frame every 108 ms; 1 tap, and 1 held button.");
    EXPECT_EQ(lines.back(), "  delay 500 ms, period 125 ms");
  }
}

TEST(TuneKernel, SaysHowToSetWhatItRecommends) {
  const Folder folder;
  const std::string out = tuned({"--kernel", "250,33", folder.write("node-1.evemu", recordedNode())});
  EXPECT_NE(out.find("\n  ir-keytable -s rc0 -D 500 -P 125\n"), std::string::npos) << out;
  EXPECT_NE(out.find("\n  ACTION==\"add\", SUBSYSTEM==\"input\", SUBSYSTEMS==\"rc\", KERNEL==\"event*\", \\\n"
                     "    ENV{.rc_sysdev}=\"$id\", \\\n"
                     "    RUN+=\"/usr/bin/ir-keytable -s $env{.rc_sysdev} -D 500 -P 125\"\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("\n  unsigned int repeat[2] = {500, 125};\n  ioctl(fd, EVIOCSREP, repeat);\n"), std::string::npos)
      << out;
}

TEST(TuneKernel, SaysThatRepeatingIsOff) {
  for (const char* now : {"0,0", "500,0", "0,125"}) {
    const std::string out = tuned({"--kernel", now});
    EXPECT_NE(out.find("\noff: repeating is off: set a delay and a period\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("no repeats"), std::string::npos) << out;
  }
}

TEST(TuneKernel, PrefersTheLinesOfTheDaemonUnlessAsked) {
  const Folder folder;
  folder.write("node-1.evemu", recordedNode());
  folder.write("remote.lirc", contentOf(sample("sofa") + "/remote.lirc"));
  EXPECT_NE(tuned({folder.path()}).find("a line every 110 ms"), std::string::npos);
  EXPECT_NE(tuned({folder.path(), "--kernel", "500,125"}).find("a frame every 108 ms"), std::string::npos);
  EXPECT_NE(tuned({folder.path(), "--repeat-delay", "400"}).find("a frame every 108 ms"), std::string::npos);
}

TEST(TuneKernel, NeedsOneNodeWithKeysAndAutoRepeat) {
  const Folder folder;
  const std::string session = folder.path();
  const auto complaint = [](const std::string& name, const std::string& text) {
    return "quarlo-input: " + name + ": " + text + "\n";
  };
  folder.write("remote.lirc", "1.000000 1 00 KEY_OK r\n");
  EXPECT_EQ(failure({session, "--kernel", "500,125"}),
            complaint(session, "no key of a node was recorded in this session"));
  folder.write("node-1.evemu", recordedNode());
  folder.write("keyboard.evemu", recordedNode());
  EXPECT_EQ(failure({session, "--kernel", "500,125"}),
            complaint(session,
                      "keys of 2 nodes were recorded in this session (keyboard.evemu, node-1.evemu): give "
                      "the file of one of them"));
  std::string text = recordedNode();
  text.replace(text.find("00 17 00 10"), 11, "00 17 00 00");
  text.replace(text.find("B: 14 03\n"), 9, "");
  const std::string file = folder.write("other.evemu", text);
  EXPECT_EQ(failure({file}),
            complaint(file, "the node has no auto-repeat (EV_REP): it has neither a delay nor a period"));
  EXPECT_EQ(failure({sample("desk")}),
            complaint(sample("desk"), "no button is held for 500 ms or more: record some taps and one that is"));
}

TEST(TuneKernel, GivesAnObjectForEachSettingAndTheRecommendation) {
  const std::vector<std::string> lines =
      linesOf(tuned({"--json", "--kernel", "500,125", "--repeat-delay", "300", "--repeat-period", "75"}));
  ASSERT_EQ(lines.size(), 3U);
  const auto setting = nlohmann::json::parse(lines[0]);
  EXPECT_EQ(setting["delayMs"], 300);
  EXPECT_EQ(setting["periodMs"], 75);
  EXPECT_EQ(setting["current"], false);
  EXPECT_EQ(setting["faults"], nlohmann::json({"ghosts", "hasty", "fast"}));
  EXPECT_FALSE(setting.contains("linesLost"));
  const auto recommendation = nlohmann::json::parse(lines[2]);
  EXPECT_EQ(recommendation["delayMs"], 500);
  EXPECT_EQ(recommendation["periodMs"], 125);
}

TEST(TuneKernel, FitsATerminalOf100Columns) {
  for (const std::string& line : linesOf(tuned({"--kernel", "250,33", "--protocol", "sirc", "--loop", "poll"}))) {
    EXPECT_LE(line.size(), 100U) << line;
  }
}

// ---- The picture --------------------------------------------------------------------------------

bool hasGnuplot() { return std::system("gnuplot --version >/dev/null 2>&1") == 0; }

bool isXml(const std::string& path) {
  return std::system(("python3 -c 'import sys, xml.dom.minidom as m; m.parse(sys.argv[1])' " + path).c_str()) == 0;
}

std::vector<std::string> filesIn(const Folder& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

// A launcher with which the program finds this for gnuplot.
Arguments withGnuplot(const Folder& folder, const std::string& script) {
  std::filesystem::permissions(folder.write("gnuplot", script), std::filesystem::perms::owner_all);
  return {"env", "PATH=" + folder.path()};
}

TEST(TunePicture, ShowsTheTimelinesAndTheMap) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (package gnuplot-nox)";
  const Folder folder;
  const std::string path = folder.path("it's $(x).svg");
  const std::string text = tuned(kSmallPolledGrid);
  EXPECT_EQ(tuned(with({"--plot", path}, kSmallPolledGrid)), text);
  EXPECT_EQ(filesIn(folder), std::vector<std::string>{"it's $(x).svg"});
  const std::string picture = contentOf(path);
  for (const char* part :
       {"nec, a line every 108 ms: uneven now, no fault as recommended", "Now: repeat 100, release 300, poll 10 ms",
        "Recommended: repeat 75, release 300, poll 10 ms", "ms of a held button", "polled every 10 ms",
        "repeat timeout (ms)", "good", "</svg>"}) {
    EXPECT_NE(picture.find(part), std::string::npos) << part;
  }
  std::filesystem::rename(path, folder.path("picture.svg"));
  EXPECT_TRUE(isXml(folder.path("picture.svg")));
}

TEST(TunePicture, OfARemoteThatTheKernelDecodesSpeaksOfItsDelayAndPeriod) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (package gnuplot-nox)";
  const Folder folder;
  const std::string path = folder.path("a.svg");
  tuned({"--kernel", "250,33", "--plot", path});
  const std::string picture = contentOf(path);
  for (const char* part : {"Now: delay 250, period 33 ms", "Recommended: delay 500, period 125 ms", "frames",
                           "a frame that keeps it down", "each key-down read as it comes", "delay (ms)"}) {
    EXPECT_NE(picture.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(picture.find("timeout"), std::string::npos);
  EXPECT_TRUE(isXml(path));
}

// What gnuplot gets: a change of the picture is a change of these files.
TEST(TunePicture, IsDrawnByTheScriptOfItsGoldenFile) {
  const Folder folder;
  const Folder programs;
  const Arguments launcher = withGnuplot(programs, "#!/bin/sh\nexec /bin/cat\n");
  const std::string path = folder.path("a.svg");
  tuned(with({"--plot", path}, kSmallPolledGrid), launcher);
  EXPECT_EQ(contentOf(path), contentOf(QUARLO_GOLDEN "/tune-poll.gp"));
  tuned({"--kernel", "250,33", "--plot", path}, launcher);
  EXPECT_EQ(contentOf(path), contentOf(QUARLO_GOLDEN "/tune-kernel.gp"));
}

TEST(TunePicture, WithoutGnuplotIsAnErrorThatNamesThePackage) {
  const Folder folder;
  EXPECT_EQ(failure(with({"--plot", folder.path("a.svg")}, kSmallGrid), {"env", "PATH=" + folder.path()}),
            "quarlo-input: " + folder.path("a.svg") +
                ": gnuplot, which draws the picture, is not installed: install the package gnuplot-nox\n");
  EXPECT_TRUE(filesIn(folder).empty());
}

TEST(TunePicture, ThatCouldNotBeDrawnLeavesTheOldOneAndSaysWhy) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.write("a.svg", "old");
  const Arguments launcher = withGnuplot(programs, "#!/bin/sh\necho half\nprintf '\\n broken\\n' >&2\nexit 3\n");
  EXPECT_EQ(failure(with({"--plot", path}, kSmallGrid), launcher),
            "quarlo-input: " + path + ": gnuplot did not draw the picture: broken\n");
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(filesIn(folder).size(), 1U);
}

TEST(TunePicture, IsNotDrawnByAProgramThatCannotBeStarted) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.path("a.svg");
  const Arguments launcher = withGnuplot(programs, "");
  std::filesystem::permissions(programs.path("gnuplot"), std::filesystem::perms::owner_read);
  EXPECT_EQ(failure(with({"--plot", path}, kSmallGrid), launcher),
            "quarlo-input: " + path + ": gnuplot could not be started: Permission denied\n");
}

TEST(TunePicture, IsDrawnWithoutSettingsOfTheUser) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.path("a.svg");
  tuned(with({"--plot", path}, kSmallGrid), withGnuplot(programs, "#!/bin/sh\necho \"$@\"\n"));
  EXPECT_EQ(contentOf(path), "--default-settings\n");
}

TEST(TunePicture, ThatDoesNotFitLeavesTheOldOneAndSaysWhy) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.write("a.svg", "old");
  const std::string draw = "#!/bin/sh\nulimit -S -f $(ulimit -H -f)\n/usr/bin/head -c 100000 /dev/zero\n";
  Arguments launcher = {"sh", "-c", "ulimit -S -f 100; exec \"$@\"", "sh"};
  for (const std::string& word : withGnuplot(programs, draw)) launcher.push_back(word);
  EXPECT_EQ(failure(with({"--plot", path}, kSmallGrid), launcher),
            "quarlo-input: " + path + ": the picture cannot be written: File too large\n");
  EXPECT_EQ(contentOf(path), "old");
  EXPECT_EQ(filesIn(folder).size(), 1U);
}

TEST(TunePicture, ThatCouldNotTakeItsNameLeavesNothingUnfinished) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.path("a.svg");
  const Arguments launcher = withGnuplot(programs, "#!/bin/sh\n/bin/mkdir " + path + "\necho picture\n");
  EXPECT_EQ(failure(with({"--plot", path}, kSmallGrid), launcher),
            "quarlo-input: " + path + ": the picture cannot be written: Is a directory\n");
  EXPECT_EQ(filesIn(folder), std::vector<std::string>{"a.svg"});
}

TEST(TunePicture, IsAsPrivateAsTheOldOne) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.write("a.svg", "old");
  using std::filesystem::perms;
  constexpr perms kPrivate = perms::owner_read | perms::owner_write;
  std::filesystem::permissions(path, kPrivate | perms::set_uid);  // that, a picture has no use for
  tuned(with({"--plot", path}, kSmallGrid), withGnuplot(programs, "#!/bin/sh\necho new\n"));
  EXPECT_EQ(contentOf(path), "new\n");
  EXPECT_EQ(std::filesystem::status(path).permissions(), kPrivate);
}

TEST(TunePicture, CanBeReadByTheGroupThatCouldReadTheOldOne) {
  const Folder folder;
  const Folder programs;
  const std::string path = folder.write("a.svg", "old");
  using std::filesystem::perms;
  constexpr perms kOfTheGroup = perms::owner_read | perms::owner_write | perms::group_read;
  std::filesystem::permissions(path, kOfTheGroup);
  tuned(with({"--plot", path}, kSmallGrid), withGnuplot(programs, "#!/bin/sh\necho new\n"));
  EXPECT_EQ(contentOf(path), "new\n");
  EXPECT_EQ(std::filesystem::status(path).permissions(), kOfTheGroup);
}

// The group of the new one is another, which must not read it.
TEST(TunePicture, WhoseGroupCannotBeGivenIsForNoGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const Folder folder;
  const Folder programs;
  const std::string path = folder.write("a.svg", "old");
  constexpr gid_t kOther = 1;
  ASSERT_EQ(chown(path.c_str(), 0, kOther), 0);
  ASSERT_EQ(chmod(path.c_str(), 0664), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  Arguments launcher = withGnuplot(programs, "#!/bin/sh\necho new\n");
  for (const std::string& word : asNobody()) launcher.push_back(word);
  ASSERT_EQ(chmod(programs.path("gnuplot").c_str(), 0755), 0);
  tuned(with({"--plot", path}, kSmallGrid), launcher);
  EXPECT_EQ(contentOf(path), "new\n");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0604));
}

// Starts a program that has this limit of the shell's, and no descriptor but the usual ones.
Arguments limited(const std::string& limit) {
  return {"sh", "-c", "exec 3>&- 4>&- 5>&- 6>&-; ulimit -S " + limit + "; exec \"$@\"", "sh"};
}

TEST(TunePicture, ForWhichThereIsNoTemporaryFileIsAnError) {
  const Folder folder;
  const Arguments launcher = limited("-n 4");
  if (run({"--version"}, Output::kPipe, launcher).status != 0) GTEST_SKIP() << "a sanitizer needs descriptors";
  EXPECT_EQ(failure(with({"--plot", folder.path("a.svg")}, kSmallGrid), launcher),
            "quarlo-input: no temporary file: Too many open files\n");
}

TEST(TunePicture, WhoseTemporaryFileCannotBeWrittenIsAnError) {
  const Folder folder;
  EXPECT_EQ(failure(with({"--plot", folder.path("a.svg")}, kSmallGrid), limited("-f 0")),
            "quarlo-input: a temporary file could not be written: File too large\n");
}

TEST(TunePicture, IntoAFolderThatDoesNotExistFailsBeforeTheStudy) {
  const Result result = run(with({"tune", "--plot", "/nowhere/a.svg"}, kSmallGrid));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quarlo-input: /nowhere/a.svg: the picture cannot be written: No such file or directory\n");
}

TEST(TunePicture, IntoAFolderIsAnError) {
  const Folder folder;
  const std::string path = folder.path("a.svg");
  std::filesystem::create_directory(path);
  EXPECT_EQ(failure({"--plot", path}),
            "quarlo-input: " + path + ": the picture cannot be written: not a regular file\n");
}

// ---- The page -----------------------------------------------------------------------------------

TEST(TunePage, HasWhatJsonSaysOfEachSetting) {
  const Folder folder;
  const std::string path = folder.path("a.html");
  const std::string text = tuned(with({"--html", path, "--json"}, kSmallPolledGrid));
  EXPECT_EQ(text, tuned(with({"--json"}, kSmallPolledGrid)));
  EXPECT_EQ(filesIn(folder), std::vector<std::string>{"a.html"});
  std::vector<nlohmann::json> tried;
  const nlohmann::json data = dataOf(contentOf(path));
  for (const nlohmann::json& setting : data["settings"]) {
    if (setting["tried"]) tried.push_back(setting);
  }
  std::vector<std::string> lines = linesOf(text);
  lines.pop_back();  // the recommendation
  ASSERT_EQ(tried.size(), lines.size());
  for (std::size_t i = 0; i < tried.size(); ++i) {
    nlohmann::json setting = nlohmann::json::parse(lines[i]);
    EXPECT_EQ(tried[i]["now"], setting["default"]);
    setting.erase("kind");
    setting.erase("default");
    for (const auto& [name, value] : setting.items()) EXPECT_EQ(tried[i][name], value) << name;
  }
}

TEST(TunePage, HasWhatIsHalfwayBetweenForTheSliders) {
  const Folder folder;
  tuned({"--html", folder.path("a.html"), "--repeat-timeout", "100,130,160", "--release-timeout", "300"});
  std::vector<std::pair<int, bool>> values;
  const nlohmann::json data = dataOf(contentOf(folder.path("a.html")));
  for (const nlohmann::json& setting : data["settings"]) {
    values.emplace_back(setting["repeatTimeoutMs"], setting["tried"]);
  }
  EXPECT_EQ(values,
            (std::vector<std::pair<int, bool>>{{100, true}, {115, false}, {130, true}, {145, false}, {160, true}}));
}

TEST(TunePage, ShowsWhatBecomesOfATapAndOfAHeldButton) {
  const Folder folder;
  tuned({"--html", folder.path("a.html"), "--repeat-timeout", "100", "--release-timeout", "300", "--tap", "4"});
  const nlohmann::json setting = dataOf(contentOf(folder.path("a.html")))["settings"][0];
  EXPECT_EQ(setting["tap"]["lines"], nlohmann::json::parse("[[0.0,0],[108.0,1],[216.0,1],[324.0,0]]"));
  EXPECT_EQ(setting["tap"]["keyDowns"], nlohmann::json::parse("[0.0,324.0]"));
  EXPECT_EQ(setting["hold"]["lines"].size(), 19U);
}

TEST(TunePage, IntoAFolderThatDoesNotExistFailsBeforeTheStudy) {
  const Result result = run(with({"tune", "--html", "/nowhere/a.html"}, kSmallGrid));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quarlo-input: /nowhere/a.html: the page cannot be written: No such file or directory\n");
}

}  // namespace
}  // namespace quarlo::tools
