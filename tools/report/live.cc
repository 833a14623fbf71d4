#include "tools/report/live.h"

#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "recording/session.h"
#include "tools/common/stop_request.h"

namespace quarlo::tools::report {
namespace {

using recording::Error;

constexpr char kThisProgram[] = "/proc/self/exe";

std::vector<std::string> argumentsFor(const LiveOptions& options, const std::string& session) {
  std::vector<std::string> arguments = {"quarlo-input", "record",     "--output",
                                        session,        "--duration", recording::timeText(options.duration)};
  const auto add = [&](const char* option, const SourcePath& path) {
    if (path) arguments.insert(arguments.end(), {option, *path});
  };
  add("--mouse", options.mouse);
  add("--keyboard", options.keyboard);
  add("--lirc", options.lirc);
  for (const std::string& path : options.further) arguments.insert(arguments.end(), {"--also", path});
  if (options.shown.showKeycodes) arguments.emplace_back("--show-keycodes");
  if (options.shown.showModifiers) arguments.emplace_back("--show-modifiers");
  return arguments;
}

// A program that runs. It keeps the end of a pipe open until it ends.
struct Child {
  pid_t pid;
  int end;
};

Child start(std::vector<std::string> arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) == -1) throw Error(std::string("nothing can be recorded: ") + std::strerror(errno));
  fcntl(ends[1], F_SETFD, 0);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t pid;
  const int error = posix_spawn(&pid, kThisProgram, nullptr, nullptr, pointers.data(), environ);
  close(ends[1]);
  if (error == 0) return {pid, ends[0]};
  close(ends[0]);
  throw Error(std::string(kThisProgram) + " cannot be run to record: " + std::strerror(error));
}

// A stop is passed on, once; a terminal's Ctrl-C has reached the child by itself, which takes that for one, too.
int waitFor(const Child& child) {
  pollfd looks[] = {{child.end, POLLIN, 0}, {stopDescriptor(), POLLIN, 0}};
  while ((looks[0].revents & POLLHUP) == 0) {
    if (poll(looks, 2, -1) < 1) continue;
    if (looks[1].revents == 0) continue;
    kill(child.pid, SIGTERM);
    looks[1] = {-1, 0, 0};
  }
  close(child.end);
  int status;
  while (waitpid(child.pid, &status, 0) == -1 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

LiveSession::LiveSession() {
  const char* const place = std::getenv("TMPDIR");
  const std::string parent = place == nullptr ? "/tmp" : place;
  directory_ = recording::pathIn(parent, "quarlo-input-report-XXXXXX");
  if (mkdtemp(directory_.data()) == nullptr) {
    throw Error(parent + ": what comes cannot be kept there: " + std::strerror(errno) +
                "; set TMPDIR to another place");
  }
}

// Not by std::filesystem: in 32-bit programs, that of Debian's C++ library fails at what was written to after January
// 2038.
LiveSession::~LiveSession() {
  constexpr int kMostDescriptors = 16;
  const auto remove = [](const char* path, const struct stat* /*status*/, int /*type*/, FTW* /*place*/) {
    return std::remove(path);
  };
  nftw(directory_.c_str(), remove, kMostDescriptors, FTW_DEPTH | FTW_PHYS);
}

int LiveSession::record(const LiveOptions& options) const { return waitFor(start(argumentsFor(options, path()))); }

}  // namespace quarlo::tools::report
