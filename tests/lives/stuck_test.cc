// Nothing stays stuck in random lives: once all has been taken, what is down for the application is what is down on the
// nodes that are open, nothing has leaked, and it sleeps.

#include <gtest/gtest.h>
#include <linux/input.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "sim/machine.h"
#include "tests/lives/life.h"
#include "tests/lives/stuck_life.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test::lives {
namespace {

using components::input::InputLoop;
using components::input::InputSources;
using std::chrono::milliseconds;

constexpr std::uint64_t kLives = QUARLO_LIVES / 10;

constexpr char kSocket[] = "/run/lircd";
constexpr int kMostRounds = 400;  // until an application rests: more than all that can be there takes
constexpr int kLongestSleepMs = 100;
constexpr milliseconds kLongestRetry{1000};

std::string pathOf(int number) { return "/dev/input/event" + std::to_string(number); }

bool isTouch(int code) { return code == BTN_TOUCH || code == BTN_TOOL_FINGER; }

// Both codes of a touch are one press.
int pressOf(int code) { return isTouch(code) ? BTN_TOUCH : code; }

bool isIn(InputLoop::SourceSet set, int place) { return (set >> place & 1) != 0; }

// ---- Devices ------------------------------------------------------------------------------------

Device deviceOf(int place) {
  Device device;
  device.codes[EV_KEY].insert(std::begin(kKeysOfNodes), std::end(kKeysOfNodes));
  if (place == InputLoop::kMouse) device.codes[EV_REL] = {REL_X, REL_Y};
  device.codes[EV_MSC] = {MSC_SCAN};
  return device;
}

// A device that has come, with what is down on it.
class Plugged {
 public:
  Plugged(sim::Node& node, int number) : node_(node), number_(number) {}

  int number() const { return number_; }
  bool isThere() const { return isThere_; }
  bool isElsewhere() const { return isElsewhere_; }
  bool isGrabbedHere() const { return node_.isGrabbed() && !isElsewhere_; }
  const std::set<int>& down() const { return down_; }

  // How often keys have gone down, without touches, of which two can be one.
  int presses() const { return presses_; }

  void set(int code, bool isDown) {
    if (!isSending() || (down_.count(code) != 0) == isDown) return;
    if (isDown) {
      down_.insert(code);
      if (!isTouch(code)) ++presses_;
    } else {
      down_.erase(code);
    }
    send(EV_KEY, code, isDown ? 1 : 0);
  }

  void repeat(int code) {
    if (isSending() && down_.count(code) != 0 && code < BTN_MISC) send(EV_KEY, code, 2);
  }

  // A scan code for each report that a plain keyboard cannot have.
  void move() {
    if (!isSending()) return;
    node_.report(EV_MSC, MSC_SCAN, 1);
    send(EV_REL, REL_X, 1);
  }

  void unplug() {
    if (isThere_) node_.unplug();
    isThere_ = false;
  }

  void grabElsewhere() {
    if (!isThere_ || isGrabbedHere()) return;
    isElsewhere_ = !isElsewhere_;
    node_.setGrabbedElsewhere(isElsewhere_);
  }

 private:
  // What is typed while another process has the grab is not told to anybody.
  bool isSending() const { return isThere_ && !isElsewhere_; }

  void send(int type, int code, int value) {
    node_.report(type, code, value);
    node_.report(EV_SYN, SYN_REPORT, 0);
  }

  sim::Node& node_;
  int number_;
  bool isThere_ = true;
  bool isElsewhere_ = false;
  std::set<int> down_;
  int presses_ = 0;
};

// ---- The machine --------------------------------------------------------------------------------

class StuckMachine {
 public:
  explicit StuckMachine(const StuckLife& life) {
    machine.setTracing(false);
    machine.setCallTime(0us);
    for (int place = 0; place < InputLoop::kFurther + life.furtherNodes; ++place) {
      if (place != InputLoop::kRemote) plug(place, place);
    }
  }
  ~StuckMachine() { machine.jumpClock(-jumped_); }
  StuckMachine(const StuckMachine&) = delete;
  StuckMachine& operator=(const StuckMachine&) = delete;

