#include "tests/unit/test_log.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "logging/logging.h"

namespace quarlo {
namespace {

constexpr char kFile[] = "input/linux_input_reader";
constexpr char kLoopFile[] = "input/input_loop";

std::vector<std::string> messages;
int minLogLevel;
int vlogLevel;

std::string severityName(int severity) {
  if (severity < 0) return "VERBOSE" + std::to_string(-severity);
  switch (severity) {
    case logging::kInfo: return "INFO";
    case logging::kError: return "ERROR";
    default: return "SEVERITY" + std::to_string(severity);
  }
}

}  // namespace

namespace test {

void resetLog() {
  messages.clear();
  minLogLevel = logging::kInfo;
  vlogLevel = 10;
}

std::vector<std::string> takeLog() { return std::exchange(messages, {}); }

void setMinLogLevel(int level) { minLogLevel = level; }

void setVlogLevel(int level) { vlogLevel = level; }

}  // namespace test

namespace logging {

void LogMessage(const char* file, int line, int severity, const char* format, ...) {
  const bool isLoop = std::strcmp(file, kLoopFile) == 0;
  EXPECT_STREQ(file, isLoop ? kLoopFile : kFile);
  EXPECT_GT(line, 0);
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  messages.push_back((isLoop ? "loop: " : "") + severityName(severity) + " " + text);
}

int GetMinLogLevel() { return minLogLevel; }

int GetVlogLevelHelper(const char* file, std::size_t size) {
  EXPECT_STREQ(file, kFile);
  EXPECT_EQ(size, sizeof kFile);
  return vlogLevel;
}

}  // namespace logging
}  // namespace quarlo
