#include "recording/session.h"

#include <dirent.h>
#include <linux/input-event-codes.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

constexpr std::string_view kEvemuSuffix = ".evemu";
constexpr std::string_view kRemoteSuffix = ".lirc";
constexpr char kLeftOut[] = "it is left out";

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

bool isLink(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// Looks first: opening a pipe can take forever, and opening a device can set it to work.
File openFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0) check(path, status);
  File file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr && errno == ENOENT && isLink(path)) {
    throw Error(path + ": a link to a file that does not exist");
  }
  if (file == nullptr) failToOpen(path);
  refuseForeign(file.get(), path, formatOf(path));
  return file;
}

// What the beginning of a file tells, which is then read again from there.
Beginning readBeginning(const File& file, const std::string& path) {
  const Beginning beginning = recording::readBeginning(file.get(), isRemote(path) ? kRemoteLabel : kRecordLabel);
  std::rewind(file.get());
  return beginning;
}

// ---- A directory --------------------------------------------------------------------------------

// "mouse.evemu, ... and node-1.evemu to node-8.evemu".
std::string namesOfFiles() {
  return std::string(kMouseFile) + ", " + kKeyboardFile + ", " + kRemoteFile + " and " + furtherNodeFile(0) + " to " +
         furtherNodeFile(kMostFurtherNodes - 1);
}

// All that a directory can have.
std::vector<std::string> allFiles() {
  std::vector<std::string> files = {kMouseFile, kKeyboardFile};
  for (std::size_t i = 0; i < kMostFurtherNodes; ++i) files.push_back(furtherNodeFile(i));
  files.emplace_back(kRemoteFile);
  return files;
}

// Which part of `file` is called `name`, as partOf() calls it. None if none is.
std::optional<int> numberOfPart(const std::string& file, const std::string& name) {
  if (name == file) return 1;
  const std::size_t point = file.rfind('.');
  const auto number = static_cast<int>(std::strtol(name.c_str() + std::min(point + 1, name.size()), nullptr, 10));
  return number > 1 && name == partOf(file, number) ? std::optional(number) : std::nullopt;
}

// Whether a person may take a file of this name for a part.
bool isLikeAPart(std::string_view name) {
  if (endsWith(name, kRemoteSuffix)) return startsWith(name, "remote.");
  return endsWith(name, kEvemuSuffix) &&
         (startsWith(name, "mouse.") || startsWith(name, "keyboard.") || startsWith(name, "node-"));
}

// What a directory has of a session.
class Folder {
 public:
  explicit Folder(const std::string& path) : path_(path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) failToOpen(path);
    while (const dirent* entry = readdir(directory.get())) add(entry->d_name);
  }

  // The numbers of the parts that there are of `file`.
  const std::set<int>& partsOf(const std::string& file) const { return parts_.at(file); }

  std::string pathOf(const std::string& file, int part) const { return pathIn(path_, partOf(file, part)); }

  // What would not be played, though its name looks as if it were: a node too many, a number with too few digits.
  std::vector<Damage> strangers() const {
    std::vector<Damage> damages;
    for (const std::string& name : strangers_) {
      damages.push_back({pathIn(path_, name) + ": no file of a session is called this, expected one of " +
                             namesOfFiles() + ", or a part of one such as " + partOf(kMouseFile, 2),
                         kLeftOut});
    }
    return damages;
  }

  // When the session starts, on the clock of its files.
  microseconds start() const {
    std::optional<microseconds> earliest;
    for (const auto& [file, parts] : parts_) {
      for (const int part : parts) {
        const Beginning beginning = beginningOf(pathOf(file, part));
        if (beginning.isMarked) return microseconds(0);
        const std::optional<microseconds> first = beginning.firstTime;
        if (first && (!earliest || *first < *earliest)) earliest = first;
      }
    }
    return earliest && *earliest > kLongestUnmarkedSession ? *earliest : microseconds(0);
  }

 private:
  void add(const std::string& name) {
    for (auto& [file, parts] : parts_) {
      const std::optional<int> number = numberOfPart(file, name);
      if (!number) continue;
      parts.insert(*number);
      return;
    }
    if (isLikeAPart(name)) strangers_.insert(name);
  }

  // What is wrong with a file, whoever reads it will say.
  static Beginning beginningOf(const std::string& path) {
    try {
      return readBeginning(openFile(path), path);
    } catch (const Error&) {
      return {std::nullopt, false};
    }
  }

  static std::map<std::string, std::set<int>> noParts() {
    std::map<std::string, std::set<int>> parts;
    for (const std::string& file : allFiles()) parts[file];
    return parts;
  }

  std::string path_;
  std::map<std::string, std::set<int>> parts_ = noParts();
  std::set<std::string> strangers_;
};

