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
