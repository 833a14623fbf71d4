// Recordings from texts, and what goes wrong with them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"
#include "tests/support/files.h"

namespace quarlo::recording {

inline bool operator==(const Record& a, const Record& b) {
  return a.time == b.time && a.type == b.type && a.code == b.code && a.value == b.value;
}

inline bool operator==(const RemoteLine& a, const RemoteLine& b) { return a.time == b.time && a.text == b.text; }

// The first lines of a file that this program records.
const std::string kMark = "# EVEMU 1.3\n# quarlo-input session 2\n";

// `read` of a file with this text, which errors call "file".
template <typename Recording>
Recording readText(const std::string& text, Recording (*read)(std::FILE*, const std::string&, microseconds),
                   microseconds start = microseconds(0)) {
  std::string buffer = text;
  std::FILE* file = fmemopen(buffer.data(), buffer.size(), "r");
  try {
    Recording recording = read(file, "file", start);
    std::fclose(file);
    return recording;
  } catch (...) {
    std::fclose(file);
    throw;
  }
}

// What `action` complains about; empty if it does not.
template <typename Action>
std::string errorOf(Action action) {
  try {
    action();
    return "";
  } catch (const Error& error) {
    return error.what();
  }
}

// Each test has a directory of its own.
class FolderTest : public testing::Test, protected test::Folder {};

}  // namespace quarlo::recording
