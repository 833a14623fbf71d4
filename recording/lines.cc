#include "recording/lines.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstring>
#include <utility>

namespace quarlo::recording {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::size_t kLongestQuote = 40;
constexpr std::size_t kMicrosecondDigits = 6;

// The mark without its number.
constexpr std::string_view kAnyMark(kSessionMark, std::string_view(kSessionMark).rfind(' ') + 1);

// Whether all of `field` is one number that fits into `value`.
template <typename Number>
bool parse(std::string_view field, int base, Number& value) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value, base);
  return error == std::errc() && end == field.data() + field.size();
}

std::string inHexadecimal(std::uint32_t value) {
  char text[9];
  std::snprintf(text, sizeof text, "%x", value);
  return text;
}

// Spelled "<seconds>.<six digits>", as evemu and the kernel's time of a record have it.
bool parseTime(std::string_view field, microseconds& time) {
  const std::size_t point = field.find('.');
  if (point == std::string_view::npos || field.size() - point - 1 != kMicrosecondDigits) return false;
  std::uint32_t seconds;
  std::uint32_t fraction;
  if (!parse(field.substr(0, point), 10, seconds) || !parse(field.substr(point + 1), 10, fraction)) return false;
  time = std::chrono::seconds(std::int64_t{seconds}) + microseconds(fraction);
  return true;
}

}  // namespace

std::string furtherNodeFile(std::size_t index) { return "node-" + std::to_string(index + 1) + ".evemu"; }

std::string partOf(const std::string& file, int number) {
  if (number == 1) return file;
  char digits[16];
  std::snprintf(digits, sizeof digits, ".%04d", number);
  std::string name = file;
  return name.insert(name.rfind('.'), digits);
}

std::string pathIn(const std::string& directory, const std::string& file) {
  return (directory.empty() || directory.back() == '/' ? directory : directory + "/") + file;
}

Lines::Lines(std::FILE* file, std::string name) : file_(file), name_(std::move(name)) {}

bool Lines::next() {
  while (readLine()) {
    if (!isComment()) {
      inHead_ = false;
      if (marked_ && unfinished_) failHere("no newline ends this line, the last: it was cut off");
      return true;
    }
    if (inHead_) readHead();
  }
  if (std::ferror(file_) != 0) throw Error(name_ + ": " + std::strerror(errno));
  return false;
}

// What a file of another version says can mean something else than it seems to.
void Lines::readHead() {
  if (text_.compare(0, kAnyMark.size(), kAnyMark) != 0) return;
  if (text_ != kSessionMark) {
    fail(quoted(text_) + " is the mark of another version of the format, this one reads " + quoted(kSessionMark));
  }
  marked_ = true;
}

bool Lines::readLine() {
  text_.clear();
  begin_ = end_;
  int byte = getc_unlocked(file_);
  if (byte == EOF) return false;
  if (++number_ > kMostLines) fail("the file has more than " + std::to_string(kMostLines) + " lines");
  for (; byte != EOF && byte != '\n'; byte = getc_unlocked(file_)) {
    if (byte == '\0') fail("a NUL byte: this is not a text file");
    if (text_.size() == kLongestLine) fail("the line has more than " + std::to_string(kLongestLine) + " bytes");
    text_.push_back(static_cast<char>(byte));
  }
  unfinished_ = byte == EOF;
  end_ += static_cast<std::int64_t>(text_.size()) + 1;
  if (!text_.empty() && text_.back() == '\r') text_.pop_back();
  return true;
}

bool Lines::isComment() const { return text_.find_first_not_of(kBlanks) == std::string::npos || text_.front() == '#'; }

std::string Lines::unescaped(std::string_view text) const {
  if (!marked_) return std::string(text);
  std::optional<std::string> bytes = recording::unescaped(text);
  if (!bytes) fail("a backslash is followed neither by another one nor by x and two hexadecimal digits");
  return *std::move(bytes);
}

std::string Lines::whatIsPlayed() {
  fseeko(file_, 0, SEEK_END);
  const std::int64_t rest = ftello(file_) - begin_;
  return "what comes before is played, the last " + std::to_string(rest) + (rest == 1 ? " byte is" : " bytes are") +
         " not";
}

void Lines::fail(const std::string& problem) const {
  failHere(problem + (unfinished_ ? "; no newline ends this line, the last: it may have been cut off" : ""));
}

void Lines::failHere(const std::string& problem) const {
  throw Error(name_ + ":" + std::to_string(number_) + ": " + problem);
}

std::string_view takeField(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
  const std::string_view field = rest.substr(0, rest.find_first_of(kBlanks));
  rest.remove_prefix(field.size());
  return field;
}

std::string quoted(std::string_view text) {
  if (text.size() <= kLongestQuote) return "\"" + std::string(text) + "\"";
  return "\"" + std::string(text.substr(0, kLongestQuote)) + "...\"";
}

std::int64_t parseDecimal(const Lines& lines, const char* what, std::string_view field, std::int64_t minimum,
                          std::int64_t maximum) {
  std::int64_t value;
  if (!parse(field, 10, value) || value < minimum || value > maximum) {
    lines.fail(std::string(what) + " is " + quoted(field) + ", expected a decimal number from " +
               std::to_string(minimum) + " to " + std::to_string(maximum));
  }
  return value;
}

std::uint32_t parseHexadecimal(const Lines& lines, const char* what, std::string_view field, std::uint32_t maximum) {
  std::uint32_t value;
  if (!parse(field, 16, value) || value > maximum) {
    lines.fail(std::string(what) + " is " + quoted(field) + ", expected a hexadecimal number from 0 to " +
               inHexadecimal(maximum));
  }
  return value;
}

Beginning readBeginning(std::FILE* file, std::string_view label) {
  Lines lines(file, "");
  try {
    while (lines.next()) {
      std::string_view rest = lines.text();
      if (rest.substr(0, label.size()) != label) continue;
      rest.remove_prefix(label.size());
      microseconds time;
      if (!parseTime(takeField(rest), time)) break;
      return {time, lines.isMarked()};
    }
  } catch (const Error&) {
  }
  return {std::nullopt, lines.isMarked()};
}

microseconds parseTimeSince(const Lines& lines, std::string_view field, microseconds start, microseconds last) {
  microseconds time;
  if (!parseTime(field, time)) {
    lines.fail("the time is " + quoted(field) + ", expected <seconds>.<microseconds>, the latter in six digits");
  }
  time -= start;
  if (time < last) lines.fail("the time " + quoted(field) + " is less than the one before it");
  const std::chrono::hours longest = lines.isMarked() ? kLongestSession : kLongestUnmarkedSession;
  if (time > longest) {
    lines.fail("the time " + quoted(field) + " is more than " + std::to_string(longest.count()) +
               " hours after the start of the session, " + timeText(start));
  }
  return time;
}

std::string timeText(microseconds time) {
  char text[48];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, std::int64_t{time.count() / 1'000'000},
                std::int64_t{time.count() % 1'000'000});
  return text;
}

}  // namespace quarlo::recording
