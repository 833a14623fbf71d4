// Events on standard output, as `monitor` and `replay` print them: text lines or JSON objects, and a summary at the
// end.
#pragma once

#include <cstdio>

#include "tools/describe.h"

namespace quarlo::tools {

struct PrintOptions {
  bool json = false;
  bool maskKeys = false;          // do not show what was typed
  bool showEmptyRecords = false;  // in text, also print records that gave no event
  long count = 0;                 // as many events are wanted; 0: any number
};

class EventPrinter {
 public:
  explicit EventPrinter(const PrintOptions& options) : options_(options) {}

  // Prints an event that came `time` after the start; kNoEvent stands for a record without one. Returns whether more
  // are wanted: false after the last of `count`, and when standard output cannot be written any more.
  bool print(microseconds time, const InputEvent& event);

  // Prints how many events there were, of which kind, and for how long.
  void printSummary(microseconds duration) const;

  // Where to print what is not an event: standard output too, but beside JSON standard error.
  std::FILE* statusStream() const { return options_.json ? stderr : stdout; }

 private:
  void count(const InputEvent& event);

  PrintOptions options_;
  long keys_ = 0;
  long moves_ = 0;
  long buttons_ = 0;
  long empty_ = 0;
};

// One round of the application's loop (input/linux_input_reader.h): waits up to `timeoutMs`, then takes everything that
// is there. `handle` gets each event, kNoEvent included, and returns whether to go on. Returns what it returned last.
template <typename Handler>
bool readRound(LinuxInputReader& reader, int timeoutMs, Handler handle) {
  InputEvent event = {};
  for (;;) {
    event.kind = InputEvent::kNoEvent;
    if (!reader.readInput(event, timeoutMs)) return true;
    if (!handle(event)) return false;
    timeoutMs = 0;
  }
}

}  // namespace quarlo::tools
