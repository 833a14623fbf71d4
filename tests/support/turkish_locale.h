// While it lives, the program is one whose user writes Turkish, where I is not the capital of i. The locale is made
// with the tests (tests/CMakeLists.txt).
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstdlib>

namespace quarlo::test {

class TurkishLocale {
 public:
  TurkishLocale() {
    setenv("LOCPATH", QUARLO_LOCALES, /*replace=*/1);
    EXPECT_NE(std::setlocale(LC_ALL, "tr_TR.UTF-8"), nullptr) << "there is no such locale in " << QUARLO_LOCALES;
    EXPECT_NE(std::tolower('I'), 'i') << "libc does not follow the locale";
  }
  ~TurkishLocale() {
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
  }
  TurkishLocale(const TurkishLocale&) = delete;
  TurkishLocale& operator=(const TurkishLocale&) = delete;
};

}  // namespace quarlo::test
