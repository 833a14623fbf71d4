// What a power cut leaves of a recording. In the first life of the guest, one is made on each of its disks
// (script/guest
// --disk) until QEMU resets the machine, whose memory is then lost; in the second life, the tests look at the disks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <list>
#include <regex>
#include <string>
#include <thread>

#include "tests/kernel/qmp.h"
#include "tests/scenario/uinput.h"
#include "tests/tools/daemon.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

constexpr std::chrono::milliseconds kStep{20};
constexpr int kStepsInASecond = 50;  // or fewer, for each takes a little longer
constexpr int kSteps = 12 * kStepsInASecond;

struct Disk {
  const char* fileSystem;
  const char* device;
  std::string path(const std::string& name) const { return std::string("/mnt/") + fileSystem + "/" + name; }
};
const Disk kDisks[] = {{"ext4", "/dev/vda"}, {"vfat", "/dev/vdb"}};

void mountDisk(const Disk& disk) {
  mkdir("/mnt", 0755);
  mkdir(disk.path("").c_str(), 0755);
  ASSERT_EQ(mount(disk.device, disk.path("").c_str(), disk.fileSystem, 0, ""), 0) << disk.fileSystem;
}

// A recording of the mouse and of a remote, both of which send numbers.
struct Recording {
  Recording(const Disk& disk, const std::string& mouse)
      : daemon("/run/lircd-" + std::string(disk.fileSystem)),
        program({"record", "--mouse", mouse, "--keyboard", "none", "--lirc",
                 "/run/lircd-" + std::string(disk.fileSystem), "-o", disk.path("session")}) {
    EXPECT_TRUE(program.waitFor("Ctrl-C ends."));
  }

  Daemon daemon;
  Program program;
};

std::string lineOf(int number) {
  char line[64];
  std::snprintf(line, sizeof line, "%016d 00 KEY_VOLUMEUP tv\n", number);
  return line;
}

[[noreturn]] void recordUntilThePowerIsCut() {
  test::Qmp qmp;
  qmp.execute("set-action", R"({"reboot":"reset"})");  // script/guest wants QEMU's end
  test::UinputDevice mouse(test::mouse());
  std::list<Recording> recordings;
  for (const Disk& disk : kDisks) recordings.emplace_back(disk, mouse.path());
  for (int step = 1; step <= kSteps; ++step) {
    mouse.move(step, 0);
    for (Recording& recording : recordings) recording.daemon.send(lineOf(step));
    std::this_thread::sleep_for(kStep);
  }
  qmp.execute("system_reset");
  for (;;) pause();
}

class PowerCutTest : public testing::TestWithParam<Disk> {
 protected:
  // Each disk has a mark of the first life, which is on it before the recording begins.
  static void SetUpTestSuite() {
    ASSERT_EQ(system("cd /modules && for module in $(cat disks); do insmod $module || exit; done"), 0);
    bool isFirstLife = false;
    for (const Disk& disk : kDisks) {
      mountDisk(disk);
      const int mark = open(disk.path("mark").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      isFirstLife = isFirstLife || mark != -1;
      close(mark);
    }
    sync();
    if (isFirstLife) recordUntilThePowerIsCut();
  }

  // The last number that a file tells, in a line that begins (after its time) and goes on like this. Behind the text
  // that was written there can be NULs.
  static int lastNumber(const std::string& file, const std::regex& pattern) {
    std::ifstream stream(GetParam().path("session/" + file), std::ios::binary);
    int number = 0;
    std::smatch match;
    for (std::string line; std::getline(stream, line) && line.find('\0') == std::string::npos;) {
      if (std::regex_match(line, match, pattern)) number = std::stoi(match[1]);
    }
    return number;
  }

  static void expectOnlyTheLastSecondIsMissing(int number) {
    EXPECT_GE(number, kSteps - kStepsInASecond);
    std::printf("%s: the last %d of %d are missing\n", GetParam().fileSystem, kSteps - number, kSteps);
  }
};

TEST_P(PowerCutTest, TakesAtMostTheLastSecondOfTheRemote) {
  expectOnlyTheLastSecondIsMissing(lastNumber("remote.lirc", std::regex("[0-9.]+ ([0-9]{16}) 00 KEY_VOLUMEUP tv")));
}

TEST_P(PowerCutTest, TakesAtMostTheLastSecondOfTheMouse) {
  expectOnlyTheLastSecondIsMissing(lastNumber("mouse.evemu", std::regex("E: .* REL_X ([0-9]+)")));
}

TEST_P(PowerCutTest, LeavesASessionThatCanBeReplayed) {
  const Result result = run({"replay", GetParam().path("session")});
  EXPECT_LE(result.status, 1) << result.err;
  EXPECT_GE(eventsOf(result.out).size(), static_cast<std::size_t>(kSteps - kStepsInASecond));
}

INSTANTIATE_TEST_SUITE_P(OnDisk, PowerCutTest, testing::ValuesIn(kDisks),
                         [](const auto& disk) { return std::string(disk.param.fileSystem); });

}  // namespace
}  // namespace quarlo::tools
