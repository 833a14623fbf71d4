// Real devices: what they say of themselves, what autodetection makes of them, and what comes of them.
#include "tests/support/devices.h"

#include <linux/input.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/scenario/node_client.h"
#include "tests/scenario/scenario_test.h"

namespace quarlo::test {
namespace {

bool hasAll(const Description& device, int type, std::initializer_list<int> codes) {
  const auto found = device.codes.find(type);
  if (found == device.codes.end()) return false;
  return std::all_of(codes.begin(), codes.end(), [&](int code) { return found->second.count(code) != 0; });
}

// The rules, read from what the device can send.
bool isRelative(const Description& device) { return hasAll(device, EV_REL, {REL_X, REL_Y}); }
bool isAbsolute(const Description& device) { return hasAll(device, EV_ABS, {ABS_X, ABS_Y}); }
bool points(const Description& device) {
  return hasAll(device, EV_KEY, {BTN_LEFT}) || hasAll(device, EV_KEY, {BTN_TOUCH});
}
bool hasArrows(const Description& device) { return hasAll(device, EV_KEY, {KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}); }

Lines found(Taken taken, const std::string& node, const std::string& name) {
  const std::string rest = ": " + node + " - " + name;
  return {taken == Taken::kAsMouse ? "INFO Found a mouse" + rest : "INFO Could not autodetect a suitable mouse device",
          taken == Taken::kAsKeyboard ? "INFO Found a keyboard" + rest
                                      : "INFO Could not autodetect a suitable keyboard device"};
}

// A device's first key or button, and a step or position of each of its axes, in a report.
Lines report(Plugged& plugged, const Description& device) {
  Lines records;
  const auto send = [&](int type, int code, int value) {
    plugged.report(type, code, value);
    records.push_back(std::to_string(type) + " " + std::to_string(code) + " " + std::to_string(value));
  };
  for (const auto& [type, codes] : device.codes) {
    if (type == EV_KEY || type == EV_SW) send(type, *codes.begin(), 1);
    if (type != EV_REL && type != EV_ABS) continue;
    for (const int code : codes) {
      if (code != ABS_MT_SLOT || type == EV_REL)
        send(type, code, type == EV_REL ? 3 : std::max(device.axes.at(code).maximum, 1));
    }
  }
  plugged.report(EV_SYN, SYN_REPORT, 0);
  if (!records.empty()) records.push_back(kReport);
  return records;
}

class RealDeviceTest : public ScenarioTest, public testing::WithParamInterface<const RealDevice*> {
 protected:
  const Description& device = GetParam()->device;
};

TEST_P(RealDeviceTest, IsTakenAsTheRulesSay) {
  const std::string node = world->plug(device).path();
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader), found(GetParam()->taken, node, device.name));
  const NodeClient client(node);
  EXPECT_EQ(reader.hasRelEvent(client.fd()), isRelative(device));
  EXPECT_EQ(reader.hasAbsEvent(client.fd()), isAbsolute(device));
  EXPECT_EQ(reader.hasKeyEvent(client.fd(), true), points(device));
  EXPECT_EQ(reader.hasKeyEvent(client.fd(), false), hasArrows(device));
}

TEST_P(RealDeviceTest, SendsWhatItDeclares) {
  Plugged& plugged = world->plug(device);
  const NodeClient client(plugged.path());
  EXPECT_EQ(client.all(), Lines({}));
  const Lines records = report(plugged, device);
  EXPECT_EQ(client.all(), records);
}

std::vector<const RealDevice*> addresses() {
  std::vector<const RealDevice*> result;
  for (const RealDevice& device : realDevices()) result.push_back(&device);
  return result;
}

INSTANTIATE_TEST_SUITE_P(Corpus, RealDeviceTest, testing::ValuesIn(addresses()),
                         [](const auto& device) { return std::string(device.param->id); });

// ---- Several at once, and what the reader gives -------------------------------------------------

using RealDevicesTest = ScenarioTest;

TEST_F(RealDevicesTest, OfAReceiverTheNodeWithoutLettersIsTaken) {
  std::vector<Plugged*> nodes;
  for (const RealDevice& part : nanoTransceiver()) nodes.push_back(&world->plug(part.device));
  LinuxInputReader reader;
  const std::string name = realDevice("NanoKeyboard").device.name;
  EXPECT_EQ(openNodes(reader), Lines({"INFO Found a mouse: /dev/input/event1 - " + name + " Mouse",
                                      "INFO Found a keyboard: /dev/input/event3 - " + name + " System Control"}));
  nodes[0]->press(KEY_A);  // typing is dead
  EXPECT_EQ(readAll(reader), Lines({}));
  nodes[3]->press(KEY_UP);
  EXPECT_EQ(readAll(reader), Lines({keyDown(38)}));
}

TEST_F(RealDevicesTest, ARemoteThatTheKernelDecodesIsNeverFoundButReadByItsPath) {
  Plugged& remote = world->plug(realDevice("RemoteOfTheKernel").device);
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader, kNowhere).back(), "INFO Could not autodetect a suitable keyboard device");
  LinuxInputReader byPath;
  openNodes(byPath, kNowhere, remote.path().c_str());
  for (const int value : {1, 0}) {
    remote.report(EV_MSC, MSC_SCAN, 0x401);
    remote.report(EV_KEY, KEY_UP, value);
    remote.report(EV_SYN, SYN_REPORT, 0);
  }
  EXPECT_EQ(readAll(byPath), Lines({keyDown(38), keyUp(38)}));
}

TEST_F(RealDevicesTest, AKeyboardWithATouchpadTypesThroughTheMousesDescriptor) {
  Plugged& device = world->plug(realDevice("KeyboardWithATouchpad").device);
  LinuxInputReader reader;
  openNodes(reader);
  device.move(3, 4);
  device.tap(KEY_A);
  EXPECT_EQ(readAll(reader), Lines({moved(3, 4), keyDown(65, 'a'), keyUp(65, 'a')}));
}

TEST_F(RealDevicesTest, ATouchpadByItsPathGivesLeftClicksWhereThePointerIs) {
  Plugged& device = world->plug(realDevice("TouchpadOnI2c").device);
  LinuxInputReader reader;
  openNodes(reader, device.path().c_str(), kNowhere);
  device.report(EV_ABS, ABS_MT_TRACKING_ID, 1);
  device.report(EV_ABS, ABS_MT_POSITION_X, 600);
  device.report(EV_ABS, ABS_X, 600);
  device.report(EV_KEY, BTN_LEFT, 1);
  device.report(EV_SYN, SYN_REPORT, 0);
  device.release(BTN_LEFT);
  EXPECT_EQ(readAll(reader), Lines({buttonDown(1, 0, 0, 1), buttonUp(1, 0, 0, 1)}));
}

TEST_F(RealDevicesTest, OfATouchpadTheHalfThatIsSilentIsTaken) {
  world->plug(realDevice("SilentHalfOfATouchpad").device);
  world->plug(realDevice("TouchpadOnI2c").device);
  LinuxInputReader reader;
  EXPECT_EQ(openNodes(reader, nullptr, kNowhere).front(),
            "INFO Found a mouse: /dev/input/event0 - DLL0704:01 06CB:76AD Mouse");
}

}  // namespace
}  // namespace quarlo::test
