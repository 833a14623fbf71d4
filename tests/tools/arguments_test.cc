#include <gtest/gtest.h>

#include <chrono>

#include "recording/session.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

// Where help is.
std::string hint(const std::string& command = "") {
  return " (see quarlo-input" + (command.empty() ? "" : " " + command) + " --help)\n";
}

// What a wrong call says, for the exit status 2 and nothing on standard output.
std::string usageError(const Arguments& arguments) {
  const Result result = run(arguments);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  return result.err;
}

TEST(Arguments, ACommandIsRequired) {
  EXPECT_EQ(
      usageError({}),
      "quarlo-input: a command is required: monitor, list, doctor, keymap, record, replay, report or tune" + hint());
}

TEST(Arguments, ThatAreUnknownAreNamedWithWhatIsNear) {
  EXPECT_EQ(usageError({"moniter"}), "quarlo-input: \"moniter\" is not a command; did you mean monitor?" + hint());
  EXPECT_EQ(usageError({"sing"}), "quarlo-input: \"sing\" is not a command" + hint());
  EXPECT_EQ(usageError({"--versoin"}),
            "quarlo-input: \"--versoin\" is not an option; did you mean --version?" + hint());
  EXPECT_EQ(usageError({"monitor", "--keybord", "/dev/null"}),
            "quarlo-input: \"--keybord\" is not an option of monitor; did you mean --keyboard?" + hint("monitor"));
  EXPECT_EQ(usageError({"monitor", "--sise=5x5"}),
            "quarlo-input: \"--sise=5x5\" is not an option of monitor; did you mean --size?" + hint("monitor"));
  EXPECT_EQ(usageError({"list", "--loud"}), "quarlo-input: \"--loud\" is not an option of list" + hint("list"));
}

TEST(Arguments, AMisspeltOptionIsNamedBeforeOneThatIsMissing) {
  EXPECT_EQ(usageError({"record", "--outptu", "x"}),
            "quarlo-input: \"--outptu\" is not an option of record; did you mean --output?" + hint("record"));
}

TEST(Arguments, AnOptionOfACommandStandsBehindIt) {
  EXPECT_EQ(usageError({"--json", "list"}),
            "quarlo-input: \"--json\" is not an option here: options of list stand behind list" + hint("list"));
  EXPECT_EQ(usageError({"-v", "monitor"}),
            "quarlo-input: \"-v\" is not an option here: options of monitor stand behind monitor" + hint("monitor"));
}

TEST(Arguments, OfDoctorNameASource) {
  EXPECT_EQ(
      usageError({"doctor", "--mouse", "none", "--keyboard", "none", "--lirc", "none"}),
      "quarlo-input: all sources are left out: leave out one \"none\", or name a node with --also" + hint("doctor"));
}

TEST(Arguments, ThatAreTooManySayWhatToDoInstead) {
  const std::string byOption = ": name a node with --mouse, --keyboard or --also, and a socket with --lirc";
  EXPECT_EQ(usageError({"monitor", "/dev/input/event0"}),
            "quarlo-input: \"/dev/input/event0\" is one argument too many" + byOption + hint("monitor"));
  EXPECT_EQ(usageError({"tune", "sofa", "75"}),
            "quarlo-input: \"75\" is one argument too many: one session is studied at a time: put evemu's description "
            "and events into one file; the values "
            "of a list have commas between them" +
                hint("tune"));
  EXPECT_EQ(usageError({"list", "x"}), "quarlo-input: \"x\" is one argument too many" + hint("list"));
}

TEST(Arguments, ThatAreMissingAreNamed) {
  EXPECT_EQ(usageError({"monitor", "--mouse"}), "quarlo-input: --mouse needs a value: NODE|none" + hint("monitor"));
  EXPECT_EQ(usageError({"replay"}), "quarlo-input: session is required" + hint("replay"));
  EXPECT_EQ(usageError({"record"}), "quarlo-input: --output is required" + hint("record"));
  EXPECT_EQ(
      usageError({"record", "-o", ""}),
      "quarlo-input: --output: the name is empty: expected a directory to make, such as evening" + hint("record"));
  EXPECT_EQ(usageError({"monitor", "--keyboard", ""}),
            "quarlo-input: --keyboard: the path is empty: expected a path, or \"none\"" + hint("monitor"));
}

TEST(Arguments, ThatExcludeEachOtherAreNamed) {
  EXPECT_EQ(usageError({"keymap", "--json", "--markdown"}),
            "quarlo-input: --json cannot be combined with --markdown" + hint("keymap"));
  EXPECT_EQ(usageError({"monitor", "--tui", "--json"}),
            "quarlo-input: --json cannot be combined with --tui" + hint("monitor"));
}

