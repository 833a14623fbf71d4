#include "logging/escape.h"

#include <cstdio>
#include <cstring>

namespace quarlo::logging {
namespace {

// Writes the escape of one byte to `out`.
void EscapeByte(unsigned char byte, char (&out)[kLongestEscape + 1]) {
  switch (byte) {
    case '\n': std::strcpy(out, "\\n"); return;
    case '\r': std::strcpy(out, "\\r"); return;
    case '\t': std::strcpy(out, "\\t"); return;
    case '\\': std::strcpy(out, "\\\\"); return;
    default: break;
  }
  const bool printable = byte >= 0x20 && byte < 0x7f;
  std::snprintf(out, sizeof out, printable ? "%c" : "\\x%02x", byte);
}

}  // namespace

std::size_t Escape(const char* text, std::size_t length, char* out, std::size_t size) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < length; ++i) {
    char escaped[kLongestEscape + 1];
    EscapeByte(static_cast<unsigned char>(text[i]), escaped);
    const std::size_t width = std::strlen(escaped);
    if (used + width >= size) break;
    std::memcpy(out + used, escaped, width);
    used += width;
  }
  out[used] = '\0';
  return used;
}

}  // namespace quarlo::logging
