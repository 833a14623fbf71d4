// What `doctor` finds and prints, as text and as JSON: nodes that say anything of themselves, any files of the kernel,
// of processes and of daemons, and any answer of lircd.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "sim/machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/printed.h"
#include "tests/fuzz/scratch.h"
#include "tests/fuzz/strange_node.h"
#include "tools/common/checkup/lirc_client.h"
#include "tools/common/checkup/remote.h"
#include "tools/common/output.h"
#include "tools/doctor/doctor.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;
using doctor::DoctorOptions;

// ---- Files --------------------------------------------------------------------------------------

constexpr char kRoot[] = "root";

void addProcess(const Scratch& scratch, InputBytes& input) {
  constexpr const char* kNames[] = {"lircd", "inputlircd", "lircd-uinput", "agetty"};
  constexpr const char* kTerminals[] = {"0", "1025", "1026", "x"};
  const std::string folder = kRoot + ("/proc/" + std::to_string(2 + input.takeBelow(8)));
  const std::string name = input.takeBool() ? input.pick(kNames) : input.takeText();
  const std::string terminal = input.pick(kTerminals);
  scratch.write(folder + "/stat",
                input.takeBool() ? "7 (" + name + ") S 1 1 1 " + terminal + " 1 0" : input.takeText());
  scratch.write(folder + "/cmdline", name + '\0' + input.takeText());
  const std::string file = input.takeBool() ? "/dev/input/event" + std::to_string(input.takeBelow(4)) : "socket:[1]";
  scratch.link(folder + "/fd/3", file);
}

void addReceiver(const Scratch& scratch, InputBytes& input) {
  const std::string folder = kRoot + ("/sys/class/rc/" + input.takeFileName());
  scratch.write(folder + "/protocols", input.takeText());
  scratch.write(folder + "/lirc" + input.takeFileName(), "");
  scratch.write(folder + "/input0/event" + input.takeFileName(), "");
}

void addFile(const Scratch& scratch, InputBytes& input) {
  constexpr const char* kFiles[] = {
      "/proc/bus/input/devices",     "/proc/1/environ",           "/proc/1/cgroup", "/.dockerenv",
      "/etc/lirc/lirc_options.conf", "/sys/class/tty/tty0/active"};
  const std::string file = input.pick(kFiles);
  scratch.write(kRoot + file, input.takeText());
}

// Somebody listens on a socket of any path.
void addListener(const Scratch& scratch, InputBytes& input) {
  scratch.write(std::string(kRoot) + "/proc/net/unix",
                "Num RefCount Protocol Flags Type St Inode Path\n0: 2 0 00010000 1 1 1 " + input.takeText() + "\n");
}

void addAnything(const Scratch& scratch, InputBytes& input) {
  switch (input.takeBelow(4)) {
    case 0: addProcess(scratch, input); break;
    case 1: addReceiver(scratch, input); break;
    case 2: addListener(scratch, input); break;
    default: addFile(scratch, input);
  }
}

// ---- The command --------------------------------------------------------------------------------

// A path at which there can be a node of the machine.
std::string takeNodePath(InputBytes& input) {
  return "/dev/input/" + (input.takeBool() ? "event" + std::to_string(input.takeBelow(13)) : input.takeFileName());
}

SourcePath takeSource(InputBytes& input, const std::string& path) {
  switch (input.takeBelow(3)) {
    case 0: return std::nullopt;
    case 1: return kLeaveOut;
    default: return path;
  }
}

DoctorOptions takeOptions(InputBytes& input) {
  DoctorOptions options;
  options.mouse = takeSource(input, takeNodePath(input));
  options.keyboard = takeSource(input, takeNodePath(input));
  options.lirc = takeSource(input, "/run/none/" + input.takeText());
  if (input.takeBool()) options.further = {takeNodePath(input)};
  options.json = input.takeBool();
  return options;
}

