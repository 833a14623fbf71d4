#include "tools/tune/timing_plot.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <set>
#include <vector>

namespace quarlo::tools::tune {
namespace {

// Colours that colour-blind people can tell apart.
constexpr char kInk[] = "#303030";
constexpr char kDim[] = "#606060";
constexpr char kKeyDown[] = "#0072b2";
constexpr char kSkipped[] = "#8a8a8a";
constexpr char kLost[] = "#d55e00";
constexpr char kHeld[] = "#dde9f2";
constexpr int kGood = 0x00456d;
constexpr int kBad = 0xa03c00;
constexpr char kRepeating[] = "#9ecae1";

constexpr int kWidth = 960;
constexpr int kHeadHeight = 92;
constexpr int kTimelineHeight = 196;
constexpr int kCellHeight = 46;
constexpr int kMapFrame = 120;  // its title above, its axis below
constexpr double kMapsLeft = 90;
constexpr double kMapsWidth = 850;
constexpr double kMapGap = 24;
constexpr double kMinCellWidth = 58;

// The script, as it grows.
class Script {
 public:
  void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    text_ += line;
    text_ += '\n';
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// A part of the picture, in pixels from the top left.
struct Panel {
  double left;
  double right;
  double top;
  double bottom;
};

// Places what is drawn next.
void place(Script& script, const Panel& panel, int height) {
  script.add("set lmargin at screen %.4f", panel.left / kWidth);
  script.add("set rmargin at screen %.4f", panel.right / kWidth);
  script.add("set tmargin at screen %.4f", 1 - panel.top / height);
  script.add("set bmargin at screen %.4f", 1 - panel.bottom / height);
}

std::string settingText(const Setting& setting, Decoder decoder) {
  const std::string repeat = std::to_string(setting.repeatMs);
  const std::string start = std::to_string(setting.startMs);
  return (decoder == Decoder::kKernel ? "delay " + start + ", period " + repeat
                                      : "repeat " + repeat + ", release " + start) +
         (setting.pollMs ? ", poll " + std::to_string(*setting.pollMs) : "") + " ms";
}

std::string summaryOf(const Finding& finding) {
  return describe(finding) + (finding.faults.empty() ? " No fault." : " Faults: " + toText(finding.faults) + ".");
}

// ---- Timelines ----------------------------------------------------------------------------------

// Where the rows of a timeline are.
constexpr int kLinesRow = 3;
constexpr int kStateRow = 2;
constexpr int kKeyDownRow = 1;

struct Window {
  Press press;
  microseconds start;  // of the press
  double minimumMs;
  double maximumMs;
};

Window windowOf(const Remote& remote, const Timeline& timeline, bool held) {
  constexpr double kMargin = 40;
  constexpr double kTapMs = 560;
  constexpr double kAfterMs = 250;
  const Press press = pressToShow(remote, timeline, held);
  const microseconds start = timeline.lines[press.first].sent;
  const double end = held ? toMs(timeline.lines[press.end - 1].sent - start) + kAfterMs : kTapMs;
  return {press, start, -kMargin, end};
}

// The times at which the reader took the button for held, or for repeating.
void addStates(Script& script, const Timeline& timeline, const Window& window, ButtonState state, const char* colour) {
  for (std::size_t i = 0; i < timeline.states.size(); ++i) {
    if (timeline.states[i].state != state) continue;
    const bool last = i + 1 == timeline.states.size();
    const double from = std::max(toMs(timeline.states[i].time - window.start), window.minimumMs);
    const double to =
        last ? window.maximumMs : std::min(toMs(timeline.states[i + 1].time - window.start), window.maximumMs);
    if (from >= to) continue;
    script.add("set object rectangle from %.3f,%.2f to %.3f,%.2f fc rgb '%s' fs solid noborder behind", from,
               kStateRow - 0.3, to, kStateRow + 0.3, colour);
  }
}

void addMarks(Script& script, const char* name, const Timeline& timeline, const Window& window, Fate fate) {
  script.add("$%s << EOD", name);
  for (std::size_t i = window.press.first; i < window.press.end; ++i) {
    const TimedLine& line = timeline.lines[i];
    if (line.fate == fate) script.add("%.3f %d", toMs(line.sent - window.start), kLinesRow);
  }
  script.add("NaN NaN\nEOD");
}

void addKeyDowns(Script& script, const Timeline& timeline, const Window& window) {
  script.add("$downs << EOD");
  for (const KeyDown& keyDown : timeline.keyDowns) {
    if (keyDown.line < window.press.first || keyDown.line >= window.press.end) continue;
    script.add("%.3f %.2f %.2f", toMs(keyDown.time - window.start), kKeyDownRow - 0.3, kKeyDownRow + 0.3);
  }
  script.add("NaN NaN NaN\nEOD");
}

void drawWindow(Script& script, const Timeline& timeline, const Window& window) {
  addMarks(script, "accepted", timeline, window, Fate::kKeyDown);
  addMarks(script, "skipped", timeline, window, Fate::kSkipped);
  addMarks(script, "lost", timeline, window, Fate::kLost);
  addKeyDowns(script, timeline, window);
  script.add("unset object");
  addStates(script, timeline, window, ButtonState::kHeld, kHeld);
  addStates(script, timeline, window, ButtonState::kRepeating, kRepeating);
  script.add("set xrange [%.0f:%.0f]", window.minimumMs, window.maximumMs);
  script.add("set yrange [0.4:3.6]");
  script.add("plot $accepted with points pt 7 ps 0.9 lc rgb '%s', \\", kKeyDown);
  script.add("     $skipped with points pt 6 ps 0.9 lw 1.5 lc rgb '%s', \\", kSkipped);
  script.add("     $lost with points pt 2 ps 0.9 lw 2 lc rgb '%s', \\", kLost);
  script.add("     $downs using 1:($2-0.02):(0):($3-$2) with vectors nohead lw 4 lc rgb '%s'", kKeyDown);
}

void drawTimeline(Script& script, const Remote& remote, const Finding& finding, const char* what, int top, int height) {
  constexpr double kTapLeft = 130;
  constexpr double kTapRight = 330;
  constexpr double kHoldRight = 930;
  const Timeline timeline = runReader(remote, finding.setting, worstCircumstances(remote, finding.setting));
  script.add("set label 1 \"%s: %s\" at screen %.4f,%.4f font 'DejaVu Sans Bold,14' textcolor rgb '%s'", what,
             settingText(finding.setting, remote.decoder).c_str(), 20.0 / kWidth, 1 - (top + 14.0) / height, kInk);
  script.add("set label 2 \"%s\" at screen %.4f,%.4f textcolor rgb '%s'", summaryOf(finding).c_str(), 20.0 / kWidth,
             1 - (top + 36.0) / height, kDim);
  script.add("set ytics ('%s' %d, 'button' %d, 'key-downs' %d) scale 0 textcolor rgb '%s'",
             remote.decoder == Decoder::kKernel ? "frames" : "lines sent", kLinesRow, kStateRow, kKeyDownRow, kInk);
  script.add("set xtics 200 nomirror out offset 0,0.4 textcolor rgb '%s'", kInk);
  script.add("set xlabel 'ms of a tap' offset 0,1 textcolor rgb '%s'", kDim);
  const double upper = top + 52.0;
  const double lower = top + kTimelineHeight - 58.0;
  place(script, {kTapLeft, kTapRight, upper, lower}, height);
  drawWindow(script, timeline, windowOf(remote, timeline, false));
  script.add("unset label");
  script.add("unset ytics");
  script.add("set xlabel 'ms of a held button'");
  place(script, {kTapRight + 30, kHoldRight, upper, lower}, height);
  drawWindow(script, timeline, windowOf(remote, timeline, true));
}

// ---- Maps ---------------------------------------------------------------------------------------

template <typename Value>
std::vector<Value> valuesOf(const Study& study, Value Setting::*member) {
  std::set<Value> values;
  for (const Finding& finding : study.findings) values.insert(finding.setting.*member);
  return {values.begin(), values.end()};
}

int indexOf(const std::vector<int>& values, int value) {
  return static_cast<int>(std::find(values.begin(), values.end(), value) - values.begin());
}

std::string tics(const std::vector<int>& values) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += (i == 0 ? "" : ", ") + ("'" + std::to_string(values[i])) + "' " + std::to_string(i);
  }
  return text;
}

void addFrame(Script& script, int x, int y, const char* style) {
  script.add("set object rectangle from %.2f,%.2f to %.2f,%.2f fs empty border rgb '%s' lw 3 %s front", x - 0.46,
             y - 0.44, x + 0.46, y + 0.44, kInk, style);
}

// One cell for each setting with this poll timeout: repeats a second, and under it what is wrong.
void addCells(Script& script, const Study& study, PollTimeout poll) {
  const std::vector<int> repeats = valuesOf(study, &Setting::repeatMs);
  const std::vector<int> releases = valuesOf(study, &Setting::startMs);
  script.add("unset object");
  script.add("$cells << EOD");
  for (const Finding& finding : study.findings) {
    if (finding.setting.pollMs != poll) continue;
    const double rate = finding.repeatsPerSecond ? finding.repeatsPerSecond->minimum : 0;
    script.add(R"(%d %d %.3f "%.1f" "%s" %d)", indexOf(repeats, finding.setting.repeatMs),
               indexOf(releases, finding.setting.startMs), rate, rate,
               finding.faults.empty() ? "good" : nameOf(finding.faults.front()), finding.faults.empty() ? kGood : kBad);
  }
  script.add("EOD");
  for (const auto& [number, style] : {std::pair(study.byDefault, "dt 2"), {study.recommended, "dt 1"}}) {
    const Setting& setting = study.findings[number].setting;
    if (setting.pollMs != poll) continue;
    addFrame(script, indexOf(repeats, setting.repeatMs), indexOf(releases, setting.startMs), style);
  }
}

std::string readOf(const Study& study) { return study.judgement.decoder == Decoder::kKernel ? "key-down" : "line"; }

void drawMap(Script& script, const Study& study, PollTimeout poll, const Panel& panel, int height) {
  const std::vector<int> repeats = valuesOf(study, &Setting::repeatMs);
  const std::vector<int> releases = valuesOf(study, &Setting::startMs);
  addCells(script, study, poll);
  place(script, panel, height);
  const std::string title =
      poll ? "polled every " + std::to_string(*poll) + " ms" : "each " + readOf(study) + " read as it comes";
  script.add("set title '%s' offset 0,-0.5 textcolor rgb '%s'", title.c_str(), kInk);
  script.add("set xtics (%s) scale 0 offset 0,0.4", tics(repeats).c_str());
  script.add("set xrange [-0.5:%.1f]", static_cast<double>(repeats.size()) - 0.5);
  script.add("set yrange [-0.5:%.1f]", static_cast<double>(releases.size()) - 0.5);
  script.add("plot $cells using 1:2:(0.47):(0.45):3 with boxxyerror fs solid 1 noborder lc palette, \\");
  script.add("     $cells using 1:2:4 with labels offset 0,0.45 textcolor rgb '%s', \\", kInk);
  script.add("     $cells using 1:2:5:6 with labels offset 0,-0.65 font ',10' textcolor rgb variable");
}

// How the maps are laid out: as many side by side as leave room for what is in their cells.
struct MapLayout {
  explicit MapLayout(const Study& study)
      : polls(valuesOf(study, &Setting::pollMs)),
        perRow(std::clamp<std::size_t>(
            static_cast<std::size_t>(
                (kMapsWidth + kMapGap) /
                (static_cast<double>(valuesOf(study, &Setting::repeatMs).size()) * kMinCellWidth + kMapGap)),
            1, polls.size())),
        width((kMapsWidth + kMapGap) / static_cast<double>(perRow) - kMapGap),
        rowHeight(kMapFrame + static_cast<int>(valuesOf(study, &Setting::startMs).size()) * kCellHeight) {}

