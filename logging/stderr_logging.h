// A back end of logging/logging.h for programs that have none: messages go to standard error, one line each, such as
//   INFO Found a mouse: /dev/input/event3 - USB Mouse
//   VERBOSE10 LIRC timeout 300ms.
// Everything but printable ASCII is escaped in them (logging/escape.h), and a message is cut after 1023 bytes. To use
// it, link quarlo::stderr_logging.
#pragma once

#include "logging/logging.h"

namespace quarlo::logging {

// The lowest severity that is written: kInfo (the initial one) or kError; anything above kError silences both.
void SetMinLogLevel(int level);

// The highest verbose level that is written, from every file; initially 0, which means none.
void SetVlogLevel(int level);

}  // namespace quarlo::logging
