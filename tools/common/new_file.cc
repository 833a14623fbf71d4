#include "tools/common/new_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace quarlo::tools {
namespace {

// The directory of a file, whether the file exists or not.
std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

[[noreturn]] void failToWrite(const std::string& path, const char* what, const char* why) {
  throw NewFileError(path + ": " + what + " cannot be written: " + why);
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

}  // namespace

void checkNewFile(const std::string& path, const char* what) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) failToWrite(path, what, "not a regular file");
  if (access(directoryOf(path).c_str(), W_OK | X_OK) == -1) failToWrite(path, what, std::strerror(errno));
}

NewFile::NewFile(std::string path, const char* what)
    : path_(std::move(path)),
      what_(what),
      unfinished_(path_ + "." + std::to_string(getpid())),
      file_(std::fopen(unfinished_.c_str(), "wxe"), std::fclose) {
  if (file_ == nullptr) fail();
  if (takeModeOf(path_, file_.get())) return;
  const int error = errno;
  unlink(unfinished_.c_str());
  failToWrite(path_, what_, std::strerror(error));
}

NewFile::~NewFile() { unlink(unfinished_.c_str()); }

void NewFile::write(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) fail();
}

void NewFile::finish() {
  if (std::fflush(file_.get()) != 0 || std::rename(unfinished_.c_str(), path_.c_str()) != 0) fail();
}

void NewFile::fail() const { failToWrite(path_, what_, std::strerror(errno)); }

}  // namespace quarlo::tools
