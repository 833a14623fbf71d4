// A life, lived: the machine for it, the application, and what came of it.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/torture/faults.h"
#include "tests/torture/lives.h"
#include "tests/unit/events.h"

namespace quarlo::test::torture {

// ---- The machine --------------------------------------------------------------------------------

constexpr int kMaxX = 1280;
constexpr int kMaxY = 720;

// So that each line of remote() comes at least three rounds before or after anything changes.
constexpr int kRepeatTimeout = 300;
constexpr int kReleaseTimeout = 640;

using Paths = std::array<std::string, kSources>;  // "": none
inline const Paths kGivenPaths = {"/dev/input/event0", "/dev/input/event1", "/run/lircd"};

// A search meets all kinds of nodes on its way, and falls back on later ones.
struct SearchedNode {
  int number;
  std::string name;
  bool axes;
  bool buttons;
  bool arrows;
  bool held;  // by another process
};
const std::vector<SearchedNode>& searchedNodes();

// The places of the search for a daemon at which one runs, from 0.
constexpr std::size_t kDaemonPlaces[] = {2, 3};

// ---- What came of it ----------------------------------------------------------------------------

struct Outcome {
  std::array<bool, kSources> opened = {};
  Lines log;
  std::array<Lines, kSources> events;
  std::map<std::string, int> end;  // what the reader's fields are then
};

// A life as it was lived, with the descriptors of its sources and its calls.
struct Lived : Outcome {
  std::array<int, kSources> fds = {-1, -1, -1};
  Lines trace;  // empty after a fault that is one of many: looking at the calls takes half of the time
};

// `paths` are where the reader should find its sources.
Lived live(const Life& life, const Paths& paths, const std::optional<Fault>& fault);

// What happens to a life at some time, beside its input.
struct Incident {
  enum Kind { kLoss, kSignal, kJump };

  Kind kind;
  milliseconds at;
  Source source = kMouse;  // that is lost
  milliseconds jump{0};    // of the clock
};

// The same with InputLoop, by the paths that are given: it waits for no more than a round at a time. Also says how
// often it waited.
struct LivedWithLoop : Lived {
  Lines loopLog;
  int waits = 0;
};
LivedWithLoop liveWithLoop(const Life& life, const std::optional<Fault>& fault,
                           const std::optional<Incident>& incident);

constexpr char kReadError[] = "ERROR Reading from input device failed, errno = ";

// A log without the milliseconds that depend on when exactly a line was read, the errors of reading at its end.
Lines comparable(Lines log);

}  // namespace quarlo::test::torture
