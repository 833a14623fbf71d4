#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

// A keyboard: the reader asks for no more than the four arrow keys.
const std::string kDescription =
    "N: Keyboard\n"
    "B: 00 03\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 80 16\n";

constexpr char kMouseCapabilities[] =
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 01\n"
    "B: 02 03\n";

std::string sample(const std::string& name) { return std::string(QUARLO_SESSIONS) + "/" + name; }

// The whole output of a replay that goes well, without messages.
std::string replayed(Arguments arguments) {
  arguments.insert(arguments.begin(), "replay");
  const Result result = run(arguments);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

const std::string kLegend = "seconds  source    event       key or button   character, modifiers; position\n";

std::string record(const std::string& time, int type, int code, int value) {
  char text[64];
  std::snprintf(text, sizeof text, "E: %s %04x %04x %d\n", time.c_str(), static_cast<unsigned>(type),
                static_cast<unsigned>(code), value);
  return text;
}

const std::string kNotWritten =
    "quarlo-input: not everything could be written to standard output; is it closed, or its disk full?\n";

class SampleSession : public testing::TestWithParam<const char*> {};

TEST_P(SampleSession, GivesTheEventsOfItsGoldenFile) {
  EXPECT_EQ(replayed({sample(GetParam())}), contentOf(std::string(QUARLO_GOLDEN) + "/" + GetParam() + ".txt"));
}

TEST_P(SampleSession, GivesTheEventsOfAnotherGoldenFileWithALoopThatPolls) {
  EXPECT_EQ(replayed({"--loop", "poll", sample(GetParam())}),
            contentOf(std::string(QUARLO_GOLDEN) + "/" + GetParam() + ".poll.txt"));
}

TEST_P(SampleSession, GivesTheSameEventsAgain) {
  EXPECT_EQ(replayed({sample(GetParam())}), replayed({sample(GetParam())}));
}

TEST_P(SampleSession, GivesJsonOfWhichEachLineParses) {
  const Result result = run({"replay", "--json", sample(GetParam())});
  EXPECT_EQ(result.status, 0);
  const std::vector<std::string> lines = linesOf(result.out);
  const auto start = nlohmann::json::parse(lines.front());
  EXPECT_EQ(start["kind"], "start");
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    const auto event = nlohmann::json::parse(line);
    EXPECT_TRUE(event["time"].is_number());
    const auto isItsSource = [&](const nlohmann::json& source) { return source["source"] == event["source"]; };
    EXPECT_TRUE(std::any_of(start["sources"].begin(), start["sources"].end(), isItsSource)) << line;
    EXPECT_TRUE(event["kind"] == "key" || event["kind"] == "mouse") << line;
  }
  // The text has a line for each, a legend for the first, and one more: the summary, which is on standard error here.
  EXPECT_EQ(lines.size() + 1, linesOf(replayed({sample(GetParam())})).size());
  EXPECT_EQ(result.err, linesOf(replayed({sample(GetParam())})).back() + "\n");
}

// Test names have no hyphens.
std::string nameOfSession(const testing::TestParamInfo<const char*>& session) {
  std::string name = session.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Sessions, SampleSession, testing::Values("desk", "sofa", "living-room"), nameOfSession);

TEST(Replay, PlaysAFileAloneFromItsFirstRecord) {
  const Folder folder;
  const std::string file = folder.write("keys.evemu", kDescription + record("1329846856.201613", EV_KEY, KEY_UP, 1) +
                                                          record("1329846856.201613", EV_SYN, SYN_REPORT, 0) +
                                                          record("1329846857.201613", EV_KEY, KEY_UP, 0) +
                                                          record("1329846857.201613", EV_SYN, SYN_REPORT, 0));
  EXPECT_EQ(replayed({file}), kLegend +
                                  "  0.000  keyboard  key down    Up\n"
                                  "  1.000  keyboard  key up      Up\n"
                                  "2 events in 1.000 s: 2 keys, 0 moves, 0 buttons\n");
}

