#include "recording/session.h"

#include <linux/input-event-codes.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>

#include "recording/evemu.h"
#include "recording/foreign.h"
#include "recording/lines.h"
#include "recording/remote.h"

namespace quarlo::recording {
namespace {

constexpr std::string_view kRemoteSuffix = ".lirc";

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

[[noreturn]] void failToOpen(const std::string& path) { throw Error(path + ": " + std::strerror(errno)); }

const char* kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR: return "directory";
    case S_IFIFO: return "pipe";
    case S_IFSOCK: return "socket";
    default: return "device";
  }
}

void check(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode)) throw Error(path + ": this is a " + kindOf(status.st_mode) + ", expected a file");
  if (status.st_size > kLargestFile) {
    throw Error(path + ": the file has more than " + std::to_string(kLargestFile) + " bytes");
  }
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool isRemote(const std::string& path) { return endsWith(path, kRemoteSuffix); }

const char* formatOf(const std::string& path) {
  return isRemote(path) ? "lines of <seconds>.<microseconds> <what lircd sent>"
                        : "evemu's text format, as evemu-record writes it";
}

// Null, with errno, if it cannot be opened. Looks first: opening a pipe can take forever, and opening a device can set
// it to work.
File openFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0) check(path, status);
  File file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file != nullptr) refuseForeign(file.get(), path, formatOf(path));
  return file;
}

File openExistingFile(const std::string& path) {
  File file = openFile(path);
  if (file == nullptr) failToOpen(path);
  return file;
}

