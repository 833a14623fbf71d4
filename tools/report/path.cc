#include "tools/report/path.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace quarlo::tools::report {
namespace {

constexpr microseconds kTick = std::chrono::milliseconds(1);
constexpr std::size_t kMovesOfAChunk = 4096;
constexpr std::int64_t kTicksOfTheFirstLevel = 64;
constexpr std::int64_t kCoarser = 8;     // from level to level
constexpr std::size_t kSmallLevel = 64;  // entries: a coarser one would not help
constexpr std::size_t kFewer = 2;        // a level has at most one entry for so many of the one before

struct Point {
  std::int64_t tick;
  int x;
  int y;
};

// Calls `take` for the last move of each tick.
template <typename Take>
void forEachPoint(const Happened& happened, InputLoop::Source source, const Take& take) {
  Point point = {-1, 0, 0};
  for (const Event& event : happened.events) {
    if (event.source != source || !happened.shapeOf(event).isMove()) continue;
    const std::int64_t tick = event.time / kTick;
    if (point.tick >= 0 && point.tick != tick) take(point);
    point = {tick, event.x, event.y};
  }
  if (point.tick >= 0) take(point);
}

// ---- The finest level ---------------------------------------------------------------------------

// How many ticks there are most often between two moves.
std::int64_t usualStep(const Happened& happened, InputLoop::Source source) {
  std::array<std::size_t, kTicksOfTheFirstLevel> counts = {};
  std::int64_t before = -1;
  forEachPoint(happened, source, [&](const Point& point) {
    const std::int64_t step = point.tick - before;
    if (before >= 0 && step < kTicksOfTheFirstLevel) ++counts[static_cast<std::size_t>(step)];
    before = point.tick;
  });
  return std::max<std::int64_t>(std::max_element(counts.begin(), counts.end()) - counts.begin(), 1);
}

// The codes of docs/report.md: of one step in one byte, of one in two bytes, and what comes before others.
constexpr int kShort = 7;
constexpr int kShortSide = 2 * kShort + 1;
constexpr int kLong = 40;
constexpr int kLongSide = 2 * kLong + 1;
constexpr int kFirstLong = kShortSide * kShortSide;
constexpr int kFar = 251;
constexpr int kLater = 252;
constexpr int kOneLater = 253;
static_assert(kFirstLong + (kLongSide * kLongSide - 1) / 256 < kFar);

void addByte(std::string& bytes, int byte) { bytes += static_cast<char>(byte); }

void addNumber(std::string& bytes, std::int64_t number) {
  auto rest = static_cast<std::uint64_t>(number) << 1U;
  if (number < 0) rest = ~rest;
  for (; rest >= 0x80U; rest >>= 7U) addByte(bytes, static_cast<int>((rest & 0x7fU) | 0x80U));
  addByte(bytes, static_cast<int>(rest));
}

void addStep(std::string& bytes, int dx, int dy) {
  const int longest = std::max(std::abs(dx), std::abs(dy));
  if (longest <= kShort) {
    addByte(bytes, (dy + kShort) * kShortSide + dx + kShort);
  } else if (longest <= kLong) {
    const int value = (dy + kLong) * kLongSide + dx + kLong;
    addByte(bytes, kFirstLong + value / 256);
    addByte(bytes, value % 256);
  } else {
    addByte(bytes, kFar);
    addNumber(bytes, dx);
    addNumber(bytes, dy);
  }
}

void addPause(std::string& bytes, std::int64_t more) {
  if (more == 1) {
    addByte(bytes, kOneLater);
  } else if (more != 0) {
    addByte(bytes, kLater);
    addNumber(bytes, more);
  }
}

std::string base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t size = std::min<std::size_t>(bytes.size() - i, 3);
    unsigned group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8U | (j < size ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (unsigned j = 0; j < 4; ++j) text += j <= size ? kDigits[group >> (18U - 6U * j) & 63U] : '=';
  }
  return text;
}

struct Chunk {
  Point first;
  std::size_t moves;
  std::string bytes;
};

std::vector<Chunk> chunksOf(const Happened& happened, InputLoop::Source source, std::int64_t usual) {
  std::vector<Chunk> chunks;
  Point before = {};
  forEachPoint(happened, source, [&](const Point& point) {
    if (chunks.empty() || chunks.back().moves == kMovesOfAChunk) {
      chunks.push_back({point, 1, ""});
    } else {
      Chunk& chunk = chunks.back();
      addPause(chunk.bytes, point.tick - before.tick - usual);
      addStep(chunk.bytes, point.x - before.x, point.y - before.y);
      ++chunk.moves;
    }
    before = point;
  });
  return chunks;
}

