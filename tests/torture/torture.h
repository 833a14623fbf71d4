// The fixture: lives with each of their faults, and a count of those.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/torture/faults.h"
#include "tests/torture/lives.h"

namespace quarlo::test::torture {

// Checks that each descriptor that was opened is closed once, and that nothing else is closed but -1.
void expectEachIsClosedOnce(const Calls& calls);

// The kinds of all errors of these calls, as TortureTest::tried has them.
std::set<std::string> everyErrorOf(const std::vector<Call>& calls);

class TortureTest : public testing::Test {
 protected:
  static void TearDownTestSuite();
  void TearDown() override;

  using FaultsOf = std::vector<Fault> (*)(const TracedCall&);

  // Lives the life, then lives it again with each fault that `faultsOf` gives for each of its calls.
  void torture(const Life& life, FaultsOf faultsOf);

  void count(const Fault& fault);

  std::set<std::string> tried;  // the kinds of faults of this test

 private:
  int faults_ = 0;
  static inline std::map<Call, int> allFaults_;
};

}  // namespace quarlo::test::torture
