// The data of a page that the program writes.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace quarlo::tools {

// REQUIRES: the page has some.
inline nlohmann::json dataOf(const std::string& page) {
  const std::string begin = R"(<script type="application/json" id="data">)";
  const std::size_t start = page.find(begin) + begin.size();
  return nlohmann::json::parse(page.substr(start, page.find("</script>", start) - start));
}

}  // namespace quarlo::tools
