#include "recording/writer.h"

#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/escapes.h"
#include "recording/lines.h"

namespace quarlo::recording {
namespace {

constexpr char kEnd[] = ": the recording ends here, and what came before is kept";
constexpr char kNothingKept[] = ": the recording ends here, and nothing of this file is kept";

// ---- evemu's format -----------------------------------------------------------------------------

constexpr std::size_t kBytesPerLine = 8;

// The event types that have capability lines, in their order, and how many bytes each one has.
struct TypeSize {
  int type;
  std::size_t bytes;
};
constexpr TypeSize kTypeSizes[] = {{EV_SYN, 8}, {EV_KEY, 96}, {EV_REL, 8}, {EV_ABS, 8}, {EV_MSC, 8},
                                   {EV_SW, 8},  {EV_LED, 8},  {EV_SND, 8}, {EV_REP, 8}, {EV_FF, 16}};

template <typename... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
  char text[96];
  std::snprintf(text, sizeof text, pattern, arguments...);
  return text;
}

// Eight bytes a line, each line after `label`.
std::string bitLines(const std::string& label, const std::set<int>& bits, std::size_t size) {
  std::vector<unsigned> bytes(size);
  for (const int bit : bits) {
    const auto index = static_cast<std::size_t>(bit) / 8;
    if (index < size) bytes[index] |= 1U << (bit % 8);
  }
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    if (i % kBytesPerLine == 0) text += label;
    text += format(" %02x", bytes[i]);
    if (i % kBytesPerLine == kBytesPerLine - 1) text += '\n';
  }
  return text;
}

std::string capabilityLines(std::map<int, std::set<int>> codes) {
  std::set<int> types = {EV_SYN};
  for (const auto& [type, typeCodes] : codes) types.insert(type);
  codes[EV_SYN] = types;
  std::string text;
  for (const auto& [type, size] : kTypeSizes) {
    text += bitLines(format("B: %02x", static_cast<unsigned>(type)), codes[type], size);
  }
  return text;
}

// Of what has capability lines, the names.
std::string capabilityComments(const std::map<int, std::set<int>>& codes, const CodeNames& names) {
  std::string text;
  for (const auto& [type, size] : kTypeSizes) {
    const auto found = codes.find(type);
    if (type == EV_SYN || found == codes.end()) continue;
    text += "# Event type " + std::to_string(type) + " (" + names.type(type) + ")\n";
    for (const int code : found->second) {
      if (static_cast<std::size_t>(code) / 8 >= size) break;
      text += "#   Event code " + std::to_string(code) + " (" + names.code(type, code) + ")\n";
    }
  }
  return text;
}

std::string escapedText(const std::string& text) { return escaped(std::string_view(text).substr(0, kLongestText)); }

// A device can have no name, but evemu wants one.
std::string nameLine(const std::string& name) { return "N: " + (name.empty() ? "unnamed" : escapedText(name)) + "\n"; }

std::string stateLines(const char* label, const std::set<int>& on) {
  std::string text;
  for (const int code : on) text += format("%s: %02x 1\n", label, static_cast<unsigned>(code));
  return text;
}

std::string descriptionText(const DeviceDescription& device) {
  std::string text = nameLine(device.name);
  text += format("I: %04x %04x %04x %04x\n", device.bus, device.vendor, device.product, device.version);
  text += bitLines("P:", device.properties, kBytesPerLine);
  text += capabilityLines(device.codes);
  for (const auto& [code, axis] : device.axes) {
    text += format("A: %02x %d %d %d %d %d\n", static_cast<unsigned>(code), axis.minimum, axis.maximum, axis.fuzz,
                   axis.flat, axis.resolution);
  }
  return text + stateLines("L", device.ledsOn) + stateLines("S", device.switchesOn);
}

// ---- Comments, as evemu-record has them ----------------------------------------------------------

// One can see where a report ends.
std::string recordComment(const Record& record, const CodeNames& names) {
  const std::string type = record.type == EV_SYN ? "----------" : names.type(record.type) + " /";
  return "\t# " + type + " " + names.code(record.type, record.code) + " " + std::to_string(record.value);
}

// ---- Lines --------------------------------------------------------------------------------------

long newlinesIn(std::string_view text) { return std::count(text.begin(), text.end(), '\n'); }

// ---- The directory ------------------------------------------------------------------------------

