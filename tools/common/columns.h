// Text in columns.
#pragma once

#include <string>

namespace quarlo::tools {

// `text` with blanks behind it, or before it, up to `width`. A longer text stays as it is.
inline std::string leftAligned(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

inline std::string rightAligned(const std::string& text, std::size_t width) {
  return std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}

// `line` without the blanks at its end.
inline std::string withoutTrailingBlanks(const std::string& line) {
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace quarlo::tools
