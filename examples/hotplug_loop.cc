// The loop of an application whose devices come and go. It prints a line for all that happens, until SIGINT or SIGTERM:
//
//   sources: mouse yes, keyboard yes, remote no
//   pointer 10,20
//   button down 1
//   key down 65 char 97
//   key up 65
//
// What has gone, InputSources closes, with key-ups for what it held. This program says when to search for what is
// missing: when something has changed in /dev/input. (A search grabs each node for a moment, and what is typed then is
// lost; an application that knows its devices' paths has them opened by keepOpen(), as this one has the LIRC daemon's
// socket.)
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "input/linux_input_reader.h"

using quarlo::components::input::InputLoop;
using quarlo::components::input::InputSources;
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
constexpr std::chrono::milliseconds kLookAgain{1000};  // for what nothing announces

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

// ---- The loop -----------------------------------------------------------------------------------

class HotplugLoop {
 public:
  // `changes` is an inotify descriptor that does not block.
  explicit HotplugLoop(int changes) : changes_(changes) {}

  void run() {
    watchNodes();
    reader_.init(nullptr, nullptr, kLircSocket, kMaxX, kMaxY);  // without any, the loop waits for a change
    sources_.keepOpen(InputLoop::kRemote, kLircSocket, kLookAgain.count());
    printSources();
    for (int timeoutMs = 0; stopRequested == 0;) {
      const InputLoop::Wake wake = loop_.wait(timeoutMs, changes_);
      takeEvents();
      if (wake.gone != 0) printSources();

      const Clock::time_point now = Clock::now();
      if (nodesChanged()) searchAt_ = now + kQuiet;
      if (now >= watchAt_ && watchNodes()) searchAt_ = now;
      if (now >= searchAt_) search();
      timeoutMs = sources_.attend(msUntil(std::min(watchAt_, searchAt_)));
      if (sources_.opened() != 0) printSources();
      // What had come is taken: draw, run timers, and come back.
    }
  }

 private:
  static int msUntil(Clock::time_point time) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
    return std::max(static_cast<int>(left.count()), 0);
  }

  void takeEvents() {
    Event event;
    while (loop_.next(event)) {
      if (event.kind == Event::kKeyEvent) handleKey(event.keyData);
      if (event.kind == Event::kMouseEvent) handleMouse(event.mouseData);
    }
  }

  // Returns whether it is another directory than before. Without a device there may be no /dev/input. A directory that
  // is watched already keeps its number. IN_ATTRIB is for udev, which gives a node its permissions after the node was
  // made; before that, it may not be allowed to open it.
  bool watchNodes() {
    watchAt_ = Clock::now() + kLookAgain;
    const int before = watch_;
    watch_ = inotify_add_watch(changes_, kNodes, IN_CREATE | IN_DELETE | IN_ATTRIB);
    return watch_ != before;
  }

  // It does not matter which nodes they are: a search looks at all of them.
  bool nodesChanged() const {
    bool changed = false;
    char notices[4096];
    while (read(changes_, notices, sizeof notices) > 0) changed = true;
    return changed;
  }

  void search() {
    searchAt_ = kNever;
    bool found = false;
    for (const InputLoop::Source source : {InputLoop::kMouse, InputLoop::kKeyboard}) {
      if (sources_.open(source, nullptr)) found = true;  // one that is open stays as it is
    }
    if (found) printSources();
  }

  void printSources() const {
    std::printf("sources: mouse %s, keyboard %s, remote %s\n", reader_.mouseFd == -1 ? "no" : "yes",
                reader_.keyboardFd == -1 ? "no" : "yes", reader_.lircFd == -1 ? "no" : "yes");
  }

  LinuxInputReader reader_;
  InputLoop loop_{reader_};
  InputSources sources_{loop_};
  int changes_;
  int watch_ = -1;  // inotify's number for /dev/input, -1: it is not there
  Clock::time_point watchAt_;
  Clock::time_point searchAt_ = kNever;
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
