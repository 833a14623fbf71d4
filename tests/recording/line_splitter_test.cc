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
  EXPECT_EQ(splitter.takeRest(), "b\r");
  EXPECT_EQ(splitter.takeRest(), "");
}

TEST(LineSplitter, KeepsEachByteOfALine) {
  LineSplitter splitter;
  EXPECT_EQ(splitter.split(std::string_view("a\0b\r\n\n\r\xff\n", 9)), (Lines{std::string("a\0b\r", 4), "", "\r\xff"}));
}

TEST(LineSplitter, CutsALongLine) {
  LineSplitter splitter;
  for (std::size_t i = 0; i < kLongestText; ++i) splitter.split("x");
  EXPECT_EQ(splitter.split("more\nnext\n"), (Lines{std::string(kLongestText, 'x'), "next"}));
}

}  // namespace
}  // namespace quarlo::recording
