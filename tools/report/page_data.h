// The data of a session's page: docs/report.md says what is in them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/common/mask.h"
#include "tools/report/findings.h"
#include "tools/report/happened.h"
#include "tools/report/json_writer.h"

namespace quarlo::tools::report {

// What is known of a source beside what it sent.
struct SourceAbout {
  InputLoop::Source source;
  std::string file;          // its name; empty of a live session
  std::optional<Mask> mask;  // how it was recorded; none: not by this program
};

// All that a page is made of.
struct PageParts {
  std::string session;  // what it is called
  const recording::Session& recording;
  const Happened& happened;
  const Findings& findings;
  const PlayOptions& options;
  std::vector<SourceAbout> sources;  // those that are there, in the order in which the page has them
};

// Of a session with so many records at most, a page has all that happened; of a longer one, moves are thinned where
// nothing was found.
constexpr std::size_t kMostWholeRecords = 100'000;

// Around what was found, so much has everything.
constexpr std::chrono::seconds kWholeAroundFinding{2};

void writePageData(const PageParts& parts, JsonWriter& writer);

}  // namespace quarlo::tools::report