TEST(Replay, PlaysADescriptionAndItsRecordsThatAreApart) {
  const Folder folder;
  const std::string description = folder.write("keys.desc", kDescription);
  const std::string events = folder.write(
      "keys.events", record("1329846856.500000", EV_KEY, KEY_UP, 1) + record("1329846856.500000", EV_SYN, 0, 0));
  const std::string expected =
      kLegend + "  0.000  keyboard  key down    Up\n1 event in 0.000 s: 1 key, 0 moves, 0 buttons\n";
  EXPECT_EQ(replayed({description, events}), expected);
  EXPECT_EQ(replayed({events, description}), expected);
}

TEST(Replay, SaysWhichTwoFilesDoNotFitTogether) {
  const Folder folder;
  const std::string description = folder.write("keys.desc", kDescription);
  const Result result = run({"replay", description, description});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quarlo-input: " + description + " and " + description +
                            ": both have capability lines (B:), expected a device's description in one of them, and "
                            "its records in the other\n");
  EXPECT_EQ(run({"replay", description, ""}).err, "quarlo-input: : No such file or directory\n");
}

TEST(Replay, PlaysADirectoryWhoseTimesCountFrom1970) {
  const Folder folder;
  folder.write("keyboard.evemu", kDescription + record("1329846856.500000", EV_KEY, KEY_UP, 1) +
                                     record("1329846856.500000", EV_SYN, 0, 0));
  folder.write("remote.lirc", "1329846855.000000 0 00 KEY_OK tv\n");
  EXPECT_EQ(replayed({folder.path("")}), kLegend +
                                             "  0.000  remote    key down    Enter           13\n"
                                             "  1.500  keyboard  key down    Up\n"
                                             "2 events in 1.500 s: 2 keys, 0 moves, 0 buttons\n");
}

