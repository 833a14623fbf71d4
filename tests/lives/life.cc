#include "tests/lives/life.h"

#include <linux/input.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <set>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"

namespace quarlo::test::lives {
namespace {

using namespace std::chrono_literals;
using namespace components::input;

constexpr int kLastSideButton = 287;
constexpr int kMostOfABurst = 30;  // records, more than a drain takes: two fit into the queue of a node

constexpr const char* kTimeouts[] = {"1", "20", "100", "450ms", "2147483647", "99999999999999999999", "0", "-5", "x"};
constexpr const char* kRepeatCounts[] = {"00", "00", "00", "01", "02", "0a", "0", "", "000"};
constexpr int kSteps[] = {1, -1, 3, -7, 40, -40, 127, 0, INT_MAX, INT_MIN};
constexpr int kOtherTypes[] = {EV_SYN, EV_SYN, EV_ABS, EV_MSC, EV_SW, EV_LED, EV_REP, 99};

// What a round waits for: the limits of clicks and of the remote, and times around them.
constexpr microseconds kPauses[] = {0us,   1ms,   20ms,  99ms,  100ms, 101ms, 200ms, 299ms,
                                    300ms, 301ms, 399ms, 400ms, 401ms, 500ms, 700ms, 1500us};

// What lives of both kinds do.
class Author {
 public:
  explicit Author(std::uint64_t seed) : dice(seed) { life_.seed = seed; }

 protected:
  Life write() {
    if (dice.oneIn(3)) life_.releaseTimeout = dice.pick(kTimeouts);
    if (dice.oneIn(3)) life_.repeatTimeout = dice.pick(kTimeouts);
    for (int rounds = dice.between(2, 5); rounds > 0; --rounds) {
      writeRound();
      life_.steps.push_back({Step::kRound});
      passTime();
    }
    life_.steps.push_back({Step::kRound});
    return std::move(life_);
  }

  virtual void writeRound() = 0;

  void record(Node node, int type, int code, int value) {
    life_.steps.push_back({Step::kRecord, node, type, code, value});
  }

  void send(const std::string& bytes) { life_.steps.push_back({Step::kText, {}, 0, 0, 0, {}, bytes}); }

  void happens(Step::Kind kind, Node node = kKeyboardNode) { life_.steps.push_back({kind, node}); }

  std::string line(const std::string& button) {
    return "0000000000f40bf0 " + std::string(dice.pick(kRepeatCounts)) + " " + button + " myremote\n";
  }

  Dice dice;
  Life life_;

 private:
  void passTime() {
    const microseconds pause = dice.oneIn(4) ? microseconds(dice.below(1'000'000)) : dice.pick(kPauses);
    life_.steps.push_back({Step::kPass, {}, 0, 0, 0, pause});
    if (!dice.oneIn(8)) return;
    // By seconds, or so far that the milliseconds of the jump do not fit into 32 bits.
    const int by = dice.oneIn(2) ? dice.between(-3000, 3000) : dice.between(-100'000'000, 2'000'000'000);
    life_.steps.push_back({Step::kJump, {}, 0, 0, 0, 1ms * by});
  }
};

// ---- Plain lives --------------------------------------------------------------------------------

class PlainAuthor final : public Author {
 public:
  using Author::Author;

  Life life() {
    touchNode_ = takeNode();
    touch_ = dice.oneIn(2) ? BTN_TOUCH : BTN_TOOL_FINGER;
    constexpr int kTwins[][2] = {
        {KEY_LEFTCTRL, KEY_RIGHTCTRL}, {KEY_LEFTSHIFT, KEY_RIGHTSHIFT}, {KEY_LEFTALT, KEY_RIGHTALT}};
    for (std::size_t i = 0; i < modifiers_.size(); ++i) modifiers_[i] = {takeNode(), dice.pick(kTwins[i])};
    return write();
  }

 private:
  struct Modifier {
    Node node;
    int code;
  };

  // What can be there to read from a node.
  struct Queue {
    int size;        // records
    int others;      // those of them that are not keys
    bool hasMotion;  // with no key behind it
    bool isOpen;     // no report is behind it
  };

  Node takeNode() { return dice.oneIn(2) ? kKeyboardNode : kMouseNode; }

  void writeRound() override {
    for (int actions = dice.below(5); actions > 0; --actions) writeAction();
    if (dice.oneIn(2)) sendLine();
    for (Queue& queue : queues_) {
      if (queue.isOpen) continue;
      queue.others = std::max(0, queue.others - kRecordsPerDrain);
      queue.size = queue.others;
      if (queue.others == 0) queue.hasMotion = false;
    }
  }

