// What the files of a session have in common: names, lines, numbers and times, and errors that say where they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "recording/escapes.h"
#include "recording/session.h"

namespace quarlo::recording {

// The files of a session that is a directory.
constexpr char kMouseFile[] = "mouse.evemu";
constexpr char kKeyboardFile[] = "keyboard.evemu";
constexpr char kRemoteFile[] = "remote.lirc";

// That of a further node: node-1.evemu for the first one, whose index is 0.
std::string furtherNodeFile(std::size_t index);

// The file of the directory in which a long recording of `file` goes on: mouse.evemu, mouse.0002.evemu, ... The number
// is from 1 on.
std::string partOf(const std::string& file, int number);

// The line that the files of this program's recordings have among the comments at their top: that names and the
// daemon's lines are escaped in them (recording/escapes.h). In other files, a backslash is a backslash. A file with
// another number is not read.
constexpr char kSessionMark[] = "# quarlo-input session 2";

inline bool startsWith(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

// The path of a file in the directory.
std::string pathIn(const std::string& directory, const std::string& file);

// Bounds that no sensible file reaches, so that a wrong one ends with an error instead of exhausting memory.
constexpr std::size_t kLongestText = 4096;                                // bytes of a name or of a daemon's line
constexpr std::size_t kLongestLine = kLongestEscape * kLongestText + 32;  // bytes, without the newline
constexpr long kMostLines = 5'000'000;
constexpr std::int64_t kLargestFile = 256 << 20;  // bytes

// A file, and what errors call it.
struct NamedFile {
  std::FILE* file;
  std::string name;
};

// The lines of a file that are not comments, one at a time.
class Lines {
 public:
  // Errors call the file `name`. The caller keeps and closes `file`.
  Lines(std::FILE* file, std::string name);

  // Moves to the next line. Returns false at the end of the file. Throws Error if the line is too long, is not text, or
  // cannot be read, if it has no end in a file that is marked, or if a comment at the top is the mark of another
  // version.
  bool next();

  // Calls `take` for each line, up to the end of the file or to an Error. Returns the damage that this is.
  template <typename Take>
  std::optional<Damage> forEach(Take take) {
    try {
      while (next()) take();
      return std::nullopt;
    } catch (const Error& error) {
      return Damage{error.what(), whatIsPlayed()};
    }
  }

  // The line, without its end.
  std::string_view text() const { return text_; }

  // The bytes that `text`, a part of the line, stands for. Throws Error if an escape in it is wrong.
  std::string unescaped(std::string_view text) const;

  // Whether the file has kSessionMark before the line.
  bool isMarked() const { return marked_; }

  // Throws Error with the file's name, the line's number, and `problem`. If the line may have been cut off, it says
  // that, too.
  [[noreturn]] void fail(const std::string& problem) const;

 private:
  bool readLine();
  void readHead();
  std::string whatIsPlayed();
  [[noreturn]] void failHere(const std::string& problem) const;
  bool isComment() const;

  std::FILE* file_;
  std::string name_;
  std::string text_;
  long number_ = 0;
  std::int64_t begin_ = 0;   // where in the file the line is, in bytes
  std::int64_t end_ = 0;     // where the next one is
  bool unfinished_ = false;  // no newline ends the line
  bool inHead_ = true;       // only comments came so far
  bool marked_ = false;
};

// Splits off the first field of `rest`, which spaces or tabs end. Empty at the end of the line.
std::string_view takeField(std::string_view& rest);

// `text` as part of an error message: in quotes, and cut if it is long.
std::string quoted(std::string_view text);

// The number that `field` is. Throws Error, naming `what`, unless it is a number from `minimum` to `maximum`.
std::int64_t parseDecimal(const Lines& lines, const char* what, std::string_view field, std::int64_t minimum,
                          std::int64_t maximum);
std::uint32_t parseHexadecimal(const Lines& lines, const char* what, std::string_view field, std::uint32_t maximum);

// What a file's beginning tells about its times.
struct Beginning {
  std::optional<microseconds> firstTime;  // none if something is wrong before it, which whoever reads the file will say
  bool isMarked;                          // as Lines has it
};

// The first time is that of the first line that starts with `label`, which it follows.
Beginning readBeginning(std::FILE* file, std::string_view label);

// The time since `start` that `field` is: "<seconds>.<microseconds>" on the clock of the file. Throws Error if it is
// something else, less than `last`, or more than the longest session.
microseconds parseTimeSince(const Lines& lines, std::string_view field, microseconds start, microseconds last);

// "<seconds>.<microseconds>".
std::string timeText(microseconds time);

}  // namespace quarlo::recording
