#include <fcntl.h>
#include <libinput.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <memory>
#include <string>

#include "bench/contestant.h"
#include "bench/fail.h"
#include "bench/peer.h"

namespace quarlo::bench {
namespace {

int openForLibinput(const char* path, int flags, void* /*user*/) {
  const int fd = open(path, flags);
  return fd == -1 ? -errno : fd;
}

void closeForLibinput(int fd, void* /*user*/) { close(fd); }

constexpr libinput_interface kInterface = {openForLibinput, closeForLibinput};

libinput* openDevices(std::initializer_list<std::string> paths) {
  libinput* context = libinput_path_create_context(&kInterface, nullptr);
  for (const std::string& path : paths) {
    if (libinput_path_add_device(context, path.c_str()) == nullptr) fail(path + ": libinput does not take it");
  }
  return context;
}

class Libinput final : public Contestant {
 public:
  explicit Libinput(const Paths& paths)
      : context_(openDevices({paths.mouse, paths.keyboard})),
        remote_(paths.remote),
        sources_{{libinput_get_fd(context_), POLLIN, 0}, {remote_.fd(), POLLIN, 0}} {}

  ~Libinput() override { libinput_unref(context_); }

  bool readInput(InputEvent& event, int timeoutMs) override {
    if (!isDraining_) {
      if (poll(sources_, 2, timeoutMs) <= 0) return false;
      if (sources_[0].revents != 0) libinput_dispatch(context_);
    }
    isDraining_ = readDevices(event) || readRemote(event);
    return isDraining_;
  }

 private:
  bool readDevices(InputEvent& event) {
    bool moved = false;
    for (;;) {
      const libinput_event_type type = libinput_next_event_type(context_);
      // A key must not overtake the motion before it.
      if (type == LIBINPUT_EVENT_NONE || (type == LIBINPUT_EVENT_KEYBOARD_KEY && moved)) break;
      libinput_event* next = libinput_get_event(context_);
      if (type == LIBINPUT_EVENT_KEYBOARD_KEY) {
        libinput_event_keyboard* key = libinput_event_get_keyboard_event(next);
        xkb_.translate(static_cast<int>(libinput_event_keyboard_get_key(key)),
                       libinput_event_keyboard_get_key_state(key) == LIBINPUT_KEY_STATE_PRESSED, event);
        libinput_event_destroy(next);
        return true;
      }
      if (type == LIBINPUT_EVENT_POINTER_MOTION) {
        libinput_event_pointer* motion = libinput_event_get_pointer_event(next);
        pointer_.move(libinput_event_pointer_get_dx_unaccelerated(motion),
                      libinput_event_pointer_get_dy_unaccelerated(motion));
        moved = true;
      }
      libinput_event_destroy(next);
    }
    if (moved) pointer_.fill(event);
    return moved;
  }

  bool readRemote(InputEvent& event) {
    if (sources_[1].revents == 0) return false;
    if (remote_.read(event)) return true;
    sources_[1].revents = 0;
    return false;
  }

  libinput* context_;
  XkbKeyboard xkb_;
  LircClient remote_;
  Pointer pointer_;
  pollfd sources_[2];
  bool isDraining_ = false;
};

}  // namespace

std::unique_ptr<Contestant> openLibinput(const Paths& paths) { return std::make_unique<Libinput>(paths); }

}  // namespace quarlo::bench
