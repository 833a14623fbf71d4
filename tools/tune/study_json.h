// What a study found, as JSON.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/tune/study.h"

namespace quarlo::tools::tune {

// A setting, and what all runs with it gave.
nlohmann::ordered_json findingJson(const Finding& finding, Decoder decoder);

}  // namespace quarlo::tools::tune
