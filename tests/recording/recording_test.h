// Recordings from texts, and what goes wrong with them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"

namespace quarlo::recording {

// `read` of a file with this text, which errors call "file".
template <typename Recording>
Recording readText(const std::string& text, Recording (*read)(std::FILE*, const std::string&, Start),
                   Start start = Start::kZero) {
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

// A folder of its own for each test, removed at its end.
class FolderTest : public testing::Test {
 protected:
  FolderTest() {
    std::string name = (std::filesystem::temp_directory_path() / "quarlo-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~FolderTest() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name) const { return folder_ + "/" + name; }

  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }

  std::string folder_;
};

}  // namespace quarlo::recording
