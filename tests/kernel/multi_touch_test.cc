// A session of a multi-touch device, played in time to a reader on a real node, and replayed: the same events, however
// long the application's loop waits.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "recording/writer.h"
#include "tests/scenario/uinput.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;
using recording::microseconds;
using recording::Record;
using test::UinputDevice;
using Lines = std::vector<std::string>;

constexpr int kFingers = 5;
constexpr int kFrames = 40;
constexpr std::size_t kEvents = 26;

// A touchpad for ten fingers, whose queue holds 1023 records.
test::Description touchpad() {
  test::Description device = {"Touchpad", {{EV_KEY, {BTN_LEFT, BTN_RIGHT, BTN_TOUCH, BTN_TOOL_QUINTTAP}}}};
  for (const int axis : {ABS_X, ABS_Y, ABS_MT_TOUCH_MAJOR, ABS_MT_TOUCH_MINOR, ABS_MT_ORIENTATION, ABS_MT_POSITION_X,
                         ABS_MT_POSITION_Y, ABS_MT_PRESSURE}) {
    device.codes[EV_ABS].insert(axis);
    device.axes[axis].maximum = 1000;
  }
  for (const auto& [axis, maximum] : {std::pair(ABS_MT_SLOT, 9), std::pair(ABS_MT_TRACKING_ID, 65535)}) {
    device.codes[EV_ABS].insert(axis);
    device.axes[axis].maximum = maximum;
  }
  return device;
}

// Five fingers that move together for a third of a second, while the pad is pressed again and again: some 1000 records,
// in bursts, as they come over a busy bus. The second button is pressed long after that, when all has been read.
class Swipe {
 public:
  Swipe() {
    for (int frame = 0; frame < kFrames; ++frame) addFrame(frame);
    addEnd();
  }

  const std::vector<Record>& records() const { return records_; }

 private:
  void add(int type, int code, int value) {
    records_.push_back({time_, static_cast<std::uint16_t>(type), static_cast<std::uint16_t>(code), value});
  }

  void endReport() { add(EV_SYN, SYN_REPORT, 0); }

  void chooseFinger(int finger) {
    if (std::exchange(finger_, finger) != finger) add(EV_ABS, ABS_MT_SLOT, finger);
  }

  void addFrame(int frame) {
    constexpr int kFramesInABurst = 3;
    if (frame % kFramesInABurst == 0) time_ += 24ms;
    for (int finger = 0; finger < kFingers; ++finger) {
      chooseFinger(finger);
      if (frame == 0) add(EV_ABS, ABS_MT_TRACKING_ID, finger);
      add(EV_ABS, ABS_MT_TOUCH_MAJOR, 20 + frame);
      add(EV_ABS, ABS_MT_POSITION_X, 100 * finger + frame + 1);
      add(EV_ABS, ABS_MT_POSITION_Y, 500 - frame);
    }
    add(EV_ABS, ABS_X, frame + 1);
    add(EV_ABS, ABS_Y, 500 - frame);
    if (frame == 0) touch(1);
    if (frame % 2 == 1) add(EV_KEY, BTN_LEFT, frame / 2 % 2 == 0 ? 1 : 0);
    endReport();
  }

  void touch(int value) {
    add(EV_KEY, BTN_TOUCH, value);
    add(EV_KEY, BTN_TOOL_QUINTTAP, value);
  }

  void addEnd() {
    constexpr auto kMoreThanReadingTakes = 4s;
    time_ += kMoreThanReadingTakes;
    for (int finger = 0; finger < kFingers; ++finger) {
      chooseFinger(finger);
      add(EV_ABS, ABS_MT_TRACKING_ID, -1);
    }
    chooseFinger(0);  // as at the start: it is played more than once
    touch(0);
    endReport();
    for (const int value : {1, 0}) {
      time_ += 1s;
      add(EV_KEY, BTN_RIGHT, value);
      endReport();
    }
  }

  std::vector<Record> records_;
  microseconds time_ = 100ms;
  int finger_ = 0;
};

recording::DeviceDescription asWritten(const test::Description& device) {
  recording::DeviceDescription description;
  description.name = device.name;
  description.codes = device.codes;
  for (const auto& [code, axis] : device.axes) description.axes[code] = {axis.minimum, axis.maximum, 0, 0, 0};
  return description;
}

class MultiTouchTest : public testing::Test {
 protected:
  MultiTouchTest() {
    const recording::CodeNames unnamed = {[](int) { return std::string(); }, [](int, int) { return std::string(); }};
    recording::SessionWriter writer(session, "a swipe", recording::Access::kByUmask, unnamed);
    recording::FileWriter& file = writer.addMouse(asWritten(touchpad()));
    for (const Record& record : swipe.records()) file.write(record);
    writer.close();
  }

  void play() {
    const auto start = std::chrono::steady_clock::now();
    for (const Record& record : swipe.records()) {
      std::this_thread::sleep_until(start + record.time);
      device.report(record.type, record.code, record.value);
    }
  }

  // The events of a monitor with these options while the session is played.
  Lines live(const Arguments& options) {
    Arguments arguments = {"monitor", "--mouse", device.path(), "--keyboard",
                           "none",    "--lirc",  "none",        "--show-keycodes"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Program monitor(arguments);
    EXPECT_TRUE(monitor.waitFor("Ctrl-C ends."));
    play();
    EXPECT_TRUE(monitor.waitFor("mouse up    right"));
    monitor.signal(SIGINT);
    return eventsOf(monitor.finish().out);
  }

  Lines replayed(const Arguments& options) const {
    Arguments arguments = {"replay", session};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return eventsOf(run(arguments).out);
  }

  const Swipe swipe;
  test::Folder folder;
  const std::string session = folder.path("session");
  UinputDevice device{touchpad()};
};

TEST_F(MultiTouchTest, AReplayGivesTheEventsThatCameLive) {
  const Lines events = live({});
  EXPECT_EQ(events.size(), kEvents);
  EXPECT_EQ(replayed({}), events);
}

class PolledMultiTouchTest : public MultiTouchTest, public testing::WithParamInterface<int> {};

TEST_P(PolledMultiTouchTest, AReplayGivesTheEventsThatCameLive) {
  const Arguments options = {"--loop", "poll", "--timeout", std::to_string(GetParam())};
  const Lines events = live(options);
  EXPECT_EQ(events.size(), kEvents);
  EXPECT_EQ(replayed(options), events);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, PolledMultiTouchTest, testing::Values(1, 10, 15, 20, 50));

// All of them take minutes: --gtest_also_run_disabled_tests.
INSTANTIATE_TEST_SUITE_P(DISABLED_EachTimeout, PolledMultiTouchTest, testing::Range(1, 51));

}  // namespace
}  // namespace quarlo::tools
