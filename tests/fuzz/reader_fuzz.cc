// The reader's whole life with all its sources: input of every kind, devices and daemons that come and go, faults of
// any call, and a clock that jumps, in any order.
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/fuzz/checked_reader.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {
namespace {

using std::chrono::milliseconds;

constexpr int kNodes = 2;
constexpr int kScannedPaths = components::input::kHighestScannedNode + 2;  // with one that is not scanned any more
constexpr int kMostSteps = 400;                                            // so that no input takes long
constexpr int kFaultsAhead = 24;                                           // calls

constexpr const char* kButtons[] = {"KEY_OK", "KEY_UP",      "KEY_VOLUMEUP", "KEY_NUMERIC_7", "KEY_A",
                                    "ok",     "cursor_left", "KEY_POWER",    "KEY_NOSUCH",    "\xff"};

constexpr const char* kTimeouts[] = {"", "0", "-5", "1", "450ms", "2147483647", "99999999999999999999", "x"};

// The bounds of a screen, the smallest possible ones, and some that no screen has.
constexpr std::uint32_t kBounds[] = {1279, 0, 1, 65535, 65536, 0x7fffffff, 0x80000000, 0xffffffff};

// Descriptors that the set to wait on can hold, and such as it cannot.
constexpr int kFirstDescriptors[] = {100, 1000, 1021, 1022, 1023, 1024, 5000};

constexpr sim::Call kCalls[] = {sim::Call::kOpen,    sim::Call::kClose,        sim::Call::kRead,
                                sim::Call::kIoctl,   sim::Call::kSelect,       sim::Call::kSocket,
                                sim::Call::kConnect, sim::Call::kGettimeofday, sim::Call::kGetenv};

constexpr int kErrors[] = {EINTR, EAGAIN, EIO, ENODEV, EINVAL, EBADF, ENOMEM, EMFILE, EACCES, EBUSY};

constexpr unsigned kRequests[] = {
    EVIOCGRAB, EVIOCGNAME(0), EVIOCGBIT(0, 0), EVIOCGBIT(EV_KEY, 0), EVIOCGBIT(EV_REL, 0), EVIOCGBIT(EV_ABS, 0)};

// Those that wait, with the longest that a step takes, and those that wrap or make select() fail.
constexpr int kWaits[] = {-1, 1, 10, 400, 1500, -2, INT_MIN, INT_MAX, -2147483, 2147484};

// A key of a keyboard or, by the last numbers, a button of a mouse or a touch.
std::uint16_t takeCode(InputBytes& input) {
  constexpr int kFirstButton = 0xe0;
  const auto byte = input.take<std::uint8_t>();
  if (byte == UINT8_MAX) return BTN_TOUCH;
  return static_cast<std::uint16_t>(byte < kFirstButton ? byte : BTN_MOUSE + (byte - kFirstButton) % 16);
}

// A device of any name and any capabilities.
sim::Device takeStrangeDevice(InputBytes& input) {
  sim::Device device{input.takeText(), {}};
  for (int count = input.takeBelow(16); count > 0; --count) {
    const int type = input.takeBelow(EV_CNT);
    device.codes[type].insert(input.take<std::uint16_t>());
  }
  return device;
}

sim::Device takeDevice(InputBytes& input) {
  switch (input.takeBelow(4)) {
    case 0: return sim::Device::mouse();
    case 1: return sim::Device::keyboard();
    case 2: return sim::Device::touchscreen();
    default: return takeStrangeDevice(input);
  }
}

// A machine with two devices and a daemon, and the reader on it. `input` decides what they are and do.
class World {
 public:
  explicit World(InputBytes& input) : input_(input) {
    machine_.setFirstDescriptor(input_.pick(kFirstDescriptors));
    for (int i = 0; i < kNodes; ++i) plugIn(i);
    socket_ = input_.pick(components::input::kLircSocketPaths);
    daemon_ = &machine_.addLircDaemon(socket_);
    makeReader();
  }

  void run() {
    for (int i = 0; i < kMostSteps && !input_.isEmpty(); ++i) step();
    reader_.reset();
  }

 private:
  // ---- Devices and daemons ----------------------------------------------------------------------

  // Each has paths of its own.
  void plugIn(int i) {
    paths_[i] = "/dev/input/event" + std::to_string(kNodes * input_.takeBelow(kScannedPaths / kNodes) + i);
    nodes_[i] = &machine_.addNode(paths_[i], takeDevice(input_));
  }

  void replug() {
    const int i = input_.takeBelow(kNodes);
    nodes_[i]->unplug();
    if (input_.takeBool()) plugIn(i);
  }

  void restartDaemon() {
    daemon_->stop();
    if (input_.takeBool()) socket_ = input_.pick(components::input::kLircSocketPaths);
    daemon_ = &machine_.addLircDaemon(socket_);
  }

  void obstruct() {
    sim::Node& node = takeNode();
    const int error = input_.takeBool() ? input_.pick(kErrors) : 0;
    switch (input_.takeBelow(3)) {
      case 0: node.setGrabbedElsewhere(error != 0); break;
      case 1: node.setOpenError(error); break;
      default: node.setIoctlError(input_.pick(kRequests), error);
    }
  }

  sim::Node& takeNode() { return *nodes_[input_.takeBelow(kNodes)]; }

  // ---- Input ------------------------------------------------------------------------------------

  void report() {
    sim::Node& node = takeNode();
    switch (input_.takeBelow(4)) {
      case 0: node.press(takeCode(input_)); break;
      case 1: node.release(takeCode(input_)); break;
      case 2: node.repeat(takeCode(input_)); break;
      default: move(node);
    }
  }

  void move(sim::Node& node) {
    const auto dx = input_.take<std::int8_t>();
    node.move(dx, input_.take<std::int8_t>());
  }

  void turnWheel() {
    sim::Node& node = takeNode();
    node.report(EV_REL, REL_WHEEL, input_.take<std::int8_t>());
    node.report(EV_SYN, SYN_REPORT, 0);
  }

  void inject() {
    sim::Node& node = takeNode();
    const int type = input_.takeBelow(EV_CNT);
    const auto code = input_.take<std::uint16_t>();
    const auto value = input_.take<std::int32_t>();
    for (int count = 1 + input_.takeBelow(64); count > 0; --count) node.inject(type, code, value);
    node.inject(EV_SYN, SYN_REPORT, 0);
  }

  void sendButton() {
    const char* button = input_.pick(kButtons);
    daemon_->send(button, static_cast<unsigned>(input_.takeBelow(3)));
  }

  void flood() {
    constexpr std::size_t kLongestLine = 40;  // bytes, so that the flood is soon read
    const std::string text = input_.takeText().substr(0, kLongestLine);
    for (int count = 2 * input_.take<std::uint8_t>(); count > 0; --count) daemon_->sendText(text);
  }

  // Input that comes while the reader waits.
  void schedule() {
    const milliseconds delay(input_.take<std::uint16_t>() % 1000);
    sim::Node& node = takeNode();
    const std::uint16_t code = takeCode(input_);
    switch (input_.takeBelow(4)) {
      case 0: machine_.after(delay, [&node, code] { node.press(code); }); break;
      case 1: machine_.after(delay, [daemon = daemon_] { daemon->send("KEY_OK", 1); }); break;
      case 2: machine_.after(delay, [&node] { node.unplug(); }); break;
      default: machine_.signalAfter(delay);
    }
  }

  // ---- Faults -----------------------------------------------------------------------------------

  void fail() {
    const sim::Call call = input_.pick(kCalls);
    const int count = 1 + input_.takeBelow(kFaultsAhead);
    machine_.fail(call, count, input_.pick(kErrors));
  }

  void truncateRead() {
    const int count = 1 + input_.takeBelow(kFaultsAhead);
    machine_.truncateRead(count, input_.take<std::uint8_t>());
  }

  // ---- The reader -------------------------------------------------------------------------------

  void makeReader() {
    reader_.reset();
    const char* mouse = input_.takeBool() ? paths_[0].c_str() : nullptr;
    const char* keyboard = input_.takeBool() ? paths_[1].c_str() : nullptr;
    const char* socket = input_.takeBool() ? socket_ : nullptr;
    const std::uint32_t width = input_.pick(kBounds);
    const std::uint32_t height = input_.pick(kBounds);
    const bool wereHeld[] = {nodes_[0]->isGrabbed(), nodes_[1]->isGrabbed()};
    reader_.emplace(machine_);
    reader_->init(mouse, keyboard, socket, width, height);
    for (int i = 0; i < kNodes; ++i) require(nodes_[i]->isGrabbed() == wereHeld[i], "the reader holds no node");
  }

  void setTimeout() {
    const char* name = input_.takeBool() ? "LIRC_REPEAT_TIMEOUT" : "LIRC_RELEASE_TIMEOUT";
    machine_.setEnvironment(name, input_.pick(kTimeouts));
  }

  // As the application's loop does.
  void readAll() {
    constexpr int kRoundMs = 10;
    for (int timeoutMs = kRoundMs; reader_->readInput(timeoutMs);) timeoutMs = 0;
  }

  void step() {
    switch (input_.takeBelow(19)) {
      case 0: reader_->readInput(0); break;
      case 1: readAll(); break;
      case 2: reader_->readInput(input_.pick(kWaits)); break;
      case 3: reader_->readInput(input_.take<std::uint8_t>()); break;
      case 4: report(); break;
      case 5: turnWheel(); break;
      case 6: inject(); break;
      case 7: sendButton(); break;
      case 8: daemon_->sendText(input_.takeText()); break;
      case 9: flood(); break;
      case 10: schedule(); break;
      case 11: replug(); break;
      case 12: restartDaemon(); break;
      case 13: obstruct(); break;
      case 14: fail(); break;
      case 15: truncateRead(); break;
      case 16: machine_.advance(milliseconds(input_.take<std::uint16_t>() % 1000)); break;
      case 17: machine_.jump(milliseconds(input_.take<std::int32_t>())); break;
      default: changeReader();
    }
  }

  void changeReader() {
    switch (input_.takeBelow(4)) {
      case 0: reader_->listLinuxInputReader(); break;
      case 1: setTimeout(); break;
      case 2: daemon_->hangUp(); break;
      default: makeReader();
    }
  }

  InputBytes& input_;
  FreshMachine machine_;
  std::string paths_[kNodes];
  sim::Node* nodes_[kNodes] = {};
  const char* socket_ = nullptr;
  sim::LircDaemon* daemon_ = nullptr;
  std::optional<CheckedReader> reader_;
};

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quarlo::fuzz::InputBytes input(data, size);
  quarlo::fuzz::World(input).run();
  return 0;
}
