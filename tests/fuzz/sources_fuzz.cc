// The whole life of InputSources: nodes that overflow, go and come back, a daemon that restarts, grabs of both sides, a
// clock that jumps, and faults of any call in between. When all has gone at the end, nothing may be down.
#include <linux/input.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "sim/machine.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {
namespace {

using components::input::InputLoop;
using components::input::InputSources;
using components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;
using Source = InputSources::Source;
using std::chrono::milliseconds;

constexpr const char* kPaths[] = {"/dev/input/event0", "/dev/input/event1", "/dev/input/event2", "/dev/input/event3"};
constexpr int kNodes = 4;  // the keyboard, the mouse, and two further nodes
constexpr int kSources = InputLoop::kFurther + 2;
constexpr char kSocket[] = "/run/lircd";

constexpr int kMostSteps = 300;    // so that no input takes long
constexpr int kFaultsAhead = 24;   // calls
constexpr int kMostWaits = 20000;  // of a life: more than all that it can send

constexpr int kCodes[] = {KEY_A,       KEY_NUMLOCK, KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_LEFTCTRL,
                          KEY_LEFTALT, BTN_LEFT,    BTN_RIGHT,     BTN_TOUCH,      KEY_MAX};
constexpr sim::Call kCalls[] = {sim::Call::kOpen,  sim::Call::kClose,   sim::Call::kFstat,        sim::Call::kIoctl,
                                sim::Call::kPoll,  sim::Call::kRead,    sim::Call::kRecv,         sim::Call::kSocket,
                                sim::Call::kPipe2, sim::Call::kConnect, sim::Call::kGettimeofday, sim::Call::kWrite};
// Without EBADF, which says that the application has closed it.
constexpr int kErrors[] = {EINTR, EAGAIN, EIO, ENODEV, EINVAL, ENOMEM, EMFILE, ENOTTY, EBUSY};
constexpr unsigned kRequests[] = {EVIOCGRAB, EVIOCGVERSION, EVIOCGKEY(0), EVIOCGLED(0)};

sim::Device deviceOf(int index) {
  sim::Device device;
  for (const int code : kCodes) device.codes[EV_KEY].insert(code);
  device.codes[EV_MSC] = {MSC_SCAN};
  device.codes[EV_LED] = {LED_NUML};
  if (index == 1) device.codes[EV_REL] = {REL_X, REL_Y, REL_WHEEL};
  if (index == 2) device.codes[EV_REP] = {REP_DELAY};
  return device;
}

class SourcesLife {
 public:
  explicit SourcesLife(InputBytes& input) : input_(input) {
    for (int i = 0; i < kNodes; ++i) nodes_[i] = &machine_.addNode(kPaths[i], deviceOf(i));
    reader_.init(kPaths[InputLoop::kMouse], kPaths[InputLoop::kKeyboard], kSocket, 1279, 719);
    for (InputSources::FurtherNode& further : further_) require(sources_.join(further), "there is room for two");
  }

  void run() {
    for (int i = 0; i < kMostSteps && !input_.isEmpty(); ++i) step();
    takeTheRest();
  }

 private:
  // ---- What happens -----------------------------------------------------------------------------

  void step() {
    switch (input_.takeBelow(19)) {
      case 0:
      case 1:
      case 2: report(); break;
      case 3: tap(); break;
      case 4: inject(); break;
      case 5: move(); break;
      case 6: plug(); break;
      case 7: grabElsewhere(); break;
      case 8: ofTheDaemon(); break;
      case 9: fail(); break;
      case 10: refuse(); break;
      case 11: machine_.jump(milliseconds(input_.take<std::int32_t>())); break;
      case 12: machine_.advance(milliseconds(input_.take<std::uint16_t>() % 1000)); break;
      case 13: open(); break;
      case 14: keepOpen(); break;
      case 15: grab(); break;
      case 16: loop_.setBound(input_.takeBelow(20), input_.takeBelow(8)); break;
      case 17: attendOften(); break;
      default: round(input_.take<std::uint8_t>());
    }
  }

