// The loop of an application, as all commands that run the reader have it: that of input/input_loop.h, whose sources
// are kept in step (input/input_sources.h), or the one that does without.
#pragma once

#include <list>
#include <optional>
#include <string>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tools/common/describe.h"

namespace quarlo::tools {

// Of a loop that polls: the timeout of the first readInput() of each round, in ms. None: the loop is an InputLoop's.
using PollTimeout = std::optional<int>;

// A round: wait(), then next() until it returns false.
class ReaderLoop {
 public:
  // What next() gives beside events. One that polls has only keys and buttons that gave none, for kAll.
  enum class Empty {
    kUnknown,  // lines of buttons that the reader does not know, and cut lines
    kAll,      // those, and records that gave none, but for the marks between them (EV_SYN)
    kLines,    // lines of the remote that gave none
    kEverything
  };

  ReaderLoop(LinuxInputReader& reader, PollTimeout timeout, Empty empty);

  // Makes a further node a source: kFurther, kFurther + 1, ..., also if it cannot be opened. Returns the errno of
  // InputSources::open(); 0: it is open. REQUIRES: it does not poll; there are less than kMostFurtherNodes
  int join(const std::string& path);

  // Waits until there is something to take, for at most `limitMs` ms (-1: without a limit), until `ownFd` (-1: none) is
  // readable, until a source goes, or until a signal. One that polls waits in next() instead, by its timeout alone.
  void wait(int limitMs, int ownFd = -1);

  // Fills `event` with what came next; kNoEvent stands for what gave no event. Returns false when there is nothing.
  bool next(InputEvent& event);

  // Where that came from. Of one that polls, it is only told whether an event is the remote's and, if just one node is
  // open, that it is of that.
  Origin origin() const;

  // What it came of: which record or line of its source. REQUIRES: it does not poll
  const InputLoop::Cause& cause() const { return loop_.cause(); }

  // In how many ms a round without input does something: what the reader does of a remote's key that is held. -1: in
  // none.
  int dueMs() const { return loop_.timeoutMs(); }

  // Whether next() has more to do at once, although a round has ended. One that polls does not know.
  bool hasMore() const { return !polls() && loop_.timeoutMs() == 0; }

  // The sources that were gone before the last wait. What they held has come up in the round after it. One that polls
  // does not know.
  InputLoop::SourceSet gone() const { return gone_; }

  // The nodes of which the last wait found that records were lost. One that polls does not know.
  InputLoop::SourceSet lost() const { return sources_.lost(); }

  bool polls() const { return timeout_.has_value(); }

 private:
  bool poll(InputEvent& event);
  std::optional<InputLoop::Source> polledSource(bool isRemotes) const;
  std::string line() const;

  LinuxInputReader& reader_;
  InputLoop loop_;
  components::input::InputSources sources_;
  std::list<components::input::InputSources::FurtherNode> further_;
  InputLoop::SourceSet gone_ = 0;
  PollTimeout timeout_;
  Empty empty_;
  int timeoutMs_ = 0;                        // of the next readInput()
  std::optional<InputLoop::Source> polled_;  // where the last readInput() found something
};

// Whether next() gives this, which gave no event. REQUIRES: the loop does not poll
bool isGiven(ReaderLoop::Empty empty, const Origin& origin);

}  // namespace quarlo::tools
