#include "logging/escape.h"

#include <cstdio>
#include <cstring>

namespace quarlo::logging {
namespace {

// The letter that stands for a byte behind a backslash, 0 if none does.
char letterOf(unsigned char byte) {
  switch (byte) {
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    case '\\': return '\\';
    default: return 0;
  }
}

// Writes the escape of one byte to `out`.
void escapeByte(unsigned char byte, char (&out)[kLongestEscape + 1]) {
  const char letter = letterOf(byte);
  const bool printable = byte >= 0x20 && byte < 0x7f;
  if (letter != 0) {
    std::snprintf(out, sizeof out, "\\%c", letter);
  } else {
    std::snprintf(out, sizeof out, printable ? "%c" : "\\x%02x", byte);
  }
}

}  // namespace

std::size_t Escape(const char* text, std::size_t length, char* out, std::size_t size) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < length; ++i) {
    char escaped[kLongestEscape + 1];
    escapeByte(static_cast<unsigned char>(text[i]), escaped);
    const std::size_t width = std::strlen(escaped);
    if (used + width >= size) break;
    std::memcpy(out + used, escaped, width);
    used += width;
  }
  out[used] = '\0';
  return used;
}

}  // namespace quarlo::logging