  // What stands in no relation to the application. REQUIRES: the step is neither its own nor kPlug
  void happens(const StuckStep& step) {
    switch (step.kind) {
      case StuckStep::kPress: at(step).set(step.code, true); break;
      case StuckStep::kRelease: at(step).set(step.code, false); break;
      case StuckStep::kRepeat: at(step).repeat(step.code); break;
      case StuckStep::kTaps: tap(at(step), step.code, step.count); break;
      case StuckStep::kMoves: move(at(step), step.count); break;
      case StuckStep::kUnplug: at(step).unplug(); break;
      case StuckStep::kGrabElsewhere: at(step).grabElsewhere(); break;
      case StuckStep::kLines: sendLines(step.count); break;
      case StuckStep::kHangUp: daemon_->hangUp(); break;
      case StuckStep::kDaemonStops: stopDaemon(); break;
      case StuckStep::kDaemonStarts: startDaemon(); break;
      case StuckStep::kPass: machine.advance(1ms * step.count); break;
      default: machine.jumpClock(1ms * step.count); jumped_ += 1ms * step.count;
    }
  }

  // Returns whether it has come.
  bool plug(int place, int number) {
    if (isThere(places_[place]) || isThere(numbers_[number])) return false;
    sim::Node& node = machine.addNode(pathOf(number), deviceOf(place));
    places_[place] = numbers_[number] = std::make_shared<Plugged>(node, number);
    return true;
  }

  const std::shared_ptr<Plugged>& atNumber(int number) const { return numbers_[number]; }

  sim::Machine machine;

 private:
  static bool isThere(const std::shared_ptr<Plugged>& device) { return device != nullptr && device->isThere(); }

  Plugged& at(const StuckStep& step) { return *places_[step.place]; }

  static void tap(Plugged& device, int code, int count) {
    for (; count > 0; --count) {
      device.set(code, true);
      device.set(code, false);
    }
  }

  static void move(Plugged& device, int count) {
    for (; count > 0; --count) device.move();
  }

  void sendLines(int count) {
    for (; count > 0; --count) daemon_->send("KEY_UP");
  }

  void stopDaemon() {
    isRunning_ = false;
    daemon_->stop();
  }

  void startDaemon() {
    if (!isRunning_) daemon_ = &machine.addLircDaemon(kSocket);
    isRunning_ = true;
  }

  sim::LircDaemon* daemon_ = &machine.addLircDaemon(kSocket);
  bool isRunning_ = true;
  std::shared_ptr<Plugged> places_[kPlaces];
  std::shared_ptr<Plugged> numbers_[kNumbers];
  microseconds jumped_{0};
};

// ---- The application ----------------------------------------------------------------------------

class Application {
 public:
  Application(const StuckLife& life, StuckMachine& world)
      : life_(life), world_(world), loop_(initialised()), sources_(loop_) {
    loop_.setBound(life.bound, InputLoop::kDefaultBoundMs);
    for (int place = 0; place < placeCount(); ++place) {
      if (place >= InputLoop::kFurther) sources_.join(further_[place - InputLoop::kFurther]);
      learnPath(place, place);
      if (place < InputLoop::kFurther) {
        hasOpened(place);
      } else {
        open(place);
      }
    }
  }

  // What is wrong; "" if nothing is.
  const std::string& wrong() const { return wrong_; }

  void happens(const StuckStep& step) {
    switch (step.kind) {
      case StuckStep::kPlug:
        if (world_.plug(step.place, step.count)) learnPath(step.place, step.count);
        break;
      case StuckStep::kHangUp:
      case StuckStep::kDaemonStops:
        isRemoteOpen_ = false;
        world_.happens(step);
        break;
      case StuckStep::kOpen: open(step.place); break;
      case StuckStep::kGrab: grab(step.place); break;
      case StuckStep::kRound: round(); break;
      case StuckStep::kRest: rest(); break;
      default: world_.happens(step);
    }
  }

