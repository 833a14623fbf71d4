#include "tools/record/counter_line.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace quarlo::tools::record {
namespace {

using std::chrono::milliseconds;

// Standard output is a terminal of the test's own.
class CounterLineTest : public testing::Test {
 protected:
  void SetUp() override {
    if (master_ == -1) GTEST_SKIP() << "there are no pseudo-terminals here";
    grantpt(master_);
    unlockpt(master_);
    slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_NE(slave_, -1);
    std::fflush(stdout);
    dup2(slave_, STDOUT_FILENO);
  }

  void TearDown() override {
    std::fflush(stdout);
    dup2(before_, STDOUT_FILENO);
    for (const int fd : {slave_, master_, before_}) close(fd);
  }

  void setColumns(unsigned short columns) const {
    winsize size = {};
    size.ws_col = columns;
    ioctl(slave_, TIOCSWINSZ, &size);
  }

  // What the terminal has got since the last call. It comes in pieces, so a mark says where it ends.
  std::string written() const {
    EXPECT_EQ(write(slave_, "|", 1), 1);
    std::string text;
    for (char byte; read(master_, &byte, 1) == 1 && byte != '|';) text.push_back(byte);
    return text;
  }

 private:
  int before_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  int master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);

 protected:
  int slave_ = -1;
};

TEST_F(CounterLineTest, WritesTheLineAgainOnlyIfItChanges) {
  CounterLine line;
  line.show("12 records", milliseconds(0));
  EXPECT_EQ(written(), "\r12 records");
  line.show("12 records", milliseconds(200));
  EXPECT_EQ(written(), "");
  line.show("13 records", milliseconds(400));
  EXPECT_EQ(written(), "\r13 records");
}

TEST_F(CounterLineTest, WritesItAtMostTenTimesASecond) {
  CounterLine line;
  line.show("1", milliseconds(0));
  EXPECT_EQ(line.limited(-1, milliseconds(0)), -1);
  line.show("2", milliseconds(1));
  EXPECT_EQ(line.limited(-1, milliseconds(1)), 99);
  EXPECT_EQ(line.limited(500, milliseconds(1)), 99);
  EXPECT_EQ(line.limited(50, milliseconds(1)), 50);
  line.show("3", milliseconds(99));
  EXPECT_EQ(written(), "\r1");
  EXPECT_EQ(line.limited(-1, milliseconds(200)), 0);
  line.show("3", milliseconds(100));
  EXPECT_EQ(written(), "\r3");
  EXPECT_EQ(line.limited(-1, milliseconds(100)), -1);
}

TEST_F(CounterLineTest, LeavesNothingOfALongerLine) {
  CounterLine line;
  line.show("first", milliseconds(0));
  line.show("2nd", milliseconds(100));
  EXPECT_EQ(written(), "\rfirst\r2nd  ");
  line.clear();
  EXPECT_EQ(written(), "\r   \r");
  line.show("2nd", milliseconds(200));
  EXPECT_EQ(written(), "\r2nd");
}

TEST_F(CounterLineTest, StaysInOneRow) {
  CounterLine line;
  setColumns(20);
  line.show(std::string(30, 'x'), milliseconds(0));
  EXPECT_EQ(written(), "\r" + std::string(19, 'x'));
  setColumns(0);
  line.show(std::string(100, 'y'), milliseconds(100));
  EXPECT_EQ(written(), "\r" + std::string(79, 'y'));
}

TEST_F(CounterLineTest, DoesNotWaitForATerminalThatTakesNothing) {
  CounterLine line;
  line.show("1", milliseconds(0));
  EXPECT_EQ(written(), "\r1");
  ASSERT_EQ(tcflow(slave_, TCOOFF), 0);
  line.show("2", milliseconds(100));
  EXPECT_EQ(line.limited(-1, milliseconds(100)), -1);
  ASSERT_EQ(tcflow(slave_, TCOON), 0);
  EXPECT_EQ(written(), "");
  line.show("3", milliseconds(200));
  EXPECT_EQ(written(), "\r3");
}

TEST_F(CounterLineTest, IsOnlyForTerminals) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  dup2(ends[1], STDOUT_FILENO);
  CounterLine line;
  line.show("1", milliseconds(0));
  line.show("2", milliseconds(1));
  line.clear();
  EXPECT_EQ(line.limited(-1, milliseconds(1)), -1);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace quarlo::tools::record
