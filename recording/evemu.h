// evemu's text format: what a device says about itself (N: name, B: capability bits, ...) and its records (E:), as
// evemu-record writes them and evemu-play plays them.
#pragma once

#include <cstdio>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// What stands before the time of a record.
constexpr char kRecordLabel[] = "E:";

// A file, and what errors call it.
struct NamedFile {
  std::FILE* file;
  std::string name;
};

// Reads and checks a recording of one device, in any version of the format; the session starts at `start`. Errors call
// the file `name`. Throws Error.
DeviceRecording readEvemu(std::FILE* file, const std::string& name, microseconds start);

// The same of a recording in two files, as the first versions had it: the description and the records apart, in either
// order.
DeviceRecording readEvemuPair(const NamedFile& one, const NamedFile& other, microseconds start);

}  // namespace quarlo::recording
