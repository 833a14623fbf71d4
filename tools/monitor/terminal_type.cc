#include "tools/monitor/terminal_type.h"

#include <curses.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

// Its macros have names such as `lines`: behind all other headers.
#include <term.h>

namespace quarlo::tools::monitor {
namespace {

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
  int error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &error) == ERR) {
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
