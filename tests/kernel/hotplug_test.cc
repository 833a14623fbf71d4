// The example examples/hotplug_loop.cc, with devices and a LIRC daemon that come and go while it runs.
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/support/example.h"
#include "tests/support/files.h"
#include "tests/support/lircd.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr char kNodes[] = "/dev/input";
constexpr char kNodesAside[] = "/dev/input-aside";
constexpr char kLircFolder[] = "/var/run/lirc";

constexpr char kNothing[] = "sources: mouse no, keyboard no, remote no";
constexpr char kKeyboard[] = "sources: mouse no, keyboard yes, remote no";
constexpr char kMouse[] = "sources: mouse yes, keyboard no, remote no";
constexpr char kBoth[] = "sources: mouse yes, keyboard yes, remote no";
constexpr char kRemote[] = "sources: mouse no, keyboard no, remote yes";

// Without auto-repeat: nothing comes by itself while a key is held.
Description plainKeyboard(const std::string& name = "Keyboard") {
  Description device = keyboard(name);
  device.codes.erase(EV_REP);
  return device;
}

std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

class HotplugTest : public testing::Test {
 protected:
  // A loop that wakes once a second is far below; one that does not wait takes all of the processor. So this bound
  // tells idle from spinning, on a machine of any speed.
  static constexpr double kIdle = 0.05;

  HotplugTest() { std::filesystem::create_directories(kLircFolder); }

  void TearDown() override {
    devices.clear();
    if (!std::filesystem::exists(kNodesAside)) return;
    std::filesystem::remove_all(kNodes);
    std::filesystem::rename(kNodesAside, kNodes);
  }

  // As udev or a script does where the kernel makes no nodes itself.
  static void makeFirstNode() {
    constexpr unsigned kInputMajor = 13;
    constexpr unsigned kFirstEventMinor = 64;
    EXPECT_EQ(mknod("/dev/input/event0", S_IFCHR | 0600, makedev(kInputMajor, kFirstEventMinor)), 0);
  }

  // Until the end of the test. The kernel makes the directory again for the next device, and removes it with the last.
  static void removeNodesFolder() { std::filesystem::rename(kNodes, kNodesAside); }

  // Starts the program, and returns the sources that it begins with.
  std::string start(uid_t user = 0) {
    example.emplace(Lines{"hotplug_loop"}, log(), user);
    return next();
  }

  std::string next() {
    const Lines lines = example->next(1);
    return lines.empty() ? "the end" : lines[0];
  }

  Lines next(std::size_t count) { return example->next(count); }

  // The lines up to the next one of sources, with it.
  Lines untilSources() {
    Lines lines;
    do lines.push_back(next());
    while (lines.back() != "the end" && lines.back().rfind("sources: ", 0) != 0);
    return lines;
  }

  Plugged& plug(const Description& device) {
    devices.push_back(std::make_unique<UinputDevice>(device));
    return *devices.back();
  }

  std::string log() const { return folder.path("log"); }

  Folder folder;
  std::vector<std::unique_ptr<UinputDevice>> devices;
  Lircd daemon{kLircFolder};
  std::optional<Example> example;
};

TEST_F(HotplugTest, ADeviceThatIsPluggedInIsFound) {
  EXPECT_EQ(start(), kNothing);
  Plugged& keys = plug(keyboard());
  EXPECT_EQ(next(), kKeyboard);
  keys.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
}

TEST_F(HotplugTest, AnUnpluggedDeviceReleasesWhatIsHeldThoughTheProgramWasBusy) {
  Plugged& keys = plug(plainKeyboard());
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kBoth);
  keys.press(KEY_LEFTSHIFT);
  keys.press(KEY_A);
  pointer.press(BTN_LEFT);
  EXPECT_EQ(next(2), Lines({"key down 16 char 0", "key down 65 char 65"}));
  EXPECT_EQ(next(), "button down 1");
  example->pause();
  keys.unplug();
  example->resume();
  EXPECT_EQ(untilSources(), Lines({"key up 65", "key up 16", kMouse}));
  pointer.release(BTN_LEFT);
  EXPECT_EQ(next(), "button up 1");
}

