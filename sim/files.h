// What the descriptors of the machine lead to: nodes, sockets, pipes.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "sim/evdev.h"
#include "sim/wait_queue.h"

namespace quarlo::sim {

// The client's end of a connection to a daemon.
struct Connection {
  void end();

  void queue(const std::string& text);

  // Drops what was read: this many bytes. REQUIRES: they are queued.
  void drop(std::size_t length);

  std::string queued;  // sent by the daemon, not yet read
  int lines = 0;       // how many newlines are in that
  int unread = 0;      // how many times the daemon has sent something of it
  bool connected = false;
  bool ended = false;  // one of the two ends is closed
  WaitQueue changed;
};

class EpollFile;
class TimerFile;

// An open file. The results of its calls are a count, 0, or a negative errno; -EAGAIN says that a blocking call waits.
class File {
 public:
  explicit File(bool isBlocking) : blocking(isBlocking) {}
  virtual ~File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // What poll() says of it: POLLIN, POLLHUP, ...
  virtual short state() const = 0;

  // Whether input is left to read, which an error or an end of stream is not.
  virtual bool hasUnread() const { return false; }

  virtual ssize_t read(void* buffer, std::size_t size) = 0;

  // A read of at most `bytes` bytes.
  virtual ssize_t readCut(void* buffer, std::size_t bytes) { return bytes > 0 ? read(buffer, bytes) : 0; }

  virtual ssize_t write(const void* data, std::size_t size) = 0;
  virtual ssize_t receive(void* buffer, std::size_t size, bool peek);
  virtual int ioctl(unsigned request, void* argument);

  // fstat()'s st_mode and st_rdev, by default those of what has no name anywhere.
  virtual unsigned mode() const { return 0600; }
  virtual dev_t number() const { return 0; }

  // Who is told of its changes, or null if that is not simulated.
  virtual WaitQueue* waitQueue() = 0;

  // The clock on the wall has been set.
  virtual void clockWasSet() {}

  // Null if it is something else.
  virtual std::shared_ptr<Connection> connection() const { return nullptr; }
  virtual EpollFile* epoll() { return nullptr; }
  virtual TimerFile* timer() { return nullptr; }

  const bool blocking;
};

class NodeFile final : public File {
 public:
  NodeFile(bool isBlocking, const std::shared_ptr<NodeState>& node);
  ~NodeFile() override;

  short state() const override;
  bool hasUnread() const override;
  ssize_t read(void* buffer, std::size_t size) override;
  ssize_t readCut(void* buffer, std::size_t bytes) override;
  ssize_t write(const void* data, std::size_t size) override;
  int ioctl(unsigned request, void* argument) override;
  unsigned mode() const override { return S_IFCHR | 0660; }
  dev_t number() const override { return node_->number; }
  WaitQueue* waitQueue() override { return &client_->changed; }

 private:
  int answer(unsigned sizeless, unsigned char* buffer, std::size_t size);

  std::shared_ptr<NodeState> node_;
  std::shared_ptr<EvdevClient> client_;
};

class SocketFile final : public File {
 public:
  explicit SocketFile(bool isBlocking) : File(isBlocking) {}
  ~SocketFile() override;

  short state() const override;
  bool hasUnread() const override { return !connection_->queued.empty(); }
  ssize_t read(void* buffer, std::size_t size) override { return receive(buffer, size, false); }
  ssize_t write(const void* data, std::size_t size) override;
  ssize_t receive(void* buffer, std::size_t size, bool peek) override;
  unsigned mode() const override { return S_IFSOCK | 0777; }
  WaitQueue* waitQueue() override { return &connection_->changed; }
  std::shared_ptr<Connection> connection() const override { return connection_; }

 private:
  std::shared_ptr<Connection> connection_ = std::make_shared<Connection>();
};

// The two ends of a new pipe: the one to read and the one to write.
std::pair<std::shared_ptr<File>, std::shared_ptr<File>> makePipe(bool isBlocking);

// Ends the process with a message about what the machine does not do, instead of a wrong answer.
[[noreturn]] void notSimulated(const std::string& what);

}  // namespace quarlo::sim