  // Goes on for as long as the slowest retry takes. What can be opened is open then.
  void goOn() {
    const auto end = world_.machine.now() + kLongestRetry;
    int rounds = 0;
    while (world_.machine.now() < end && wrong_.empty()) {
      rest();
      require(++rounds <= 2 * kLongestRetry / 1ms, "it does not sleep");
    }
    rest();
    for (int place = 0; place < placeCount(); ++place) {
      require(life_.everyMs[place] == 0 || !canBeOpened(place), "source " + std::to_string(place) + " was not opened");
    }
  }

 private:
  InputSources::Source source(int place) const { return static_cast<InputSources::Source>(place); }

  int placeCount() const { return InputLoop::kFurther + life_.furtherNodes; }

  LinuxInputReader& initialised() {
    reader_.init(pathOf(InputLoop::kMouse).c_str(), pathOf(InputLoop::kKeyboard).c_str(), kSocket, 1280, 720);
    return reader_;
  }

  void require(bool holds, const std::string& what) {
    if (!holds && wrong_.empty()) wrong_ = what;
  }

  // ---- Opening ----------------------------------------------------------------------------------

  void learnPath(int place, int number) {
    numbers_[place] = number;
    paths_.push_back(place == InputLoop::kRemote ? kSocket : pathOf(number));
    if (life_.everyMs[place] != 0) sources_.keepOpen(source(place), paths_.back().c_str(), life_.everyMs[place]);
  }

  void open(int place) {
    const bool isThere = canBeOpened(place);
    const std::string path = place == InputLoop::kRemote ? kSocket : pathOf(numbers_[place]);
    if (sources_.open(source(place), path.c_str())) return hasOpened(place);
    require(!isThere || errno == EBUSY, "source " + std::to_string(place) + " does not open");
  }

  // It takes over what is down.
  void hasOpened(int place) {
    require(!isOpen(place), "source " + std::to_string(place) + " was open");
    if (place == InputLoop::kRemote) {
      isRemoteOpen_ = true;
      return;
    }
    const std::shared_ptr<Plugged>& device = world_.atNumber(numbers_[place]);
    require(device != nullptr && device->isThere() && !isUsed(*device), "what was opened is not there, or is a source");
    open_[place] = device;
    require(sources_.adopt(source(place)), "what was opened does not say what is down");
    for (const int code : device->down()) down_[place].insert(pressOf(code));
    told_[place] = device->presses();
  }

  bool isOpen(int place) const {
    return place == InputLoop::kRemote ? isRemoteOpen_ : open_[place] != nullptr && open_[place]->isThere();
  }

  bool isUsed(const Plugged& device) const {
    return std::any_of(std::begin(open_), std::end(open_), [&](const auto& open) { return open.get() == &device; });
  }

  bool canBeOpened(int place) const {
    if (place == InputLoop::kRemote || isOpen(place)) return false;
    const std::shared_ptr<Plugged>& device = world_.atNumber(numbers_[place]);
    return device != nullptr && device->isThere() && !isUsed(*device);
  }

  // ---- Grabs ------------------------------------------------------------------------------------

  void grab(int place) {
    isWanted_[place] = !isWanted_[place];
    sources_.grab(source(place), isWanted_[place]);
    checkGrab(place);
  }

  void checkGrab(int place) {
    const bool isGrabbed = isOpen(place) && open_[place]->isGrabbedHere();
    const bool hasChanged = isGrabbed != wasGrabbed_[place];
    wasGrabbed_[place] = isGrabbed;
    if (!isOpen(place)) return;
    require(sources_.isGrabbed(source(place)) == isGrabbed, "it knows whether a node is grabbed");
    require(!hasChanged || open_[place]->down().empty(), "a node is not grabbed or given back while a key is down");
    require(!hasChanged || isGrabbed == isWanted_[place], "a node is grabbed only if that is wanted");
  }

  // ---- Rounds -----------------------------------------------------------------------------------

