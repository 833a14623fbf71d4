// The loop's whole life: input of every kind at any time, sources that go, faults of any of its calls, a clock that
// jumps, and a reader that is used directly in between.
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "input/input_loop.h"
#include "sim/machine.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {
namespace {

using components::input::InputLoop;
using components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;
using std::chrono::milliseconds;

constexpr char kMousePath[] = "/dev/input/event0";
constexpr char kKeyboardPath[] = "/dev/input/event1";
constexpr char kSocket[] = "/run/lircd";
constexpr int kMaxX = 1279;
constexpr int kMaxY = 719;

constexpr int kMostSteps = 400;    // so that no input takes long
constexpr int kFaultsAhead = 24;   // calls
constexpr int kMostUnread = 60;    // records of a node, so that its queue does not overflow
constexpr int kMostWaits = 20000;  // of a life: more than all that it can send

constexpr std::uint16_t kCodes[] = {REL_X,         REL_Y,          REL_WHEEL,     REL_HWHEEL,  KEY_A,
                                    KEY_LEFTSHIFT, KEY_RIGHTSHIFT, KEY_RIGHTCTRL, KEY_LEFTALT, KEY_NUMLOCK,
                                    BTN_LEFT,      BTN_RIGHT,      BTN_SIDE,      BTN_TOUCH,   BTN_TOOL_FINGER};
constexpr const char* kButtons[] = {"KEY_OK", "KEY_UP", "KEY_VOLUMEUP", "KEY_NOSUCH", "\xff"};
constexpr const char* kTimeouts[] = {"", "1", "450ms", "2147483647", "x"};
constexpr sim::Call kCalls[] = {sim::Call::kPoll,  sim::Call::kRead,  sim::Call::kRecv,
                                sim::Call::kPipe2, sim::Call::kWrite, sim::Call::kGettimeofday};
constexpr int kErrors[] = {EINTR, EAGAIN, EIO, ENODEV, EINVAL, EBADF, ENOMEM, EMFILE};
constexpr int kBits[] = {POLLIN, POLLHUP, POLLERR, POLLIN | POLLHUP, POLLNVAL, 0};

// Whether it is a key to the class, which takes touches and a block of codes for buttons.
bool isKey(int code) {
  constexpr int kLastButton = 287;
  return code != BTN_TOUCH && code != BTN_TOOL_FINGER && (code < BTN_MOUSE || code > kLastButton);
}

class LoopLife {
 public:
  explicit LoopLife(InputBytes& input) : input_(input) {
    machine_.setEnvironment("LIRC_REPEAT_TIMEOUT", input_.pick(kTimeouts));
    machine_.setEnvironment("LIRC_RELEASE_TIMEOUT", input_.pick(kTimeouts));
    reader_.emplace();
    reader_->init(kMousePath, kKeyboardPath, kSocket, kMaxX, kMaxY);
    loop_.emplace(*reader_);
    loop_->generation();
  }

  void run() {
    for (int i = 0; i < kMostSteps && !input_.isEmpty(); ++i) step();
    takeTheRest();
    loop_.reset();
    reader_.reset();
    require(machine_.openDescriptors() == 0, "all descriptors are closed at the end");
  }

 private:
  // ---- What is sent -----------------------------------------------------------------------------

  struct SentNode {
    sim::Node* node;
    int unread = 0;
  };

  void inject(int type, int code, int value) {
    SentNode& sent = nodes_[input_.takeBool() ? 1 : 0];
    if (sent.unread >= kMostUnread) return;
    sent.unread += 2;
    sent.node->inject(type, code, value);
    sent.node->inject(EV_SYN, SYN_REPORT, 0);
    if (type == EV_KEY && isKey(code)) ++keysSent_;
  }

  void injectKnown() {
    const std::uint16_t code = input_.pick(kCodes);
    const int type = code <= REL_WHEEL ? EV_REL : EV_KEY;
    inject(type, code, input_.take<std::int8_t>());
  }

  void injectAny() {
    const int type = input_.takeBelow(EV_CNT);
    const auto code = input_.take<std::uint16_t>();
    inject(type, code, input_.take<std::int32_t>());
  }

  void injectMany() {
    const auto code = input_.take<std::uint8_t>();
    for (int count = input_.takeBelow(30); count > 0; --count) inject(EV_MSC, code, count);
  }

