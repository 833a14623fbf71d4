#include <libevdev/libevdev.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "bench/contestant.h"
#include "bench/opening.h"
#include "bench/peer.h"

namespace quarlo::bench {
namespace {

class Device {
 public:
  explicit Device(const std::string& path) : fd_(openNode(path)) {
    if (libevdev_new_from_fd(fd_, &device_) != 0) fail(path + ": libevdev does not take it");
  }
  ~Device() {
    libevdev_free(device_);
    close(fd_);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  int fd() const { return fd_; }

  bool next(input_event& record) {
    return libevdev_next_event(device_, LIBEVDEV_READ_FLAG_NORMAL, &record) == LIBEVDEV_READ_STATUS_SUCCESS;
  }

 private:
  int fd_;
  libevdev* device_ = nullptr;
};

// Remote: LircClient or LircLines.
template <typename Remote>
class Libevdev final : public Contestant {
 public:
  explicit Libevdev(const Paths& paths) : mouse_(paths.mouse), keyboard_(paths.keyboard), remote_(paths.remote) {}

  bool readInput(InputEvent& event, int timeoutMs) override {
    if (!isDraining_ && poll(sources_, 3, timeoutMs) <= 0) return false;
    isDraining_ = readKeyboard(event) || readMouse(event) || readRemote(event);
    return isDraining_;
  }

 private:
  // A source that was found empty is not asked again before the next wait.
  bool readKeyboard(InputEvent& event) {
    input_event record;
    while (sources_[0].revents != 0) {
      if (!keyboard_.next(record)) {
        sources_[0].revents = 0;
      } else if (record.type == EV_KEY) {
        xkb_.translate(record.code, record.value != 0, event);
        return true;
      }
    }
    return false;
  }

  bool readMouse(InputEvent& event) {
    if (sources_[1].revents == 0) return false;
    sources_[1].revents = 0;
    bool moved = false;
    input_event record;
    while (mouse_.next(record)) {
      if (record.type != EV_REL) continue;
      pointer_.move(record.code == REL_X ? record.value : 0, record.code == REL_Y ? record.value : 0);
      moved = true;
    }
    if (moved) pointer_.fill(event);
    return moved;
  }

  bool readRemote(InputEvent& event) {
    if (sources_[2].revents == 0) return false;
    if (remote_.read(event)) return true;
    sources_[2].revents = 0;
    return false;
  }

  Device mouse_;
  Device keyboard_;
  XkbKeyboard xkb_;
  Remote remote_;
  Pointer pointer_;
  pollfd sources_[3] = {{keyboard_.fd(), POLLIN, 0}, {mouse_.fd(), POLLIN, 0}, {remote_.fd(), POLLIN, 0}};
  bool isDraining_ = false;
};

}  // namespace

std::unique_ptr<Contestant> openLibevdev(const Paths& paths) { return std::make_unique<Libevdev<LircClient>>(paths); }

std::unique_ptr<Contestant> openLines(const Paths& paths) { return std::make_unique<Libevdev<LircLines>>(paths); }

}  // namespace quarlo::bench
