// Pages of HTML that need nothing but themselves: no server, no network, no other file.
#pragma once

#include <string>
#include <string_view>

#include "tools/common/new_file.h"

namespace quarlo::tools {

// One that is built into the program (cmake/embed_page.cmake): what comes before its data, and what comes after.
struct HtmlPage {
  std::string_view head;
  std::string_view tail;
};

// What the file is called in messages.
constexpr char kHtmlPage[] = "the page";

// A page that is being written, piece by piece. Throws NewFileError where it cannot.
class HtmlFile {
 public:
  // REQUIRES: `page` outlives it.
  HtmlFile(const std::string& path, const HtmlPage& page);

  // Adds to the page's data, which are one value of JSON, whatever its texts say. REQUIRES: they are UTF-8.
  void add(std::string_view json);

  // Puts the page into its place.
  void finish();

 private:
  const HtmlPage& page_;
  NewFile file_;
};

}  // namespace quarlo::tools
