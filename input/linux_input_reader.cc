#include "input/linux_input_reader.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "logging/logging.h"

namespace quarlo::components::input {

using msg::KeyInput;
using InputEvent = LinuxInputReader::InputEvent;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

// What the target depends on.
static_assert(sizeof(input_event) == (sizeof(long) == 4 ? 16 : 24), "a record is read whole, with one read()");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the kernel's capability bitmaps are read byte by byte");
static_assert(sizeof(InputEvent) == 20 && offsetof(InputEvent, keyData) == 4 && offsetof(InputEvent, mouseData) == 4);
static_assert(std::is_trivially_copyable_v<InputEvent> && std::is_standard_layout_v<LinuxInputReader>);

namespace {

constexpr char kLogFile[] = "input/linux_input_reader";

}  // namespace

// The level is asked before an argument is evaluated, so a message that nobody wants costs a comparison.
#define LOG_IF(wanted, severity, ...)                                   \
  do {                                                                  \
    if (wanted) {                                                       \
      logging::LogMessage(kLogFile, __LINE__, (severity), __VA_ARGS__); \
    }                                                                   \
  } while (false)
#define LOG_INFO(...) LOG_IF(logging::GetMinLogLevel() <= logging::kInfo, logging::kInfo, __VA_ARGS__)
#define LOG_ERROR(...) LOG_IF(logging::GetMinLogLevel() <= logging::kError, logging::kError, __VA_ARGS__)

// ---- Arithmetic of the 32-bit target ------------------------------------------------------------

namespace {

std::int32_t wrap(std::uint32_t value) { return static_cast<std::int32_t>(value); }

}  // namespace

// ---- Life cycle ---------------------------------------------------------------------------------

namespace {

constexpr std::int32_t kDefaultRepeatTimeoutMs = 100;
constexpr std::int32_t kDefaultReleaseTimeoutMs = 300;

// Where the LIRC daemon's socket is found on the distributions, the present place first.
constexpr const char* kLircSocketPaths[] = {"/var/run/lirc/lircd", "/var/lircd", "/dev/lircd", "/dev/lirc/lircd"};

// The variable as a number, 0 if it is not set or not a number; a larger number than the target's becomes its limit.
std::int32_t getenvint(const char* name) {
  const char* text = getenv(name);
  if (text == nullptr) return 0;
  const long value = strtol(text, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<std::int32_t>(value);
}

std::int32_t positiveOr(std::int32_t value, std::int32_t fallback) { return value > 0 ? value : fallback; }

}  // namespace

LinuxInputReader::LinuxInputReader()
    : lircRepeatTimeout(positiveOr(getenvint("LIRC_REPEAT_TIMEOUT"), kDefaultRepeatTimeoutMs)),
      lircReleaseTimeout(positiveOr(getenvint("LIRC_RELEASE_TIMEOUT"), kDefaultReleaseTimeoutMs)) {
  // Byte by byte: a wheel can deliver the slot before anything was written to it, padding included.
  memset(&pendingEvent, 0, sizeof pendingEvent);
}

LinuxInputReader::~LinuxInputReader() {
  close(mouseFd);
  close(keyboardFd);
  close(lircFd);
}

bool LinuxInputReader::init(const char* mouseDevice, const char* keyboardDevice, const char* lircSocket,
                            std::uint32_t width, std::uint32_t height) {
  maxX = wrap(width);
  maxY = wrap(height);

  mouseFd = openDevice(mouseDevice, true);
  if (mouseFd < 0) {
    if (mouseDevice != nullptr) {
      LOG_ERROR("Could not open mouse device %s", mouseDevice);
    } else {
      LOG_INFO("Could not autodetect a suitable mouse device");
    }
  }

  keyboardFd = openDevice(keyboardDevice, false);
  if (keyboardFd < 0) {
    if (keyboardDevice != nullptr) {
      LOG_ERROR("Could not open keyboard device %s", keyboardDevice);
    } else {
      LOG_INFO("Could not autodetect a suitable keyboard device");
    }
  }

  if (lircSocket != nullptr) {
    lircFd = openLircSocket(lircSocket);
    if (lircFd >= 0) return true;
    LOG_ERROR("Could not open LIRC socket %s", lircSocket);
  } else {
    for (const char* path : kLircSocketPaths) {
      lircFd = openLircSocket(path);
      if (lircFd >= 0) return true;
    }
    LOG_INFO("Could not autodetect a LIRC device");
  }
  return lircFd >= 0 || mouseFd >= 0 || keyboardFd >= 0;
}

// ---- Opening ------------------------------------------------------------------------------------

namespace {

constexpr int kHighestScannedNode = 10;

constexpr std::size_t kNodePathSize = 24;
constexpr std::size_t kDeviceNameSize = 100;  // one more than is asked for: the kernel cuts a long name without a NUL

// EVIOCGRAB's argument is passed in place of a pointer, so it is as wide as one.
constexpr long kGrab = 1;
constexpr long kReleaseGrab = 0;

// Whether no other process holds the node exclusively. EINVAL is the answer of a node that cannot be grabbed.
bool grabProbe(int fd) { return ioctl(fd, EVIOCGRAB, kGrab) != -1 || errno == EINVAL; }

bool hasBit(const std::uint8_t* bits, int bit) { return (bits[bit / 8] >> (bit % 8) & 1) != 0; }

}  // namespace

int LinuxInputReader::openDevice(const char* path, bool mouse) {
  if (path != nullptr) return open(path, O_RDONLY | O_NONBLOCK);

  char node[kNodePathSize];
  char name[kDeviceNameSize] = {};
  for (int n = kHighestScannedNode; n >= 0; --n) {
    snprintf(node, sizeof node, "/dev/input/event%d", n);
    const int probe = open(node, O_RDONLY);
    if (probe == -1) continue;
    if (!grabProbe(probe)) {
      close(probe);
      continue;
    }
    ioctl(probe, EVIOCGNAME(sizeof name - 1), name);
    const bool suits =
        mouse ? hasRelEvent(probe) && hasKeyEvent(probe, true) : !hasRelEvent(probe) && hasKeyEvent(probe, false);
    if (suits) LOG_INFO(mouse ? "Found a mouse: %s - %s" : "Found a keyboard: %s - %s", node, name);
    ioctl(probe, EVIOCGRAB, kReleaseGrab);
    close(probe);
    if (suits) return open(node, O_RDONLY | O_NONBLOCK);
  }
  return -1;
}

bool LinuxInputReader::hasRelEvent(int fd) const {
  std::uint8_t bits[2] = {};
  if (ioctl(fd, EVIOCGBIT(EV_REL, sizeof bits), bits) == -1) LOG_ERROR("evdev ioctl failed in testRel");
  return hasBit(bits, REL_X) && hasBit(bits, REL_Y);
}

bool LinuxInputReader::hasAbsEvent(int fd) const {
  std::uint8_t bits[8] = {};
  if (ioctl(fd, EVIOCGBIT(EV_ABS, sizeof bits), bits) == -1) LOG_ERROR("evdev ioctl failed in testAbs");
  return hasBit(bits, ABS_X) && hasBit(bits, ABS_Y);
}

bool LinuxInputReader::hasKeyEvent(int fd, bool pointer) const {
  std::uint8_t bits[(KEY_MAX + 1) / 8] = {};
  if (ioctl(fd, EVIOCGBIT(EV_KEY, sizeof bits), bits) == -1) LOG_ERROR("evdev ioctl failed in testKey");
  if (pointer) return hasBit(bits, BTN_LEFT) || hasBit(bits, BTN_TOUCH);
  return hasBit(bits, KEY_UP) && hasBit(bits, KEY_LEFT) && hasBit(bits, KEY_RIGHT) && hasBit(bits, KEY_DOWN);
}

int LinuxInputReader::openLircSocket(const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::size_t size = strlen(path) + 1;
  if (size > sizeof address.sun_path) abort();
  memcpy(address.sun_path, path, size);

  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  if (fd == -1) return -1;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
    close(fd);
    return -1;
  }
  LOG_INFO("Found a LIRC device: %s", path);
  return fd;
}

}  // namespace quarlo::components::input
