// Infrared light in the guest of script/guest: what remotes send, and a receiver that sees it. The receiver is the
// kernel's rc-loopback, which hands what is sent through it to whatever decodes: the LIRC daemon, or the kernel itself.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quarlo::test {

using std::chrono::milliseconds;

// Light and darkness in turn, each so many us long. It begins and ends with light.
using Pulses = std::vector<unsigned>;

// A remote of the NEC protocol sends this when a button goes down, and then the repeat frame for as long as it is held.
Pulses necFrame(unsigned address, unsigned command);
Pulses necRepeatFrame();

// A remote of the RC-5 protocol sends this for as long as a button is held. The toggle tells two presses apart.
Pulses rc5Frame(unsigned address, unsigned command, bool toggle);

// What thumbs do with remotes, one after the other: a list of frames, each at its time.
class Thumbs {
 public:
  // Holds a button for this long; 0: taps it. Another press can follow at once.
  Thumbs& holdNec(unsigned address, unsigned command, milliseconds time);
  Thumbs& holdRc5(unsigned address, unsigned command, milliseconds time);

  // Does nothing.
  Thumbs& rest(milliseconds time);

  struct Frame {
    std::chrono::microseconds time;  // since the start
    Pulses pulses;
  };
  const std::vector<Frame>& frames() const { return frames_; }

  // How long all of it takes.
  milliseconds length() const { return std::chrono::duration_cast<milliseconds>(end_); }

 private:
  std::vector<Frame> frames_;
  std::chrono::microseconds end_{0};
  bool toggle_ = false;
};

// The receiver. As an evdev node it is called "rc-core loopback device", and has no keys at first.
class InfraredReceiver {
 public:
  // Loads the kernel's modules. REQUIRES: they are not loaded.
  InfraredReceiver();

  // Removes them. REQUIRES: nobody has the receiver open.
  ~InfraredReceiver();
  InfraredReceiver(const InfraredReceiver&) = delete;
  InfraredReceiver& operator=(const InfraredReceiver&) = delete;

  // Where the LIRC daemon finds the pulses.
  std::string device() const { return "/dev/lirc0"; }

  // The evdev node for what the kernel decodes.
  std::string node() const;

  // What the kernel decodes: "nec", "rc-5", or "none", as it is at first. "+rc-5": that, too.
  void decode(const std::string& protocol) const;

  // Whether the kernel decodes a protocol.
  bool decodes(const std::string& protocol) const;

  // Which key the kernel makes of what it decodes: of NEC and RC-5, the code is 256 * address + command.
  void setKey(unsigned code, int key) const;

  // Sends each frame at its time, and returns with the end of the last one.
  void send(const Thumbs& thumbs) const;
};

}  // namespace quarlo::test