TEST_F(HotplugTest, AShiftThatIsHeldOnAnotherDeviceStaysHeld) {
  Plugged& keys = plug(plainKeyboard());
  EXPECT_EQ(start(), kKeyboard);
  keys.press(KEY_A);
  keys.press(KEY_LEFTSHIFT);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key down 16 char 0"}));
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(next(), kBoth);
  pointer.unplug();
  EXPECT_EQ(next(), kKeyboard);
  keys.tap(KEY_B);
  EXPECT_EQ(next(), "key down 66 char 66");
}

TEST_F(HotplugTest, WhatWasLetGoBeforeIsNotReleasedAgain) {
  Plugged& keys = plug(keyboard());
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kBoth);
  keys.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
  pointer.tap(BTN_RIGHT);
  EXPECT_EQ(next(2), Lines({"button down 2", "button up 2"}));
  pointer.unplug();
  EXPECT_EQ(next(), kKeyboard);
}

TEST_F(HotplugTest, AKeyboardThatComesBackTypes) {
  Plugged& keys = plug(plainKeyboard());
  EXPECT_EQ(start(), kKeyboard);
  keys.press(KEY_A);
  EXPECT_EQ(next(), "key down 65 char 97");
  keys.unplug();
  EXPECT_EQ(untilSources(), Lines({"key up 65", kNothing}));
  Plugged& again = plug(plainKeyboard());
  EXPECT_EQ(next(), kKeyboard);
  again.tap(KEY_B);
  EXPECT_EQ(next(2), Lines({"key down 66 char 98", "key up 66"}));
}

TEST_F(HotplugTest, TheOtherDeviceGoesOn) {
  Plugged& keys = plug(keyboard());
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kBoth);
  pointer.unplug();
  EXPECT_EQ(next(), kKeyboard);
  keys.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
}

TEST_F(HotplugTest, ThePointerStaysWhereItWas) {
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kMouse);
  pointer.move(10, 20);
  EXPECT_EQ(next(), "pointer 10,20");
  pointer.unplug();
  EXPECT_EQ(next(), kNothing);
  Plugged& again = plug(mouse());
  EXPECT_EQ(next(), kMouse);
  again.move(1, 2);
  EXPECT_EQ(next(), "pointer 11,22");
}

TEST_F(HotplugTest, NumLockStaysOn) {
  Plugged& keys = plug(keyboard());
  EXPECT_EQ(start(), kKeyboard);
  keys.tap(KEY_NUMLOCK);
  EXPECT_EQ(next(2), Lines({"key down 144 char 0", "key up 144"}));
  keys.unplug();
  EXPECT_EQ(next(), kNothing);
  Plugged& again = plug(keyboard());
  EXPECT_EQ(next(), kKeyboard);
  again.tap(KEY_KP1);
  EXPECT_EQ(next(2), Lines({"key down 97 char 49", "key up 97"}));
}

TEST_F(HotplugTest, ADeviceWhosePermissionsComeLaterIsFound) {
  constexpr uid_t kNobody = 65534;
  EXPECT_EQ(start(kNobody), kNothing);
  const Plugged& keys = plug(keyboard());
  EXPECT_EQ(chmod(keys.path().c_str(), 0444), 0);
  EXPECT_EQ(next(), kKeyboard);
}

TEST_F(HotplugTest, ANodeThatIsMadeLaterIsNoticedAndCanBeRemoved) {
  removeNodesFolder();
  Plugged& keys = plug(keyboard());
  EXPECT_TRUE(std::filesystem::remove(keys.path()));
  EXPECT_EQ(start(), kNothing);
  makeFirstNode();
  EXPECT_EQ(next(), kKeyboard);
  EXPECT_TRUE(std::filesystem::remove(keys.path()));
  keys.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
}

TEST_F(HotplugTest, TheFolderOfNodesCanComeLaterAndGo) {
  removeNodesFolder();
  EXPECT_EQ(start(), kNothing);
  Plugged& keys = plug(keyboard());
  EXPECT_EQ(next(), kKeyboard);
  keys.unplug();
  EXPECT_EQ(next(), kNothing);
  EXPECT_FALSE(std::filesystem::exists(kNodes));
  Plugged& again = plug(keyboard());
  EXPECT_EQ(next(), kKeyboard);
  again.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
}

