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

  // Starts the daemon without a receiver. Returns once the socket takes connections; false, with the daemon's log as a
  // test failure, if it never does.
  bool start();

  // The same for a daemon that has an infrared receiver, such as /dev/lirc0. It knows two remotes: "myremote" (NEC,
  // address 4; KEY_UP 1, KEY_1 2, KEY_SUBTITLE 3) and "other" (RC-5, address 0; KEY_UP 16, KEY_RIGHT 17).
  bool startOnReceiver(const std::string& path);

  // The same for a daemon that reads an evdev node, which it grabs while it has a client, and makes lines of its keys
  // (KEY_OK and KEY_UP of a remote "devinput").
  bool startOnNode(const std::string& path);

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
  pid_t pid_ = -1;
};

}  // namespace quarlo::test
