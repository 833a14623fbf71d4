// The lines that a LIRC daemon sent, each with the time of its receipt: "<seconds>.<microseconds> <line>".
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// Reads and checks a recording of a remote. `name` is what errors call the file. Throws Error.
std::vector<RemoteLine> readRemote(std::FILE* file, const std::string& name, Start start);

// Makes lines that a session can hold of the bytes that a LIRC daemon sends. What a session cannot hold is left out:
// NUL bytes, carriage returns at the end of a line, lines without text, and what a line has beyond kLongestLine bytes.
class LineSplitter {
 public:
  // Returns the lines that end in `bytes`. What follows the last newline is kept for the next call.
  std::vector<std::string> split(std::string_view bytes);

  // Returns what followed the last newline, as a line; empty if nothing did.
  std::string takeRest();

 private:
  std::string rest_;
};

}  // namespace quarlo::recording
