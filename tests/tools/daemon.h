// What the program takes for a LIRC daemon.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

namespace quarlo::tools {

// A LIRC daemon for one client.
class Daemon {
 public:
  explicit Daemon(const std::string& path) : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
  }
  ~Daemon() {
    hangUp();
    close(listener_);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  void send(const std::string& line) {
    if (client_ == -1) client_ = accept(listener_, nullptr, nullptr);
    EXPECT_EQ(write(client_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  // What the client, which has ended, had sent.
  std::string received() {
    if (client_ == -1) client_ = accept(listener_, nullptr, nullptr);
    char bytes[4096];
    const ssize_t size = recv(client_, bytes, sizeof bytes, MSG_DONTWAIT);
    return size > 0 ? std::string(bytes, static_cast<std::size_t>(size)) : "";
  }

  void hangUp() {
    if (client_ != -1) close(client_);
    client_ = -1;
  }

 private:
  int listener_;
  int client_ = -1;
};

}  // namespace quarlo::tools
