#include "tools/common/node_facts.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "tools/common/evdev_node.h"

namespace quarlo::tools {
namespace {

namespace fs = std::filesystem;

// ---- What the node says -------------------------------------------------------------------------

constexpr std::size_t kMostText = 255;

// REQUIRES: the size of `request` is kMostText
std::string textOf(int fd, unsigned long request) {
  char text[kMostText + 1] = {};
  return ioctl(fd, request, text) == -1 ? "" : text;
}

NodeIds idsOf(int fd) {
  input_id id = {};
  if (ioctl(fd, EVIOCGID, &id) == -1) return {};
  return {id.bustype, id.vendor, id.product, id.version};
}

constexpr int kMostCodes = KEY_CNT;  // those of EV_KEY

using Bits = std::uint8_t[kMostCodes / 8];

// Which bits the kernel sets for a request whose size is that of Bits; none if it fails.
std::set<int> bitsOf(int fd, unsigned long request) {
  Bits bits = {};
  if (ioctl(fd, request, bits) == -1) return {};
  std::set<int> found;
  for (int bit = 0; bit < kMostCodes; ++bit) {
    if ((bits[bit / 8] >> (bit % 8) & 1) != 0) found.insert(bit);
  }
  return found;
}

std::map<int, std::set<int>> codesOf(int fd) {
  std::map<int, std::set<int>> codes;
  for (const int type : bitsOf(fd, EVIOCGBIT(0, sizeof(Bits)))) {
    if (type != EV_SYN) codes[type] = bitsOf(fd, EVIOCGBIT(type, sizeof(Bits)));
  }
  return codes;
}

std::optional<NodeRepeat> repeatOf(int fd) {
  unsigned answer[2] = {};
  if (ioctl(fd, EVIOCGREP, answer) == -1) return std::nullopt;
  return NodeRepeat{static_cast<int>(answer[REP_DELAY]), static_cast<int>(answer[REP_PERIOD])};
}

// ---- What sysfs says ----------------------------------------------------------------------------

// What a file of sysfs holds: a page at most. Empty if it cannot be read.
std::string contentsOf(const std::string& path) {
  constexpr std::size_t kMost = 4096;
  char buffer[kMost];
  std::size_t size = 0;
  const int fd = openForReading(path);
  if (fd == -1) return "";
  while (size < kMost) {
    const ssize_t count = read(fd, buffer + size, kMost - size);
    if (count <= 0) break;
    size += static_cast<std::size_t>(count);
  }
  close(fd);
  return {buffer, size};
}

// Where a path leads to, without links; empty if nowhere.
std::string targetOf(const std::string& path) {
  std::error_code error;
  return fs::canonical(path, error).string();
}

std::string lastPartOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// The directory of the node's own device, by the node's number, so that a path of any name will do.
std::string folderOf(int fd, const std::string& sysfs) {
  struct stat status;
  if (fstat(fd, &status) == -1) return "";
  return targetOf(sysfs + "/dev/char/" + std::to_string(major(status.st_rdev)) + ":" +
                  std::to_string(minor(status.st_rdev)));
}

// A node belongs to an input device, and that to what it is a part of.
std::string parentOf(int fd, const std::string& sysfs) {
  const std::string folder = folderOf(fd, sysfs);
  return folder.empty() ? "" : targetOf(folder + "/device/device");
}

// The value of a line "KEY=value".
std::string valueOf(const std::string& lines, const std::string& key) {
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    if (line.compare(0, key.size() + 1, key + "=") == 0) return line.substr(key.size() + 1);
  }
  return "";
}

// "rc-5 [nec] [lirc]": what is switched on is in brackets.
void readProtocols(const std::string& text, RcFacts& rc) {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (word.size() > 2 && word.front() == '[' && word.back() == ']') {
      word = word.substr(1, word.size() - 2);
      rc.active.push_back(word);
    }
    rc.protocols.push_back(word);
  }
}

bool isLircName(const std::string& name) {
  const std::string start = "lirc";
  return name.size() > start.size() && name.compare(0, start.size(), start) == 0 &&
         name.find_first_not_of("0123456789", start.size()) == std::string::npos;
}

// The receiver's device for raw pulses: "lirc0".
std::string lircOf(const std::string& receiver) {
  constexpr int kMostEntries = 1000;
  std::error_code error;
  int entries = 0;
  for (fs::directory_iterator entry(receiver, error), end; entry != end && entries < kMostEntries;
       entry.increment(error), ++entries) {
    std::string name = entry->path().filename().string();
    if (isLircName(name)) return name;
  }
  return "";
}

std::optional<RcFacts> rcOf(const std::string& parent, const SystemFolders& folders) {
  if (parent.empty() || lastPartOf(targetOf(parent + "/subsystem")) != "rc") return std::nullopt;
  RcFacts rc;
  rc.device = lastPartOf(parent);
  const std::string event = contentsOf(parent + "/uevent");
  rc.driver = valueOf(event, "DRV_NAME");
  rc.keyMap = valueOf(event, "NAME");
  readProtocols(contentsOf(parent + "/protocols"), rc);
  const std::string lirc = lircOf(parent);
  if (!lirc.empty()) rc.lirc = folders.dev + "/" + lirc;
  return rc;
}

}  // namespace

bool NodeFacts::has(int type, int code) const { return hasAny(type, code, code); }

bool NodeFacts::hasAll(int type, int first, int last) const {
  for (int code = first; code <= last; ++code) {
    if (!has(type, code)) return false;
  }
  return true;
}

bool NodeFacts::hasAny(int type, int first, int last) const {
  const auto found = codes.find(type);
  if (found == codes.end()) return false;
  const auto code = found->second.lower_bound(first);
  return code != found->second.end() && *code <= last;
}

NodeFacts readNodeFacts(int fd, const SystemFolders& folders) {
  NodeFacts facts;
  facts.name = textOf(fd, EVIOCGNAME(kMostText));
  facts.ids = idsOf(fd);
  facts.phys = textOf(fd, EVIOCGPHYS(kMostText));
  facts.uniq = textOf(fd, EVIOCGUNIQ(kMostText));
  facts.properties = bitsOf(fd, EVIOCGPROP(sizeof(Bits)));
  facts.codes = codesOf(fd);
  facts.repeat = repeatOf(fd);
  facts.parent = parentOf(fd, folders.sysfs);
  facts.rc = rcOf(facts.parent, folders);
  return facts;
}

}  // namespace quarlo::tools
