// A named pipe in the place of an evdev node: real system calls without a device.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace quarlo::test {

// A folder of its own, which must be empty again at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() { EXPECT_NE(mkdtemp(path_), nullptr); }
  ~TemporaryFolder() { EXPECT_EQ(rmdir(path_), 0); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string file(const char* name) const { return std::string(path_) + "/" + name; }

 private:
  char path_[32] = "/tmp/quarlo-input-XXXXXX";
};

class Fifo {
 public:
  explicit Fifo(std::string path) : path_(std::move(path)) {
    EXPECT_EQ(mkfifo(path_.c_str(), 0600), 0);
    // Held open for both directions, the pipe neither blocks nor comes to an end.
    end_ = open(path_.c_str(), O_RDWR);
    EXPECT_GE(end_, 0);
  }
  ~Fifo() {
    close(end_);
    unlink(path_.c_str());
  }
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  const char* path() const { return path_.c_str(); }

  void send(int type, int code, int value) const {
    input_event record = {};
    record.type = static_cast<__u16>(type);
    record.code = static_cast<__u16>(code);
    record.value = value;
    ASSERT_EQ(write(end_, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  }

 private:
  std::string path_;
  int end_ = -1;
};

}  // namespace quarlo::test
