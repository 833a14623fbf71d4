#include "tools/common/code_names.h"

#include <linux/input.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace quarlo::tools {
namespace {

struct TypeName {
  int type;
  const char* name;
};

struct CodeName {
  int type;
  int code;
  const char* name;
};

#define LINUX_TYPE(name) {name, #name},
#define LINUX_CODE(type, name)
#define LINUX_ALIAS(type, name)
constexpr TypeName kTypeNames[] = {
#include "linux_code_names.inc"
};
#undef LINUX_TYPE
#undef LINUX_CODE

#define LINUX_TYPE(name)
#define LINUX_CODE(type, name) {type, name, #name},
constexpr CodeName kCodeNames[] = {
#include "linux_code_names.inc"
};
#undef LINUX_TYPE
#undef LINUX_CODE
#undef LINUX_ALIAS

std::string numberText(int number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02x", static_cast<unsigned>(number));
  return text;
}

}  // namespace

std::string typeName(int type) {
  const auto* const entry = std::find_if(std::begin(kTypeNames), std::end(kTypeNames),
                                         [=](const TypeName& candidate) { return candidate.type == type; });
  return entry != std::end(kTypeNames) ? entry->name : numberText(type);
}

std::string codeName(int type, int code) {
  const auto entry = std::find_if(std::rbegin(kCodeNames), std::rend(kCodeNames), [=](const CodeName& candidate) {
    return candidate.type == type && candidate.code == code;
  });
  return entry != std::rend(kCodeNames) ? entry->name : numberText(code);
}

}  // namespace quarlo::tools
