// The remote's lines: which are taken, and which key and character a button gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "tests/support/turkish_locale.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

class LircLinesTest : public ReaderTest {
 protected:
  // What the reader makes of a text that arrives by itself.
  std::string read(const std::string& text) {
    daemon.sendText(text);
    takeLog();
    return readOne(reader);
  }

  // A line with this button, as a fresh press.
  std::string press(const std::string& button) { return read("0000000000f40bf0 00 " + button + " myremote\n"); }

  // Whether a line with this repeat count is a fresh press: then the timing takes it although the key is held.
  bool isFresh(const std::string& repeatCount) {
    machine.advance(10s);
    readAll(reader);
    EXPECT_EQ(press("KEY_OK"), keyDown(13, 13));
    if (read("0000000000f40bf0 " + repeatCount + " KEY_OK myremote\n") != kNone) return true;
    EXPECT_EQ(takeLog().back(), "VERBOSE10 LIRC keypress skipped - too close.");
    return false;
  }

  void expectEveryButton();

  Lines unknown(const std::string& text, const std::string& name) {
    return {"VERBOSE2 LIRC string: " + text, "VERBOSE2 LIRC unknown: " + name};
  }
};

struct Button {
  const char* name;
  int key;
  int ch;
  int storedCh;
};

constexpr Button kButtons[] = {
    {"CURSOR_UP", 38, 0, 0},   {"UP", 38, 0, 0},           {"CURSOR_DOWN", 40, 0, 0},  {"DOWN", 40, 0, 0},
    {"CURSOR_LEFT", 37, 0, 0}, {"LEFT", 37, 0, 0},         {"CURSOR_RIGHT", 39, 0, 0}, {"RIGHT", 39, 0, 0},
    {"SELECT", 13, 13, 13},    {"OK", 13, 13, 13},         {"POWER", 409, 153, 409},   {"RED", 403, 0, 0},
    {"GREEN", 404, 0, 0},      {"YELLOW", 405, 0, 0},      {"BLUE", 406, 0, 0},        {"RETURN", 461, 0, 0},
    {"BACK", 461, 0, 0},       {"MUTE", 449, 0, 0},        {"VOLUMEUP", 447, 0, 0},    {"VOLUMEDOWN", 448, 0, 0},
    {"CHANNELUP", 427, 0, 0},  {"CHANNELDOWN", 428, 0, 0}, {"HOME", 36, 0, 0},         {"STOP", 413, 0, 0},
    {"PLAY", 415, 0, 0},       {"PAUSE", 19, 0, 0},        {"REWIND", 412, 0, 0},      {"FASTFORWARD", 417, 0, 0},
    {"RECORD", 416, 0, 0},     {"TRACK_NEXT", 425, 0, 0},  {"TRACK_PREV", 424, 0, 0},
};

constexpr const char* kNamedButtons[] = {
#define LIRC_BUTTON(name, key, character) name,
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
};

TEST_F(LircLinesTest, Names_EveryButtonIsTestedOnce) {
  for (const std::string name : kNamedButtons) {
    const auto rows = std::count_if(std::begin(kButtons), std::end(kButtons),
                                    [&](const Button& button) { return button.name == name; });
    EXPECT_EQ(rows, 1) << "kButtons in tests/unit/lirc_lines_test.cc must have one row for " << name
                       << ", which input/lirc_buttons.inc has";
  }
  EXPECT_EQ(std::size(kButtons), std::size(kNamedButtons));
}

// Of ASCII alone.
std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

void LircLinesTest::expectEveryButton() {
  for (const Button& button : kButtons) {
    for (const char* prefix : {"", "KEY_", "KEY_NUMERIC_", "key_", "Key_Numeric_", "KEY_NUMERIC_KEY_"}) {
      const std::string name = prefix + std::string(button.name);
      EXPECT_EQ(press(name), keyDown(button.key, button.ch)) << name;
      EXPECT_EQ(reader.lircKey, button.key) << name;
      EXPECT_EQ(reader.lircChar, button.storedCh) << name;
      EXPECT_EQ(press(lowerCase(name)), keyDown(button.key, button.ch)) << name;
    }
  }
}

