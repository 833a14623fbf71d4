// Text in any case. Only letters of ASCII have two, whatever the locale: in the Turkish one, I is not the capital of i.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace quarlo::tools {

inline char inSmallLetters(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

inline std::string inSmallLetters(std::string text) {
  for (char& byte : text) byte = inSmallLetters(byte);
  return text;
}

// Whether the texts are the same but for the case of letters.
inline bool isSameText(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return inSmallLetters(x) == inSmallLetters(y); });
}

}  // namespace quarlo::tools
