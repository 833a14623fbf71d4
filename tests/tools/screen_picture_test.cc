#include "tools/monitor/screen_picture.h"

#include <gtest/gtest.h>

#include <chrono>

namespace quarlo::tools::monitor {
namespace {

using namespace std::chrono_literals;
using msg::KeyInput;
using MouseData = InputEvent::MouseData;
using Rows = std::vector<std::string>;

InputEvent buttonDown(std::int32_t button, std::uint16_t x, std::uint16_t y, std::uint8_t clicks) {
  InputEvent event = {};
  event.kind = InputEvent::kMouseEvent;
  event.mouseData = {MouseData::kButtonDown, button, x, y, clicks};
  return event;
}

class ScreenPictureTest : public testing::Test {
 protected:
  void look(microseconds time = 0s) { model_.look(time, reader_); }

  void point(int x, int y, int heldButton = MouseData::kNoButton) {
    reader_.pointerX = x;
    reader_.pointerY = y;
    reader_.pressedButton = heldButton;
    look();
  }

  // The rows, each behind a newline, and one at the end.
  std::string text(int columns, int rows) const {
    std::string result = "\n";
    for (const std::string& row : paint(model_, columns, rows).text()) result += row + "\n";
    return result;
  }

  LinuxInputReader reader_;
  ScreenModel model_{{{"mouse", SourceState::kOpen, "/dev/input/event3  USB Mouse", ""},
                      {"keyboard", SourceState::kNotOpen, "none fits among /dev/input/event0", "Plug one in"},
                      {"remote", SourceState::kLeftOut, "", ""}},
                     {1919, 1079}};
};

TEST_F(ScreenPictureTest, HasARowMoreForEachFurtherNode) {
  const Rows before = paint(model_, 60, 16).text();
  std::vector<SourceReport> sources = model_.sources();
  sources.push_back({"node 1", SourceState::kOpen, "/dev/input/event5  Remote", ""});
  sources.push_back({"node 2", SourceState::kGone, "/dev/input/event6", ""});
  model_ = ScreenModel(sources, {1919, 1079});
  Rows rows = paint(model_, 60, 18).text();
  EXPECT_EQ(rows[4], " node 1     open      /dev/input/event5  Remote");
  EXPECT_EQ(rows[5], " node 2     gone      /dev/input/event6");
  rows.erase(rows.begin() + 4, rows.begin() + 6);
  EXPECT_EQ(rows, before);
  EXPECT_EQ(paint(model_, 60, 17).text()[1], "It is 60x17 and must be 60x18.");
}

TEST_F(ScreenPictureTest, IsOneScreenOf80x24) {
  point(100, 100, MouseData::kLeft);
  point(1900, 1000, MouseData::kLeft);
  reader_.modifiers = KeyInput::kShiftModifier;
  reader_.numLock = true;
  reader_.lircKey = KeyInput::kVolumeUp;
  reader_.lircKeyTime.tv_sec = 1;
  reader_.lircTimeout = 300;
  model_.addEvent(1500ms, buttonDown(MouseData::kLeft, 100, 100, 2), {InputLoop::kMouse, std::nullopt, ""});
  look(62s);
  look(62300ms);
  EXPECT_EQ(text(80, 24), R"(
 quarlo-input monitor                                             1 event  1:02

 mouse      open      /dev/input/event3  USB Mouse
 keyboard   not open  none fits among /dev/input/event0
 remote     left out

 +- 1920x1080 ----------------+  pointer    1900,1000
 | **                         |  button    [left] middle  right
 |   ****                     |  clicks     left x2 at 100,100
 |       ****                 |
 |           ***              |  modifiers  ctrl [shift] alt [num lock]
 |              ****          |
 |                  ****      |  remote     held, skips 300 ms
 |                      ****  |  key        VolumeUp
 |                          *L|  ....................................|---
 +----------------------------+  4 s ago                              now

    1.500  mouse     mouse down  left x2         100,100





 Ctrl-C ends                            remote: | key-down  - held  = repeating
)");
}

TEST_F(ScreenPictureTest, IsCloserInASmallTerminal) {
  EXPECT_EQ(text(60, 16), R"(
 quarlo-input monitor                        0 events  0:00
 mouse      open      /dev/input/event3  USB Mouse
 keyboard   not open  none fits among /dev/input/event0
 remote     left out
 +- 1920x1080 -----+  pointer    0,0
 |+                |  button     left  middle  right
 |                 |  clicks
 |                 |  modifiers  ctrl  shift  alt  num lock
 |                 |  remote     idle
 |                 |  key
 +-----------------+  ..............................
                      3 s ago                    now



 Ctrl-C ends        remote: | key-down  - held  = repeating
)");
}

TEST_F(ScreenPictureTest, IsAMessageInATerminalThatIsTooSmall) {
  EXPECT_EQ(paint(model_, 59, 3).text(),
            (Rows{"The terminal is too small.", "It is 59x3 and must be 60x16.", "Enlarge it, or end with Ctrl-C."}));
  EXPECT_EQ(paint(model_, 80, 15).text()[1], "It is 80x15 and must be 60x16.");
  EXPECT_EQ(paint(model_, 3, 1).text(), Rows{"The"});
}

// The rows in the box, without its border.
Rows boxOf(const ScreenModel& model) {
  const Rows rows = paint(model, 80, 24).text();
  Rows inside;
  for (std::size_t i = 7; rows[i].rfind(" |", 0) == 0; ++i)
    inside.push_back(rows[i].substr(2, rows[i].find('|', 2) - 2));
  return inside;
}

TEST_F(ScreenPictureTest, TheBoxHasTheScreensProportions) {
  const auto sizeFor = [](Point largest) {
    const Rows box = boxOf(ScreenModel({}, largest));
    return std::pair<std::size_t, std::size_t>(box.front().size(), box.size());
  };
  EXPECT_EQ(sizeFor({1919, 1079}), (std::pair<std::size_t, std::size_t>{28, 8}));
  EXPECT_EQ(sizeFor({1279, 1023}), (std::pair<std::size_t, std::size_t>{20, 8}));
  EXPECT_EQ(sizeFor({1079, 1919}), (std::pair<std::size_t, std::size_t>{9, 8}));
  EXPECT_EQ(sizeFor({65535, 0}), (std::pair<std::size_t, std::size_t>{37, 1}));
  EXPECT_EQ(sizeFor({0, 65535}), (std::pair<std::size_t, std::size_t>{1, 8}));
}

TEST_F(ScreenPictureTest, ThePointerReachesTheCornersOfTheBox) {
  point(1919, 1079);
  EXPECT_EQ(boxOf(model_).back().back(), '+');
  point(0, 1079);
  EXPECT_EQ(boxOf(model_).back().front(), '+');
  point(1919, 0);
  EXPECT_EQ(boxOf(model_).front().back(), '+');
}

TEST_F(ScreenPictureTest, ThePointerIsTheLetterOfTheHeldButton) {
  for (const auto& [button, letter] :
       {std::pair{MouseData::kLeft, 'L'}, {MouseData::kMiddle, 'M'}, {MouseData::kRight, 'R'}}) {
    point(0, 0, button);
    const Picture picture = paint(model_, 80, 24);
    EXPECT_EQ(picture.at(2, 7).glyph, letter);
    EXPECT_EQ(picture.at(2, 7).style, Style::kPointer);
  }
}

TEST_F(ScreenPictureTest, AStrokeGoesInAnyDirection) {
  const auto strokeTo = [this](int x, int y) {
    point(0, 0);
    point(960, 540, MouseData::kLeft);
    point(x, y, MouseData::kLeft);
    return boxOf(model_);
  };
  EXPECT_EQ(strokeTo(0, 540)[4], "L**************             ");
  EXPECT_EQ(strokeTo(1919, 540)[4], "              *************L");
  const Rows up = strokeTo(960, 0);
  EXPECT_EQ(up[0], "              L             ");
  for (std::size_t row = 1; row <= 4; ++row) EXPECT_EQ(up[row], "              *             ");
}

TEST_F(ScreenPictureTest, TheTimelineShowsStatesAndKeyDowns) {
  const auto press = [this](microseconds time) {
    ++reader_.lircKeyTime.tv_usec;
    reader_.lircKey = KeyInput::kUp;
    look(time);
  };
  press(10ms);
  look(110ms);
  press(210ms);
  press(220ms);
  reader_.lircRepeatMode = true;
  look(310ms);
  for (int i = 0; i < 12; ++i) press(410ms);
  reader_.lircKey = 0;
  look(510ms);
  EXPECT_EQ(paint(model_, 80, 24).text()[14].substr(33), "..................................|-2=9.");
}

TEST_F(ScreenPictureTest, EachStateOfASourceLooksDifferent) {
  model_.setGone(0);
  const Picture picture = paint(model_, 80, 24);
  EXPECT_EQ(picture.text()[2], " mouse      gone      /dev/input/event3  USB Mouse");
  EXPECT_EQ(picture.at(12, 2).style, Style::kBad);
  EXPECT_EQ(picture.at(12, 3).style, Style::kPlain);
  EXPECT_EQ(picture.at(12, 4).style, Style::kFaint);
}

TEST_F(ScreenPictureTest, WhatIsTooLongIsCut) {
  const ScreenModel model({{"mouse", SourceState::kOpen, std::string(200, 'x'), ""}}, {1919, 1079});
  EXPECT_EQ(paint(model, 80, 24).text()[2], " mouse      open      " + std::string(54, 'x') + "...");
}

TEST_F(ScreenPictureTest, ShowsTheLinesThatCameLast) {
  for (int i = 0; i < 9; ++i) model_.addLogLine(std::to_string(i));
  const Rows rows = paint(model_, 80, 24).text();
  EXPECT_EQ(Rows(rows.begin() + 17, rows.begin() + 22),
            (Rows{"           4", "           5", "           6", "           7", "           8"}));
}

TEST_F(ScreenPictureTest, HoldsNothingThatATerminalCouldTakeForACommand) {
  ScreenModel model({{"mouse", SourceState::kOpen, "a\x1b[2Jb\xc2\x9b", ""}}, {1919, 1079});
  model.addLogLine("c\x1b[2Jd");
  const Rows rows = paint(model, 80, 24).text();
  EXPECT_EQ(rows[2], " mouse      open      a\\x1b[2Jb\\xc2\\x9b");
  EXPECT_EQ(rows[17], "           c?[2Jd");
}

TEST_F(ScreenPictureTest, FitsTerminalsOfAnySize) {
  for (int columns = 1; columns <= 200; columns += 7) {
    for (int rows = 1; rows <= 80; rows += 3) {
      const Rows text = paint(model_, columns, rows).text();
      ASSERT_EQ(text.size(), static_cast<std::size_t>(rows));
      if (columns >= kLeastColumns && rows >= kLeastRows) {
        EXPECT_NE(text.back().find("Ctrl-C ends"), std::string::npos) << columns << "x" << rows;
      }
    }
  }
}

}  // namespace
}  // namespace quarlo::tools::monitor
