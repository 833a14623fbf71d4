// The writer of sessions: any devices and lines, on disks that become full, into directories that are in the way, go,
// or have files of the same names already. What is there afterwards is a session of what was taken, up to its last
// whole line.
#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "recording/line_splitter.h"
#include "recording/lines.h"
#include "recording/session.h"
#include "recording/writer.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"
#include "tests/fuzz/scratch.h"
#include "tools/common/code_names.h"

namespace quarlo::fuzz {
namespace {

using recording::DeviceDescription;
using recording::DeviceRecording;
using recording::FileWriter;
using recording::Record;
using recording::RemoteLine;
using recording::Session;
using recording::SessionWriter;
using std::chrono::microseconds;
namespace fs = std::filesystem;

// ---- Accidents ----------------------------------------------------------------------------------

// No file can be written beyond so many bytes, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(std::optional<rlim_t> bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    if (bytes) set({*bytes, before_.rlim_max});
  }
  ~FullDisk() { set(before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  static void set(const rlimit& limit) { require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "a limit can be set"); }

  rlimit before_ = {};
};

// In the place of fsync().
int succeed(int /*fd*/) { return 0; }

int fail(int /*fd*/) {
  errno = EIO;
  return -1;
}

recording::WriterOptions takeOptions(InputBytes& input) {
  constexpr recording::Syncer::Sync kSyncs[] = {succeed, succeed, succeed, fail};
  recording::WriterOptions options;
  options.rotates = input.takeBool();
  options.pause = std::chrono::milliseconds(input.takeBool() ? 0 : 1);
  options.sync = input.pick(kSyncs);
  if (input.takeBool()) options.mostLines = 50 + input.takeBelow(100);
  if (input.takeBool()) options.mostBytes = 500 + input.take<std::uint16_t>();
  if (input.takeBool()) options.mostHeldUp = input.take<std::uint16_t>();
  return options;
}

// ---- What is written ----------------------------------------------------------------------------

DeviceDescription takeDescription(InputBytes& input) {
  DeviceDescription device;
  device.name = input.takeText();
  device.bus = input.take<std::uint16_t>();
  device.product = input.take<std::uint16_t>();
  device.version = input.take<std::uint16_t>();
  for (int count = input.takeBelow(8); count > 0; --count) {
    const int type = 1 + input.takeBelow(EV_MAX);
    device.codes[type].insert(input.take<std::uint16_t>() % KEY_CNT);
  }
  for (int count = input.takeBelow(4); count > 0; --count) {
    DeviceDescription::Axis& axis = device.axes[input.takeBelow(ABS_CNT)];
    axis.minimum = input.take<std::int32_t>();
    axis.maximum = input.take<std::int32_t>();
    axis.fuzz = input.take<std::int32_t>();
    axis.flat = input.take<std::int32_t>();
    axis.resolution = input.take<std::int32_t>();
  }
  if (input.takeBool()) device.properties.insert(input.takeBelow(INPUT_PROP_CNT));
  if (input.takeBool()) device.ledsOn.insert(input.takeBelow(LED_CNT));
  if (input.takeBool()) device.switchesOn.insert(input.takeBelow(SW_CNT));
  return device;
}

// Some are before the start, some beyond the end of the longest session.
microseconds takeTime(InputBytes& input) {
  if (input.takeBool()) return std::chrono::milliseconds(input.take<std::uint16_t>());
  return microseconds(input.take<std::int32_t>()) * 20 * input.takeBelow(256);
}

// A file of the session, and what it has taken.
struct File {
  FileWriter* writer = nullptr;  // null: it was not added
  bool isWhole = true;           // nothing has failed
  bool isAtItsEnd = false;       // it can take no more, and so nothing more is written to it
  std::size_t count = 0;         // how many of them there are at the end, as the writer says
  DeviceDescription device;
  std::vector<Record> records;
  std::vector<RemoteLine> lines;
};

// The mouse, the keyboard, the remote, and further nodes.
constexpr std::size_t kMouse = 0;
constexpr std::size_t kKeyboard = 1;
constexpr std::size_t kRemote = 2;
constexpr std::size_t kFiles = 3 + recording::kMostFurtherNodes;

class Writing {
 public:
  Writing(const Scratch& scratch, InputBytes& input)
      : scratch_(scratch), path_(scratch.path("session")), input_(input) {}

