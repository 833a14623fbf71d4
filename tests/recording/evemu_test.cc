#include "recording/evemu.h"

#include <linux/input-event-codes.h>

#include <array>
#include <chrono>
#include <map>
#include <set>

#include "tests/recording/recording_test.h"

namespace quarlo::recording {

using namespace std::chrono_literals;

namespace {

using Codes = std::map<int, std::set<int>>;

constexpr char kBits[] = "B: 00 02 00 00 00 00 00 00 00\n";
constexpr char kRecord[] = "E: 0.000000 0000 0000 0\n";

DeviceRecording evemu(const std::string& text, microseconds start = 0us) { return readText<EvemuReader>(text, start); }

using Axes = std::map<int, std::array<int, 6>>;

// Of each axis value, minimum, maximum, fuzz, flat, resolution.
Axes axes(const DeviceRecording& recording) {
  Axes axes;
  for (const auto& [code, axis] : recording.axes) {
    axes[code] = {axis.value, axis.minimum, axis.maximum, axis.fuzz, axis.flat, axis.resolution};
  }
  return axes;
}

// What is wrong with a recording whose second line is `line`.
std::string errorOfLine(const std::string& line) {
  return errorOf([&] { evemu(kBits + line + "\n" + kRecord); });
}

TEST(Evemu, ReadsTheNameTheCodesAndTheRecords) {
  const DeviceRecording recording = evemu(
      "# EVEMU 1.3\n"
      "# Kernel: 6.1\n"
      "N: A Mouse #2\n"
      "I: 0003 046d c077 0111\n"
      "P: 05 00 00 00\n"
      "P: 40 00 00 00\n"
      "B: 00 07 00 10 00 00 00 00 00\n"
      "B: 01 02 00 00 00 00 00 00 00\n"
      "B: 01 00 00 00 00 00 00 00 80\n"
      "B: 02 03 01 00 00 00 00 00 00\n"
      "A: 00 0 255 3 4\n"
      "A: 2f -1 9 0 0 12\n"
      "L: 00 1\n"
      "S: 00 0\n"
      "\n"
      "E: 0.000001 0001 0001 0001\t# EV_KEY / KEY_ESC              1\n"
      "E: 0.000001 0000 0000 0000\t# ------------ SYN_REPORT (0) ----------\n"
      "E: 12.250000 0002 0008 -0002\n");

  EXPECT_EQ(recording.name, "A Mouse #2");
  EXPECT_EQ(recording.id.bustype, BUS_USB);
  EXPECT_EQ(recording.id.vendor, 0x046d);
  EXPECT_EQ(recording.id.product, 0xc077);
  EXPECT_EQ(recording.id.version, 0x0111);
  EXPECT_EQ(recording.properties, (std::set<int>{INPUT_PROP_POINTER, INPUT_PROP_BUTTONPAD}));
  EXPECT_EQ(axes(recording), (Axes{{ABS_X, {0, 0, 255, 3, 4, 0}}, {ABS_MT_SLOT, {0, -1, 9, 0, 0, 12}}}));
  EXPECT_EQ(recording.codes, (Codes{{EV_KEY, {1, 127}}, {EV_REL, {REL_X, REL_Y, REL_WHEEL}}, {EV_REP, {}}}));
  EXPECT_EQ(recording.records,
            (std::vector<Record>{{1us, EV_KEY, 1, 1}, {1us, EV_SYN, 0, 0}, {12250000us, EV_REL, REL_WHEEL, -2}}));
}

TEST(Evemu, ReadsADescriptionWithoutNumbersPropertiesAndAxes) {
  const DeviceRecording recording = evemu(std::string(kBits) + kRecord);
  EXPECT_EQ(recording.id.bustype, 0);
  EXPECT_EQ(recording.properties, std::set<int>());
  EXPECT_EQ(axes(recording), Axes());
}

TEST(Evemu, LeavesOutPropertiesThatNoKernelHas) {
  const DeviceRecording recording = evemu(std::string(kBits) + "P: 00 00 00 80 01 00 00 00\n" + kRecord);
  EXPECT_EQ(recording.properties, (std::set<int>{INPUT_PROP_MAX}));
}

TEST(Evemu, ReadsTheExtremesOfARecord) {
  const DeviceRecording recording = evemu(std::string(kBits) +
                                          "E: 0.999999 ffff FFFF -2147483648\n"
                                          "E: 86400.000000 0 0 2147483647");
  EXPECT_EQ(recording.records, (std::vector<Record>{{999999us, 0xffff, 0xffff, INT32_MIN}, {24h, 0, 0, INT32_MAX}}));
}

TEST(Evemu, TakesLinesThatEndAsOnWindows) {
  EXPECT_EQ(evemu("N: Keyboard\r\nB: 00 02\r\nE: 0.000000 0001 001e 1\r\n").name, "Keyboard");
}

TEST(Evemu, TakesABackslashForItselfWithoutTheMark) {
  EXPECT_EQ(evemu(std::string("# EVEMU 1.3\nN: a\\x41\\\n") + kBits + kRecord).name, "a\\x41\\");
}

TEST(Evemu, ReadsTheEscapesOfANameUnderTheMark) {
  const auto name = [](const std::string& line) { return evemu(kMark + line + "\n" + kBits + kRecord).name; };
  EXPECT_EQ(name(R"(N: \x20a\x1b\\x\xff)"), " a\x1b\\x\xff");
  EXPECT_EQ(name("N: plain"), "plain");
  EXPECT_EQ(errorOf([&] { name(R"(N: a\n)"); }),
            "file:3: a backslash is followed neither by another one nor by x and two hexadecimal digits");
}

TEST(Evemu, KnowsTheMarkAmongTheCommentsAtTheTopOnly) {
  constexpr char kName[] = "N: \\x41\n";
  const std::string mark = "# quarlo-input session 2";
  const auto name = [](const std::string& text) { return evemu(text + kRecord).name; };
  EXPECT_EQ(name("# EVEMU 1.3\r\n\n \n# more\n" + mark + "\r\n" + kName + kBits), "A");
  EXPECT_EQ(name(kBits + mark + "\n" + kName), "\\x41");
  EXPECT_EQ(name("#" + mark + "\n" + kName + kBits), "\\x41");
}

TEST(Evemu, CountsTheTimesFromTheStartOfTheSession) {
  const DeviceRecording recording = evemu(std::string(kBits) +
                                              "E: 1329846856.201613 0002 0001 -1\n"
                                              "E: 1329846857.000000 0000 0000 0\n",
                                          1329846856s);
  EXPECT_EQ(recording.records, (std::vector<Record>{{201613us, EV_REL, REL_Y, -1}, {1s, EV_SYN, 0, 0}}));
}

TEST(Evemu, NamesTheLineAndWhatIsWrongWithARecord) {
  EXPECT_EQ(errorOfLine("E: 0.000000 zz 0000 0"),
            "file:2: the type is \"zz\", expected a hexadecimal number from 0 to ffff");
  EXPECT_EQ(errorOfLine("E: 0.000000 0001 10000 0"),
            "file:2: the code is \"10000\", expected a hexadecimal number from 0 to ffff");
  EXPECT_EQ(errorOfLine("E: 0.000000 0001 001e 2147483648"),
            "file:2: the value is \"2147483648\", expected a decimal number from -2147483648 to 2147483647");
  EXPECT_EQ(errorOfLine("E: 0.000000 0001 001e"),
            "file:2: the value is \"\", expected a decimal number from -2147483648 to 2147483647");
  EXPECT_EQ(errorOfLine("E: 0.000000 0001 001e 1 1"), "file:2: \"1\" follows, expected the line's end");
}

TEST(Evemu, NamesTheLineOfATimeThatIsNone) {
  const std::string expected = ", expected <seconds>.<microseconds>, the latter in six digits";
  for (const std::string time : {"5", "0.5", "0.0000001", "-1.000000", "a.000000", "0.00000x", "4294967296.000000"}) {
    EXPECT_EQ(errorOfLine("E: " + time + " 0001 001e 1"), "file:2: the time is \"" + time + "\"" + expected);
  }
}

TEST(Evemu, NamesTheLineWhereTimeGoesBack) {
  EXPECT_EQ(errorOf([] { evemu(std::string(kBits) + "E: 1.000001 0 0 0\nE: 1.000000 0 0 0\n"); }),
            "file:3: the time \"1.000000\" is less than the one before it");
}

TEST(Evemu, NamesTheLineOfATimeThatIsNotOfTheSession) {
  EXPECT_EQ(errorOfLine("E: 1329846856.201613 0 0 0"),
            "file:2: the time \"1329846856.201613\" is more than 24 hours after the start of the session, 0.000000");
  EXPECT_EQ(errorOf([] { evemu(std::string(kBits) + "E: 10.500000 0 0 0\nE: 86410.000001 0 0 0\n", 10s); }),
            "file:3: the time \"86410.000001\" is more than 24 hours after the start of the session, 10.000000");
}

TEST(Evemu, NamesTheLineAndWhatIsWrongWithTheDescription) {
  EXPECT_EQ(errorOfLine("B: 20 00"), "file:2: the event type is \"20\", expected a hexadecimal number from 0 to 1f");
  EXPECT_EQ(errorOfLine("B: 01 100"),
            "file:2: a capability byte is \"100\", expected a hexadecimal number from 0 to ff");
  EXPECT_EQ(errorOfLine("I: 0003 046d c077"),
            "file:2: an identifier is \"\", expected a hexadecimal number from 0 to ffff");
  EXPECT_EQ(errorOfLine("P: xy"), "file:2: a property byte is \"xy\", expected a hexadecimal number from 0 to ff");
  EXPECT_EQ(errorOfLine("A: 00 0 255 0"),
            "file:2: a number of the axis is \"\", expected a decimal number from -2147483648 to 2147483647");
  EXPECT_EQ(errorOfLine("A: 00 0 255 0 0 0 7"), "file:2: \"7\" follows, expected the line's end");
  EXPECT_EQ(errorOfLine("L: 00 on"),
            "file:2: the state is \"on\", expected a decimal number from -2147483648 to 2147483647");
  EXPECT_EQ(errorOfLine("X: 1"), "file:2: the line is \"X: 1\", expected a comment (#) or N: I: P: B: A: L: S: or E:");
}

TEST(Evemu, RefusesWhatFollowsTheLastNumberOfALine) {
  for (const std::string line : {"I: 0003 046d c077 0111", "A: 00 0 255 0 0 0", "L: 00 1", "S: 00 0"}) {
    EXPECT_EQ(errorOfLine(line), "") << line;
    EXPECT_EQ(errorOfLine(line + "  # a comment"), "") << line;
    EXPECT_EQ(errorOfLine(line + " 7"), "file:2: \"7\" follows, expected the line's end");
  }
}

TEST(Evemu, ReadsEachBitOfItsBytes) {
  const DeviceRecording recording = evemu(std::string(kBits) + "B: 01 ff 00 81\nB: 01 01\nP: 81 01 00 80\n" + kRecord);
  EXPECT_EQ(recording.codes, (Codes{{EV_KEY, {0, 1, 2, 3, 4, 5, 6, 7, 16, 23, 24}}}));
  EXPECT_EQ(recording.properties, (std::set<int>{0, 7, 8, INPUT_PROP_MAX}));
}

TEST(Evemu, NamesEachNumberThatIsWrong) {
  const std::string decimal = "\", expected a decimal number from -2147483648 to 2147483647";
  EXPECT_EQ(errorOfLine("A: 40 0 1 0 0"), "file:2: the axis is \"40\", expected a hexadecimal number from 0 to 3f");
  EXPECT_EQ(errorOfLine("A: 00 0 1 0 0 x"), "file:2: the axis's resolution is \"x" + decimal);
  for (const std::string label : {"L: ", "S: "}) {
    EXPECT_EQ(errorOfLine(label + "100 1"), "file:2: the code is \"100\", expected a hexadecimal number from 0 to ff");
    EXPECT_EQ(errorOfLine(label + "ff x"), "file:2: the state is \"x" + decimal);
  }
}

TEST(Evemu, BoundsTheCapabilityBytes) {
  std::string bytes;
  for (int i = 0; i < 96; ++i) bytes += " 00";
  EXPECT_EQ(errorOfLine("B: 01" + bytes), "");
  EXPECT_EQ(errorOfLine("B: 01" + bytes + " 00"), "file:2: more than 96 capability bytes for one event type");
}

TEST(Evemu, BoundsTheLine) {
  EXPECT_EQ(errorOfLine("#" + std::string(16415, 'x')), "");
  EXPECT_EQ(errorOfLine("#" + std::string(16416, 'x')), "file:2: the line has more than 16416 bytes");
}

TEST(Evemu, TellsALastLineThatWasCutOff) {
  const std::string hint = "; no newline ends this line, the last: it may have been cut off";
  const std::string whole = std::string(kBits) + kRecord;
  EXPECT_EQ(errorOf([&] { evemu(whole + "E: 0.00"); }),
            "file:3: the time is \"0.00\", expected <seconds>.<microseconds>, the latter in six digits" + hint);
  EXPECT_EQ(errorOf([&] { evemu(whole + "E: 0.000000 0001 001e"); }),
            "file:3: the value is \"\", expected a decimal number from -2147483648 to 2147483647" + hint);
}

TEST(Evemu, NeedsANewlineAtTheEndOnlyUnderTheMark) {
  const std::string cut = std::string(kBits) + "E: 0.000000 0001 001e 1";
  EXPECT_EQ(evemu(cut).records, (std::vector<Record>{{0us, EV_KEY, 30, 1}}));
  EXPECT_EQ(errorOf([&] { evemu(kMark + cut); }), "file:4: no newline ends this line, the last: it was cut off");
  EXPECT_EQ(evemu(kMark + cut + "\n# cut").records.size(), 1U);
}

TEST(Evemu, KeepsWhatIsBeforeATailOfNulBytes) {
  const std::string whole = std::string(kBits) + kRecord;
  for (const std::string& tail : {std::string(297, '\0'), "E: 1.00" + std::string(290, '\0')}) {
    std::vector<std::string> problems;
    EXPECT_EQ(readDamaged<EvemuReader>({whole + tail}, problems).records, (std::vector<Record>{{0us, 0, 0, 0}}));
    EXPECT_EQ(problems,
              (std::vector<std::string>{"1:3: a NUL byte: this is not a text file; what comes before is played, "
                                        "the last 297 bytes are not"}));
  }
  std::vector<std::string> problems;
  readDamaged<EvemuReader>({whole + "x"}, problems);
  EXPECT_EQ(problems.at(0).substr(problems.at(0).find("; what")),
            "; what comes before is played, the last 1 byte is not");
}

TEST(Evemu, GoesOnInTheNextFileWithTheFirstDescription) {
  const std::string bits = "B: 01 02\n";
  std::vector<std::string> problems;
  const DeviceRecording recording = readDamaged<EvemuReader>(
      {"E: 0.000001 0001 0001 1\n", "N: broken\nB: 01 04\nP: xy\n", "N: first\n" + bits,
       "N: second\nB: 01 08\nE: 0.000001 0001 0001 0\nE: 0.000002 zz\n", "E: 0.000002 0001 0001 1\n"},
      problems);
  EXPECT_EQ(recording.name, "first");
  EXPECT_EQ(recording.codes, (Codes{{EV_KEY, {KEY_ESC}}}));
  EXPECT_EQ(recording.records, (std::vector<Record>{{1us, EV_KEY, 1, 1}, {1us, EV_KEY, 1, 0}, {2us, EV_KEY, 1, 1}}));
  EXPECT_EQ(problems, (std::vector<std::string>{
                          "2:3: a property byte is \"xy\", expected a hexadecimal number from 0 to ff",
                          "3: no records (lines that start with E:): there is nothing to play",
                          "4:4: the type is \"zz\", expected a hexadecimal number from 0 to ffff; what comes before is "
                          "played, the last 15 bytes are not"}));
}

TEST(Evemu, NamesTheLineThatKeepsADescriptionFromBeingRead) {
  std::vector<std::string> problems;
  EXPECT_EQ(errorOf([&] { readDamaged<EvemuReader>({std::string(kRecord) + "nonsense\n" + kBits}, problems); }),
            "1:2: the line is \"nonsense\", expected a comment (#) or N: I: P: B: A: L: S: or E:");
}

TEST(Evemu, RejectsWhatIsNoText) {
  EXPECT_EQ(errorOfLine(std::string("N: a\0b", 6)), "file:2: a NUL byte: this is not a text file");
}

TEST(Evemu, CutsWhatItQuotes) {
  EXPECT_EQ(errorOfLine(std::string(41, 'x')), "file:2: the line is \"" + std::string(40, 'x') +
                                                   "...\", expected a comment (#) or N: I: P: B: A: L: S: or E:");
}

TEST(Evemu, NeedsCapabilitiesAndRecords) {
  EXPECT_EQ(errorOf([] { evemu(kRecord); }),
            "file: no capability lines (B:), which describe the device: if they are in another file, play the two "
            "together, or put both into one");
  EXPECT_EQ(errorOf([] { evemu(kBits); }), "file: no records (lines that start with E:): there is nothing to play");
}

// The recording of two files, "one" and "other".
DeviceRecording pair(std::string one, std::string other, std::optional<Damage>* damage = nullptr) {
  EvemuPair pair = readEvemuPair({openText(one).get(), "one"}, {openText(other).get(), "other"}, 0us);
  if (damage != nullptr) *damage = pair.damage;
  return pair.recording;
}

constexpr char kDescription[] = "N: Keyboard\nB: 01 02\n";
constexpr char kRecords[] = "# EVEMU 1.0\nE: 0.000000 0001 0001 1\n";

TEST(EvemuPair, IsADescriptionAndItsRecordsInEitherOrder) {
  for (const DeviceRecording& recording : {pair(kDescription, kRecords), pair(kRecords, kDescription)}) {
    EXPECT_EQ(recording.name, "Keyboard");
    EXPECT_EQ(recording.codes, (Codes{{EV_KEY, {KEY_ESC}}}));
    EXPECT_EQ(recording.records, (std::vector<Record>{{0us, EV_KEY, KEY_ESC, 1}}));
  }
}

TEST(EvemuPair, KeepsTheRecordsBeforeALineThatIsWrong) {
  for (const bool swapped : {false, true}) {
    const std::string broken = std::string(kRecords) + "nonsense\n";
    std::optional<Damage> damage;
    EXPECT_EQ((swapped ? pair(broken, kDescription, &damage) : pair(kDescription, broken, &damage)).records,
              (std::vector<Record>{{0us, EV_KEY, KEY_ESC, 1}}));
    ASSERT_TRUE(damage);
    EXPECT_EQ(damage->problem.rfind(swapped ? "one:3: " : "other:3: ", 0), 0U);
    EXPECT_EQ(damage->consequence, "what comes before is played, the last 9 bytes are not");
  }
}

TEST(EvemuPair, OfTwoThatDoNotFitTogetherIsAnError) {
  const auto complaint = [](const std::string& problem) {
    return "one and other: " + problem +
           ", expected a device's description in one of them, and its records in the other";
  };
  const std::string whole = std::string(kDescription) + kRecord;
  EXPECT_EQ(errorOf([] { pair(kRecords, kRecords); }), complaint("neither has capability lines (B:)"));
  EXPECT_EQ(errorOf([] { pair(kDescription, kDescription); }), complaint("both have capability lines (B:)"));
  EXPECT_EQ(errorOf([&] { pair(whole, kDescription); }), complaint("both have capability lines (B:)"));
  EXPECT_EQ(errorOf([&] { pair(whole, kRecords); }), complaint("both have records (E:)"));
}

TEST(EvemuPair, NamesTheFileThatIsBrokenOrHasNoRecords) {
  EXPECT_EQ(errorOf([] { pair("B: 01 zz\n", kRecords); }),
            "one:1: a capability byte is \"zz\", expected a hexadecimal number from 0 to ff");
  EXPECT_EQ(errorOf([] { pair(kDescription, "E: 0.000000 0001 0001\n"); }),
            "other:1: the value is \"\", expected a decimal number from -2147483648 to 2147483647");
  EXPECT_EQ(errorOf([] { pair(kDescription, "# EVEMU 1.0\n"); }),
            "other: no records (lines that start with E:): there is nothing to play");
  EXPECT_EQ(errorOf([] { pair("# nothing\n", kDescription); }),
            "one: no records (lines that start with E:): there is nothing to play");
}

}  // namespace
}  // namespace quarlo::recording
