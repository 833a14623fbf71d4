// An evdev node, as a session has it.
#pragma once

#include <linux/input.h>

#include <bitset>
#include <vector>

#include "recording/writer.h"

namespace quarlo::tools::record {

// The keys and buttons of a node that are down, as far as its records have told. What the records that the kernel has
// dropped would have told, and the end of a node, it tells in records of its own, as input/input_sources.h does: so a
// replay, which loses nothing, gives the events that came live.
class HeldKeys {
 public:
  // Follows a record that was read.
  void follow(const input_event& record);

  // If records were lost, and all that is left of them was read, asks the node what is down. Returns the difference, as
  // a report of this time: first what has come up, then what has gone down. Empty if there is none.
  std::vector<recording::Record> mend(int fd, recording::microseconds time);

  // The same when the node is gone: all comes up.
  std::vector<recording::Record> release(recording::microseconds time);

 private:
  using Keys = std::bitset<KEY_CNT>;

  std::vector<recording::Record> changeTo(const Keys& down, recording::microseconds time);

  Keys down_;
  bool isBehind_ = false;  // records were lost
};

// Asks the node what it says about itself. What it does not answer is left empty.
recording::DeviceDescription describeNode(int fd);

// Makes the kernel stamp the records of `fd` with CLOCK_MONOTONIC, so that they can be compared with those of other
// sources. Returns false, with errno, if it does not.
bool setMonotonicClock(int fd);

// The record as a session has it, with its time since `start`; both are on the same clock.
recording::Record toRecord(const input_event& event, recording::microseconds start);

}  // namespace quarlo::tools::record
