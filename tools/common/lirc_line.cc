#include "tools/common/lirc_line.h"

#include <algorithm>
#include <iterator>

#include "input/linux_input_reader_limits.h"
#include "tools/common/letter_case.h"

namespace quarlo::tools {
namespace {

constexpr std::string_view kNamedButtons[] = {
#define LIRC_BUTTON(name, key, character) name,
#include "input/lirc_buttons.inc"
#undef LIRC_BUTTON
};

// Splits off what is before the first space of `rest`, and the space. Returns whether there was one.
bool takeField(std::string_view& rest, std::string_view& field) {
  const std::size_t end = rest.find(' ');
  field = rest.substr(0, end);
  if (end == std::string_view::npos) return false;
  rest.remove_prefix(end + 1);
  return true;
}

// What is left of a button's name without the prefixes that the reader drops.
std::string_view withoutPrefixes(std::string_view name) {
  for (const std::string_view prefix : components::input::kLircButtonPrefixes) {
    if (isSameText(name.substr(0, prefix.size()), prefix)) name.remove_prefix(prefix.size());
  }
  return name;
}

}  // namespace

std::optional<LircLine> parseLircLine(std::string_view text) {
  constexpr std::size_t kMaxCodeDigits = 16;
  constexpr std::size_t kMaxRepeatDigits = 8;
  LircLine line;
  if (!takeField(text, line.code) || !takeField(text, line.repeat) || !takeField(text, line.button)) return {};
  line.remote = text;
  const bool isComplete =
      !line.button.empty() && !line.remote.empty() && line.remote.find(' ') == std::string_view::npos;
  const bool hasNumbers = isHexadecimal(line.code) && line.code.size() <= kMaxCodeDigits &&
                          isHexadecimal(line.repeat) && line.repeat.size() <= kMaxRepeatDigits;
  if (!isComplete || !hasNumbers) return {};
  return line;
}

std::optional<UnknownLine> findUnknown(std::string_view line) {
  if (line.empty() || isLircBroadcast(line)) return {};
  std::string_view code;
  std::string_view repeat;
  std::string_view button;
  std::string_view rest = line;
  // As the reader takes it apart.
  const bool isWhole = takeField(rest, code) && takeField(rest, repeat) && takeField(rest, button);
  if (!isWhole || repeat.empty() || button.empty() || rest.empty()) return UnknownLine{"", "a cut line"};
  if (isKnownButton(button)) return {};
  const bool canBeCut = !parseLircLine(line) || isHexadecimal(withoutPrefixes(button));
  return UnknownLine{button, canBeCut ? "an unknown button, or a cut line" : "an unknown button"};
}

bool isLircBroadcast(std::string_view line) { return line == "BEGIN" || line == "SIGHUP" || line == "END"; }

bool isHexadecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

bool isNamedButton(std::string_view button) {
  return std::any_of(std::begin(kNamedButtons), std::end(kNamedButtons),
                     [&](std::string_view name) { return isSameText(name, withoutPrefixes(button)); });
}

bool isKnownButton(std::string_view button) { return withoutPrefixes(button).size() == 1 || isNamedButton(button); }

}  // namespace quarlo::tools