  // Returns whether there was something to do, so that it would not have slept.
  bool round() {
    attendMs_ = sources_.attend(-1);
    unsettled_ |= sources_.lost();
    require((orphans_ & ~unsettled_) == 0, "an up follows a down, where nothing was lost");
    orphans_ = 0;
    for (int place = 0; place < placeCount(); ++place) {
      if (isIn(sources_.opened(), place)) hasOpened(place);
      if (place != InputLoop::kRemote) checkGrab(place);
    }
    const bool isAwake = look() || attendMs_ == 0;
    InputEvent event = untouched();
    while (life_.takesRecords ? loop_.nextRecord(event) : loop_.next(event)) take(event);
    return isAwake;
  }

  bool look() {
    if (life_.waiting == Waiting::kWithLoop) {
      const InputLoop::Wake wake = loop_.wait(0);
      return wake.input || wake.gone != 0 || loop_.timeoutMs() == 0;
    }
    return sleepElsewhere(0);
  }

  // Returns whether there is something to do.
  bool sleepElsewhere(int timeoutMs) {
    if (loop_.generation() != generation_) {
      generation_ = loop_.generation();
      count_ = loop_.descriptors(fds_);
    }
    const bool isReady = poll(fds_, static_cast<nfds_t>(count_), timeoutMs) > 0 || loop_.timeoutMs() == 0;
    if (life_.waiting == Waiting::kWithoutNames) {
      loop_.setAllReady();
    } else {
      for (int i = 0; i < count_; ++i) loop_.setReady(fds_[i].fd, fds_[i].revents);
    }
    return isReady;
  }

  void take(const InputEvent& event) {
    const InputLoop::Cause& cause = loop_.cause();
    if (event.kind == InputEvent::kNoEvent || cause.source == InputLoop::kRemote || cause.record.type != EV_KEY) return;
    const bool isKey = event.kind == InputEvent::kKeyEvent;
    const bool isDown = isKey ? event.keyData.action == InputEvent::KeyData::kDown
                              : event.mouseData.action == InputEvent::MouseData::kButtonDown;
    require(isDown == (cause.record.value != 0), "an event says what its record says");
    const bool isMadeUp = cause.record.input_event_sec == 0;
    std::set<int>& down = down_[cause.source];
    const int code = pressOf(cause.record.code);
    if (isDown) {
      const bool isNew = down.insert(code).second;
      if (isNew && !isTouch(code)) ++told_[cause.source];
    } else if (down.erase(code) == 0) {
      // Where a down was lost, the up behind it can still be there.
      require(!isMadeUp, "an up that is made up follows a down");
      orphans_ |= InputLoop::SourceSet{1} << cause.source;
    }
  }

  // ---- Rest -------------------------------------------------------------------------------------

  void rest() {
    int rounds = 0;
    while (wrong_.empty() && round()) require(++rounds < kMostRounds, "it comes to rest");
    if (!wrong_.empty()) return;
    require((orphans_ & ~unsettled_) == 0, "an up follows a down, where nothing was lost");
    LinuxInputReader::Modifier modifiers = 0;
    for (int place = 0; place < placeCount(); ++place) {
      if (place != InputLoop::kRemote) checkNode(place, modifiers);
      const bool isTried = life_.everyMs[place] != 0 && !isOpen(place);
      const bool isTriedInTime = attendMs_ > 0 && static_cast<unsigned>(attendMs_) <= life_.everyMs[place];
      require(!isTried || isTriedInTime, "a source that is closed is tried in time: " + std::to_string(place));
    }
    require(reader_.modifiers == modifiers, "the modifiers are those that are down");
    require(isRemoteOpen_ || reader_.lircKey == 0, "no key is held of a remote that is gone");
    checkDescriptors();
    unsettled_ = 0;
    sleep();
  }

  void checkNode(int place, LinuxInputReader::Modifier& modifiers) {
    const std::string name = ", source " + std::to_string(place);
    const std::set<int> down = isOpen(place) ? open_[place]->down() : std::set<int>();
    std::set<int> presses;
    for (const int code : down) {
      presses.insert(pressOf(code));
      modifiers |= LinuxInputReader::getModifier(code);
    }
    require(down_[place] == presses, "what the events say is down is down" + name);
    for (const int code : kKeysOfNodes) {
      const bool isDown = sources_.isDown(source(place), static_cast<unsigned>(code));
      require(isDown == (down.count(code) != 0), "what it says is down is down" + name);
    }
    if (!isOpen(place)) return;
    require(isIn(unsettled_, place) || told_[place] == open_[place]->presses(), "what was not lost comes" + name);
    told_[place] = open_[place]->presses();
    if (!down.empty() || open_[place]->isElsewhere()) return;
    require(open_[place]->isGrabbedHere() == isWanted_[place], "who is wanted gets it" + name);
  }