  void send() {
    hasLines_ = true;
    switch (input_.takeBelow(3)) {
      case 0: daemon_.send(input_.pick(kButtons), static_cast<unsigned>(input_.takeBelow(3))); break;
      case 1: daemon_.sendText(input_.takeText()); break;
      default: {
        const char* button = input_.pick(kButtons);
        for (int count = input_.takeBelow(8); count > 0; --count) daemon_.send(button);
      }
    }
  }

  // ---- What goes wrong --------------------------------------------------------------------------

  void fail() {
    isExact_ = false;
    const sim::Call call = input_.pick(kCalls);
    const int count = 1 + input_.takeBelow(kFaultsAhead);
    machine_.fail(call, count, input_.pick(kErrors));
  }

  void cutRead() {
    isExact_ = false;
    const int count = 1 + input_.takeBelow(kFaultsAhead);
    const auto bytes = input_.take<std::uint8_t>();
    machine_.truncateRead(count, bytes, input_.takeBool() ? sim::Call::kRead : sim::Call::kRecv);
  }

  void end() {
    isExact_ = false;
    switch (input_.takeBelow(3)) {
      case 0: nodes_[0].node->unplug(); break;
      case 1: nodes_[1].node->unplug(); break;
      default: daemon_.hangUp();
    }
  }

  // ---- The loop ---------------------------------------------------------------------------------

  void wait(int timeoutMs) {
    const auto start = machine_.now();
    const InputLoop::Wake wake = loop_->wait(timeoutMs);
    require(machine_.now() - start <= milliseconds(timeoutMs) + milliseconds(1), "a wait is no longer than it is told");
    require((wake.gone & reported_) == 0, "a source that is gone is reported once");
    reported_ |= wake.gone;
    require((reported_ & ~loop_->gone()) == 0, "what is reported as gone is gone");
    require(!wake.input || loop_->timeoutMs() == 0, "where there is input, nobody sleeps");
    require(!wake.ownFd, "no descriptor that was not given is ready");
  }

  bool takeOne(bool everything) {
    InputEvent event = {};
    isOfReader_ = isHeldByReader_ && reader_->hasPendingEvent;
    const bool isTaken = everything ? loop_->nextRecord(event) : loop_->next(event);
    isHeldByReader_ = isHeldByReader_ && reader_->hasPendingEvent;
    if (!isTaken || !everything) {
      require(isTaken == (event.kind != InputEvent::kNoEvent), "next() returns true with an event only");
    }
    if (isTaken) checkEvent(event);
    return isTaken;
  }

  void takeRound(bool everything) {
    while (takeOne(everything)) {
    }
  }

  void takeFew() {
    const bool everything = input_.takeBool();
    for (int count = input_.takeBelow(4); count > 0 && takeOne(everything); --count) {
    }
  }

  void readDirectly() {
    if (hasLines_) isExact_ = false;                // keys of the remote cannot be told from others
    if (loop_->timeoutMs() == 0) isExact_ = false;  // as the loop's header says: not within a round
    if (!reader_->hasPendingEvent) reader_->pendingEvent.kind = InputEvent::kNoEvent;
    InputEvent event = {};
    event.kind = InputEvent::kNoEvent;
    if (reader_->readInput(event, 0) && event.kind == InputEvent::kKeyEvent) ++keysTaken_;
    isHeldByReader_ = true;
  }

  // As an application that goes on does, until nothing is left.
  void takeTheRest() {
    int waits = 0;
    for (wait(0); loop_->timeoutMs() == 0; wait(0)) {
      takeRound(false);
      require(++waits < kMostWaits, "the loop does not spin");
    }
    if (isExact_) require(keysTaken_ == keysSent_, "each key comes, and comes once");
  }

  void setReady() {
    const int fds[] = {reader_->keyboardFd, reader_->mouseFd, reader_->lircFd, -1, 4711};
    const int fd = input_.pick(fds);
    loop_->setReady(fd, input_.pick(kBits));
  }

  // ---- What must hold ---------------------------------------------------------------------------

