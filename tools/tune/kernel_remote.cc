#include "tools/tune/kernel_remote.h"

#include <linux/input.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "tools/common/describe.h"

namespace quarlo::tools::tune {

using namespace std::chrono_literals;
using recording::DeviceRecording;
using recording::Record;

namespace {

constexpr int kReleased = 0;
constexpr int kPressed = 1;

// A press as the node's records tell it.
struct KeyPress {
  int key;
  microseconds down;
  microseconds up;
  std::vector<microseconds> frames;   // rc-core tells the scan code of each
  std::vector<microseconds> repeats;  // that the kernel made
};

// What the reader makes a key-down of; buttons are none.
class Keys {
 public:
  bool has(int code) {
    const auto [known, isNew] = isKey_.insert({code, false});
    if (isNew) known->second = ask(code);
    return known->second;
  }

 private:
  bool ask(int code) {
    input_event record = {};
    record.type = EV_KEY;
    record.code = static_cast<__u16>(code);
    record.value = kPressed;
    InputEvent event = {};
    event.kind = InputEvent::kNoEvent;
    reader_.handleKeyEvent(&record, event);
    return event.kind == InputEvent::kKeyEvent;
  }

  LinuxInputReader reader_;
  std::map<int, bool> isKey_;
};

// Finds the presses of a recording. A remote presses one key at a time; keys that are down together are left out.
class PressFinder {
 public:
  void take(const Record& record) {
    if (record.type == EV_KEY) return takeKey(record);
    if (record.type == EV_MSC && record.code == MSC_SCAN) hasScanCode_ = true;
    if (record.type != EV_SYN) return;
    if (record.code == SYN_DROPPED) leaveOut();
    if (record.code == SYN_REPORT && std::exchange(hasScanCode_, false) && press_) {
      press_->frames.push_back(record.time);
    }
  }

  std::vector<KeyPress> finish() {
    leaveOut();
    return std::move(found_);
  }

  std::size_t leftOut() const { return leftOut_; }

 private:
  void takeKey(const Record& record) {
    if (record.value == kReleased) {
      down_.erase(record.code);
      if (press_ && press_->key == record.code) end(record.time);
    } else if (record.value == kPressed) {
      begin(record);
    } else if (press_ && press_->key == record.code) {
      press_->repeats.push_back(record.time);
    }
  }

  void begin(const Record& record) {
    const bool alone = down_.empty();
    leaveOut();
    down_.insert(record.code);
    if (!keys_.has(record.code)) return;
    if (alone) {
      press_ = KeyPress{record.code, record.time, record.time, {}, {}};
    } else {
      ++leftOut_;
    }
  }

  void end(microseconds time) {
    press_->up = time;
    found_.push_back(std::move(*press_));
    press_.reset();
  }

  void leaveOut() {
    if (press_) ++leftOut_;
    press_.reset();
  }

