#include "tools/report/happened.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "tools/common/code_names.h"
#include "tools/common/describe.h"

namespace quarlo::tools::report {
namespace {

using recording::Record;
using recording::RemoteLine;
using KeyData = InputEvent::KeyData;
using MouseData = InputEvent::MouseData;

// ---- Texts --------------------------------------------------------------------------------------

std::string textOfKey(const KeyData& key, const nlohmann::ordered_json& json) {
  const bool isUnknown = json.contains("linuxName");
  std::string text = isUnknown ? json["linuxName"].get<std::string>() : keyName(key.key);
  text += key.action == KeyData::kUp ? " up" : " down";
  if (key.ch != 0) text += " " + describeCharacter(key.ch);
  const std::string modifiers = describeModifiers(key.modifiers);
  return modifiers.empty() ? text : text + " " + modifiers;
}

std::string textOfMouse(const MouseData& mouse) {
  const std::string button = buttonName(mouse.button);
  if (mouse.action == MouseData::kMove)
    return mouse.button == MouseData::kNoButton ? "move" : "move, " + button + " held";
  return button + (mouse.action == MouseData::kButtonDown ? " down x" : " up x") + std::to_string(mouse.clicks);
}

std::string textOfWheel(const MouseData& wheel) {
  const bool isVertical = wheel.action == InputLoop::kVertical;
  const std::int64_t steps = wheel.button;
  return std::string("wheel ") + (isVertical ? (steps > 0 ? "up" : "down") : (steps > 0 ? "right" : "left")) + " x" +
         std::to_string(std::abs(steps));
}

std::string textOf(const InputEvent& event, const nlohmann::ordered_json& json) {
  if (event.kind == InputEvent::kKeyEvent) return textOfKey(event.keyData, json);
  return event.kind == InputLoop::kWheelEvent ? textOfWheel(event.mouseData) : textOfMouse(event.mouseData);
}

// ---- Shapes -------------------------------------------------------------------------------------

// What tells shapes apart.
using ShapeKey = std::tuple<int, std::int64_t, std::int64_t, int, std::uint32_t, int>;

ShapeKey keyOf(const InputEvent& event, const Origin& origin) {
  if (event.kind == InputEvent::kKeyEvent) {
    const KeyData& key = event.keyData;
    const int code = key.key == msg::KeyInput::kNone && origin.record ? origin.record->code : -1;
    return {event.kind, key.action, key.key, key.ch, key.modifiers, code};
  }
  return {event.kind, event.mouseData.action, event.mouseData.button, event.mouseData.clicks, 0, -1};
}

Shape shapeOf(const InputEvent& event, const Origin& origin) {
  nlohmann::ordered_json json = toJson(event, origin);
  json.erase("x");
  json.erase("y");
  json["text"] = textOf(event, json);
  return {event, std::move(json)};
}

// ---- Gathering ----------------------------------------------------------------------------------

class Gatherer final : public Witness {
 public:
  explicit Gatherer(Happened& happened) : happened_(happened) {}

  void record(InputLoop::Source source, std::size_t /*number*/, const Record& record, const Outcome& outcome) override {
    happened_.outcomes[source].add(outcome);
    extend(record.time);
  }

  void line(std::size_t /*number*/, const RemoteLine& line, const Outcome& outcome) override {
    happened_.outcomes[InputLoop::kRemote].add(outcome);
    extend(line.time);
  }

  void state(const RemoteState& state) override {
    happened_.states.push_back(state);
    extend(state.time);
  }

  bool event(const NumberedEvent& event) override {
    if (event.event.kind != InputEvent::kKeyEvent) {
      x_ = event.event.mouseData.x;
      y_ = event.event.mouseData.y;
    }
    const std::uint32_t shape = numberOf(event.event, event.origin);
    happened_.events.push_back(
        {event.time, static_cast<std::uint32_t>(event.cause), x_, y_, shape, *event.origin.source});
    extend(event.time);
    return true;
  }

 private:
  void extend(microseconds time) { happened_.length = std::max(happened_.length, time); }

  std::uint32_t numberOf(const InputEvent& event, const Origin& origin) {
    const auto [place, isNew] = numbers_.emplace(keyOf(event, origin), happened_.shapes.size());
    if (isNew) happened_.shapes.push_back(shapeOf(event, origin));
    return static_cast<std::uint32_t>(place->second);
  }

  Happened& happened_;
  std::map<ShapeKey, std::size_t> numbers_;
  std::uint16_t x_ = 0;
  std::uint16_t y_ = 0;
};

}  // namespace

bool Shape::isMove() const {
  return event.kind == InputEvent::kMouseEvent && event.mouseData.action == MouseData::kMove;
}

bool Shape::isKeyDown() const { return event.kind == InputEvent::kKeyEvent && event.keyData.action == KeyData::kDown; }

void Outcomes::add(const Outcome& outcome) {
  events_.push_back(static_cast<std::uint32_t>(outcome.event));
  whys_.push_back(outcome.why);
}

Happened play(const recording::Session& session, const PlayOptions& options) {
  Happened happened;
  Gatherer gatherer(happened);
  Causes causes(session, gatherer);
  happened.isWhole = playSession(session, options, ReaderLoop::Empty::kEverything, causes).isWhole;
  causes.end();
  return happened;
}

const std::vector<Record>* recordsOf(const recording::Session& session, InputLoop::Source source) {
  const std::optional<recording::DeviceRecording>* device = nullptr;
  switch (source) {
    case InputLoop::kMouse: device = &session.mouse; break;
    case InputLoop::kKeyboard: device = &session.keyboard; break;
    case InputLoop::kRemote: return nullptr;
    default: device = &session.further[source - InputLoop::kFurther];
  }
  return *device ? &(*device)->records : nullptr;
}

}  // namespace quarlo::tools::report
