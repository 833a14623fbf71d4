// What the kernel gives to the one who reads a mouse whose reports are a step to the right, the report's number (from 1
// on) as the step down, and perhaps a button.
#pragma once

namespace quarlo::bench {

struct Tapped {
  int steps;        // to the right
  int dropped;      // records SYN_DROPPED: that the kernel's queue was full, and all in it was lost
  int unexplained;  // gaps in the numbers with no SYN_DROPPED in them
};

// From now on, read() counts in this process. REQUIRES: nothing but the mouse sends records.
void startTapping();

Tapped stopTapping();

}  // namespace quarlo::bench
