// The console behind the screen: what is typed reaches it as well, unless one of two things is done about it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <linux/kd.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "input/linux_input_reader.h"
#include "tests/scenario/uinput.h"

namespace quarlo::test {
namespace {

using components::input::LinuxInputReader;

// The console in front, where a shell would wait.
class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() : console(open("/dev/tty0", O_RDWR | O_NONBLOCK | O_NOCTTY)) {
    EXPECT_NE(console, -1);
    termios settings = {};
    EXPECT_EQ(tcgetattr(console, &settings), 0);
    cfmakeraw(&settings);
    EXPECT_EQ(tcsetattr(console, TCSANOW, &settings), 0);
    tcflush(console, TCIFLUSH);
    typed();  // so that nothing is still on its way of what other tests have typed
    EXPECT_TRUE(reader.init(nullptr, keyboard.path().c_str(), "/nowhere", 1919, 1079));
  }
  ~ConsoleTest() override { close(console); }

  // What the console got up to here. The kernel hands it over some time later, but in order.
  std::string typed() {
    keyboard.tap(KEY_J);
    std::string text;
    char letter = 0;
    pollfd wait = {console, POLLIN, 0};
    while (letter != 'j' && poll(&wait, 1, 10000) == 1 && read(console, &letter, 1) == 1) text += letter;
    return text;
  }

  bool readerGetsIt() {
    LinuxInputReader::InputEvent event = {};
    return reader.readInput(event, 1000) && event.keyData.key == 'H';
  }

  int console;
  UinputDevice keyboard{test::keyboard()};
  LinuxInputReader reader;
};

TEST_F(ConsoleTest, WhatIsTypedReachesTheConsoleAsWell) {
  keyboard.tap(KEY_H);
  EXPECT_TRUE(readerGetsIt());
  EXPECT_EQ(typed(), "hj");
}

TEST_F(ConsoleTest, NotWhileTheApplicationGrabsTheNode) {
  ASSERT_EQ(ioctl(reader.keyboardFd, EVIOCGRAB, 1L), 0);
  keyboard.tap(KEY_H);
  EXPECT_TRUE(readerGetsIt());
  ASSERT_EQ(ioctl(reader.keyboardFd, EVIOCGRAB, 0L), 0);
  EXPECT_EQ(typed(), "j");
}

TEST_F(ConsoleTest, NotWhileTheConsolesKeyboardIsOff) {
  int mode;
  ASSERT_EQ(ioctl(console, KDGKBMODE, &mode), 0);
  ASSERT_EQ(ioctl(console, KDSKBMODE, K_OFF), 0);
  keyboard.tap(KEY_H);
  EXPECT_TRUE(readerGetsIt());
  ASSERT_EQ(ioctl(console, KDSKBMODE, mode), 0);
  EXPECT_EQ(typed(), "j");
}

}  // namespace
}  // namespace quarlo::test
