// What is measured: the component, and what stands beside it. All do the same job, with one event per call.
#pragma once

#include <memory>
#include <string>

#include "input/linux_input_reader.h"

namespace quarlo::bench {

using components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;

// The largest pointer coordinates: so large that the mouse's steps can be counted by them.
constexpr int kMaxX = 0xffff;
constexpr int kMaxY = 0xffff;

// Where the sources are: two evdev nodes or FIFOs in their place, and the socket of a LIRC daemon.
struct Paths {
  std::string mouse;
  std::string keyboard;
  std::string remote;
};

class Contestant {
 public:
  Contestant() = default;
  virtual ~Contestant() = default;
  Contestant(const Contestant&) = delete;
  Contestant& operator=(const Contestant&) = delete;

  // Waits at most `timeoutMs` ms and fills `event` with at most one event. Returns false when there was none.
  virtual bool readInput(InputEvent& event, int timeoutMs) = 0;
};

// Each opens the sources, the remote last, and ends the program if it cannot.
std::unique_ptr<Contestant> openBare(const Paths& paths);      // the component's system calls, and nothing else
std::unique_ptr<Contestant> openBatch(const Paths& paths);     // as few system calls as can be, and nothing else
std::unique_ptr<Contestant> openReader(const Paths& paths);    // the component
std::unique_ptr<Contestant> openLoop(const Paths& paths);      // the component, waited for by its companion
std::unique_ptr<Contestant> openWaking(const Paths& paths);    // the component, called when there is input
std::unique_ptr<Contestant> openLibevdev(const Paths& paths);  // libevdev, libxkbcommon and LIRC's client library
std::unique_ptr<Contestant> openLines(const Paths& paths);     // the same, but the remote's lines taken apart by itself
std::unique_ptr<Contestant> openLibinput(const Paths& paths);  // libinput, libxkbcommon and LIRC's client library

struct Entry {
  const char* name;
  std::unique_ptr<Contestant> (*open)(const Paths& paths);
  bool translates;      // its events mean something
  bool needsRealNodes;  // it takes no FIFO for a device
};

}  // namespace quarlo::bench
