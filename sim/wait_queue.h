// Who is told of what happens to a file: the kernel's wait queues, as far as epoll needs them.
#pragma once

#include <algorithm>
#include <vector>

namespace quarlo::sim {

class Watcher {
 public:
  // Something has happened: POLLIN, ..., or 0 for anything.
  virtual void wake(int events) = 0;

 protected:
  ~Watcher() = default;
};

class WaitQueue {
 public:
  void add(Watcher& watcher) { watchers_.push_back(&watcher); }
  void remove(Watcher& watcher) { watchers_.erase(std::find(watchers_.begin(), watchers_.end(), &watcher)); }

  void wake(int events) const {
    for (Watcher* watcher : watchers_) watcher->wake(events);
  }

 private:
  std::vector<Watcher*> watchers_;
};

}  // namespace quarlo::sim
