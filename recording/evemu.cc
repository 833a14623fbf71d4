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

// What one file has of a recording, up to the first line that is wrong.
struct Part {
  bool hasRecords() const { return records != 0; }

  // Throws Error unless there are records, and if so, names the line that keeps them from being read.
  void requireRecords() const {
    if (hasRecords()) return;
    throw Error(damage ? damage->problem : name + ": no records (lines that start with E:): there is nothing to play");
  }

  std::string name;  // of the file
  bool hasDescription;
  DeviceRecording description;  // without records
  std::size_t records;          // how many it has
  std::optional<Damage> damage;
};

class EvemuParser {
 public:
  // Adds the records to `records`.
  EvemuParser(const NamedFile& file, microseconds start, std::vector<Record>& records)
      : lines_(file.file, file.name), start_(start), name_(file.name), records_(records) {}

  Part parse() {
    const std::size_t before = records_.size();
    std::optional<Damage> damage = lines_.forEach([this] { parseLine(); });
    collectCodes();
    return {name_, !bits_.empty(), std::move(description_), records_.size() - before, std::move(damage)};
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
    const microseconds last = records_.empty() ? microseconds(0) : records_.back().time;
    record.time = parseTimeSince(lines_, takeField(rest), start_, last);
    record.type = static_cast<std::uint16_t>(parseHexadecimal(lines_, "the type", takeField(rest), kMostWord));
    record.code = static_cast<std::uint16_t>(parseHexadecimal(lines_, "the code", takeField(rest), kMostWord));
    record.value = static_cast<std::int32_t>(parseDecimal(lines_, "the value", takeField(rest), INT32_MIN, INT32_MAX));
    expectEnd(rest);
    records_.push_back(record);
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
    description_.name = lines_.unescaped(rest);
  }

  // I: <bus> <vendor> <product> <version>
  void parseIds(std::string_view rest) {
    input_id& id = description_.id;
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
        if (propertyBit_ <= INPUT_PROP_MAX && (byte >> bit & 1) != 0) description_.properties.insert(propertyBit_);
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
    description_.axes[code] = axis;
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
          description_.codes[static_cast<int>(type)].insert(code);
        } else if (code != EV_SYN) {
          description_.codes[code];  // the bits of EV_SYN are event types
        }
      }
    }
  }

  Lines lines_;
  microseconds start_;
  std::string name_;
  std::vector<Record>& records_;
  std::map<std::uint32_t, std::vector<std::uint8_t>> bits_;  // by event type
  int propertyBit_ = 0;                                      // the first of the next property byte
  DeviceRecording description_;
};

}  // namespace

std::optional<Damage> EvemuReader::add(const NamedFile& file) {
  Part part = EvemuParser(file, start_, recording_.records).parse();
  if (!isDescribed_ && part.hasDescription && (part.hasRecords() || !part.damage)) {
    part.description.records = std::move(recording_.records);
    recording_ = std::move(part.description);
    isDescribed_ = true;
  }
  part.requireRecords();
  if (!isDescribed_ && whyUndescribed_.empty()) {
    whyUndescribed_ = part.damage ? part.damage->problem
                                  : file.name +
                                        ": no capability lines (B:), which describe the device: if they are in another "
                                        "file, play the two together, or put both into one";
  }
  return part.damage;
}

DeviceRecording EvemuReader::take() {
  if (!isDescribed_) throw Error(whyUndescribed_);
  return std::move(recording_);
}

EvemuPair readEvemuPair(const NamedFile& one, const NamedFile& other, microseconds start) {
  std::vector<Record> records;
  std::vector<Record> otherRecords;
  Part description = EvemuParser(one, start, records).parse();
  Part events = EvemuParser(other, start, otherRecords).parse();
  for (const Part* part : {&description, &events}) {
    if (part->damage) part->requireRecords();
  }
  const auto complain = [&](const char* problem) {
    throw Error(one.name + " and " + other.name + ": " + problem +
                ", expected a device's description in one of them, and its records in the other");
  };
  if (!description.hasDescription && !events.hasDescription) complain("neither has capability lines (B:)");
  if (description.hasDescription && events.hasDescription) complain("both have capability lines (B:)");
  if (description.hasRecords() && events.hasRecords()) complain("both have records (E:)");
  if (events.hasDescription) {
    std::swap(description, events);
    std::swap(records, otherRecords);
  }
  events.requireRecords();
  description.description.records = std::move(otherRecords);
  return {std::move(description.description), std::move(events.damage)};
}

}  // namespace quarlo::recording
