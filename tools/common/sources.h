// The sources that a subcommand reads from, as they were chosen, and a report of which are open and why one is not.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace quarlo::tools {

// The path of a source; none: search for it.
using SourcePath = std::optional<std::string>;

// In place of a path: leave this source out.
constexpr char kLeaveOut[] = "none";

struct SourcePaths {
  SourcePath mouse;
  SourcePath keyboard;
  SourcePath lirc;  // REQUIRES: at most kLongestLircPath characters
};

// -1: not open.
struct SourceDescriptors {
  int mouse = -1;
  int keyboard = -1;
  int lirc = -1;
};

enum class SourceState { kLeftOut, kNotOpen, kOpen, kGone };

// Of one source. It holds what paths and devices say, as it is: escape it before it reaches a terminal.
struct SourceReport {
  const char* what;  // "mouse", "keyboard" or "remote"
  SourceState state = SourceState::kLeftOut;
  std::string text;    // which it is, or why it is not open
  std::string remedy;  // what to do if it is not open; empty if there is nothing
};

bool isLeftOut(const SourcePath& source);

// Prints what is asked for, one line, before anything is opened.
void printRequests(std::FILE* stream, const SourcePaths& paths);

// Finds out what is open, and of what is not, why: the mouse, the keyboard, the remote.
std::vector<SourceReport> reportSources(const SourcePaths& paths, const SourceDescriptors& descriptors);

void printSources(std::FILE* stream, const std::vector<SourceReport>& reports);

}  // namespace quarlo::tools