TEST(Replay, ReadsAReportThatIsLongerThanADrain) {
  const Folder folder;
  std::string report;
  for (int i = 0; i < 50; ++i) report += record("0.000000", EV_MSC, MSC_SCAN, i);
  report += record("0.000000", EV_KEY, KEY_UP, 1) + record("0.000000", EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(eventsOf(replayed({folder.write("keys.evemu", kDescription + report)})),
            std::vector<std::string>{"key down    Up"});
}

// They are asked between the keyboard and the mouse, in their order.
TEST(Replay, PlaysFurtherNodesAsSourcesOfTheSameReader) {
  const Folder folder;
  const auto press = [](int code) { return record("0.010000", EV_KEY, code, 1) + record("0.010000", 0, 0, 0); };
  folder.write("mouse.evemu", kMouseCapabilities + press(BTN_LEFT));
  folder.write("node-8.evemu",
               kDescription + press(KEY_LEFT) + record("0.020000", EV_KEY, KEY_LEFT, 0) + record("0.020000", 0, 0, 0));
  folder.write("node-2.evemu", kDescription + press(KEY_LEFTSHIFT));
  folder.write("keyboard.evemu", kDescription + press(KEY_UP));
  EXPECT_EQ(replayed({folder.path("")}), kLegend +
                                             "  0.010  keyboard  key down    Up\n"
                                             "  0.010  node 2    key down    Shift                shift\n"
                                             "  0.010  node 8    key down    Left                 shift\n"
                                             "  0.010  mouse     mouse down  left x1         0,0\n"
                                             "  0.020  node 8    key up      Left                 shift\n"
                                             "5 events in 0.020 s: 4 keys, 0 moves, 1 button\n");
}

TEST(Replay, BeginsItsJsonWithTheSources) {
  const Folder folder;
  folder.write("node-2.evemu", kDescription + record("0.000001", EV_KEY, KEY_UP, 1) + record("0.000001", 0, 0, 0));
  folder.write("mouse.evemu",
               "N: M\xff\x1b\n" + std::string(kMouseCapabilities) + record("0.000001", EV_KEY, BTN_SIDE, 1));
  folder.write("remote.lirc", "86000.000000 0 00 KEY_OK tv\n");
  const std::vector<std::string> lines = linesOf(run({"replay", "--json", folder.path("")}).out);
  auto start = nlohmann::ordered_json::parse(lines.at(0));
  start.erase("version");
  EXPECT_EQ(start.dump(-1, ' ', true),
            R"({"kind":"start","format":1,"sources":[{"source":"mouse","state":"open","name":"M\ufffd\u001b"},)"
            R"({"source":"remote","state":"open"},{"source":"node 2","state":"open","name":"Keyboard"}]})");
  EXPECT_EQ(lines.at(1).rfind(R"({"time":0.000001,"source":"node 2","kind":"key",)", 0), 0U) << lines.at(1);
  EXPECT_EQ(lines.at(2).rfind(R"({"time":86000.000000,"source":"remote",)", 0), 0U) << lines.at(2);
}

TEST(Replay, PrintsWhatItsEventsCameOfWhenAskedTo) {
  const Folder folder;
  folder.write("keyboard.evemu",
               kDescription + record("0.600000", EV_KEY, KEY_UP, 1) + record("0.600000", EV_SYN, 0, 0));
  folder.write("remote.lirc", "0.100000 0 00 KEY_OK tv\n0.200000 0 01 KEY_OK \xff\"\n");
  std::vector<std::string> lines = linesOf(run({"replay", "--json", "--records", folder.path("")}).out);
  lines.erase(lines.begin());
  EXPECT_EQ(
      lines,
      (std::vector<std::string>{
          R"({"time":0.100000,"source":"remote","kind":"line","number":1,"line":"0 00 KEY_OK tv","event":1})",
          R"({"time":0.100000,"source":"remote","number":1,"cause":1,"kind":"key","action":"down","key":"Enter","code":13,"ch":13,"modifiers":[]})",
          R"({"time":0.100000,"source":"remote","kind":"state","state":"held","line":1,"until":0.400000})",
          R"({"time":0.200000,"source":"remote","kind":"line","number":2,"line":"0 01 KEY_OK \ufffd\"","event":null,"why":"early"})",
          R"({"time":0.400000,"source":"remote","kind":"state","state":"repeating","line":2,"until":0.400000})",
          R"({"time":0.500000,"source":"remote","kind":"state","state":"none","line":2,"until":0.500000})",
          R"({"time":0.600000,"source":"keyboard","kind":"record","number":1,"type":"EV_KEY","linuxName":"KEY_UP","linuxCode":103,"value":1,"event":2})",
          R"({"time":0.600000,"source":"keyboard","number":2,"cause":1,"kind":"key","action":"down","key":"Up","code":38,"ch":0,"modifiers":[]})",
          R"({"time":0.600000,"source":"keyboard","kind":"record","number":2,"type":"EV_SYN","linuxName":"SYN_REPORT","linuxCode":0,"value":0,"event":null,"why":"mark"})"}));
}

TEST(Replay, PrintsRecordsAsJsonAloneAndOfALoopThatWaits) {
  const std::string hint = " (see quarlo-input replay --help)\n";
  const Result asText = run({"replay", "--records", sample("desk")});
  EXPECT_EQ(asText.status, 2);
  EXPECT_EQ(asText.err, "quarlo-input: --records is for JSON: expected --json beside it" + hint);
  const Result polled = run({"replay", "--json", "--records", "--loop", "poll", sample("desk")});
  EXPECT_EQ(polled.status, 2);
  EXPECT_EQ(
      polled.err,
      "quarlo-input: --records is for the loop that waits: one that polls does not know what an event came of" + hint);
}

TEST(Replay, OfAFurtherNodeGivesWhatTheSameKeyboardGives) {
  const std::string keyboard = contentOf(sample("desk") + "/keyboard.evemu");
  const Folder alone;
  alone.write("keyboard.evemu", keyboard);
  const Folder further;
  further.write("node-1.evemu", keyboard);
  EXPECT_EQ(eventsOf(replayed({further.path("")})), eventsOf(replayed({alone.path("")})));
}

