// The commands in documents that need devices, with devices: blocks that start with ```console devices.
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/docs/console.h"
#include "tests/scenario/uinput.h"
#include "tests/support/files.h"
#include "tests/support/lircd.h"

namespace quarlo::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char kLircFolder[] = "/var/run/lirc";

// What a device says of itself, beside its name and keys.
Description withIdentity(Description device, input_id id, const std::string& phys) {
  device.id = id;
  device.phys = phys;
  return device;
}

// A desk, a sofa, and somebody who uses both all the time.
class DeviceDocumentsTest : public testing::Test {
 protected:
  DeviceDocumentsTest() {
    holdsKeyboard = held.grabElsewhere();
    fs::create_directories(kLircFolder);
    daemonRuns = daemon.start();
    user = std::thread([this] { useAll(); });
  }

  ~DeviceDocumentsTest() override {
    stop = true;
    user.join();
    daemon.stop();
    fs::remove_all(kLircFolder);
  }

  void useAll() {
    while (!stop) {
      keyboard.tap(KEY_H);
      mouse.move(8, 5);
      std::this_thread::sleep_for(400ms);
      daemon.simulate("KEY_OK", "00");
      std::this_thread::sleep_for(400ms);
    }
  }

  std::atomic<bool> stop = false;
  UinputDevice power{withIdentity(powerButton(), {BUS_HOST, 0, 1, 0}, "PNP0C0C/button/input0")};
  UinputDevice keyboard{
      withIdentity(test::keyboard("USB Keyboard"), {BUS_USB, 0x046d, 0xc31c, 0x0110}, "usb-0000:00:14.0-1/input0")};
  UinputDevice media{withIdentity(mediaKeys(), {BUS_USB, 0x046d, 0xc31c, 0x0110}, "usb-0000:00:14.0-1/input1")};
  UinputDevice mouse{
      withIdentity(test::mouse("USB Mouse"), {BUS_USB, 0x17ef, 0x6019, 0x0111}, "usb-0000:00:14.0-2/input0")};
  UinputDevice held{withIdentity(test::keyboard("Wireless Keyboard"), {BUS_USB, 0x045e, 0x0745, 0x0111},
                                 "usb-0000:00:14.0-3/input0")};
  bool holdsKeyboard;
  Lircd daemon{kLircFolder};
  bool daemonRuns;
  std::thread user;
};

TEST_F(DeviceDocumentsTest, TheCommandsInDocumentsPrintWhatTheySay) {
  ASSERT_TRUE(holdsKeyboard);
  ASSERT_TRUE(daemonRuns);
  int blocks = 0;
  for (const fs::directory_entry& document : fs::directory_iterator("docs")) {
    std::ifstream stream(document.path());
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    for (const ConsoleBlock& block : consoleBlocks(text, "```console devices")) {
      const std::string problems = problemsOf(block);
      EXPECT_TRUE(problems.empty()) << document.path().string() << ", " << problems;
      ++blocks;
    }
  }
  EXPECT_GT(blocks, 0);
}

}  // namespace
}  // namespace quarlo::test
