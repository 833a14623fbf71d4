// Torture. A reader lives whole lives on a simulated machine, and in each of them something fails: every call that the
// life makes, one after the other, with every errno that its manual page names. Nothing may differ from the life
// without a failure but what is written here for that failure, and nothing may be left open.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

using std::chrono::milliseconds;

// ---- A life: what the machine has, and what happens on it -------------------------------------------------------

enum Source { kMouse, kKeyboard, kRemote };  // in the order in which they are opened
constexpr std::size_t kSources = 3;

struct Record {
  milliseconds at;
  input_event event;
  bool clockFails = false;  // for the click that it makes
};

struct RemoteLine {
  milliseconds at;
  std::string button;
  int key;
  unsigned repeat = 0;
  bool clockFails = false;        // when it is read
  bool acceptClockFails = false;  // when it is accepted
  std::size_t cutAt = 0;          // it is read in two pieces, the first of this length; 0: whole
};

// What it has no input for, its machine does not have.
struct Life {
  std::string name;
  bool search = false;  // init() is given no path
  std::array<std::vector<Record>, 2> records;
  std::vector<RemoteLine> lines;
  milliseconds end;
};

struct Step {
  int type;
  int code;
  int value;
};

// Reports are further apart than the application's rounds, so that each is read by itself, even if a call fails twice.
constexpr milliseconds kRound{30};

void report(std::vector<Record>& records, milliseconds at, const std::vector<Step>& steps) {
  for (const Step& step : steps) records.push_back({at, makeEvdevRecord(step.type, step.code, step.value)});
  records.push_back({at, makeEvdevRecord(EV_SYN, SYN_REPORT, 0)});
}

Life typing() {
  Life life = {"typing", false, {}, {}, 800ms};
  std::vector<Record>& keyboard = life.records[kKeyboard];
  report(keyboard, 100ms, {{EV_MSC, MSC_SCAN, 42}, {EV_KEY, KEY_LEFTSHIFT, 1}});
  report(keyboard, 200ms, {{EV_MSC, MSC_SCAN, 30}, {EV_KEY, KEY_A, 1}});
  report(keyboard, 300ms, {{EV_KEY, KEY_A, 2}});
  report(keyboard, 400ms, {{EV_MSC, MSC_SCAN, 30}, {EV_KEY, KEY_A, 0}});
  report(keyboard, 500ms, {{EV_KEY, KEY_LEFTSHIFT, 0}});
  report(keyboard, 600ms, {{EV_KEY, KEY_B, 1}, {EV_KEY, KEY_C, 1}});
  report(keyboard, 700ms, {{EV_KEY, KEY_B, 0}, {EV_KEY, KEY_C, 0}});
  return life;
}

Life pointing() {
  Life life = {"pointing", false, {}, {}, 1500ms};
  std::vector<Record>& mouse = life.records[kMouse];
  report(mouse, 100ms, {{EV_REL, REL_X, 100}, {EV_REL, REL_Y, 50}});
  report(mouse, 200ms, {{EV_KEY, BTN_LEFT, 1}});
  report(mouse, 300ms, {{EV_KEY, BTN_LEFT, 0}});
  report(mouse, 400ms, {{EV_REL, REL_X, 7}, {EV_KEY, BTN_LEFT, 1}});
  report(mouse, 500ms, {{EV_REL, REL_Y, -3}});
  report(mouse, 600ms, {{EV_REL, REL_X, -9}, {EV_REL, REL_X, 4}, {EV_KEY, BTN_LEFT, 0}});
  report(mouse, 700ms, {{EV_KEY, BTN_RIGHT, 1}});
  report(mouse, 800ms, {{EV_KEY, BTN_RIGHT, 0}});
  report(mouse, 900ms, {{EV_REL, REL_X, -2000}, {EV_REL, REL_Y, 5}});
  report(mouse, 1200ms, {{EV_KEY, BTN_LEFT, 1}});
  report(mouse, 1300ms, {{EV_KEY, BTN_LEFT, 0}});
  report(mouse, 1400ms, {{EV_REL, REL_X, 11}, {EV_REL, REL_Y, 2000}});
  return life;
}

// A button is held for a second, then others are tapped. The times keep away from all thresholds, see kReleaseTimeout.
Life remote() {
  Life life = {"remote", false, {}, {}, 3000ms};
  for (unsigned i = 0; i < 4; ++i) life.lines.push_back({100ms + 420ms * i, "KEY_VOLUMEUP", 447, i});
  life.lines.push_back({2600ms, "KEY_CHANNELUP", 427});
  life.lines.push_back({2700ms, "KEY_CHANNELUP", 427});
  life.lines.push_back({2800ms, "KEY_MUTE", 449, 1});
  return life;
}

// All sources have something at the same times.
Life allSources() {
  Life life = {"all sources", false, {}, {}, 800ms};
  report(life.records[kMouse], 100ms, {{EV_REL, REL_X, 100}, {EV_REL, REL_Y, 50}, {EV_KEY, BTN_LEFT, 1}});
  report(life.records[kMouse], 600ms, {{EV_REL, REL_X, 20}, {EV_KEY, BTN_LEFT, 0}});
  report(life.records[kKeyboard], 100ms, {{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_A, 1}});
  report(life.records[kKeyboard], 600ms, {{EV_KEY, KEY_A, 0}, {EV_KEY, KEY_LEFTSHIFT, 0}});
  life.lines.push_back({100ms, "KEY_VOLUMEUP", 447});
  life.lines.push_back({600ms, "KEY_MUTE", 449});
  return life;
}

// A little from each source, to see which of them work.
Life setUp(const std::string& name, bool search) {
  Life life = {name, search, {}, {}, 200ms};
  report(life.records[kMouse], 100ms, {{EV_REL, REL_X, 5}});
  report(life.records[kKeyboard], 100ms, {{EV_KEY, KEY_A, 1}});
  life.lines.push_back({100ms, "KEY_MUTE", 449});
  return life;
}

// ---- The machine of a life --------------------------------------------------------------------------------------

