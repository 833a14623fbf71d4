#include "logging/stderr_logging.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "logging/escape.h"

namespace quarlo::logging {
namespace {

constexpr std::size_t kMessageSize = 1024;

int minLogLevel = kInfo;
int vlogLevel = 0;

}  // namespace

void SetMinLogLevel(int level) { minLogLevel = level; }

void SetVlogLevel(int level) { vlogLevel = level; }

int GetMinLogLevel() { return minLogLevel; }

int GetVlogLevelHelper(const char* /*file*/, std::size_t /*size*/) { return vlogLevel; }

void LogMessage(const char* /*file*/, int /*line*/, int severity, const char* format, ...) {
  char message[kMessageSize];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);

  char escaped[kLongestEscape * kMessageSize];
  Escape(message, std::strlen(message), escaped, sizeof escaped);
  if (severity < 0) {
    std::fprintf(stderr, "VERBOSE%d %s\n", -severity, escaped);
  } else {
    std::fprintf(stderr, "%s %s\n", severity >= kError ? "ERROR" : "INFO", escaped);
  }
}

}  // namespace quarlo::logging
