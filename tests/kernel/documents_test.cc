// The commands in documents that need devices, with devices: blocks that start with ```console devices.
#include <gtest/gtest.h>
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
  UinputDevice power{powerButton()};
  UinputDevice keyboard{test::keyboard("USB Keyboard")};
  UinputDevice media{mediaKeys()};
  UinputDevice mouse{test::mouse("USB Mouse")};
  UinputDevice held{test::keyboard("Wireless Keyboard")};
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
