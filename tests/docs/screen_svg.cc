// Prints the screen of `monitor --tui` as SVG: what it shows after the first events of a recorded session, so many of
// them, in a terminal of 80x24.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "recording/session.h"
#include "tools/common/output.h"
#include "tools/common/player.h"
#include "tools/monitor/screen_picture.h"

namespace quarlo::tools::monitor {
namespace {

constexpr int kColumns = 80;
constexpr int kRows = 24;

// ---- The screen ---------------------------------------------------------------------------------

class Watcher final : public Audience {
 public:
  Watcher(const recording::Session& session, const ReaderOptions& options, long count)
      : model_(sourcesOf(session), {static_cast<int>(options.maxX), static_cast<int>(options.maxY)}), count_(count) {}

  bool take(microseconds time, const InputEvent& event, const Origin& origin,
            const InputLoop::Cause* /*cause*/) override {
    model_.addEvent(time, event, origin);
    return model_.counts().events() < count_;
  }

  void look(microseconds time, const LinuxInputReader& reader) override { model_.look(time, reader); }

  const ScreenModel& model() const { return model_; }

 private:
  ScreenModel model_;
  long count_;
};

Picture screenOf(const std::string& path, long count) {
  const recording::Session session = recording::readSession(path);
  const PlayOptions options;
  Watcher watcher(session, options, count);
  playSession(session, options, ReaderLoop::Empty::kUnknown, watcher);
  return paint(watcher.model(), kColumns, kRows);
}

// ---- SVG ----------------------------------------------------------------------------------------

// In pixels. A character is at most as wide as a cell in the usual fonts of this size.
constexpr int kCellWidth = 8;
constexpr int kCellHeight = 17;
constexpr int kBaseline = 13;  // of a row
constexpr int kMargin = 6;

// As tools/monitor/screen.cc has a terminal show them.
const char* className(Style style) {
  switch (style) {
    case Style::kPlain: return "plain";
    case Style::kFaint: return "faint";
    case Style::kStrong: return "strong";
    case Style::kGood: return "good";
    case Style::kBad: return "bad";
    case Style::kHeld: return "held";
    case Style::kPointer: return "pointer";
    default: return "trail";
  }
}

constexpr char kLook[] =
    "text { font: 13px 'DejaVu Sans Mono', Menlo, Consolas, monospace; fill: #d8dee9 }\n"
    "path { stroke: #8d96a8; fill: none }\n"
    ".faint { fill: #8d96a8 } .strong { font-weight: bold } .good { fill: #8fce7a } .trail { fill: #6cc7d9 }\n"
    ".bad { fill: #ff7b72; font-weight: bold } .held { fill: #6cc7d9; font-weight: bold }\n"
    "rect { fill: #d8dee9 } .pointer, .back { fill: #1b1f27 }\n";

bool isLine(const Cell& cell) { return cell.glyph < ' '; }

bool isBlank(const Cell& cell) { return cell.glyph == ' '; }

std::string escaped(const std::string& text) {
  std::string result;
  for (const char ch : text) {
    switch (ch) {
      case '&': result += "&amp;"; break;
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      default: result += ch;
    }
  }
  return result;
}

// Where the cells that begin at `column` and look the same end. Blanks between them look like any.
int endOfRun(const Picture& picture, int column, int row) {
  const Style style = picture.at(column, row).style;
  int end = column + 1;
  for (int next = end; next < picture.columns(); ++next) {
    const Cell& cell = picture.at(next, row);
    if (isBlank(cell)) continue;
    if (isLine(cell) || cell.style != style) break;
    end = next + 1;
  }
  return end;
}

void printRun(const Picture& picture, int column, int end, int row) {
  const Style style = picture.at(column, row).style;
  std::string text;
  for (int i = column; i < end; ++i) text += picture.at(i, row).glyph;
  const int x = kMargin + column * kCellWidth;
  const int y = kMargin + row * kCellHeight;
  const int width = (end - column) * kCellWidth;
  if (style == Style::kPointer) {
    std::printf("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\"/>\n", x, y, width, kCellHeight);
  }
  std::printf("<text x=\"%d\" y=\"%d\" textLength=\"%d\" class=\"%s\">%s</text>\n", x, y + kBaseline, width,
              className(style), escaped(text).c_str());
}

// From the middle of the cell to the sides to which the piece leads.
void printLine(int column, int row, char piece) {
  const int x = kMargin + column * kCellWidth;
  const int y = kMargin + row * kCellHeight;
  constexpr int kHalfWidth = kCellWidth / 2;
  constexpr int kHalfHeight = kCellHeight / 2;
  const bool left = piece == kHorizontal || piece == kUpperRight || piece == kLowerRight;
  const bool right = piece == kHorizontal || piece == kUpperLeft || piece == kLowerLeft;
  const bool up = piece == kVertical || piece == kLowerLeft || piece == kLowerRight;
  const bool down = piece == kVertical || piece == kUpperLeft || piece == kUpperRight;
  const auto to = [&](bool leads, const char* direction, int length) {
    if (leads) std::printf("M%d.5 %d.5%s%d", x + kHalfWidth, y + kHalfHeight, direction, length);
  };
  to(left, "h", -kHalfWidth);
  to(right, "h", kHalfWidth);
  to(up, "v", -kHalfHeight);
  to(down, "v", kCellHeight - kHalfHeight);
}

void printRow(const Picture& picture, int row) {
  for (int column = 0; column < picture.columns(); ++column) {
    const Cell& cell = picture.at(column, row);
    if (isBlank(cell) || isLine(cell)) continue;
    const int end = endOfRun(picture, column, row);
    printRun(picture, column, end, row);
    column = end - 1;
  }
}

void printLines(const Picture& picture) {
  std::printf("<path d=\"");
  for (int row = 0; row < picture.rows(); ++row) {
    for (int column = 0; column < picture.columns(); ++column) {
      const Cell& cell = picture.at(column, row);
      if (isLine(cell)) printLine(column, row, cell.glyph);
    }
  }
  std::printf("\"/>\n");
}

void print(const Picture& picture) {
  const int width = 2 * kMargin + picture.columns() * kCellWidth;
  const int height = 2 * kMargin + picture.rows() * kCellHeight;
  std::printf(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" width=\"%d\" height=\"%d\" "
      "xml:space=\"preserve\">\n",
      width, height, width, height);
  std::printf("<style>\n%s</style>\n<rect class=\"back\" width=\"%d\" height=\"%d\" rx=\"6\"/>\n", kLook, width,
              height);
  for (int row = 0; row < picture.rows(); ++row) printRow(picture, row);
  printLines(picture);
  std::printf("</svg>\n");
}

}  // namespace
}  // namespace quarlo::tools::monitor

int main(int argc, char** argv) {
  using namespace quarlo;
  constexpr int kUsage = 2;
  if (argc != 3) {
    std::fprintf(stderr, "usage: screen_svg SESSION COUNT\n");
    return kUsage;
  }
  tools::silenceReader();
  try {
    tools::monitor::print(tools::monitor::screenOf(argv[1], std::strtol(argv[2], nullptr, 10)));
  } catch (const recording::Error& error) {
    return tools::fail(error.what());
  }
  return 0;
}