  sim::Node& node() { return *nodes_[input_.takeBelow(kNodes)]; }

  static void send(sim::Node& node, int type, int code, int value) {
    node.report(type, code, value);
    node.report(EV_SYN, SYN_REPORT, 0);
  }

  void report() {
    sim::Node& sender = node();
    const int code = input_.pick(kCodes);
    send(sender, EV_KEY, code, input_.takeBelow(3));
  }

  void tap() {
    sim::Node& sender = node();
    const int code = input_.pick(kCodes);
    for (int count = input_.takeBelow(70); count > 0; --count) {
      send(sender, EV_KEY, code, 1);
      send(sender, EV_KEY, code, 0);
    }
  }

  // Any record, without a report, so that what is asked for can be ahead of what is readable.
  void inject() {
    sim::Node& sender = node();
    const int type = input_.takeBelow(EV_CNT);
    const auto code = input_.take<std::uint16_t>();
    sender.inject(type, code, input_.take<std::int8_t>());
    if (input_.takeBool()) sender.inject(EV_SYN, SYN_REPORT, 0);
  }

  void move() {
    sim::Node& sender = node();
    send(sender, EV_REL, input_.takeBool() ? REL_X : REL_WHEEL, input_.take<std::int8_t>());
  }

  void plug() {
    const int index = input_.takeBelow(kNodes);
    nodes_[index]->unplug();
    nodes_[index] = &machine_.addNode(kPaths[index], deviceOf(index));
  }

  void grabElsewhere() {
    sim::Node& grabbed = node();
    grabbed.setGrabbedElsewhere(input_.takeBool());
  }

  void ofTheDaemon() {
    switch (input_.takeBelow(4)) {
      case 0: daemon_->sendText(input_.takeText()); break;
      case 1: daemon_->hangUp(); break;
      case 2:
        daemon_->stop();
        daemon_ = &machine_.addLircDaemon(kSocket);
        break;
      default: daemon_->send("KEY_UP", static_cast<unsigned>(input_.takeBelow(3)));
    }
  }

  void fail() {
    const sim::Call call = input_.pick(kCalls);
    const int count = 1 + input_.takeBelow(kFaultsAhead);
    machine_.fail(call, count, input_.pick(kErrors));
  }

  void refuse() {
    sim::Node& refusing = node();
    if (input_.takeBool()) {
      refusing.cutStates(input_.take<std::uint8_t>());
    } else {
      const unsigned request = input_.pick(kRequests);
      refusing.setIoctlError(request, input_.takeBool() ? input_.pick(kErrors) : 0);
    }
  }

  // ---- The application --------------------------------------------------------------------------

  Source source() { return static_cast<Source>(input_.takeBelow(kSources)); }

  const char* pathOf(Source source) {
    if (source == InputLoop::kRemote) return kSocket;
    return input_.pick(kPaths);
  }

  void open() {
    const Source which = source();
    const char* const path = pathOf(which);
    errno = 0;
    const bool isOpen = sources_.open(which, path);
    require(isOpen || errno != 0, "who does not open says why");
    if (isOpen && input_.takeBool() && which != InputLoop::kRemote) sources_.adopt(which);
  }

  void keepOpen() {
    const Source which = source();
    const char* const path = pathOf(which);
    sources_.keepOpen(which, input_.takeBool() ? path : nullptr, 1 + input_.take<std::uint8_t>());
  }

  void grab() {
    const Source which = source();
    if (which == InputLoop::kRemote) return;
    const bool on = input_.takeBool();
    const bool isDone = sources_.grab(which, on);
    require(isDone == (sources_.isGrabbed(which) == on), "it says whether it is done");
  }