void writeChunks(const std::vector<Chunk>& chunks, JsonWriter& writer) {
  writer.name("chunks");
  writer.open('{');
  writer.deltas("time", chunks.size(), [&](std::size_t i) { return chunks[i].first.tick; });
  writer.column("x", chunks.size(), [&](std::size_t i) { return chunks[i].first.x; });
  writer.column("y", chunks.size(), [&](std::size_t i) { return chunks[i].first.y; });
  writer.column("moves", chunks.size(), [&](std::size_t i) { return chunks[i].moves; });
  writer.name("data");
  writer.open('[');
  for (const Chunk& chunk : chunks) writer.text(base64(chunk.bytes));
  writer.close(']');
  writer.close('}');
}

// ---- The others ---------------------------------------------------------------------------------

// What happened in a number of ticks.
struct Step {
  std::int64_t at;
  std::size_t moves;
  Point last;
  int left;
  int right;
  int top;
  int bottom;
};

void addTo(std::vector<Step>& level, std::int64_t at, const Step& part) {
  if (level.empty() || level.back().at != at) {
    level.push_back(part);
    level.back().at = at;
    return;
  }
  Step& step = level.back();
  step.moves += part.moves;
  step.last = part.last;
  step.left = std::min(step.left, part.left);
  step.right = std::max(step.right, part.right);
  step.top = std::min(step.top, part.top);
  step.bottom = std::max(step.bottom, part.bottom);
}

std::vector<Step> firstLevelOf(const Happened& happened, InputLoop::Source source) {
  std::vector<Step> level;
  forEachPoint(happened, source, [&](const Point& point) {
    const std::int64_t at = point.tick / kTicksOfTheFirstLevel;
    addTo(level, at, {at, 1, point, point.x, point.x, point.y, point.y});
  });
  return level;
}

std::vector<Step> coarser(const std::vector<Step>& level) {
  std::vector<Step> result;
  for (const Step& step : level) addTo(result, step.at / kCoarser, step);
  return result;
}

void writeLevel(const std::vector<Step>& level, std::int64_t ticks, JsonWriter& writer) {
  const auto column = [&](const char* name, const auto& valueOf) {
    writer.column(name, level.size(), [&](std::size_t i) { return valueOf(level[i]); });
  };
  const auto deltas = [&](const char* name, const auto& valueOf) {
    writer.deltas(name, level.size(), [&](std::size_t i) { return valueOf(level[i]); });
  };
  writer.open('{');
  writer.name("ticks");
  writer.number(ticks);
  deltas("at", [](const Step& step) { return step.at; });
  column("moves", [](const Step& step) { return step.moves; });
  deltas("x", [](const Step& step) { return step.last.x; });
  deltas("y", [](const Step& step) { return step.last.y; });
  column("left", [](const Step& step) { return step.last.x - step.left; });
  column("right", [](const Step& step) { return step.right - step.last.x; });
  column("top", [](const Step& step) { return step.last.y - step.top; });
  column("bottom", [](const Step& step) { return step.bottom - step.last.y; });
  writer.close('}');
}

void writeLevels(std::size_t moves, std::vector<Step> level, JsonWriter& writer) {
  writer.name("levels");
  writer.open('[');
  std::size_t finer = moves;
  for (std::int64_t ticks = kTicksOfTheFirstLevel; finer > kSmallLevel && level.size() <= finer / kFewer;
       ticks *= kCoarser) {
    writeLevel(level, ticks, writer);
    finer = level.size();
    level = coarser(level);
  }
  writer.close(']');
}

}  // namespace

void writePaths(const Happened& happened, const SourceIndex& indexOf, JsonWriter& writer) {
  writer.name("paths");
  writer.open('[');
  for (int i = 0; i < InputLoop::kSources; ++i) {
    const auto source = static_cast<InputLoop::Source>(i);
    if (indexOf[source] < 0) continue;
    const std::int64_t usual = usualStep(happened, source);
    const std::vector<Chunk> chunks = chunksOf(happened, source, usual);
    if (chunks.empty()) continue;
    std::size_t moves = 0;
    for (const Chunk& chunk : chunks) moves += chunk.moves;
    writer.open('{');
    writer.name("source");
    writer.number(indexOf[source]);
    writer.name("usual");
    writer.number(usual);
    writeChunks(chunks, writer);
    writeLevels(moves, firstLevelOf(happened, source), writer);
    writer.close('}');
  }
  writer.close(']');
}

}  // namespace quarlo::tools::report
