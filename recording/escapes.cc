#include "recording/escapes.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace quarlo::recording {
namespace {

constexpr char kBackslash = '\\';

// ---- UTF-8 --------------------------------------------------------------------------------------

// How many bytes a character has that starts with this one; 0 if none does.
std::size_t sizeByFirst(unsigned char byte) {
  if (byte < 0x80) return 1;
  if (byte < 0xc2) return 0;  // C0 and C1 would start a longer form of ASCII
  if (byte < 0xe0) return 2;
  if (byte < 0xf0) return 3;
  return byte < 0xf5 ? 4 : 0;
}

bool continues(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

struct Character {
  std::string_view bytes;  // a single one if it is not UTF-8
  std::optional<std::uint32_t> number;
};

// REQUIRES: !text.empty()
Character firstCharacter(std::string_view text) {
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // of as many bytes
  constexpr std::uint32_t kLargest = 0x10ffff;
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t size = sizeByFirst(first);
  const Character none = {text.substr(0, 1), std::nullopt};
  if (size == 0 || size > text.size()) return none;
  std::uint32_t number = size == 1 ? first : first & (0x7fU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    if (!continues(text[i])) return none;
    number = number << 6 | (static_cast<unsigned char>(text[i]) & 0x3fU);
  }
  const bool isSurrogate = number >= 0xd800 && number <= 0xdfff;
  if (number < kSmallest[size] || number > kLargest || isSurrogate) return none;
  return {text.substr(0, size), number};
}

// ---- Escapes ------------------------------------------------------------------------------------

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

constexpr Range kEscaped[] = {
    {0x0000, 0x001f},                            // controls
    {kBackslash, kBackslash}, {0x007f, 0x009f},  // DEL, more controls
    {0x061c, 0x061c},                            // ARABIC LETTER MARK
    {0x200e, 0x200f},                            // LEFT-TO-RIGHT MARK, RIGHT-TO-LEFT MARK
    {0x2028, 0x202e},  // LINE SEPARATOR, PARAGRAPH SEPARATOR, embeddings and overrides of direction
    {0x2066, 0x2069},  // isolates of direction
};

bool isPlain(const Character& character) {
  return character.number && std::none_of(std::begin(kEscaped), std::end(kEscaped), [&](const Range& range) {
           return *character.number >= range.first && *character.number <= range.last;
         });
}

// The start of `text` that most text is made of, and that needs no look at each character.
std::string_view plainAsciiOf(std::string_view text) {
  const char* end = text.data();
  const char* const last = end + text.size();
  while (end != last && *end >= ' ' && *end < 0x7f && *end != kBackslash) ++end;
  return text.substr(0, static_cast<std::size_t>(end - text.data()));
}

std::string escapeOf(char byte) {
  if (byte == kBackslash) return {kBackslash, kBackslash};
  char text[kLongestEscape + 1];
  std::snprintf(text, sizeof text, "\\x%02x", unsigned{static_cast<unsigned char>(byte)});
  return text;
}

std::string escapesOf(std::string_view bytes) {
  std::string escapes;
  for (const char byte : bytes) escapes += escapeOf(byte);
  return escapes;
}

// The byte whose escape `text` starts with; the escape is then split off. None if there is none.
std::optional<char> takeEscape(std::string_view& text) {
  constexpr std::size_t kDigits = 2;
  if (text.substr(0, 2) == "\\\\") {
    text.remove_prefix(2);
    return kBackslash;
  }
  if (text.size() < kLongestEscape || text[1] != 'x') return std::nullopt;
  const char* const digits = text.data() + kLongestEscape - kDigits;
  unsigned char byte = 0;
  if (std::from_chars(digits, digits + kDigits, byte, 16).ptr != digits + kDigits) return std::nullopt;
  text.remove_prefix(kLongestEscape);
  return static_cast<char>(byte);
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  if (!text.empty() && text.front() == ' ') {
    result = escapeOf(' ');
    text.remove_prefix(1);
  }
  while (!text.empty()) {
    std::string_view next = plainAsciiOf(text);
    if (!next.empty()) {
      result += next;
    } else {
      const Character character = firstCharacter(text);
      next = character.bytes;
      result += isPlain(character) ? std::string(next) : escapesOf(next);
    }
    text.remove_prefix(next.size());
  }
  return result;
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::string_view plain = text.substr(0, text.find(kBackslash));
    result += plain;
    text.remove_prefix(plain.size());
    if (text.empty()) break;
    const std::optional<char> byte = takeEscape(text);
    if (!byte) return std::nullopt;
    result += *byte;
  }
  return result;
}

}  // namespace quarlo::recording
