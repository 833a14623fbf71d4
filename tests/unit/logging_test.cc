// The back end for programs without a logging facility, and the escaping that it and other programs use.
#include <gtest/gtest.h>

#include <string>

#include "logging/escape.h"
#include "logging/stderr_logging.h"

namespace quarlo::logging {
namespace {

std::string escaped(const std::string& text, std::size_t size = 1000) {
  std::string out(size, '#');
  const std::size_t length = Escape(text.data(), text.size(), out.data(), out.size());
  EXPECT_EQ(out[length], '\0');
  return out.substr(0, length);
}

TEST(Escape, LeavesPrintableAsciiAsItIs) {
  std::string printable;
  for (char c = ' '; c <= '~'; ++c) {
    if (c != '\\') printable += c;
  }
  EXPECT_EQ(escaped(printable), printable);
}

TEST(Escape, ShowsEverythingElse) {
  EXPECT_EQ(escaped("a\n\r\t\\b"), "a\\n\\r\\t\\\\b");
  EXPECT_EQ(escaped("\x1b[31m\x1f"), "\\x1b[31m\\x1f");
  EXPECT_EQ(escaped(std::string("\0\x7f\x80\xff", 4)), "\\x00\\x7f\\x80\\xff");
}

TEST(Escape, StopsBeforeAnEscapeThatDoesNotFit) {
  EXPECT_EQ(escaped("ab\x1b", 7), "ab\\x1b");
  EXPECT_EQ(escaped("ab\x1b", 6), "ab");
  EXPECT_EQ(escaped("ab\x1b ", 6), "ab");  // and with it, though a space would
  EXPECT_EQ(escaped("ab", 1), "");
}

class StderrLoggingTest : public testing::Test {
 protected:
  ~StderrLoggingTest() override {
    SetMinLogLevel(kInfo);
    SetVlogLevel(0);
  }

  template <typename... Arguments>
  static std::string written(int severity, const char* format, Arguments... arguments) {
    testing::internal::CaptureStderr();
    LogMessage("input/linux_input_reader", 1, severity, format, arguments...);
    return testing::internal::GetCapturedStderr();
  }
};

TEST_F(StderrLoggingTest, WantsErrorsAndInformationAtFirst) {
  EXPECT_EQ(GetMinLogLevel(), kInfo);
  EXPECT_EQ(GetVlogLevelHelper("input/linux_input_reader", 25), 0);
}

TEST_F(StderrLoggingTest, WantsWhatItIsTold) {
  SetMinLogLevel(kError);
  SetVlogLevel(10);
  EXPECT_EQ(GetMinLogLevel(), kError);
  EXPECT_EQ(GetVlogLevelHelper("any", 4), 10);
}

TEST_F(StderrLoggingTest, WritesALineWithTheSeverity) {
  EXPECT_EQ(written(kInfo, "%s %d", "one", 1), "INFO one 1\n");
  EXPECT_EQ(written(kError, "%s", "two"), "ERROR two\n");
  EXPECT_EQ(written(kError - 1, "%s", "a warning"), "INFO a warning\n");
  EXPECT_EQ(written(kError + 1, "%s", "the end"), "ERROR the end\n");
  EXPECT_EQ(written(-1, "%s", "a detail"), "VERBOSE1 a detail\n");
  EXPECT_EQ(written(-10, "%s", "three"), "VERBOSE10 three\n");
}

TEST_F(StderrLoggingTest, EscapesWhatADeviceOrTheDaemonSent) {
  EXPECT_EQ(written(kInfo, "Found a mouse: %s", "\x1b]0;owned\a"), "INFO Found a mouse: \\x1b]0;owned\\x07\n");
  EXPECT_EQ(written(-2, "LIRC string: %s", "x 00 OK y\n"), "VERBOSE2 LIRC string: x 00 OK y\\n\n");
}

TEST_F(StderrLoggingTest, CutsALongMessage) {
  EXPECT_EQ(written(kInfo, "%s", std::string(2000, '\n').c_str()).size(), std::string("INFO \n").size() + 2 * 1023);
  EXPECT_EQ(written(kInfo, "%s", std::string(2000, '\1').c_str()).size(), std::string("INFO \n").size() + 4 * 1023);
}

}  // namespace
}  // namespace quarlo::logging