TEST_F(LircLinesTest, Names_EveryButtonWithAndWithoutPrefixInAnyCase) { expectEveryButton(); }

TEST_F(LircLinesTest, Names_AreTheSameForAnApplicationInTurkish) {
  const TurkishLocale turkish;
  expectEveryButton();
  EXPECT_EQ(press("key_numeric_5"), keyDown('5', '5'));
  EXPECT_EQ(press("Right"), keyDown(39));
}

// A byte that differs from a letter's, or from _, as a small letter differs from a capital.
TEST_F(LircLinesTest, Names_OnlyLettersOfAsciiHaveTwoCases) {
  for (const char* name : {"CURSOR\x7fUP", "KEY\x7fUP", "CURSOR\xdfUP", "\xd5P", "\xf5p", "U\x30", "RE\xe4"}) {
    EXPECT_EQ(press(name), kNone) << name;
    EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: " + std::string(name));
  }
}

TEST_F(LircLinesTest, Names_ThePrefixesAreDroppedOnceAndInTheirOrder) {
  EXPECT_EQ(press("KEY_KEY_OK"), kNone);
  EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: KEY_OK");
  EXPECT_EQ(press("KEY_KEY_NUMERIC_1"), kNone);
  EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: KEY_NUMERIC_1");
  EXPECT_EQ(press("KEY_NUMERIC_KEY_NUMERIC_1"), kNone);
  EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: NUMERIC_1");
  EXPECT_EQ(press("XKEY_OK"), kNone);
  EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: XKEY_OK");
  EXPECT_EQ(press("XEY_OK"), kNone);
  EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: XEY_OK");
}

TEST_F(LircLinesTest, Names_ADigitAndALetterAreTheirOwnKey) {
  EXPECT_EQ(press("KEY_NUMERIC_7"), keyDown('7', '7'));
  EXPECT_EQ(press("KEY_7"), keyDown('7', '7'));
  EXPECT_EQ(press("KEY_A"), keyDown('A', 'A'));
  EXPECT_EQ(press("a"), keyDown('a', 'a'));
  EXPECT_EQ(press("_"), keyDown('_', '_'));
}

TEST_F(LircLinesTest, Names_EverySingleByteIsItsOwnValue) {
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == ' ') continue;
    EXPECT_EQ(press(std::string(1, static_cast<char>(byte))), keyDown(byte, byte)) << byte;
    EXPECT_EQ(reader.lircChar, byte);
  }
}

TEST_F(LircLinesTest, Names_UnknownOnesAreNamedWithoutPrefixAndRejected) {
  EXPECT_EQ(press("KEY_FOO"), kNone);
  EXPECT_EQ(takeLog(), unknown("0000000000f40bf0 00 KEY_FOO myremote\n", "FOO"));
  EXPECT_EQ(press("KEY_NUMERIC_11"), kNone);
  EXPECT_EQ(takeLog(), unknown("0000000000f40bf0 00 KEY_NUMERIC_11 myremote\n", "11"));
  EXPECT_EQ(press("KEY_"), kNone);
  EXPECT_EQ(takeLog(), unknown("0000000000f40bf0 00 KEY_ myremote\n", ""));
  EXPECT_EQ(press("KEY_NUMERIC_"), kNone);
  EXPECT_EQ(takeLog(), unknown("0000000000f40bf0 00 KEY_NUMERIC_ myremote\n", ""));
}

TEST_F(LircLinesTest, Names_APartOrAnExtensionOfANameIsUnknown) {
  for (const char* name : {"OKAY", "PLA", "PLAYPAUSE", "VOLUME", "FASTFORWARDS", "CURSOR_RIGHTS"}) {
    EXPECT_EQ(press(name), kNone) << name;
    EXPECT_EQ(takeLog().back(), "VERBOSE2 LIRC unknown: " + std::string(name));
  }
}

