// What the peers share: libxkbcommon for the keyboard, LIRC's client library for the remote, and the little that turns
// what these say into our events.
#pragma once

#include <xkbcommon/xkbcommon.h>

#include <string>

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

}  // namespace quarlo::bench
