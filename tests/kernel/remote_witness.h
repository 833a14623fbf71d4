// An application with a remote, watched: what the daemon sends, as a further client of it hears it, and what the
// application is given. The rules by which the one follows from the other are those of docs/behaviour.md, in this
// file's own words.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "input/input_loop.h"
#include "tests/unit/events.h"

namespace quarlo::test {

// A further client of a LIRC daemon.
class LircClient {
 public:
  explicit LircClient(const std::string& socketPath);
  ~LircClient();
  LircClient(const LircClient&) = delete;
  LircClient& operator=(const LircClient&) = delete;

  // -1: the daemon has ended.
  int fd() const { return fd_; }

  // Whether there is something to take.
  bool hasUnread() const;

  // The lines that have come since the last call, with their ends.
  Lines take();

 private:
  int fd_;
  std::string begun_;  // of a line
};

class RemoteWitness {
 public:
  using Clock = std::chrono::steady_clock;

  // Connects to the daemon; with a node, that is the application's keyboard.
  explicit RemoteWitness(const std::string& socketPath, const std::string& node = "/nowhere");

  // The application's loop, for this long. Between two calls, it is busy.
  void watch(std::chrono::milliseconds time);

  // What the daemon has sent, without what each line begins with, the button's code: "01 KEY_UP myremote". What stands
  // between BEGIN and END is a line, too.
  Lines heard() const;

  // The key-downs of the remote that the application was given, and the events of the node.
  const Lines& given() const { return given_; }
  const Lines& givenByNode() const { return givenByNode_; }

  // Each of the daemon's lines has given what it must, and nothing else was given by the remote.
  void expectWhatTheRulesSay() const;

  // Forgets what was heard and given. REQUIRES: no button is held.
  void forget();

  LinuxInputReader reader;

 private:
  struct Line {
    Clock::time_point time;
    Clock::time_point looked;  // up to then, the application looked for lines
    std::string text;
  };

  components::input::InputLoop loop_{reader};
  LircClient client_;
  Clock::time_point looked_;
  std::vector<Line> lines_;
  Lines given_;
  Lines givenByNode_;
};

}  // namespace quarlo::test
