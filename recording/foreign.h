// Files that are given for a session's by mistake, as far as their beginning tells.
#pragma once

#include <cstdio>
#include <string>

namespace quarlo::recording {

// Throws Error, which calls the file `name` and says what it is and what is expected, if the file is empty or of a
// format that is known not to be `expected`. Otherwise leaves the file at its beginning.
void refuseForeign(std::FILE* file, const std::string& name, const char* expected);

}  // namespace quarlo::recording
