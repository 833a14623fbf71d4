// `quarlo-input list` on a real kernel, and the warnings of `monitor`.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <csignal>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/support/devices.h"
#include "tests/support/infrared.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using nlohmann::json;
using test::RealDevice;
using test::realDevice;
using test::UinputDevice;

class ListTest : public testing::Test {
 protected:
  const UinputDevice& plug(const RealDevice& device) {
    plugged.push_back(std::make_unique<UinputDevice>(device.device));
    return *plugged.back();
  }

  // What `list` says, by node.
  static std::map<std::string, json> list() {
    std::map<std::string, json> nodes;
    const Result result = run({"list", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    for (const std::string& line : linesOf(result.out)) {
      const json node = json::parse(line);
      nodes[node["node"]] = node;
    }
    return nodes;
  }

  static std::string warningsOf(const json& node) {
    std::string ids;
    for (const json& warning : node["warnings"]) ids += warning["id"].get<std::string>() + " ";
    return ids;
  }

  std::vector<std::unique_ptr<UinputDevice>> plugged;
};

json repeatOf(const test::Description& device) {
  if (device.codes.count(EV_REP) == 0) return nullptr;
  return {{"delayMs", device.repeatDelay.count()}, {"periodMs", device.repeatPeriod.count()}};
}

TEST_F(ListTest, EachRealDeviceHasItsClassAndItsFacts) {
  std::map<std::string, const RealDevice*> devices;
  for (const RealDevice& device : test::realDevices()) devices[plug(device).path()] = &device;
  const std::map<std::string, json> nodes = list();
  ASSERT_EQ(nodes.size(), devices.size());
  for (const auto& [path, device] : devices) {
    SCOPED_TRACE(device->id);
    const json& node = nodes.at(path);
    char ids[16];
    std::snprintf(ids, sizeof ids, "%04x:%04x", device->device.id.vendor, device->device.id.product);
    EXPECT_EQ(node["class"], device->deviceClass);
    EXPECT_EQ(node["name"], device->device.name);
    EXPECT_EQ(node["vendor"].get<std::string>() + ":" + node["product"].get<std::string>(), ids);
    EXPECT_EQ(node["phys"], device->device.phys.value_or(""));
    EXPECT_EQ(node["repeat"], repeatOf(device->device));
    EXPECT_EQ(node["rc"], nullptr);
    EXPECT_EQ(node["readable"], true);
    EXPECT_EQ(node["grabbed"], false);
  }
}

TEST_F(ListTest, ATouchpadGivesClicksAndItsSilentHalfIsWarnedOf) {
  const std::string half = plug(realDevice("SilentHalfOfATouchpad")).path();
  const std::string pad = plug(realDevice("TouchpadOnI2c")).path();
  std::map<std::string, json> nodes = list();
  EXPECT_EQ(nodes[half]["verdict"], "mouse");
  EXPECT_EQ(warningsOf(nodes[half]), "touch-half ");
  EXPECT_EQ(nodes[pad]["delivers"], json({"unknown keys", "left button"}));
  EXPECT_EQ(nodes[pad]["reason"], "a touchpad: absolute positions are not read");
}

TEST_F(ListTest, ARemoteWithTheButtonsOfAMouseIsWarnedOf) {
  const std::string remote = plug(realDevice("RemoteWithTheButtonsOfAMouse")).path();
  std::map<std::string, json> nodes = list();
  EXPECT_EQ(nodes[remote]["verdict"], "mouse");
  EXPECT_EQ(warningsOf(nodes[remote]), "remote-as-mouse ");
}

TEST_F(ListTest, ANodeThatAnotherProcessHasGrabbedTellsItsFacts) {
  UinputDevice mouse(realDevice("UsbMouse").device);
  ASSERT_TRUE(mouse.grabElsewhere());
  const json node = list().at(mouse.path());
  EXPECT_EQ(node["grabbed"], true);
  EXPECT_EQ(node["class"], "mouse");
  EXPECT_EQ(node["relative"], true);
  EXPECT_EQ(node["verdict"], "not taken");
}

TEST_F(ListTest, AReceiversKeyboardWithoutLettersIsWarnedOfAlsoByMonitor) {
  std::string letters;
  for (const RealDevice& node : test::nanoTransceiver()) {
    const std::string path = plug(node).path();
    if (letters.empty()) letters = path;
  }
  const std::string taken = plugged.back()->path();
  EXPECT_EQ(warningsOf(list().at(taken)), "no-letters ");
  Program monitor({"monitor"});
  EXPECT_TRUE(monitor.waitFor("  keyboard  " + taken));
  EXPECT_TRUE(monitor.waitFor("            Warning: it has no letter keys, and " + letters +
                              " has. Pass that one by its path: --keyboard " + letters + "\n"));
  monitor.signal(SIGINT);
  EXPECT_EQ(monitor.finish().status, 0);
}

// A node of rc-core, with a sysfs that the kernel made.
TEST_F(ListTest, ARemoteThatTheKernelDecodesIsToBePassedByItsPath) {
  const test::InfraredReceiver receiver;
  receiver.setKey(0x0401, KEY_UP);
  receiver.decode("nec");
  const json node = list().at(receiver.node());
  EXPECT_EQ(node["class"], "remote");
  EXPECT_EQ(node["verdict"], "not taken");
  EXPECT_EQ(node["delivers"], json({"keys", "unknown keys", "motion"}));
  EXPECT_EQ(node["repeat"], json({{"delayMs", 500}, {"periodMs", 125}}));
  EXPECT_EQ(node["rc"]["device"], "rc0");
  EXPECT_EQ(node["rc"]["driver"], "rc-loopback");
  EXPECT_EQ(node["rc"]["active"], json({"nec", "lirc"}));
  EXPECT_EQ(node["rc"]["lirc"], receiver.device());
  const std::string remedy = node["remedy"];
  EXPECT_EQ(remedy.find("Pass it by its path: --keyboard " + receiver.node()), 0U) << remedy;
  EXPECT_EQ(remedy.find("A held button repeats"), std::string::npos) << remedy;
}

TEST_F(ListTest, AReceiverWhoseLightOnlyADaemonDecodesSaysSo) {
  const test::InfraredReceiver receiver;
  receiver.decode("none");
  const json node = list().at(receiver.node());
  EXPECT_EQ(node["rc"]["active"], json({"lirc"}));
  EXPECT_EQ(node["remedy"].get<std::string>().find("The kernel decodes nothing for it now"), 0U) << node["remedy"];
}

TEST_F(ListTest, ARemoteWithALeftButtonAmongItsKeysIsWarnedOf) {
  const test::InfraredReceiver receiver;
  receiver.setKey(0x0401, BTN_LEFT);
  const json node = list().at(receiver.node());
  EXPECT_EQ(node["class"], "remote");
  EXPECT_EQ(warningsOf(node), "remote-as-mouse ");
}

TEST_F(ListTest, MonitorDoesNotWarnOfWhatWasAskedFor) {
  std::string last;
  for (const RealDevice& node : test::nanoTransceiver()) last = plug(node).path();
  Program monitor({"monitor", "--mouse", "none", "--keyboard", last});
  EXPECT_TRUE(monitor.waitFor("  remote    "));
  monitor.signal(SIGINT);
  const Result result = monitor.finish();
  EXPECT_EQ(result.out.find("Warning"), std::string::npos) << result.out;
}

}  // namespace
}  // namespace quarlo::tools
