// The loop of an application, as all commands that run the reader have it.
#pragma once

#include "tools/common/describe.h"

namespace quarlo::tools {

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
