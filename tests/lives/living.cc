#include "tests/lives/living.h"

#include <linux/input.h>
#include <poll.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <utility>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/unit/test_log.h"

namespace quarlo::test::lives {
namespace {

using namespace std::chrono_literals;
using namespace components::input;
using sim::Device;

constexpr char kMouse[] = "/dev/input/event0";
constexpr char kKeyboard[] = "/dev/input/event1";
constexpr char kNowhere[] = "/dev/input/event9";
constexpr char kSocket[] = "/run/lircd";
constexpr int kMaxX = 1280;
constexpr int kMaxY = 720;

// An event as the application presets it: what is not written shows.
InputEvent preset() {
  InputEvent event = untouched();
  event.kind = InputEvent::kNoEvent;
  return event;
}

// ---- The machine --------------------------------------------------------------------------------

// Its calls take no time. What lives before this one have done does not matter.
class World {
 public:
  explicit World(const Life& life, const char* keyboardPath = kKeyboard) {
    machine.setTracing(false);
    machine.setCallTime(0us);
    if (!life.releaseTimeout.empty()) machine.setEnvironment(kReleaseTimeoutVariable, life.releaseTimeout);
    if (!life.repeatTimeout.empty()) machine.setEnvironment(kRepeatTimeoutVariable, life.repeatTimeout);
    forgetClicks();
    reader.emplace();
    reader->init(kMouse, keyboardPath, kSocket, kMaxX, kMaxY);
  }

  // The next machine starts after the latest time of this one.
  ~World() { machine.jumpClock(-jumped_); }

  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // REQUIRES: the step is not a round
  void happens(const Step& step) {
    switch (step.kind) {
      case Step::kRecord: nodes[step.node]->inject(step.type, step.code, step.value); break;
      case Step::kText: daemon.sendText(step.text); break;
      case Step::kUnplug: nodes[step.node]->unplug(); break;
      case Step::kHangUp: daemon.hangUp(); break;
      case Step::kPass: machine.advance(step.time); break;
      default: machine.jumpClock(step.time); jumped_ += step.time;
    }
  }

  Fields fields() const {
    return {reader->pointerX,        reader->pointerY,
            reader->pressedButton,   static_cast<std::int64_t>(reader->modifiers),
            reader->numLock ? 1 : 0, reader->lircKey,
            reader->lircChar,        reader->lircRepeatMode ? 1 : 0,
            reader->lircTimeout,     reader->hasPendingEvent ? 1 : 0};
  }

  sim::Machine machine;
  sim::Node* nodes[2] = {&machine.addNode(kKeyboard, Device{}), &machine.addNode(kMouse, Device{})};
  sim::LircDaemon& daemon = machine.addLircDaemon(kSocket);
  std::optional<LinuxInputReader> reader;

 private:
  // The second round's presses come too late to be double clicks.
  void forgetClicks() {
    LinuxInputReader other;
    for (int round = 0; round < 2; ++round) {
      for (const int button : {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}) {
        input_event press = makeEvdevRecord(EV_KEY, button, 1);
        InputEvent event;
        other.translateEvent(&press, event);
      }
      machine.advance(1s);
    }
  }

  microseconds jumped_{0};
};

void add(Events& events, int round, const InputEvent& event) {
  if (event.kind != InputEvent::kNoEvent) events.push_back({round, bytesOf(event)});
}

}  // namespace

InputEvent Given::event() const {
  InputEvent event;
  std::memcpy(static_cast<void*>(&event), bytes.data(), bytes.size());
  return event;
}

std::string text(const Outcome& outcome) {
  std::string lines;
  for (const Given& given : outcome.events) {
    lines += "round " + std::to_string(given.round) + ": " + test::text(given.event());
    for (const unsigned byte : given.bytes) lines += " " + std::to_string(byte);
    lines += "\n";
  }
  lines += "at the end:";
  for (const std::int64_t field : outcome.end) lines += " " + std::to_string(field);
  return lines + "\n";
}

// ---- The class ----------------------------------------------------------------------------------

Outcome liveWithReader(const Life& life) {
  World world(life);
  Outcome outcome;
  int round = 0;
  for (const Step& step : life.steps) {
    if (step.kind != Step::kRound) {
      world.happens(step);
      continue;
    }
    ++round;
    for (;;) {
      InputEvent event = preset();
      if (!world.reader->readInput(event, 0)) break;
      add(outcome.events, round, event);
    }
  }
  outcome.end = world.fields();
  return outcome;
}

// ---- The class without its surprises ------------------------------------------------------------

namespace {

// A touchpad's second code for a touch is kept from the class, which would take it for another press.
class OneTouch {
 public:
  bool keeps(const Step& step) {
    if (step.kind != Step::kRecord || step.type != EV_KEY) return false;
    if (step.code != BTN_TOUCH && step.code != BTN_TOOL_FINGER) return false;
    isDown_[step.code == BTN_TOUCH] = step.value != 0;
    return isDown_[step.code != BTN_TOUCH];
  }

 private:
  bool isDown_[2] = {};
};

// The class gets one line at a time, whole or as much of it as it reads at once. Of the rest of one that is longer it
// gets no more than that there is something.
class OneLine {
 public:
  void add(const std::string& bytes) { text_ += bytes; }

  // "": there is no whole line
  std::string take() {
    const std::size_t size = std::min(text_.find('\n'), kLircReadSize - 1) + 1;
    if (text_.size() < size) return "";
    const std::string line = text_.substr(0, size);
    text_.erase(0, size);
    return std::exchange(isRest_, line.back() != '\n') ? "\n" : line;
  }