// Makes the directory, and returns its descriptor. Whoever may write to the directory above can put a link in its place
// at any time.
int makeDirectory(const std::string& path, Access access) {
  const std::string withoutSlashes = path.substr(0, path.find_last_not_of('/') + 1);  // one at the end follows a link
  if (mkdir(path.c_str(), access == Access::kOwnerOnly ? 0700 : 0777) == 0) {
    const int fd = open(withoutSlashes.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd != -1) return fd;
  }
  if (errno == EEXIST) throw Error(path + " exists already: give another name, or remove it");
  throw Error(path + ": the directory cannot be made: " + std::strerror(errno));
}

bool isAt(const std::string& path, int fd) {
  struct stat there;
  struct stat open;
  return lstat(path.c_str(), &there) == 0 && fstat(fd, &open) == 0 && there.st_dev == open.st_dev &&
         there.st_ino == open.st_ino;
}

}  // namespace

// ---- A file -------------------------------------------------------------------------------------

FileWriter::FileWriter(const SessionDirectory& directory, Syncer& syncer, std::string name, std::string head)
    : directory_(directory),
      syncer_(syncer),
      name_(std::move(name)),
      head_(std::move(head)),
      headLines_(newlinesIn(head_)) {
  startPart(1);
}

// Where nothing is open, close() fails, and nobody minds.
FileWriter::~FileWriter() { ::close(fd_); }

void FileWriter::write(const Record& record) {
  const microseconds time = nextTime(record.time);
  addLine("E: " + timeText(time) + format(" %04x %04x %04d", record.type, record.code, record.value) +
          recordComment(record, directory_.codeNames));
  last_ = time;
}

void FileWriter::write(const RemoteLine& line) {
  const microseconds time = nextTime(line.time);
  addLine(timeText(time) + " " + escapedText(line.text.get()));
  last_ = time;
}

// A time can go back: the daemon's lines are stamped here, and a device's records before they are read.
microseconds FileWriter::nextTime(microseconds time) const {
  if (time > kLongestSession) {
    throw Error(path_ + ": a session has at most " + std::to_string(kLongestSession.count()) + " hours" + kEnd);
  }
  return std::max(last_, time);
}

void FileWriter::addLine(const std::string& line) {
  if (directory_.options.rotates && hasLines() && !limitFor(line).empty()) {
    const std::string problem = close();
    if (!problem.empty()) throw Error(problem);
    startPart(part_ + 1);
  }
  const std::string limit = limitFor(line);
  if (!limit.empty()) {
    throw Error(path_ + ": a file of a session has at most " + limit +
                ": it ends here, and what came before is kept (--rotate goes on in a next one)");
  }
  pending_ += line + '\n';
  ++lines_;
  ++count_;
}

// The limit that keeps a line out of the file; empty if none does.
std::string FileWriter::limitFor(const std::string& line) const {
  const WriterOptions& options = directory_.options;
  if (lines_ >= options.mostLines) return std::to_string(options.mostLines) + " lines";
  const bool fits = size_ + static_cast<std::int64_t>(pending_.size() + line.size()) < options.mostBytes;
  return fits ? "" : std::to_string(options.mostBytes) + " bytes";
}

void FileWriter::startPart(int part) {
  part_ = part;
  path_ = pathIn(directory_.path, partOf(name_, part_));
  pending_ = head_;
  size_ = 0;
  lines_ = headLines_;
}

std::string FileWriter::flush() {
  if (unwritten() == 0) return "";
  if (fd_ == -1) {
    const std::string name = partOf(name_, part_);
    fd_ = openat(directory_.fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, directory_.fileMode);
    if (fd_ == -1) {
      const int error = errno;
      return path_ + ": " + std::strerror(error) + forgetPart();
    }
    syncer_.want(directory_.fd, directory_.path);
  }
  return writeOut();
}

std::string FileWriter::writeOut() {
  std::size_t written = 0;
  while (written < pending_.size()) {
    const ssize_t size = ::write(fd_, pending_.data() + written, pending_.size() - written);
    if (size != -1) {
      written += static_cast<std::size_t>(size);
    } else if (errno != EINTR) {
      return cutBack(written, errno);
    }
  }
  size_ += static_cast<std::int64_t>(written);
  pending_.clear();
  syncer_.want(fd_, path_);
  return "";
}

