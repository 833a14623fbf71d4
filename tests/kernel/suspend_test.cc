// The machine goes to sleep and wakes up while keys are down. The kernel lets them come up before it sleeps, for nobody
// knows what happens to them meanwhile.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tests/kernel/qmp.h"
#include "tests/scenario/uinput.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;
using components::input::InputLoop;
using components::input::InputSources;
using Clock = std::chrono::steady_clock;
using msg::KeyInput;

constexpr char kNowhere[] = "/nowhere";

std::string contents(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool write(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  return static_cast<bool>(file << text << std::flush);
}

// ---- Ways to sleep ------------------------------------------------------------------------------

struct Sleep {
  const char* name;
  const char* state;  // of /sys/power/state

  // Of /sys/power/pm_test: how far it goes before it comes back by itself. From "none", script/guest wakes it.
  const char* test;
};

std::string nameOf(const testing::TestParamInfo<Sleep>& info) { return info.param.name; }

// Puts the machine to sleep, and returns once it is awake.
void goToSleep(const Sleep& sleep) {
  EXPECT_TRUE(write("/sys/module/suspend/parameters/pm_test_delay", "1"));
  EXPECT_TRUE(write("/sys/power/pm_test", sleep.test));
  EXPECT_TRUE(write("/sys/power/state", sleep.state));
  EXPECT_TRUE(write("/sys/power/pm_test", "none"));
}

bool canSleep(const Sleep& sleep) {
  return sleep.test != std::string("none") || contents("/sys/power/mem_sleep").find("[deep]") != std::string::npos;
}

class SuspendTest : public testing::TestWithParam<Sleep> {
 protected:
  void SetUp() override {
    if (!canSleep(GetParam())) GTEST_SKIP() << "this machine has no sleep from which something wakes it";
    resetLog();
  }
};

// ---- Devices of a program -----------------------------------------------------------------------

TEST_P(SuspendTest, AHeldKeyComesUpOnceAndTheReaderGoesOn) {
  UinputDevice keys(keyboard());
  UinputDevice pointer(mouse());
  LinuxInputReader reader;
  ASSERT_TRUE(reader.init(pointer.path().c_str(), keys.path().c_str(), kNowhere, 1919, 1079));
  takeLog();
  keys.press(KEY_LEFTSHIFT);
  keys.press(KEY_A);
  EXPECT_EQ(readAll(reader),
            Lines({keyDown(16, 0, KeyInput::kShiftModifier), keyDown(65, 'A', KeyInput::kShiftModifier)}));

  goToSleep(GetParam());
  EXPECT_EQ(readAll(reader), Lines({keyUp(65, 'A', KeyInput::kShiftModifier), keyUp(16)}));

  std::this_thread::sleep_for(1s);
  keys.release(KEY_A);
  keys.release(KEY_LEFTSHIFT);
  EXPECT_EQ(readAll(reader), Lines());
  keys.tap(KEY_B);
  pointer.move(3, 4);
  EXPECT_EQ(readAll(reader), Lines({keyDown(66, 'b'), keyUp(66, 'b'), moved(3, 4)}));
  EXPECT_EQ(takeLog(), Lines());
}

TEST_P(SuspendTest, WithInputSourcesTheSame) {
  UinputDevice keys(keyboard());
  UinputDevice pointer(mouse());
  UinputDevice second(keyboard());
  LinuxInputReader reader;
  ASSERT_TRUE(reader.init(pointer.path().c_str(), keys.path().c_str(), kNowhere, 1919, 1079));
  takeLog();
  InputLoop loop(reader);
  InputSources sources(loop);
  InputSources::FurtherNode further;
  ASSERT_TRUE(sources.join(further));
  ASSERT_TRUE(sources.open(further.source(), second.path().c_str()));
  const auto round = [&] {
    EXPECT_EQ(loop.wait(sources.attend(10)).gone, 0U);
    Lines events;
    for (InputEvent event; loop.next(event);) events.push_back(text(event));
    return events;
  };
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(round(), Lines({keyDown(16, 0, KeyInput::kShiftModifier)}));
  second.press(KEY_A);
  EXPECT_EQ(round(), Lines({keyDown(65, 'A', KeyInput::kShiftModifier)}));

  goToSleep(GetParam());
  EXPECT_EQ(round(), Lines({keyUp(16), keyUp(65, 'a')}));
  EXPECT_FALSE(sources.isDown(InputLoop::kKeyboard, KEY_LEFTSHIFT));
  EXPECT_FALSE(sources.isDown(further.source(), KEY_A));

  std::this_thread::sleep_for(1s);
  EXPECT_EQ(round(), Lines());
  keys.tap(KEY_B);
  pointer.move(3, 4);
  EXPECT_EQ(round(), Lines({keyDown(66, 'b'), keyUp(66, 'b'), moved(3, 4)}));
  EXPECT_EQ(takeLog(), Lines());
}

// ---- USB devices --------------------------------------------------------------------------------

// The first event that comes. The bus asks a device only every few milliseconds.
std::string nextOf(LinuxInputReader& reader) {
  constexpr int kTries = 100;
  std::string event = kNone;
  for (int i = 0; i < kTries && event == kNone; ++i) event = readOne(reader, 10);
  return event;
}

// What comes in this time.
Lines readFor(LinuxInputReader& reader, Clock::duration time) {
  Lines events;
  for (const Clock::time_point end = Clock::now() + time; Clock::now() < end;) {
    const std::string event = readOne(reader, 10);
    if (event != kNone) events.push_back(event);
  }
  return events;
}

TEST_P(SuspendTest, AHeldKeyOfAUsbKeyboardComesUpOnce) {
  Qmp qmp;
  const UsbDevice keys(qmp, "usb-kbd");
  LinuxInputReader reader;
  ASSERT_TRUE(reader.init(kNowhere, UsbDevice::kNode, kNowhere, 1919, 1079));
  takeLog();
  qmp.setKey("a", true);
  EXPECT_EQ(nextOf(reader), keyDown(65, 'a'));

  goToSleep(GetParam());
  const Lines events = readAll(reader);  // the key can repeat before the machine sleeps
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(std::find(events.begin(), events.end(), keyUp(65, 'a')), events.end() - 1);
  EXPECT_EQ(readFor(reader, 500ms), Lines());

  qmp.setKey("a", false);
  EXPECT_EQ(readFor(reader, 500ms), Lines());
  qmp.tapKeys({"b"});
  EXPECT_EQ(readFor(reader, 500ms), Lines({keyDown(66, 'b'), keyUp(66, 'b')}));
  EXPECT_EQ(takeLog(), Lines());
}

INSTANTIATE_TEST_SUITE_P(EachSleep, SuspendTest,
                         testing::Values(Sleep{"ToMemoryAsATest", "mem", "devices"},
                                         Sleep{"IdleAsATest", "freeze", "devices"}, Sleep{"ToMemory", "mem", "none"}),
                         nameOf);

}  // namespace
}  // namespace quarlo::test
