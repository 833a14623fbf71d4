#include "tools/monitor/screen_model.h"

#include <algorithm>
#include <utility>

#include "tools/common/columns.h"

namespace quarlo::tools::monitor {
namespace {

using MouseData = InputEvent::MouseData;

constexpr std::size_t kLongestTrail = 2000;  // in points

RemoteState stateOf(const LinuxInputReader& reader) {
  if (reader.lircKey == msg::KeyInput::kNone) return RemoteState::kIdle;
  return reader.lircRepeatMode ? RemoteState::kRepeating : RemoteState::kHeld;
}

bool isMove(const InputEvent& event) {
  return event.kind == InputEvent::kMouseEvent && event.mouseData.action == MouseData::kMove;
}

std::string eventLine(microseconds time, const InputEvent& event, const Origin& origin) {
  return rightAligned(describeTime(time), 8) + "  " + describeWithSource(event, origin);
}

std::string movesLine(microseconds time, const InputEvent& event, const Origin& origin, long moves) {
  return leftAligned(eventLine(time, event, origin), 46) + "  " + std::to_string(moves) + " moves";
}

bool areSame(Point a, Point b) { return a.x == b.x && a.y == b.y; }

bool areSame(timeval a, timeval b) { return a.tv_sec == b.tv_sec && a.tv_usec == b.tv_usec; }

}  // namespace

ScreenModel::ScreenModel(std::vector<SourceReport> sources, Point largest)
    : sources_(std::move(sources)), largest_(largest) {
  remote_.history.resize(kSlots);
}

void ScreenModel::addEvent(microseconds time, const InputEvent& event, const Origin& origin) {
  counts_.add(event, origin);
  if (event.kind == InputEvent::kMouseEvent && event.mouseData.action == MouseData::kButtonDown) {
    pointer_.lastPress = event.mouseData;
  }
  if (isMove(event) && continuesRun(event, origin)) {
    lines_.back() = movesLine(time, event, origin, ++moves_);
    return;
  }
  addLine(eventLine(time, event, origin));
  if (isMove(event)) {
    lastMove_ = event;
    lastMoveSource_ = origin.source;
    moves_ = 1;
  }
}

bool ScreenModel::continuesRun(const InputEvent& move, const Origin& origin) const {
  return lastMove_ && lastMove_->mouseData.button == move.mouseData.button && lastMoveSource_ == origin.source;
}

void ScreenModel::addLogLine(const std::string& line) { addLine("          " + line); }

void ScreenModel::addLine(const std::string& line) {
  lines_.push_back(line);
  if (lines_.size() > kLines) lines_.pop_front();
  lastMove_.reset();
}

void ScreenModel::look(microseconds time, const LinuxInputReader& reader) {
  time_ = time;
  followPointer(reader);
  modifiers_ = reader.modifiers;
  numLock_ = reader.numLock;
  followRemote(reader);
}

void ScreenModel::followPointer(const LinuxInputReader& reader) {
  const bool wasHeld = pointer_.heldButton != MouseData::kNoButton;
  pointer_.position = {reader.pointerX, reader.pointerY};
  pointer_.heldButton = reader.pressedButton;
  if (pointer_.heldButton == MouseData::kNoButton) return;
  std::vector<Point>& trail = pointer_.trail;
  if (!wasHeld) trail.clear();
  if (trail.empty() || !areSame(trail.back(), pointer_.position)) trail.push_back(pointer_.position);
  if (trail.size() > kLongestTrail) trail.erase(trail.begin());
}

void ScreenModel::followRemote(const LinuxInputReader& reader) {
  RemoteSlot& slot = slotOfNow();
  remote_.state = stateOf(reader);
  remote_.key = reader.lircKey;
  remote_.gapMs = reader.lircTimeout;
  slot.state = std::max(slot.state, remote_.state);
  // The reader marks each of the remote's key-downs with its time; an event does not tell where it is from.
  if (!areSame(reader.lircKeyTime, lastKeyDown_)) ++slot.keyDowns;
  lastKeyDown_ = reader.lircKeyTime;
}

// Makes the slots since the last look: in those that have passed, nothing changed.
RemoteSlot& ScreenModel::slotOfNow() {
  const std::int64_t now = time_ / kSlotLength;
  for (std::int64_t slot = std::max(slot_, now - kSlots); slot < now; ++slot) {
    remote_.history.pop_front();
    remote_.history.push_back({slot + 1 < now ? remote_.state : RemoteState::kIdle, 0});
  }
  slot_ = now;
  return remote_.history.back();
}

void ScreenModel::setGone(std::size_t index) { sources_[index].state = SourceState::kGone; }

}  // namespace quarlo::tools::monitor
