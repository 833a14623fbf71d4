#include "recording/evemu.h"

#include <linux/input.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace quarlo::recording {
namespace {

constexpr std::uint32_t kMostByte = 0xff;
constexpr std::uint32_t kMostWord = 0xffff;
constexpr std::size_t kMostBitBytes = (KEY_MAX + 1) / 8;  // no event type has more codes than EV_KEY

// What one file has of a recording.
struct Part {
  bool hasRecords() const { return !recording.records.empty(); }

  std::string name;  // of the file
  bool hasDescription;
  DeviceRecording recording;
};

class EvemuParser {
 public:
  EvemuParser(const NamedFile& file, microseconds start)
      : lines_(file.file, file.name), timeline_(start), name_(file.name) {}

  Part parse() {
    while (lines_.next()) parseLine();
    collectCodes();
    return {name_, !bits_.empty(), std::move(recording_)};
  }

 private:
  void parseLine() {
    std::string_view rest = lines_.text();
    const std::string_view label = rest.substr(0, 2);
    rest.remove_prefix(label.size());
    if (label == kRecordLabel) return parseRecord(rest);
    if (label == "B:") return parseBits(rest);
    if (label == "N:") return parseName(rest);
    if (label == "I:") return parseIds(rest);
    if (label == "P:") return parseProperties(rest);
    if (label == "A:") return parseAxis(rest);
    if (label == "L:" || label == "S:") return parseState(rest);
    lines_.fail("the line is " + quoted(lines_.text()) + ", expected a comment (#) or N: I: P: B: A: L: S: or E:");
  }

  // E: <seconds>.<microseconds> <type> <code> <value>
  void parseRecord(std::string_view rest) {
    Record record;
    record.time = timeline_.parse(lines_, takeField(rest));
    record.type = static_cast<std::uint16_t>(parseHexadecimal(lines_, "the type", takeField(rest), kMostWord));
    record.code = static_cast<std::uint16_t>(parseHexadecimal(lines_, "the code", takeField(rest), kMostWord));
    record.value = static_cast<std::int32_t>(parseDecimal(lines_, "the value", takeField(rest), INT32_MIN, INT32_MAX));
    expectEnd(rest);
    recording_.records.push_back(record);
  }

  // B: <type> <bytes>, repeated for as long as the type has bytes
  void parseBits(std::string_view rest) {
    std::vector<std::uint8_t>& bits = bits_[parseHexadecimal(lines_, "the event type", takeField(rest), EV_MAX)];
    for (std::string_view field = takeField(rest); !field.empty(); field = takeField(rest)) {
      bits.push_back(static_cast<std::uint8_t>(parseHexadecimal(lines_, "a capability byte", field, kMostByte)));
    }
    if (bits.size() > kMostBitBytes) {
      lines_.fail("more than " + std::to_string(kMostBitBytes) + " capability bytes for one event type");
    }
  }

  void parseName(std::string_view rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    recording_.name = lines_.unescaped(rest);
  }

  // I: <bus> <vendor> <product> <version>
  void parseIds(std::string_view rest) {
    input_id& id = recording_.id;
    for (__u16* number : {&id.bustype, &id.vendor, &id.product, &id.version}) {
      *number = static_cast<__u16>(parseHexadecimal(lines_, "an identifier", takeField(rest), kMostWord));
    }
    expectEnd(rest);
  }

  // P: <bytes>, repeated for as long as there are bytes
  void parseProperties(std::string_view rest) {
    for (std::string_view field = takeField(rest); !field.empty(); field = takeField(rest)) {
      const std::uint32_t byte = parseHexadecimal(lines_, "a property byte", field, kMostByte);
      for (int bit = 0; bit < 8; ++bit, ++propertyBit_) {
        if (propertyBit_ <= INPUT_PROP_MAX && (byte >> bit & 1) != 0) recording_.properties.insert(propertyBit_);
      }
    }
  }

  // A: <code> <min> <max> <fuzz> <flat>, and in later versions <resolution>
  void parseAxis(std::string_view rest) {
    const auto code = static_cast<int>(parseHexadecimal(lines_, "the axis", takeField(rest), ABS_MAX));
    input_absinfo axis = {};
    for (__s32* number : {&axis.minimum, &axis.maximum, &axis.fuzz, &axis.flat}) {
      *number = parseAxisNumber("a number of the axis", takeField(rest));
    }
    const std::string_view resolution = takeField(rest);
    if (!resolution.empty()) axis.resolution = parseAxisNumber("the axis's resolution", resolution);
    expectEnd(rest);
    recording_.axes[code] = axis;
  }

  __s32 parseAxisNumber(const char* what, std::string_view field) const {
    return static_cast<__s32>(parseDecimal(lines_, what, field, INT32_MIN, INT32_MAX));
  }

  // L: <LED> <state>, S: <switch> <state>
  void parseState(std::string_view rest) {
    parseHexadecimal(lines_, "the code", takeField(rest), kMostByte);
    parseDecimal(lines_, "the state", takeField(rest), INT32_MIN, INT32_MAX);
    expectEnd(rest);
  }

  void expectEnd(std::string_view rest) const {
    const std::string_view field = takeField(rest);
    if (!field.empty() && field.front() != '#') lines_.fail(quoted(field) + " follows, expected the line's end");
  }

  // A device can have a type without codes: a keyboard that repeats keys by itself, for example, has EV_REP.
  void collectCodes() {
    for (const auto& [type, bits] : bits_) {
      for (std::size_t bit = 0; bit < 8 * bits.size(); ++bit) {
        if ((bits[bit / 8] >> (bit % 8) & 1) == 0) continue;
        const int code = static_cast<int>(bit);
        if (type != EV_SYN) {
          recording_.codes[static_cast<int>(type)].insert(code);
        } else if (code != EV_SYN) {
          recording_.codes[code];  // the bits of EV_SYN are event types
        }
      }
    }
  }

  Lines lines_;
  Timeline timeline_;
  std::string name_;
  std::map<std::uint32_t, std::vector<std::uint8_t>> bits_;  // by event type
  int propertyBit_ = 0;                                      // the first of the next property byte
  DeviceRecording recording_;
};

void requireRecords(const Part& part) {
  if (!part.hasRecords()) throw Error(part.name + ": no records (lines that start with E:): there is nothing to play");
}

}  // namespace

DeviceRecording readEvemu(std::FILE* file, const std::string& name, microseconds start) {
  Part whole = EvemuParser({file, name}, start).parse();
  if (!whole.hasDescription) {
    throw Error(name +
                ": no capability lines (B:), which describe the device: if they are in another file, play the two "
                "together, or put both into one");
  }
  requireRecords(whole);
  return std::move(whole.recording);
}

DeviceRecording readEvemuPair(const NamedFile& one, const NamedFile& other, microseconds start) {
  Part description = EvemuParser(one, start).parse();
  Part events = EvemuParser(other, start).parse();
  const auto complain = [&](const char* problem) {
    throw Error(one.name + " and " + other.name + ": " + problem +
                ", expected a device's description in one of them, and its records in the other");
  };
  if (!description.hasDescription && !events.hasDescription) complain("neither has capability lines (B:)");
  if (description.hasDescription && events.hasDescription) complain("both have capability lines (B:)");
  if (description.hasRecords() && events.hasRecords()) complain("both have records (E:)");
  if (events.hasDescription) std::swap(description, events);
  requireRecords(events);
  description.recording.records = std::move(events.recording.records);
  return std::move(description.recording);
}

}  // namespace quarlo::recording
