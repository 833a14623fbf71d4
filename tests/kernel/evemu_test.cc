// The sample sessions, as evemu's own tools take them: evemu-device makes a device of a file, evemu-play plays it
// there.
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "recording/writer.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using namespace std::chrono_literals;

constexpr char kNode[] = "/dev/input/event0";

// The device of a file, for as long as this exists.
class EvemuDevice {
 public:
  explicit EvemuDevice(const std::string& file) : pid_(fork()) {
    if (pid_ == 0) {
      execlp("evemu-device", "evemu-device", file.c_str(), nullptr);
      _exit(127);
    }
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries && !std::filesystem::exists(kNode); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(std::filesystem::exists(kNode)) << "evemu-device made no device of " << file;
  }

  ~EvemuDevice() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }

  EvemuDevice(const EvemuDevice&) = delete;
  EvemuDevice& operator=(const EvemuDevice&) = delete;

 private:
  pid_t pid_;
};

class EvemuTest : public testing::TestWithParam<const char*> {};

TEST_P(EvemuTest, PlaysASampleOnADeviceAndTheEventsAreThoseOfTheReplay) {
  const std::string file = std::string("sessions/") + GetParam();
  const bool mouse = file.find("mouse") != std::string::npos;
  const EvemuDevice device(file);
  Program monitor({"monitor", mouse ? "--mouse" : "--keyboard", kNode, mouse ? "--keyboard" : "--mouse", "none",
                   "--lirc", "none", "--show-keycodes"});
  ASSERT_TRUE(monitor.waitFor("Ctrl-C ends."));
  const std::string play = std::string("evemu-play ") + kNode + " <" + file;
  ASSERT_EQ(std::system(play.c_str()), 0);
  std::this_thread::sleep_for(100ms);  // ten rounds of its loop
  monitor.signal(SIGINT);
  const auto live = withRepeatsMerged(eventsOf(monitor.finish().out));
  EXPECT_FALSE(live.empty());
  EXPECT_EQ(live, withRepeatsMerged(eventsOf(run({"replay", file}).out)));
}

// What the comments of a file call everything.
std::string typeName(int /*type*/) { return "type"; }
std::string codeName(int /*type*/, int /*code*/) { return "code"; }
constexpr recording::CodeNames kNames = {typeName, codeName};

// A device can have the longest name that evdev tells, of bytes that are all escaped.
TEST(EvemuFileTest, IsOneWithEscapesInItsNameToo) {
  const Folder folder;
  const std::string session = folder.path("session");
  recording::DeviceDescription keyboard;
  keyboard.name = " a\x1b[2J\\" + std::string(247, '\xff');
  keyboard.codes = {{EV_KEY, {KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}}};
  recording::SessionWriter writer(session, "comment", recording::Access::kByUmask, kNames);
  recording::FileWriter& file = writer.addKeyboard(keyboard);
  file.write(recording::Record{0us, EV_KEY, KEY_UP, 1});
  file.write(recording::Record{0us, EV_SYN, SYN_REPORT, 0});
  writer.close();

  const EvemuDevice device(session + "/keyboard.evemu");
  std::string name;
  std::getline(std::ifstream("/sys/class/input/event0/device/name"), name);
  EXPECT_EQ(name.rfind(R"(\x20a\x1b[2J\\\xff)", 0), 0U) << name;
  const std::string play = std::string("evemu-play ") + kNode + " <" + session + "/keyboard.evemu";
  EXPECT_EQ(std::system(play.c_str()), 0);
}

INSTANTIATE_TEST_SUITE_P(Samples, EvemuTest,
                         testing::Values("desk/mouse.evemu", "desk/keyboard.evemu", "living-room/mouse.evemu",
                                         "living-room/keyboard.evemu"));

}  // namespace
}  // namespace quarlo::tools
