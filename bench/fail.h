// How the programs in this directory give up.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace quarlo::bench {

// Ends the program with one line on standard error.
[[noreturn]] inline void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

// The same, after a system call failed: the line says why.
[[noreturn]] inline void failWithErrno(const std::string& what) { fail(what + ": " + std::strerror(errno)); }

// Returns `result`, unless it is negative: that a system call failed. `what` names it.
inline int checked(int result, const std::string& what) {
  if (result < 0) failWithErrno(what);
  return result;
}

}  // namespace quarlo::bench