constexpr int kMaxX = 1280;
constexpr int kMaxY = 720;

// So that each line of remote() comes at least three rounds before or after anything changes.
constexpr int kRepeatTimeout = 300;
constexpr int kReleaseTimeout = 640;
constexpr int kDefaultRepeatTimeout = 100;
constexpr int kDefaultReleaseTimeout = 300;

using Paths = std::array<std::string, kSources>;  // "": none
const Paths kGivenPaths = {"/dev/input/event0", "/dev/input/event1", "/run/lircd"};

// A search meets all kinds of nodes on its way, and falls back on later ones.
struct SearchedNode {
  int number;
  std::string name;
  bool axes;
  bool buttons;
  bool arrows;
  bool held;  // by another process
};
const std::vector<SearchedNode> kSearchedNodes = {
    {9, "Dial", true, false, false, false},          {8, "Held Mouse", true, true, false, true},
    {7, "Mouse", true, true, false, false},          {6, "Keyboard With Touchpad", true, true, true, false},
    {5, "Keyboard", false, false, true, false},      {4, "Power Button", false, false, false, false},
    {2, "Other Keyboard", false, false, true, false}};

// A daemon runs at the third and at the fourth.
const Lines kSocketPaths = {"/var/run/lirc/lircd", "/var/lircd", "/dev/lircd", "/dev/lirc/lircd"};

std::string nodePath(int number) { return "/dev/input/event" + std::to_string(number); }

// Who holds a node has all that it sends.
bool isHeldElsewhere(const std::string& path) {
  return std::any_of(kSearchedNodes.begin(), kSearchedNodes.end(),
                     [&path](const SearchedNode& node) { return node.held && nodePath(node.number) == path; });
}

Device deviceOf(const SearchedNode& node) {
  Device device{node.name, {}};
  if (node.axes) device.codes[EV_REL] = {REL_X, REL_Y};
  if (node.buttons) device.codes[EV_KEY].insert(BTN_LEFT);
  if (node.arrows) device.codes[EV_KEY].insert({KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN});
  return device;
}

std::string lineText(const RemoteLine& line) {
  char repeat[16];
  std::snprintf(repeat, sizeof repeat, "%02x", line.repeat);
  return "0000000000f40bf0 " + std::string(repeat) + " " + line.button + " myremote\n";
}

// What goes wrong, and when.
struct Fault {
  Call call;
  int count;  // of the calls of its kind in this life
  int error;
  std::optional<std::size_t> bytes;  // what a read() returns, instead of failing
  int times = 1;                     // in a row
};

class LivingMachine {
 public:
  explicit LivingMachine(const Life& life) {
    machine.setEnvironment("LIRC_REPEAT_TIMEOUT", std::to_string(kRepeatTimeout));
    machine.setEnvironment("LIRC_RELEASE_TIMEOUT", std::to_string(kReleaseTimeout));
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
        machine.truncateRead(fault.count + i, *fault.bytes);
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
      machine.after(line.at, [&line, daemon = daemons_.at(paths[kRemote])] { daemon->sendText(lineText(line)); });
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
    for (const SearchedNode& searched : kSearchedNodes) {
      sim::Node& node = addNode(nodePath(searched.number), deviceOf(searched));
      node.setGrabbedElsewhere(searched.held);
      if (!searched.held) free_.push_back(&node);
    }
    addDaemon(kSocketPaths[2]);
    addDaemon(kSocketPaths[3]);
  }

  sim::Node& addNode(const std::string& path, Device device) {
    nodes_[path] = &machine.addNode(path, std::move(device));
    return *nodes_[path];
  }

  void addDaemon(const std::string& path) { daemons_[path] = &machine.addLircDaemon(path); }

  // The history of clicks outlives a reader: the next click is to be a single one, whatever was before.
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

// ---- How a life goes --------------------------------------------------------------------------------------------

struct Outcome {
  std::array<bool, kSources> opened = {};
  Lines log;
  std::array<Lines, kSources> events;
  std::map<std::string, int> end;  // what the reader's fields are then
};

constexpr char kReadError[] = "ERROR Reading from input device failed, errno = ";

bool startsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }

// A log without the milliseconds that depend on when exactly a line was read, the errors of reading at its end.
Lines comparable(Lines log) {
  for (std::string& line : log) {
    if (startsWith(line, "VERBOSE10 LIRC KEYDOWN ")) line = "VERBOSE10 LIRC KEYDOWN";
  }
  std::stable_partition(log.begin(), log.end(), [](const std::string& line) { return !startsWith(line, kReadError); });
  return log;
}

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

// Whether the calls of a life are looked at: not after these faults, which are most, since it takes half of the time.
bool isTraced(const Fault& fault) { return fault.call != Call::kRead && fault.call != Call::kGettimeofday; }

// A life as it was lived, with the descriptors of its sources and its calls.
struct Lived : Outcome {
  std::array<int, kSources> fds = {-1, -1, -1};
  Lines trace;
};

void initialise(LinuxInputReader& reader, const Life& life, Lived& lived) {
  const auto path = [&](Source source) { return life.search ? nullptr : kGivenPaths[source].c_str(); };
  const bool any = reader.init(path(kMouse), path(kKeyboard), path(kRemote), kMaxX, kMaxY);
  lived.fds = {reader.mouseFd, reader.keyboardFd, reader.lircFd};
  for (std::size_t source = 0; source < kSources; ++source) lived.opened[source] = lived.fds[source] != -1;
  EXPECT_EQ(any, lived.opened != (std::array<bool, kSources>{}));
}

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
    lived.end = {{"pointerX", reader.pointerX},
                 {"pointerY", reader.pointerY},
                 {"pressedButton", reader.pressedButton},
                 {"modifiers", static_cast<int>(reader.modifiers)},
                 {"hasPendingEvent", static_cast<int>(reader.hasPendingEvent)},
                 {"lircKey", reader.lircKey},
                 {"lircRepeatTimeout", reader.lircRepeatTimeout},
                 {"lircReleaseTimeout", reader.lircReleaseTimeout}};
  }
  EXPECT_EQ(world.machine.openDescriptors(), 0);
  lived.trace = world.machine.takeTrace();
  lived.log = comparable(takeLog());
  return lived;
}

