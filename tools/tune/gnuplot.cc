#include "tools/tune/gnuplot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/common/new_file.h"

namespace quarlo::tools::tune {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// A file without a name: a pipe could be full before its other end is read.
File makeTemporaryFile() {
  File file(std::tmpfile(), std::fclose);
  if (file == nullptr) throw PictureError(std::string("no temporary file: ") + std::strerror(errno));
  return file;
}

File holding(const std::string& text) {
  File file = makeTemporaryFile();
  if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() || std::fflush(file.get()) != 0) {
    throw PictureError(std::string("a temporary file could not be written: ") + std::strerror(errno));
  }
  std::rewind(file.get());
  return file;
}

std::string contentOf(std::FILE* file) {
  std::string content;
  char buffer[4096];
  std::rewind(file);
  while (const std::size_t length = std::fread(buffer, 1, sizeof buffer, file)) content.append(buffer, length);
  return content;
}

// The first line that has something in it.
std::string firstLineOf(const std::string& text) {
  const std::size_t start = std::min(text.find_first_not_of(" \n"), text.size());
  return text.substr(start, text.find('\n', start) - start);
}

// Returns 0 or an errno. Starts no shell, and has gnuplot read no file of the user's settings.
int spawnGnuplot(int in, int out, int err, pid_t& pid) {
  char program[] = "gnuplot";
  char defaults[] = "--default-settings";
  char* arguments[] = {program, defaults, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  const int error = posix_spawnp(&pid, program, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// Returns what gnuplot drew.
std::string runGnuplot(const std::string& path, const std::string& script) {
  const File in = holding(script);
  const File out = makeTemporaryFile();
  const File err = makeTemporaryFile();
  pid_t pid;
  const int error = spawnGnuplot(fileno(in.get()), fileno(out.get()), fileno(err.get()), pid);
  if (error == ENOENT) {
    throw PictureError(path + ": gnuplot, which draws the picture, is not installed: install the package gnuplot-nox");
  }
  if (error != 0) throw PictureError(path + ": gnuplot could not be started: " + std::strerror(error));
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw PictureError(path + ": gnuplot did not draw the picture: " + firstLineOf(contentOf(err.get())));
  }
  return contentOf(out.get());
}

}  // namespace

void drawPicture(const std::string& path, const std::string& script) {
  const std::string picture = runGnuplot(path, script);
  NewFile file(path, kPicture);
  file.write(picture);
  file.finish();
}

}  // namespace quarlo::tools::tune
