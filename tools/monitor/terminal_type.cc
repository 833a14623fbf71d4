#include "tools/monitor/terminal_type.h"

#include <curses.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

// Its macros have names such as `lines`: behind all other headers.
#include <term.h>

namespace quarlo::tools::monitor {
namespace {

struct TerminalType {
  const char* name;
  const char* description;  // as TERMINFO can hold it (term(5))
};

constexpr TerminalType kUsualTypes[] = {
#define TERMINAL_TYPE(name, description) {name, description},
#include "terminal_types.inc"
#undef TERMINAL_TYPE
    {"", ""},
};

// Has ncurses know a terminal by the database, and where that does not have it, by the usual types: a box can have a
// terminal without a database. Returns whether it is known.
bool setUp(std::string_view name) {
  int error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &error) != ERR) return true;
  for (const TerminalType& type : kUsualTypes) {
    if (type.name != name) continue;
    setenv("TERMINFO", type.description, 1);
    return setupterm(nullptr, STDOUT_FILENO, &error) != ERR;
  }
  return false;
}

// One of the terminal's strings; null if it has none.
const char* capability(const char* name) {
  const char* value = tigetstr(name);
  return reinterpret_cast<std::intptr_t>(value) == -1 ? nullptr : value;
}

std::string* collected;  // by collect(), to which tputs() gives nothing but the character

int collect(int character) {
  *collected += static_cast<char>(character);
  return character;
}

}  // namespace

std::string whyNotDrawable() {
  const char* type = std::getenv("TERM");
  if (type == nullptr || *type == '\0') return "TERM is not set, which says what the terminal is";
  if (!setUp(type)) {
    return std::string("TERM is ") + type + ", which is not known here; the package ncurses-term knows more terminals";
  }
  const bool drawable = capability("cup") != nullptr && capability("clear") != nullptr;
  del_curterm(cur_term);
  if (drawable) return "";
  return std::string("TERM is ") + type + ", a terminal that nothing can be drawn on; leave --tui out";
}

std::string restoringText(int height) {
  std::string text;
  collected = &text;
  for (const char* name : {"rmacs", "sgr0", "cnorm", "rmcup"}) {
    const char* value = capability(name);
    if (value != nullptr) tputs(value, 1, collect);
  }
  // Without a screen of its own, what was drawn stays, and the shell goes on below it.
  if (capability("rmcup") == nullptr) tputs(tiparm(capability("cup"), height - 1, 0), 1, collect);
  collected = nullptr;
  return text;
}

}  // namespace quarlo::tools::monitor
