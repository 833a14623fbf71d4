// A wireless receiver for a keyboard and a mouse, as a computer sees it: HID devices with report descriptors, which the
// kernel's own drivers make nodes of (uhid).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarlo::test {

using Bytes = std::vector<std::uint8_t>;

// The key a, as a HID usage of the keyboard's page.
constexpr std::uint8_t kUsageA = 0x04;

// A HID device.
class UhidDevice {
 public:
  // What the USB or Bluetooth stack knows of it.
  struct Identity {
    std::string name;
    std::string phys;
    std::string uniq;
    std::uint16_t bus;
    std::uint32_t vendor;
    std::uint32_t product;
  };

  // Returns at once: its nodes come when the kernel has read the descriptor. REQUIRES: /dev/uhid can be opened
  UhidDevice(const Identity& identity, const Bytes& descriptor);
  ~UhidDevice();
  UhidDevice(const UhidDevice&) = delete;
  UhidDevice& operator=(const UhidDevice&) = delete;

  // Sends an input report.
  void send(const Bytes& report);

 private:
  int fd_;
};

// Two interfaces, as USB has them. The first has a boot keyboard; the second has a mouse, a consumer control and a
// system control, whose usages are declared as ranges: so the kernel maps all of these, the arrows included.
class Receiver {
 public:
  // Its nodes are there and get reports: event0 is the keyboard, and event1 to event3 are the others.
  // REQUIRES: there is no other node
  Receiver();

  // A HID usage of the keyboard's page, pressed and released.
  void typeKey(std::uint8_t usage);

  void move(std::int8_t dx, std::int8_t dy);

  // A usage of the consumer page, one of the system control (0x81 to 0x8f): pressed and released.
  void tapConsumerControl(std::uint16_t usage);
  void tapSystemControl(std::uint8_t usage);

 private:
  std::optional<UhidDevice> keyboard_;
  std::optional<UhidDevice> others_;
};

}  // namespace quarlo::test
