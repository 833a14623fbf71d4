// A back end of logging/logging.h for programs that have none: messages go to standard error, one line each, such as
//   INFO Found a mouse: /dev/input/event3 - USB Mouse
//   VERBOSE10 LIRC timeout 300ms.
// All but printable ASCII in them is escaped (logging/escape.h); a message is cut after 1023 bytes. Link
// quarlo::stderr_logging for it.
#pragma once

#include "logging/logging.h"

namespace quarlo::logging {

// The lowest severity that is written: kInfo (the initial one) or kError; anything above kError silences both.
void SetMinLogLevel(int level);

// The highest verbose level that is written, from every file; initially 0, which is none.
void SetVlogLevel(int level);

}  // namespace quarlo::logging
