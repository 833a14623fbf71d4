// Debian's LIRC daemon without hardware, started and stopped by a test.
#pragma once

#include <sys/types.h>

#include <string>

namespace quarlo::test {

class Lircd {
 public:
  // Whether the daemon's packages are unpacked here.
  static bool isAvailable();

  // Its configuration, log and socket are in `folder`.
  explicit Lircd(std::string folder);
  ~Lircd();
  Lircd(const Lircd&) = delete;
  Lircd& operator=(const Lircd&) = delete;

  // Starts the daemon on a UDP port, where it expects what an infrared receiver sees. Returns once the socket takes
  // connections; false, with the daemon's log as a test failure, if it never does.
  bool start();

  // The same for a daemon that grabs an evdev node, and makes lines of its keys.
  bool startOnNode(const std::string& path);

  // What the receiver sees of a button of this code: marks and spaces of a 38 kHz light, and the pause after them. For
  // a daemon that was started with start().
  void receive(unsigned code) const;

  // Returns once the daemon has ended.
  void stop();

  void reload();

  // Has the daemon send a line as if it had decoded this button (lircd's command SIMULATE). Returns when all clients
  // that were connected before have it; false if the daemon refuses.
  bool simulate(const std::string& button, const std::string& repeatCount);
  bool simulateLine(const std::string& line);

  std::string socketPath() const { return file("lircd"); }

 private:
  std::string file(const char* name) const { return folder_ + "/" + name; }
  bool start(const std::string& driver, const std::string& device, const char* configuration);
  int connectToDaemon() const;
  bool accepts() const;

  std::string folder_;
  int port_ = -1;
  pid_t pid_ = -1;
};

}  // namespace quarlo::test