  Keys keys_;
  std::set<int> down_;
  std::optional<KeyPress> press_;
  bool hasScanCode_ = false;
  std::vector<KeyPress> found_;
  std::size_t leftOut_ = 0;
};

// rc-core tells of each frame. Keyboards tell a scan code as a key goes down, and no more.
bool tellsOfFrames(const std::vector<KeyPress>& presses) {
  return std::any_of(presses.begin(), presses.end(), [](const KeyPress& press) { return press.frames.size() > 1; });
}

microseconds longestKeyUp(const std::vector<KeyPress>& presses) {
  microseconds longest{0};
  for (const KeyPress& press : presses) {
    if (!press.frames.empty()) longest = std::max(longest, press.up - press.frames.back());
  }
  return longest;
}

// ---- How the node repeats -----------------------------------------------------------------------

// Whether a time is what the kernel makes of one that was set: its timers are never early, and late by some ticks.
bool isMadeOf(microseconds time, std::chrono::milliseconds set) {
  return time >= set - 1ms && time <= set + set / 10 + 10ms;
}

NodeRepeat recordedRepeat(const std::vector<KeyPress>& presses) {
  std::vector<microseconds> delays;
  std::vector<microseconds> periods;
  for (const KeyPress& press : presses) {
    if (!press.repeats.empty()) delays.push_back(press.repeats.front() - press.down);
    for (std::size_t i = 1; i < press.repeats.size(); ++i) periods.push_back(press.repeats[i] - press.repeats[i - 1]);
  }
  if (periods.empty()) return kRemotesRepeat;
  const microseconds delay = medianOf(std::move(delays));
  const microseconds period = medianOf(std::move(periods));
  for (const NodeRepeat& usual : {kRemotesRepeat, kKeyboardsRepeat}) {
    if (isMadeOf(delay, std::chrono::milliseconds(usual.delayMs)) &&
        isMadeOf(period, std::chrono::milliseconds(usual.periodMs))) {
      return usual;
    }
  }
  // 0 would mean that it does not repeat.
  return {std::max(1, static_cast<int>(delay / 1ms)), std::max(1, static_cast<int>(period / 1ms))};
}

// ---- The remote ---------------------------------------------------------------------------------

// Without frames, a press is from its key-down to its key-up, as far as it is studied.
std::vector<microseconds> linesOf(const KeyPress& press, bool framesAreTold) {
  if (!framesAreTold) return {press.down, std::min<microseconds>(press.up, press.down + kMostOfAPress)};
  if (press.frames.empty()) return {press.down};
  return press.frames;
}

bool isHeld(const KeyPress& press, bool framesAreTold) {
  return linesOf(press, framesAreTold).back() - press.down >= kShortestHold;
}

std::vector<Candidate> candidatesOf(const std::vector<KeyPress>& presses, bool framesAreTold) {
  std::vector<Candidate> candidates;
  candidates.reserve(presses.size());
  microseconds previous = presses.front().down;
  for (const KeyPress& press : presses) {
    const microseconds length = press.up - press.down;
    const microseconds studied = std::min<microseconds>(length, kMostOfAPress);
    candidates.push_back({isHeld(press, framesAreTold), length, press.down - std::exchange(previous, press.up), false,
                          static_cast<std::size_t>(studied / 1ms) + 1});
  }
  return candidates;
}

void addPress(Remote& remote, const KeyPress& press, bool framesAreTold, microseconds pause) {
  const microseconds start = (remote.presses.empty() ? 0us : remote.presses.back().up) + pause;
  const microseconds up = std::min<microseconds>(press.up - press.down, kMostOfAPress);
  Press added = {remote.lines.size(), remote.lines.size(), false, press.key, start + up};
  for (const microseconds line : linesOf(press, framesAreTold)) {
    if (line - press.down <= up) remote.lines.push_back({start + (line - press.down), ""});
  }
  added.end = remote.lines.size();
  added.held = isHeld(press, framesAreTold);
  remote.presses.push_back(added);
}

}  // namespace

Remote imagineKernelRemote(const Protocol& protocol, microseconds hold, const NodeRepeat& now) {
  Remote remote = imagineRemote(protocol, hold);
  remote.decoder = Decoder::kKernel;
  remote.repeat = now;
  remote.keyUp = protocol.keyUp;
  for (Press& press : remote.presses) {
    press.key = KEY_OK;
    press.up = remote.lines[press.end - 1].time + protocol.keyUp;
  }
  return remote;
}

bool hasKeyPress(const DeviceRecording& node) {
  Keys keys;
  return std::any_of(node.records.begin(), node.records.end(), [&](const Record& record) {
    return record.type == EV_KEY && record.value == kPressed && keys.has(record.code);
  });
}

Remote recordedKernelRemote(const DeviceRecording& node, const std::string& name,
                            const std::optional<NodeRepeat>& now) {
  if (node.codes.count(EV_REP) == 0) {
    throw recording::Error(name + ": the node has no auto-repeat (EV_REP): it has neither a delay nor a period");
  }
  PressFinder finder;
  for (const Record& record : node.records) finder.take(record);
  const std::vector<KeyPress> presses = finder.finish();
  if (presses.empty()) {
    throw recording::Error(name + ": no key was pressed and released, one at a time: there is nothing to study");
  }
  const bool framesAreTold = tellsOfFrames(presses);
  const std::vector<Candidate> candidates = candidatesOf(presses, framesAreTold);
  Remote remote;
  for (const Candidate& candidate : candidates) ++(candidate.held ? remote.holds : remote.taps);
  checkPresses(remote, name, "");
  for (const std::size_t number : choosePresses(candidates, kMostStudiedTime / 1ms)) {
    addPress(remote, presses[number], framesAreTold,
             std::min<microseconds>(candidates[number].pause, kPauseBetweenPresses));
  }
  remote.leftOut = finder.leftOut();
  remote.decoder = Decoder::kKernel;
  remote.repeat = now.value_or(recordedRepeat(presses));
  if (framesAreTold) {
    remote.keyUp = longestKeyUp(presses);
    remote.period = periodOf(remote);
  }
  return remote;
}

}  // namespace quarlo::tools::tune