  void run() {
    prepare();
    try {
      writer_.emplace(path_, "comment", recording::Access::kOwnerOnly,
                      recording::CodeNames{tools::typeName, tools::codeName}, options_);
    } catch (const recording::Error&) {
      require(isInTheWay_, "a directory can be made");
      return;
    }
    require(!isInTheWay_, "what is there is not overwritten");
    while (!input_.isEmpty()) step();
    close();
    writer_.reset();
    check();
  }

 private:
  void prepare() {
    switch (input_.takeBelow(8)) {
      case 0: fs::create_directory(path_); break;
      case 1: path_ += "/below"; break;
      case 2: scratch_.write("session", "a file"); break;
      default: return;
    }
    isInTheWay_ = true;
  }

  // ---- Steps ------------------------------------------------------------------------------------

  void step() {
    File& file = files_[static_cast<std::size_t>(input_.takeBelow(kFiles))];
    if (file.writer == nullptr) return add(static_cast<std::size_t>(&file - files_.data()));
    switch (input_.takeBelow(8)) {
      case 0: flush(file); break;
      case 1: flushAll(); break;
      case 2: limit_ = input_.take<std::uint16_t>(); break;
      case 3: limit_.reset(); break;
      case 4: obstruct(file); break;
      default:
        if (file.isWhole && !file.isAtItsEnd) write(file);
    }
  }

  void add(std::size_t index) {
    File& file = files_[index];
    if (index != kRemote) file.device = takeDescription(input_);
    switch (index) {
      case kMouse: file.writer = &writer_->addMouse(file.device); break;
      case kKeyboard: file.writer = &writer_->addKeyboard(file.device); break;
      case kRemote: file.writer = &writer_->addRemote(); break;
      default: file.writer = &writer_->addFurtherNode(index - kRemote - 1, file.device);
    }
  }

  void write(File& file) {
    const microseconds time = takeTime(input_);
    const FullDisk disk(limit_);  // for the end of a part
    try {
      if (&file == &files_[kRemote]) {
        writeLines(file, time);
      } else {
        writeRecord(file, time);
      }
    } catch (const recording::Error&) {
      const bool isLimited = options_.mostLines < recording::kMostLines || options_.mostBytes < recording::kLargestFile;
      require(time > recording::kLongestSession || isLimited, "what fits into a session is taken");
      if (options_.rotates) file.isWhole = false;  // the part before it could not be written
      file.isAtItsEnd = true;
    }
  }

  void writeRecord(File& file, microseconds time) {
    Record record = {time, input_.take<std::uint16_t>(), input_.take<std::uint16_t>(), input_.take<std::int32_t>()};
    file.writer->write(record);
    record.time = std::max(record.time, file.records.empty() ? microseconds(0) : file.records.back().time);
    file.records.push_back(record);
  }

  // As the daemon sends them.
  void writeLines(File& file, microseconds time) {
    recording::LineSplitter splitter;
    for (const std::string& text : splitter.split(input_.takeText() + "\n")) {
      file.writer->write(RemoteLine{time, text});
      const microseconds last = file.lines.empty() ? microseconds(0) : file.lines.back().time;
      file.lines.push_back({std::max(time, last), text});
    }
  }

  void flush(File& file) {
    const FullDisk disk(limit_);
    if (!file.writer->flush().empty()) file.isWhole = false;
  }

  void flushAll() {
    const FullDisk disk(limit_);
    try {
      writer_->flush();
    } catch (const recording::Error&) {
      for (File& file : files_) file.isWhole = false;  // one of them
    }
  }

  void close() {
    const FullDisk disk(limit_);
    try {
      writer_->close();
    } catch (const recording::Error&) {
      for (File& file : files_) file.isWhole = false;
    }
    for (File& file : files_) {
      if (file.writer != nullptr) file.count = static_cast<std::size_t>(file.writer->count());
    }
  }

  // A file of this name comes from elsewhere, unless the writer's own is there.
  void obstruct(const File& file) {
    const int part = 1 + input_.takeBelow(3);
    const std::string path = recording::pathIn(path_, recording::partOf(file.writer->name(), part));
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd == -1) return;
    ::close(fd);
    isForeign_ = true;
  }