// ---- How a life should go ---------------------------------------------------------------------------------------

// What one search finds wrong with one node when a call fails.
enum class Flaw { kDoesNotOpen, kIsHeld, kCannotBeHeld, kHasNoName, kHasNoAxes, kHasNoKeys, kDoesNotOpenAgain };

// A life as it should go: what a failure takes from it or adds to it.
struct Course {
  explicit Course(Life what) : life(std::move(what)) {}

  Life life;
  std::set<Source> closed;                        // does not open by its path
  std::set<std::tuple<Source, int, Flaw>> flaws;  // the int is the number of the node
  std::set<int> failedConnections;                // of those that the search for a daemon makes, from 1
  int repeatTimeout = kRepeatTimeout;
  int releaseTimeout = kReleaseTimeout;
  Lines readErrors;
};

// The search for a device, by its description: the first node from the highest number down that opens, that nobody
// holds, and that suits. Returns its path, or "" for none.
std::string search(Source wanted, const Course& course, Lines& log) {
  const std::string kind = wanted == kMouse ? "mouse" : "keyboard";
  std::string name;
  for (const SearchedNode& node : kSearchedNodes) {
    const auto has = [&](Flaw flaw) { return course.flaws.count({wanted, node.number, flaw}) != 0; };
    const bool held = has(Flaw::kIsHeld) || (node.held && !has(Flaw::kCannotBeHeld));
    if (held || has(Flaw::kDoesNotOpen)) continue;
    // Without a name of its own it has that of the node before.
    if (!has(Flaw::kHasNoName)) name = node.name;
    if (has(Flaw::kHasNoAxes)) log.push_back("ERROR evdev ioctl failed in testRel");
    const bool axes = node.axes && !has(Flaw::kHasNoAxes);
    if (axes != (wanted == kMouse)) continue;
    if (has(Flaw::kHasNoKeys)) log.push_back("ERROR evdev ioctl failed in testKey");
    const bool keys = wanted == kMouse ? node.buttons : node.arrows;
    if (!keys || has(Flaw::kHasNoKeys)) continue;
    log.push_back("INFO Found a " + kind + ": " + nodePath(node.number) + " - " + name);
    if (!has(Flaw::kDoesNotOpenAgain)) return nodePath(node.number);
    break;
  }
  log.push_back("INFO Could not autodetect a suitable " + kind + " device");
  return "";
}

std::string searchForDaemon(const Course& course, Lines& log) {
  for (const int connection : {3, 4}) {
    if (course.failedConnections.count(connection) != 0) continue;
    const std::string& path = kSocketPaths[static_cast<std::size_t>(connection) - 1];
    log.push_back("INFO Found a LIRC device: " + path);
    return path;
  }
  log.push_back("INFO Could not autodetect a LIRC device");
  return "";
}

Paths openByPath(const Course& course, Lines& log) {
  Paths paths = kGivenPaths;
  for (const Source source : {kMouse, kKeyboard}) {
    if (course.closed.count(source) == 0 && !course.life.records[source].empty()) continue;
    const std::string kind = source == kMouse ? "mouse" : "keyboard";
    log.push_back("ERROR Could not open " + kind + " device " + paths[source]);
    paths[source] = "";
  }
  if (course.closed.count(kRemote) == 0 && !course.life.lines.empty()) {
    log.push_back("INFO Found a LIRC device: " + paths[kRemote]);
  } else {
    log.push_back("ERROR Could not open LIRC socket " + paths[kRemote]);
    paths[kRemote] = "";
  }
  return paths;
}

Paths openSources(const Course& course, Lines& log) {
  if (!course.life.search) return openByPath(course, log);
  Paths paths;
  paths[kMouse] = search(kMouse, course, log);
  paths[kKeyboard] = search(kKeyboard, course, log);
  paths[kRemote] = searchForDaemon(course, log);
  return paths;
}

// Before everything that happens in a life.
constexpr milliseconds kLongAgo{-1'000'000};

// What the records of mouse and keyboard give when each report is read by itself.
class DeviceModel {
 public:
  explicit DeviceModel(Outcome& outcome) : outcome_(outcome) {}

  void take(const Record& record) {
    const input_event& event = record.event;
    if (event.type == EV_REL) {
      int& place = event.code == REL_X ? x : y;
      place = std::clamp(place + event.value, 0, event.code == REL_X ? kMaxX : kMaxY);
      moved_ = true;
    } else if (event.type == EV_KEY) {
      giveMotion();
      event.code >= BTN_MOUSE ? giveButton(record) : giveKey(event);
    } else if (event.type == EV_SYN && event.code == SYN_REPORT) {
      giveMotion();
    }
  }

  int x = 0;
  int y = 0;
  int button = 0;
  unsigned modifiers = 0;

 private:
  struct Clicks {
    int count = 1;
    milliseconds last = kLongAgo;
  };

  void giveMotion() {
    if (std::exchange(moved_, false)) outcome_.events[kMouse].push_back(moved(x, y, button));
  }

  void giveKey(const input_event& event) {
    if (event.code == KEY_LEFTSHIFT) modifiers = event.value != 0 ? 2 : 0;
    LinuxInputReader::Key key;
    char ch;
    LinuxInputReader::translateKey(event.code, modifiers, false, key, ch);
    const int character = static_cast<unsigned char>(ch);
    outcome_.events[kKeyboard].push_back(event.value != 0 ? keyDown(key, character, modifiers)
                                                          : keyUp(key, character, modifiers));
  }

