// The remote's buttons, as a thumb presses them. What happens keeps a distance of 100 ms and more from each threshold,
// so that a busy machine makes no difference.
#include <sys/time.h>

#include <chrono>
#include <optional>

#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

using std::chrono::microseconds;

// ms
constexpr char kRepeatTimeout[] = "300";
constexpr char kReleaseTimeout[] = "750";

microseconds now() {
  timeval time;
  gettimeofday(&time, nullptr);
  return std::chrono::seconds(time.tv_sec) + microseconds(time.tv_usec);
}

class RemoteTest : public ScenarioTest {
 protected:
  RemoteTest() {
    world->setEnvironment("LIRC_REPEAT_TIMEOUT", kRepeatTimeout);
    world->setEnvironment("LIRC_RELEASE_TIMEOUT", kReleaseTimeout);
    reader_.emplace();
    connect(*reader_);
    start_ = now();
  }

  LinuxInputReader& reader() { return *reader_; }

  void connect(LinuxInputReader& reader) {
    EXPECT_TRUE(reader.init(kNowhere, kNowhere, remote.socketPath().c_str(), kMaxX, kMaxY));
    takeLog();
  }

  // What the application's loop gets up to this time after the start, at which it returns.
  Lines eventsUntil(milliseconds time) {
    constexpr milliseconds kRound(10);
    Lines events;
    while (now() - start_ < time) {
      world->pass(kRound);
      for (const std::string& event : readAll(reader())) events.push_back(event);
    }
    return events;
  }

  // The same for a line that comes at this time, up to the event that it gives.
  Lines send(milliseconds time, const std::string& button, unsigned repeat) {
    Lines events = eventsUntil(time);
    remote.send(button, repeat);
    for (const std::string& event : readAll(reader())) events.push_back(event);
    return events;
  }

  // The log, without how long ago the last key was.
  static Lines takeVerdicts() {
    Lines verdicts;
    for (const std::string& message : takeLog()) {
      if (message.find("VERBOSE10 LIRC KEYDOWN") == std::string::npos) verdicts.push_back(message);
    }
    return verdicts;
  }

  Remote& remote = world->startDaemon();

 private:
  std::optional<LinuxInputReader> reader_;
  microseconds start_{0};
};

const std::string kOk = keyDown(13, 13);
constexpr unsigned kFresh = 0;

TEST_F(RemoteTest, APressIsAKeyDown) {
  remote.send("KEY_UP", kFresh);
  EXPECT_EQ(readAll(reader()), Lines({keyDown(38)}));
  EXPECT_EQ(takeVerdicts(),
            Lines({"VERBOSE2 LIRC string: 0000000000f40bf0 00 KEY_UP myremote\n", "VERBOSE10 LIRC timeout 750ms."}));
}

TEST_F(RemoteTest, AnUnknownButtonIsRejected) {
  remote.send("KEY_SUBTITLE", kFresh);
  EXPECT_EQ(readAll(reader()), Lines({}));
  EXPECT_EQ(takeLog(), Lines({"VERBOSE2 LIRC string: 0000000000f40bf0 00 KEY_SUBTITLE myremote\n",
                              "VERBOSE2 LIRC unknown: SUBTITLE"}));
}

TEST_F(RemoteTest, AHeldButtonIsSlowAtFirstAndThenFast) {
  EXPECT_EQ(send(0ms, "KEY_OK", 0), Lines({kOk}));
  EXPECT_EQ(send(300ms, "KEY_OK", 1), Lines({}));
  EXPECT_EQ(send(600ms, "KEY_OK", 2), Lines({}));
  EXPECT_EQ(send(900ms, "KEY_OK", 3), Lines({kOk}));
  EXPECT_EQ(send(1050ms, "KEY_OK", 4), Lines({}));
  EXPECT_EQ(send(1350ms, "KEY_OK", 5), Lines({kOk}));
  EXPECT_EQ(send(1800ms, "KEY_OK", 6), Lines({kOk}));
  EXPECT_EQ(eventsUntil(3000ms), Lines({}));
  EXPECT_EQ(reader().lircKey, 0);
}

