// The reader on the socket of the real LIRC daemon. Timing is made certain by timeouts that are far longer, or shorter,
// than a test takes; the timing itself is tested in virtual time.
#include <gtest/gtest.h>
#include <poll.h>

#include <cstdlib>
#include <optional>

#include "tests/support/files.h"
#include "tests/support/lircd.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

class DaemonTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Lircd::isAvailable()) GTEST_SKIP() << "the LIRC daemon is not unpacked here: script/fetch-lirc does it";
    daemon.emplace(folder.path());
    ASSERT_TRUE(daemon->start());
    resetLog();
  }

  // Makes the reader with this release timeout in the environment, and connects it.
  void connect(const char* releaseTimeoutMs) {
    setenv("LIRC_RELEASE_TIMEOUT", releaseTimeoutMs, 1);
    reader.emplace();
    unsetenv("LIRC_RELEASE_TIMEOUT");
    ASSERT_TRUE(reader->init("/none", "/none", daemon->socketPath().c_str(), 1280, 720));
    takeLog();
  }

  // Reads until the daemon's text ends with `end`, and returns the events up to there.
  Lines readUntil(const std::string& end) {
    constexpr int kTries = 1000;
    Lines events;
    text.clear();
    log.clear();
    for (int i = 0; i < kTries; ++i) {
      const std::string event = readOne(*reader, 10);
      if (event != kNone) events.push_back(event);
      for (const std::string& message : takeLog()) note(message);
      if (text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0) return events;
    }
    ADD_FAILURE() << "the daemon never sent " << end << ", only " << text;
    return events;
  }

  Lines press(const std::string& button, const std::string& repeatCount) {
    EXPECT_TRUE(daemon->simulate(button, repeatCount));
    return readUntil(repeatCount + " " + button + " myremote\n");
  }

  Folder folder;
  std::optional<Lircd> daemon;
  std::optional<LinuxInputReader> reader;
  std::string text;  // what the daemon sent
  Lines log;         // what else the reader said

 private:
  void note(const std::string& message) {
    const std::string echo = "VERBOSE2 LIRC string: ";
    if (message.rfind(echo, 0) == 0) {
      text += message.substr(echo.size());
    } else {
      log.push_back(message);
    }
  }
};

TEST_F(DaemonTest, APressIsAKeyDown) {
  connect("600000");
  EXPECT_EQ(press("KEY_UP", "00"), Lines({keyDown(38)}));
  EXPECT_EQ(text, "0000000000f40bf0 00 KEY_UP myremote\n");
  EXPECT_EQ(press("KEY_NUMERIC_7", "00"), Lines({keyDown('7', '7')}));
  EXPECT_EQ(press("KEY_POWER", "00"), Lines({keyDown(409, 153)}));
}

TEST_F(DaemonTest, AnUnknownButtonIsNamedAndRejected) {
  connect("600000");
  EXPECT_EQ(press("KEY_SUBTITLE", "00"), Lines({}));
  EXPECT_EQ(log, Lines({"VERBOSE2 LIRC unknown: SUBTITLE"}));
}

TEST_F(DaemonTest, RepeatsWithinTheReleaseTimeoutAreSkipped) {
  connect("600000");
  EXPECT_EQ(press("KEY_OK", "00"), Lines({keyDown(13, 13)}));
  for (const char* repeatCount : {"01", "0a", "ff", "100"}) {
    EXPECT_EQ(press("KEY_OK", repeatCount), Lines({})) << repeatCount;
    EXPECT_EQ(log, Lines({"VERBOSE10 LIRC keypress skipped - too close."}));
  }
  EXPECT_EQ(press("KEY_OK", "00"), Lines({keyDown(13, 13)}));
}

TEST_F(DaemonTest, RepeatsBeyondTheReleaseTimeoutAreKeyDowns) {
  connect("1");
  EXPECT_EQ(press("KEY_OK", "00"), Lines({keyDown(13, 13)}));
  for (const char* repeatCount : {"01", "0a", "ff", "100"}) {
    poll(nullptr, 0, 2);  // all of the release timeout
    EXPECT_EQ(press("KEY_OK", repeatCount), Lines({keyDown(13, 13)})) << repeatCount;
  }
}

TEST_F(DaemonTest, AReloadIsRejectedSilentlyAndPressesGoOn) {
  connect("600000");
  press("KEY_UP", "00");  // once it arrives, the daemon knows of the connection
  daemon->reload();
  EXPECT_EQ(readUntil("END\n"), Lines({}));
  EXPECT_EQ(text, "BEGIN\nSIGHUP\nEND\n");
  EXPECT_EQ(log, Lines({}));
  EXPECT_EQ(press("KEY_UP", "00"), Lines({keyDown(38)}));
}

TEST_F(DaemonTest, AfterItsDeathTheRemoteIsSilentAndItsSocketRefuses) {
  connect("600000");
  daemon->stop();
  EXPECT_EQ(readAll(*reader), Lines({}));
  EXPECT_EQ(takeLog(), Lines({}));

  LinuxInputReader next;
  EXPECT_FALSE(next.init("/none", "/none", daemon->socketPath().c_str(), 1280, 720));
  EXPECT_EQ(takeLog().back(), "ERROR Could not open LIRC socket " + daemon->socketPath());
}

TEST_F(DaemonTest, AfterARestartANewReaderHearsItAndTheOldOneDoesNot) {
  connect("600000");
  daemon->stop();
  ASSERT_TRUE(daemon->start());
  EXPECT_TRUE(daemon->simulate("KEY_UP", "00"));
  EXPECT_EQ(readAll(*reader), Lines({}));
  connect("600000");
  EXPECT_EQ(press("KEY_UP", "00"), Lines({keyDown(38)}));
}

}  // namespace
}  // namespace quarlo::test