  void giveButton(const Record& record) {
    const int number = record.event.code - BTN_LEFT + 1;
    Clicks& clicks = clicks_[number];
    const bool pressed = record.event.value != 0;
    button = pressed ? number : 0;
    if (pressed) {
      // A clock that fails reads as time zero: before the last click, which counts as soon after it.
      clicks.count = record.clockFails || record.at - clicks.last < 400ms ? clicks.count + 1 : 1;
      clicks.last = record.clockFails ? kLongAgo : record.at;
    }
    outcome_.events[kMouse].push_back(pressed ? buttonDown(number, x, y, clicks.count)
                                              : buttonUp(number, x, y, clicks.count));
  }

  Outcome& outcome_;
  bool moved_ = false;
  std::map<int, Clicks> clicks_;
};

// What a remote's lines give when the time between them is watched all along.
class RemoteModel {
 public:
  RemoteModel(const Course& course, Outcome& outcome)
      : repeatTimeout_(course.repeatTimeout), releaseTimeout_(course.releaseTimeout), outcome_(outcome) {}

  // What is behind the name does not matter, nor does the code before the first space.
  void take(const RemoteLine& line) {
    const std::string text = lineText(line);
    const std::size_t beginsToMatter = text.find(' ');
    const std::size_t endsToMatter = text.rfind(' ') + 1;
    watchUntil(line.at);
    logString(line.cutAt == 0 ? text : text.substr(0, line.cutAt));
    if (line.cutAt == 0 || line.cutAt >= endsToMatter) takeWhole(line);
    if (line.cutAt != 0) logString(text.substr(line.cutAt));
    if (line.cutAt != 0 && line.cutAt <= beginsToMatter) takeWhole(line);
  }

  // Nothing comes until then.
  void watchUntil(milliseconds time) {
    if (key == 0) return;
    if (!repeating_ && time > accepted_ + timeout_) {
      log("LIRC key repeat mode started.");
      repeating_ = true;
    }
    if (time > accepted_ + timeout_ + repeatTimeout_) {
      log("LIRC key repeat mode stopped.");
      key = 0;
      repeating_ = false;
    }
  }

  int key = 0;

 private:
  void log(const std::string& message) { outcome_.log.push_back("VERBOSE10 " + message); }
  void logString(const std::string& text) { outcome_.log.push_back("VERBOSE2 LIRC string: " + text); }

  void takeWhole(const RemoteLine& line) {
    const bool repeated = line.repeat != 0 && line.key == key;
    // A clock that fails reads as time zero: before the key was accepted.
    const bool tooClose = line.clockFails || line.at < accepted_ + timeout_;
    if (repeated && tooClose) {
      log("LIRC keypress skipped - too close.");
      return;
    }
    if (!repeated) repeating_ = false;
    accepted_ = line.acceptClockFails ? kLongAgo : line.at;
    timeout_ = repeating_ ? repeatTimeout_ : releaseTimeout_;
    key = line.key;
    log("LIRC KEYDOWN");
    log("LIRC timeout " + std::to_string(timeout_ / 1ms) + "ms.");
    outcome_.events[kRemote].push_back(keyDown(line.key));
  }

  milliseconds repeatTimeout_;
  milliseconds releaseTimeout_;
  Outcome& outcome_;
  milliseconds accepted_ = kLongAgo;
  milliseconds timeout_{0};
  bool repeating_ = false;
};

struct Expected : Outcome {
  Paths paths;
};

Expected expected(const Course& course) {
  Expected result;
  result.paths = openSources(course, result.log);
  for (std::size_t source = 0; source < kSources; ++source) result.opened[source] = !result.paths[source].empty();

  DeviceModel devices(result);
  for (const Source source : {kMouse, kKeyboard}) {
    if (!result.opened[source] || isHeldElsewhere(result.paths[source])) continue;
    for (const Record& record : course.life.records[source]) devices.take(record);
  }
  RemoteModel remote(course, result);
  if (result.opened[kRemote]) {
    for (const RemoteLine& line : course.life.lines) remote.take(line);
    remote.watchUntil(course.life.end);
  }
  result.log.insert(result.log.end(), course.readErrors.begin(), course.readErrors.end());
  result.end = {{"pointerX", devices.x},
                {"pointerY", devices.y},
                {"pressedButton", devices.button},
                {"modifiers", static_cast<int>(devices.modifiers)},
                {"hasPendingEvent", 0},
                {"lircKey", remote.key},
                {"lircRepeatTimeout", course.repeatTimeout},
                {"lircReleaseTimeout", course.releaseTimeout}};
  return result;
}

// ---- What a failure does ----------------------------------------------------------------------------------------

struct TracedCall {
  Call call;
  int count;  // of its kind
  std::string line;
  std::string firstArgument;
  std::string result;
  bool succeeded;
};

using Calls = std::vector<TracedCall>;

const std::map<std::string, Call> kCalls = {{"open", Call::kOpen},       {"close", Call::kClose},
                                            {"read", Call::kRead},       {"ioctl", Call::kIoctl},
                                            {"select", Call::kSelect},   {"socket", Call::kSocket},
                                            {"connect", Call::kConnect}, {"gettimeofday", Call::kGettimeofday},
                                            {"getenv", Call::kGetenv}};

std::string nameOf(Call call) {
  return std::find_if(kCalls.begin(), kCalls.end(), [&](const auto& entry) { return entry.second == call; })->first;
}

Calls callsOf(const Lines& trace) {
  Calls calls;
  std::map<Call, int> counts;
  for (const std::string& line : trace) {
    const std::size_t nameEnd = line.find('(');
    const std::size_t argumentEnd = line.find_first_of(",)", nameEnd);
    const Call call = kCalls.at(line.substr(0, nameEnd));
    const std::string result = line.substr(line.rfind(" = ") + 3);
    calls.push_back({call, ++counts[call], line, line.substr(nameEnd + 1, argumentEnd - nameEnd - 1), result,
                     !startsWith(result, "-1")});
  }
  return calls;
}

