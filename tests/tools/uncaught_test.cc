// An exception that nobody catches ends the program with a line that says which.
#include <gtest/gtest.h>

#include <new>

namespace quarlo::tools {
namespace {

void letEscape(void (*raise)()) noexcept { raise(); }

TEST(UncaughtDeathTest, AnExceptionIsNamed) {
  EXPECT_DEATH(letEscape([] { throw std::bad_alloc(); }), "^quarlo-input: std::bad_alloc\n");
}

TEST(UncaughtDeathTest, WhatIsNoExceptionIsSaidToBeUnknown) {
  EXPECT_DEATH(letEscape([] { throw 1; }), "^quarlo-input: unknown exception\n");
}

}  // namespace
}  // namespace quarlo::tools