TEST_F(RemoteTest, TheLogTellsWhatBecameOfALine) {
  const std::string line = "VERBOSE2 LIRC string: 0000000000f40bf0 ";
  send(0ms, "KEY_OK", 0);
  EXPECT_EQ(takeVerdicts(), Lines({line + "00 KEY_OK myremote\n", "VERBOSE10 LIRC timeout 750ms."}));
  send(300ms, "KEY_OK", 1);
  EXPECT_EQ(takeVerdicts(), Lines({line + "01 KEY_OK myremote\n", "VERBOSE10 LIRC keypress skipped - too close."}));
  send(900ms, "KEY_OK", 10);
  EXPECT_EQ(takeVerdicts(), Lines({"VERBOSE10 LIRC key repeat mode started.", line + "0a KEY_OK myremote\n",
                                   "VERBOSE10 LIRC timeout 300ms."}));
  eventsUntil(2000ms);
  EXPECT_EQ(takeVerdicts(), Lines({"VERBOSE10 LIRC key repeat mode stopped."}));
}

TEST_F(RemoteTest, ALateRepeatOfAForgottenButtonIsAPress) {
  EXPECT_EQ(send(0ms, "KEY_OK", 0), Lines({kOk}));
  EXPECT_EQ(send(1500ms, "KEY_OK", 1), Lines({kOk}));
  EXPECT_FALSE(reader().lircRepeatMode);
}

TEST_F(RemoteTest, TwoPressesInQuickSuccessionAreTwoKeyDowns) {
  EXPECT_EQ(send(0ms, "KEY_OK", kFresh), Lines({kOk}));
  EXPECT_EQ(send(50ms, "KEY_OK", kFresh), Lines({kOk}));
}

TEST_F(RemoteTest, AnotherButtonIsAKeyDownAtOnce) {
  EXPECT_EQ(send(0ms, "KEY_OK", kFresh), Lines({kOk}));
  EXPECT_EQ(send(50ms, "KEY_UP", kFresh), Lines({keyDown(38)}));
  EXPECT_EQ(send(100ms, "KEY_OK", 1), Lines({kOk}));
}

TEST_F(RemoteTest, OfLinesThatArriveTogetherTheFirstCounts) {
  remote.send("KEY_1", kFresh);
  remote.send("KEY_2", kFresh);
  EXPECT_EQ(readAll(reader()), Lines({keyDown('1', '1')}));
}

TEST_F(RemoteTest, AReloadIsNoButton) {
  send(0ms, "KEY_UP", kFresh);
  takeLog();
  remote.reload();
  EXPECT_EQ(send(500ms, "KEY_DOWN", kFresh).back(), keyDown(40));
}

TEST_F(RemoteTest, ADaemonThatEndsLeavesSilence) {
  remote.stop();
  EXPECT_EQ(eventsUntil(100ms), Lines({}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(RemoteTest, ASocketWhoseDaemonHasEndedRefuses) {
  remote.stop();
  LinuxInputReader next;
  EXPECT_FALSE(next.init(kNowhere, kNowhere, remote.socketPath().c_str(), kMaxX, kMaxY));
  EXPECT_EQ(takeLog().back(), "ERROR Could not open LIRC socket " + remote.socketPath());
}

TEST_F(RemoteTest, AfterARestartANewReaderHearsTheDaemonAndTheOldOneDoesNot) {
  remote.stop();
  Remote& restarted = world->startDaemon();
  LinuxInputReader next;
  connect(next);
  restarted.send("KEY_OK", kFresh);
  EXPECT_EQ(readAll(reader()), Lines({}));
  EXPECT_EQ(readAll(next), Lines({kOk}));
}

TEST_F(RemoteTest, AReaderThatDoesNotReadIsDropped) {
  constexpr int kMoreThanTheSocketHolds = 400;
  for (int i = 0; i < kMoreThanTheSocketHolds; ++i) remote.send("KEY_UP", kFresh);
  for (int i = 0; i < kMoreThanTheSocketHolds; ++i) readOne(reader());
  remote.send("KEY_DOWN", kFresh);
  EXPECT_EQ(readAll(reader()), Lines({}));
}

}  // namespace
}  // namespace quarlo::test