// What the manual pages name: open(2), ... and, for what is not in ioctl(2), read(2) and connect(2), what evdev and
// unix(7) give.
std::vector<int> errorsOf(const TracedCall& call) {
  switch (call.call) {
    case Call::kOpen:
      return {EACCES, EBUSY,      EDQUOT,       EEXIST, EFAULT, EFBIG,   EINTR,  EINVAL, EISDIR,
              ELOOP,  EMFILE,     ENAMETOOLONG, ENFILE, ENODEV, ENOENT,  ENOMEM, ENOSPC, ENOTDIR,
              ENXIO,  EOPNOTSUPP, EOVERFLOW,    EPERM,  EROFS,  ETXTBSY, EAGAIN};
    case Call::kClose: return {EBADF, EINTR, EIO, ENOSPC, EDQUOT};
    case Call::kRead: return {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR, ENODEV, ECONNRESET, ENOTCONN};
    case Call::kIoctl: return {EBADF, EFAULT, EINVAL, ENOTTY, ENODEV, EINTR, EBUSY};
    case Call::kSelect: return {EBADF, EINTR, EINVAL, ENOMEM};
    case Call::kSocket: return {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT};
    case Call::kConnect:
      return {EACCES,       EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY,   EBADF,
              ECONNREFUSED, EFAULT,     EINPROGRESS,   EINTR,        EINVAL, EISCONN,    ENETUNREACH,
              ENOENT,       ENOMEM,     ENOTSOCK,      EPERM,        EPIPE,  EPROTOTYPE, ETIMEDOUT};
    case Call::kGettimeofday: return {EFAULT};
    case Call::kGetenv: return {0};
  }
  return {};
}

bool isReadOf(const TracedCall& call, int fd) {
  return call.call == Call::kRead && call.firstArgument == std::to_string(fd);
}

// How many records or lines were read from a descriptor before the call at `index`.
std::size_t readBefore(const Calls& calls, std::size_t index, int fd) {
  return static_cast<std::size_t>(
      std::count_if(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(index),
                    [fd](const TracedCall& call) { return isReadOf(call, fd) && call.succeeded; }));
}

// The last node that was opened up to the call at `index`, its number.
int nodeOf(const Calls& calls, std::size_t index) {
  while (calls[index].call != Call::kOpen) --index;
  const std::string path = "/dev/input/event";
  return std::stoi(calls[index].line.substr(calls[index].line.find(path) + path.size()));
}

// Turns the course of a life without a failure into the one with it.
class Failure {
 public:
  // `index` is that of the first call that fails.
  Failure(const Calls& calls, const std::array<int, kSources>& fds, std::size_t index, const Fault& fault,
          Course& course)
      : calls_(calls), fds_(fds), index_(index), fault_(fault), course_(course) {}

  void apply() {
    switch (fault_.call) {
      case Call::kGetenv: return failGetenv();
      case Call::kOpen: return failOpen();
      case Call::kIoctl: return failIoctl();
      case Call::kSocket:
      case Call::kConnect: return failConnection();
      case Call::kGettimeofday: return failClock();
      case Call::kRead: return failRead();
      // The sources are read all the same.
      case Call::kSelect:
      // What failed to close is closed.
      case Call::kClose: return;
    }
  }

 private:
  const std::string& line() const { return calls_[index_].line; }
  bool has(const std::string& part) const { return line().find(part) != std::string::npos; }

  // The default is in force.
  void failGetenv() {
    if (has("LIRC_REPEAT_TIMEOUT")) course_.repeatTimeout = kDefaultRepeatTimeout;
    if (has("LIRC_RELEASE_TIMEOUT") || fault_.times > 1) course_.releaseTimeout = kDefaultReleaseTimeout;
  }

  // The source is missing, or the search goes on.
  void failOpen() {
    if (course_.life.search) {
      flaw(has("O_NONBLOCK") ? Flaw::kDoesNotOpenAgain : Flaw::kDoesNotOpen);
      if (fault_.times > 1) flawTheRest(Flaw::kDoesNotOpen);
      return;
    }
    if (has(kGivenPaths[kMouse])) course_.closed.insert(kMouse);
    if (has(kGivenPaths[kKeyboard]) || fault_.times > 1) course_.closed.insert(kKeyboard);
  }

  void failIoctl() {
    static const std::vector<std::pair<std::string, Flaw>> kQuestions = {{"EVIOCGRAB, 1", Flaw::kIsHeld},
                                                                         {"EVIOCGNAME", Flaw::kHasNoName},
                                                                         {"EV_REL", Flaw::kHasNoAxes},
                                                                         {"EV_KEY", Flaw::kHasNoKeys}};
    auto question = std::find_if(kQuestions.begin(), kQuestions.end(), [&](const auto& q) { return has(q.first); });
    // A node that cannot be held is held by nobody. A grab that cannot be let go ends when its node is closed.
    if (has("EVIOCGRAB, 1") && fault_.error == EINVAL) return flaw(Flaw::kCannotBeHeld);
    if (question != kQuestions.end()) flaw(question->second);
    if (fault_.times == 1) return;
    while (question != kQuestions.end()) flaw(question++->second);
    flawTheRest(Flaw::kIsHeld);
  }

  void flaw(Flaw what) { course_.flaws.insert({currentSearch(), nodeOf(calls_, index_), what}); }

  // Also for what is still to come of this search, and for the next.
  void flawTheRest(Flaw what) {
    for (const SearchedNode& node : kSearchedNodes) {
      if (node.number < nodeOf(calls_, index_)) course_.flaws.insert({currentSearch(), node.number, what});
      if (currentSearch() == kMouse) course_.flaws.insert({kKeyboard, node.number, what});
    }
  }

  // The mouse is searched for first, and its search ends with the second open() of what was found.
  Source currentSearch() const {
    const auto here = calls_.begin() + static_cast<std::ptrdiff_t>(index_);
    const bool mouseFound = std::any_of(calls_.begin(), here, [](const TracedCall& call) {
      return call.call == Call::kOpen && call.line.find("O_NONBLOCK") != std::string::npos;
    });
    return mouseFound ? kKeyboard : kMouse;
  }

  void failConnection() {
    course_.closed.insert(kRemote);
    for (int i = 0; i < fault_.times; ++i) course_.failedConnections.insert(fault_.count + i);
  }