// The parts from `first` to `last` are not there, but one behind them is.
Damage missing(const Folder& folder, const std::string& file, int first, int last) {
  const std::string others = last == first ? "" : " to " + partOf(file, last);
  return {folder.pathOf(file, first) + others + ": missing", "the parts after it are played"};
}

// What a source has in its files. Adds to `damages` what is wrong with them.
template <typename Reader>
auto readSource(const Folder& folder, const std::string& file, microseconds start, std::vector<Damage>& damages)
    -> std::optional<decltype(std::declval<Reader>().take())> {
  const std::size_t damagesBefore = damages.size();
  Reader reader(start);
  int last = 0;
  for (const int part : folder.partsOf(file)) {
    if (part != last + 1) damages.push_back(missing(folder, file, last + 1, part - 1));
    last = part;
    const std::string path = folder.pathOf(file, part);
    try {
      const File opened = openFile(path);
      const std::optional<Damage> damage = reader.add({opened.get(), path});
      if (damage) damages.push_back(*damage);
    } catch (const Error& error) {
      damages.push_back({error.what(), kLeftOut});
    }
  }
  if (reader.isEmpty()) return std::nullopt;
  try {
    return reader.take();
  } catch (const Error& error) {
    damages.resize(damagesBefore);  // they say what is played
    damages.push_back({error.what(), kLeftOut});
    return std::nullopt;
  }
}

bool isEmpty(const Session& session) {
  return !session.mouse && !session.keyboard && !session.remote &&
         std::none_of(session.further.begin(), session.further.end(),
                      [](const std::optional<DeviceRecording>& node) { return node.has_value(); });
}

Session readDirectory(const std::string& path) {
  const Folder folder(path);
  const microseconds start = folder.start();
  Session session;
  session.mouse = readSource<EvemuReader>(folder, kMouseFile, start, session.damages);
  session.keyboard = readSource<EvemuReader>(folder, kKeyboardFile, start, session.damages);
  for (std::size_t i = 0; i < kMostFurtherNodes; ++i) {
    session.further[i] = readSource<EvemuReader>(folder, furtherNodeFile(i), start, session.damages);
  }
  session.remote = readSource<RemoteReader>(folder, kRemoteFile, start, session.damages);
  for (Damage& damage : folder.strangers()) session.damages.push_back(std::move(damage));
  if (!isEmpty(session)) return session;
  if (!session.damages.empty()) throw Error(session.damages.front().problem);
  throw Error(path + ": the directory has none of " + namesOfFiles());
}

// ---- Files by themselves ------------------------------------------------------------------------

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

// The source of a file, and what is wrong with it.
template <typename Reader>
auto readAlone(const File& file, const std::string& path, std::vector<Damage>& damages) {
  Reader reader(readBeginning(file, path).firstTime.value_or(microseconds::zero()));
  const std::optional<Damage> damage = reader.add({file.get(), path});
  if (damage) damages.push_back(*damage);
  return reader.take();
}

Session readFile(const std::string& path, SingleNode wanted) {
  const File file = openFile(path);
  std::vector<Damage> damages;
  Session session;
  if (isRemote(path)) {
    session.remote = readAlone<RemoteReader>(file, path, damages);
  } else {
    session = sessionOf(readAlone<EvemuReader>(file, path, damages), path, wanted);
  }
  session.damages = std::move(damages);
  return session;
}

// Not if there is nothing: who opens it as a file says so.
bool isDirectory(const std::string& path) {
  struct stat status = {};
  stat(path.c_str(), &status);
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
  const File file = openFile(one);
  const File otherFile = openFile(other);
  const std::optional<microseconds> start = readBeginning(file, one).firstTime;
  const microseconds otherStart = readBeginning(otherFile, other).firstTime.value_or(microseconds::zero());
  EvemuPair pair = readEvemuPair({file.get(), one}, {otherFile.get(), other}, start.value_or(otherStart));
  Session session = sessionOf(std::move(pair.recording), one, SingleNode::kMouseOrKeyboard);
  if (pair.damage) session.damages.push_back(*std::move(pair.damage));
  return session;
}

}  // namespace quarlo::recording
