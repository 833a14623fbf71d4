#include "tests/support/infrared.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <linux/lirc.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace quarlo::test {
namespace {

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

constexpr microseconds kNecPeriod(108000);
constexpr microseconds kRc5Period(113778);

}  // namespace

// ---- Frames -------------------------------------------------------------------------------------

// A byte goes out from its lowest bit on, and then once more with each bit the other way round.
Pulses necFrame(unsigned address, unsigned command) {
  constexpr unsigned kMark = 560;
  constexpr unsigned kShortSpace = 560;
  constexpr unsigned kLongSpace = 1690;
  constexpr unsigned kByte = 0xff;
  Pulses pulses = {9000, 4500};
  for (const unsigned byte : {address, address ^ kByte, command, command ^ kByte}) {
    for (int bit = 0; bit < 8; ++bit) {
      pulses.push_back(kMark);
      pulses.push_back((byte >> bit & 1) != 0 ? kLongSpace : kShortSpace);
    }
  }
  pulses.push_back(kMark);
  return pulses;
}

Pulses necRepeatFrame() { return {9000, 2250, 560}; }

// A bit is darkness and then light, or for 0 light and then darkness. Of the first bit, that darkness cannot be seen.
Pulses rc5Frame(unsigned address, unsigned command, bool toggle) {
  constexpr unsigned kHalf = 889;
  constexpr int kBits = 14;
  const unsigned bits = 3U << 12 | (toggle ? 1U << 11 : 0) | address << 6 | command;
  Pulses pulses;
  bool wasLight = false;
  for (int half = 1; half < 2 * kBits; ++half) {
    const bool isOne = (bits >> (kBits - 1 - half / 2) & 1) != 0;
    const bool isLight = isOne == (half % 2 != 0);
    if (isLight != wasLight) pulses.push_back(0);
    pulses.back() += kHalf;
    wasLight = isLight;
  }
  if (!wasLight) pulses.pop_back();
  return pulses;
}

// ---- Thumbs -------------------------------------------------------------------------------------

Thumbs& Thumbs::holdNec(unsigned address, unsigned command, milliseconds time) {
  frames_.push_back({end_, necFrame(address, command)});
  for (microseconds passed = kNecPeriod; passed <= time; passed += kNecPeriod) {
    frames_.push_back({end_ + passed, necRepeatFrame()});
  }
  end_ = frames_.back().time + kNecPeriod;
  return *this;
}

Thumbs& Thumbs::holdRc5(unsigned address, unsigned command, milliseconds time) {
  toggle_ = !toggle_;
  for (microseconds passed(0); passed <= time; passed += kRc5Period) {
    frames_.push_back({end_ + passed, rc5Frame(address, command, toggle_)});
  }
  end_ = frames_.back().time + kRc5Period;
  return *this;
}

Thumbs& Thumbs::rest(milliseconds time) {
  end_ += time;
  return *this;
}

// ---- The receiver -------------------------------------------------------------------------------

namespace {

constexpr char kModules[] = "/modules";
constexpr char kReceiver[] = "/sys/class/rc/rc0";
constexpr char kProtocols[] = "/sys/class/rc/rc0/protocols";

// The files of the modules in the order in which they load.
std::vector<std::string> moduleFiles() {
  std::ifstream list(std::string(kModules) + "/infrared");
  std::vector<std::string> files;
  for (std::string file; std::getline(list, file);) files.push_back(file);
  return files;
}

void load(const std::string& file) {
  const int fd = open((std::string(kModules) + "/" + file).c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(syscall(SYS_finit_module, fd, "", 0), 0) << file << ": " << std::strerror(errno);
  close(fd);
}

// The kernel calls rc-core.ko rc_core.
void remove(const std::string& file) {
  std::string name = std::filesystem::path(file).stem();
  std::replace(name.begin(), name.end(), '-', '_');
  EXPECT_EQ(syscall(SYS_delete_module, name.c_str(), O_NONBLOCK), 0) << name << ": " << std::strerror(errno);
}

// What is in a directory of sysfs whose name begins so, such as event0.
std::string entryOf(const std::string& folder, const std::string& prefix) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::string name = entry.path().filename();
    if (name.rfind(prefix, 0) == 0) return name;
  }
  ADD_FAILURE() << "nothing in " << folder << " is called " << prefix;
  return "";
}

}  // namespace

InfraredReceiver::InfraredReceiver() {
  for (const std::string& file : moduleFiles()) load(file);
  decode("none");
}

InfraredReceiver::~InfraredReceiver() {
  std::vector<std::string> files = moduleFiles();
  std::reverse(files.begin(), files.end());
  for (const std::string& file : files) remove(file);
}

std::string InfraredReceiver::node() const {
  const std::string input = std::string(kReceiver) + "/" + entryOf(kReceiver, "input");
  return "/dev/input/" + entryOf(input, "event");
}

void InfraredReceiver::decode(const std::string& protocol) const {
  std::ofstream protocols(kProtocols);
  EXPECT_TRUE(protocols << protocol << std::flush) << protocol;
}

// In the kernel's list of the protocols that it knows, those that it decodes are in brackets.
bool InfraredReceiver::decodes(const std::string& protocol) const {
  std::ifstream protocols(kProtocols);
  for (std::string word; protocols >> word;) {
    if (word == "[" + protocol + "]") return true;
  }
  return false;
}

void InfraredReceiver::setKey(unsigned code, int key) const {
  input_keymap_entry entry = {};
  entry.len = sizeof code;
  entry.keycode = static_cast<__u32>(key);
  std::memcpy(entry.scancode, &code, sizeof code);
  const int fd = open(node().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(ioctl(fd, EVIOCSKEYCODE_V2, &entry), 0) << std::strerror(errno);
  close(fd);
}

void InfraredReceiver::send(const Thumbs& thumbs) const {
  const int fd = open(device().c_str(), O_WRONLY | O_CLOEXEC);
  std::uint32_t mode = LIRC_MODE_PULSE;
  EXPECT_EQ(ioctl(fd, LIRC_SET_SEND_MODE, &mode), 0) << device() << ": " << std::strerror(errno);
  const Clock::time_point start = Clock::now();
  for (const Thumbs::Frame& frame : thumbs.frames()) {
    std::this_thread::sleep_until(start + frame.time);
    const std::size_t size = frame.pulses.size() * sizeof frame.pulses[0];
    EXPECT_EQ(write(fd, frame.pulses.data(), size), static_cast<ssize_t>(size));
  }
  close(fd);
}

}  // namespace quarlo::test