TEST(Replay, OfFurtherNodesNeedsALoopThatWaits) {
  const Folder folder;
  folder.write("node-3.evemu", kDescription + record("0.000000", EV_KEY, KEY_UP, 1));
  const Result result = run({"replay", "--loop", "poll", folder.path("")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quarlo-input: " + folder.path("") +
                            ": a loop that polls reads no further node, and there is node-3.evemu; play this session "
                            "without --loop poll\n");
}

// What a recording says is down is down on the machine, too: nothing comes up that the recording holds.
TEST(Replay, KeepsWhatIsHeldWhenRecordsAreLost) {
  const Folder folder;
  const std::string shift = record("0.000000", EV_KEY, KEY_LEFTSHIFT, 1) + record("0.000000", 0, 0, 0);
  const std::string lost =
      record("1.000000", EV_SYN, SYN_DROPPED, 0) + record("1.000000", EV_KEY, KEY_UP, 1) + record("1.000000", 0, 0, 0);
  const std::string mended = record("1.000100", EV_KEY, KEY_UP, 0) + record("1.000100", 0, 0, 0);
  EXPECT_EQ(
      eventsOf(replayed({folder.write("keys.evemu", kDescription + shift + lost + mended)})),
      (std::vector<std::string>{"key down    Shift                shift", "key down    Up                   shift",
                                "key up      Up                   shift"}));
}

// A full queue of the machine's own: no key stays down that the recording releases.
TEST(Replay, MendsWhatTheMachineItselfLoses) {
  const Folder folder;
  std::string report = record("0.000000", EV_KEY, KEY_LEFTSHIFT, 1) + record("0.000000", 0, 0, 0) +
                       record("1.000000", EV_KEY, KEY_LEFTSHIFT, 0);
  for (int i = 0; i < 100; ++i) report += record("1.000000", EV_MSC, MSC_SCAN, i);
  report += record("1.000000", EV_KEY, KEY_DOWN, 1) + record("1.000000", EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(eventsOf(replayed({folder.write("keys.evemu", kDescription + report)})),
            (std::vector<std::string>{"key down    Shift                shift",
                                      "key down    Down                 shift", "key up      Shift"}));
}

TEST(Replay, LosesOfAReportThatIsTooLongWhatTheKernelWouldLose) {
  const Folder folder;
  std::string report;
  for (int i = 0; i < 100; ++i) report += record("0.000000", EV_KEY, KEY_UP, i % 2);
  report += record("0.000000", EV_KEY, KEY_DOWN, 1) + record("0.000000", EV_SYN, SYN_REPORT, 0);
  const std::vector<std::string> events = eventsOf(replayed({folder.write("keys.evemu", kDescription + report)}));
  ASSERT_FALSE(events.empty());
  EXPECT_LT(events.size(), 64U);
  EXPECT_EQ(events.back(), "key down    Down");
}

TEST(Replay, ShowsRecordsWithoutAnEventOnlyWhenAskedTo) {
  const Folder folder;
  folder.write("mouse.evemu",
               kDescription + record("0.000000", EV_KEY, BTN_SIDE, 1) + record("0.000000", EV_SYN, SYN_REPORT, 0));
  EXPECT_EQ(replayed({folder.path("")}), "0 events in 0.000 s: 0 keys, 0 moves, 0 buttons\n");
  EXPECT_EQ(run({"replay", "-v", folder.path("")}).out,
            kLegend +
                "  0.000  mouse     no event    BTN_SIDE 275    EV_KEY, value 1\n"
                "0 events in 0.000 s: 0 keys, 0 moves, 0 buttons, 1 record without an event\n");
  EXPECT_EQ(linesOf(run({"replay", "-v", "--json", folder.path("")}).out).size(), 1U);
}

TEST(Replay, ShowsTheRemotesLinesAndTheirTimingWhenAskedTo) {
  const Folder folder;
  const std::string file = folder.write("tv.lirc", "0.000000 0 00 KEY_OK \x1b[31m\n");
  const std::string sources =
      "INFO Could not autodetect a suitable mouse device\n"
      "INFO Could not autodetect a suitable keyboard device\n"
      "INFO Found a LIRC device: remote.lirc\n";
  const std::string line = "VERBOSE2 LIRC string: 0 00 KEY_OK \\x1b[31m\\n\n";
  EXPECT_EQ(run({"replay", "-v", file}).err, sources + line);
  EXPECT_EQ(run({"replay", "-vv", file}).err, sources + line +
                                                  "VERBOSE10 LIRC KEYDOWN 1000000000ms.\n"
                                                  "VERBOSE10 LIRC timeout 300ms.\n"
                                                  "VERBOSE10 LIRC key repeat mode started.\n"
                                                  "VERBOSE10 LIRC key repeat mode stopped.\n");
}

TEST(Replay, WarnsOfCutLinesInTheLogOfALoopThatPolls) {
  const Folder folder;
  const std::string file = folder.write("tv.lirc", "0.000000 0 00 KEY_OK tv\n");
  const std::string remark =
      "\"LIRC unknown:\" with a number or the remote's name is not a button, but a line that a late poll has cut.";
  EXPECT_EQ(linesOf(run({"replay", "-v", "--loop", "poll", file}).out).front(), remark);
  EXPECT_NE(run({"replay", "-v", "--json", "--loop", "poll", file}).err.find("\n" + remark + "\n"), std::string::npos);
  for (const Arguments& options :
       {Arguments{"replay", file}, Arguments{"replay", "-v", file}, Arguments{"replay", "--loop", "poll", file},
        Arguments{"replay", "-v", "--loop", "poll", sample("desk")}}) {
    EXPECT_EQ(run(options).out.find("LIRC unknown"), std::string::npos);
  }
}

TEST(Replay, ShowsNothingOfAReportBeforeItsEnd) {
  const Folder folder;
  const std::string report = record("1.000000", EV_REL, REL_X, 4) + record("1.030000", EV_REL, REL_Y, 2) +
                             record("1.060000", EV_SYN, SYN_REPORT, 0);
  EXPECT_EQ(replayed({folder.write("mouse.evemu", kMouseCapabilities + report)}),
            kLegend +
                "  0.060  mouse     mouse move  4,2\n"
                "1 event in 0.060 s: 0 keys, 1 move, 0 buttons\n");
}

TEST(Replay, KeepsThePointerOnTheScreen) {
  const Folder folder;
  const std::string report = record("0.000000", EV_REL, REL_X, 5000) + record("0.000000", EV_REL, REL_Y, 5000) +
                             record("0.000000", EV_SYN, SYN_REPORT, 0);
  const std::string file = folder.write("mouse.evemu", kMouseCapabilities + report);
  EXPECT_EQ(eventsOf(replayed({file})), std::vector<std::string>{"mouse move  1919,1079"});
  EXPECT_EQ(eventsOf(replayed({"--size", "640x1", file})), std::vector<std::string>{"mouse move  639,0"});
}

TEST(Replay, ReadsEachRecordWhenItComes) {
  const Folder folder;
  const std::string file = folder.write(
      "keys.evemu", kDescription + record("0.000000", EV_KEY, KEY_UP, 1) + record("0.000000", EV_SYN, 0, 0) +
                        record("86399.987654", EV_KEY, KEY_UP, 0) + record("86399.987654", EV_SYN, 0, 0));
  EXPECT_EQ(replayed({file}), kLegend +
                                  "  0.000  keyboard  key down    Up\n"
                                  "86399.987  keyboard  key up      Up\n"
                                  "2 events in 86399.987 s: 2 keys, 0 moves, 0 buttons\n");
}

TEST(Replay, EndsAfterAReportThatDoesNotEnd) {
  const Folder folder;
  const std::string press = record("0.000000", EV_KEY, KEY_UP, 1) + record("0.000000", EV_SYN, 0, 0);
  const std::string unfinished = record("1.000000", EV_KEY, KEY_UP, 0);
  EXPECT_EQ(replayed({folder.write("keys.evemu", kDescription + press + unfinished)}),
            kLegend +
                "  0.000  keyboard  key down    Up\n"
                "1 event in 1.000 s: 1 key, 0 moves, 0 buttons\n");
}

TEST(Replay, TakesEachOfTheRemotesLinesAlsoIfTheyComeTogether) {
  const Folder folder;
  const std::string file =
      folder.write("tv.lirc", "0.000000 0 00 KEY_UP tv\n0.000000 0 00 KEY_DOWN tv\n0.000000 0 00 KEY_LEFT tv\n");
  EXPECT_EQ(eventsOf(replayed({file})),
            (std::vector<std::string>{"key down    Up", "key down    Down", "key down    Left"}));
  EXPECT_EQ(eventsOf(replayed({"--loop", "poll", file})), std::vector<std::string>{"key down    Up"});
}

TEST(Replay, ALoopThatPollsWaitsAsLongAsTheTimeoutSays) {
  const Folder folder;
  // The first wait ends with the first record; those after it sleep, since they watch nothing any more.
  const std::string file = folder.write(
      "keys.evemu", kDescription + record("0.000000", EV_KEY, KEY_UP, 1) + record("0.000000", EV_SYN, 0, 0) +
                        record("0.350000", EV_KEY, KEY_UP, 0) + record("0.350000", EV_SYN, 0, 0) +
                        record("0.420000", EV_KEY, KEY_UP, 1) + record("0.420000", EV_SYN, 0, 0));
  const std::string out = replayed({"--loop", "poll", "--timeout", "100", file});
  EXPECT_NE(out.find("  0.400  keyboard  key up  "), std::string::npos) << out;
  EXPECT_NE(out.find("  0.500  keyboard  key down  "), std::string::npos) << out;
}

// Whatever it passes over, the polls after it come at the times at which they would have come.
TEST(Replay, ALoopThatPollsKeepsItsPaceThroughADay) {
  const Folder folder;
  folder.write("keyboard.evemu", kDescription + record("0.003000", EV_KEY, KEY_UP, 1) + record("0.003000", 0, 0, 0) +
                                     record("86399.999000", EV_KEY, KEY_UP, 0) + record("86399.999000", 0, 0, 0));
  folder.write("remote.lirc", "1.000000 0 00 KEY_OK tv\n43200.000000 0 00 KEY_OK tv\n");
  EXPECT_EQ(replayed({"--loop", "poll", "--timeout", "7", folder.path("")}),
            kLegend +
                "  0.003  keyboard  key down    Up\n"
                "  1.004  remote    key down    Enter           13\n"
                "43200.000  remote    key down    Enter           13\n"
                "86400.004  keyboard  key up      Up\n"
                "4 events in 86400.011 s: 4 keys, 0 moves, 0 buttons\n");
}

TEST(Replay, PlaysAMonthWithEitherLoop) {
  const Folder folder;
  folder.write("keyboard.evemu", "# quarlo-input session 2\n" + kDescription + record("0.003000", EV_KEY, KEY_UP, 1) +
                                     record("0.003000", 0, 0, 0) + record("2678399.999000", EV_KEY, KEY_UP, 0) +
                                     record("2678399.999000", 0, 0, 0));
  const std::string down = kLegend + "  0.003  keyboard  key down    Up\n";
  EXPECT_EQ(replayed({folder.path("")}), down +
                                             "2678399.999  keyboard  key up      Up\n"
                                             "2 events in 2678399.999 s: 2 keys, 0 moves, 0 buttons\n");
  EXPECT_EQ(replayed({"--loop", "poll", folder.path("")}),
            down +
                "2678400.003  keyboard  key up      Up\n"
                "2 events in 2678400.013 s: 2 keys, 0 moves, 0 buttons\n");
}

TEST(Replay, TakesTheRemotesTimeoutsFromTheEnvironmentOnlyWhenAskedTo) {
  const std::size_t events = eventsOf(replayed({sample("sofa")})).size();
  setenv("LIRC_RELEASE_TIMEOUT", "1000", 1);
  EXPECT_EQ(eventsOf(replayed({sample("sofa")})).size(), events);
  EXPECT_LT(eventsOf(replayed({"--lirc-environment", sample("sofa")})).size(), events);
  unsetenv("LIRC_RELEASE_TIMEOUT");
}

TEST(Replay, EndsAlsoIfTheRemotesKeyIsNeverForgotten) {
  setenv("LIRC_RELEASE_TIMEOUT", "2000000000", 1);
  EXPECT_EQ(linesOf(replayed({"--lirc-environment", sample("sofa")})).back(),
            "7 events in 16.001 s: 7 keys, 0 moves, 0 buttons");
  EXPECT_EQ(linesOf(replayed({"--lirc-environment", "--loop", "poll", sample("sofa")})).back(),
            "7 events in 16.010 s: 7 keys, 0 moves, 0 buttons");
  unsetenv("LIRC_RELEASE_TIMEOUT");
}

TEST(Replay, GivesTheSameEventsAtTheSpeedOfTheRecording) {
  const Folder folder;
  folder.write("keyboard.evemu", kDescription + record("0.020000", EV_KEY, KEY_UP, 1) + record("0.020000", 0, 0, 0));
  folder.write("remote.lirc", "0.050000 0 00 KEY_OK tv\n");
  EXPECT_EQ(replayed({"--realtime", folder.path("")}), replayed({folder.path("")}));
}

TEST(Replay, EndsWithItsSummaryWhenAskedToStop) {
  const Folder folder;
  const std::string file =
      folder.write("keys.evemu", kDescription + record("0.000000", EV_KEY, KEY_UP, 1) + record("0.000000", 0, 0, 0) +
                                     record("86400.000000", EV_KEY, KEY_UP, 0) + record("86400.000000", 0, 0, 0));
  Program program({"replay", "--realtime", file});
  EXPECT_TRUE(program.waitFor("key down    Up\n"));
  program.signal(SIGINT);
  const Result result = program.finish();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(linesOf(result.out).back().rfind("1 event in ", 0), 0U) << result.out;
}

TEST(Replay, NamesTheFileAndLineOfABrokenRecord) {
  const Folder folder;
  const std::string file = folder.write("mouse.evemu", kDescription + "E: 0.000000 \x1b[31m\n");
  const Result result = run({"replay", folder.path("")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "quarlo-input: " + file + ":5: the type is \"\\x1b[31m\", expected a hexadecimal number from 0 to ffff\n");
}

// As after a loss of power: an empty file, one that goes on behind NUL bytes, one that ends within a line.
TEST(Replay, PlaysWhatIsWholeOfADamagedSessionAndSaysWhatIsMissing) {
  const Folder folder;
  const auto press = [](const std::string& time) { return record(time, EV_KEY, KEY_UP, 1) + record(time, 0, 0, 0); };
  folder.write("mouse.evemu", "");
  folder.write("keyboard.evemu", kDescription + press("0.000000") + std::string(588, '\0'));
  folder.write("keyboard.0003.evemu", kDescription + press("2.000000"));
  folder.write("remote.lirc", "# quarlo-input session 2\n1.000000 0 00 KEY_OK tv\n3.000000 0 00 KEY_DO");
  const std::string warnings =
      "quarlo-input: " + folder.path("mouse.evemu") +
      ": this is an empty file; expected evemu's text format, as evemu-record writes it; it is left out\n"
      "quarlo-input: " +
      folder.path("keyboard.evemu") +
      ":7: a NUL byte: this is not a text file; what comes before is played, the last 588 bytes are not\n"
      "quarlo-input: " +
      folder.path("keyboard.0002.evemu") +
      ": missing; the parts after it are played\n"
      "quarlo-input: " +
      folder.path("remote.lirc") +
      ":3: no newline ends this line, the last: it was cut off; what comes before is played, the last 20 bytes are "
      "not\n";
  const Result result = run({"replay", folder.path()});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, warnings);
  EXPECT_EQ(eventsOf(result.out),
            (std::vector<std::string>{"key down    Up", "key down    Enter           13", "key down    Up"}));
  const Result json = run({"replay", "--json", folder.path()});
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(json.err.rfind(warnings, 0), 0U) << json.err;
  const std::vector<std::string> lines = linesOf(json.out);
  EXPECT_EQ(lines.size(), 4U);
  for (const std::string& line : lines) EXPECT_TRUE(nlohmann::json::accept(line)) << line;
}

TEST(Replay, EscapesTheNamesAndTheLinesOfASession) {
  const Folder folder;
  const std::string path = folder.write(kHostile + ".lirc", "0.000000 0 00 KEY_UP " + kHostile + "more\n");
  const Result result = run({"replay", path});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: " + folder.path(kHostileEscaped) +
                            R"(.lirc:2: the time is "\x7f\xffmore", expected <seconds>.<microseconds>, the latter in )"
                            "six digits; what comes before is played, the last 7 bytes are not\n");
  for (const std::string option : {"-vv", "--json"}) {
    const Result played = run({"replay", option, folder.write("tv.lirc", "0.000000 0 00 KEY_\x9b \x1b]0;x\x07\n")});
    EXPECT_EQ(played.status, 0);
    EXPECT_TRUE(isHarmless(played.out + played.err)) << played.out << played.err;
  }
}

// The daemon closes the connection of a client that has 280 lines to read.
TEST(Replay, EndsWhenTheDaemonWouldDropAReaderThatDoesNotKeepUp) {
  const Folder folder;
  std::string lines;
  for (int i = 0; i < 300; ++i) lines += "0.000000 0 00 KEY_UP tv\n";
  const std::string path = folder.write("tv.lirc", lines + "86400.000000 0 00 KEY_OK tv\n");
  for (const std::string loop : {"wait", "poll"}) {
    const Result result = run({"replay", "--loop", loop, path});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "quarlo-input: " + path +
                              ": the remote's lines come faster than the reader takes them, so that the LIRC daemon "
                              "would close the connection; the rest was not played\n");
    EXPECT_EQ(eventsOf(result.out).front(), "key down    Up");
    EXPECT_EQ(result.out.find("Enter"), std::string::npos);
  }
}

