#include "recording/line_splitter.h"

#include "recording/lines.h"
#include "tests/recording/recording_test.h"

namespace quarlo::recording {
namespace {

using Lines = std::vector<std::string>;

TEST(LineSplitter, GivesEachLineWhenItIsWhole) {
  LineSplitter splitter;
  EXPECT_EQ(splitter.split("0 00 KEY"), Lines{});
  EXPECT_EQ(splitter.split("_OK tv\n1 00 KEY_UP tv\n2 0"), (Lines{"0 00 KEY_OK tv", "1 00 KEY_UP tv"}));
  EXPECT_EQ(splitter.split("0\n"), Lines{"2 00"});
}

TEST(LineSplitter, KeepsWhatNoNewlineEnds) {
  LineSplitter splitter;
  splitter.split("a\nb\r");
  EXPECT_EQ(splitter.takeRest(), "b");
  EXPECT_EQ(splitter.takeRest(), "");
}

TEST(LineSplitter, LeavesOutWhatASessionCannotHold) {
  LineSplitter splitter;
  EXPECT_EQ(splitter.split(std::string_view("a\0b\r\n\n\r\r\n\0\nc\rd\r\r\n", 17)), (Lines{"ab", "c\rd"}));
}

TEST(LineSplitter, CutsALongLine) {
  LineSplitter splitter;
  for (std::size_t i = 0; i < kLongestLine; ++i) splitter.split("x");
  EXPECT_EQ(splitter.split("more\nnext\n"), (Lines{std::string(kLongestLine, 'x'), "next"}));
}

}  // namespace
}  // namespace quarlo::recording