  int attend(int timeoutMs) {
    const int waitMs = sources_.attend(timeoutMs);
    require(waitMs >= -1 && (timeoutMs < 0 || waitMs <= timeoutMs), "nobody is told to wait longer than he may");
    pollfd fds[InputLoop::kMaxDescriptors];
    const int pipes = machine_.count(sim::Call::kPipe2) > 0 ? 2 : 0;
    require(machine_.openDescriptors() - loop_.descriptors(fds) <= pipes, "no descriptor leaks");
    for (int source = 0; source < kSources; ++source) {
      if ((sources_.opened() >> source & 1) != 0 && source != InputLoop::kRemote)
        sources_.adopt(static_cast<Source>(source));
    }
    return waitMs;
  }

  void attendOften() {
    for (int count = input_.takeBelow(4); count > 0; --count) attend(-1);
  }

  // Returns whether there was something to do.
  bool round(int timeoutMs) {
    const int waitMs = attend(timeoutMs);
    const auto start = machine_.now();
    const InputLoop::Wake wake = loop_.wait(waitMs);
    require(machine_.now() - start <= milliseconds(waitMs) + milliseconds(1), "a wait is no longer than it is told");
    require(!wake.input || loop_.timeoutMs() == 0, "where there is input, nobody sleeps");
    InputEvent event = {};
    const bool takesRecords = input_.takeBool();
    while (takesRecords ? loop_.nextRecord(event) : loop_.next(event)) checkEvent(event);
    const bool goesOn = loop_.timeoutMs() == 0;
    require(goesOn || reader_.modifiers == modifiersDown(), "the modifiers are those that are down");
    return wake.input || wake.gone != 0 || goesOn;
  }

  // As an application that goes on does, until nothing is left.
  void takeTheRest() {
    for (sim::Node* node : nodes_) node->unplug();
    int waits = 0;
    while (round(0)) require(++waits < kMostWaits, "the application does not spin");
    attend(0);
    for (int source = 0; source < kSources; ++source) {
      if (source == InputLoop::kRemote) continue;
      for (const int code : kCodes) {
        require(!sources_.isDown(static_cast<Source>(source), static_cast<unsigned>(code)),
                "what has gone holds nothing");
      }
      require(!sources_.isGrabbed(static_cast<Source>(source)), "what has gone is not grabbed");
    }
  }

  // ---- What must hold ---------------------------------------------------------------------------

  LinuxInputReader::Modifier modifiersDown() const {
    LinuxInputReader::Modifier modifiers = 0;
    for (int source = 0; source < kSources; ++source) {
      for (int code = 0; source != InputLoop::kRemote && code <= KEY_RIGHTALT; ++code) {
        if (sources_.isDown(static_cast<Source>(source), static_cast<unsigned>(code))) {
          modifiers |= LinuxInputReader::getModifier(code);
        }
      }
    }
    return modifiers;
  }

  void checkEvent(const InputEvent& event) const {
    const InputLoop::Cause& cause = loop_.cause();
    require(cause.source < kSources, "an event has a source");
    if (event.kind == InputEvent::kKeyEvent) {
      const bool isDown = event.keyData.action == InputEvent::KeyData::kDown;
      require(cause.source == InputLoop::kRemote || isDown == (cause.record.value != 0), "a key is up or down");
    } else if (event.kind == InputEvent::kMouseEvent) {
      require(cause.source != InputLoop::kRemote, "a remote has no pointer");
    } else {
      require(event.kind == InputEvent::kNoEvent || event.kind == InputLoop::kWheelEvent,
              "an event is of a known kind");
    }
  }

  InputBytes& input_;
  FreshMachine machine_;
  sim::Node* nodes_[kNodes] = {};
  sim::LircDaemon* daemon_ = &machine_.addLircDaemon(kSocket);
  LinuxInputReader reader_;
  InputSources::FurtherNode further_[2];
  InputLoop loop_{reader_};
  InputSources sources_{loop_};
};

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarlo::fuzz::InputBytes input(data, size);
  quarlo::fuzz::SourcesLife(input).run();
  return 0;
}
