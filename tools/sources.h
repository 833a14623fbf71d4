// The sources that a subcommand reads from, as they were chosen, and a report of which are open and why one is not.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace quarlo::tools {

// The path of a source; none: it is to be searched for.
using SourcePath = std::optional<std::string>;

// In place of a path: leave this source out.
constexpr char kLeaveOut[] = "none";

struct SourcePaths {
  SourcePath mouse;
  SourcePath keyboard;
  SourcePath lirc;  // REQUIRES: at most 107 characters
};

// -1: not open.
struct SourceDescriptors {
  int mouse = -1;
  int keyboard = -1;
  int lirc = -1;
};

bool isLeftOut(const SourcePath& source);

bool isEvdevNode(int fd);

// Keeps the reader from logging what it could not open: the report says more.
void silenceReader();

// Prints what is asked for, one line, before anything is opened.
void printRequests(std::FILE* stream, const SourcePaths& paths);

// Prints what is open; of what is not, why, and what to do about it.
void printSources(std::FILE* stream, const SourcePaths& paths, const SourceDescriptors& descriptors);

}  // namespace quarlo::tools
