#include "tests/torture/model.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "input/linux_input_reader_limits.h"

namespace quarlo::test::torture {

using namespace components::input;
using namespace std::chrono_literals;

namespace {

// ---- Opening ------------------------------------------------------------------------------------

// The search for a device, by its description: from the highest number down, the first node that opens, that nobody has
// grabbed, and that suits. Returns its path, or "" for none.
std::string search(Source wanted, const Course& course, Lines& log) {
  const std::string kind = wanted == kMouse ? "mouse" : "keyboard";
  std::string name;
  for (const SearchedNode& node : searchedNodes()) {
    const auto has = [&](Flaw flaw) { return course.flaws.count({wanted, node.number, flaw}) != 0; };
    const bool held = has(Flaw::kIsHeld) || (node.held && !has(Flaw::kCannotBeHeld));
    if (held || has(Flaw::kDoesNotOpen)) continue;
    // A node without a name has that of the node before.
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
  for (const std::size_t place : kDaemonPlaces) {
    if (course.failedConnections.count(place) != 0) continue;
    std::string path = kLircSocketPaths[place];
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

// ---- Reading ------------------------------------------------------------------------------------

// Whoever has grabbed a node gets all that it sends.
bool isHeldElsewhere(const std::string& path) {
  return std::any_of(searchedNodes().begin(), searchedNodes().end(),
                     [&path](const SearchedNode& node) { return node.held && nodePath(node.number) == path; });
}

// Before everything that happens in a life.
constexpr milliseconds kLongAgo{-1'000'000};

// What the records of mouse and keyboard give when each report is read by itself.
class DeviceModel {
 public:
  explicit DeviceModel(Outcome& outcome) : outcome_(outcome) {}

  // `clockFails` for the click that it makes.
  void take(const Record& record, bool clockFails) {
    const input_event& event = record.event;
    if (event.type == EV_REL) {
      int& place = event.code == REL_X ? x : y;
      place = std::clamp(place + event.value, 0, event.code == REL_X ? kMaxX : kMaxY);
      moved_ = true;
    } else if (event.type == EV_KEY) {
      giveMotion();
      event.code >= BTN_MOUSE ? giveButton(record, clockFails) : giveKey(event);
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

  void giveButton(const Record& record, bool clockFails) {
    const int number = record.event.code - BTN_LEFT + 1;
    Clicks& clicks = clicks_[number];
    const bool pressed = record.event.value != 0;
    button = pressed ? number : 0;
    if (pressed) {
      // A clock that fails reads as time zero: before the last click, which counts as soon after it.
      const bool inTime = record.at - clicks.last < milliseconds(kClickWindowMs);
      clicks.count = clockFails || inTime ? clicks.count + 1 : 1;
      clicks.last = clockFails ? kLongAgo : record.at;
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
      : course_(course),
        repeatTimeout_(course.repeatTimeout),
        releaseTimeout_(course.releaseTimeout),
        outcome_(outcome) {}

  void takeAll() {
    const std::size_t lines = std::min(course_.life.lines.size(), course_.readable[kRemote]);
    for (std::size_t index = 0; index < lines; ++index) {
      if (course_.unseenLine == index || course_.swallowedLine == index) continue;
      watchBefore(index);
      if (course_.cutLine && course_.cutLine->line == index) {
        takeInPieces(index, course_.cutLine->bytes);
      } else {
        const bool takesNext = course_.swallowedLine == index + 1;
        logString(textOf(course_.life.lines[index]) + (takesNext ? textOf(course_.life.lines[index + 1]) : ""));
        take(index);
      }
    }
    if (course_.jump && course_.jump->line >= lines) watchUntil(course_.jump->at);
    watchUntil(course_.life.end);
  }

  int key = 0;

 private:
  void log(const std::string& message) { outcome_.log.push_back("VERBOSE10 " + message); }
  void logString(const std::string& text) { outcome_.log.push_back("VERBOSE2 LIRC string: " + text); }

  // Nobody looks between lines that come together.
  void watchBefore(std::size_t index) {
    if (course_.jump && course_.jump->line == index) watchUntil(course_.jump->at);
    const milliseconds at = course_.life.lines[index].at;
    if (std::exchange(lastLine_, at) != at) watchUntil(at);
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

  // What follows the name does not matter, nor does the code before the first space.
  void takeInPieces(std::size_t index, std::size_t bytes) {
    const std::string text = textOf(course_.life.lines[index]);
    logString(text.substr(0, bytes));
    if (bytes > text.rfind(' ')) take(index);
    logString(text.substr(bytes));
    if (bytes <= text.find(' ')) take(index);
  }

  void take(std::size_t index) {
    const RemoteLine& line = course_.life.lines[index];
    const bool repeated = line.repeat != 0 && line.key == key;
    // A clock that fails reads as time zero: before the key was accepted.
    const bool tooClose = course_.readLineWithoutTime == index || line.at < accepted_ + timeout_;
    if (repeated && tooClose) {
      log("LIRC keypress skipped - too close.");
      return;
    }
    if (!repeated) repeating_ = false;
    accepted_ = course_.acceptedLineWithoutTime == index ? kLongAgo : line.at;
    timeout_ = repeating_ ? repeatTimeout_ : releaseTimeout_;
    key = line.key;
    log("LIRC KEYDOWN");
    log("LIRC timeout " + std::to_string(timeout_ / 1ms) + "ms.");
    outcome_.events[kRemote].push_back(keyDown(line.key));
  }

  const Course& course_;
  milliseconds repeatTimeout_;
  milliseconds releaseTimeout_;
  Outcome& outcome_;
  milliseconds accepted_ = kLongAgo;
  milliseconds timeout_{0};
  bool repeating_ = false;
  milliseconds lastLine_ = kLongAgo;
};

}  // namespace

Expected expected(const Course& course) {
  Expected result;
  result.paths = openSources(course, result.log);
  for (std::size_t source = 0; source < kSources; ++source) result.opened[source] = !result.paths[source].empty();

  DeviceModel devices(result);
  for (const Source source : {kMouse, kKeyboard}) {
    if (!result.opened[source] || isHeldElsewhere(result.paths[source])) continue;
    const std::vector<Record>& records = course.life.records[source];
    for (std::size_t i = 0; i < std::min(records.size(), course.readable[source]); ++i) {
      devices.take(records[i], source == kMouse && course.clickWithoutTime == i);
    }
  }
  RemoteModel remote(course, result);
  if (result.opened[kRemote]) remote.takeAll();
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

}  // namespace quarlo::test::torture
