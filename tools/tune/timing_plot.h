// A picture of a study of the remote's timing.
#pragma once

#include <string>

#include "tools/tune/study.h"

namespace quarlo::tools::tune {

// The script that has gnuplot draw an SVG on its standard output: what becomes of the lines of a tap and of a held
// button with the default setting and with the recommended one, each in its worst run; and maps of all settings.
// `title` is plain text without quotes.
std::string plotScript(const Remote& remote, const Study& study, const std::string& title);

}  // namespace quarlo::tools::tune
