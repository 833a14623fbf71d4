#include "tests/kernel/receiver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <linux/uhid.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/scenario/node_client.h"

namespace quarlo::test {
namespace {

constexpr std::uint8_t kMouseReport = 1;
constexpr std::uint8_t kConsumerReport = 2;
constexpr std::uint8_t kSystemReport = 3;
constexpr std::uint8_t kFirstSystemUsage = 0x81;

// clang-format off
const Bytes kKeyboard = {
    0x05, 0x01, 0x09, 0x06, 0xa1, 0x01,                          // desktop page: keyboard
    0x05, 0x07, 0x19, 0xe0, 0x29, 0xe7, 0x15, 0x00, 0x25, 0x01,  //   the modifiers, a bit each
    0x75, 0x01, 0x95, 0x08, 0x81, 0x02,
    0x75, 0x08, 0x95, 0x01, 0x81, 0x01,                          //   a byte that is reserved
    0x19, 0x00, 0x29, 0x65, 0x25, 0x65,                          //   six keys that are down
    0x75, 0x08, 0x95, 0x06, 0x81, 0x00,
    0xc0};

const Bytes kOthers = {
    0x05, 0x01, 0x09, 0x02, 0xa1, 0x01, 0x85, kMouseReport,      // desktop page: mouse
    0x09, 0x01, 0xa1, 0x00,
    0x05, 0x09, 0x19, 0x01, 0x29, 0x05, 0x15, 0x00, 0x25, 0x01,  //   five buttons, and three bits of nothing
    0x75, 0x01, 0x95, 0x05, 0x81, 0x02,
    0x75, 0x03, 0x95, 0x01, 0x81, 0x01,
    0x05, 0x01, 0x09, 0x30, 0x09, 0x31, 0x09, 0x38,              //   X, Y and the wheel
    0x15, 0x81, 0x25, 0x7f, 0x75, 0x08, 0x95, 0x03, 0x81, 0x06,
    0xc0, 0xc0,
    0x05, 0x0c, 0x09, 0x01, 0xa1, 0x01, 0x85, kConsumerReport,   // consumer page: consumer control
    0x19, 0x00, 0x2a, 0x3c, 0x02, 0x15, 0x00, 0x26, 0x3c, 0x02,  //   one of the usages up to 0x23c
    0x75, 0x10, 0x95, 0x01, 0x81, 0x00,
    0xc0,
    0x05, 0x01, 0x09, 0x80, 0xa1, 0x01, 0x85, kSystemReport,     // desktop page: system control
    0x19, kFirstSystemUsage, 0x29, 0x8f, 0x15, 0x01, 0x25, 0x0f, //   one of its usages
    0x75, 0x08, 0x95, 0x01, 0x81, 0x00,
    0xc0};
// clang-format on

UhidDevice::Identity identity(const char* interface) {
  return {"Maker Receiver", std::string("usb-test-1/") + interface, "A1B2", BUS_USB, 0x1234, 0xabcd};
}

template <std::size_t kSize>
void copy(const std::string& text, __u8 (&field)[kSize]) {
  ASSERT_LT(text.size(), kSize);
  std::memcpy(field, text.c_str(), text.size() + 1);
}

void write(int fd, const uhid_event& event) {
  EXPECT_EQ(write(fd, &event, sizeof event), static_cast<ssize_t>(sizeof event));
}

template <typename Condition>
[[nodiscard]] bool comesTrue(Condition condition) {
  constexpr int kTries = 1000;
  for (int i = 0; i < kTries; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Until the node is there and a report reaches it: the kernel drops what comes before the node's driver is ready.
template <typename Send>
void waitForNode(const std::string& path, Send sendReports) {
  EXPECT_TRUE(comesTrue([&path] { return std::filesystem::exists(path); })) << path;
  const NodeClient client(path);
  const auto isReached = [&client, sendReports] {
    sendReports();
    return !client.all().empty();
  };
  EXPECT_TRUE(comesTrue(isReached)) << "no report reaches " << path;
}

}  // namespace

UhidDevice::UhidDevice(const Identity& identity, const Bytes& descriptor)
    : fd_(open("/dev/uhid", O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  EXPECT_GE(fd_, 0) << "/dev/uhid: is the module uhid loaded?";
  uhid_event event = {};
  event.type = UHID_CREATE2;
  uhid_create2_req& request = event.u.create2;
  copy(identity.name, request.name);
  copy(identity.phys, request.phys);
  copy(identity.uniq, request.uniq);
  request.bus = identity.bus;
  request.vendor = identity.vendor;
  request.product = identity.product;
  request.rd_size = static_cast<__u16>(descriptor.size());
  std::copy(descriptor.begin(), descriptor.end(), request.rd_data);
  write(fd_, event);
}

UhidDevice::~UhidDevice() { close(fd_); }

void UhidDevice::send(const Bytes& report) {
  uhid_event event = {};
  event.type = UHID_INPUT2;
  event.u.input2.size = static_cast<__u16>(report.size());
  std::copy(report.begin(), report.end(), event.u.input2.data);
  write(fd_, event);
}

Receiver::Receiver() {
  keyboard_.emplace(identity("input0"), kKeyboard);
  waitForNode("/dev/input/event0", [this] { typeKey(kUsageA); });
  others_.emplace(identity("input1"), kOthers);
  waitForNode("/dev/input/event3", [this] { tapSystemControl(kFirstSystemUsage); });
}

void Receiver::typeKey(std::uint8_t usage) {
  keyboard_->send({0, 0, usage, 0, 0, 0, 0, 0});
  keyboard_->send({0, 0, 0, 0, 0, 0, 0, 0});
}

void Receiver::move(std::int8_t dx, std::int8_t dy) {
  others_->send({kMouseReport, 0, static_cast<std::uint8_t>(dx), static_cast<std::uint8_t>(dy), 0});
}

void Receiver::tapConsumerControl(std::uint16_t usage) {
  others_->send({kConsumerReport, static_cast<std::uint8_t>(usage), static_cast<std::uint8_t>(usage >> 8)});
  others_->send({kConsumerReport, 0, 0});
}

void Receiver::tapSystemControl(std::uint8_t usage) {
  others_->send({kSystemReport, static_cast<std::uint8_t>(usage - kFirstSystemUsage + 1)});
  others_->send({kSystemReport, 0});
}

}  // namespace quarlo::test