  void checkEvent(const InputEvent& event) {
    const InputLoop::Source source = loop_->source();
    require(source <= InputLoop::kRemote, "an event has a source");
    switch (event.kind) {
      case InputEvent::kKeyEvent: checkKey(event.keyData, source); break;
      case InputEvent::kMouseEvent: checkMouse(event.mouseData, source); break;
      case InputLoop::kWheelEvent: checkWheel(event.mouseData, source); break;
      default: require(event.kind == InputEvent::kNoEvent, "an event is of a known kind");
    }
  }

  void checkKey(const InputEvent::KeyData& key, InputLoop::Source source) {
    require(key.action == InputEvent::KeyData::kDown || key.action == InputEvent::KeyData::kUp, "a key is up or down");
    require(key.modifiers <= 7, "modifiers are known ones");
    if (source == InputLoop::kRemote) {
      require(key.action == InputEvent::KeyData::kDown && key.modifiers == 0, "a remote has key-downs only");
      return;
    }
    ++keysTaken_;
    require(isOfReader_ || key.modifiers == reader_->modifiers, "an event has the modifiers that are held");
    require(isOfReader_ || loop_->cause().record.type == EV_KEY, "a key comes of a key's record");
  }

  void checkMouse(const InputEvent::MouseData& mouse, InputLoop::Source source) const {
    require(source != InputLoop::kRemote, "a remote has no pointer");
    require(mouse.x <= kMaxX && mouse.y <= kMaxY, "the pointer is on the screen");
    require(mouse.button >= 0 && mouse.button <= 3, "a button is a known one");
    const bool isMove = mouse.action == InputEvent::MouseData::kMove;
    require(isOfReader_ || isMove == (loop_->cause().record.type == EV_REL), "a move comes of motion");
    require(isMove ? mouse.clicks == 0 : mouse.button != 0, "a press is of a button, and a move has no clicks");
  }

  void checkWheel(const InputEvent::MouseData& wheel, InputLoop::Source source) const {
    require(source != InputLoop::kRemote, "a remote has no wheel");
    require(wheel.action == InputLoop::kVertical || wheel.action == InputLoop::kHorizontal, "a wheel has an axis");
    require(wheel.button != 0 && wheel.clicks == 0, "a wheel's event has steps");
    require(wheel.button == loop_->cause().record.value, "a wheel's steps are those of its record");
  }

  void step() {
    switch (input_.takeBelow(16)) {
      case 0: injectKnown(); break;
      case 1: injectKnown(); break;
      case 2: injectAny(); break;
      case 3: injectMany(); break;
      case 4: send(); break;
      case 5: fail(); break;
      case 6: cutRead(); break;
      case 7: end(); break;
      case 8: machine_.jump(milliseconds(input_.take<std::int32_t>())); break;
      case 9: machine_.advance(milliseconds(input_.take<std::uint16_t>() % 1000)); break;
      case 10: loop_->setBound(input_.takeBelow(40), input_.takeBelow(8)); break;
      case 11: setReady(); break;
      case 12: readDirectly(); break;
      case 13: takeFew(); break;
      default: lookAndTake();
    }
  }

  void lookAndTake() {
    if (input_.takeBool()) {
      loop_->setAllReady();
    } else {
      if (input_.takeBool()) machine_.signalAfter(milliseconds(input_.take<std::uint8_t>()));
      wait(input_.take<std::uint8_t>());
    }
    takeRound(input_.takeBool());
    if (loop_->timeoutMs() == 0) return;
    for (SentNode& node : nodes_) node.unread = 0;
  }

  InputBytes& input_;
  FreshMachine machine_;
  SentNode nodes_[2] = {{&machine_.addNode(kMousePath, sim::Device::mouse())},
                        {&machine_.addNode(kKeyboardPath, sim::Device::keyboard())}};
  sim::LircDaemon& daemon_ = machine_.addLircDaemon(kSocket);
  std::optional<LinuxInputReader> reader_;
  std::optional<InputLoop> loop_;
  InputLoop::SourceSet reported_ = 0;
  bool isExact_ = true;  // nothing has gone wrong, so that nothing may be missing
  bool hasLines_ = false;
  bool isHeldByReader_ = false;  // what the slot holds: the loop does not know what it came of
  bool isOfReader_ = false;      // so does this event
  int keysSent_ = 0;
  int keysTaken_ = 0;
};

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarlo::fuzz::InputBytes input(data, size);
  quarlo::fuzz::LoopLife(input).run();
  return 0;
}
