#include "tools/common/causes.h"

#include <linux/input.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "input/linux_input_reader_limits.h"
#include "tools/common/lirc_line.h"
#include "tools/common/timeval.h"

namespace quarlo::tools {

using recording::Record;
using recording::RemoteLine;

const std::array<WhyName, kWhys> kWhyNames = {{
    {Why::kMark, "mark", "a mark between reports"},
    {Why::kLossMark, "loss-mark", "a mark: the kernel has lost records before it"},
    {Why::kScanCode, "scan-code", "a scan code; the key itself comes after it"},
    {Why::kPosition, "position", "an absolute position, as of a touchscreen, which the reader does not use"},
    {Why::kLight, "light", "a light of the keyboard"},
    {Why::kSideButton, "side-button", "a button of the mouse that the reader does not give"},
    {Why::kButtonRepeat, "button-repeat", "the auto-repeat of a button"},
    {Why::kTouchTwin, "touch-twin", "the second of two codes for the same touch"},
    {Why::kOtherAxis, "other-axis", "an axis that is neither x, y nor a wheel's steps"},
    {Why::kOtherType, "other-type", "neither a key, a button nor an axis"},
    {Why::kEarly, "early", "a repeat that comes too early after the last key-down"},
    {Why::kUnknownButton, "unknown-button", "a button that the reader does not know, or a cut line"},
    {Why::kCutLine, "cut-line", "not a whole line"},
    {Why::kBroadcast, "broadcast", "what the daemon says when it has read its configuration again"},
    {Why::kLost, "lost", "lost before it was read: the buffer of the node was full"},
    {Why::kUnread, "unread", "never read: its report does not end, or the replay ended before"},
}};

const WhyName& nameOf(Why why) { return kWhyNames[static_cast<std::size_t>(why) - 1]; }

namespace {

constexpr int kLastMouseButton = BTN_MOUSE + 15;
constexpr int kAutoRepeat = 2;

Why whyNoKey(const Record& record) {
  if (record.value == kAutoRepeat) return Why::kButtonRepeat;
  return record.code >= BTN_MOUSE && record.code <= kLastMouseButton ? Why::kSideButton : Why::kTouchTwin;
}

// REQUIRES: it gave no event
Why whyNothing(const Record& record) {
  switch (record.type) {
    case EV_SYN: return record.code == SYN_DROPPED ? Why::kLossMark : Why::kMark;
    case EV_KEY: return whyNoKey(record);
    case EV_REL: return Why::kOtherAxis;
    case EV_ABS: return Why::kPosition;
    case EV_MSC: return Why::kScanCode;
    case EV_LED: return Why::kLight;
    default: return Why::kOtherType;
  }
}

// The same of a line.
Why whyNothing(const std::string& line) {
  if (isLircBroadcast(line)) return Why::kBroadcast;
  if (line.empty()) return Why::kCutLine;
  const auto unknown = findUnknown(line);
  if (!unknown) return Why::kEarly;
  return unknown->button.empty() ? Why::kCutLine : Why::kUnknownButton;
}

// In how many parts the loop takes what the daemon sent: at each newline, and of a longer line as much as the reader
// reads at once.
std::size_t partsOf(std::string_view text) {
  std::size_t parts = 0;
  for (std::size_t end = 0; end != std::string_view::npos; text.remove_prefix(std::min(end + 1, text.size()))) {
    end = text.find('\n');
    const std::size_t size = (end == std::string_view::npos ? text.size() : end) + 1;
    parts += (size + components::input::kLircReadSize - 1) / components::input::kLircReadSize;
  }
  return parts;
}

// The loop's own records have no time; those of a machine do.
bool isMadeByTheLoop(const input_event& record) { return record.input_event_sec == 0 && record.input_event_usec == 0; }

RemoteKey keyOf(const LinuxInputReader& reader) {
  if (reader.lircKey == msg::KeyInput::kNone) return RemoteKey::kNone;
  return reader.lircRepeatMode ? RemoteKey::kRepeating : RemoteKey::kHeld;
}

}  // namespace

Causes::Causes(const recording::Session& session, Witness& witness) : witness_(witness) {
  const auto use = [this](InputLoop::Source source, const std::optional<recording::DeviceRecording>& device) {
    if (device) nodes_[source].records = &device->records;
  };
  use(InputLoop::kMouse, session.mouse);
  use(InputLoop::kKeyboard, session.keyboard);
  for (std::size_t i = 0; i < session.further.size(); ++i) use(furtherSource(i), session.further[i]);
  if (session.remote) lines_ = &*session.remote;
}

void Causes::read(InputLoop::Source source, std::uint64_t number) {
  nodes_[source].read.push_back(static_cast<std::size_t>(number));
}

bool Causes::take(microseconds time, const InputEvent& event, const Origin& origin, const InputLoop::Cause* cause) {
  const std::size_t number = event.kind == InputEvent::kNoEvent ? 0 : ++events_;
  const bool isRemotes = cause->source == InputLoop::kRemote;
  const std::size_t came = isRemotes ? takeLine(number) : takeRecord(nodes_[cause->source], *cause, number);
  if (!isRemotes) tell(cause->source);
  return number == 0 || witness_.event({number, time, event, origin, came});
}

// ---- Nodes --------------------------------------------------------------------------------------

// Returns the number of the record in its recording; 0: it is in none.
std::size_t Causes::takeRecord(Node& node, const InputLoop::Cause& cause, std::size_t event) {
  if (isMadeByTheLoop(cause.record)) {
    ++node.made;
    return 0;
  }
  const std::uint32_t position = cause.number - node.made;
  while (node.taken < position) {
    node.pending.push_back({node.read.front(), ++node.taken, true, {}});
    node.read.pop_front();
  }
  std::size_t number = 0;
  for (Pending& pending : node.pending) {
    if (pending.position > position) break;
    if (pending.position == position) number = pending.number;
    if (!pending.isOpen || (event == 0 && pending.position != position)) continue;
    pending.isOpen = false;
    pending.outcome.event = event;
  }
  return number;
}

// Tells of what is known by now.
void Causes::tell(InputLoop::Source source) {
  Node& node = nodes_[source];
  for (; !node.pending.empty() && !node.pending.front().isOpen; node.pending.pop_front()) {
    const Pending& pending = node.pending.front();
    if (pending.number == 0) continue;
    tellUpTo(source, pending.number - 1, Why::kLost);
    const Record& record = (*node.records)[pending.number - 1];
    Outcome outcome = pending.outcome;
    if (outcome.event == 0) outcome.why = whyNothing(record);
    node.told = pending.number;
    witness_.record(source, pending.number, record, outcome);
  }
}

void Causes::tellUpTo(InputLoop::Source source, std::size_t number, Why why) {
  Node& node = nodes_[source];
  while (node.told < number) {
    ++node.told;
    witness_.record(source, node.told, (*node.records)[node.told - 1], {0, why});
  }
}

// ---- The remote ---------------------------------------------------------------------------------

// Returns the number of the line.
std::size_t Causes::takeLine(std::size_t event) {
  const std::string& text = (*lines_)[line_].text;
  if (lineEvent_ == 0) lineEvent_ = event;
  if (++partsTaken_ < partsOf(text)) return line_ + 1;
  tellLine({lineEvent_, lineEvent_ == 0 ? whyNothing(text) : Why::kNone});
  return line_;
}

void Causes::tellLine(const Outcome& outcome) {
  const RemoteLine& line = (*lines_)[line_];
  partsTaken_ = 0;
  lineEvent_ = 0;
  witness_.line(++line_, line, outcome);
}

void Causes::look(microseconds time, const LinuxInputReader& reader) {
  const RemoteKey key = keyOf(reader);
  const bool isKeyDown = !isSameTime(reader.lircKeyTime, keyTime_);
  if (key == key_ && !isKeyDown) return;
  if (isKeyDown) keyDown_ = time;
  key_ = key;
  keyTime_ = reader.lircKeyTime;
  const microseconds deadline = keyDown_ + std::chrono::milliseconds(reader.lircTimeout);
  const auto line = static_cast<std::uint32_t>(partsTaken_ == 0 ? line_ : line_ + 1);
  witness_.state({time, key == RemoteKey::kNone ? time : deadline, line, key});
}

// ---- The end ------------------------------------------------------------------------------------

void Causes::end() {
  for (int i = 0; i < InputLoop::kSources; ++i) {
    const auto source = static_cast<InputLoop::Source>(i);
    if (nodes_[source].records != nullptr) tellUpTo(source, nodes_[source].records->size(), Why::kUnread);
  }
  while (lines_ != nullptr && line_ < lines_->size()) tellLine({lineEvent_, Why::kUnread});
}

}  // namespace quarlo::tools
