// Key translation, against a table of its own (key_rows.inc).
#include <gtest/gtest.h>

#include <climits>
#include <map>

#include "msg/key_input.h"
#include "tests/unit/reader_test.h"

namespace quarlo::test {
namespace {

using msg::KeyInput;

struct KeyRow {
  int key = 0;
  int plain = 0;
  int shifted = 0;
  bool needsNumLock = false;
};

std::map<int, KeyRow> expectedRows() {
  std::map<int, KeyRow> rows;
#define KEY_ROW(code, name, key, plain, shifted) \
  static_assert((code) == (name));               \
  rows[code] = {key, plain, shifted, false};
#define KEYPAD_DIGIT(code, name, key, plain, shifted) \
  static_assert((code) == (name));                    \
  rows[code] = {key, plain, shifted, true};
#include "tests/unit/key_rows.inc"
#undef KEY_ROW
#undef KEYPAD_DIGIT
  return rows;
}

struct Typed {
  int key;
  int ch;
  bool operator==(const Typed& other) const { return key == other.key && ch == other.ch; }
};

std::ostream& operator<<(std::ostream& out, const Typed& typed) {
  return out << "key " << typed.key << " ch " << typed.ch;
}

Typed translate(int code, unsigned modifiers = 0, bool numLock = false) {
  // What was in the results before must not matter.
  LinuxInputReader::Key key = -1;
  char ch = '#';
  LinuxInputReader::translateKey(code, modifiers, numLock, key, ch);
  return {key, static_cast<unsigned char>(ch)};
}

Typed expected(const KeyRow& row, unsigned modifiers, bool numLock) {
  if (row.needsNumLock && !numLock) return {row.key, 0};
  return {row.key, (modifiers & 2) != 0 ? row.shifted : row.plain};
}

TEST(TranslateKey, TheTableIsWhole) { EXPECT_EQ(expectedRows().size(), 131U); }

TEST(TranslateKey, EveryCodeInEveryState) {
  const std::map<int, KeyRow> rows = expectedRows();
  std::vector<int> codes = {INT_MIN, INT_MIN + 30, -0x10000 + 30, 0x10000 + 30, 0x7FFFFF1E, INT_MAX};
  for (int code = -100; code <= 1000; ++code) codes.push_back(code);
  for (const int code : codes) {
    const auto row = rows.find(code);
    for (unsigned modifiers = 0; modifiers < 8; ++modifiers) {
      for (const bool numLock : {false, true}) {
        EXPECT_EQ(translate(code, modifiers, numLock),
                  row == rows.end() ? Typed({0, 0}) : expected(row->second, modifiers, numLock))
            << "code " << code << " modifiers " << modifiers << " Num Lock " << numLock;
      }
    }
  }
}

TEST(TranslateKey, OnlyShiftChangesALetter) {
  EXPECT_EQ(translate(KEY_A), Typed({65, 'a'}));
  EXPECT_EQ(translate(KEY_A, KeyInput::kShiftModifier), Typed({65, 'A'}));
  EXPECT_EQ(translate(KEY_A, KeyInput::kControlModifier), Typed({65, 'a'}));
  EXPECT_EQ(translate(KEY_A, KeyInput::kAltModifier), Typed({65, 'a'}));
}

TEST(TranslateKey, ARemotesDigitTypesAsTheDigitRowDoes) {
  EXPECT_EQ(translate(KEY_2, KeyInput::kShiftModifier), Typed({50, '@'}));
  EXPECT_EQ(translate(KEY_NUMERIC_2, KeyInput::kShiftModifier), Typed({50, '@'}));
}

TEST(TranslateKey, PowerTypesTheLowByteOfItsKey) { EXPECT_EQ(translate(KEY_POWER), Typed({409, 153})); }

TEST(TranslateKey, DeleteTypes127) {
  EXPECT_EQ(translate(KEY_DELETE), Typed({46, 127}));
  EXPECT_EQ(translate(KEY_DELETE, KeyInput::kShiftModifier), Typed({46, 127}));
}

TEST(TranslateKey, AKeypadDigitKeepsItsKeyWithoutNumLockAndTypesNothing) {
  EXPECT_EQ(translate(KEY_KP7, 0, false), Typed({103, 0}));
  EXPECT_EQ(translate(KEY_KP7, 0, true), Typed({103, '7'}));
}

TEST(TranslateKey, KeypadDotAndCapsLockHaveNoCode) {
  EXPECT_EQ(translate(KEY_KPDOT, 0, true), Typed({0, 0}));
  EXPECT_EQ(translate(KEY_CAPSLOCK), Typed({0, 0}));
}

TEST(TranslateKey, BackAndForwardAreTheTracksAndExitIsBack) {
  EXPECT_EQ(translate(KEY_BACK), Typed({KeyInput::kPreviousTrack, 0}));
  EXPECT_EQ(translate(KEY_FORWARD), Typed({KeyInput::kNextTrack, 0}));
  EXPECT_EQ(translate(KEY_EXIT), Typed({KeyInput::kBack, 0}));
}

TEST(GetModifier, KnowsTheSixModifierKeysAndNoOther) {
  const std::map<int, unsigned> modifiers = {{KEY_LEFTCTRL, 1},   {KEY_RIGHTCTRL, 1}, {KEY_LEFTSHIFT, 2},
                                             {KEY_RIGHTSHIFT, 2}, {KEY_LEFTALT, 4},   {KEY_RIGHTALT, 4}};
  for (int code = -100; code <= 1000; ++code) {
    const auto found = modifiers.find(code);
    EXPECT_EQ(LinuxInputReader::getModifier(code), found == modifiers.end() ? 0 : found->second) << code;
  }
}

}  // namespace
}  // namespace quarlo::test