  int height() const { return static_cast<int>((polls.size() + perRow - 1) / perRow) * rowHeight; }

  std::vector<PollTimeout> polls;
  std::size_t perRow;
  double width;   // of a map
  int rowHeight;  // of a row of them
};

void drawMaps(Script& script, const Study& study, int top, int height) {
  const MapLayout layout(study);
  const Terms& terms = termsOf(study.judgement.decoder);
  const std::vector<int> releases = valuesOf(study, &Setting::startMs);
  script.add("unset label");
  script.add(
      "set label 1 'All settings: repeats a second of a held button, and the worst fault' at screen %.4f,%.4f font "
      "'DejaVu Sans Bold,14' textcolor rgb '%s'",
      20.0 / kWidth, 1 - (top + 10.0) / height, kInk);
  script.add("set label 2 'dashed: now; framed: recommended' at screen %.4f,%.4f right textcolor rgb '%s'",
             (kMapsLeft + kMapsWidth) / kWidth, 1 - (top + 10.0) / height, kDim);
  script.add("set palette defined (0 '#ffffff', 4 '#e3eef7', 12 '#7fb6dd')\nset cbrange [0:12]\nunset colorbox");
  script.add("set border 0\nset xlabel '%s (ms)'", terms.repeat);
  for (std::size_t i = 0; i < layout.polls.size(); ++i) {
    const bool leftmost = i % layout.perRow == 0;
    const double left = kMapsLeft + static_cast<double>(i % layout.perRow) * (layout.width + kMapGap);
    const int rowTop = top + static_cast<int>(i / layout.perRow) * layout.rowHeight;
    if (leftmost) {
      script.add("set ytics (%s) scale 0 textcolor rgb '%s'", tics(releases).c_str(), kInk);
      script.add("set ylabel '%s (ms)' textcolor rgb '%s'", terms.start, kDim);
    }
    drawMap(script, study, layout.polls[i],
            {left, left + layout.width, rowTop + 62.0, rowTop + layout.rowHeight - 58.0}, height);
    script.add("unset label\nunset ytics\nunset ylabel");
  }
}

// ---- The head -----------------------------------------------------------------------------------

void addKey(Script& script, int number, double x, const char* text, const char* colour, int height) {
  script.add("set label %d '%s' at screen %.4f,%.4f textcolor rgb '%s'", number, text, x / kWidth, 1 - 58.0 / height,
             colour);
}

// The title, and a key to the timelines. Labels stay until they are unset.
void drawHead(Script& script, const std::string& title, Decoder decoder, int height) {
  script.add("set label 10 '%s' at screen %.4f,%.4f font 'DejaVu Sans Bold,17' textcolor rgb '%s'", title.c_str(),
             20.0 / kWidth, 1 - 28.0 / height, kInk);
  if (decoder == Decoder::kKernel) {
    addKey(script, 11, 20, "● a frame that presses the key, ❙ a key-down", kKeyDown, height);
    addKey(script, 12, 370, "○ a frame that keeps it down", kSkipped, height);
  } else {
    addKey(script, 11, 20, "● a line that counts, ❙ its key-down", kKeyDown, height);
    addKey(script, 12, 310, "○ a line too close to it", kSkipped, height);
    addKey(script, 13, 500, "× a line read too late", kLost, height);
  }
  addKey(script, 14, 675, "■", kHeld, height);
  addKey(script, 15, 690, "held", kInk, height);
  addKey(script, 16, 740, "■", kRepeating, height);
  addKey(script, 17, 755, "repeating", kInk, height);
}

}  // namespace

std::string plotScript(const Remote& remote, const Study& study, const std::string& title) {
  const bool same = study.byDefault == study.recommended;
  const int timelines = same ? 1 : 2;
  const int mapTop = kHeadHeight + timelines * kTimelineHeight;
  const int height = mapTop + MapLayout(study).height();
  Script script;
  script.add("set terminal svg size %d,%d noenhanced font 'DejaVu Sans,13' background rgb 'white'", kWidth, height);
  script.add("set border 1 lc rgb '%s'\nset key off", kInk);
  script.add("set multiplot");
  drawHead(script, title, remote.decoder, height);
  drawTimeline(script, remote, study.findings[study.byDefault], same ? "Now, and recommended" : "Now", kHeadHeight,
               height);
  if (!same) {
    drawTimeline(script, remote, study.findings[study.recommended], "Recommended", kHeadHeight + kTimelineHeight,
                 height);
  }
  drawMaps(script, study, mapTop, height);
  script.add("unset multiplot");
  return script.text();
}

}  // namespace quarlo::tools::tune
