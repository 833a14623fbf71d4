// The sources that the contestants read: a mouse, a keyboard, and a LIRC daemon's socket.
#pragma once

#include <linux/input.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/contestant.h"
#include "bench/workloads.h"

namespace quarlo::bench {

class Node {
 public:
  Node() = default;
  virtual ~Node() = default;
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  virtual std::string path() const = 0;
  virtual void send(const std::vector<input_event>& records) = 0;
};

class Devices {
 public:
  // FIFOs, which any machine has, or evdev nodes that the kernel's uinput driver makes.
  enum class Kind { kFifos, kNodes };

  explicit Devices(Kind kind);
  ~Devices();
  Devices(const Devices&) = delete;
  Devices& operator=(const Devices&) = delete;

  const Paths& paths() const { return paths_; }

  // Takes the connection that a contestant has made to the socket, instead of the one before. Waits for it, if it must.
  void accept();

  // REQUIRES: a connection was accepted.
  void send(const Frame& frame);

 private:
  std::string folder_;
  std::unique_ptr<Node> mouse_;
  std::unique_ptr<Node> keyboard_;
  Paths paths_;
  int listener_;
  int client_ = -1;
};

}  // namespace quarlo::bench
