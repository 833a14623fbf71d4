// The reader on USB devices: those of QEMU, behind the kernel's own drivers.
#include <gtest/gtest.h>

#include <optional>

#include "tests/kernel/qmp.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

constexpr char kNowhere[] = "/nowhere";
constexpr int kPatienceMs = 10'000;

class UsbTest : public testing::Test {
 protected:
  UsbTest() { resetLog(); }

  // The next event: the bus asks a device only every few milliseconds.
  static std::string next(LinuxInputReader& reader) {
    constexpr int kTries = 100;
    std::string event = kNone;
    for (int i = 0; i < kTries && event == kNone; ++i) event = readOne(reader, 10);
    return event;
  }
  std::string next() { return next(reader); }

  Qmp qmp;
  LinuxInputReader reader;
  std::optional<UsbDevice> device;
};

TEST_F(UsbTest, AKeyboardIsFoundAndTypes) {
  device.emplace(qmp, "usb-kbd");
  reader.init(nullptr, nullptr, kNowhere, 1280, 720);
  EXPECT_EQ(takeLog()[1], "INFO Found a keyboard: /dev/input/event0 - QEMU QEMU USB Keyboard");
  qmp.tapKeys({"shift", "a"});
  EXPECT_EQ(next(), keyDown(16, 0, 2));
  EXPECT_EQ(next(), keyDown(65, 'A', 2));
  EXPECT_EQ(next(), keyUp(65, 'A', 2));
  EXPECT_EQ(next(), keyUp(16));
}

TEST_F(UsbTest, AMouseIsFoundMovesAndClicks) {
  device.emplace(qmp, "usb-mouse");
  reader.init(nullptr, nullptr, kNowhere, 1280, 720);
  EXPECT_EQ(takeLog()[0], "INFO Found a mouse: /dev/input/event0 - QEMU QEMU USB Mouse");
  qmp.move(30, 40);
  EXPECT_EQ(next(), moved(30, 40));
  qmp.setButton("left", true);
  EXPECT_EQ(next(), buttonDown(1, 30, 40, 1));
  qmp.setButton("left", false);
  EXPECT_EQ(next(), buttonUp(1, 30, 40, 1));
}

TEST_F(UsbTest, UnpluggedAndPluggedInAgainItNeedsANewReader) {
  device.emplace(qmp, "usb-kbd");
  reader.init(kNowhere, UsbDevice::kNode, kNowhere, 1280, 720);
  device.reset();
  takeLog();
  EXPECT_EQ(readOne(reader, kPatienceMs), kNone);  // the kernel removes a node before it wakes who reads it
  EXPECT_EQ(takeLog(), Lines({"ERROR Reading from input device failed, errno = 19"}));
  device.emplace(qmp, "usb-kbd");
  LinuxInputReader again;
  again.init(kNowhere, UsbDevice::kNode, kNowhere, 1280, 720);
  qmp.tapKeys({"b"});
  EXPECT_EQ(next(again), keyDown(66, 'b'));
  EXPECT_EQ(readOne(reader), kNone);
}

}  // namespace
}  // namespace quarlo::test
