// Writes a session while it is being recorded. After a flush() that no disk held up, the files are a session of what
// came so far, whatever becomes of the program. Half a second and what the disk takes later, they are that after a
// power cut, too.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>

#include "recording/lines.h"
#include "recording/session.h"
#include "recording/syncer.h"

namespace quarlo::recording {

// What an evdev node says about itself, as far as evemu's format has it. The numbers are those of
// linux/input-event-codes.h.
struct DeviceDescription {
  // The kernel's struct input_absinfo, but for the value.
  struct Axis {
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
    std::int32_t fuzz = 0;
    std::int32_t flat = 0;
    std::int32_t resolution = 0;
  };

  std::string name;  // written up to kLongestText bytes
  std::uint16_t bus = 0;
  std::uint16_t vendor = 0;
  std::uint16_t product = 0;
  std::uint16_t version = 0;
  std::set<int> properties;
  std::map<int, std::set<int>> codes;  // the event codes that the device can send, by event type; without EV_SYN
  std::map<int, Axis> axes;            // by absolute axis
  std::set<int> ledsOn;
  std::set<int> switchesOn;
};

// How comments name event types and codes: "EV_KEY", "KEY_A".
struct CodeNames {
  std::string (*type)(int type);
  std::string (*code)(int type, int code);
};

// Who can read a recording: those whom the umask lets, or nobody but its owner.
enum class Access { kByUmask, kOwnerOnly };

// How a session is written.
struct WriterOptions {
  // A file that has reached a limit goes on in its next part (partOf()), a whole file of its own. Otherwise it ends.
  bool rotates = false;

  // How long the disk rests between two writings. A power cut takes at most what came in this time and in that which
  // the disk takes.
  std::chrono::milliseconds pause{500};

  // The limits of a file. REQUIRES: not more than what is read.
  long mostLines = kMostLines;
  std::int64_t mostBytes = kLargestFile;

  // How many bytes can wait for a disk that is busy.
  std::size_t mostHeldUp = 64 << 20;

  // What puts a file, or a directory, on the disk.
  Syncer::Sync sync = fsync;
};

// Where the files of a session are, and what they have in common.
struct SessionDirectory {
  std::string path;
  int fd;
  mode_t fileMode;
  CodeNames codeNames;  // for the comments behind records
  WriterOptions options;
};

// A file of a session. It appears with its first record or line, and ends with a whole one.
class FileWriter {
 public:
  // `name` is that of the file in the directory, `head` the lines that it, and each further part of it, starts with.
  // The directory and the syncer stay valid as long as this.
  FileWriter(const SessionDirectory& directory, Syncer& syncer, std::string name, std::string head);
  ~FileWriter();
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Takes what came next. A time before that of the last one, or before the start, counts as that of the last one, or
  // as the start. A remote's line is written up to kLongestText bytes. Throws Error, and takes nothing, at the end of
  // the longest session, at a limit of the file if it does not go on in a next part, and if its last part could not be
  // written.
  // REQUIRES: no flush() has failed.
  void write(const Record& record);
  void write(const RemoteLine& line);

  // Writes what was taken, and has it put on the disk. If it cannot be written, cuts the file back to its last whole
  // line, or removes it if there is none but the head, and closes it. Returns what went wrong, for a person; empty if
  // nothing did.
  std::string flush();

  // Does that, and closes the file.
  std::string close();

  // Of its first part.
  const std::string& name() const { return name_; }

  // How many there are, one after the other.
  int parts() const { return part_; }

  // How many records or lines it has in all parts, those not yet written included.
  std::int64_t count() const { return count_; }

  // How many bytes flush() would write.
  std::size_t unwritten() const { return hasLines() ? pending_.size() : 0; }

 private:
  microseconds nextTime(microseconds time) const;
  void addLine(const std::string& line);
  std::string limitFor(const std::string& line) const;
  bool hasLines() const { return lines_ > headLines_; }
  void startPart(int part);
  std::string writeOut();
  std::string cutBack(std::size_t written, int error);
  const char* forgetPart();

  const SessionDirectory& directory_;
  Syncer& syncer_;
  const std::string name_;
  const std::string head_;
  const long headLines_;
  std::int64_t count_ = 0;
  microseconds last_{0};

  // The part that is being written.
  int part_ = 1;
  std::string path_;       // for a person
  std::string pending_;    // lines that are not written yet, the head as the first ones
  std::int64_t size_ = 0;  // bytes that are
  long lines_ = 0;         // with the head
  int fd_ = -1;
};

// A session, in a new directory. It stays with the directory that it has made, whatever is found at its path later.
class SessionWriter {
 public:
  // Makes the directory. `comment` is one line that stands at the top of each file; those behind it name what a device
  // can send, and each of its records. Throws Error if there is something of this name already, or the directory cannot
  // be made.
  SessionWriter(const std::string& directory, const std::string& comment, Access access, const CodeNames& codeNames,
                const WriterOptions& options = {});
  ~SessionWriter();
  SessionWriter(const SessionWriter&) = delete;
  SessionWriter& operator=(const SessionWriter&) = delete;

  // Each adds a file, at most once (for each index). The reference stays valid as long as the writer.
  FileWriter& addMouse(const DeviceDescription& device);
  FileWriter& addKeyboard(const DeviceDescription& device);
  FileWriter& addFurtherNode(std::size_t index,
                             const DeviceDescription& device);  // REQUIRES: index < kMostFurtherNodes
  FileWriter& addRemote();

  // Writes what the files have taken, and has it put on the disk, without waiting for that. While the disk is busy with
  // what came before, writing can have to wait, so it is left to a later call, unless too much is held up. Throws Error
  // if a file could not be written, or what was written before could not be put on the disk; the others are written, if
  // they can.
  void flush();

  // Whether that must be called again soon, though nothing comes.
  bool isHeldUp() const { return isHeldUp_; }

  // Whether all that was written is on the disk. If it is not, flush() has to be called again, to learn whether the
  // disk has failed.
  bool isOnDisk() { return syncer_.isDone(); }

  // Writes what the files have taken, waits for the disk, closes the files, and removes the directory if there is none
  // in it. Call this at the end, also after an Error. Throws Error.
  void close();

 private:
  FileWriter& addNode(const std::string& name, const DeviceDescription& device);
  FileWriter& addFile(const std::string& name, const std::string& head);
  void syncDirectory();
  std::size_t unwritten() const;
  std::string firstProblem(std::string (FileWriter::*action)());

  Syncer syncer_;
  const SessionDirectory directory_;
  const std::string comments_;  // lines at the top of each file
  bool isHeldUp_ = false;
  std::list<FileWriter> files_;
};

}  // namespace quarlo::recording