 private:
  std::string text_;
  bool isRest_ = false;
};

// A modifier stays while its other key is down. The class's events of keys are those of the keyboard's records, in
// their order.
class Twins {
 public:
  void sent(const Step& step) {
    if (step.kind == Step::kRecord && step.node == kKeyboardNode && step.type == EV_KEY) keys_.push_back(step);
  }

  void correct(InputEvent& event, LinuxInputReader& reader) {
    const Step& key = keys_.at(next_++);
    const LinuxInputReader::Modifier modifier = LinuxInputReader::getModifier(key.code);
    if (modifier == 0) return;
    std::vector<int>& down = down_[modifier];
    down.erase(std::remove(down.begin(), down.end(), key.code), down.end());
    if (key.value != 0) down.push_back(key.code);
    if (down.empty()) return;
    reader.modifiers |= modifier;
    event.keyData.modifiers |= modifier;
  }

 private:
  std::vector<Step> keys_;
  std::size_t next_ = 0;
  std::array<std::vector<int>, 5> down_;  // by modifier
};

bool isOfRemote(const InputEvent& event) {
  return event.kind == InputEvent::kKeyEvent && event.keyData.key >= msg::KeyInput::kRed;
}

class WithoutSurprises {
 public:
  explicit WithoutSurprises(const Life& life) : world_(life) {
    for (const Step& step : life.steps) {
      if (step.kind == Step::kRound) {
        readRound();
      } else if (step.kind == Step::kText) {
        if (!isHungUp_) line_.add(step.text);
      } else if (step.kind == Step::kHangUp) {
        isHungUp_ = true;
      } else if (!touch_.keeps(step)) {
        twins_.sent(step);
        world_.happens(step);
      }
    }
    outcome_.end = world_.fields();
  }

  const Outcome& outcome() const { return outcome_; }

 private:
  void readRound() {
    ++round_;
    std::string line = line_.take();
    sendBeforeTheEnd(line);
    for (;;) {
      InputEvent event = preset();
      const bool isTrue = readOne(event);
      const bool isLineRead = !line.empty() && (!isTrue || isOfRemote(event));
      if (isLineRead) {
        line = line_.take();
        sendBeforeTheEnd(line);
      }
      if (!isTrue && line.empty()) return;
    }
  }

  // What a daemon sends before it ends is read.
  void sendBeforeTheEnd(const std::string& line) {
    if (!line.empty()) world_.daemon.sendText(line);
    if (isHungUp_ && line.empty()) world_.daemon.hangUp();
  }

  bool readOne(InputEvent& event) {
    LinuxInputReader& reader = *world_.reader;
    // What a wheel brings back is told from an event, as the document says.
    if (!reader.hasPendingEvent) reader.pendingEvent.kind = InputEvent::kNoEvent;
    if (!reader.readInput(event, 0)) return false;
    if (event.kind == InputEvent::kKeyEvent && !isOfRemote(event)) twins_.correct(event, reader);
    add(outcome_.events, round_, event);
    return true;
  }

  World world_;
  Outcome outcome_;
  OneTouch touch_;
  OneLine line_;
  Twins twins_;
  bool isHungUp_ = false;
  int round_ = 0;
};

}  // namespace

Outcome liveWithoutSurprises(const Life& life) { return WithoutSurprises(life).outcome(); }

// ---- The loop -----------------------------------------------------------------------------------

namespace {

void look(InputLoop& loop, std::uint64_t how) {
  pollfd fds[InputLoop::kMaxDescriptors];
  switch (how % 3) {
    case 0: loop.wait(0); break;
    case 1: loop.setAllReady(); break;
    default: {
      const int count = loop.descriptors(fds);
      poll(fds, static_cast<nfds_t>(count), 0);
      for (int i = 0; i < count; ++i) loop.setReady(fds[i].fd, fds[i].revents);
    }
  }
}

bool takeOne(InputLoop& loop, InputEvent& event, std::uint64_t how) {
  return how % 2 == 0 ? loop.next(event) : loop.nextRecord(event);
}

void takeRound(InputLoop& loop, std::uint64_t seed, int round, Outcome& outcome) {
  look(loop, seed);
  for (;;) {
    InputEvent event = preset();
    if (!takeOne(loop, event, seed / 3)) break;
    add(outcome.events, round, event);
    outcome.causes.push_back(loop.cause());
  }
}

}  // namespace

Outcome liveWithLoop(const Life& life) {
  World world(life);
  InputLoop loop(*world.reader);
  loop.setBound(0, 0);
  Outcome outcome;
  int round = 0;
  for (const Step& step : life.steps) {
    if (step.kind == Step::kRound) {
      takeRound(loop, life.seed, ++round, outcome);
    } else {
      world.happens(step);
    }
  }
  outcome.end = world.fields();
  return outcome;
}

Outcome liveWithSources(const Life& life, Keyboard keyboard, int bound) {
  const bool isFurther = keyboard == Keyboard::kFurtherNode;
  InputSources::FurtherNode further;
  World world(life, isFurther ? kNowhere : kKeyboard);
  InputLoop loop(*world.reader);
  loop.setBound(bound, InputLoop::kDefaultBoundMs);
  InputSources sources(loop);
  if (isFurther) {
    sources.join(further);
    sources.open(further.source(), kKeyboard);
  }
  Outcome outcome;
  int round = 0;
  for (const Step& step : life.steps) {
    if (step.kind != Step::kRound) {
      world.happens(step);
      continue;
    }
    sources.attend(-1);
    takeRound(loop, life.seed, ++round, outcome);
    outcome.isHarmed = outcome.isHarmed || sources.lost() != 0 || loop.gone() != 0;
  }
  sources.attend(-1);
  outcome.isHarmed = outcome.isHarmed || sources.lost() != 0;
  outcome.end = world.fields();
  return outcome;
}

}  // namespace quarlo::test::lives
