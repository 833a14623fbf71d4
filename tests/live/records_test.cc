// The reader on real descriptors: records of this platform's size, written to pipes.
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

// On the real clock the first click of a process can count as its second.
Lines withoutClicks(Lines events) {
  for (std::string& event : events) event.erase(event.rfind(" clicks "));
  return events;
}

class RecordsTest : public testing::Test {
 protected:
  RecordsTest() {
    resetLog();
    EXPECT_TRUE(reader.init(mousePath.c_str(), keyboardPath.c_str(), folder.path("none").c_str(), 1280, 720));
    takeLog();
  }

  Folder folder;
  std::string mousePath = folder.path("mouse");
  std::string keyboardPath = folder.path("keyboard");
  Fifo mouse{mousePath};
  Fifo keyboard{keyboardPath};
  LinuxInputReader reader;
};

TEST_F(RecordsTest, TypingAndDraggingArriveAsEvents) {
  keyboard.send({{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_A, 1}});
  EXPECT_EQ(readOne(reader, 1000), keyDown(16, 0, 2));
  EXPECT_EQ(readAll(reader), Lines({keyDown(65, 'A', 2)}));
  mouse.send({{EV_REL, REL_X, 30}, {EV_REL, REL_Y, 40}, {EV_KEY, BTN_RIGHT, 1}, {EV_REL, REL_X, 5}});
  mouse.send({{EV_KEY, BTN_RIGHT, 0}});
  EXPECT_EQ(withoutClicks(readAll(reader)),
            withoutClicks({moved(30, 40), buttonDown(2, 30, 40, 1), moved(35, 40, 2), buttonUp(2, 35, 40, 1)}));
  EXPECT_EQ(takeLog(), Lines({}));
}

TEST_F(RecordsTest, WithoutInputAWaitEndsWithoutAnEvent) { EXPECT_EQ(readOne(reader, 1), kNone); }

}  // namespace
}  // namespace quarlo::test
