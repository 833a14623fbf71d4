// Files of the kernel and of daemons. Each can be missing or odd, or go while it is read: then there is less of it.
#pragma once

#include <string>
#include <vector>

namespace quarlo::tools::checkup {

// What is in the file, up to 1 MiB of it; empty if it cannot be read. What is not a regular file is empty, too, and
// is not opened.
std::string contentOf(const std::string& path);

bool exists(const std::string& path);

// The names in a directory, in their order; empty if it cannot be read.
std::vector<std::string> namesIn(const std::string& directory);

// Where the link leads to, as it is written there; empty if it cannot be read.
std::string targetOf(const std::string& link);

// `path` without links on its way, as far as it exists.
std::string withoutLinks(const std::string& path);

// The lines of `text`, without their ends.
std::vector<std::string> linesIn(const std::string& text);

// What blanks separate.
std::vector<std::string> wordsIn(const std::string& text);

// "a", "a and b", "a, b and c"; of more than `most`, the first: "a, b and 3 more".
std::string enumerated(const std::vector<std::string>& names, std::size_t most);

}  // namespace quarlo::tools::checkup
