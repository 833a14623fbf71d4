// Nodes beyond the ones that the reader looks at, and what is none.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "tests/scenario/uinput.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

TEST(KernelNodesTest, AfterEvent31ComesEvent256WhichIsFoundByItsPathOnly) {
  std::vector<std::unique_ptr<UinputDevice>> buttons;
  for (int number = 0; number < 32; ++number) {
    buttons.push_back(std::make_unique<UinputDevice>(powerButton()));
    EXPECT_EQ(buttons.back()->path(), "/dev/input/event" + std::to_string(number));
  }
  UinputDevice device(keyboard());
  EXPECT_EQ(device.path(), "/dev/input/event256");
  resetLog();
  LinuxInputReader reader;
  EXPECT_FALSE(reader.init(nullptr, nullptr, "/nowhere", 1280, 720));
  LinuxInputReader byPath;
  EXPECT_TRUE(byPath.init("/nowhere", device.path().c_str(), "/nowhere", 1280, 720));
  device.press(KEY_A);
  EXPECT_EQ(readAll(byPath), Lines({keyDown(65, 'a')}));
}

TEST(KernelNodesTest, WhatIsNoNodeRefusesToAnswer) {
  resetLog();
  const LinuxInputReader reader;
  const int fd = open("/dev/null", O_RDONLY);
  EXPECT_FALSE(reader.hasRelEvent(fd));
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(takeLog(), Lines({"ERROR evdev ioctl failed in testRel"}));
  close(fd);
}

}  // namespace
}  // namespace quarlo::test
