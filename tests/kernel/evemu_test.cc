// The sample sessions, as evemu's own tools take them: evemu-device makes a device of a file, evemu-play plays it
// there.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

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

INSTANTIATE_TEST_SUITE_P(Samples, EvemuTest,
                         testing::Values("desk/mouse.evemu", "desk/keyboard.evemu", "living-room/mouse.evemu",
                                         "living-room/keyboard.evemu"));

}  // namespace
}  // namespace quarlo::tools
