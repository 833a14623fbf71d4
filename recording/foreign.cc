#include "recording/foreign.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kHead = 4096;  // bytes that are looked at

struct Format {
  std::string_view mark;
  const char* name;
};

// What such files begin with.
constexpr Format kBeginnings[] = {
    {"\x1f\x8b"sv, "compressed (gzip): unpack it first"},
    {"\xfd"
     "7zXZ"sv,
     "compressed (xz): unpack it first"},
    {"BZh"sv, "compressed (bzip2): unpack it first"},
    {"\x28\xb5\x2f\xfd"sv, "compressed (zstd): unpack it first"},
    {"PK\x03\x04"sv, "an archive (zip): unpack it first"},
    {"\xd4\xc3\xb2\xa1"sv, "a capture of packets (pcap)"},
    {"\xa1\xb2\xc3\xd4"sv, "a capture of packets (pcap)"},
    {"\x0a\x0d\x0d\x0a"sv, "a capture of packets (pcapng)"},
    {"\x7f"
     "ELF"sv,
     "a program"},
    {"{"sv, "JSON, as monitor and replay print events"},
};

// What one of their first lines begins with.
constexpr Format kLines[] = {
    {"# libinput record"sv, "a recording of libinput (YAML)"}, {"ndevices:"sv, "a recording of libinput (YAML)"},
    {"Input driver version is"sv, "the output of evtest"},     {"Event: time "sv, "the output of evtest"},
    {"R: "sv, "a recording of HID reports (hid-recorder)"},    {"pulse "sv, "pulses and spaces, as mode2 prints them"},
    {"space "sv, "pulses and spaces, as mode2 prints them"},
};

bool isHexadecimal(char character) { return std::isxdigit(static_cast<unsigned char>(character)) != 0; }

// "0000000000f40bf0 00 KEY_UP tv".
bool startsWithLineOfIrw(std::string_view text) {
  constexpr std::size_t kDigits = 16;
  return text.size() > kDigits && text[kDigits] == ' ' &&
         std::all_of(text.begin(), text.begin() + kDigits, isHexadecimal);
}

// Of the line that `text` begins with. Null: none that is known.
const char* formatOfLine(std::string_view text) {
  if (startsWithLineOfIrw(text)) return "the output of irw, without times";
  for (const auto& [mark, name] : kLines) {
    if (startsWith(text, mark)) return name;
  }
  return nullptr;
}

const char* formatOf(std::string_view head) {
  if (head.empty()) return "an empty file";
  for (const auto& [mark, name] : kBeginnings) {
    if (startsWith(head, mark)) return name;
  }
  for (std::size_t start = 0; start < head.size();) {
    if (const char* name = formatOfLine(head.substr(start))) return name;
    start = std::min(head.find('\n', start), head.size()) + 1;
  }
  return nullptr;
}

}  // namespace

void refuseForeign(std::FILE* file, const std::string& name, const char* expected) {
  char bytes[kHead];
  const char* format = formatOf({bytes, std::fread(bytes, 1, sizeof bytes, file)});
  if (format != nullptr && std::ferror(file) == 0) throw Error(name + ": this is " + format + "; expected " + expected);
  std::rewind(file);
}

}  // namespace quarlo::recording
