// A session: input as files, so that it can be looked at, edited, kept and played again.
//
//   desk/                   a directory, with any of these, all on one clock
//     mouse.evemu           what an evdev node said about itself and sent, in evemu's text format
//     keyboard.evemu
//     node-1.evemu          the same of further nodes, up to node-8.evemu, in the order in which they joined
//     remote.lirc           what the LIRC daemon sent: "<seconds>.<microseconds> <line>", one per line
//     mouse.0002.evemu      what followed that of mouse.evemu, as a whole file of its own; and so on, of each file
//
// A single file is a session, too. If its name ends in .lirc, it is a remote's. Otherwise it is a mouse's or a
// keyboard's, by the same tests as in the reader's autodetection. So are two files of which one describes a device and
// the other has its records, as evemu once wrote them.
//
// A directory's times count from the start of the recording. Only if no file in it is marked, and all times are later
// than 24 hours, were they counted from 1970 or from a machine's start, and the earliest of all is the start. That of
// files that are given by themselves is their first record.
//
// A session can be damaged, as by a loss of power: what is whole of it is played.
//
// In all files, empty lines and lines that start with # are comments. A file is marked, and of this program's
// recordings, if "# quarlo-input session 2" is among those at its top: then the device's name (N:) and the daemon's
// lines have escapes (recording/escapes.h).
#pragma once

#include <linux/input.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "input/input_loop.h"
#include "recording/shared_text.h"

namespace quarlo::recording {

using std::chrono::microseconds;

// Why a session cannot be used, for a person: "desk/mouse.evemu:12: ", then what is wrong and what was expected. It can
// contain bytes of the file as they are: escape it before it reaches a terminal.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Why not all of a session can be played, for a person and with bytes of the file as they are, too.
struct Damage {
  std::string problem;      // as an Error says it
  std::string consequence;  // what is played all the same, or what is not
};

// One evdev record (struct input_event of linux/input.h).
struct Record {
  microseconds time;  // since the start, never less than that of the record before
  std::uint16_t type;
  std::uint16_t code;
  std::int32_t value;
};

struct DeviceRecording {
  std::string name;
  std::map<int, std::set<int>> codes;  // the event codes that the device can send, by event type; without EV_SYN
  std::vector<Record> records;         // as a process that read the node saw them; at least one

  input_id id{};                        // bus, vendor, product and version; zeroes if the file has none
  std::set<int> properties{};           // INPUT_PROP_...
  std::map<int, input_absinfo> axes{};  // by axis; its value is 0
};

struct RemoteLine {
  microseconds time;  // of receipt, since the start, never less than that of the line before
  SharedText text;    // without the newline at its end
};

constexpr std::size_t kMostFurtherNodes = components::input::InputLoop::kMostFurtherNodes;

// At least one of the sources is present.
struct Session {
  std::optional<DeviceRecording> mouse;
  std::optional<DeviceRecording> keyboard;
  std::array<std::optional<DeviceRecording>, kMostFurtherNodes> further;  // one that sent nothing is not present
  std::optional<std::vector<RemoteLine>> remote;                          // at least one line
  std::vector<Damage> damages;                                            // in the order of the files; empty: none
};

// The time of the last record or line.
microseconds lengthOf(const Session& session);

// The longest session; and the longest of which no file is of this program's recordings, since a time in it can also be
// a date or a machine's uptime.
constexpr std::chrono::hours kLongestSession{24 * 31};
constexpr std::chrono::hours kLongestUnmarkedSession{24};

// What a single file may be that is not a remote's. One that is neither is taken for the first further node.
enum class SingleNode { kMouseOrKeyboard, kAny };

// Reads and checks a directory or a file. What a file has up to its first line that is wrong is read, and so are the
// files beside one of which nothing can be read. Throws Error, with the first problem, if nothing can be read at all.
Session readSession(const std::string& path, SingleNode wanted = SingleNode::kMouseOrKeyboard);

// The same of a device's description and its records, in either order.
Session readPair(const std::string& one, const std::string& other);

}  // namespace quarlo::recording
