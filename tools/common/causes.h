// Which record or line each event of a played session came of, and why the others gave none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "tools/common/player.h"

namespace quarlo::tools {

// Why a record or a line gave no event.
enum class Why : std::uint8_t {
  kNone,  // it gave one
  kMark,
  kLossMark,
  kScanCode,
  kPosition,
  kLight,
  kSideButton,
  kButtonRepeat,
  kTouchTwin,
  kOtherAxis,
  kOtherType,
  kEarly,
  kUnknownButton,
  kCutLine,
  kBroadcast,
  kLost,
  kUnread
};

struct WhyName {
  Why why;
  const char* id;    // stays the same from version to version
  const char* text;  // for a person
};

// Of each but kNone, in their order.
constexpr std::size_t kWhys = static_cast<std::size_t>(Why::kUnread);
extern const std::array<WhyName, kWhys> kWhyNames;

// REQUIRES: it is not kNone
const WhyName& nameOf(Why why);

// What became of a record or line.
struct Outcome {
  std::size_t event = 0;  // the number of the event that it gave, or was a part of; 0: it gave none
  Why why = Why::kNone;   // of one that gave none
};

// What the reader takes the remote's key for.
enum class RemoteKey { kNone, kHeld, kRepeating };

struct RemoteState {
  microseconds time;      // since when
  microseconds deadline;  // until when a repeat is too early; of kNone, `time`
  std::uint32_t line;     // the number of the last line before: kHeld comes of it, kNone and kRepeating of time alone,
                          // but for a key-down while kRepeating
  RemoteKey key;          // what it is since then
};

// An event with its number, counted from 1, and that of the record or line that it came of: of several, the last one;
// 0: the reader's loop made it, to make up for lost records.
struct NumberedEvent {
  std::size_t number;
  microseconds time;
  const InputEvent& event;
  const Origin& origin;
  std::size_t cause;
};

// Who is told. The records of a source come in their order, and each before its event.
class Witness {
 public:
  virtual ~Witness() = default;

  // Records and lines have numbers in their source, counted from 1.
  virtual void record(InputLoop::Source source, std::size_t number, const recording::Record& record,
                      const Outcome& outcome) = 0;
  virtual void line(std::size_t number, const recording::RemoteLine& line, const Outcome& outcome) = 0;

  // Each change, and each key-down.
  virtual void state(const RemoteState& state) = 0;

  // Returns whether to go on.
  virtual bool event(const NumberedEvent& event) = 0;
};

// Tells a witness of a session while it is played, with ReaderLoop::Empty::kEverything.
class Causes final : public Audience {
 public:
  Causes(const recording::Session& session, Witness& witness);

  bool take(microseconds time, const InputEvent& event, const Origin& origin, const InputLoop::Cause* cause) override;
  void read(InputLoop::Source source, std::uint64_t number) override;
  void look(microseconds time, const LinuxInputReader& reader) override;

  // To call when it was played: tells of what was not read.
  void end();

 private:
  // A record whose event may still be to come: the motion of a drain becomes one move, at its end.
  struct Pending {
    std::size_t number;      // in its source; 0: a mark that its buffer has made
    std::uint32_t position;  // among what was read
    bool isOpen;
    Outcome outcome;
  };

  struct Node {
    const std::vector<recording::Record>* records = nullptr;
    std::deque<std::size_t> read;  // what was read, and not taken yet
    std::uint32_t taken = 0;       // how many of what was read were taken
    std::uint32_t made = 0;        // records that the loop made itself
    std::deque<Pending> pending;
    std::size_t told = 0;  // the number of the last record that was told of
  };

  std::size_t takeRecord(Node& node, const InputLoop::Cause& cause, std::size_t event);
  void tell(InputLoop::Source source);
  void tellUpTo(InputLoop::Source source, std::size_t number, Why why);
  std::size_t takeLine(std::size_t event);
  void tellLine(const Outcome& outcome);

  Witness& witness_;
  const std::vector<recording::RemoteLine>* lines_ = nullptr;
  std::array<Node, InputLoop::kSources> nodes_;
  std::size_t events_ = 0;
  std::size_t line_ = 0;        // of the last line that was told of
  std::size_t partsTaken_ = 0;  // of the line after it
  std::size_t lineEvent_ = 0;   // that they gave
  RemoteKey key_ = RemoteKey::kNone;
  timeval keyTime_ = {};
  microseconds keyDown_{0};
};

}  // namespace quarlo::tools
