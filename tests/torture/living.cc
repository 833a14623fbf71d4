#include "tests/torture/living.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "input/input_loop.h"
#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/unit/test_log.h"

namespace quarlo::test::torture {

using namespace components::input;
using namespace std::chrono_literals;
using sim::Device;

const std::vector<SearchedNode>& searchedNodes() {
  static const std::vector<SearchedNode> nodes = {
      {9, "Dial", true, false, false, false},          {8, "Held Mouse", true, true, false, true},
      {7, "Mouse", true, true, false, false},          {6, "Keyboard With Touchpad", true, true, true, false},
      {5, "Keyboard", false, false, true, false},      {4, "Power Button", false, false, false, false},
      {2, "Other Keyboard", false, false, true, false}};
  return nodes;
}

namespace {

// ---- The machine --------------------------------------------------------------------------------

Device deviceOf(const SearchedNode& node) {
  Device device{node.name, {}};
  if (node.axes) device.codes[EV_REL] = {REL_X, REL_Y};
  if (node.buttons) device.codes[EV_KEY].insert(BTN_LEFT);
  if (node.arrows) device.codes[EV_KEY].insert({KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN});
  return device;
}

class LivingMachine {
 public:
  explicit LivingMachine(const Life& life) {
    machine.setEnvironment(kRepeatTimeoutVariable, std::to_string(kRepeatTimeout));
    machine.setEnvironment(kReleaseTimeoutVariable, std::to_string(kReleaseTimeout));
    if (life.search) {
      addSearchedDevices();
    } else {
      addDevices(life);
    }
    forgetClicks();
    machine.takeTrace();
  }

  void arm(const Fault& fault) {
    for (int i = 0; i < fault.times; ++i) {
      if (fault.bytes) {
        machine.truncateRead(fault.count + i, *fault.bytes, fault.call);
      } else {
        machine.fail(fault.call, fault.count + i, fault.error);
      }
    }
  }

  // `paths` are where the reader should have found its sources.
  void schedule(const Life& life, const Paths& paths) {
    for (const Source source : {kMouse, kKeyboard}) {
      if (paths[source].empty()) continue;
      for (const Record& record : life.records[source]) {
        machine.after(record.at, [&record, node = nodes_.at(paths[source])] {
          node->inject(record.event.type, record.event.code, record.event.value);
        });
      }
    }
    if (paths[kRemote].empty()) return;
    for (const RemoteLine& line : life.lines) {
      machine.after(line.at, [&line, daemon = daemons_.at(paths[kRemote])] { daemon->sendText(textOf(line)); });
    }
  }

  void schedule(const Incident& incident) {
    switch (incident.kind) {
      case Incident::kSignal: return machine.signalAfter(incident.at);
      case Incident::kJump: return machine.after(incident.at, [&] { machine.jumpClock(incident.jump); });
      case Incident::kLoss: machine.after(incident.at, [&] { lose(incident.source); });
    }
  }

  void lose(Source source) {
    if (source == kRemote) {
      daemons_.at(kGivenPaths[source])->stop();
    } else {
      nodes_.at(kGivenPaths[source])->unplug();
    }
  }

  void expectNoGrabs() const {
    for (const sim::Node* node : free_) EXPECT_FALSE(node->isGrabbed());
  }

  sim::Machine machine;

 private:
  void addDevices(const Life& life) {
    for (const Source source : {kMouse, kKeyboard}) {
      if (!life.records[source].empty()) addNode(kGivenPaths[source], Device{});
    }
    if (!life.lines.empty()) addDaemon(kGivenPaths[kRemote]);
  }

  void addSearchedDevices() {
    for (const SearchedNode& searched : searchedNodes()) {
      sim::Node& node = addNode(nodePath(searched.number), deviceOf(searched));
      node.setGrabbedElsewhere(searched.held);
      if (!searched.held) free_.push_back(&node);
    }
    for (const std::size_t place : kDaemonPlaces) addDaemon(kLircSocketPaths[place]);
  }

  sim::Node& addNode(const std::string& path, Device device) {
    nodes_[path] = &machine.addNode(path, std::move(device));
    return *nodes_[path];
  }

  void addDaemon(const std::string& path) { daemons_[path] = &machine.addLircDaemon(path); }

  // The history of clicks outlives a reader: the next click must be a single one, whatever was before.
  void forgetClicks() {
    LinuxInputReader reader;
    InputEvent event;
    for (const int button : {BTN_LEFT, BTN_RIGHT}) {
      input_event press = makeEvdevRecord(EV_KEY, button, 1);
      reader.translateEvent(&press, event);
    }
    machine.advance(1s);
  }

