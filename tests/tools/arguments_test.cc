#include <gtest/gtest.h>

#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

const std::string kHint = " (see quarlo-input --help)\n";

// What a wrong call says, for the exit status 2 and nothing on standard output.
std::string usageError(const Arguments& arguments) {
  const Result result = run(arguments);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  return result.err;
}

TEST(Arguments, ThatAreNonsenseAreNamed) {
  EXPECT_EQ(usageError({}),
            "quarlo-input: a command is required: monitor, list, keymap, record, replay or tune" + kHint);
  EXPECT_EQ(usageError({"sing"}), "quarlo-input: The following argument was not expected: sing" + kHint);
  EXPECT_EQ(usageError({"monitor", "--loud"}), "quarlo-input: The following argument was not expected: --loud" + kHint);
  EXPECT_EQ(usageError({"monitor", "--mouse"}), "quarlo-input: --mouse: 1 required PATH missing" + kHint);
  EXPECT_EQ(usageError({"replay"}), "quarlo-input: session is required" + kHint);
  EXPECT_EQ(usageError({"record"}), "quarlo-input: --output is required" + kHint);
  EXPECT_EQ(usageError({"keymap", "--json", "--markdown"}), "quarlo-input: --json excludes --markdown" + kHint);
  EXPECT_EQ(usageError({"record", "-o", ""}), "quarlo-input: --output: the name is empty" + kHint);
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
  for (const std::string flag : {"json", "verbose", "show-keycodes", "tui"}) {
    for (const std::string value : {"2", "false", "99999999999999999999"}) {
      EXPECT_EQ(usageError({"monitor", "--" + flag + "=" + value}),
                "quarlo-input: " + flag + " was given a disallowed flag override" + kHint);
    }
  }
}

TEST(Arguments, JsonIsNotForAScreen) {
  EXPECT_EQ(usageError({"monitor", "--tui", "--json"}), "quarlo-input: --json excludes --tui" + kHint);
}

TEST(Arguments, TimeoutWithoutALimitIsRefusedWithTheReason) {
  EXPECT_EQ(usageError({"monitor", "--timeout", "-1"}),
            "quarlo-input: --timeout: -1 is refused: without a limit, the reader can sleep through input once a wait "
            "has ended; use a short time such as 10" +
                kHint);
}

TEST(Arguments, TimeoutIsANumberOfMilliseconds) {
  for (const std::string text : {"0", "-2", "2147484", "1.5", "x", "10ms", "99999999999"}) {
    EXPECT_EQ(usageError({"replay", "x", "--timeout", text}),
              "quarlo-input: --timeout: " + text + " is no number of milliseconds from 1 to 2147483" + kHint);
  }
}

TEST(Arguments, SizeIsTwoNumbers) {
  for (const std::string text : {"1920", "1920x", "x1080", "0x1", "1x0", "65537x1", "1x65537", "-1x5", "1x2x3"}) {
    EXPECT_EQ(usageError({"replay", "x", "--size", text}),
              "quarlo-input: --size: " + text + " is no size such as 1920x1080, of numbers from 1 to 65536" + kHint);
  }
}

TEST(Arguments, CountIsAPositiveNumber) {
  for (const std::string text : {"0", "-1", "many", "2147483648"}) {
    EXPECT_EQ(usageError({"monitor", "--count", text}),
              "quarlo-input: --count: " + text + " is no number of events from 1 to 2147483647" + kHint);
  }
}

TEST(Arguments, DurationIsANumberOfSeconds) {
  for (const std::string text : {"0", "0.09", "-1", "86400.1", "x", "5s", "1e1", "inf", "nan", ""}) {
    EXPECT_EQ(usageError({"record", "-o", "x", "--duration", text}),
              "quarlo-input: --duration: " + text + " is no number of seconds from 0.1 to 86400" + kHint);
  }
}

TEST(Arguments, TimeoutsToTryAreLists) {
  for (const std::string text : {"0", "-1", "2147483648", "x", "10ms", "1,,2", "1,", ",", ""}) {
    EXPECT_EQ(usageError({"tune", "--release-timeout", text}),
              "quarlo-input: --release-timeout: " + text +
                  " is no list such as 50,100 of numbers of milliseconds from 1 to 2147483647" + kHint);
  }
  EXPECT_EQ(
      usageError({"tune", "--timeout", "10,2147484"}),
      "quarlo-input: --timeout: 10,2147484 is no list such as 50,100 of numbers of milliseconds from 1 to 2147483" +
          kHint);
}

