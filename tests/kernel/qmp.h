// The line from a guest to the QEMU that emulates it (script/guest): to plug devices in, and to move and press them, as
// a host does. The protocol is QEMU's machine protocol, QMP.
#pragma once

#include <string>
#include <vector>

namespace quarlo::test {

class Qmp {
 public:
  // REQUIRES: the guest has the port "qmp".
  Qmp();
  ~Qmp();
  Qmp(const Qmp&) = delete;
  Qmp& operator=(const Qmp&) = delete;

  // Runs a command with its arguments (an object in JSON). An error is a test failure.
  void execute(const std::string& command, const std::string& arguments = "{}");

  // The USB devices "usb-kbd" and "usb-mouse".
  void plug(const std::string& driver, const std::string& id);
  void unplug(const std::string& id);

  // Presses keys by their names there, such as "shift" and "a", one after the other, and releases them, the last one
  // first. QEMU gets all that at once: guest time passes while it answers, and a key held meanwhile could repeat.
  void tapKeys(const std::vector<std::string>& names);

  // One such key. It repeats while it is down.
  void setKey(const std::string& name, bool down);

  // A button such as "left"; a motion.
  void setButton(const std::string& name, bool down);
  void move(int dx, int dy);

 private:
  std::string ask(const std::string& command, const std::string& arguments) const;
  std::string readLine() const;
  void sendEvents(const std::string& events);

  int fd_;
};

// A USB device, "usb-kbd" or "usb-mouse", plugged in as the first input device, until its end.
class UsbDevice {
 public:
  static constexpr char kNode[] = "/dev/input/event0";

  // Returns when its node is there. REQUIRES: there is no other input device.
  UsbDevice(Qmp& qmp, std::string driver);

  // Returns when its node has gone.
  ~UsbDevice();
  UsbDevice(const UsbDevice&) = delete;
  UsbDevice& operator=(const UsbDevice&) = delete;

 private:
  static void waitForNode(bool there);

  Qmp& qmp_;
  std::string driver_;
};

}  // namespace quarlo::test