  // ---- Afterwards -------------------------------------------------------------------------------

  void check() {
    const bool any = std::any_of(files_.begin(), files_.end(), [](const File& file) { return file.count != 0; });
    if (isForeign_) return;  // an empty file is part of no session
    require(fs::exists(path_) == any, "a directory stays if there is a file in it");
    if (!any) return;
    for (const auto& entry : fs::directory_iterator(path_)) checkText(entry.path().string());
    const Session session = recording::readSession(path_);
    require(session.damages.empty(), "what is there is whole");
    checkNode(files_[kMouse], session.mouse);
    checkNode(files_[kKeyboard], session.keyboard);
    for (std::size_t i = 0; i < recording::kMostFurtherNodes; ++i) {
      checkNode(files_[kRemote + 1 + i], session.further[i]);
    }
    checkRemote(files_[kRemote], session.remote);
  }

  // Whoever looks at a file sees text, whatever devices and daemons say.
  static void checkText(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    require(!text.empty() && text.back() == '\n', "a file ends with a whole line");
    require(
        std::all_of(text.begin(), text.end(),
                    [](unsigned char byte) { return (byte >= ' ' && byte != 0x7f) || byte == '\n' || byte == '\t'; }),
        "a file has no control character");
    for (const char* other :
         {"\u0080", "\u0085", "\u009b", "\u200e", "\u202a", "\u202e", "\u2066", "\u2069", "\u2028"}) {
      require(text.find(other) == std::string::npos, "a file has nothing that changes how a terminal shows it");
    }
  }

  static void checkNode(const File& file, const std::optional<DeviceRecording>& read) {
    require(read.has_value() == (file.count != 0), "a file is there if it has a record");
    require(!file.isWhole || file.count == file.records.size(), "where nothing failed, all is there");
    if (!read) return;
    require(read->records.size() == file.count && file.count <= file.records.size(), "the records are those counted");
    for (std::size_t i = 0; i < file.count; ++i) {
      const Record& a = file.records[i];
      const Record& b = read->records[i];
      require(a.time == b.time && a.type == b.type && a.code == b.code && a.value == b.value,
              "a record is read as it was written");
    }
    checkDescription(file.device, *read);
  }

  static void checkDescription(const DeviceDescription& device, const DeviceRecording& read) {
    require(read.name == (device.name.empty() ? "unnamed" : device.name), "a name is read as it was written");
    require(read.id.bustype == device.bus && read.id.vendor == device.vendor && read.id.product == device.product &&
                read.id.version == device.version,
            "the numbers of a device are read as they were written");
    require(read.properties == device.properties, "properties are read as they were written");
    require(read.axes.size() == device.axes.size(), "axes are read as they were written");
    for (const auto& [code, axis] : device.axes) {
      const input_absinfo& found = read.axes.at(code);
      require(found.minimum == axis.minimum && found.maximum == axis.maximum && found.fuzz == axis.fuzz &&
                  found.flat == axis.flat && found.resolution == axis.resolution,
              "an axis is read as it was written");
    }
  }

  static void checkRemote(const File& file, const std::optional<std::vector<RemoteLine>>& read) {
    require(read.has_value() == (file.count != 0), "a remote is there if it has a line");
    require(!file.isWhole || file.count == file.lines.size(), "where nothing failed, all is there");
    if (!read) return;
    require(read->size() == file.count && file.count <= file.lines.size(), "the lines are those counted");
    for (std::size_t i = 0; i < file.count; ++i) {
      require((*read)[i].time == file.lines[i].time, "a line's time is read as it was written");
      require((*read)[i].text == file.lines[i].text, "a line is read as it was written");
    }
  }

  const Scratch& scratch_;
  std::string path_;
  InputBytes& input_;
  const recording::WriterOptions options_ = takeOptions(input_);
  bool isInTheWay_ = false;  // the directory cannot be made
  bool isForeign_ = false;   // a file in it is not the writer's
  std::optional<rlim_t> limit_;
  std::optional<SessionWriter> writer_;
  std::array<File, kFiles> files_;
};

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  static const Scratch scratch;
  InputBytes input(data, size);
  Writing(scratch, input).run();
  std::filesystem::remove_all(scratch.path("session"));
  return 0;
}