  std::map<std::string, sim::Node*> nodes_;
  std::map<std::string, sim::LircDaemon*> daemons_;
  std::vector<const sim::Node*> free_;
};

// ---- The application ----------------------------------------------------------------------------

// The lives' remotes send nothing that a keyboard has.
Source sourceOf(const InputEvent& event) {
  if (event.kind != InputEvent::kKeyEvent) return kMouse;
  return event.keyData.key < 400 ? kKeyboard : kRemote;
}

// The application: it reads all that is there, and comes back after a round.
void runApplication(LinuxInputReader& reader, sim::Machine& machine, milliseconds time, Outcome& outcome) {
  for (const auto end = machine.now() + time; machine.now() < end;) {
    const auto nextRound = machine.now() + kRound;
    InputEvent event = untouched();
    for (int timeoutMs = kRound / 1ms; reader.readInput(event, timeoutMs); timeoutMs = 0) {
      outcome.events[sourceOf(event)].push_back(text(event));
      event = untouched();
    }
    if (machine.now() < nextRound) machine.advance(nextRound - machine.now());
  }
}

// Whether the calls of a life are checked: not after these faults, which are the majority, since that takes half of the
// time.
bool isTraced(const Fault& fault) { return fault.call != Call::kRead && fault.call != Call::kGettimeofday; }

void initialise(LinuxInputReader& reader, const Life& life, Lived& lived) {
  const auto path = [&](Source source) { return life.search ? nullptr : kGivenPaths[source].c_str(); };
  const bool any = reader.init(path(kMouse), path(kKeyboard), path(kRemote), kMaxX, kMaxY);
  lived.fds = {reader.mouseFd, reader.keyboardFd, reader.lircFd};
  for (std::size_t source = 0; source < kSources; ++source) lived.opened[source] = lived.fds[source] != -1;
  EXPECT_EQ(any, lived.opened != (std::array<bool, kSources>{}));
}

}  // namespace

Lines comparable(Lines log) {
  for (std::string& line : log) {
    if (line.rfind("VERBOSE10 LIRC KEYDOWN ", 0) == 0) line = "VERBOSE10 LIRC KEYDOWN";
  }
  std::stable_partition(log.begin(), log.end(), [](const std::string& line) { return line.rfind(kReadError, 0) != 0; });
  return log;
}

namespace {

std::map<std::string, int> fieldsOf(const LinuxInputReader& reader) {
  return {{"pointerX", reader.pointerX},
          {"pointerY", reader.pointerY},
          {"pressedButton", reader.pressedButton},
          {"modifiers", static_cast<int>(reader.modifiers)},
          {"hasPendingEvent", static_cast<int>(reader.hasPendingEvent)},
          {"lircKey", reader.lircKey},
          {"lircRepeatTimeout", reader.lircRepeatTimeout},
          {"lircReleaseTimeout", reader.lircReleaseTimeout}};
}

Source sourceOf(const InputLoop& loop) {
  if (loop.source() == InputLoop::kRemote) return kRemote;
  return loop.source() == InputLoop::kMouse ? kMouse : kKeyboard;
}

// The application that has a loop: it is asleep for as long as nothing happens.
void runLoop(LinuxInputReader& reader, sim::Machine& machine, milliseconds time, LivedWithLoop& lived) {
  InputLoop loop(reader);
  // The clock of the machine can jump.
  bool isOver = false;
  machine.after(time, [&] { isOver = true; });
  while (!isOver) {
    loop.wait(kRound / 1ms);
    ++lived.waits;
    InputEvent event = untouched();
    while (loop.next(event)) lived.events[sourceOf(loop)].push_back(text(event));
  }
}

}  // namespace

Lived live(const Life& life, const Paths& paths, const std::optional<Fault>& fault) {
  resetLog();
  Lived lived;
  LivingMachine world(life);
  if (fault) {
    world.arm(*fault);
    world.machine.setTracing(isTraced(*fault));
  }
  {
    LinuxInputReader reader;
    initialise(reader, life, lived);
    world.expectNoGrabs();
    world.schedule(life, paths);
    if (lived.opened != (std::array<bool, kSources>{})) runApplication(reader, world.machine, life.end, lived);
    lived.end = fieldsOf(reader);
  }
  EXPECT_EQ(world.machine.openDescriptors(), 0);
  lived.trace = world.machine.takeTrace();
  lived.log = comparable(takeLog());
  return lived;
}

LivedWithLoop liveWithLoop(const Life& life, const std::optional<Fault>& fault,
                           const std::optional<Incident>& incident) {
  resetLog();
  LivedWithLoop lived;
  LivingMachine world(life);
  if (fault) world.arm(*fault);
  {
    LinuxInputReader reader;
    initialise(reader, life, lived);
    Paths paths = kGivenPaths;
    for (std::size_t source = 0; source < kSources; ++source) {
      if (!lived.opened[source]) paths[source] = "";
    }
    world.schedule(life, paths);
    if (incident) world.schedule(*incident);
    runLoop(reader, world.machine, life.end, lived);
    lived.end = fieldsOf(reader);
  }
  EXPECT_EQ(world.machine.openDescriptors(), 0);
  lived.trace = world.machine.takeTrace();
  lived.log = comparable(takeLog());
  const auto ofLoop = std::stable_partition(lived.log.begin(), lived.log.end(),
                                            [](const std::string& line) { return line.rfind("loop: ", 0) != 0; });
  lived.loopLog.assign(ofLoop, lived.log.end());
  lived.log.erase(ofLoop, lived.log.end());
  return lived;
}

}  // namespace quarlo::test::torture
