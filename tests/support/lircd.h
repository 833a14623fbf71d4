// Debian's LIRC daemon without hardware, started and stopped by a test.
#pragma once

#include <sys/types.h>

#include <string>

namespace quarlo::test {

class Lircd {
 public:
  // Whether the daemon's packages are unpacked here.
  static bool isAvailable();

  // `folder` takes its configuration, log and socket.
  explicit Lircd(std::string folder);
  ~Lircd();
  Lircd(const Lircd&) = delete;
  Lircd& operator=(const Lircd&) = delete;

  // Returns once the socket takes connections; false, with the daemon's log as a test failure, if it never does.
  bool start();

  // Returns once the daemon has ended.
  void stop();

  void reload();

  // Has the daemon send a line as if it had decoded this button (lircd's command SIMULATE). Returns when all clients
  // that were connected before have it; false if the daemon refuses.
  bool simulate(const std::string& button, const std::string& repeatCount);

  std::string socketPath() const { return file("lircd"); }

 private:
  std::string file(const char* name) const { return folder_ + "/" + name; }
  int connectToDaemon() const;
  bool accepts() const;

  std::string folder_;
  pid_t pid_ = -1;
};

}  // namespace quarlo::test
