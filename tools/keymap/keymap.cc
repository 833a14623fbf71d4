#include "tools/keymap/keymap.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/common/columns.h"
#include "tools/common/output.h"
#include "tools/keymap/mapping.h"
#include "tools/keymap/mapping_text.h"
#include "tools/keymap/page.h"

namespace quarlo::tools::keymap {
namespace {

// ---- Text ---------------------------------------------------------------------------------------

void printColumns(const std::string& source, const std::string& code, const std::string& names, const std::string& key,
                  const std::string& keyCode, const std::string& types) {
  const std::string line = leftAligned(source, 6) + "  " + rightAligned(code, 5) + "  " + leftAligned(names, 40) +
                           "  " + leftAligned(key, 15) + "  " + rightAligned(keyCode, 4) + "  " + types;
  std::printf("%s\n", withoutTrailingBlanks(line).c_str());
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