void addNodes(sim::Machine& machine, InputBytes& input) {
  constexpr int kMostNodes = 4;
  for (int i = input.takeBelow(kMostNodes); i > 0; --i) {
    obstruct(machine.addNode("/dev/input/event" + std::to_string(4 * i), takeDevice(input)), input);
  }
}

void setTimeouts(sim::Machine& machine, InputBytes& input) {
  for (const char* name : {"LIRC_REPEAT_TIMEOUT", "LIRC_RELEASE_TIMEOUT"}) {
    const std::string value = input.takeText();
    if (!value.empty()) machine.setEnvironment(name, value.c_str());
  }
}

void checkCommand(const Scratch& scratch, InputBytes& input) {
  sim::Machine machine;
  machine.setTracing(false);
  DoctorOptions options = takeOptions(input);
  options.root = scratch.path(kRoot);
  addNodes(machine, input);
  setTimeouts(machine, input);
  while (!input.isEmpty()) addAnything(scratch, input);
  int status = -1;
  const Printed printed = printedBy([&] { status = doctor::run(options); });
  require(status == kDone || status == kFailed, "a checkup ends with its result");
  requirePlainLines(printed.err);
  options.json ? requireJsonLines(printed.out) : requirePlainLines(printed.out);
}

// ---- What lircd answers -------------------------------------------------------------------------

// A daemon that says the same to everybody, and hangs up.
class Lircd {
 public:
  explicit Lircd(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {AF_UNIX, {}};
    require(path.size() < sizeof address.sun_path, "the path of a socket is short");
    path.copy(address.sun_path, path.size());
    require(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && listen(fd_, 1) == 0,
            "a socket can be made");
    std::thread([this] { serve(); }).detach();
  }

  void setAnswer(const std::string& answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = answer;
  }

 private:
  void serve() {
    for (int client = -1; (client = accept(fd_, nullptr, nullptr)) != -1; close(client)) {
      const std::lock_guard<std::mutex> lock(mutex_);
      send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
    }
  }

  int fd_;
  std::mutex mutex_;
  std::string answer_;
};

std::string takePacket(const std::string& command, InputBytes& input) {
  constexpr const char* kResults[] = {"SUCCESS", "SUCCESS", "SUCCESS", "ERROR"};
  const std::string result = input.pick(kResults);
  std::string packet = "BEGIN\n" + command + "\n" + result + "\nDATA\n1\n";
  for (int count = input.takeBelow(4); count > 0; --count) packet += "00 " + input.takeText() + "\n";
  return packet + "END\n";
}

// To LIST, and to LIST and the name of each remote; or anything else.
std::string takeAnswer(InputBytes& input) {
  if (input.takeBool()) return input.takeRest();
  const std::string name = input.takeText();
  const std::string names = "BEGIN\nLIST\nSUCCESS\nDATA\n1\n" + name + "\nEND\n";
  return names + takePacket("LIST " + name, input) + input.takeRest();
}

void checkAnswer(const Scratch& scratch, InputBytes& input) {
  static const std::string path = scratch.path("lircd");
  static Lircd& lircd = *new Lircd(path);  // its thread ends with the process
  lircd.setAnswer(takeAnswer(input));
  checkup::RemoteFacts facts;
  facts.sockets = {{path, 0, true, true}};
  facts.answer = checkup::askForRemotes(path, std::chrono::seconds(10));
  require(facts.answer->outcome != checkup::Outcome::kTimedOut, "a daemon that hangs up is not waited for");
  for (const checkup::Finding& finding : checkup::checkRemote(facts)) {
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;
    requireJsonLines(toJson(finding).dump(-1, ' ', /*ensure_ascii=*/true, replace) + "\n");
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  static const Scratch scratch;
  quarlo::tools::silenceReader();
  InputBytes input(data, size);
  if (input.takeBelow(4) == 0) {
    checkAnswer(scratch, input);
  } else {
    checkCommand(scratch, input);
    std::filesystem::remove_all(scratch.path(kRoot));
  }
  return 0;
}
