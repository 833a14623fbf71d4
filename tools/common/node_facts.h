// What an evdev node says of itself, and what sysfs says beside it. All texts are as devices and drivers have them:
// escape them before they reach a terminal.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quarlo::tools {

// Where the system's files are: for tests, in a directory of their own.
struct SystemFolders {
  std::string dev = "/dev";
  std::string sysfs = "/sys";
};

struct NodeIds {
  std::uint16_t bus = 0;  // BUS_USB, BUS_CEC, ...
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t version = 0;
};

// How the kernel repeats a held key of a node. With 0 for either, it does not.
struct NodeRepeat {
  int delayMs = 0;   // until the first repeat
  int periodMs = 0;  // from repeat to repeat

  bool isOn() const { return delayMs > 0 && periodMs > 0; }
};

// The kernel's receiver of infrared light or of HDMI-CEC that a node belongs to.
struct RcFacts {
  std::string device;                  // its name in /sys/class/rc: "rc0"
  std::string driver;                  // "rc-loopback"; empty if it does not say
  std::string keyMap;                  // "rc-empty"; empty if it does not say
  std::vector<std::string> protocols;  // what it can decode, in the kernel's order, "lirc" among them if it has that
  std::vector<std::string> active;     // those of them that are switched on
  std::string lirc;                    // the path of its raw pulses: "/dev/lirc0"; empty if it has none
};

struct NodeFacts {
  std::string name;  // empty if it could not be asked, as all that follows
  NodeIds ids;
  std::string phys;                    // how it is connected
  std::string uniq;                    // its serial number
  std::set<int> properties;            // INPUT_PROP_*
  std::map<int, std::set<int>> codes;  // what it can send, by event type; a type without codes is there, too
  std::optional<NodeRepeat> repeat;    // none if it cannot be set
  std::string parent;                  // in sysfs, the directory of the device that it is a part of; empty: not known
  std::optional<RcFacts> rc;           // none if it belongs to none, or sysfs does not tell

  bool has(int type, int code) const;
  // REQUIRES: first <= last
  bool hasAll(int type, int first, int last) const;
  bool hasAny(int type, int first, int last) const;
  bool hasProperty(int property) const { return properties.count(property) != 0; }
};

// REQUIRES: `fd` is an open evdev node. What it does not answer is left empty.
NodeFacts readNodeFacts(int fd, const SystemFolders& folders = {});

}  // namespace quarlo::tools
