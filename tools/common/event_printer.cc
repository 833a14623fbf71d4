#include "tools/common/event_printer.h"

#include <nlohmann/json.hpp>

#include "tools/common/output.h"

namespace quarlo::tools {

void EventCounts::add(const InputEvent& event) {
  if (event.kind == InputEvent::kKeyEvent) {
    ++keys_;
  } else if (event.kind == InputLoop::kWheelEvent) {
    ++wheels_;
  } else if (event.kind != InputEvent::kMouseEvent) {
    ++empty_;
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
  if (withEmptyRecords) text += ", " + counted(empty_, "record") + " without an event";
  return text;
}

bool EventPrinter::print(microseconds time, const InputEvent& event) {
  counts_.add(event);
  const InputEvent shown = masked(options_.mask, event);
  if (!options_.json) {
    if (event.kind != InputEvent::kNoEvent || options_.showEmptyRecords) {
      std::printf("%7s  %s\n", describeTime(time).c_str(), describe(shown).c_str());
    }
  } else if (event.kind != InputEvent::kNoEvent) {
    std::printf("%s\n", toJson(time, shown).dump().c_str());
  }
  const bool enough = options_.count != 0 && counts_.events() >= options_.count;
  return !enough && std::ferror(stdout) == 0;
}

void EventPrinter::printSummary(microseconds duration) const {
  std::fprintf(statusStream(), "%s\n", counts_.summary(duration, options_.showEmptyRecords).c_str());
}

}  // namespace quarlo::tools
