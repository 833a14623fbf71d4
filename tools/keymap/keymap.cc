#include "tools/keymap/keymap.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/common/output.h"
#include "tools/keymap/mapping.h"
#include "tools/keymap/mapping_text.h"
#include "tools/keymap/page.h"

namespace quarlo::tools::keymap {
namespace {

// ---- Text ---------------------------------------------------------------------------------------

std::string column(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ') + "  ";
}

std::string columnOnTheRight(const std::string& text, std::size_t width) {
  return std::string(text.size() < width ? width - text.size() : 0, ' ') + text + "  ";
}

void printColumns(const std::string& source, const std::string& code, const std::string& names, const std::string& key,
                  const std::string& keyCode, const std::string& types) {
  std::string line = column(source, 6) + columnOnTheRight(code, 5) + column(names, 40) + column(key, 15) +
                     columnOnTheRight(keyCode, 4) + types;
  line.erase(line.find_last_not_of(' ') + 1);
  std::printf("%s\n", line.c_str());
}

void printText(const std::vector<Mapping>& mappings) {
  printColumns("source", "Linux", "names", "gives", "code", "types");
  for (const Mapping& mapping : mappings) {
    printColumns(mapping.linuxCode ? "evdev" : "remote", linuxCode(mapping), joined(mapping.names, ", "),
                 given(mapping), keyCode(mapping), effect(mapping));
  }
}

// ---- JSON ---------------------------------------------------------------------------------------

void printJson(const std::vector<Mapping>& mappings) {
  for (const Mapping& mapping : mappings) std::printf("%s\n", toJson(mapping).dump().c_str());
}

}  // namespace

int run(const KeymapOptions& options) {
  setVerbosity(0);
  const std::vector<Mapping> mappings = allMappings();
  if (options.json) {
    printJson(mappings);
  } else if (options.markdown) {
    printMarkdown(mappings);
  } else {
    printText(mappings);
  }
  return kDone;
}

}  // namespace quarlo::tools::keymap
