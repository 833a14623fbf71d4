// A node as a program sees it that opens it by itself: records as text, and errors.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/events.h"

namespace quarlo::test {

// The argument of EVIOCGRAB.
constexpr long kGrab = 1;

// Records as NodeClient gives them.
inline const std::string kReport = "0 0 0";
inline const std::string kDropped = "0 3 0";
inline const std::string kPressA = "1 30 1";
inline const std::string kReleaseA = "1 30 0";

// A descriptor of a node, and what it has to read.
class NodeClient {
 public:
  explicit NodeClient(const std::string& path, int moreFlags = O_NONBLOCK)
      : fd_(open(path.c_str(), O_RDONLY | moreFlags)) {}
  ~NodeClient() {
    if (fd_ != -1) close(fd_);
  }
  NodeClient(const NodeClient&) = delete;
  NodeClient& operator=(const NodeClient&) = delete;

  int fd() const { return fd_; }

  // The next record, such as "1 30 1" (type, code, value), or the error of the read.
  std::string next() const {
    input_event record;
    const ssize_t size = ::read(fd_, &record, sizeof record);
    if (size == -1) return std::strerror(errno);
    EXPECT_EQ(size, static_cast<ssize_t>(sizeof record));
    return asText(record);
  }

  // What one read() gives that has room for this many records.
  Lines read(std::size_t most) const {
    std::vector<input_event> records(most);
    const ssize_t size = ::read(fd_, records.data(), most * sizeof records[0]);
    if (size == -1) return {std::strerror(errno)};
    Lines lines;
    for (std::size_t i = 0; i < static_cast<std::size_t>(size) / sizeof records[0]; ++i) {
      lines.push_back(asText(records[i]));
    }
    return lines;
  }

  // All there is to read, up to the error that ends it, which is left out if it is that there is nothing more.
  Lines all() const {
    Lines records;
    for (std::string record = next(); record != std::strerror(EAGAIN); record = next()) {
      records.push_back(record);
      if (record == std::strerror(ENODEV)) break;
    }
    return records;
  }

 private:
  static std::string asText(const input_event& record) {
    return std::to_string(record.type) + " " + std::to_string(record.code) + " " + std::to_string(record.value);
  }

  int fd_;
};

}  // namespace quarlo::test
