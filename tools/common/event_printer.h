// Events on standard output, as `monitor` and `replay` print them: text lines below a legend, or JSON objects behind
// one that says what they are of, and a summary at the end.
#pragma once

#include <cstdint>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/describe.h"
#include "tools/common/mask.h"
#include "tools/common/sources.h"

namespace quarlo::tools {

// Changes when a program that reads the JSON could no longer do so. What is added does not change it.
constexpr int kJsonFormat = 1;

struct PrintOptions {
  bool json = false;
  bool clock = false;  // print the time of day: in text in place of the time since the start, in JSON beside it
  Mask mask = Mask::kNothing;
  bool countEmptyRecords = false;  // in text, also print how many records gave no event
  long count = 0;                  // as many events are wanted; 0: any number
};

// Seconds as JSON has them: "12.000500", a plain decimal, which a double is not when it is small.
std::string jsonTime(microseconds time);

// A number that counts from 1; of 0, "null".
std::string orNull(std::uint64_t number);

// In one line, of ASCII alone; what is not UTF-8 is replaced.
std::string dumped(const nlohmann::ordered_json& json);

// The place of an event in a replay whose records are printed, too: its number, counted from 1, and that of the record
// or line of its source that it came of, 0: of none.
struct EventNumber {
  std::uint64_t number;
  std::uint64_t cause;
};

// How many events there were, of which kind.
class EventCounts {
 public:
  // kNoEvent stands for a record or a line without an event.
  void add(const InputEvent& event, const Origin& origin);

  long events() const { return keys_ + moves_ + buttons_ + wheels_; }

  // "2 events in 1.500 s: 0 keys, 1 move, 1 button", and of wheels if they were turned, of the remote's lines without
  // an event if some came, and how many records gave no event, if that is wanted.
  std::string summary(microseconds duration, bool withEmptyRecords) const;

 private:
  long keys_ = 0;
  long moves_ = 0;
  long buttons_ = 0;
  long wheels_ = 0;
  long lines_ = 0;    // without an event
  long records_ = 0;  // the same
};

class EventPrinter {
 public:
  explicit EventPrinter(const PrintOptions& options) : options_(options) {}

  // To call first. As JSON it prints what the events are of; text says so elsewhere, in its own way.
  void begin(const std::vector<SourceReport>& sources) const;

  // Prints an event that came `time` after the start; kNoEvent, which only text has, stands for a record or a line
  // without one. JSON has `number`, if there is one. Returns whether more are wanted: false after the last of `count`,
  // and when standard output cannot be written any more.
  bool print(microseconds time, const InputEvent& event, const Origin& origin,
             const std::optional<EventNumber>& number = std::nullopt);

  // Prints how many events there were, of which kind, and for how long.
  void printSummary(microseconds duration) const;

  // Where to print what is not an event: standard output too, but beside JSON standard error.
  std::FILE* statusStream() const { return options_.json ? stderr : stdout; }

 private:
  void printText(microseconds time, const InputEvent& event, const Origin& origin);
  void printJson(microseconds time, const InputEvent& event, const Origin& origin,
                 const std::optional<EventNumber>& number) const;

  PrintOptions options_;
  EventCounts counts_;
  bool hasLegend_ = false;  // is printed
};

}  // namespace quarlo::tools
