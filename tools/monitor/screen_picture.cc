#include "tools/monitor/screen_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tools/common/output.h"

namespace quarlo::tools::monitor {
namespace {

using msg::KeyInput;
using MouseData = InputEvent::MouseData;

constexpr int kMargin = 1;  // left and right
constexpr int kUsualSources = 3;

// ---- Layout -------------------------------------------------------------------------------------

// From top to bottom: a heading, the sources, the pointer's box with a panel at its right, what came last, and a foot.
struct Layout {
  int columns;
  int sourcesRow;
  int boxRow;
  int boxColumns;  // with its border, as the two below
  int boxRows;
  int panelColumn;
  bool spacious;  // the panel's groups have a blank row between them
  int linesRow;
  int lineRows;
  int footRow;
};

constexpr int kPanelRows = 8;
constexpr int kSpaciousPanelRows = kPanelRows + 2;
constexpr int kLeastPanelColumns = 37;
constexpr int kGap = 2;     // between the box and the panel
constexpr int kBorder = 2;  // of the box, both sides together

struct BoxSize {
  int columns;
  int rows;
};

// The largest box that fits, with the proportions of the pointer's screen: a terminal's cell is twice as high as wide.
BoxSize boxFor(Point largest, int columns, int rows) {
  const double width = largest.x + 1.0;
  const double height = largest.y + 1.0;
  const double columnsPerRow = 2 * width / height;
  const int innerColumns = columns - kBorder;
  const int innerRows = rows - kBorder;
  const auto wanted = static_cast<int>(std::lround(innerRows * columnsPerRow));
  if (wanted <= innerColumns) return {std::max(wanted, 1) + kBorder, rows};
  return {columns, std::max(static_cast<int>(std::lround(innerColumns / columnsPerRow)), 1) + kBorder};
}

int sourceRows(const ScreenModel& model) { return std::max(static_cast<int>(model.sources().size()), kUsualSources); }

// Each further node takes one more.
int leastRows(const ScreenModel& model) { return kLeastRows + sourceRows(model) - kUsualSources; }

Layout layoutFor(const ScreenModel& model, int columns, int rows) {
  const int gaps = rows >= leastRows(model) + 4 ? 1 : 0;  // blank rows between the parts
  const int usable = rows - 1 - gaps - sourceRows(model) - gaps - gaps - 1;
  const int middleRows = std::max(usable * 2 / 3, kPanelRows);
  const int boxRoom = columns - kMargin - kGap - kLeastPanelColumns - kMargin;
  const BoxSize box = boxFor(model.largest(), boxRoom, middleRows);

  Layout layout = {};
  layout.columns = columns;
  layout.sourcesRow = 1 + gaps;
  layout.boxRow = layout.sourcesRow + sourceRows(model) + gaps;
  layout.boxColumns = box.columns;
  layout.boxRows = box.rows;
  layout.panelColumn = kMargin + box.columns + kGap;
  layout.spacious = middleRows >= kSpaciousPanelRows;
  const int panelRows = layout.spacious ? kSpaciousPanelRows : kPanelRows;
  layout.footRow = rows - 1;
  layout.linesRow = layout.boxRow + std::max(box.rows, panelRows) + gaps;
  layout.lineRows = layout.footRow - layout.linesRow - gaps;
  return layout;
}

// ---- Text ---------------------------------------------------------------------------------------

std::string cut(const std::string& text, int columns) {
  const auto room = static_cast<std::size_t>(std::max(columns, 3));
  return text.size() <= room ? text : text.substr(0, room - 3) + "...";
}

void writeAtRight(Picture& picture, int row, const std::string& text, Style style) {
  picture.write(picture.columns() - kMargin - static_cast<int>(text.size()), row, text, style);
}

std::string clockText(microseconds time) {
  char text[32];
  const long long seconds = time.count() / 1'000'000;
  std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
  return text;
}

std::string positionText(int x, int y) { return std::to_string(x) + "," + std::to_string(y); }

// ---- Heading and sources ------------------------------------------------------------------------

void paintHeading(Picture& picture, const ScreenModel& model) {
  picture.write(kMargin, 0, "quarlo-input monitor", Style::kStrong);
  writeAtRight(picture, 0, counted(model.counts().events(), "event") + "  " + clockText(model.time()), Style::kFaint);
}

struct StateLook {
  const char* text;
  Style style;
};

StateLook lookOf(SourceState state) {
  switch (state) {
    case SourceState::kLeftOut: return {nameOf(state), Style::kFaint};
    case SourceState::kNotOpen: return {nameOf(state), Style::kPlain};
    case SourceState::kOpen: return {nameOf(state), Style::kGood};
    default: return {nameOf(state), Style::kBad};
  }
}

void paintSources(Picture& picture, const ScreenModel& model, const Layout& layout) {
  constexpr int kStateColumn = kMargin + 11;
  constexpr int kTextColumn = kStateColumn + 10;
  int row = layout.sourcesRow;
  for (const SourceReport& source : model.sources()) {
    const StateLook look = lookOf(source.state);
    picture.write(kMargin, row, source.what, Style::kFaint);
    picture.write(kStateColumn, row, look.text, look.style);
    picture.write(kTextColumn, row, cut(printable(source.text), layout.columns - kMargin - kTextColumn));
    ++row;
  }
}

// ---- The pointer's box --------------------------------------------------------------------------

// Where on the picture a position is.
Point cellOf(Point position, const ScreenModel& model, const Layout& layout) {
  const auto scale = [](int value, int largest, int cells) {
    return static_cast<int>(static_cast<long long>(value) * cells / (static_cast<long long>(largest) + 1));
  };
  return {kMargin + 1 + scale(position.x, model.largest().x, layout.boxColumns - kBorder),
          layout.boxRow + 1 + scale(position.y, model.largest().y, layout.boxRows - kBorder)};
}

void paintBorder(Picture& picture, const ScreenModel& model, const Layout& layout) {
  const int right = kMargin + layout.boxColumns - 1;
  const int bottom = layout.boxRow + layout.boxRows - 1;
  for (int column = kMargin + 1; column < right; ++column) {
    picture.put(column, layout.boxRow, kHorizontal, Style::kFaint);
    picture.put(column, bottom, kHorizontal, Style::kFaint);
  }
  for (int row = layout.boxRow + 1; row < bottom; ++row) {
    picture.put(kMargin, row, kVertical, Style::kFaint);
    picture.put(right, row, kVertical, Style::kFaint);
  }
  picture.put(kMargin, layout.boxRow, kUpperLeft, Style::kFaint);
  picture.put(right, layout.boxRow, kUpperRight, Style::kFaint);
  picture.put(kMargin, bottom, kLowerLeft, Style::kFaint);
  picture.put(right, bottom, kLowerRight, Style::kFaint);
  const std::string size =
      " " + std::to_string(model.largest().x + 1) + "x" + std::to_string(model.largest().y + 1) + " ";
  if (static_cast<int>(size.size()) <= layout.boxColumns - 2 * kBorder) {
    picture.write(kMargin + kBorder, layout.boxRow, size, Style::kFaint);
  }
}

// The reader tells where a drag was, and not how it got there: a straight line.
void paintStroke(Picture& picture, Point from, Point to) {
  const int steps = std::max({std::abs(to.x - from.x), std::abs(to.y - from.y), 1});
  for (int step = 0; step <= steps; ++step) {
    const auto between = [&](int a, int b) {
      return a + static_cast<int>((2LL * (b - a) * step + (b >= a ? steps : -steps)) / (2LL * steps));
    };
    picture.put(between(from.x, to.x), between(from.y, to.y), '*', Style::kTrail);
  }
}

char pointerGlyph(int heldButton) {
  switch (heldButton) {
    case MouseData::kLeft: return 'L';
    case MouseData::kRight: return 'R';
    case MouseData::kMiddle: return 'M';
    default: return '+';
  }
}

void paintPointer(Picture& picture, const ScreenModel& model, const Layout& layout) {
  const ScreenModel::Pointer& pointer = model.pointer();
  for (std::size_t i = 0; i < pointer.trail.size(); ++i) {
    const Point from = cellOf(pointer.trail[i == 0 ? 0 : i - 1], model, layout);
    paintStroke(picture, from, cellOf(pointer.trail[i], model, layout));
  }
  const Point cell = cellOf(pointer.position, model, layout);
  picture.put(cell.x, cell.y, pointerGlyph(pointer.heldButton), Style::kPointer);
}

// ---- The panel ----------------------------------------------------------------------------------

// One row of the panel after the other.
class Panel {
 public:
  Panel(Picture& picture, const Layout& layout)
      : picture_(picture), column_(layout.panelColumn), row_(layout.boxRow), spacious_(layout.spacious) {}

