// The program quarlo-input, run as a user runs it.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace quarlo::tools {

using test::contentOf;
using test::Fifo;
using test::Folder;

using Arguments = std::vector<std::string>;

struct Result {
  int status;  // as a shell has it: 128 + the signal that ended it
  std::string out;
  std::string err;
};

// Where standard output goes.
enum class Output { kPipe, kClosedPipe, kFullDisk, kTerminal };

// Whether kTerminal can be had: a bare chroot has no pseudo-terminals.
bool hasTerminals();

// The running program. With kPipe and kTerminal, its output is read; a terminal's line ends are a plain \n. Signals are
// as a shell leaves them, also those that the test ignores.
class Program {
 public:
  // `launcher` is a command that runs the program, such as setpriv with its arguments.
  explicit Program(const Arguments& arguments, Output output = Output::kPipe, const Arguments& launcher = {});
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // How long each of the two below waits.
  void setLimit(std::chrono::milliseconds limit) { limit_ = limit; }

  // Reads standard output until it holds `text`. False, with all that was read, if that does not come.
  testing::AssertionResult waitFor(const std::string& text);

  void signal(int number) const;

  pid_t pid() const { return pid_; }

  // Waits for the end, and returns what was read since the start. A program that does not end is a failure, and killed.
  Result finish();

 private:
  using Time = std::chrono::steady_clock::time_point;

  // What has come of the program so far, for a person.
  std::string story(const std::string& problem) const;

  // Reads what comes before the deadline. Returns false if nothing more does.
  bool readSome(Time deadline);

  // Whether it has ended before the deadline; `status` is then as waitpid() gives it.
  bool hasEnded(Time deadline, int& status) const;

  Time deadline() const { return std::chrono::steady_clock::now() + limit_; }

  std::string command_;
  std::chrono::milliseconds limit_ = std::chrono::minutes(1);
  pid_t pid_;
  int out_ = -1;
  int err_ = -1;
  Result result_ = {};
};

Result run(const Arguments& arguments, Output output = Output::kPipe, const Arguments& launcher = {});

// A launcher that has a shell redirect the program's streams, such as ">&-", or >"$0" for `file`.
Arguments redirected(const std::string& redirection, const std::string& file = "");

// A launcher that has the program run as a user who may nothing, if the tests run as root: root reads everything.
// Another launcher can stand before it, but not behind it: it could not find the program where that is below /root.
Arguments asNobody();

// Whether another process of that user, or else of the same one, can read the program's memory.
bool canReadMemory(pid_t pid);

// What a terminal or a log could take for commands: escape sequences, also those of one byte (C1), as such and in
// UTF-8; a backspace, a return, a new line, a byte that is not text.
inline const std::string kHostile =
    "\x1b]0;x\x07\x9b"
    "2J\xc2\x9b"
    "2J\b\r\n\x7f\xff";
// The same, escaped.
inline const std::string kHostileEscaped = R"(\x1b]0;x\x07\x9b2J\xc2\x9b2J\x08\r\n\x7f\xff)";

// Whether a terminal can show it: printable ASCII in lines.
bool isHarmless(const std::string& text);

std::vector<std::string> linesOf(const std::string& text);

// The lines of what `monitor` printed about events, and records and lines without one, each without its time and
// source.
std::vector<std::string> eventsOf(const std::string& out);

// Of moves that follow each other, the last: how many there are depends on when a loop comes by.
std::vector<std::string> withMovesMerged(const std::vector<std::string>& events);

// Besides, of an event that came several times in a row, one: how often a kernel repeats a held key depends on it.
std::vector<std::string> withRepeatsMerged(const std::vector<std::string>& events);

}  // namespace quarlo::tools
