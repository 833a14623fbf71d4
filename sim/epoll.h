// An epoll descriptor: fs/eventpoll.c of the kernel, with its list of what is ready.
#pragma once

#include <sys/epoll.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/files.h"

namespace quarlo::sim {

class EpollFile final : public File {
 public:
  EpollFile() : File(true) {}
  ~EpollFile() override;

  // The work of epoll_ctl(); `file` is null for a descriptor of libc's, which the kernel's own epoll watches.
  int control(int operation, int fd, const std::shared_ptr<File>& file, const epoll_event* event);

  // Fills `events` with what is ready, and returns the number of it. REQUIRES: room > 0
  int take(epoll_event* events, int room);

  // The descriptors of the last take(), in its order.
  const std::vector<int>& takenDescriptors() const { return taken_; }

  // A descriptor of the machine's is closed.
  void forget(const std::shared_ptr<File>& file);

  // What it watches: "[100 EPOLLIN|EPOLLET]".
  std::string text() const;

  short state() const override;
  ssize_t read(void* buffer, std::size_t size) override;
  ssize_t write(const void* data, std::size_t size) override;
  WaitQueue* waitQueue() override { return nullptr; }
  EpollFile* epoll() override { return this; }

 private:
  struct Item final : Watcher {
    Item(EpollFile& where, int number, std::shared_ptr<File> what);
    ~Item();
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    void wake(int happened) override;
    unsigned ready() const;
    void setEvent(const epoll_event& event);

    EpollFile& owner;
    int fd;
    std::shared_ptr<File> file;
    unsigned events = 0;
    epoll_data_t data = {};
    bool isQueued = false;
  };

  int controlReal(int operation, int fd, const epoll_event* event);
  int takeReal(epoll_event* events, int room);

  std::map<int, std::unique_ptr<Item>> items_;
  std::list<Item*> ready_;
  int real_ = -1;                          // the kernel's epoll, for descriptors of libc's
  std::map<int, epoll_event> realEvents_;  // what was asked of it
  std::vector<int> taken_;
};

}  // namespace quarlo::sim