  void writeAction() {
    const Node node = takeNode();
    if (queues_[node].size > kMostOfABurst) return;
    switch (dice.below(8)) {
      case 0: press(node, dice.between(KEY_ESC, KEY_MICMUTE)); break;
      case 1: press(node, dice.oneIn(4) ? dice.pick({0, 0x2ff, 0x300, 0xffff}) : dice.below(KEY_MAX)); break;
      case 2: press(node, dice.pick({BTN_LEFT, BTN_RIGHT, BTN_MIDDLE})); break;
      case 3: move(node); break;
      case 4: pressModifier(); break;
      case 5: press(touchNode_, touch_); break;
      case 6: press(node, dice.pick({KEY_NUMLOCK, KEY_KP7, int{BTN_SIDE}, kLastSideButton})); break;
      default: sendOthers(node);
    }
    if (!dice.oneIn(8)) end(node);
  }

  void press(Node node, int code) {
    const bool isTouch = code == BTN_TOUCH || code == BTN_TOOL_FINGER;
    if (isTouch && (code != touch_ || node != touchNode_)) return;
    if (LinuxInputReader::getModifier(code) != 0 && !isModifier(node, code)) return;
    const bool isButton = isTouch || (code >= BTN_MOUSE && code <= kLastSideButton);
    const int value = dice.pick({0, 0, 1, 1, 1, 2, -1});
    const bool givesNothing = isButton && (value == 2 || (!isTouch && code > BTN_MIDDLE));
    if (givesNothing && queues_[node].hasMotion) return;
    record(node, EV_KEY, code, value);
    ++queues_[node].size;
    queues_[node].hasMotion = false;
    queues_[node].isOpen = true;
  }

  bool isModifier(Node node, int code) const {
    return std::any_of(modifiers_.begin(), modifiers_.end(),
                       [=](const Modifier& modifier) { return modifier.node == node && modifier.code == code; });
  }

  void pressModifier() {
    const Modifier& modifier = modifiers_[static_cast<std::size_t>(dice.below(3))];
    press(modifier.node, modifier.code);
    end(modifier.node);
  }

  void move(Node node) {
    for (int steps = dice.between(1, 3); steps > 0; --steps) {
      other(node, EV_REL, dice.oneIn(2) ? REL_X : REL_Y, dice.pick(kSteps));
    }
    queues_[node].hasMotion = true;
  }

  void sendOthers(Node node) {
    const int type = dice.pick(kOtherTypes);
    for (int count = dice.oneIn(4) ? dice.between(4, kMostOfABurst) : 1; count > 0; --count) {
      other(node, type, dice.below(5), dice.below(3));
    }
  }

  void end(Node node) {
    other(node, EV_SYN, SYN_REPORT, 0);
    queues_[node].isOpen = false;
  }

  void other(Node node, int type, int code, int value) {
    record(node, type, code, value);
    ++queues_[node].others;
    ++queues_[node].size;
    queues_[node].isOpen = true;
  }

  // Alone, and no longer than what is read at once.
  void sendLine() {
    switch (dice.below(8)) {
      case 0: return send(line("KEY_FOO"));
      case 1: return send(line(std::string(1, static_cast<char>(dice.between('\n' + 1, 255)))));
      case 2:
        return send(dice.pick({"\n", "BEGIN\n", " \n", "a 00 \n", "a 00 KEY_UP\n", "a  KEY_UP \n", "a 00 x  y\n"}));
      case 3: return send(std::string(static_cast<std::size_t>(dice.below(100)), 'x') + " 00 UP y\n");
      default: return send(line(dice.pick({"KEY_UP", "KEY_UP", "KEY_UP", "KEY_DOWN", "key_numeric_7", "Power", "ok"})));
    }
  }

  Node touchNode_ = kMouseNode;
  int touch_ = 0;
  std::array<Modifier, 3> modifiers_ = {};
  std::array<Queue, 2> queues_ = {};  // by node
};

// ---- Odd lives ----------------------------------------------------------------------------------

class OddAuthor final : public Author {
 public:
  using Author::Author;

  Life life() {
    overflows_ = dice.oneIn(8);
    return write();
  }

 private:
  void writeRound() override {
    others_ = {};
    for (int actions = dice.below(7); actions > 0; --actions) writeAction();
    if (dice.oneIn(2)) sendText();
    if (dice.oneIn(32)) happens(Step::kUnplug, dice.oneIn(2) ? kKeyboardNode : kMouseNode);
    if (dice.oneIn(32)) happens(Step::kHangUp);
  }

  void writeAction() {
    constexpr int kKeys[] = {KEY_Q, KEY_1, KEY_F1, KEY_KP7, KEY_NUMLOCK, KEY_UNKNOWN, KEY_ENTER};
    switch (dice.below(7)) {
      case 0: press(kKeyboardNode, dice.pick(kKeys)); break;
      case 1: pressModifier(); break;
      case 2: press(kMouseNode, dice.pick({BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE, BTN_TASK, 0x11f})); break;
      case 3: press(kMouseNode, dice.oneIn(2) ? BTN_TOUCH : BTN_TOOL_FINGER); break;
      case 4: turn(dice.pick({REL_WHEEL, REL_WHEEL, REL_HWHEEL, REL_WHEEL_HI_RES, REL_DIAL, REL_MISC})); break;
      default: turn(dice.oneIn(2) ? REL_X : REL_Y);
    }
  }