// As where /dev is made by hand: no change in the directory announces the device.
TEST_F(HotplugTest, ADeviceThatGoesIsNoticedThoughItsNodeStays) {
  removeNodesFolder();
  std::filesystem::create_directory(kNodes);
  makeFirstNode();
  Plugged& keys = plug(keyboard());
  EXPECT_EQ(start(), kKeyboard);
  keys.unplug();
  EXPECT_TRUE(std::filesystem::exists(keys.path()));
  EXPECT_EQ(next(), kNothing);
  EXPECT_LT(example->load(), kIdle);
}

TEST_F(HotplugTest, ADaemonThatEndsAndComesBackIsNoticed) {
  ASSERT_TRUE(daemon.start());
  EXPECT_EQ(start(), kRemote);
  EXPECT_TRUE(daemon.simulate("KEY_UP", "00"));
  EXPECT_EQ(next(), "key down 38 char 0");
  daemon.stop();
  EXPECT_EQ(next(), kNothing);
  ASSERT_TRUE(daemon.start());
  EXPECT_EQ(next(), kRemote);
  EXPECT_TRUE(daemon.simulate("KEY_UP", "00"));
  EXPECT_EQ(next(), "key down 38 char 0");
}

TEST_F(HotplugTest, ADaemonThatEndsLeavesTheDevices) {
  Plugged& keys = plug(keyboard());
  ASSERT_TRUE(daemon.start());
  EXPECT_EQ(start(), "sources: mouse no, keyboard yes, remote yes");
  daemon.stop();
  EXPECT_EQ(next(), kKeyboard);
  keys.tap(KEY_A);
  EXPECT_EQ(next(2), Lines({"key down 65 char 97", "key up 65"}));
}

TEST_F(HotplugTest, ItIsIdleWithADeviceLessAndWithoutAny) {
  Plugged& keys = plug(keyboard());
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kBoth);
  pointer.unplug();
  EXPECT_EQ(next(), kKeyboard);
  EXPECT_LT(example->load(), kIdle);
  keys.unplug();
  EXPECT_EQ(next(), kNothing);
  EXPECT_LT(example->load(), kIdle);
}

TEST_F(HotplugTest, ItIsIdleAfterTheDaemonHasEnded) {
  plug(keyboard());
  ASSERT_TRUE(daemon.start());
  EXPECT_EQ(start(), "sources: mouse no, keyboard yes, remote yes");
  daemon.stop();
  EXPECT_EQ(next(), kKeyboard);
  EXPECT_LT(example->load(), kIdle);
}

TEST_F(HotplugTest, WheelStepsAndSideButtonsAreNoEvents) {
  Plugged& pointer = plug(mouse());
  EXPECT_EQ(start(), kMouse);
  pointer.report(EV_REL, REL_X, 5);
  pointer.press(BTN_LEFT);
  EXPECT_EQ(next(2), Lines({"pointer 5,0", "button down 1"}));
  pointer.release(BTN_LEFT);
  EXPECT_EQ(next(), "button up 1");
  pointer.report(EV_REL, REL_WHEEL, 1);
  pointer.report(EV_SYN, SYN_REPORT, 0);
  pointer.tap(BTN_SIDE);
  pointer.move(1, 1);
  EXPECT_EQ(next(), "pointer 6,1");
}

TEST_F(HotplugTest, ItsLogEscapesWhatADeviceIsCalled) {
  plug(keyboard("\x1b[2JKeyboard"));
  EXPECT_EQ(start(), kKeyboard);
  EXPECT_EQ(example->end(SIGTERM), 0);
  EXPECT_NE(contents(log()).find("INFO Found a keyboard: /dev/input/event0 - \\x1b[2JKeyboard\n"), std::string::npos)
      << contents(log());
}

TEST_F(HotplugTest, SigintAndSigtermEndItWithSuccess) {
  for (const int signal : {SIGINT, SIGTERM}) {
    EXPECT_EQ(start(), kNothing);
    EXPECT_EQ(example->end(signal), 0);
  }
}

}  // namespace
}  // namespace quarlo::test
