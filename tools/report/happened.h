// What happened in a session: its events, and what became of each record and line. Kept small: a session can have
// millions of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "recording/session.h"
#include "tools/common/causes.h"

namespace quarlo::tools::report {

// An event; its number is its place, from 1 on.
struct Event {
  microseconds time;
  std::uint32_t cause;  // the number of the record or line that it came of; 0: of none
  std::uint16_t x;      // where the pointer was
  std::uint16_t y;
  std::uint32_t shape;  // the number of its shape, from 0 on
  InputLoop::Source source;
};

// What an event is but for its time, source and place.
struct Shape {
  InputEvent event;
  nlohmann::ordered_json json;  // as toJson(), without the place, and with a text for a person

  bool isMove() const;
  bool isKeyDown() const;
};

// What became of the records or lines of a source, by their number, from 1 on.
class Outcomes {
 public:
  void add(const Outcome& outcome);
  std::size_t size() const { return events_.size(); }
  Outcome operator[](std::size_t number) const { return {events_[number - 1], whys_[number - 1]}; }

 private:
  std::vector<std::uint32_t> events_;
  std::vector<Why> whys_;
};

struct Happened {
  std::vector<Event> events;
  std::vector<Shape> shapes;
  std::array<Outcomes, InputLoop::kSources> outcomes;
  std::vector<RemoteState> states;
  microseconds length{0};  // when the last of all this was
  bool isWhole = true;     // false: the remote's lines came too fast for the reader, and the rest was not played

  const Shape& shapeOf(const Event& event) const { return shapes[event.shape]; }
};

// The place of each source among those of the session, from 0 on; -1: it is not there.
using SourceIndex = std::array<int, InputLoop::kSources>;

// Plays the session. REQUIRES: no simulated machine exists.
Happened play(const recording::Session& session, const PlayOptions& options);

// The records of a source of the session, or null if it is not there, or the remote.
const std::vector<recording::Record>* recordsOf(const recording::Session& session, InputLoop::Source source);

}  // namespace quarlo::tools::report