TEST_F(LircLinesTest, Fields_TheRemotesNameDoesNotMatterButTheSpaceBeforeItDoes) {
  EXPECT_EQ(read("0000000000f40bf0 00 KEY_UP myremote\n"), keyDown(38));
  EXPECT_EQ(read("x 00 KEY_UP "), keyDown(38));
  EXPECT_EQ(read("x 00 KEY_UP my remote has spaces\n"), keyDown(38));
  EXPECT_EQ(read(" 00 KEY_UP \n"), keyDown(38));
  EXPECT_EQ(read("0000000000f40bf0 00 KEY_UP\n"), kNone);
  EXPECT_EQ(takeLog(), Lines({"VERBOSE2 LIRC string: 0000000000f40bf0 00 KEY_UP\n"}));
}

TEST_F(LircLinesTest, Fields_MissingOnesAreRejectedSilently) {
  for (const char* text :
       {"\n", "BEGIN\n", "x", "x ", "x 00", "x 00 ", "x 00 KEY_UP", "x 00  myremote\n", "   ", " ", "  "}) {
    EXPECT_EQ(read(text), kNone) << '"' << text << '"';
    EXPECT_EQ(takeLog(), Lines({"VERBOSE2 LIRC string: " + std::string(text)}));
  }
}

TEST_F(LircLinesTest, Fields_TheDaemonsMessagesAboutAReloadAreRejectedSilently) {
  for (const char* text : {"BEGIN\n", "SIGHUP\n", "END\n", "BEGIN\nSIGHUP\nEND\n"}) {
    EXPECT_EQ(read(text), kNone);
    EXPECT_EQ(takeLog(), Lines({"VERBOSE2 LIRC string: " + std::string(text)}));
  }
}

TEST_F(LircLinesTest, RepeatCount_OnlyZeroesOrNothingIsAFreshPress) {
  for (const char* fresh : {"00", "0", "000", "0000000000", ""}) EXPECT_TRUE(isFresh(fresh)) << fresh;
  for (const char* repeat : {"01", "0a", "10", "ff", "100", "-0", "0x0", "x", "\t"}) {
    EXPECT_FALSE(isFresh(repeat)) << repeat;
  }
}

TEST_F(LircLinesTest, Read_FurtherLinesOfOneReadAreDiscarded) {
  EXPECT_EQ(read("x 00 KEY_UP myremote\nx 00 KEY_DOWN myremote\n"), keyDown(38));
  EXPECT_EQ(readOne(reader), kNone);
}

TEST_F(LircLinesTest, Read_AFirstLineWithoutARemoteTakesItsNameAcrossTheNewline) {
  const std::string text = "x 00 KEY_UP\ny 00 KEY_DOWN myremote\n";
  EXPECT_EQ(read(text), kNone);
  EXPECT_EQ(takeLog(), unknown(text, "UP\ny"));
}

TEST_F(LircLinesTest, Read_ALineOfMoreThan127BytesIsCutAndItsRestIsTheNextRead) {
  const std::string rest = "tail 00 KEY_DOWN myremote\n";
  const std::string head = "x 00 KEY_UP " + std::string(127 - 12, 'r');
  EXPECT_EQ(read(head + rest), keyDown(38));
  EXPECT_EQ(takeLog().front(), "VERBOSE2 LIRC string: " + head);
  EXPECT_EQ(readOne(reader), keyDown(40));
  EXPECT_EQ(takeLog().front(), "VERBOSE2 LIRC string: " + rest);
}

TEST_F(LircLinesTest, Read_ALineThatArrivesInTwoPiecesIsTwoTexts) {
  EXPECT_EQ(read("0000000000f40bf0 00 KEY"), kNone);
  EXPECT_EQ(read("_OK myremote\n"), kNone);
}

TEST_F(LircLinesTest, Read_TextEndsAtANul) {
  EXPECT_EQ(read(std::string("x 00 KEY_UP\0 myremote\n", 22)), kNone);
  EXPECT_EQ(takeLog(), Lines({"VERBOSE2 LIRC string: x 00 KEY_UP"}));
}

TEST_F(LircLinesTest, Read_OneReadACallOfAtMost127Bytes) {
  daemon.send("KEY_OK");
  daemon.send("KEY_OK", 1);
  readOne(reader);
  const Lines trace = machine.takeTrace();
  int reads = 0;
  for (const std::string& call : trace) reads += static_cast<int>(call.rfind("read(102, 127)", 0) == 0);
  EXPECT_EQ(reads, 1);
}

}  // namespace
}  // namespace quarlo::test
