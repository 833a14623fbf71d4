// Torture of the listing: it has no life of its own, but it makes calls, and each of them can fail.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sim/machine.h"
#include "tests/torture/torture.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test::torture {
namespace {

// A node, and what the listing finds in it.
struct ListedNode {
  int number;
  std::string name;
  bool held;
  std::map<int, std::set<int>> codes;
  std::array<std::string, 4> findings;  // of a mouse, a touchscreen and a keyboard; and what went wrong with its types
  std::string types;
};

constexpr char kListingsStart[] = "Supported event types:\n";
constexpr char kNoType[] = "  Event type 0x00  (Unknown event type: 0x0000)\n";

// Only the first has everything.
const std::vector<ListedNode> kListedNodes = {
    {1,
     "All",
     false,
     {{EV_KEY, {BTN_LEFT, KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}}, {EV_REL, {REL_X, REL_Y}}, {EV_ABS, {ABS_X, ABS_Y}}},
     {"INFO Probably a mouse", "INFO Probably a touchscreen", "INFO Probably a keyboard", ""},
     std::string(kNoType) + "  Event type 0x01  (Keys or Buttons)\n  Event type 0x02  (Relative Axes)\n" +
         "  Event type 0x03  (Absolute Axes)\n"},
    {2, "Held", true, {}, {}, kNoType},
    {4,
     "Keyboard",
     false,
     {{EV_KEY, {KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}}},
     {"", "", "INFO Probably a keyboard", ""},
     std::string(kNoType) + "  Event type 0x01  (Keys or Buttons)\n"},
    {8, "Nothing", false, {}, {}, kNoType}};

struct Listing {
  Lines log;
  std::string printed;
};

// The listing, and its calls.
std::pair<Listing, Calls> list(const std::optional<Fault>& fault) {
  resetLog();
  sim::Machine machine;
  for (const ListedNode& node : kListedNodes) {
    machine.addNode(nodePath(node.number), {node.name, node.codes}).setGrabbedElsewhere(node.held);
  }
  if (fault) machine.fail(fault->call, fault->count, fault->error);
  testing::internal::CaptureStdout();
  LinuxInputReader().listLinuxInputReader();
  std::fflush(stdout);
  const Listing listing = {takeLog(), testing::internal::GetCapturedStdout()};
  EXPECT_EQ(machine.openDescriptors(), 0);
  return {listing, callsOf(machine.takeTrace())};
}

Listing expectedListing(const std::vector<ListedNode>& nodes) {
  Listing listing;
  for (const ListedNode& node : nodes) {
    if (node.held) continue;
    listing.log.push_back("INFO " + nodePath(node.number) + ": " + node.name);
    for (const std::string& finding : node.findings) {
      if (!finding.empty()) listing.log.push_back(finding);
    }
    listing.printed += kListingsStart + node.types;
  }
  return listing;
}

// A question that fails has its error where its answer would have been, and no more follows from it.
void failQuestion(const Calls& calls, std::size_t index, ListedNode& node) {
  const auto asks = [&calls](std::size_t call, const char* what) {
    return calls[call].line.find(what) != std::string::npos;
  };
  std::string& types = node.findings[3];
  if (asks(index, "EV_REL")) node.findings[0] = "ERROR evdev ioctl failed in testRel";
  if (asks(index, "EV_ABS")) node.findings[1] = "ERROR evdev ioctl failed in testAbs";
  if (asks(index, "EVIOCGBIT(0,")) types = "ERROR evdev ioctl";
  if (!types.empty()) node.types = "";
  if (!asks(index, "EV_KEY")) return;
  const bool asKeyboard = asks(index + 1, "EVIOCGBIT(0,");
  const bool asMouse = asks(index - 1, "EV_REL");
  node.findings[asKeyboard ? 2 : asMouse ? 0 : 1] = "ERROR evdev ioctl failed in testKey";
}

void failInListing(const Calls& calls, std::size_t index, int error, std::vector<ListedNode>& nodes) {
  if (calls[index].call != Call::kOpen && calls[index].call != Call::kIoctl) return;
  const int number = nodeOf(calls, index);
  if (calls[index].call == Call::kOpen) {
    // A node without a device ends the listing.
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(),
                               [&](const ListedNode& node) {
                                 return error == ENODEV ? node.number >= number : node.number == number;
                               }),
                nodes.end());
    return;
  }
  const auto node =
      std::find_if(nodes.begin(), nodes.end(), [&](const ListedNode& each) { return each.number == number; });
  if (calls[index].line.find("EVIOCGRAB, 1") != std::string::npos) {
    node->held = error != EINVAL;
  } else if (calls[index].line.find("EVIOCGNAME") != std::string::npos) {
    // The name of the node before, if any was asked for its name.
    const auto before =
        std::find_if(std::make_reverse_iterator(node), nodes.rend(), [](const ListedNode& each) { return !each.held; });
    node->name = before != nodes.rend() ? before->name : "";
  } else {
    failQuestion(calls, index, *node);
  }
}

TEST_F(TortureTest, EveryCallOfTheListingFailsOnce) {
  const auto [unharmed, calls] = list(std::nullopt);
  EXPECT_EQ(unharmed.log, expectedListing(kListedNodes).log);
  EXPECT_EQ(unharmed.printed, expectedListing(kListedNodes).printed);
  for (std::size_t index = 0; index < calls.size(); ++index) {
    for (const Fault& fault : eachError(calls[index])) {
      SCOPED_TRACE(describe("listing", calls[index], fault));
      std::vector<ListedNode> nodes = kListedNodes;
      failInListing(calls, index, fault.error, nodes);
      const auto [harmed, harmedCalls] = list(fault);
      EXPECT_EQ(harmed.log, expectedListing(nodes).log);
      EXPECT_EQ(harmed.printed, expectedListing(nodes).printed);
      expectEachIsClosedOnce(harmedCalls);
      count(fault);
      if (HasFailure()) return;
    }
  }
  EXPECT_EQ(tried, everyErrorOf({Call::kGetenv, Call::kOpen, Call::kIoctl, Call::kClose}));
}

}  // namespace
}  // namespace quarlo::test::torture
