#include "tools/common/html_page.h"

namespace quarlo::tools {

HtmlFile::HtmlFile(const std::string& path, const HtmlPage& page) : page_(page), file_(path, kHtmlPage) {
  file_.write(page_.head);
}

// Only a "<" could end the element that the data are in, or begin another; and JSON has it nowhere but in texts.
void HtmlFile::add(std::string_view json) {
  while (true) {
    const std::size_t length = json.find('<');
    file_.write(json.substr(0, length));
    if (length == std::string_view::npos) return;
    file_.write("\\u003c");
    json.remove_prefix(length + 1);
  }
}

void HtmlFile::finish() {
  file_.write(page_.tail);
  file_.finish();
}

}  // namespace quarlo::tools
