#include "tests/scenario/uinput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/uinput.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace quarlo::test {
namespace {

// The ioctl that declares a code of this event type.
unsigned long codeRequest(int type) {
  switch (type) {
    case EV_KEY: return UI_SET_KEYBIT;
    case EV_REL: return UI_SET_RELBIT;
    case EV_ABS: return UI_SET_ABSBIT;
    case EV_MSC: return UI_SET_MSCBIT;
    case EV_LED: return UI_SET_LEDBIT;
    case EV_SND: return UI_SET_SNDBIT;
    case EV_SW: return UI_SET_SWBIT;
    default: ADD_FAILURE() << "no ioctl declares codes of event type " << type; return 0;
  }
}

void declareAxis(int fd, int code, const input_absinfo& info) {
  uinput_abs_setup axis = {};
  axis.code = static_cast<__u16>(code);
  axis.absinfo = info;
  EXPECT_EQ(ioctl(fd, UI_ABS_SETUP, &axis), 0) << "axis " << code;
}

void send(int fd, int type, int code, int value) {
  input_event record = {};
  record.type = static_cast<__u16>(type);
  record.code = static_cast<__u16>(code);
  record.value = value;
  EXPECT_EQ(write(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
}

int create(const Description& device) {
  const int fd = open("/dev/uinput", O_WRONLY | O_CLOEXEC);
  EXPECT_GE(fd, 0) << "/dev/uinput: is the module uinput loaded?";
  for (const auto& [type, codes] : device.codes) {
    EXPECT_EQ(ioctl(fd, UI_SET_EVBIT, type), 0);
    if (type == EV_REP) continue;  // its codes are the kernel's own
    for (const int code : codes) {
      EXPECT_EQ(ioctl(fd, codeRequest(type), code), 0) << "type " << type << " code " << code;
    }
  }
  for (const int property : device.properties) EXPECT_EQ(ioctl(fd, UI_SET_PROPBIT, property), 0);
  for (const auto& [code, info] : device.axes) declareAxis(fd, code, info);
  if (device.phys) {
    EXPECT_EQ(ioctl(fd, UI_SET_PHYS, device.phys->c_str()), 0);
  }
  uinput_setup setup = {};
  setup.id = device.id;
  EXPECT_LT(device.name.size(), sizeof setup.name);
  device.name.copy(setup.name, sizeof setup.name - 1);
  EXPECT_EQ(ioctl(fd, UI_DEV_SETUP, &setup), 0);
  EXPECT_EQ(ioctl(fd, UI_DEV_CREATE), 0);
  if (device.codes.count(EV_REP) != 0) {
    send(fd, EV_REP, REP_DELAY, static_cast<int>(device.repeatDelay.count()));
    send(fd, EV_REP, REP_PERIOD, static_cast<int>(device.repeatPeriod.count()));
    send(fd, EV_SYN, SYN_REPORT, 0);
  }
  return fd;
}

std::string nodeOf(int fd) {
  char name[64] = {};
  EXPECT_GE(ioctl(fd, UI_GET_SYSNAME(sizeof name - 1), name), 0);
  const std::string folder = std::string("/sys/devices/virtual/input/") + name;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string file = entry.path().filename();
    if (file.rfind("event", 0) == 0) return "/dev/input/" + file;
  }
  ADD_FAILURE() << "no event node in " << folder << ": is the module evdev loaded?";
  return "";
}

// The other process: grabs the node, says whether it could, and keeps it until it is killed.
[[noreturn]] void grabAndHold(const std::string& path, int result) {
  constexpr long kGrab = 1;
  const int fd = open(path.c_str(), O_RDONLY);
  const char grabbed = ioctl(fd, EVIOCGRAB, kGrab) == 0 ? 1 : 0;
  if (write(result, &grabbed, 1) == 1) pause();
  _exit(1);
}

}  // namespace

UinputDevice::UinputDevice(const Description& device) : fd_(create(device)), path_(nodeOf(fd_)) {}

UinputDevice::~UinputDevice() {
  letGoElsewhere();
  unplug();
}

void UinputDevice::report(int type, int code, int value) { send(fd_, type, code, value); }

void UinputDevice::unplug() {
  if (fd_ == -1) return;
  EXPECT_EQ(ioctl(fd_, UI_DEV_DESTROY), 0);
  close(fd_);
  fd_ = -1;
}

bool UinputDevice::grabElsewhere() {
  int result[2];
  EXPECT_EQ(pipe2(result, O_CLOEXEC), 0);
  holder_ = fork();
  if (holder_ == 0) grabAndHold(path_, result[1]);
  close(result[1]);
  char grabbed = 0;
  EXPECT_EQ(read(result[0], &grabbed, 1), 1);
  close(result[0]);
  if (grabbed == 0) letGoElsewhere();
  return grabbed != 0;
}

void UinputDevice::letGoElsewhere() {
  if (holder_ == -1) return;
  kill(holder_, SIGKILL);
  waitpid(holder_, nullptr, 0);
  holder_ = -1;
}

}  // namespace quarlo::test
