#include "tools/common/event_printer.h"

#include <chrono>
#include <cinttypes>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/common/columns.h"
#include "tools/common/output.h"

namespace quarlo::tools {
namespace {

std::string describeNow() { return describeClock(std::chrono::system_clock::now()); }

}  // namespace

std::string jsonTime(microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, std::int64_t{time.count() / 1000000},
                std::int64_t{time.count() % 1000000});
  return text;
}

std::string dumped(const nlohmann::ordered_json& json) {
  constexpr bool kAsciiOnly = true;
  return json.dump(-1, ' ', kAsciiOnly, nlohmann::ordered_json::error_handler_t::replace);
}

std::string orNull(std::uint64_t number) { return number == 0 ? "null" : std::to_string(number); }

void EventCounts::add(const InputEvent& event, const Origin& origin) {
  if (event.kind == InputEvent::kKeyEvent) {
    ++keys_;
  } else if (event.kind == InputLoop::kWheelEvent) {
    ++wheels_;
  } else if (event.kind != InputEvent::kMouseEvent) {
    ++(origin.line.empty() ? records_ : lines_);
  } else if (event.mouseData.action == InputEvent::MouseData::kMove) {
    ++moves_;
  } else {
    ++buttons_;
  }
}

std::string EventCounts::summary(microseconds duration, bool withEmptyRecords) const {
  std::string text = counted(events(), "event") + " in " + describeTime(duration) + " s: " + counted(keys_, "key") +
                     ", " + counted(moves_, "move") + ", " + counted(buttons_, "button");
  if (wheels_ != 0) text += ", " + counted(wheels_, "wheel");
  if (lines_ != 0) text += ", " + counted(lines_, "line") + " without an event";
  if (withEmptyRecords) text += ", " + counted(records_, "record") + " without an event";
  return text;
}

void EventPrinter::begin(const std::vector<SourceReport>& sources) const {
  if (!options_.json) return;
  nlohmann::ordered_json json;
  json["kind"] = "start";
  json["version"] = QUARLO_VERSION;
  json["format"] = kJsonFormat;
  if (options_.clock) json["clock"] = describeNow();
  json["sources"] = nlohmann::ordered_json::array();
  for (const SourceReport& source : sources) json["sources"].push_back(toJson(source));
  std::printf("%s\n", dumped(json).c_str());
  std::fflush(stdout);
}

bool EventPrinter::print(microseconds time, const InputEvent& event, const Origin& origin,
                         const std::optional<EventNumber>& number) {
  if (const std::optional<Origin> shown = masked(options_.mask, origin)) {
    counts_.add(event, origin);
    const InputEvent visible = masked(options_.mask, event, origin);
    options_.json ? printJson(time, visible, *shown, number) : printText(time, visible, *shown);
  }
  const bool enough = options_.count != 0 && counts_.events() >= options_.count;
  return !enough && std::ferror(stdout) == 0;
}

void EventPrinter::printText(microseconds time, const InputEvent& event, const Origin& origin) {
  if (!std::exchange(hasLegend_, true)) {
    const std::string clock = leftAligned("time of day", describeNow().size());
    std::printf("%s  source    event       key or button   character, modifiers; position\n",
                options_.clock ? clock.c_str() : "seconds");
  }
  const std::string when = options_.clock ? describeNow() : describeTime(time);
  std::printf("%7s  %s\n", when.c_str(), describeWithSource(event, origin).c_str());
}

void EventPrinter::printJson(microseconds time, const InputEvent& event, const Origin& origin,
                             const std::optional<EventNumber>& number) const {
  if (event.kind == InputEvent::kNoEvent) return;
  const std::string clock = options_.clock ? R"("clock":")" + describeNow() + "\"," : "";
  const std::string rest = toJson(event, origin).dump().substr(1);
  std::printf(R"({"time":%s,%s"source":"%s",)", jsonTime(time).c_str(), clock.c_str(), describeSource(origin).c_str());
  if (number)
    std::printf(R"("number":%s,"cause":%s,)", std::to_string(number->number).c_str(), orNull(number->cause).c_str());
  std::puts(rest.c_str());
}

void EventPrinter::printSummary(microseconds duration) const {
  std::fprintf(statusStream(), "%s\n", counts_.summary(duration, options_.countEmptyRecords).c_str());
}

}  // namespace quarlo::tools