TEST(Arguments, AnOptionIsGivenOnce) {
  EXPECT_EQ(usageError({"monitor", "--size", "5x5", "--size", "6x6"}),
            "quarlo-input: --size can be given only once" + hint("monitor"));
}

TEST(Arguments, AreEscaped) {
  for (const Arguments& arguments : {Arguments{kHostile},
                                     {"-" + kHostile},
                                     {"monitor", "--" + kHostile},
                                     {"list", kHostile},
                                     {"monitor", "--timeout", kHostile},
                                     {"monitor", "--count", kHostile},
                                     {"replay", "x", "--size", kHostile},
                                     {"tune", "--protocol", kHostile},
                                     {"tune", "--period", kHostile},
                                     {"tune", "--repeat-timeout", kHostile},
                                     {"record", "-o", "x", "--duration", kHostile}}) {
    const std::string error = usageError(arguments);
    EXPECT_NE(error.find(kHostileEscaped), std::string::npos) << error;
    EXPECT_TRUE(isHarmless(error)) << error;
    EXPECT_EQ(linesOf(error).size(), 1U) << error;
  }
}

TEST(Arguments, FlagsTakeNoValue) {
  for (const std::string flag : {"--json", "--verbose", "--show-keycodes", "--tui"}) {
    for (const std::string value : {"2", "false", "99999999999999999999"}) {
      EXPECT_EQ(usageError({"monitor", flag + "=" + value}),
                "quarlo-input: " + flag + " takes no value" + hint("monitor"));
    }
  }
}

TEST(Arguments, TimeoutWithoutALimitIsRefusedWithTheReason) {
  EXPECT_EQ(usageError({"monitor", "--timeout", "-1"}),
            "quarlo-input: --timeout: -1 is refused: without a limit, the reader can sleep through input once a wait "
            "has ended; use a short time such as 10" +
                hint("monitor"));
}

// What a wrong value of an option says, without its beginning and its end.
std::string complaintAbout(const std::string& command, const std::string& option, const std::string& value) {
  Arguments arguments = {command, option, value};
  if (command == "record") arguments.insert(arguments.end(), {"-o", "x"});
  if (command == "replay") arguments.emplace_back("x");
  const std::string error = usageError(arguments);
  const std::string start = "quarlo-input: " + option + ": ";
  const std::string end = hint(command);
  EXPECT_EQ(error.rfind(start, 0), 0U) << error;
  EXPECT_EQ(error.rfind(end), error.size() - end.size()) << error;
  return error.substr(start.size(), error.size() - start.size() - end.size());
}

TEST(Arguments, TimeoutIsANumberOfMilliseconds) {
  for (const std::string text : {"0", "-2", "2147484", "1.5", "x", "10ms", "99999999999"}) {
    EXPECT_EQ(complaintAbout("replay", "--timeout", text),
              "\"" + text + "\" is not a number of milliseconds: expected 1 to 2147483, such as 10");
  }
}

TEST(Arguments, FurtherNodesAreEightAtMost) {
  for (const std::string command : {"monitor", "record"}) {
    Arguments arguments = {command};
    for (int i = 1; i <= 9; ++i) arguments.insert(arguments.end(), {"--also", "/dev/input/event" + std::to_string(i)});
    if (command == "record") arguments.insert(arguments.end(), {"-o", "x"});
    EXPECT_EQ(usageError(arguments),
              "quarlo-input: --also: \"/dev/input/event9\" is one node too many: leave it out, for there can be 8 "
              "further ones" +
                  hint(command));
  }
}

TEST(Arguments, AFurtherNodeHasAPath) {
  EXPECT_EQ(usageError({"monitor", "--also"}), "quarlo-input: --also needs a value: NODE" + hint("monitor"));
  EXPECT_EQ(complaintAbout("monitor", "--also", ""), "the path is empty: expected that of an evdev node");
}

// Each is followed by one path alone.
TEST(Arguments, OfAFurtherNodeIsOnePath) {
  EXPECT_EQ(usageError({"monitor", "--also", "a", "b"}),
            "quarlo-input: \"b\" is one argument too many: name a node with --mouse, --keyboard or --also, and a "
            "socket with --lirc" +
                hint("monitor"));
}

TEST(Arguments, FurtherNodesNeedALoopThatWaits) {
  for (const Arguments& arguments : {Arguments{"monitor", "--also", "x", "--loop", "poll"},
                                     {"monitor", "--loop", "poll", "--timeout", "5", "--also", "x"}}) {
    EXPECT_EQ(usageError(arguments),
              "quarlo-input: --also is for the loop that waits: leave out --loop poll, or the further nodes" +
                  hint("monitor"));
  }
}

