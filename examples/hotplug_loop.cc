// The loop of an application whose devices come and go. It prints a line for all that happens, until SIGINT or SIGTERM:
//
//   sources: mouse yes, keyboard yes, remote no
//   pointer 10,20
//   button down 1
//   key down 65 char 97
//   key up 65
//
// A reader opens its sources once. So this program makes a new reader when /dev/input has changed, when a source has
// gone, and when a LIRC daemon has come, and carries over what must not change for the application. What is typed while
// the new reader opens its sources, for some milliseconds, is lost.
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>

#include "input/input_loop.h"
#include "input/linux_input_reader.h"

using quarlo::components::input::InputLoop;
using quarlo::components::input::LinuxInputReader;
using Event = InputLoop::InputEvent;
using KeyData = Event::KeyData;
using MouseData = Event::MouseData;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kNodes[] = "/dev/input";
constexpr char kLircSocket[] = "/var/run/lirc/lircd";
constexpr std::uint32_t kMaxX = 1919;
constexpr std::uint32_t kMaxY = 1079;

constexpr std::chrono::milliseconds kQuiet{100};  // a device that comes is several changes: nodes, then permissions
constexpr std::chrono::seconds kLookAgain{1};     // for changes that nothing announces

constexpr Clock::time_point kAtOnce = Clock::time_point::min();
constexpr Clock::time_point kNever = Clock::time_point::max();

volatile std::sig_atomic_t stopRequested = 0;

void requestStop(int /*signal*/) { stopRequested = 1; }

// ---- What the application does with an event ----------------------------------------------------

void handleKey(const KeyData& data) {
  if (data.action == KeyData::kUp) {
    std::printf("key up %d\n", data.key);
  } else {
    std::printf("key down %d char %d\n", data.key, static_cast<unsigned char>(data.ch));
  }
}

void handleMouse(const MouseData& data) {
  if (data.action == MouseData::kMove) {
    std::printf("pointer %d,%d\n", data.x, data.y);
  } else {
    std::printf("button %s %d\n", data.action == MouseData::kButtonUp ? "up" : "down", data.button);
  }
}

// ---- The LIRC daemon ----------------------------------------------------------------------------

// The socket's file can exist without a daemon; only a connection tells.
bool daemonListens() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  static_assert(sizeof kLircSocket <= sizeof address.sun_path);
  std::memcpy(address.sun_path, kLircSocket, sizeof kLircSocket);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd == -1) return false;
  const bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return connected;
}

// ---- The loop -----------------------------------------------------------------------------------

struct Sources {
  LinuxInputReader reader;
  InputLoop loop{reader};
};

class HotplugLoop {
 public:
  // `changes` is an inotify descriptor that does not block.
  explicit HotplugLoop(int changes) : changes_(changes) {}

  void run() {
    while (stopRequested == 0) {
      const Clock::time_point now = Clock::now();
      if (now >= lookAgainAt_) lookAgain();
      if (now >= openAt_) openSources();

      const InputLoop::Wake wake = sources_->loop.wait(msUntil(std::min(lookAgainAt_, openAt_)), changes_);
      takeEvents();
      // What had come is taken: draw, run timers, and come back.

      if (wake.gone != 0) releaseHeld();
      if (nodesChanged() || wake.gone != 0) openAt_ = Clock::now() + kQuiet;
    }
  }

