#include "tools/common/lirc_line.h"

#include <gtest/gtest.h>

#include <string>

#include "input/linux_input_reader.h"
#include "sim/machine.h"

namespace quarlo::tools {
namespace {

using components::input::LinuxInputReader;

constexpr char kSocket[] = "remote";

// Whether the reader itself gives a key for a button.
bool givesAKey(const std::string& button) {
  sim::Machine machine;
  sim::LircDaemon& daemon = machine.addLircDaemon(kSocket);
  LinuxInputReader reader;
  reader.lircFd = reader.openLircSocket(kSocket);
  daemon.send(button);
  LinuxInputReader::InputEvent event = {};
  return reader.getLircEvent(reader.lircFd, event);
}

TEST(LircLine, HasTheFieldsThatLircdWrites) {
  const LircLine line = parseLircLine("0000000000f40bf0 0a KEY_OK my-tv").value();
  EXPECT_EQ(line.code, "0000000000f40bf0");
  EXPECT_EQ(line.repeat, "0a");
  EXPECT_EQ(line.button, "KEY_OK");
  EXPECT_EQ(line.remote, "my-tv");
}

TEST(LircLine, IsOfNoOtherForm) {
  for (const char* line :
       {"", "KEY_OK", "f4 00 KEY_OK", "f4 00 KEY_OK ", "f4 00  tv", "f4 00 KEY_OK my tv", "g4 00 KEY_OK tv",
        "f4 0x KEY_OK tv", " 00 KEY_OK tv", "00000000000000001 00 KEY_OK tv", "f4 123456789 KEY_OK tv"}) {
    EXPECT_FALSE(parseLircLine(line)) << line;
  }
}

TEST(LircLine, IsABroadcastOnlyIfItIsAllOfTheLine) {
  EXPECT_TRUE(isLircBroadcast("SIGHUP"));
  EXPECT_FALSE(isLircBroadcast("SIGHUP "));
}

// None, or what it says: "BUTTON: description".
std::string unknown(const std::string& line) {
  const std::optional<UnknownLine> found = findUnknown(line);
  return found ? std::string(found->button) + ": " + found->description : "none";
}

TEST(UnknownLine, IsOfAButtonThatTheReaderDoesNotKnow) {
  EXPECT_EQ(unknown("0000000000f40bf0 00 KEY_PLAYPAUSE tv"), "KEY_PLAYPAUSE: an unknown button");
  EXPECT_EQ(unknown("0000000000f40bf0 00 KEY_UP_EVUP tv"), "KEY_UP_EVUP: an unknown button");
  for (const char* line : {"0000000000f40bf0 00 KEY_UP tv", "0000000000f40bf0 0a key_5 tv", "f4 00 KEY_UP my tv",
                           "BEGIN", "SIGHUP", "END", ""}) {
    EXPECT_EQ(unknown(line), "none") << line;
  }
}

// What is left of a line, with the next one behind it.
TEST(UnknownLine, MayBeACutOne) {
  const std::string line = "0000000000f40bf0 15 KEY_UP tv";
  int perhapsCut = 0;
  for (std::size_t size = 1; size < line.size(); ++size) {
    const std::string text = line.substr(0, size) + line;
    const std::string found = unknown(text);
    if (found == "none") continue;  // the name of the button came whole
    EXPECT_NE(found.find(": an unknown button, or a cut line"), std::string::npos) << text;
    ++perhapsCut;
  }
  EXPECT_GT(perhapsCut, 5);
  EXPECT_EQ(unknown("f4 00 15 tv"), "15: an unknown button, or a cut line");
  EXPECT_EQ(unknown("f4 00 KEY_15 tv"), "KEY_15: an unknown button, or a cut line");
}

TEST(UnknownLine, IsCutIfItHasNotAllFields) {
  for (const char* line :
       {"x", "f40bf0 00", "f40bf0 00 KEY_UP", "f40bf0 00 KEY_UP ", "f40bf0  KEY_UP tv", "f4 00  tv"}) {
    EXPECT_EQ(unknown(line), ": a cut line") << line;
  }
}

TEST(LircButton, IsKnownIfTheReaderKnowsIt) {
  int known = 0;
  for (const std::string button : {"KEY_OK",
                                   "ok",
                                   "Key_Ok",
                                   "KEY_KEY_OK",
                                   "KEY_NUMERIC_OK",
                                   "KEY_NUMERIC_KEY_OK",
                                   "NUMERIC_OK",
                                   "KEY_NUMERIC_",
                                   "KEY_",
                                   "KEY_5",
                                   "5",
                                   "KEY_NUMERIC_5",
                                   "KEY_NUMERIC_15",
                                   "15",
                                   "KEY_?",
                                   "%",
                                   "\xe4",
                                   "\xc3\xa4",
                                   "KEY_PLAYPAUSE",
                                   "PLAYPAUSE",
                                   "KEY_OK_EVUP",
                                   "KEY_VOLUMEUP",
                                   "VOLUME_UP",
                                   "VOL",
                                   "KEY",
                                   "KEY_A",
                                   "KEY_NUMERIC",
                                   "KEY_NUMERIC_KEY",
                                   "key_numeric_1",
                                   "\xcb\x45Y_OK",
                                   "CURSOR_LEFT",
                                   "myremote",
                                   "KEY_EPG",
                                   "0000000000f40bf0"}) {
    EXPECT_EQ(isKnownButton(button), givesAKey(button)) << button;
    if (isKnownButton(button)) ++known;
  }
  EXPECT_GT(known, 10);
}

TEST(LircButton, IsNamedIfItIsMoreThanACharacter) {
  EXPECT_TRUE(isNamedButton("key_numeric_ok"));
  EXPECT_FALSE(isNamedButton("KEY_5"));
}

}  // namespace
}  // namespace quarlo::tools