TEST(Arguments, TimeoutNeedsALoopThatPolls) {
  for (const Arguments& arguments : {Arguments{"monitor", "--timeout", "10"},
                                     {"monitor", "--timeout", "10", "--loop", "wait"},
                                     {"replay", "--timeout", "10", "x"},
                                     {"tune", "--timeout", "10,20"}}) {
    EXPECT_EQ(usageError(arguments),
              "quarlo-input: --timeout is for the loop that polls: expected --loop poll beside it, such as --loop poll "
              "--timeout 10" +
                  hint(arguments.front()));
  }
}

TEST(Arguments, LoopIsOneOfTwo) {
  for (const std::string command : {"monitor", "replay", "tune"}) {
    for (const std::string text : {"", "Poll", "polls", "10"}) {
      EXPECT_EQ(complaintAbout(command, "--loop", text),
                "\"" + text + "\" is not a loop: expected wait or poll, such as poll");
    }
  }
}

TEST(Arguments, SizeIsTwoNumbers) {
  for (const std::string text : {"1920", "1920x", "x1080", "0x1", "1x0", "65537x1", "1x65537", "-1x5", "1x2x3"}) {
    EXPECT_EQ(complaintAbout("replay", "--size", text),
              "\"" + text + "\" is not a size: expected WIDTHxHEIGHT, each from 1 to 65536, such as 1920x1080");
  }
}

TEST(Arguments, CountIsAPositiveNumber) {
  for (const std::string text : {"0", "-1", "many", "2147483648"}) {
    EXPECT_EQ(complaintAbout("monitor", "--count", text),
              "\"" + text + "\" is not a number of events: expected 1 to 2147483647, such as 10");
  }
}

TEST(Arguments, DurationIsANumberOfSeconds) {
  const std::string most = std::to_string(std::chrono::seconds(recording::kLongestSession).count());
  for (const std::string& text : Arguments{"0", "0.09", "-1", most + ".1", "x", "5s", "1e1", "inf", "nan", ""}) {
    EXPECT_EQ(complaintAbout("record", "--duration", text),
              "\"" + text + "\" is not a number of seconds: expected 0.1 to " + most + ", such as 10");
  }
}

TEST(Arguments, DurationIsAtMostAsLongAsASession) {
  const std::string most = std::to_string(std::chrono::seconds(recording::kLongestSession).count());
  const Result result =
      run({"record", "-o", "x", "--duration", most, "--mouse", "none", "--keyboard", "none", "--lirc", "none"});
  EXPECT_EQ(result.err, "quarlo-input: no source is open\n");
}

TEST(Arguments, TimeoutsToTryAreLists) {
  for (const std::string text : {"0", "-1", "2147483648", "x", "10ms", "1,,2", "1,", ",", ""}) {
    EXPECT_EQ(complaintAbout("tune", "--release-timeout", text),
              "\"" + text +
                  "\" is not a list of milliseconds: expected numbers from 1 to 2147483647 with commas between them, "
                  "such as 50,100");
  }
  EXPECT_EQ(
      complaintAbout("tune", "--timeout", "10,2147484"),
      "\"10,2147484\" is not a list of milliseconds: expected numbers from 1 to 2147483 with commas between them, "
      "such as 50,100");
}

TEST(Arguments, TooManySettingsAreRefused) {
  EXPECT_EQ(complaintAbout("tune", "--repeat-timeout", "1,2,3,4,5,6,7,8,9"), "at most 8 values can be tried at once");
  EXPECT_EQ(usageError({"tune", "--repeat-timeout", "1,2,3,4,5,6,7", "--release-timeout", "1,2,3,4,5", "--loop", "poll",
                        "--timeout", "1,2,3,4,5,6"}),
            "quarlo-input: the lists make 210 settings, and at most 200 can be tried at once" + hint("tune"));
}

TEST(Arguments, ARemoteIsDescribedByNumbersWithinLimits) {
  for (const std::string text : {"9", "500", "x", "108.5", ""}) {
    EXPECT_EQ(complaintAbout("tune", "--period", text),
              "\"" + text + "\" is not a number of milliseconds: expected 10 to 499, such as 108");
  }
  EXPECT_EQ(complaintAbout("tune", "--tap", "51"), "\"51\" is not a number of lines: expected 1 to 50, such as 3");
  EXPECT_EQ(complaintAbout("tune", "--hold", "499"),
            "\"499\" is not a number of milliseconds: expected 500 to 10000, such as 2000");
  EXPECT_EQ(
      complaintAbout("tune", "--protocol", "smoke"),
      "\"smoke\" is not a known protocol: expected one of nec, rc-5, rc-6, sirc; describe another one by --period, "
      "--tap and --hold");
}

