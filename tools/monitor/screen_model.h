// What `monitor --tui` shows: the sources, the pointer, what is held, the remote, and what came last. It is fed with
// events, log lines and looks at the reader; tools/monitor/screen_picture.h draws it.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/describe.h"
#include "tools/common/event_printer.h"
#include "tools/common/sources.h"

namespace quarlo::tools::monitor {

// In pixels.
struct Point {
  int x = 0;
  int y = 0;
};

// What the reader makes of the remote.
enum class RemoteState {
  kIdle,       // no key
  kHeld,       // a key, whose repeats are skipped for the release timeout
  kRepeating,  // a key in the faster repeat mode
};

// What the remote did in a short time.
struct RemoteSlot {
  RemoteState state = RemoteState::kIdle;  // the liveliest
  int keyDowns = 0;
};

class ScreenModel {
 public:
  static constexpr microseconds kSlotLength{100'000};
  static constexpr int kSlots = 100;          // that are kept
  static constexpr std::size_t kLines = 200;  // of what came last that are kept

  struct Remote {
    RemoteState state = RemoteState::kIdle;
    LinuxInputReader::Key key = 0;
    int gapMs = 0;                   // between two key-downs of the key, at least
    std::deque<RemoteSlot> history;  // kSlots of them, the newest last
  };

  struct Pointer {
    Point position;
    int heldButton = InputEvent::MouseData::kNoButton;
    std::vector<Point> trail;  // of the last drag, or the one that goes on
    std::optional<InputEvent::MouseData> lastPress;
  };

  // `largest` is the largest position of the pointer. Nothing has come yet.
  ScreenModel(std::vector<SourceReport> sources, Point largest);

  // Times are since the start, and never go back.
  void addEvent(microseconds time, const InputEvent& event, const Origin& origin);
  void addLogLine(const std::string& line);

  // Takes over the state of the reader. To call after each event, so that no drag and no key-down of the remote
  // is missed.
  void look(microseconds time, const LinuxInputReader& reader);

  // `index` as in sources().
  void setGone(std::size_t index);

  const std::vector<SourceReport>& sources() const { return sources_; }
  Point largest() const { return largest_; }
  microseconds time() const { return time_; }
  const EventCounts& counts() const { return counts_; }
  const Pointer& pointer() const { return pointer_; }
  LinuxInputReader::Modifier modifiers() const { return modifiers_; }
  bool numLock() const { return numLock_; }
  const Remote& remote() const { return remote_; }

  // What came last, the newest last: events with their time as `monitor` prints them, a run of moves as one, and log
  // lines.
  const std::deque<std::string>& lines() const { return lines_; }

 private:
  bool continuesRun(const InputEvent& move, const Origin& origin) const;
  void addLine(const std::string& line);
  void followPointer(const LinuxInputReader& reader);
  void followRemote(const LinuxInputReader& reader);
  RemoteSlot& slotOfNow();

  std::vector<SourceReport> sources_;
  Point largest_;
  microseconds time_{0};
  EventCounts counts_;
  Pointer pointer_;
  LinuxInputReader::Modifier modifiers_ = 0;
  bool numLock_ = false;
  Remote remote_;
  timeval lastKeyDown_ = {};  // of the remote, on the reader's clock
  std::int64_t slot_ = 0;     // the index of the newest, counted from the start
  std::deque<std::string> lines_;
  std::optional<InputEvent> lastMove_;  // the last line is about it
  std::optional<InputLoop::Source> lastMoveSource_;
  long moves_ = 0;  // in that line
};

}  // namespace quarlo::tools::monitor