  void press(Node node, int code) {
    record(node, EV_KEY, code, dice.pick({0, 0, 0, 1, 1, 1, 2}));
    if (dice.oneIn(2)) other(node, EV_MSC, MSC_SCAN, 1);
    other(node, EV_SYN, SYN_REPORT, 0);
  }

  // Where records can get lost, it cannot be told which of two keys one that is left belongs to.
  void pressModifier() {
    constexpr int kModifiers[] = {KEY_LEFTCTRL,   KEY_RIGHTCTRL, KEY_LEFTSHIFT, KEY_RIGHTSHIFT,
                                  KEY_RIGHTSHIFT, KEY_LEFTALT,   KEY_RIGHTALT};
    if (!overflows_) return press(kKeyboardNode, dice.pick(kModifiers));
    for (int presses = dice.between(1, 80); presses > 0; --presses) {
      record(kKeyboardNode, EV_KEY, KEY_Q + presses % 9, 1);
    }
    other(kKeyboardNode, EV_SYN, SYN_REPORT, 0);
  }

  void turn(int axis) {
    other(kMouseNode, EV_REL, axis, dice.pick(kSteps));
    if (dice.oneIn(2)) other(kMouseNode, EV_SYN, SYN_REPORT, 0);
  }

  // A drain's worth in a round. What has no report behind it any more is read in the next round.
  void other(Node node, int type, int code, int value) {
    int& others = others_[node];
    if (others >= kRecordsPerDrain / 2 - 1) return;
    ++others;
    record(node, type, code, value);
  }

  // Several lines, and one in parts.
  void sendText() {
    std::string bytes = rest_;
    for (int lines = dice.below(5); lines > 0; --lines) bytes += anyLine();
    rest_.clear();
    if (dice.oneIn(3)) {
      const std::string cut = anyLine();
      const auto size = static_cast<std::size_t>(dice.below(static_cast<int>(cut.size())));
      bytes += cut.substr(0, size);
      rest_ = cut.substr(size);
    }
    if (!bytes.empty()) send(bytes);
  }

  std::string anyLine() {
    constexpr const char* kButtons[] = {"KEY_VOLUMEUP", "KEY_VOLUMEUP", "KEY_VOLUMEUP", "KEY_MUTE", "red", "KEY_FOO"};
    switch (dice.below(8)) {
      case 0: return "BEGIN\n";
      case 1: return "\n";
      case 2: return std::string(static_cast<std::size_t>(dice.between(80, 180)), '0') + " 00 KEY_MUTE myremote\n";
      default: return line(dice.pick(kButtons));
    }
  }

  bool overflows_ = false;
  std::array<int, 2> others_ = {};
  std::string rest_;  // of a line that was cut
};

std::string text(Node node) { return node == kKeyboardNode ? "keyboard" : "mouse"; }

std::string quoted(const std::string& bytes) {
  std::string result;
  for (const char byte : bytes) {
    if (byte == '\n') {
      result += "\\n";
    } else if (byte >= ' ' && byte <= '~') {
      result += byte;
    } else {
      result += "\\" + std::to_string(static_cast<unsigned char>(byte));
    }
  }
  return "\"" + result + "\"";
}

std::string text(const Step& step) {
  const std::string milliseconds =
      std::to_string(step.time / 1ms) + "." + std::to_string(step.time % 1ms / 1us) + " ms";
  switch (step.kind) {
    case Step::kRecord:
      return text(step.node) + " " + std::to_string(step.type) + " " + std::to_string(step.code) + " " +
             std::to_string(step.value);
    case Step::kText: return "remote " + quoted(step.text);
    case Step::kUnplug: return text(step.node) + " goes";
    case Step::kHangUp: return "remote goes";
    case Step::kPass: return milliseconds + " pass";
    case Step::kJump: return "clock jumps by " + milliseconds;
    case Step::kRound: return "round";
  }
  return "";
}

}  // namespace

Life plainLife(std::uint64_t seed) { return PlainAuthor(seed).life(); }

Life oddLife(std::uint64_t seed) { return OddAuthor(seed).life(); }

std::string text(const Life& life) {
  std::string lines = "seed " + std::to_string(life.seed) + ", release timeout \"" + life.releaseTimeout +
                      "\", repeat timeout \"" + life.repeatTimeout + "\"\n";
  for (const Step& step : life.steps) lines += text(step) + "\n";
  return lines;
}

}  // namespace quarlo::test::lives