  // It reads as time zero, which matters to a click and to a line. The wait is not cut short, and what a quiet remote
  // has to wait for is found by the next round.
  void failClock() {
    const TracedCall& before = calls_[index_ - 1];
    if (isReadOf(before, fds_[kMouse])) {
      course_.life.records[kMouse][readBefore(calls_, index_, fds_[kMouse]) - 1].clockFails = true;
    } else if (isReadOf(before, fds_[kRemote]) && before.succeeded) {
      lastLine().clockFails = true;
    } else if (before.call == Call::kGettimeofday && calls_[index_ + 1].call != Call::kSelect) {
      lastLine().acceptClockFails = true;
    }
  }

  RemoteLine& lastLine() { return course_.life.lines[readBefore(calls_, index_, fds_[kRemote]) - 1]; }

  void failRead() {
    if (isReadOf(calls_[index_], fds_[kRemote])) return failRemoteRead();
    const Source source = isReadOf(calls_[index_], fds_[kMouse]) ? kMouse : kKeyboard;
    std::vector<Record>& records = course_.life.records[source];
    const std::size_t position = readBefore(calls_, index_, fds_[source]);
    const milliseconds at = position < records.size() ? records[position].at : course_.life.end;
    const Record extra = {at, fault_.bytes ? shortRecord(records, source, position) : endOfReport()};
    records.insert(records.begin() + static_cast<std::ptrdiff_t>(position), extra);
    if (fault_.bytes || fault_.error == EAGAIN) return;
    // The life may be over before the last of them.
    const auto left = std::count_if(calls_.begin() + static_cast<std::ptrdiff_t>(index_), calls_.end(),
                                    [](const TracedCall& call) { return call.call == Call::kRead; });
    const auto failing = static_cast<std::size_t>(std::min<std::ptrdiff_t>(fault_.times, left));
    course_.readErrors.assign(failing, kReadError + std::to_string(fault_.error));
  }

  // What failed is read again later, but the motion up to there is delivered, as at the end of a report.
  static input_event endOfReport() { return makeEvdevRecord(EV_SYN, SYN_REPORT, 0); }

  // A read that gives less than a record, as no kernel does, is none to the reader: the record comes once more, in
  // which the bytes that were not given are those of the record before it, or zero at the start.
  input_event shortRecord(const std::vector<Record>& records, Source source, std::size_t position) const {
    input_event record = {};
    const bool goesOn = isReadOf(calls_[index_ - 1], fds_[source]) && calls_[index_ - 1].succeeded;
    if (goesOn) record = records[position - 1].event;
    if (calls_[index_].succeeded) std::memcpy(&record, &records[position].event, *fault_.bytes);
    return record;
  }

  // A read that fails, or ends the stream, is one that finds nothing, and the next one finds what is there.
  void failRemoteRead() {
    if (!fault_.bytes || *fault_.bytes == 0 || !calls_[index_].succeeded) return;
    course_.life.lines[readBefore(calls_, index_, fds_[kRemote])].cutAt = *fault_.bytes;
  }

  const Calls& calls_;
  const std::array<int, kSources>& fds_;
  std::size_t index_;
  const Fault& fault_;
  Course& course_;
};

// ---- Torture ----------------------------------------------------------------------------------------------------

// That each descriptor is closed once, and none that is not open, or -1, at the end.
void expectEachIsClosedOnce(const Calls& calls) {
  std::set<std::string> open;
  for (const TracedCall& call : calls) {
    if ((call.call == Call::kOpen || call.call == Call::kSocket) && call.succeeded) open.insert(call.result);
    if (call.call != Call::kClose || call.firstArgument == "-1") continue;
    EXPECT_EQ(open.erase(call.firstArgument), 1U) << call.line;
  }
  EXPECT_EQ(open, std::set<std::string>());
}

// That the first wait, and each after a wait that failed, is for all sources, and each other one for those that the
// wait before left; and that after each, whatever it gave, the sources are read, beginning with the keyboard.
void expectTheRightWaits(const Lived& lived, const Calls& calls) {
  std::string all;
  int readFirst = -1;
  for (const int fd : {lived.fds[kRemote], lived.fds[kMouse], lived.fds[kKeyboard]}) {
    if (fd != -1) readFirst = fd;
  }
  for (const int fd : lived.fds) {
    if (fd != -1) all += (all.empty() ? "[" : " ") + std::to_string(fd);
  }
  all += "]";
  std::string watched = all;
  for (auto call = calls.begin(); call != calls.end(); ++call) {
    if (call->call != Call::kSelect) continue;
    EXPECT_NE(call->line.find(", " + watched + ","), std::string::npos) << call->line << " instead of " << watched;
    EXPECT_TRUE(isReadOf(*std::next(call), readFirst)) << std::next(call)->line << " after " << call->line;
    watched = call->result == "0" ? "[]" : call->result.substr(call->result.find(' ') + 1);
    if (!call->succeeded) watched = all;
  }
}

std::string describe(const std::string& life, const TracedCall& call, const Fault& fault) {
  std::string what;
  if (fault.bytes) {
    what = "gives " + std::to_string(*fault.bytes) + " bytes";
  } else {
    what = "fails" + (fault.error == 0 ? "" : std::string(" with ") + strerrorname_np(fault.error));
  }
  return life + ": " + nameOf(call.call) + " number " + std::to_string(call.count) + ", " + call.line + ", " + what +
         (fault.times == 1 ? " once" : " from then on, " + std::to_string(fault.times) + " times");
}

class TortureTest : public testing::Test {
 protected:
  static void TearDownTestSuite() {
    int total = 0;
    std::string each;
    for (const auto& [call, number] : allFaults_) {
      total += number;
      each += (each.empty() ? "" : ", ") + nameOf(call) + " " + std::to_string(number);
    }
    std::printf("%d faults: %s\n", total, each.c_str());
  }

  void TearDown() override { RecordProperty("faults", faults); }

