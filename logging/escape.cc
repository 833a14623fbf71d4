#include "logging/escape.h"

#include <cstdio>
#include <cstring>

namespace quarlo::logging {
namespace {

// Writes the escape of one byte to `out`.
void escapeByte(unsigned char byte, char (&out)[kLongestEscape + 1]) {
  const bool printable = byte >= 0x20 && byte < 0x7f;
  const char* format = printable ? "%c" : "\\x%02x";
  switch (byte) {
    case '\n': format = "\\n"; break;
    case '\r': format = "\\r"; break;
    case '\t': format = "\\t"; break;
    case '\\': format = "\\\\"; break;
    default: break;
  }
  std::snprintf(out, sizeof out, format, byte);
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
