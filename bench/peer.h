// What the peers share: libxkbcommon for the keyboard, LIRC's client library for the remote, or what an application
// writes that does without it, and the little that turns what these say into our events.
#pragma once

#include <xkbcommon/xkbcommon.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "bench/contestant.h"

namespace quarlo::bench {

// A US keyboard.
class XkbKeyboard {
 public:
  XkbKeyboard();
  ~XkbKeyboard();
  XkbKeyboard(const XkbKeyboard&) = delete;
  XkbKeyboard& operator=(const XkbKeyboard&) = delete;

  // Takes a key's change, and fills `event` with it. `code` is the kernel's.
  void translate(int code, bool pressed, InputEvent& event);

 private:
  xkb_state* state_;
  xkb_mod_index_t shift_;
  xkb_mod_index_t control_;
  xkb_mod_index_t alt_;
};

class Pointer {
 public:
  void move(double dx, double dy);
  void fill(InputEvent& event) const;

 private:
  int x_ = 0;
  int y_ = 0;
};

// REQUIRES: it is the only one.
class LircClient {
 public:
  explicit LircClient(const std::string& socket);
  ~LircClient();
  LircClient(const LircClient&) = delete;
  LircClient& operator=(const LircClient&) = delete;

  int fd() const { return fd_; }

  // Returns whether there was a line of a known button that is not held.
  bool read(InputEvent& event) const;

 private:
  int fd_;
};

// The daemon's socket, without a library: reads what is there, and takes its lines apart.
class LircLines {
 public:
  explicit LircLines(const std::string& socket);
  ~LircLines();
  LircLines(const LircLines&) = delete;
  LircLines& operator=(const LircLines&) = delete;

  int fd() const { return fd_; }

  // As that of LircClient.
  bool read(InputEvent& event);

 private:
  bool nextLine(std::string_view& line);

  int fd_;
  char text_[512] = {};  // of which the bytes from begin_ to end_ are still to be taken
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace quarlo::bench
