// Numbers among the arguments.
#pragma once

#include <charconv>
#include <string>

#include "tools/common/command_line.h"

namespace quarlo::tools {

// What a number must be, for a person: "number of milliseconds", from `minimum` to `maximum`, such as `example`.
template <typename Number>
struct Expected {
  const char* what;
  Number minimum;
  Number maximum;
  Number example;
};

// Takes nothing but digits, with a sign where `Number` has one. Returns whether it is a number within these limits.
template <typename Number>
bool isNumber(const std::string& text, Number minimum, Number maximum, Number& number) {
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number >= minimum && number <= maximum;
}

// Throws ArgumentError if `text` is not what is expected.
template <typename Number>
Number parseNumber(const std::string& text, const Expected<Number>& expected) {
  Number number;
  if (isNumber(text, expected.minimum, expected.maximum, number)) return number;
  throw ArgumentError("\"" + text + "\" is not a " + expected.what + ": expected " + std::to_string(expected.minimum) +
                      " to " + std::to_string(expected.maximum) + ", such as " + std::to_string(expected.example));
}

}  // namespace quarlo::tools
