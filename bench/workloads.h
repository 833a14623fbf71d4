// What is sent to the contestants.
#pragma once

#include <linux/input.h>

#include <string>
#include <vector>

namespace quarlo::bench {

// What is there when a contestant is asked: records of one node, or a line of the remote, or nothing.
struct Frame {
  enum class Source { kNone, kKeyboard, kMouse, kRemote };

  Source source = Source::kNone;
  std::vector<input_event> records;
  std::string line;
};

struct Workload {
  const char* name;
  std::vector<Frame> frames;  // sent again and again, they press nothing that is not released
  int timeoutMs;              // of each frame's calls

  // Records and lines of one pass, but at least 1.
  int size() const;
};

// Typing: a sentence, each press and each release a frame.
// Motion: a mouse that is asked after each of its reports.
// Backlog: a mouse that is asked after 40 reports.
// Remote: presses of buttons, each a frame.
// Idle: nothing, and a wait of 100 ms.
const std::vector<Workload>& workloads();

input_event record(int type, int code, int value);

// A key that is pressed (1) or released (0).
Frame change(int code, int value);

// A press of a button of a remote, by LIRC's names.
Frame line(const std::string& button, const std::string& remote);

// A key that is pressed and released.
Frame tap(int code);

}  // namespace quarlo::bench
