// What `list` prints, as text and as JSON: nodes that say anything of themselves, and any files of sysfs beside them.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "sim/machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/printed.h"
#include "tests/fuzz/scratch.h"
#include "tests/fuzz/strange_node.h"
#include "tools/common/output.h"
#include "tools/list/list.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;

constexpr int kMostNodes = 4;

// A receiver's node, as the kernel's sysfs has it, but for its texts.
void addToSysfs(const Scratch& scratch, const std::string& node, InputBytes& input) {
  const std::string receiver = "sys/devices/" + input.takeFileName();
  struct stat status = {};
  const int fd = open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  fstat(fd, &status);
  close(fd);
  const std::string number = std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
  scratch.write(receiver + "/uevent", input.takeText());
  scratch.write(receiver + "/protocols", input.takeText());
  scratch.write(receiver + "/lirc" + input.takeFileName(), "");
  scratch.link(receiver + "/subsystem", scratch.path("sys/class/rc"));
  scratch.link(receiver + "/input0/device", "..");
  scratch.link(receiver + "/input0/event0/device", "..");
  scratch.link("sys/dev/char/" + number, scratch.path(receiver + "/input0/event0"));
  std::filesystem::create_directories(scratch.path("sys/class/rc"));
}

void addNode(sim::Machine& machine, int number, const Scratch& scratch, InputBytes& input) {
  const std::string path = "/dev/input/event" + std::to_string(number);
  sim::Node& node = machine.addNode(path, takeDevice(input));
  if (input.takeBool()) addToSysfs(scratch, path, input);
  obstruct(node, input);
}

void check(const Scratch& scratch, InputBytes& input) {
  sim::Machine machine;
  machine.setTracing(false);
  const SystemFolders folders = {"/dev", scratch.path("sys")};
  const bool json = input.takeBool();
  const int count = 1 + input.takeBelow(kMostNodes);
  for (int i = 0; i < count; ++i) addNode(machine, i, scratch, input);
  const Printed printed = printedBy([&] { list::list({json, 0}, folders); });
  require(printed.err.empty(), "nothing goes wrong with the listing");
  json ? requireJsonLines(printed.out) : requirePlainLines(printed.out);
  require(!json || std::count(printed.out.begin(), printed.out.end(), '\n') == count, "each node has its object");
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  static const Scratch scratch;
  quarlo::tools::silenceReader();
  InputBytes input(data, size);
  check(scratch, input);
  std::filesystem::remove_all(scratch.path("sys"));
  return 0;
}
