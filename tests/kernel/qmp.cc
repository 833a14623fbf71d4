#include "tests/kernel/qmp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

namespace quarlo::test {
namespace {

// The device of the virtio port of this name. Without udev, there is no link of that name to it.
std::string portNamed(const std::string& wanted) {
  for (const auto& entry : std::filesystem::directory_iterator("/sys/class/virtio-ports")) {
    std::string name;
    std::ifstream(entry.path() / "name") >> name;
    if (name == wanted) return "/dev/" + entry.path().filename().string();
  }
  ADD_FAILURE() << "the guest has no port " << wanted;
  return "";
}

std::string event(const std::string& type, const std::string& data) {
  return R"({"type":")" + type + R"(","data":{)" + data + "}}";
}

std::string downText(bool down) { return std::string(R"("down":)") + (down ? "true" : "false"); }

std::string keyEvent(const std::string& name, bool down) {
  return event("key", downText(down) + R"(,"key":{"type":"qcode","data":")" + name + R"("})");
}

}  // namespace

Qmp::Qmp() : fd_(open(portNamed("qmp").c_str(), O_RDWR | O_CLOEXEC)) {
  EXPECT_GE(fd_, 0);
  ask("qmp_capabilities", "{}");  // the greeting: an error from the second one on
}

Qmp::~Qmp() { close(fd_); }

void Qmp::execute(const std::string& command, const std::string& arguments) {
  const std::string answer = ask(command, arguments);
  EXPECT_EQ(answer.find("\"error\""), std::string::npos) << command << arguments << answer;
}

// Between answers come events and, at first, a greeting.
std::string Qmp::ask(const std::string& command, const std::string& arguments) const {
  const std::string request = R"({"execute":")" + command + R"(","arguments":)" + arguments + "}\n";
  EXPECT_EQ(write(fd_, request.data(), request.size()), static_cast<ssize_t>(request.size()));
  for (;;) {
    std::string line = readLine();
    if (line.rfind(R"({"return")", 0) == 0 || line.rfind(R"({"error")", 0) == 0) return line;
    if (line.empty()) return "\"error\": the port has closed";
  }
}

void Qmp::plug(const std::string& driver, const std::string& id) {
  execute("device_add", R"({"driver":")" + driver + R"(","id":")" + id + R"("})");
}

void Qmp::unplug(const std::string& id) { execute("device_del", R"({"id":")" + id + R"("})"); }

void Qmp::tapKeys(const std::vector<std::string>& names) {
  std::string presses;
  std::string releases;
  for (const std::string& name : names) {
    presses += keyEvent(name, true) + ",";
    releases = keyEvent(name, false) + (releases.empty() ? "" : ",") + releases;
  }
  sendEvents(presses + releases);
}

void Qmp::setKey(const std::string& name, bool down) { sendEvents(keyEvent(name, down)); }

void Qmp::setButton(const std::string& name, bool down) {
  sendEvents(event("btn", downText(down) + R"(,"button":")" + name + R"(")"));
}

void Qmp::move(int dx, int dy) {
  sendEvents(event("rel", R"("axis":"x","value":)" + std::to_string(dx)) + "," +
             event("rel", R"("axis":"y","value":)" + std::to_string(dy)));
}

void Qmp::sendEvents(const std::string& events) { execute("input-send-event", R"({"events":[)" + events + "]}"); }

std::string Qmp::readLine() const {
  std::string line;
  char byte;
  while (read(fd_, &byte, 1) == 1 && byte != '\n') line += byte;
  return line;
}

// ---- USB devices --------------------------------------------------------------------------------

UsbDevice::UsbDevice(Qmp& qmp, std::string driver) : qmp_(qmp), driver_(std::move(driver)) {
  qmp_.plug(driver_, driver_);
  waitForNode(true);
}

UsbDevice::~UsbDevice() {
  qmp_.unplug(driver_);
  waitForNode(false);
}

void UsbDevice::waitForNode(bool there) {
  constexpr int kTries = 1000;
  for (int i = 0; i < kTries && std::filesystem::exists(kNode) != there; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(std::filesystem::exists(kNode), there);
}

}  // namespace quarlo::test
