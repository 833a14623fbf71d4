// The real LIRC daemon as it decodes: held buttons come with the repeat counts and at the pace that it makes of them.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/scenario/uinput.h"
#include "tests/support/files.h"
#include "tests/support/lircd.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Press {
  Clock::duration time;  // since the first
  std::string event;
};

class DecodingTest : public testing::Test {
 protected:
  void connect() {
    ASSERT_TRUE(reader.init("/nowhere", "/nowhere", daemon.socketPath().c_str(), 1280, 720));
    ASSERT_TRUE(daemon.simulate("NO_BUTTON", "00"));  // by now the daemon has noticed its client
    readAll(reader);
    resetLog();
  }

  // What the application's loop gets while this time passes.
  void readFor(Clock::duration time) {
    const Clock::time_point end = Clock::now() + time;
    while (Clock::now() < end) {
      const std::string event = readOne(reader, 10);
      if (event == kNone) continue;
      if (presses.empty()) first = Clock::now();
      presses.push_back({Clock::now() - first, event});
    }
  }

  // The lines of the daemon since the last call.
  static Lines takeLines() {
    const std::string echo = "VERBOSE2 LIRC string: ";
    Lines lines;
    for (const std::string& message : takeLog()) {
      if (message.rfind(echo, 0) == 0) lines.push_back(message.substr(echo.size()));
    }
    return lines;
  }

  // Held for a while, a button is a key-down, then nothing for the release timeout, then a key-down for each line. The
  // bounds are generous: this tells the slow start from the fast repeats, and both from nothing.
  void expectSlowStartAndFastRepeats() const {
    ASSERT_GE(presses.size(), 10U);
    const auto start = presses[1].time - presses[0].time;
    const auto repeat = (presses.back().time - presses[1].time) / static_cast<int>(presses.size() - 2);
    EXPECT_GE(start, 300ms);
    EXPECT_GE(repeat, 100ms);
    EXPECT_GT(start, 3 * repeat / 2);
    EXPECT_LT(start, 6 * repeat);
  }

  Folder folder;
  Lircd daemon{folder.path()};
  LinuxInputReader reader;
  std::vector<Press> presses;
  Clock::time_point first;
};

TEST_F(DecodingTest, ATapOfAnInfraredButtonIsOneKeyDown) {
  ASSERT_TRUE(daemon.start());
  connect();
  daemon.receive(0x0bf0);
  readFor(500ms);
  EXPECT_EQ(takeLines(), Lines({"0000000000000bf0 00 KEY_UP myremote\n"}));
  ASSERT_EQ(presses.size(), 1U);
  EXPECT_EQ(presses[0].event, keyDown(38));
}

TEST_F(DecodingTest, AHeldInfraredButtonIsCountedInHexadecimal) {
  constexpr int kFrames = 18;
  ASSERT_TRUE(daemon.start());
  connect();
  for (int i = 0; i < kFrames; ++i) {
    daemon.receive(0x0bf0);
    readFor(108ms);
  }
  const Lines lines = takeLines();
  ASSERT_GT(lines.size(), 16U);
  EXPECT_EQ(lines[1], "0000000000000bf0 01 KEY_UP myremote\n");
  EXPECT_EQ(lines[10], "0000000000000bf0 0a KEY_UP myremote\n");
  EXPECT_EQ(lines[16], "0000000000000bf0 10 KEY_UP myremote\n");
  expectSlowStartAndFastRepeats();
}

TEST_F(DecodingTest, AKeyThatTheKernelRepeatsIsAHeldButton) {
  UinputDevice remote({"Remote", {{EV_KEY, {KEY_OK, KEY_UP}}, {EV_REP, {}}}});
  ASSERT_TRUE(daemon.startOnNode(remote.path()));
  connect();
  remote.press(KEY_OK);
  readFor(3s);
  remote.release(KEY_OK);
  readFor(1s);
  const Lines lines = takeLines();
  ASSERT_GT(lines.size(), 2U);
  EXPECT_EQ(lines[0], "0001016000000001 00 KEY_OK devinput\n");
  EXPECT_EQ(lines[1], "0001016000000001 01 KEY_OK devinput\n");
  expectSlowStartAndFastRepeats();
  EXPECT_EQ(presses[0].event, keyDown(13, 13));
}

TEST_F(DecodingTest, TheDaemonGrabsTheNodeSoThatAutodetectionSkipsIt) {
  UinputDevice remote(keyboard("Remote"));
  ASSERT_TRUE(daemon.startOnNode(remote.path()));
  connect();
  LinuxInputReader other;
  EXPECT_FALSE(other.init(nullptr, nullptr, "/nowhere", 1280, 720));
  EXPECT_EQ(takeLog()[1], "INFO Could not autodetect a suitable keyboard device");
}

}  // namespace
}  // namespace quarlo::test