TEST(Arguments, TooManySettingsAreRefused) {
  EXPECT_EQ(usageError({"tune", "--repeat-timeout", "1,2,3,4,5,6,7,8,9"}),
            "quarlo-input: --repeat-timeout: at most 8 values can be tried at once" + kHint);
  EXPECT_EQ(usageError({"tune", "--repeat-timeout", "1,2,3,4,5,6,7", "--release-timeout", "1,2,3,4,5", "--timeout",
                        "1,2,3,4,5,6"}),
            "quarlo-input: the lists make 210 settings, and at most 200 can be tried at once" + kHint);
}

TEST(Arguments, ARemoteIsDescribedByNumbersWithinLimits) {
  for (const std::string text : {"9", "500", "x", "108.5", ""}) {
    EXPECT_EQ(usageError({"tune", "--period", text}),
              "quarlo-input: --period: " + text + " is no number of milliseconds from 10 to 499" + kHint);
  }
  EXPECT_EQ(usageError({"tune", "--tap", "51"}), "quarlo-input: --tap: 51 is no number of lines from 1 to 50" + kHint);
  EXPECT_EQ(usageError({"tune", "--hold", "499"}),
            "quarlo-input: --hold: 499 is no number of milliseconds from 500 to 10000" + kHint);
  EXPECT_EQ(usageError({"tune", "--protocol", "smoke"}),
            "quarlo-input: --protocol: smoke is none of nec, rc-5, rc-6, sirc; describe it by --period, --tap and "
            "--hold instead" +
                kHint);
}

TEST(Arguments, ATapOfHalfASecondIsNone) {
  EXPECT_EQ(usageError({"tune", "--tap", "6"}),
            "quarlo-input: --tap: 6 lines take 540 ms: that is a held button, a tap takes less than 500 ms" + kHint);
}

TEST(Arguments, ASessionHasARemoteOfItsOwn) {
  for (const Arguments& option :
       {Arguments{"--protocol", "nec"}, {"--period", "108"}, {"--tap", "3"}, {"--hold", "2000"}}) {
    EXPECT_EQ(usageError({"tune", "sofa", option[0], option[1]}),
              "quarlo-input: a session has a remote of its own: leave out --protocol, --period, --tap and --hold, or "
              "the session" +
                  kHint);
  }
  EXPECT_EQ(usageError({"tune", ""}), "quarlo-input: session: the name is empty" + kHint);
}

TEST(Arguments, APictureIsAnSvg) {
  for (const std::string name : {"", ".svg", "a.png", "a.svg.gz", "svg"}) {
    EXPECT_EQ(
        usageError({"tune", "--plot", name}),
        "quarlo-input: --plot: \"" + name + "\" does not end in .svg: pictures are SVG, such as remote.svg" + kHint);
  }
}

TEST(Arguments, LircPathHasAtMost107Characters) {
  EXPECT_EQ(usageError({"monitor", "--lirc", std::string(108, 'a')}),
            "quarlo-input: --lirc: the path has 108 characters, and a socket's can have 107; use a shorter one, such "
            "as a link" +
                kHint);
  const Result longest = run({"monitor", "--mouse", "none", "--keyboard", "none", "--lirc", std::string(107, 'a')});
  EXPECT_EQ(longest.status, 1);
  EXPECT_EQ(longest.err, "quarlo-input: no source is open\n");
}

TEST(Help, SaysWhatACommandDoesWithAnExampleAndTheExitStatuses) {
  for (const std::string command : {"monitor", "list", "keymap", "record", "replay", "tune"}) {
    const Result result = run({command, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    for (const std::string& part : {"Usage: quarlo-input " + command, std::string("Example: "),
                                    "  quarlo-input " + command, std::string("Exit status: 0 ")}) {
      EXPECT_NE(result.out.find(part), std::string::npos) << part;
    }
  }
}

TEST(Help, NamesTheCommands) {
  const Result result = run({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const std::string command : {"  monitor  ", "  list  ", "  keymap  ", "  record  ", "  replay  ", "  tune  "}) {
    EXPECT_NE(result.out.find(command), std::string::npos) << command;
  }
}

TEST(Help, IntoAClosedPipeFailsQuietly) {
  const Result result = run({"--help"}, Output::kClosedPipe);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace quarlo::tools
