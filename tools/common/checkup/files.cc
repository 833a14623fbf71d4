#include "tools/common/checkup/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace quarlo::tools::checkup {
namespace {

constexpr std::size_t kMostBytes = 1 << 20;

bool isRegular(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isRegular(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::string contentOf(const std::string& path) {
  // Any process can name a path here, and a device can do something when it is opened. What is there can also change
  // until it is.
  if (!isRegular(path)) return "";
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd == -1) return "";
  std::string content;
  char bytes[4096];
  ssize_t size = isRegular(fd) ? read(fd, bytes, sizeof bytes) : 0;
  while (size > 0 && content.size() < kMostBytes) {
    content.append(bytes, static_cast<std::size_t>(size));
    size = read(fd, bytes, sizeof bytes);
  }
  close(fd);
  return content;
}

bool exists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string targetOf(const std::string& link) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : "";
}

std::string withoutLinks(const std::string& path) {
  std::error_code error;
  const std::string real = std::filesystem::weakly_canonical(path, error).string();
  return error ? path : real;
}

std::vector<std::string> linesIn(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> wordsIn(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::string enumerated(const std::vector<std::string>& names, std::size_t most) {
  const std::size_t shown = std::min(names.size(), most);
  const std::size_t left = names.size() - shown;
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    const bool isLast = i + 1 == shown && left == 0;
    text += (i == 0 ? "" : isLast ? " and " : ", ") + names[i];
  }
  return left == 0 ? text : text + " and " + std::to_string(left) + " more";
}

}  // namespace quarlo::tools::checkup
