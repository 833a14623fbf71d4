// Files of a test's own, and named pipes in the place of evdev nodes: real system calls without a device.
#pragma once

#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>

namespace quarlo::test {

// A directory that other users can search, removed at the end with all that is in it. Not by std::filesystem: in 32-bit
// programs, that of Debian's C++ library fails at what was written to after January 2038.
class Folder {
 public:
  Folder() {
    const char* parent = std::getenv("TMPDIR");
    path_ = std::string(parent == nullptr ? "/tmp" : parent) + "/quarlo-XXXXXX";
    EXPECT_NE(mkdtemp(path_.data()), nullptr);
    EXPECT_EQ(chmod(path_.c_str(), 0755), 0);
  }
  ~Folder() {
    constexpr int kMostDescriptors = 16;
    const auto remove = [](const char* path, const struct stat* /*status*/, int /*type*/, FTW* /*place*/) {
      return std::remove(path);
    };
    nftw(path_.c_str(), remove, kMostDescriptors, FTW_DEPTH | FTW_PHYS);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }
  std::string path(const std::string& name) const { return path_ + "/" + name; }

  // Writes a file, and returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }

 private:
  std::string path_;
};

// What is in a file; empty if there is none.
inline std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

// How many descriptors this process has, with the one that counts them.
inline auto openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

// Who is not root, for as long as it lives.
class NoRoot {
 public:
  NoRoot() { EXPECT_TRUE(user_ != 0 || setresuid(kNobody, kNobody, user_) == 0); }
  ~NoRoot() { EXPECT_EQ(setresuid(user_, user_, user_), 0); }
  NoRoot(const NoRoot&) = delete;
  NoRoot& operator=(const NoRoot&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
  const uid_t user_ = geteuid();
};

// A FIFO that takes the place of an evdev node. Held open for both directions, it neither blocks nor comes to an end.
class Fifo {
 public:
  struct Record {
    int type;
    int code;
    int value;
  };

  explicit Fifo(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    fd_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(fd_, 0);
  }
  ~Fifo() { close(); }
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  // Writes the records and a SYN_REPORT at once, as the kernel makes them readable. Allocates nothing.
  void send(std::initializer_list<Record> records) const {
    constexpr std::size_t kMost = 16;
    input_event batch[kMost] = {};  // all zeroes is SYN_REPORT
    ASSERT_LT(records.size(), kMost);
    std::size_t count = 0;
    for (const Record& record : records) {
      batch[count].type = static_cast<__u16>(record.type);
      batch[count].code = static_cast<__u16>(record.code);
      batch[count].value = record.value;
      ++count;
    }
    const std::size_t size = (count + 1) * sizeof(input_event);
    ASSERT_EQ(write(fd_, batch, size), static_cast<ssize_t>(size));
  }

  // From now on its readers find its end.
  void close() {
    if (fd_ != -1) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

}  // namespace quarlo::test
