#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <memory>

#include "bench/contestant.h"
#include "bench/opening.h"
#include "input/linux_input_reader_limits.h"

namespace quarlo::bench {
namespace {

using namespace components::input;

// The floor: makes the calls that the component makes, with the same arguments and in the same order, looks only at
// what decides on the next call, and fills no event.
class Bare final : public Contestant {
 public:
  explicit Bare(const Paths& paths)
      : mouse_(openNode(paths.mouse)), keyboard_(openNode(paths.keyboard)), remote_(connectTo(paths.remote)) {
    FD_ZERO(&readSet_);
    for (const int fd : {mouse_, keyboard_, remote_}) {
      FD_SET(fd, &readSet_);
      if (fd > maxFd_) maxFd_ = fd;
    }
  }

  ~Bare() override {
    close(mouse_);
    close(keyboard_);
    close(remote_);
  }

  bool readInput(InputEvent& /*event*/, int timeoutMs) override {
    if (isKeyHeldBack_) {
      isKeyHeldBack_ = false;
      return true;
    }
    wait(timeoutMs);
    return drain(keyboard_) || drain(mouse_) || readRemote();
  }

 private:
  void wait(int timeoutMs) {
    if (isRemoteKeyHeld_) {
      timeval now;
      gettimeofday(&now, nullptr);
      const long elapsed = (now.tv_sec - keyTime_.tv_sec) * 1000 + (now.tv_usec - keyTime_.tv_usec) / 1000;
      const long remaining = elapsed < kDefaultReleaseTimeoutMs ? kDefaultReleaseTimeoutMs - elapsed : 0;
      if (remaining < timeoutMs) timeoutMs = static_cast<int>(remaining);
    }
    timeval interval = {timeoutMs / 1000, timeoutMs % 1000 * 1000L};
    select(maxFd_ + 1, &readSet_, nullptr, nullptr, &interval);
  }

  bool drain(int fd) {
    bool moved = false;
    input_event record;
    for (int budget = kRecordsPerDrain; budget > 0; --budget) {
      if (read(fd, &record, sizeof record) == -1) break;
      if (record.type == EV_KEY) {
        isKeyHeldBack_ = moved;
        return true;
      }
      if (record.type == EV_REL) moved = true;
    }
    return moved;
  }

  bool readRemote() {
    char text[kLircReadSize];
    timeval now;
    const ssize_t length = read(remote_, text, sizeof text);
    gettimeofday(&now, nullptr);
    if (length < 1) return false;
    gettimeofday(&keyTime_, nullptr);
    isRemoteKeyHeld_ = true;
    return true;
  }

  int mouse_;
  int keyboard_;
  int remote_;
  int maxFd_ = -1;
  fd_set readSet_;
  bool isKeyHeldBack_ = false;
  bool isRemoteKeyHeld_ = false;
  timeval keyTime_ = {};
};

}  // namespace

std::unique_ptr<Contestant> openBare(const Paths& paths) { return std::make_unique<Bare>(paths); }

}  // namespace quarlo::bench
