#include "tools/common/output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "logging/escape.h"
#include "logging/logging.h"
#include "logging/stderr_logging.h"

namespace quarlo::tools {
namespace {

// What is opened gets the lowest free number, which must not be that of a standard stream. The root directory is always
// there, and cannot be written to.
void occupyStandardDescriptors() {
  int fd = -1;
  do {
    fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  close(fd);
}

bool readerHasGone() {
  pollfd look = {STDOUT_FILENO, 0, 0};
  return poll(&look, 1, 0) == 1 && (look.revents & POLLERR) != 0;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string escaped(logging::kLongestEscape * text.size() + 1, '\0');
  escaped.resize(logging::Escape(text.data(), text.size(), escaped.data(), escaped.size()));
  return escaped;
}

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

std::string counted(std::int64_t number, const char* what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

void complain(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "quarlo-input: %s\n", printable(message).c_str());
}

int fail(const std::string& message, int status) {
  complain(message);
  return status;
}

void setVerbosity(int times) {
  logging::SetMinLogLevel(times > 0 ? logging::kInfo : logging::kError);
  logging::SetVlogLevel(times > 1 ? kRemoteTimingLevel : times == 1 ? kRemoteLinesLevel : 0);
}

void silenceReader() { logging::SetMinLogLevel(logging::kError + 1); }

void prepareOutput() {
  occupyStandardDescriptors();
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

int finishOutput(int status) {
  const bool flushed = std::fflush(stdout) == 0;
  if (flushed && std::ferror(stdout) == 0) return status;
  if (readerHasGone()) return kFailed;
  return fail("not everything could be written to standard output; is it closed, or its disk full?");
}

}  // namespace quarlo::tools
