#include "tools/monitor/screen.h"

#include <curses.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>

#include "tools/monitor/screen_picture.h"
#include "tools/monitor/terminal.h"
#include "tools/monitor/terminal_type.h"

namespace quarlo::tools::monitor {
namespace {

// ---- Styles -------------------------------------------------------------------------------------

enum ColourPair : short { kGreen = 1, kRed, kCyan };

void prepareColours() {
  if (!has_colors()) return;
  start_color();
  use_default_colors();
  init_pair(kGreen, COLOR_GREEN, -1);
  init_pair(kRed, COLOR_RED, -1);
  init_pair(kCyan, COLOR_CYAN, -1);
}

// Colours only repeat what the text says.
chtype attributes(Style style) {
  switch (style) {
    case Style::kPlain: return A_NORMAL;
    case Style::kFaint: return A_DIM;
    case Style::kStrong: return A_BOLD;
    case Style::kGood: return COLOR_PAIR(kGreen);
    case Style::kBad: return A_BOLD | COLOR_PAIR(kRed);
    case Style::kHeld: return A_BOLD | COLOR_PAIR(kCyan);
    case Style::kPointer: return A_REVERSE;
    default: return COLOR_PAIR(kCyan);
  }
}

chtype character(char glyph) {
  switch (glyph) {
    case kHorizontal: return ACS_HLINE;
    case kVertical: return ACS_VLINE;
    case kUpperLeft: return ACS_ULCORNER;
    case kUpperRight: return ACS_URCORNER;
    case kLowerLeft: return ACS_LLCORNER;
    case kLowerRight: return ACS_LRCORNER;
    default: return static_cast<unsigned char>(glyph);
  }
}

// ---- The screen ---------------------------------------------------------------------------------

class NcursesScreen : public Screen {
 public:
  NcursesScreen() {
    setlocale(LC_CTYPE, "");
    screen_ = newterm(nullptr, stdout, stdin);
    terminal_.takeOver(restoringText(LINES));
    def_prog_mode();
    leaveok(stdscr, TRUE);
    curs_set(0);
    prepareColours();
  }

  ~NcursesScreen() override {
    endwin();
    delscreen(screen_);
  }

  void draw(const ScreenModel& model) override {
    terminal_.discardInput();
    followSize();
    const Picture picture = paint(model, COLS, LINES);
    for (int row = 0; row < picture.rows(); ++row) {
      for (int column = 0; column < picture.columns(); ++column) {
        const Cell& cell = picture.at(column, row);
        mvaddch(row, column, character(cell.glyph) | attributes(cell.style));
      }
    }
    refresh();
  }

  std::vector<std::string> takeErrors() override { return terminal_.takeErrors(); }

 private:
  // A terminal can have no size at all, as that of a serial line: then it keeps the one that ncurses takes it to have.
  static void followSize() {
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == -1 || size.ws_row == 0 || size.ws_col == 0) return;
    if (is_term_resized(size.ws_row, size.ws_col)) resizeterm(size.ws_row, size.ws_col);
  }

  Terminal terminal_;
  SCREEN* screen_ = nullptr;
};

}  // namespace

std::string whyNoScreen() {
  if (isatty(STDOUT_FILENO) == 0) return "--tui needs a terminal, and standard output is not one; leave --tui out";
  return whyNotDrawable();
}

std::unique_ptr<Screen> openScreen() { return std::make_unique<NcursesScreen>(); }

}  // namespace quarlo::tools::monitor