 private:
  static int msUntil(Clock::time_point time) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
    return std::max(static_cast<int>(left.count()), 0);
  }

  void takeEvents() {
    Event event;
    while (sources_->loop.next(event)) {
      if (event.kind == Event::kKeyEvent) {
        noteHeldKey(event.keyData);
        handleKey(event.keyData);
      } else if (event.kind == Event::kMouseEvent) {
        noteHeldButton(event.mouseData);
        handleMouse(event.mouseData);
      }
    }
  }

  // It does not matter which nodes they are: a new reader looks at all of them.
  bool nodesChanged() const {
    bool changed = false;
    char notices[4096];
    while (read(changes_, notices, sizeof notices) > 0) changed = true;
    return changed;
  }

  void lookAgain() {
    lookAgainAt_ = Clock::now() + kLookAgain;
    // Without a device there may be no /dev/input. A directory that is watched already keeps its number. IN_ATTRIB is
    // for udev, which gives a node its permissions after the node was made; before that, the reader may not be allowed
    // to open it.
    const int watch = inotify_add_watch(changes_, kNodes, IN_CREATE | IN_DELETE | IN_ATTRIB);
    if (watch != watch_) openAt_ = kAtOnce;
    watch_ = watch;
    const bool hasRemote = sources_ && sources_->reader.lircFd != -1;
    if (!hasRemote && daemonListens()) openAt_ = kAtOnce;
  }

  void openSources() {
    openAt_ = kNever;
    closeSources();
    LinuxInputReader& reader = sources_.emplace().reader;
    reader.init(nullptr, nullptr, kLircSocket, kMaxX, kMaxY);  // without any, the loop waits for a change
    reader.pointerX = pointerX_;
    reader.pointerY = pointerY_;
    reader.numLock = numLock_;
    std::printf("sources: mouse %s, keyboard %s, remote %s\n", reader.mouseFd == -1 ? "no" : "yes",
                reader.keyboardFd == -1 ? "no" : "yes", reader.lircFd == -1 ? "no" : "yes");
  }

  void closeSources() {
    if (!sources_) return;
    sources_->loop.setAllReady();
    takeEvents();
    pointerX_ = sources_->reader.pointerX;
    pointerY_ = sources_->reader.pointerY;
    numLock_ = sources_->reader.numLock;
    releaseHeld();
    sources_.reset();
  }

  void noteHeldKey(const KeyData& data) {
    if (data.action == KeyData::kUp) {
      heldKeys_.erase(data.key);
    } else if (sources_->loop.source() != InputLoop::kRemote) {  // whose keys never come up
      heldKeys_.insert(data.key);
    }
  }

  void noteHeldButton(const MouseData& data) {
    if (data.action == MouseData::kButtonUp) {
      heldButtons_.erase(data.button);
    } else if (data.action == MouseData::kButtonDown) {
      heldButtons_.insert(data.button);
    }
  }

  // The releases that the kernel makes when a device goes are lost if they are not read at once, and a new reader
  // starts without modifiers. For a key that is held on a device that stayed, a second key-up comes when it is
  // released, which does no harm.
  void releaseHeld() {
    for (const LinuxInputReader::Key key : heldKeys_) handleKey({KeyData::kUp, key, 0, 0});
    for (const std::int32_t button : heldButtons_) {
      handleMouse({MouseData::kButtonUp, button, static_cast<std::uint16_t>(sources_->reader.pointerX),
                   static_cast<std::uint16_t>(sources_->reader.pointerY), 0});
    }
    heldKeys_.clear();
    heldButtons_.clear();
  }

  int changes_;
  int watch_ = -1;  // inotify's number for /dev/input, -1: it is not there
  Clock::time_point lookAgainAt_ = kAtOnce;
  Clock::time_point openAt_ = kAtOnce;
  std::optional<Sources> sources_;  // from the first round on
  std::int32_t pointerX_ = 0;
  std::int32_t pointerY_ = 0;
  bool numLock_ = false;
  std::set<LinuxInputReader::Key> heldKeys_;
  std::set<std::int32_t> heldButtons_;
};

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // each line at once, through a pipe as well
  struct sigaction stop = {};
  stop.sa_handler = requestStop;
  stop.sa_flags = SA_RESTART;  // for output; a wait ends in any case
  sigaction(SIGINT, &stop, nullptr);
  sigaction(SIGTERM, &stop, nullptr);

  const int changes = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (changes == -1) {
    std::perror("cannot watch /dev/input: inotify_init1");
    return 1;
  }
  HotplugLoop(changes).run();
  close(changes);
  return 0;
}
