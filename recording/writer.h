// Writes a session while it is being recorded. After each flush(), the files on disk are a session of what came so far.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>

#include "recording/session.h"

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

// A file of a session. It appears with its first record or line, and ends with a whole one.
class FileWriter {
 public:
  // `name` is that of the file in the directory, `head` the lines that it starts with; `codeNames` are for the comments
  // behind its records. The caller keeps the directory's descriptor open.
  FileWriter(const std::string& directory, int directoryFd, const std::string& name, const std::string& head,
             Access access, const CodeNames& codeNames);
  ~FileWriter();
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Takes what came next. A time before that of the last one, or before the start, counts as that of the last one, or
  // as the start. A remote's line is written up to kLongestText bytes. Throws Error, and takes nothing, at
  // the end of the longest session and of the longest file.
  // REQUIRES: no flush() has failed.
  void write(const Record& record);
  void write(const RemoteLine& line);

  // Puts on disk what was taken. If that fails, cuts the file back to its last whole line, or removes it if there is
  // none but the head, and closes it. Returns what went wrong, for a person; empty if nothing did.
  std::string flush();

  // Does that, and closes the file.
  std::string close();

  const std::string& name() const { return name_; }

  // How many records or lines it has, those not yet on disk included.
  long count() const { return count_; }

 private:
  microseconds nextTime(microseconds time);
  void addLine(const std::string& line);
  std::string writeOut();
  std::string cutBack(std::size_t written, int error);

  int directoryFd_;
  std::string name_;
  std::string path_;  // for a person
  mode_t mode_;
  CodeNames codeNames_;
  std::size_t headSize_;   // bytes
  std::string pending_;    // lines that are not on disk yet, the head as the first ones
  std::int64_t size_ = 0;  // bytes on disk
  long lines_;             // with the head
  long count_ = 0;         // without it
  microseconds last_{0};
  int fd_ = -1;
};

// A session, in a new directory. It stays with the directory that it has made, whatever is found at its path later.
class SessionWriter {
 public:
  // Makes the directory. `comment` is one line that stands at the top of each file; those behind it name what a device
  // can send, and each of its records. Throws Error if there is something of this name already, or the directory cannot
  // be made.
  SessionWriter(std::string directory, const std::string& comment, Access access, const CodeNames& codeNames);
  ~SessionWriter();
  SessionWriter(const SessionWriter&) = delete;
  SessionWriter& operator=(const SessionWriter&) = delete;

  // Each adds a file, at most once (for each index). The reference stays valid as long as the writer.
  FileWriter& addMouse(const DeviceDescription& device);
  FileWriter& addKeyboard(const DeviceDescription& device);
  FileWriter& addFurtherNode(std::size_t index,
                             const DeviceDescription& device);  // REQUIRES: index < kMostFurtherNodes
  FileWriter& addRemote();

  // Puts on disk what the files have taken. Throws Error if one could not be written; the others are, if they can.
  void flush();

  // Does that, closes the files, and removes the directory if there is none in it. Call this at the end, also after an
  // Error. Throws Error.
  void close();

 private:
  FileWriter& addNode(const std::string& name, const DeviceDescription& device);
  FileWriter& addFile(const std::string& name, const std::string& head);
  std::string firstProblem(std::string (FileWriter::*action)());

  std::string directory_;
  int directoryFd_;
  std::string comments_;  // lines at the top of each file
  Access access_;
  CodeNames codeNames_;
  std::list<FileWriter> files_;
};

}  // namespace quarlo::recording