bool isLink(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// Null if there is no such file.
File openIfThere(const std::string& path) {
  File file = openFile(path);
  if (file != nullptr) return file;
  if (errno != ENOENT) failToOpen(path);
  if (isLink(path)) throw Error(path + ": a link to a file that does not exist");
  return file;
}

// What `read` makes of the file, or nothing if there is no such file.
template <typename Recording>
std::optional<Recording> readIfThere(const std::string& path,
                                     Recording (*read)(std::FILE*, const std::string&, microseconds),
                                     microseconds start) {
  const File file = openIfThere(path);
  if (file == nullptr) return std::nullopt;
  return read(file.get(), path, start);
}

// What the beginning of a file tells, which is then read again from there.
Beginning readBeginning(const File& file, const std::string& path) {
  const Beginning beginning = recording::readBeginning(file.get(), isRemote(path) ? kRemoteLabel : kRecordLabel);
  std::rewind(file.get());
  return beginning;
}

// "node-1.evemu to node-8.evemu".
std::string furtherNodeFiles() { return furtherNodeFile(0) + " to " + furtherNodeFile(kMostFurtherNodes - 1); }

// One more would not be played.
void checkFurtherNodes(const std::string& path) {
  const std::string oneMore = pathIn(path, furtherNodeFile(kMostFurtherNodes));
  struct stat status;
  if (lstat(oneMore.c_str(), &status) == -1) return;
  throw Error(oneMore + ": a session has at most " + std::to_string(kMostFurtherNodes) + " further nodes, " +
              furtherNodeFiles() + "; give this one another name to leave it out");
}

bool isEmpty(const Session& session) {
  return !session.mouse && !session.keyboard && !session.remote &&
         std::none_of(session.further.begin(), session.further.end(),
                      [](const std::optional<DeviceRecording>& node) { return node.has_value(); });
}

// All that a directory can have.
std::vector<std::string> allFiles() {
  std::vector<std::string> files = {kMouseFile, kKeyboardFile};
  for (std::size_t i = 0; i < kMostFurtherNodes; ++i) files.push_back(furtherNodeFile(i));
  files.emplace_back(kRemoteFile);
  return files;
}

// When the session starts, on the clock of its files.
microseconds startOf(const std::string& directory) {
  std::optional<microseconds> earliest;
  for (const std::string& name : allFiles()) {
    const std::string path = pathIn(directory, name);
    const File file = openIfThere(path);
    if (file == nullptr) continue;
    const Beginning beginning = readBeginning(file, path);
    if (beginning.isMarked) return microseconds(0);
    const std::optional<microseconds> first = beginning.firstTime;
    if (first && (!earliest || *first < *earliest)) earliest = first;
  }
  return earliest && *earliest > kLongestUnmarkedSession ? *earliest : microseconds(0);
}

Session readDirectory(const std::string& path) {
  const microseconds start = startOf(path);
  Session session;
  session.mouse = readIfThere(pathIn(path, kMouseFile), readEvemu, start);
  session.keyboard = readIfThere(pathIn(path, kKeyboardFile), readEvemu, start);
  for (std::size_t i = 0; i < kMostFurtherNodes; ++i) {
    session.further[i] = readIfThere(pathIn(path, furtherNodeFile(i)), readEvemu, start);
  }
  session.remote = readIfThere(pathIn(path, kRemoteFile), readRemote, start);
  checkFurtherNodes(path);
  if (isEmpty(session)) {
    throw Error(path + ": the directory has none of " + kMouseFile + ", " + kKeyboardFile + ", " + kRemoteFile +
                " and " + furtherNodeFiles());
  }
  return session;
}

bool hasAll(const DeviceRecording& device, int type, std::initializer_list<int> codes) {
  const auto found = device.codes.find(type);
  if (found == device.codes.end()) return false;
  return std::all_of(codes.begin(), codes.end(), [&](int code) { return found->second.count(code) != 0; });
}

// The two tests are the same as in the reader's autodetection (LinuxInputReader::openDevice).
Session sessionOf(DeviceRecording device, const std::string& path, SingleNode wanted) {
  const bool relative = hasAll(device, EV_REL, {REL_X, REL_Y});
  const bool pointer = hasAll(device, EV_KEY, {BTN_LEFT}) || hasAll(device, EV_KEY, {BTN_TOUCH});
  const bool arrows = hasAll(device, EV_KEY, {KEY_UP, KEY_LEFT, KEY_RIGHT, KEY_DOWN});
  Session session;
  if (relative && pointer) {
    session.mouse = std::move(device);
  } else if (!relative && arrows) {
    session.keyboard = std::move(device);
  } else if (wanted == SingleNode::kAny) {
    session.further[0] = std::move(device);
  } else {
    throw Error(path +
                ": neither a mouse (REL_X, REL_Y, and BTN_LEFT or BTN_TOUCH) nor a keyboard (the four arrow keys, "
                "without REL_X and REL_Y); as " +
                kMouseFile + " or " + kKeyboardFile + " in a directory it is taken anyway");
  }
  return session;
}

Session readFile(const std::string& path, SingleNode wanted) {
  const File file = openExistingFile(path);
  const microseconds start = readBeginning(file, path).firstTime.value_or(microseconds(0));
  if (!isRemote(path)) return sessionOf(readEvemu(file.get(), path, start), path, wanted);
  Session session;
  session.remote = readRemote(file.get(), path, start);
  return session;
}

bool isDirectory(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == -1) failToOpen(path);
  return S_ISDIR(status.st_mode);
}

}  // namespace

microseconds lengthOf(const Session& session) {
  microseconds length(0);
  const auto add = [&](const std::optional<DeviceRecording>& device) {
    if (device) length = std::max(length, device->records.back().time);
  };
  add(session.mouse);
  add(session.keyboard);
  for (const std::optional<DeviceRecording>& node : session.further) add(node);
  if (session.remote) length = std::max(length, session.remote->back().time);
  return length;
}

Session readSession(const std::string& path, SingleNode wanted) {
  return isDirectory(path) ? readDirectory(path) : readFile(path, wanted);
}

Session readPair(const std::string& one, const std::string& other) {
  for (const std::string& path : {one, other}) {
    if (!isDirectory(path)) continue;
    throw Error(path +
                ": this is a directory, and a session by itself; of two files, one describes a device, and the other "
                "has its records");
  }
  const File file = openExistingFile(one);
  const File otherFile = openExistingFile(other);
  const std::optional<microseconds> start = readBeginning(file, one).firstTime;
  const microseconds otherStart = readBeginning(otherFile, other).firstTime.value_or(microseconds(0));
  return sessionOf(readEvemuPair({file.get(), one}, {otherFile.get(), other}, start.value_or(otherStart)), one,
                   SingleNode::kMouseOrKeyboard);
}

}  // namespace quarlo::recording
