// A receiver with several nodes, behind the kernel's own drivers: what they say, and which of them the reader takes.
#include "tests/kernel/receiver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <set>
#include <string>

#include "tests/scenario/node_client.h"
#include "tests/support/devices.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

constexpr char kNowhere[] = "/nowhere";
constexpr std::uint8_t kUsageSystemMenuUp = 0x8c;
constexpr std::uint16_t kUsageVolumeUp = 0xe9;
constexpr std::uint16_t kUsageMenuLeft = 0x44;

std::string node(int number) { return "/dev/input/event" + std::to_string(number); }

// A text of the node, with what EVIOCGPHYS(0) and its sisters ask for.
std::string text(const NodeClient& client, unsigned long (*request)(std::size_t)) {
  char buffer[100] = {};
  EXPECT_GT(ioctl(client.fd(), request(sizeof buffer - 1), buffer), 0) << std::strerror(errno);
  return buffer;
}
unsigned long name(std::size_t size) { return _IOC(_IOC_READ, 'E', _IOC_NR(EVIOCGNAME(0)), size); }
unsigned long phys(std::size_t size) { return _IOC(_IOC_READ, 'E', _IOC_NR(EVIOCGPHYS(0)), size); }
unsigned long uniq(std::size_t size) { return _IOC(_IOC_READ, 'E', _IOC_NR(EVIOCGUNIQ(0)), size); }

std::set<int> keysOf(const NodeClient& client) {
  unsigned char bits[(KEY_MAX + 1) / 8] = {};
  EXPECT_GT(ioctl(client.fd(), EVIOCGBIT(EV_KEY, sizeof bits), bits), 0);
  std::set<int> keys;
  for (int code = 0; code <= KEY_MAX; ++code) {
    if ((bits[code / 8] >> (code % 8) & 1) != 0) keys.insert(code);
  }
  return keys;
}

class ReceiverTest : public testing::Test {
 protected:
  ReceiverTest() { resetLog(); }

  Receiver receiver;
  LinuxInputReader reader;
};

TEST_F(ReceiverTest, EachUseHasANodeWithTheNamesOfTheReceiver) {
  const char* const uses[] = {"", " Mouse", " Consumer Control", " System Control"};
  for (int number = 0; number < 4; ++number) {
    const NodeClient client(node(number));
    EXPECT_EQ(text(client, name), std::string("Maker Receiver") + uses[number]);
    EXPECT_EQ(text(client, phys), number == 0 ? "usb-test-1/input0" : "usb-test-1/input1");
    EXPECT_EQ(text(client, uniq), "A1B2");
    input_id id = {};
    EXPECT_EQ(ioctl(client.fd(), EVIOCGID, &id), 0);
    EXPECT_EQ(id.bustype, BUS_USB);
    EXPECT_EQ(id.vendor, 0x1234);
    EXPECT_EQ(id.product, 0xabcd);
  }
}

TEST_F(ReceiverTest, ItsKeysAreThoseOfTheDevicesThatOtherTestsMake) {
  EXPECT_EQ(keysOf(NodeClient(node(0))), realDevice("NanoKeyboard").device.codes.at(EV_KEY));
  EXPECT_EQ(keysOf(NodeClient(node(1))), realDevice("NanoMouse").device.codes.at(EV_KEY));
  EXPECT_EQ(keysOf(NodeClient(node(2))), realDevice("NanoConsumerControl").device.codes.at(EV_KEY));
  EXPECT_EQ(keysOf(NodeClient(node(3))), realDevice("NanoSystemControl").device.codes.at(EV_KEY));
}

TEST_F(ReceiverTest, TheNodeWithoutLettersIsTakenAndTypingIsDead) {
  reader.init(nullptr, nullptr, kNowhere, 1280, 720);
  EXPECT_EQ(takeLog(), Lines({"INFO Found a mouse: /dev/input/event1 - Maker Receiver Mouse",
                              "INFO Found a keyboard: /dev/input/event3 - Maker Receiver System Control",
                              "ERROR Could not open LIRC socket /nowhere"}));
  receiver.typeKey(kUsageA);
  receiver.tapConsumerControl(kUsageMenuLeft);
  EXPECT_EQ(readAll(reader), Lines({}));
  receiver.move(3, 4);
  receiver.tapSystemControl(kUsageSystemMenuUp);
  EXPECT_EQ(readAll(reader), Lines({keyDown(38), keyUp(38), moved(3, 4)}));
}

TEST_F(ReceiverTest, ByItsPathTheKeyboardTypes) {
  reader.init(kNowhere, node(0).c_str(), kNowhere, 1280, 720);
  receiver.typeKey(kUsageA);
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(ReceiverTest, ByTheirPathTheMediaKeysArriveWithoutTheKeyboard) {
  reader.init(kNowhere, node(2).c_str(), kNowhere, 1280, 720);
  receiver.typeKey(kUsageA);
  receiver.tapConsumerControl(kUsageVolumeUp);
  receiver.tapConsumerControl(kUsageMenuLeft);
  EXPECT_EQ(readAll(reader), Lines({keyDown(447), keyUp(447), keyDown(37), keyUp(37)}));
}

}  // namespace
}  // namespace quarlo::test