TEST(Arguments, AProtocolsNameIsTheSameInCapitals) {
  EXPECT_EQ(run({"tune", "--protocol", "RC-5"}).out, run({"tune", "--protocol", "rc-5"}).out);
}

TEST(Arguments, ATapOfHalfASecondIsNone) {
  EXPECT_EQ(complaintAbout("tune", "--tap", "6"),
            "6 lines take 540 ms: that is a held button, a tap takes less than 500 ms");
}

TEST(Arguments, ASessionHasARemoteOfItsOwn) {
  for (const Arguments& option :
       {Arguments{"--protocol", "nec"}, {"--period", "108"}, {"--tap", "3"}, {"--hold", "2000"}}) {
    EXPECT_EQ(usageError({"tune", "sofa", option[0], option[1]}),
              "quarlo-input: the session \"sofa\" has a remote of its own: leave out --protocol, --period, --tap and "
              "--hold, or the session" +
                  hint("tune"));
  }
  EXPECT_EQ(usageError({"tune", ""}),
            "quarlo-input: session: the name is empty: expected a directory or a file, such as evening" + hint("tune"));
}

TEST(Arguments, APictureIsAnSvg) {
  for (const std::string name : {"", ".svg", "a.png", "a.svg.gz", "svg"}) {
    EXPECT_EQ(complaintAbout("tune", "--plot", name),
              "\"" + name + "\" is not a name that ends in .svg: pictures are SVG, such as remote.svg");
  }
}

TEST(Arguments, APageIsHtml) {
  for (const std::string name : {"", ".html", "a.htm", "a.html.gz", "html"}) {
    EXPECT_EQ(complaintAbout("tune", "--html", name),
              "\"" + name + "\" is not a name that ends in .html: pages are HTML, such as remote.html");
  }
}

TEST(Arguments, LircPathHasAtMost107Characters) {
  EXPECT_EQ(complaintAbout("monitor", "--lirc", std::string(108, 'a')),
            "the path has 108 characters, and a socket's can have 107; use a shorter one, such as a link");
  const Result longest = run({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", std::string(107, 'a')});
  EXPECT_EQ(longest.status, 1);
  EXPECT_EQ(longest.err, "quarlo-input: no source is open\n");
}

const Arguments kCommands = {"monitor", "list", "doctor", "keymap", "record", "replay", "report", "tune"};

TEST(Help, SaysWhatACommandDoesWithAnExampleAndTheExitStatuses) {
  for (const std::string& command : kCommands) {
    const Result result = run({command, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const std::string& part : {"Usage: quarlo-input " + command, std::string("Example"),
                                    "  quarlo-input " + command, std::string("Exit status: 0 ")}) {
      EXPECT_NE(result.out.find(part), std::string::npos) << part;
    }
  }
}

TEST(Help, NamesTheCommands) {
  const Result result = run({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const std::string command :
       {"  monitor  ", "  list  ", "  doctor  ", "  keymap  ", "  record  ", "  replay  ", "  report  ", "  tune  "}) {
    EXPECT_NE(result.out.find(command), std::string::npos) << command;
  }
}

// Its words are read by people and by scripts: a change of them is a change of these files.
TEST(Help, IsThatOfItsGoldenFile) {
  const std::string folder = QUARLO_GOLDEN;
  EXPECT_EQ(run({"--help"}).out, contentOf(folder + "/help.txt"));
  for (const std::string& command : kCommands) {
    const std::string help = run({command, "--help"}).out;
    if (command == "monitor" && help.find("--tui") == std::string::npos) continue;  // built without the screen
    EXPECT_EQ(help, contentOf(folder + "/help-" + command + ".txt"));
  }
}

TEST(Help, FitsATerminal) {
  constexpr std::size_t kColumns = 80;
  Arguments commands = kCommands;
  commands.emplace_back("help");  // that of the program itself
  for (const std::string& command : commands) {
    for (const std::string& line : linesOf(run({command, "--help"}).out)) EXPECT_LE(line.size(), kColumns) << line;
  }
}

TEST(Help, IsACommandToo) {
  EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
  EXPECT_EQ(run({"help", "tune"}).out, run({"tune", "--help"}).out);
  EXPECT_EQ(usageError({"help", "moniter"}),
            "quarlo-input: \"moniter\" is not a command; did you mean monitor?" + hint());
}

TEST(Version, HasTwoOptions) {
  EXPECT_EQ(run({"-V"}).status, 0);
  EXPECT_EQ(run({"-V"}).out, run({"--version"}).out);
  EXPECT_NE(run({"--version"}).out, "");
}

TEST(Help, IntoAClosedPipeFailsQuietly) {
  const Result result = run({"--help"}, Output::kClosedPipe);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace quarlo::tools
