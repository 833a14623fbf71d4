// The lines that a LIRC daemon sent, each with the time of its receipt: "<seconds>.<microseconds> <line>".
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// What stands before the time in a line.
constexpr char kRemoteLabel[] = "";

// Reads and checks a recording of a remote, from one file or from several that follow each other.
class RemoteReader {
 public:
  // The session starts at `start`.
  explicit RemoteReader(microseconds start) : start_(start) {}

  // Adds the lines of a file up to the first one that is wrong. Returns what is wrong there. Throws Error if there is
  // no line before it.
  std::optional<Damage> add(const NamedFile& file);

  bool isEmpty() const { return recording_.empty(); }

  // All of them.
  std::vector<RemoteLine> take() { return std::move(recording_); }

 private:
  void addLine(const Lines& lines);

  microseconds start_;
  SharedTexts texts_;
  std::vector<RemoteLine> recording_;
};

}  // namespace quarlo::recording
