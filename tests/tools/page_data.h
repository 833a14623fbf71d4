// The data of a page that the program writes.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

namespace quarlo::tools {

// As it stands in its element. REQUIRES: the page has some.
inline std::string dataTextOf(const std::string& page) {
  const std::string begin = R"(<script type="application/json" id="data">)";
  const std::size_t start = page.find(begin) + begin.size();
  return page.substr(start, page.find("</script>", start) - start);
}

// The same, as JSON.
inline nlohmann::json dataOf(const std::string& page) { return nlohmann::json::parse(dataTextOf(page)); }

}  // namespace quarlo::tools
