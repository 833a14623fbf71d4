#include "tools/common/letter_case.h"

#include <gtest/gtest.h>

#include "tests/support/turkish_locale.h"

namespace quarlo::tools {
namespace {

TEST(LetterCase, IsThatOfAsciiAlsoInTurkish) {
  const test::TurkishLocale turkish;
  EXPECT_EQ(inSmallLetters("KEY_RIGHT [@Z`{\xc4\xdd"), "key_right [@z`{\xc4\xdd");
  EXPECT_TRUE(isSameText("Key_Right", "kEY_rIGHT"));
  EXPECT_FALSE(isSameText("\xc4", "\xe4"));
  EXPECT_FALSE(isSameText("_", "\x7f"));
  EXPECT_FALSE(isSameText("RIGHT", "RIGHTS"));
  EXPECT_FALSE(isSameText("RIGHTS", "RIGHT"));
}

}  // namespace
}  // namespace quarlo::tools
