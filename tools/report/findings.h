// What is wrong in a session, or may be, each with its place.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/checkup/finding.h"
#include "tools/report/happened.h"

namespace quarlo::tools::report {

// Where a finding is: what to look at. Of none of it, what it is about holds all the time.
struct Place {
  std::optional<microseconds> from;
  microseconds to{0};
  std::optional<InputLoop::Source> source;
  std::size_t event = 0;   // a number; 0: none
  std::size_t record = 0;  // the number of a record or line of the source; 0: none
};

// Holds what devices and daemons say, as it is: escape it.
struct Finding {
  const char* id;  // stays the same from version to version
  checkup::Severity severity;
  std::string what;    // as a sentence without its full stop, as the remedy
  std::string where;   // the source, and the key or button
  std::string remedy;  // what a person can do
  Place place;
};

using Findings = std::vector<Finding>;

// Of one kind, as many have a place of their own. The last of them says how many more there are.
constexpr std::size_t kMostOfAKind = 20;

// The worst first, and of each kind the first one first. REQUIRES: no simulated machine exists.
Findings findAll(const recording::Session& session, const Happened& happened, const PlayOptions& options);

}  // namespace quarlo::tools::report
