#include "tools/record/node.h"

#include <poll.h>
#include <sys/ioctl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <set>

namespace quarlo::tools::record {
namespace {

using recording::DeviceDescription;
using recording::Record;

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
  ioctl(fd, request, bits);
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

void HeldKeys::follow(const input_event& record) {
  if (record.type == EV_SYN && record.code == SYN_DROPPED) isBehind_ = true;
  if (record.type == EV_KEY) down_.set(record.code, record.value != 0);
}

// The kernel drops what it has of keys when it answers, so it is not asked before all was read.
std::vector<Record> HeldKeys::mend(int fd, recording::microseconds time) {
  pollfd unread = {fd, POLLIN, 0};
  Bits bits = {};
  if (!isBehind_ || poll(&unread, 1, 0) != 0 || ioctl(fd, EVIOCGKEY(sizeof bits), bits) == -1) return {};
  Keys down;
  for (const int code : setBits(bits)) down.set(static_cast<std::size_t>(code));
  isBehind_ = false;
  return changeTo(down, time);
}

std::vector<Record> HeldKeys::release(recording::microseconds time) { return changeTo({}, time); }

std::vector<Record> HeldKeys::changeTo(const Keys& down, recording::microseconds time) {
  std::vector<Record> report;
  const auto add = [&](const Keys& changed, int value) {
    for (std::size_t code = 0; code < changed.size(); ++code) {
      if (changed[code]) report.push_back({time, EV_KEY, static_cast<std::uint16_t>(code), value});
    }
  };
  add(down_ & ~down, 0);
  add(down & ~down_, 1);
  if (!report.empty()) report.push_back({time, EV_SYN, SYN_REPORT, 0});
  down_ = down;
  return report;
}

DeviceDescription describeNode(int fd) {
  DeviceDescription device;
  char name[256] = {};
  ioctl(fd, EVIOCGNAME(sizeof name - 1), name);
  device.name = name;
  input_id id = {};
  ioctl(fd, EVIOCGID, &id);
  device.bus = id.bustype;
  device.vendor = id.vendor;
  device.product = id.product;
  device.version = id.version;
  device.properties = askForBits(fd, EVIOCGPROP(sizeof(Bits)));
  for (const int type : askForBits(fd, EVIOCGBIT(0, sizeof(Bits)))) {
    if (type == EV_SYN) continue;
    device.codes[type] = codesOf(fd, type);
    if (type != EV_ABS) continue;
    for (const int code : device.codes[type]) device.axes[code] = axisOf(fd, code);
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
