#include "tools/common/event_printer.h"

#include <cinttypes>
#include <nlohmann/json.hpp>

#include "tools/common/output.h"

namespace quarlo::tools {
namespace {

// A plain decimal, which a double is not when it is small.
std::string jsonTime(microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, std::int64_t{time.count() / 1000000},
                std::int64_t{time.count() % 1000000});
  return text;
}

std::string jsonLine(microseconds time, const InputEvent& event, const Origin& origin) {
  return "{\"time\":" + jsonTime(time) + ",\"source\":\"" + describeSource(origin) + "\"," +
         toJson(event, origin).dump().substr(1);
}

}  // namespace

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

bool EventPrinter::print(microseconds time, const InputEvent& event, const Origin& origin) {
  if (const std::optional<Origin> shown = masked(options_.mask, origin)) {
    counts_.add(event, origin);
    printShown(time, masked(options_.mask, event, origin), *shown);
  }
  const bool enough = options_.count != 0 && counts_.events() >= options_.count;
  return !enough && std::ferror(stdout) == 0;
}

void EventPrinter::printShown(microseconds time, const InputEvent& event, const Origin& origin) const {
  if (!options_.json) {
    std::printf("%7s  %s\n", describeTime(time).c_str(), describeWithSource(event, origin).c_str());
  } else if (event.kind != InputEvent::kNoEvent) {
    std::printf("%s\n", jsonLine(time, event, origin).c_str());
  }
}

void EventPrinter::printSummary(microseconds duration) const {
  std::fprintf(statusStream(), "%s\n", counts_.summary(duration, options_.countEmptyRecords).c_str());
}

}  // namespace quarlo::tools
