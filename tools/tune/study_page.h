// A study of the remote's timing as a page of HTML.
#pragma once

#include <string>

#include "tools/tune/study.h"

namespace quarlo::tools::tune {

// What the page says in words, as printable ASCII.
struct PageTexts {
  std::string remote;
  std::string runs;    // how the runs of a setting differ
  std::string reason;  // of the recommendation
  std::string whatToSet;
};

// The settings of the page's sliders: those of the grid, the current one's values, and what is halfway between, once or
// more often as long as they are not too many.
Grid gridOfSliders(const Grid& grid, const Study& study);

// Writes the page, in the place of one that is there: `study` are its dots, and with `between` its sliders move. Throws
// NewFileError, and leaves what is there, if it cannot.
// REQUIRES: each setting of `study` is one of `between`; no simulated machine exists.
void writeStudyPage(const std::string& path, const Remote& remote, const Study& study, const Study& between,
                    const PageTexts& texts);

}  // namespace quarlo::tools::tune