  // Lives the life, then lives it again with each fault that `faultsOf` gives for each of its calls.
  template <typename FaultsOf>
  void torture(const Life& life, FaultsOf faultsOf) {
    const Expected unharmed = expected(Course(life));
    const Lived lived = live(life, unharmed.paths, std::nullopt);
    expectOutcome(unharmed, lived);
    const Calls calls = callsOf(lived.trace);
    for (std::size_t index = 0; index < calls.size(); ++index) {
      for (const Fault& fault : faultsOf(calls[index])) {
        SCOPED_TRACE(describe(life.name, calls[index], fault));
        Course course(life);
        Failure(calls, lived.fds, index, fault, course).apply();
        const Expected harmed = expected(course);
        expectOutcome(harmed, live(life, harmed.paths, fault));
        count(fault);
        if (HasFailure()) return;  // the first one is enough to look into
      }
    }
  }

  void failEveryCall(const Life& life) { torture(life, eachError); }

  static std::vector<Fault> eachError(const TracedCall& call) {
    std::vector<Fault> result;
    for (const int error : errorsOf(call)) result.push_back({call.call, call.count, error, {}});
    return result;
  }

  // A set-up's call that fails, and all of its kind after it.
  static std::vector<Fault> anErrorForGood(const TracedCall& call) {
    if (call.call == Call::kSelect || call.call == Call::kRead || call.call == Call::kGettimeofday) return {};
    return {{call.call, call.count, errorsOf(call).front(), {}, 100}};
  }

  // A wait or a read that fails twice.
  static std::vector<Fault> twoErrors(const TracedCall& call) {
    if (call.call == Call::kSelect) return {{call.call, call.count, EINTR, {}, 2}};
    if (call.call == Call::kRead) return {{call.call, call.count, EIO, {}, 2}};
    return {};
  }

  static std::vector<Fault> nothing(const TracedCall& call) {
    if (call.call != Call::kRead) return {};
    return {{call.call, call.count, 0, 0}};
  }

  // A read that gives less than a record, cut at each of its fields.
  static std::vector<Fault> partsOfARecord(const TracedCall& call) {
    if (call.call != Call::kRead) return {};
    std::vector<Fault> result;
    for (const std::size_t bytes : {std::size_t{1}, offsetof(input_event, type), offsetof(input_event, code),
                                    offsetof(input_event, value), sizeof(input_event) - 1}) {
      result.push_back({call.call, call.count, 0, bytes});
    }
    return result;
  }

  // A read that gives less than a line, cut anywhere.
  static std::vector<Fault> partsOfALine(const TracedCall& call) {
    if (call.call != Call::kRead || !call.succeeded) return {};
    std::vector<Fault> result;
    const std::size_t length = std::stoul(call.result);
    for (std::size_t bytes = 1; bytes < length; ++bytes) result.push_back({call.call, call.count, 0, bytes});
    return result;
  }

  void count(const Fault& fault) {
    ++allFaults_[fault.call];
    ++faults;
  }

  int faults = 0;  // of this test

 private:
  static void expectOutcome(const Expected& should, const Lived& lived) {
    EXPECT_EQ(lived.opened, should.opened);
    EXPECT_EQ(lived.log, comparable(should.log));
    EXPECT_EQ(lived.events, should.events);
    EXPECT_EQ(lived.end, should.end);
    if (lived.trace.empty()) return;
    const Calls calls = callsOf(lived.trace);
    expectEachIsClosedOnce(calls);
    expectTheRightWaits(lived, calls);
  }

  static inline std::map<Call, int> allFaults_;
};

// ---- Lives with each source ----

TEST_F(TortureTest, EveryCallOfALifeThatFindsNothingFailsOnce) {
  failEveryCall({"nothing", false, {}, {}, 0ms});
  EXPECT_GE(faults, 60);
}

TEST_F(TortureTest, EveryCallOfSettingUpByPathFailsOnce) {
  failEveryCall(setUp("set-up by path", false));
  EXPECT_GE(faults, 400);
}

TEST_F(TortureTest, EveryCallOfSettingUpByAutodetectionFailsOnce) {
  failEveryCall(setUp("set-up by autodetection", true));
  EXPECT_GE(faults, 1000);
}

TEST_F(TortureTest, EveryCallOfTypingFailsOnce) {
  failEveryCall(typing());
  EXPECT_GE(faults, 500);
}

TEST_F(TortureTest, EveryCallOfPointingFailsOnce) {
  failEveryCall(pointing());
  EXPECT_GE(faults, 1000);
}

TEST_F(TortureTest, EveryCallOfARemoteThatIsHeldAndReleasedFailsOnce) {
  failEveryCall(remote());
  EXPECT_GE(faults, 1000);
}

TEST_F(TortureTest, EveryCallOfAWaitForAllSourcesFailsOnce) {
  failEveryCall(allSources());
  EXPECT_GE(faults, 1000);
}

// ---- Failures that stay ----

TEST_F(TortureTest, EveryCallOfSettingUpFailsForGood) {
  torture(setUp("set-up by path", false), anErrorForGood);
  torture(setUp("set-up by autodetection", true), anErrorForGood);
  EXPECT_GE(faults, 50);
}

TEST_F(TortureTest, EveryWaitAndEveryReadFailsTwiceInARow) {
  for (const Life& life : {typing(), pointing(), remote()}) torture(life, twoErrors);
  EXPECT_GE(faults, 400);
}

// ---- Reads that give too little ----

TEST_F(TortureTest, EveryReadGivesNothingOnce) {
  for (const Life& life : {typing(), pointing(), remote(), allSources()}) torture(life, nothing);
  EXPECT_GE(faults, 300);
}

TEST_F(TortureTest, EveryReadOfARecordGivesTooLittleOnce) {
  for (const Life& life : {typing(), pointing()}) torture(life, partsOfARecord);
  EXPECT_GE(faults, 500);
}

TEST_F(TortureTest, EveryReadOfALineGivesTooLittleOnce) {
  torture(remote(), partsOfALine);
  EXPECT_GE(faults, 200);
}