  void checkDescriptors() {
    int open = world_.machine.count(sim::Call::kPipe2) > 0 ? 2 : 0;
    for (int place = 0; place < placeCount(); ++place) open += isOpen(place) ? 1 : 0;
    require(world_.machine.openDescriptors() == open, "what is open is what is there");
  }

  // For as long as it may, and no shorter.
  void sleep() {
    int timeoutMs = kLongestSleepMs;
    for (const int dueMs : {attendMs_, loop_.timeoutMs()}) {
      if (dueMs >= 0) timeoutMs = std::min(timeoutMs, dueMs);
    }
    const microseconds before = world_.machine.now();
    if (life_.waiting == Waiting::kWithLoop) {
      loop_.wait(timeoutMs);
    } else {
      sleepElsewhere(timeoutMs);
    }
    require(world_.machine.now() - before == 1ms * timeoutMs, "it sleeps");
    InputEvent event = untouched();
    require(!loop_.next(event), "sleep gives nothing");
  }

  const StuckLife& life_;
  StuckMachine& world_;
  LinuxInputReader reader_;
  InputSources::FurtherNode further_[InputLoop::kMostFurtherNodes];
  InputLoop loop_;
  InputSources sources_;
  int numbers_[kPlaces] = {};      // of the nodes that it opens
  std::deque<std::string> paths_;  // all that it has had
  std::shared_ptr<Plugged> open_[kPlaces];
  bool isRemoteOpen_ = false;
  std::set<int> down_[kPlaces];  // as the events say
  int told_[kPlaces] = {};       // how many presses of the device that is open
  bool isWanted_[kPlaces] = {};
  bool wasGrabbed_[kPlaces] = {};
  InputLoop::SourceSet unsettled_ = 0;  // records were lost since the last rest
  InputLoop::SourceSet orphans_ = 0;    // an up came for which there was no down
  int attendMs_ = -1;
  pollfd fds_[InputLoop::kMaxDescriptors] = {};  // what it waits for elsewhere, since the generation
  int count_ = 0;
  std::uint32_t generation_ = 0;
  std::string wrong_;
};

// Returns what is wrong with it; "" if nothing is.
std::string live(const StuckLife& life) {
  StuckMachine world(life);
  std::string wrong;
  {
    Application application(life, world);
    for (const StuckStep& step : life.steps) {
      application.happens(step);
      if (!application.wrong().empty()) return application.wrong();
    }
    application.goOn();
    wrong = application.wrong();
  }
  if (wrong.empty() && world.machine.openDescriptors() != 0) wrong = "all is closed at the end";
  return wrong;
}

// Leaves out what it does not take for something to be wrong.
StuckLife shortened(StuckLife life) {
  for (std::size_t i = life.steps.size(); i-- > 0;) {
    StuckLife shorter = life;
    shorter.steps.erase(shorter.steps.begin() + static_cast<std::ptrdiff_t>(i));
    if (!live(shorter).empty()) life = shorter;
  }
  return life;
}

class StuckLives : public testing::Test {
 protected:
  StuckLives() {
    resetLog();
    setMinLogLevel(3);
    setVlogLevel(0);
  }
};

TEST_F(StuckLives, LeaveNothingDownAndNothingOpenAndLetItSleep) {
  for (std::uint64_t seed = 0; seed < kLives; ++seed) {
    const StuckLife life = stuckLife(seed);
    if (live(life).empty()) continue;
    const StuckLife shorter = shortened(life);
    FAIL() << live(shorter) << "\n" << text(shorter);
  }
}

}  // namespace
}  // namespace quarlo::test::lives