  void label(const char* text) { picture_.write(column_, row_, text, Style::kFaint); }
  void value(const std::string& text, Style style = Style::kPlain) {
    picture_.write(column_ + kLabelColumns, row_, text, style);
  }

  // Each name in brackets if it is down.
  struct Switch {
    const char* name;
    bool down;
  };
  void switches(std::initializer_list<Switch> all) {
    int column = column_ + kLabelColumns - 1;  // so that a name without brackets is aligned with other values
    for (const Switch& one : all) {
      const std::string text = one.down ? std::string("[") + one.name + "]" : std::string(" ") + one.name + " ";
      picture_.write(column, row_, text, one.down ? Style::kHeld : Style::kFaint);
      column += static_cast<int>(text.size());
    }
  }

  void endRow() { ++row_; }
  void endGroup() { row_ += spacious_ ? 2 : 1; }

  int column() const { return column_; }
  int row() const { return row_; }

 private:
  static constexpr int kLabelColumns = 11;

  Picture& picture_;
  int column_;
  int row_;
  bool spacious_;
};

const char* buttonName(int button) {
  switch (button) {
    case MouseData::kLeft: return "left";
    case MouseData::kRight: return "right";
    default: return "middle";
  }
}

void paintPointerPanel(Panel& panel, const ScreenModel::Pointer& pointer) {
  panel.label("pointer");
  panel.value(positionText(pointer.position.x, pointer.position.y));
  panel.endRow();
  panel.label("button");
  panel.switches({{"left", pointer.heldButton == MouseData::kLeft},
                  {"middle", pointer.heldButton == MouseData::kMiddle},
                  {"right", pointer.heldButton == MouseData::kRight}});
  panel.endRow();
  panel.label("clicks");
  if (pointer.lastPress) {
    panel.value(std::string(buttonName(pointer.lastPress->button)) + " x" + std::to_string(pointer.lastPress->clicks) +
                " at " + positionText(pointer.lastPress->x, pointer.lastPress->y));
  }
  panel.endGroup();
}

void paintModifiers(Panel& panel, const ScreenModel& model) {
  panel.label("modifiers");
  panel.switches({{"ctrl", (model.modifiers() & KeyInput::kControlModifier) != 0},
                  {"shift", (model.modifiers() & KeyInput::kShiftModifier) != 0},
                  {"alt", (model.modifiers() & KeyInput::kAltModifier) != 0},
                  {"num lock", model.numLock()}});
  panel.endGroup();
}

StateLook lookOf(RemoteState state) {
  switch (state) {
    case RemoteState::kIdle: return {"idle", Style::kFaint};
    case RemoteState::kHeld: return {"held", Style::kHeld};
    default: return {"repeating", Style::kHeld};
  }
}

char slotGlyph(const RemoteSlot& slot) {
  constexpr int kMostThatHaveADigit = 9;
  if (slot.keyDowns > 1) return static_cast<char>('0' + std::min(slot.keyDowns, kMostThatHaveADigit));
  if (slot.keyDowns == 1) return '|';
  switch (slot.state) {
    case RemoteState::kIdle: return '.';
    case RemoteState::kHeld: return '-';
    default: return '=';
  }
}

void paintTimeline(Picture& picture, const Panel& panel, const std::deque<RemoteSlot>& history) {
  constexpr int kSlotsPerSecond = 10;
  const int columns = picture.columns() - kMargin - panel.column();
  const int shown = std::min(columns / kSlotsPerSecond * kSlotsPerSecond, ScreenModel::kSlots);
  for (int i = 0; i < shown; ++i) {
    const RemoteSlot& slot = history[history.size() - static_cast<std::size_t>(shown - i)];
    const bool idle = slot.state == RemoteState::kIdle && slot.keyDowns == 0;
    picture.put(panel.column() + i, panel.row(), slotGlyph(slot), idle ? Style::kFaint : Style::kTrail);
  }
  const std::string now = "now";
  picture.write(panel.column(), panel.row() + 1, std::to_string(shown / kSlotsPerSecond) + " s ago", Style::kFaint);
  picture.write(panel.column() + shown - static_cast<int>(now.size()), panel.row() + 1, now, Style::kFaint);
}

// Repeats that come less than so many milliseconds after a key-down are skipped.
std::string gapText(const ScreenModel::Remote& remote) {
  return remote.state == RemoteState::kIdle ? "" : ", skips " + std::to_string(remote.gapMs) + " ms";
}

void paintRemotePanel(Picture& picture, Panel& panel, const ScreenModel::Remote& remote) {
  const StateLook look = lookOf(remote.state);
  panel.label("remote");
  panel.value(look.text + gapText(remote), look.style);
  panel.endRow();
  panel.label("key");
  if (remote.state != RemoteState::kIdle) panel.value(keyName(remote.key));
  panel.endRow();
  paintTimeline(picture, panel, remote.history);
}

void paintPanel(Picture& picture, const ScreenModel& model, const Layout& layout) {
  Panel panel(picture, layout);
  paintPointerPanel(panel, model.pointer());
  paintModifiers(panel, model);
  paintRemotePanel(picture, panel, model.remote());
}

// ---- What came last, and the foot ---------------------------------------------------------------

void paintLines(Picture& picture, const ScreenModel& model, const Layout& layout) {
  const int count = std::min(layout.lineRows, static_cast<int>(model.lines().size()));
  auto line = model.lines().end() - count;
  for (int row = layout.linesRow; row < layout.linesRow + count; ++row) {
    picture.write(kMargin, row, cut(*line++, layout.columns - 2 * kMargin));
  }
}

void paintFoot(Picture& picture, const Layout& layout) {
  picture.write(kMargin, layout.footRow, "Ctrl-C ends", Style::kStrong);
  writeAtRight(picture, layout.footRow, "remote: | key-down  - held  = repeating", Style::kFaint);
}

void paintThatItIsTooSmall(Picture& picture, const ScreenModel& model) {
  const std::string is = std::to_string(picture.columns()) + "x" + std::to_string(picture.rows());
  const std::string needed = std::to_string(kLeastColumns) + "x" + std::to_string(leastRows(model));
  picture.write(0, 0, "The terminal is too small.");
  picture.write(0, 1, "It is " + is + " and must be " + needed + ".");
  picture.write(0, 2, "Enlarge it, or end with Ctrl-C.");
}

}  // namespace

// ---- Picture ------------------------------------------------------------------------------------

Picture::Picture(int columns, int rows)
    : columns_(columns), rows_(rows), cells_(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {}

const Cell& Picture::at(int column, int row) const {
  return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)];
}

