// What all subcommands say and return in the same way.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quarlo::tools {

// Exit statuses.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// The levels of -v: what the reader logs about the remote's lines, and about their timing too.
constexpr int kRemoteLinesLevel = 2;
constexpr int kRemoteTimingLevel = 10;

// `text` with everything escaped that is not printable ASCII.
std::string printable(const std::string& text);

std::string joined(const std::vector<std::string>& words, const std::string& separator);

// "1 event", "2 events".
std::string counted(std::int64_t number, const char* what);

// Writes a line that says what went wrong to standard error.
void complain(const std::string& message);

// Writes the one line that says why the program ends without success. Returns `status`.
int fail(const std::string& message, int status = kFailed);

// Sets what the reader logs for -v given `times` times: only errors for 0.
void setVerbosity(int times);

// Keeps the reader from logging what it could not open, where the report of the sources says more.
void silenceReader();

// To call first: makes a closed pipe, and a file that may not get larger, an error of output instead of a signal; and
// has what is printed go nowhere, with an error, if its stream is closed, instead of into a device or a session.
void prepareOutput();

// To call at the end: writes out what standard output still holds. Returns `status`, or kFailed if not all that was
// printed could be written; says so, unless it was a pipe whose reader has gone.
int finishOutput(int status);

}  // namespace quarlo::tools
