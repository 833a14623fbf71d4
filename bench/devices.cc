#include "bench/devices.h"

#include <fcntl.h>
#include <linux/uinput.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>

#include "bench/fail.h"

namespace quarlo::bench {
namespace {

void writeAll(int fd, const void* data, std::size_t size, const std::string& what) {
  if (checked(static_cast<int>(write(fd, data, size)), what) != static_cast<int>(size)) fail(what + ": it is full");
}

// Held open for both directions, it neither blocks nor comes to an end.
class Fifo final : public Node {
 public:
  explicit Fifo(std::string path) : path_(std::move(path)) {
    checked(mkfifo(path_.c_str(), 0600), path_);
    fd_ = checked(open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC), path_);
  }
  ~Fifo() override { close(fd_); }

  std::string path() const override { return path_; }
  void send(const std::vector<input_event>& records) override {
    writeAll(fd_, records.data(), records.size() * sizeof records[0], path_);
  }

 private:
  std::string path_;
  int fd_;
};

// libinput asks udev's database what a node is. Where no udev keeps one, it gets an entry.
void describeToUdev(const std::string& path, const char* property) {
  if (std::filesystem::exists("/run/udev/control")) return;
  struct stat status = {};
  checked(stat(path.c_str(), &status), path);
  std::filesystem::create_directories("/run/udev/data");
  std::ofstream("/run/udev/data/c" + std::to_string(major(status.st_rdev)) + ":" +
                std::to_string(minor(status.st_rdev)))
      << "I:1\nE:ID_INPUT=1\nE:" << property << "=1\nV:1\n";
}

class UinputNode final : public Node {
 public:
  UinputNode(const char* name, const char* udevProperty, std::initializer_list<int> relativeAxes, int firstKey,
             int lastKey)
      : fd_(checked(open("/dev/uinput", O_WRONLY | O_CLOEXEC), "/dev/uinput")) {
    declare(UI_SET_EVBIT, EV_KEY);
    for (int code = firstKey; code <= lastKey; ++code) declare(UI_SET_KEYBIT, code);
    declare(UI_SET_EVBIT, EV_MSC);
    declare(UI_SET_MSCBIT, MSC_SCAN);
    if (relativeAxes.size() != 0) declare(UI_SET_EVBIT, EV_REL);
    for (const int axis : relativeAxes) declare(UI_SET_RELBIT, axis);
    uinput_setup setup = {};
    setup.id.bustype = BUS_USB;
    std::string(name).copy(setup.name, sizeof setup.name - 1);
    checked(ioctl(fd_, UI_DEV_SETUP, &setup), "UI_DEV_SETUP");
    checked(ioctl(fd_, UI_DEV_CREATE), "UI_DEV_CREATE");
    path_ = findNode();
    describeToUdev(path_, udevProperty);
  }
  ~UinputNode() override { close(fd_); }

  std::string path() const override { return path_; }
  void send(const std::vector<input_event>& records) override {
    writeAll(fd_, records.data(), records.size() * sizeof records[0], path_);
  }

 private:
  void declare(unsigned long request, int code) const { checked(ioctl(fd_, request, code), "/dev/uinput"); }

  std::string findNode() const {
    char name[64] = {};
    checked(ioctl(fd_, UI_GET_SYSNAME(sizeof name - 1), name), "UI_GET_SYSNAME");
    const std::string folder = std::string("/sys/devices/virtual/input/") + name;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      const std::string file = entry.path().filename();
      if (file.rfind("event", 0) == 0) return "/dev/input/" + file;
    }
    fail(folder + ": no event node in it: is the module evdev loaded?");
  }

  int fd_;
  std::string path_;
};

std::string makeFolder() {
  std::string folder = std::filesystem::temp_directory_path() / "quarlo-bench-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) failWithErrno(folder);
  return folder;
}

int listenAt(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  checked(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), path);
  checked(listen(fd, 1), path);
  return fd;
}

}  // namespace

Devices::Devices(Kind kind) : folder_(makeFolder()) {
  if (kind == Kind::kFifos) {
    mouse_ = std::make_unique<Fifo>(folder_ + "/mouse");
    keyboard_ = std::make_unique<Fifo>(folder_ + "/keyboard");
  } else {
    mouse_ = std::make_unique<UinputNode>("Bench Mouse", "ID_INPUT_MOUSE", std::initializer_list<int>{REL_X, REL_Y},
                                          BTN_LEFT, BTN_MIDDLE);
    keyboard_ = std::make_unique<UinputNode>("Bench Keyboard", "ID_INPUT_KEYBOARD", std::initializer_list<int>{},
                                             KEY_ESC, KEY_MICMUTE);
  }
  paths_ = {mouse_->path(), keyboard_->path(), folder_ + "/lircd"};
  listener_ = listenAt(paths_.remote);
}

Devices::~Devices() {
  close(client_);
  close(listener_);
  std::filesystem::remove_all(folder_);
}

void Devices::accept() {
  constexpr int kMostMs = 60000;
  pollfd waiting = {listener_, POLLIN, 0};
  if (poll(&waiting, 1, kMostMs) != 1) fail("Nobody has connected to " + paths_.remote);
  close(client_);
  client_ = checked(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), paths_.remote);
}

void Devices::send(const Frame& frame) {
  switch (frame.source) {
    case Frame::Source::kNone: break;
    case Frame::Source::kKeyboard: keyboard_->send(frame.records); break;
    case Frame::Source::kMouse: mouse_->send(frame.records); break;
    case Frame::Source::kRemote: writeAll(client_, frame.line.data(), frame.line.size(), paths_.remote); break;
  }
}

}  // namespace quarlo::bench
