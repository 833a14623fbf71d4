// Bytes as lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quarlo::recording {

// Turns the bytes that a LIRC daemon sends into lines for a session. What a line has beyond kLongestText bytes is left
// out.
class LineSplitter {
 public:
  // Returns the lines that end within `bytes`. What follows the last newline is kept for the next call.
  std::vector<std::string> split(std::string_view bytes);

  // Returns what followed the last newline, as a line; empty if nothing did.
  std::string takeRest();

 private:
  std::string rest_;
};

}  // namespace quarlo::recording