// ---- The listing ----

// A node, and what the listing finds in it.
struct ListedNode {
  int number;
  std::string name;
  bool held;
  std::map<int, std::set<int>> codes;
  std::array<std::string, 4> findings;  // of a mouse, a touchscreen and a keyboard; and what went wrong with its types
  std::string types;
};

constexpr char kListingsStart[] = "Supported event types:\n";
constexpr char kNoType[] = "  Event type 0x00  (Unknown event type: 0x0000)\n";

// Only the first has everything.
const std::vector<ListedNode> kListedNodes = {
    {1,
     "All",
     false,
     {{EV_KEY, {BTN_LEFT, KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}}, {EV_REL, {REL_X, REL_Y}}, {EV_ABS, {ABS_X, ABS_Y}}},
     {"INFO Probably a mouse", "INFO Probably a touchscreen", "INFO Probably a keyboard", ""},
     std::string(kNoType) + "  Event type 0x01  (Keys or Buttons)\n  Event type 0x02  (Relative Axes)\n" +
         "  Event type 0x03  (Absolute Axes)\n"},
    {2, "Held", true, {}, {}, kNoType},
    {4,
     "Keyboard",
     false,
     {{EV_KEY, {KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN}}},
     {"", "", "INFO Probably a keyboard", ""},
     std::string(kNoType) + "  Event type 0x01  (Keys or Buttons)\n"},
    {8, "Nothing", false, {}, {}, kNoType}};

struct Listing {
  Lines log;
  std::string printed;
};

// The listing, and its calls.
std::pair<Listing, Calls> list(const std::optional<Fault>& fault) {
  resetLog();
  sim::Machine machine;
  for (const ListedNode& node : kListedNodes) {
    machine.addNode(nodePath(node.number), {node.name, node.codes}).setGrabbedElsewhere(node.held);
  }
  if (fault) machine.fail(fault->call, fault->count, fault->error);
  testing::internal::CaptureStdout();
  LinuxInputReader().listLinuxInputReader();
  std::fflush(stdout);
  const Listing listing = {takeLog(), testing::internal::GetCapturedStdout()};
  EXPECT_EQ(machine.openDescriptors(), 0);
  return {listing, callsOf(machine.takeTrace())};
}

Listing expectedListing(const std::vector<ListedNode>& nodes) {
  Listing listing;
  for (const ListedNode& node : nodes) {
    if (node.held) continue;
    listing.log.push_back("INFO " + nodePath(node.number) + ": " + node.name);
    for (const std::string& finding : node.findings) {
      if (!finding.empty()) listing.log.push_back(finding);
    }
    listing.printed += kListingsStart + node.types;
  }
  return listing;
}

// A question that fails has its error where its answer would have been, and no more follows from it.
void failQuestion(const Calls& calls, std::size_t index, ListedNode& node) {
  const auto asks = [&calls](std::size_t call, const char* what) {
    return calls[call].line.find(what) != std::string::npos;
  };
  std::string& types = node.findings[3];
  if (asks(index, "EV_REL")) node.findings[0] = "ERROR evdev ioctl failed in testRel";
  if (asks(index, "EV_ABS")) node.findings[1] = "ERROR evdev ioctl failed in testAbs";
  if (asks(index, "EVIOCGBIT(0,")) types = "ERROR evdev ioctl";
  if (!types.empty()) node.types = "";
  if (!asks(index, "EV_KEY")) return;
  const bool asKeyboard = asks(index + 1, "EVIOCGBIT(0,");
  const bool asMouse = asks(index - 1, "EV_REL");
  node.findings[asKeyboard ? 2 : asMouse ? 0 : 1] = "ERROR evdev ioctl failed in testKey";
}

void failInListing(const Calls& calls, std::size_t index, int error, std::vector<ListedNode>& nodes) {
  if (calls[index].call != Call::kOpen && calls[index].call != Call::kIoctl) return;
  const int number = nodeOf(calls, index);
  if (calls[index].call == Call::kOpen) {
    // A node without a device ends the listing.
    nodes.erase(std::remove_if(nodes.begin(), nodes.end(),
                               [&](const ListedNode& node) {
                                 return error == ENODEV ? node.number >= number : node.number == number;
                               }),
                nodes.end());
    return;
  }
  const auto node =
      std::find_if(nodes.begin(), nodes.end(), [&](const ListedNode& each) { return each.number == number; });
  if (calls[index].line.find("EVIOCGRAB, 1") != std::string::npos) {
    node->held = error != EINVAL;
  } else if (calls[index].line.find("EVIOCGNAME") != std::string::npos) {
    // The name of the node before, if any was asked for its name.
    const auto before =
        std::find_if(std::make_reverse_iterator(node), nodes.rend(), [](const ListedNode& each) { return !each.held; });
    node->name = before != nodes.rend() ? before->name : "";
  } else {
    failQuestion(calls, index, *node);
  }
}

TEST_F(TortureTest, EveryCallOfTheListingFailsOnce) {
  const auto [unharmed, calls] = list(std::nullopt);
  EXPECT_EQ(unharmed.log, expectedListing(kListedNodes).log);
  EXPECT_EQ(unharmed.printed, expectedListing(kListedNodes).printed);
  for (std::size_t index = 0; index < calls.size(); ++index) {
    for (const Fault& fault : eachError(calls[index])) {
      SCOPED_TRACE(describe("listing", calls[index], fault));
      std::vector<ListedNode> nodes = kListedNodes;
      failInListing(calls, index, fault.error, nodes);
      const auto [harmed, harmedCalls] = list(fault);
      EXPECT_EQ(harmed.log, expectedListing(nodes).log);
      EXPECT_EQ(harmed.printed, expectedListing(nodes).printed);
      expectEachIsClosedOnce(harmedCalls);
      count(fault);
      if (HasFailure()) return;
    }
  }
  EXPECT_GE(faults, 400);
}

}  // namespace
}  // namespace quarlo::test
