#include "recording/remote.h"

#include <chrono>

#include "tests/recording/recording_test.h"

namespace quarlo::recording {

using namespace std::chrono_literals;

namespace {

std::vector<RemoteLine> remote(const std::string& text, microseconds start = 0us) {
  return readText<RemoteReader>(text, start);
}

TEST(Remote, ReadsTheTimesAndTheLinesAsTheyAre) {
  EXPECT_EQ(remote("# a tap\n"
                   "0.500000 0000000000f40bf0 00 KEY_OK myremote\n"
                   "\n"
                   "0.500000 BEGIN\n"
                   "1.610000  two  spaces \n"),
            (std::vector<RemoteLine>{
                {500ms, "0000000000f40bf0 00 KEY_OK myremote"}, {500ms, "BEGIN"}, {1610ms, " two  spaces "}}));
}

TEST(Remote, CountsTheTimesFromTheStartOfTheSession) {
  EXPECT_EQ(remote("70.000000 a\n70.110000 b\n", 70s), (std::vector<RemoteLine>{{0us, "a"}, {110ms, "b"}}));
}

TEST(Remote, KeepsATextOnceHoweverOftenItCame) {
  const std::vector<RemoteLine> lines = remote("0.000000 a\n0.100000 b\n0.200000 a\n");
  EXPECT_EQ(&lines[0].text.get(), &lines[2].text.get());
  EXPECT_EQ(lines[1].text.get(), "b");
}

TEST(Remote, NamesTheLineAndWhatIsWrong) {
  EXPECT_EQ(errorOf([] { remote("0.000000 a\n0.1 b\n"); }),
            "file:2: the time is \"0.1\", expected <seconds>.<microseconds>, the latter in six digits");
  EXPECT_EQ(errorOf([] { remote("2.000000 a\n1.000000 b\n"); }),
            "file:2: the time \"1.000000\" is less than the one before it");
  for (const std::string line : {"0.000000", "0.000000 "}) {
    EXPECT_EQ(errorOf([&] { remote(line + "\n"); }),
              "file:1: nothing follows the time, expected the line that the LIRC daemon sent");
  }
}

TEST(Remote, TakesABackslashForItselfWithoutTheMark) {
  EXPECT_EQ(remote("0.000000 \\x1b \\\n"), (std::vector<RemoteLine>{{0us, "\\x1b \\"}}));
}

TEST(Remote, ReadsTheEscapesUnderTheMark) {
  EXPECT_EQ(remote(kMark + R"(0.000000 \x20\x00\x0d
0.000001 a\\b)"
                           "\n0.000002 \n"),
            (std::vector<RemoteLine>{{0us, std::string(" \0\r", 3)}, {1us, "a\\b"}, {2us, ""}}));
  EXPECT_EQ(errorOf([] { remote(kMark + "0.000000 \\\n"); }),
            "file:3: a backslash is followed neither by another one nor by x and two hexadecimal digits");
  EXPECT_EQ(errorOf([] { remote(kMark + "0.000000\n"); }),
            "file:3: nothing follows the time, expected the line that the LIRC daemon sent");
}

TEST(Remote, KeepsWhatIsBeforeALineThatIsWrong) {
  std::vector<std::string> problems;
  EXPECT_EQ(readDamaged<RemoteReader>({"0.000000 a\n1.000000 b\n0.500000 c\n1.500000 d\n"}, problems),
            (std::vector<RemoteLine>{{0us, "a"}, {1s, "b"}}));
  EXPECT_EQ(problems, (std::vector<std::string>{"1:3: the time \"0.500000\" is less than the one before it; what comes "
                                                "before is played, the last 22 bytes are not"}));
}

TEST(Remote, GoesOnInTheNextFile) {
  std::vector<std::string> problems;
  EXPECT_EQ(readDamaged<RemoteReader>({"1.000000 a\n9.000000\n", "# nothing\n", "2.000000 b\n", "1.500000 c\n",
                                       kMark + "2.000000 \\x41\n3.000000 cut"},
                                      problems),
            (std::vector<RemoteLine>{{1s, "a"}, {2s, "b"}, {2s, "A"}}));
  EXPECT_EQ(problems,
            (std::vector<std::string>{
                "1:2: nothing follows the time, expected the line that the LIRC daemon sent; what comes before is "
                "played, the last 9 bytes are not",
                "2: no lines: there is nothing to play", "4:1: the time \"1.500000\" is less than the one before it",
                "5:4: no newline ends this line, the last: it was cut off; what comes before is played, the last 12 "
                "bytes are not"}));
}

TEST(Remote, NeedsALine) {
  EXPECT_EQ(errorOf([] { remote("# nothing\n"); }), "file: no lines: there is nothing to play");
}

}  // namespace
}  // namespace quarlo::recording
