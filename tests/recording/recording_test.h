// Recordings from texts, and what goes wrong with them.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

// A file with this text.
inline std::shared_ptr<std::FILE> openText(std::string& text) {
  return {fmemopen(text.data(), text.size(), "r"), std::fclose};
}

// What a reader takes from a file with this text, which errors call "file". Damage is an error, too.
template <typename Reader>
auto readText(std::string text, microseconds start = microseconds(0)) {
  Reader reader(start);
  const std::optional<Damage> damage = reader.add({openText(text).get(), "file"});
  if (damage) throw Error(damage->problem);
  return reader.take();
}

// What a reader takes from files with these texts, which errors call "1", "2", ..., and what is wrong with them.
template <typename Reader>
auto readDamaged(std::vector<std::string> texts, std::vector<std::string>& problems) {
  Reader reader(microseconds(0));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    try {
      const std::optional<Damage> damage = reader.add({openText(texts[i]).get(), std::to_string(i + 1)});
      if (damage) problems.push_back(damage->problem + "; " + damage->consequence);
    } catch (const Error& error) {
      problems.emplace_back(error.what());
    }
  }
  return reader.take();
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

using test::openDescriptors;

// The largest size that a file can get, as a stand-in for a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::size_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit_), 0);
    const rlimit limit = {static_cast<rlim_t>(size), limit_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &limit_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*handler_)(int);
  rlimit limit_ = {};
};

// As long as it lives; a sanitizer needs one to look at an error.
class NoFurtherDescriptors {
 public:
  NoFurtherDescriptors() {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
    const rlimit limit = {3, before_.rlim_max};  // those of every program
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }
  ~NoFurtherDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoFurtherDescriptors(const NoFurtherDescriptors&) = delete;
  NoFurtherDescriptors& operator=(const NoFurtherDescriptors&) = delete;

 private:
  rlimit before_ = {};
};

// Each test has a directory of its own.
class FolderTest : public testing::Test, protected test::Folder {};

}  // namespace quarlo::recording