void Picture::write(int column, int row, const std::string& text, Style style) {
  for (const char byte : text) put(column++, row, byte >= ' ' && byte <= '~' ? byte : '?', style);
}

void Picture::put(int column, int row, char glyph, Style style) {
  if (column < 0 || column >= columns_ || row < 0 || row >= rows_) return;
  cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)] = {
      glyph, style};
}

std::vector<std::string> Picture::text() const {
  std::vector<std::string> lines;
  for (int row = 0; row < rows_; ++row) {
    std::string line;
    for (int column = 0; column < columns_; ++column) {
      const char glyph = at(column, row).glyph;
      line += glyph == kHorizontal ? '-' : glyph == kVertical ? '|' : glyph < ' ' ? '+' : glyph;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(line);
  }
  return lines;
}

Picture paint(const ScreenModel& model, int columns, int rows) {
  Picture picture(columns, rows);
  if (columns < kLeastColumns || rows < leastRows(model)) {
    paintThatItIsTooSmall(picture, model);
    return picture;
  }
  const Layout layout = layoutFor(model, columns, rows);
  paintHeading(picture, model);
  paintSources(picture, model, layout);
  paintBorder(picture, model, layout);
  paintPointer(picture, model, layout);
  paintPanel(picture, model, layout);
  paintLines(picture, model, layout);
  paintFoot(picture, layout);
  return picture;
}

}  // namespace quarlo::tools::monitor