TEST(Replay, SaysThatThereIsNotEnoughMemory) {
  const Folder folder;
  std::string lines;
  for (int i = 0; i < 1'000'000; ++i) lines += "0.000000 a\n";
  const std::string path = folder.write("tv.lirc", lines);
  const Arguments limit = {"prlimit", "--as=33554432"};
  if (run({"--version"}, Output::kPipe, limit).status != 0) GTEST_SKIP() << "a sanitizer takes all addresses";
  const Result result = run({"replay", path}, Output::kPipe, limit);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: " + path + ": there is not enough memory for this session\n");
}

TEST(Replay, NamesASessionThatIsMissing) {
  const Result result = run({"replay", "/nowhere/session"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "quarlo-input: /nowhere/session: No such file or directory\n");
}

TEST(Replay, IntoAClosedPipeFailsQuietly) {
  const Result result = run({"replay", sample("desk")}, Output::kClosedPipe);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

TEST(Replay, OntoAFullDiskSaysSo) {
  const Result result = run({"replay", sample("desk")}, Output::kFullDisk);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, kNotWritten);
}

TEST(Replay, IntoAFileThatMayNotGetLargerSaysSo) {
  const Folder folder;
  Arguments launcher = {"prlimit", "--fsize=100"};
  for (const std::string& word : redirected(">\"$0\"", folder.path("out"))) launcher.push_back(word);
  const Result result = run({"replay", sample("desk")}, Output::kPipe, launcher);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, kNotWritten);
}

TEST(Replay, WithoutAnOutputSaysSo) {
  for (const std::string redirection : {">&-", "<&- >&-"}) {
    const Result result = run({"replay", sample("desk")}, Output::kPipe, redirected(redirection));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, kNotWritten);
  }
}

}  // namespace
}  // namespace quarlo::tools
