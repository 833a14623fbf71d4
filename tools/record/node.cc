#include "tools/record/node.h"

#include <sys/ioctl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <set>

namespace quarlo::tools::record {
namespace {

using recording::DeviceDescription;

constexpr int kMaxCodes = KEY_CNT;  // those of EV_KEY

// Which bits the kernel sets for this request, whose size must be that of `bits`.
using Bits = std::uint8_t[kMaxCodes / 8];

std::set<int> setBits(const Bits& bits) {
  std::set<int> found;
  for (int bit = 0; bit < kMaxCodes; ++bit) {
    if ((bits[bit / 8] >> (bit % 8) & 1) != 0) found.insert(bit);
  }
  return found;
}

// The bits that one of the requests for bits gives; none if it fails.
std::set<int> askForBits(int fd, unsigned long request) {
  Bits bits = {};
  if (ioctl(fd, request, bits) == -1) return {};
  return setBits(bits);
}

// The codes of an event type. The kernel does not list those of EV_REP.
std::set<int> codesOf(int fd, int type) {
  if (type == EV_REP) return {REP_DELAY, REP_PERIOD};
  return askForBits(fd, EVIOCGBIT(type, sizeof(Bits)));
}

DeviceDescription::Axis axisOf(int fd, int code) {
  input_absinfo info = {};
  ioctl(fd, EVIOCGABS(code), &info);
  return {info.minimum, info.maximum, info.fuzz, info.flat, info.resolution};
}

}  // namespace

DeviceDescription describeNode(int fd) {
  DeviceDescription device;
  char name[256] = {};
  if (ioctl(fd, EVIOCGNAME(sizeof name - 1), name) != -1) device.name = name;
  input_id id = {};
  ioctl(fd, EVIOCGID, &id);
  device.bus = id.bustype;
  device.vendor = id.vendor;
  device.product = id.product;
  device.version = id.version;
  device.properties = askForBits(fd, EVIOCGPROP(sizeof(Bits)));
  for (const int type : askForBits(fd, EVIOCGBIT(0, sizeof(Bits)))) {
    if (type != EV_SYN) device.codes[type] = codesOf(fd, type);
  }
  const auto axes = device.codes.find(EV_ABS);
  if (axes != device.codes.end()) {
    for (const int code : axes->second) device.axes[code] = axisOf(fd, code);
  }
  device.ledsOn = askForBits(fd, EVIOCGLED(sizeof(Bits)));
  device.switchesOn = askForBits(fd, EVIOCGSW(sizeof(Bits)));
  return device;
}

bool setMonotonicClock(int fd) {
  int clock = CLOCK_MONOTONIC;
  return ioctl(fd, EVIOCSCLOCKID, &clock) != -1;
}

recording::Record toRecord(const input_event& event, recording::microseconds start) {
  const auto seconds = std::chrono::seconds(static_cast<std::int64_t>(event.input_event_sec));
  const auto fraction = recording::microseconds(static_cast<std::int64_t>(event.input_event_usec));
  return {seconds + fraction - start, event.type, event.code, event.value};
}

}  // namespace quarlo::tools::record
