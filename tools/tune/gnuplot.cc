#include "tools/tune/gnuplot.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

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

// The directory of a file, whether the file exists or not.
std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

[[noreturn]] void failToWrite(const std::string& path, int error) {
  throw PictureError(path + ": the picture cannot be written: " + std::strerror(error));
}

// Makes a new file as private as the one in whose place it comes. Returns false, with errno, if it cannot.
bool takeModeOf(const std::string& path, std::FILE* file) {
  constexpr mode_t kPermissions = 0777;
  constexpr mode_t kOfTheGroup = 0070;
  constexpr auto kSameOwner = static_cast<uid_t>(-1);
  struct stat status;
  if (stat(path.c_str(), &status) == -1) return true;
  mode_t mode = status.st_mode & kPermissions;
  if (fchown(fileno(file), kSameOwner, status.st_gid) == -1) mode &= ~kOfTheGroup;
  return fchmod(fileno(file), mode) == 0;
}

// A file that is read meanwhile is the old one or the new one, and never a part.
void replace(const std::string& path, const std::string& content) {
  const std::string unfinished = path + "." + std::to_string(getpid());
  const File file(std::fopen(unfinished.c_str(), "wxe"), std::fclose);
  if (file == nullptr) failToWrite(path, errno);
  const bool written = takeModeOf(path, file.get()) &&
                       std::fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
                       std::fflush(file.get()) == 0;
  if (written && std::rename(unfinished.c_str(), path.c_str()) == 0) return;
  const int error = errno;
  unlink(unfinished.c_str());
  failToWrite(path, error);
}

}  // namespace

void checkPicturePath(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw PictureError(path + ": the picture cannot be written: not a regular file");
  }
  if (access(directoryOf(path).c_str(), W_OK | X_OK) == -1) failToWrite(path, errno);
}

void drawPicture(const std::string& path, const std::string& script) { replace(path, runGnuplot(path, script)); }

}  // namespace quarlo::tools::tune
