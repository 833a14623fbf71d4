// evemu's text format: what a device says about itself (N: name, B: capability bits, ...) and its records (E:), as
// evemu-record writes them and evemu-play plays them.
#pragma once

#include <optional>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// What stands before the time of a record.
constexpr char kRecordLabel[] = "E:";

// Reads and checks a recording of one device, in any version of the format, from one file or from several that follow
// each other.
class EvemuReader {
 public:
  // The session starts at `start`.
  explicit EvemuReader(microseconds start) : start_(start) {}

  // Adds the records of a file up to the first line that is wrong. Returns what is wrong there. Throws Error if there
  // is no record before it.
  std::optional<Damage> add(const NamedFile& file);

  bool isEmpty() const { return recording_.records.empty(); }

  // All of them, and the first description. Throws Error if there is none.
  // REQUIRES: !isEmpty()
  DeviceRecording take();

 private:
  microseconds start_;
  DeviceRecording recording_;
  bool isDescribed_ = false;
  std::string whyUndescribed_;
};

// A recording in two files, as the first versions had it: the description and the records apart.
struct EvemuPair {
  DeviceRecording recording;
  std::optional<Damage> damage;  // of the records
};

// Reads and checks the files, in either order. Throws Error.
EvemuPair readEvemuPair(const NamedFile& one, const NamedFile& other, microseconds start);

}  // namespace quarlo::recording
