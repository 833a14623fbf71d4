// What the LIRC daemon sends for a press of a button, and the buttons that the reader knows.
#pragma once

#include <optional>
#include <string_view>

namespace quarlo::tools {

// As lircd writes it: "<code> <repeat count> <button> <remote>". A remote's name has no blank in it (lircd.conf(5)).
struct LircLine {
  std::string_view code;    // hexadecimal, as the repeat count
  std::string_view repeat;  // 0 for the first line of a press
  std::string_view button;
  std::string_view remote;
};

// None if the line, without its end, is of another form.
std::optional<LircLine> parseLircLine(std::string_view text);

// What a line says that gives no event, whatever came before it.
struct UnknownLine {
  std::string_view button;  // or "" if it has none
  const char* description;  // for a person
};

// None for the line, without its end, of a button that the reader knows, and for what the daemon says of a reload.
// Where lines were lost, the rest of one can run into the next one: the name then is one of its numbers, or the
// remote's.
std::optional<UnknownLine> findUnknown(std::string_view line);

// Whether this is what the daemon says, line by line, when it has read its configuration again.
bool isLircBroadcast(std::string_view line);

bool isHexadecimal(std::string_view text);

// Whether the reader knows a button by this name: it is in its list, in any case and also with a prefix that the reader
// drops.
bool isNamedButton(std::string_view button);

// Whether the reader gives a key for a button of this name: it knows it, or it is a single character.
bool isKnownButton(std::string_view button);

}  // namespace quarlo::tools