// A file without a record is not part of a session, so it goes.
std::string FileWriter::cutBack(std::size_t written, int error) {
  const std::size_t kept = std::string_view(pending_).substr(0, written).rfind('\n') + 1;
  size_ += static_cast<std::int64_t>(kept);
  bool done;
  const char* consequence = kEnd;
  if (size_ > static_cast<std::int64_t>(head_.size())) {
    count_ -= newlinesIn(std::string_view(pending_).substr(kept));
    done = ftruncate(fd_, size_) == 0;
    syncer_.want(fd_, path_);
  } else {
    done = unlinkat(directory_.fd, partOf(name_, part_).c_str(), 0) == 0;
    consequence = forgetPart();
  }
  pending_.clear();
  ::close(std::exchange(fd_, -1));
  return path_ + ": " + std::strerror(error) + consequence +
         (done ? "" : ", but this file ends with a line that is cut off");
}

const char* FileWriter::forgetPart() {
  count_ -= lines_ - headLines_;
  pending_.clear();
  if (part_ == 1) return kNothingKept;
  --part_;
  return kEnd;
}

std::string FileWriter::close() {
  std::string problem = flush();
  struct stat status;
  if (problem.empty() && fstat(fd_, &status) == 0 && status.st_nlink == 0) {
    problem = path_ + ": it was removed while it was recorded, and nothing of it is kept";
  }
  if (fd_ == -1 || ::close(std::exchange(fd_, -1)) == 0) return problem;
  return path_ + ": " + std::strerror(errno) + ": the end of the recording may be missing";
}

// ---- A session ----------------------------------------------------------------------------------

SessionWriter::SessionWriter(const std::string& directory, const std::string& comment, Access access,
                             const CodeNames& codeNames, const WriterOptions& options)
    : syncer_(options.pause, options.sync),
      directory_{directory, makeDirectory(directory, access), access == Access::kOwnerOnly ? 0600U : 0666U, codeNames,
                 options},
      comments_(std::string(kSessionMark) + "\n# " + comment + "\n") {
  syncDirectory();
  syncer_.start();
}

SessionWriter::~SessionWriter() { ::close(directory_.fd); }

// The name of a directory is in the one above, which not everybody may open who may make one there.
void SessionWriter::syncDirectory() {
  syncer_.want(directory_.fd, directory_.path);
  const int above = openat(directory_.fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (above == -1) return;
  syncer_.want(above, pathIn(directory_.path, ".."));
  ::close(above);
}

FileWriter& SessionWriter::addMouse(const DeviceDescription& device) { return addNode(kMouseFile, device); }

FileWriter& SessionWriter::addKeyboard(const DeviceDescription& device) { return addNode(kKeyboardFile, device); }

FileWriter& SessionWriter::addFurtherNode(std::size_t index, const DeviceDescription& device) {
  return addNode(furtherNodeFile(index), device);
}

FileWriter& SessionWriter::addRemote() { return addFile(kRemoteFile, comments_); }

FileWriter& SessionWriter::addNode(const std::string& name, const DeviceDescription& device) {
  return addFile(name, "# EVEMU 1.3\n" + comments_ + capabilityComments(device.codes, directory_.codeNames) +
                           descriptionText(device));
}

FileWriter& SessionWriter::addFile(const std::string& name, const std::string& head) {
  return files_.emplace_back(directory_, syncer_, name, head);
}

void SessionWriter::flush() {
  if (!syncer_.holdOff() && unwritten() <= directory_.options.mostHeldUp) {
    isHeldUp_ = unwritten() != 0;
    return;
  }
  isHeldUp_ = false;
  const std::string problem = firstProblem(&FileWriter::flush);
  syncer_.start();
  if (!problem.empty()) throw Error(problem);
}

void SessionWriter::close() {
  std::string problem = firstProblem(&FileWriter::close);
  syncer_.finish();
  if (problem.empty()) problem = syncer_.takeProblem();
  // This fails, as it should, while there is a file in it.
  if (isAt(directory_.path, directory_.fd)) rmdir(directory_.path.c_str());
  if (!problem.empty()) throw Error(problem);
}

std::size_t SessionWriter::unwritten() const {
  std::size_t bytes = 0;
  for (const FileWriter& file : files_) bytes += file.unwritten();
  return bytes;
}

std::string SessionWriter::firstProblem(std::string (FileWriter::*action)()) {
  std::string first;
  for (FileWriter& file : files_) {
    const std::string problem = (file.*action)();
    if (first.empty()) first = problem;
  }
  return first.empty() ? syncer_.takeProblem() : first;
}

}  // namespace quarlo::recording
