#include "recording/escapes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>

namespace quarlo::recording {
namespace {

TEST(Escapes, LeaveTextAsItIs) {
  for (const std::string text : {"", "KEY_OK tv", "a b  ", "~ caf\u00e9 \u20ac \U0001f4fa \u00a0 \uffff \U0010ffff"}) {
    EXPECT_EQ(escaped(text), text);
    EXPECT_EQ(unescaped(text), text);
  }
}

TEST(Escapes, StandForControlCharacters) {
  EXPECT_EQ(escaped(std::string("\0\x01\t\n\r\x1b[2J\x1f\x7f", 11)), R"(\x00\x01\x09\x0a\x0d\x1b[2J\x1f\x7f)");
  EXPECT_EQ(escaped("\u0080\u009b\u009f"), R"(\xc2\x80\xc2\x9b\xc2\x9f)");
}

TEST(Escapes, StandForWhatChangesTheOrderOfALineOrBreaksIt) {
  EXPECT_EQ(escaped("\u061c\u200e\u200f"), R"(\xd8\x9c\xe2\x80\x8e\xe2\x80\x8f)");
  EXPECT_EQ(escaped("\u2028\u2029\u202a\u202e"), R"(\xe2\x80\xa8\xe2\x80\xa9\xe2\x80\xaa\xe2\x80\xae)");
  EXPECT_EQ(escaped("\u2066\u2069"), R"(\xe2\x81\xa6\xe2\x81\xa9)");
  const std::string neighbours = "\u061b\u061d\u200d\u2010\u2027\u202f\u2065\u206a";
  EXPECT_EQ(escaped(neighbours), neighbours);
}

TEST(Escapes, StandForABackslashAndABlankAtTheStart) {
  EXPECT_EQ(escaped(R"(a\x41)"), R"(a\\x41)");
  EXPECT_EQ(escaped("  a "), R"(\x20 a )");
}

TEST(Escapes, StandForEachByteThatIsNotUtf8) {
  EXPECT_EQ(escaped("a\x80\xff"), R"(a\x80\xff)");
  EXPECT_EQ(escaped("\xc3"), R"(\xc3)");  // cut off
  EXPECT_EQ(escaped("\xe2\x82 \xf0\x9f\x93"), R"(\xe2\x82 \xf0\x9f\x93)");
  EXPECT_EQ(escaped("\xc3(\xc3\xa9"), "\\xc3(\u00e9");
  EXPECT_EQ(escaped("\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf"), R"(\xc1\xbf\xe0\x9f\xbf\xf0\x8f\xbf\xbf)");  // too long
  EXPECT_EQ(escaped("\xed\xa0\x80\xed\xbf\xbf"), R"(\xed\xa0\x80\xed\xbf\xbf)");                          // surrogates
  EXPECT_EQ(escaped("\xf4\x90\x80\x80\xf5\x80\x80\x80"), R"(\xf4\x90\x80\x80\xf5\x80\x80\x80)");          // too large
  EXPECT_EQ(escaped("\xf8\x90\x80\x80\xff\x90\x80\x80"), R"(\xf8\x90\x80\x80\xff\x90\x80\x80)");          // too long
  const std::string neighbours = "\u0080\u07ff\u0800\ud7ff\ue000\uffff\U00010000";
  EXPECT_EQ(escaped(neighbours), R"(\xc2\x80)" + neighbours.substr(2));
}

TEST(Escapes, AreReadInSmallAndCapitalLetters) {
  EXPECT_EQ(unescaped(R"(\x1B[m\x1b\\x41\x41)"), "\x1b[m\x1b\\x41A");
  EXPECT_EQ(unescaped("  \n\xff"), "  \n\xff");
}

TEST(Escapes, ThatAreNoneAreRefused) {
  for (const std::string text : {R"(\)", R"(a\\\)", R"(\x)", R"(\x4)", R"(\x4g)", R"(\xg4)", R"(\x-1)", R"(\x 1)",
                                 R"(\X41)", R"(\n)", R"(\101)"}) {
    EXPECT_EQ(unescaped(text), std::nullopt) << text;
  }
}

// Of bytes at random, few make UTF-8, so characters at random come between them.
std::string randomText(std::mt19937& random) {
  static const std::string pieces[] = {"\u00e9",   "\u009b",       "\u202e", "\u2028", "\u20ac", "\U0001f4fa",
                                       "\xe2\x80", "\xf0\x9f\x93", "\\",     "\\x41",  " ",      "\x1b"};
  std::string text;
  for (auto left = random() % 24; left > 0; --left) {
    const auto piece = random() % (2 * std::size(pieces));
    text += piece < std::size(pieces) ? pieces[piece] : std::string(1, static_cast<char>(random() % 256));
  }
  return text;
}

bool isControl(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f'; }

TEST(Escapes, GiveBackTheBytesOfAnyText) {
  std::mt19937 random(20'250'101);
  for (int i = 0; i < 20'000; ++i) {
    const std::string text = randomText(random);
    const std::string line = escaped(text);
    ASSERT_EQ(unescaped(line), text) << line;
    ASSERT_TRUE(std::none_of(line.begin(), line.end(), isControl)) << line;
    ASSERT_LE(line.size(), kLongestEscape * text.size());
  }
}

}  // namespace
}  // namespace quarlo::recording
