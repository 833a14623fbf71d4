// The screen of `monitor --tui` as a grid of characters, in any size: what goes where, without a terminal.
#pragma once

#include <string>
#include <vector>

#include "tools/monitor/screen_model.h"

namespace quarlo::tools::monitor {

// The minimum size of a picture; a smaller screen shows a message.
constexpr int kLeastColumns = 60;
constexpr int kLeastRows = 16;  // with the mouse, the keyboard and the remote alone

enum class Style {
  kPlain,
  kFaint,   // what never changes
  kStrong,  // headings
  kGood,
  kBad,
  kHeld,  // a key or button that is down
  kPointer,
  kTrail,
};

// What a box is drawn with, in place of characters.
enum LinePiece : char {
  kHorizontal = 1,
  kVertical,
  kUpperLeft,
  kUpperRight,
  kLowerLeft,
  kLowerRight,
};

struct Cell {
  char glyph = ' ';  // printable ASCII, or a LinePiece
  Style style = Style::kPlain;
};

class Picture {
 public:
  Picture(int columns, int rows);

  int columns() const { return columns_; }
  int rows() const { return rows_; }
  const Cell& at(int column, int row) const;

  // Writes as much of the text as there is room for; what is not printable ASCII becomes a question mark.
  void write(int column, int row, const std::string& text, Style style = Style::kPlain);
  void put(int column, int row, char glyph, Style style);

  // The rows without their styles and without blanks at their ends; boxes are drawn with + - |.
  std::vector<std::string> text() const;

 private:
  int columns_;
  int rows_;
  std::vector<Cell> cells_;
};

// REQUIRES: columns and rows are positive.
Picture paint(const ScreenModel& model, int columns, int rows);

}  // namespace quarlo::tools::monitor
