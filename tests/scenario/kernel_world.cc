// A real kernel as a world: devices made with uinput, and Debian's LIRC daemon. The machine must have no other input
// device, so that numbers are those of the scenario.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/scenario/world.h"
#include "tests/support/files.h"
#include "tests/support/lircd.h"

namespace quarlo::test {
namespace {

class KernelRemote : public Remote {
 public:
  explicit KernelRemote(const std::string& folder) : daemon_(folder) { EXPECT_TRUE(daemon_.start()); }

  std::string socketPath() const override { return daemon_.socketPath(); }

  void send(const std::string& button, unsigned repeat) override {
    char count[16];
    std::snprintf(count, sizeof count, "%02x", repeat);
    EXPECT_TRUE(daemon_.simulate(button, count));
  }

  void reload() override { daemon_.reload(); }
  void stop() override { daemon_.stop(); }
  void removeSocket() override { EXPECT_EQ(unlink(socketPath().c_str()), 0); }

 private:
  Lircd daemon_;
};

class KernelWorld final : public World {
 public:
  KernelWorld() {
    for (const auto& entry : std::filesystem::directory_iterator("/dev/input")) {
      EXPECT_NE(entry.path().filename().string().rfind("event", 0), 0U) << entry.path() << " is there already";
    }
    // Clicks are counted across worlds, as they are across readers.
    pass(kMoreThanTheClickWindow);
  }

  ~KernelWorld() override {
    if (jumped_ != milliseconds(0)) jumpClock(-jumped_);
    for (const std::string& link : links_) unlink(link.c_str());
    for (const std::string& name : variables_) unsetenv(name.c_str());
  }

  KernelWorld(const KernelWorld&) = delete;
  KernelWorld& operator=(const KernelWorld&) = delete;

  Plugged& plug(const Description& device) override {
    devices_.push_back(std::make_unique<UinputDevice>(device));
    return *devices_.back();
  }

  void link(const std::string& link, const std::string& target) override {
    mkdir(link.substr(0, link.rfind('/')).c_str(), 0755);  // the last test's can still be there
    EXPECT_EQ(symlink(target.c_str(), link.c_str()), 0);
    links_.push_back(link);
  }

  Remote& startDaemon() override {
    remotes_.push_back(std::make_unique<KernelRemote>(folder_.path()));
    return *remotes_.back();
  }

  void setEnvironment(const std::string& name, const std::string& value) override {
    setenv(name.c_str(), value.c_str(), 1);
    variables_.push_back(name);
  }

  void pass(milliseconds time) override { std::this_thread::sleep_for(time); }

  void jumpClock(milliseconds by) override {
    timespec time;
    EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &time), 0);
    time.tv_sec += static_cast<time_t>(std::chrono::duration_cast<std::chrono::seconds>(by).count());
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &time), 0);
    jumped_ += by;
  }

 private:
  static constexpr milliseconds kMoreThanTheClickWindow{500};

  milliseconds jumped_{0};
  Folder folder_;
  std::vector<std::unique_ptr<UinputDevice>> devices_;
  std::vector<std::unique_ptr<KernelRemote>> remotes_;
  std::vector<std::string> links_;
  std::vector<std::string> variables_;
};

}  // namespace

std::unique_ptr<World> makeWorld() { return std::make_unique<KernelWorld>(); }

}  // namespace quarlo::test
