#include "sim/epoll.h"

#include <poll.h>
#include <sys/epoll.h>

#include <cerrno>
#include <iterator>
#include <utility>

#include "sim/real.h"
#include "sim/trace.h"

namespace quarlo::sim {
namespace {

// What is not an event: how it is told.
constexpr unsigned kManner = EPOLLET | EPOLLONESHOT | EPOLLWAKEUP;

}  // namespace

// ---- One descriptor -----------------------------------------------------------------------------

EpollFile::Item::Item(EpollFile& where, int number, std::shared_ptr<File> what)
    : owner(where), fd(number), file(std::move(what)) {
  file->waitQueue()->add(*this);
}

EpollFile::Item::~Item() {
  file->waitQueue()->remove(*this);
  owner.ready_.remove(this);
}

unsigned EpollFile::Item::ready() const { return static_cast<unsigned>(file->state()) & events; }

void EpollFile::Item::setEvent(const epoll_event& event) {
  events = event.events | EPOLLERR | EPOLLHUP;
  data = event.data;
  if (ready() != 0) wake(0);
}

void EpollFile::Item::wake(int happened) {
  if ((events & ~kManner) == 0) return;  // told once, and not asked for again
  if (happened != 0 && (static_cast<unsigned>(happened) & events) == 0) return;
  if (!std::exchange(isQueued, true)) owner.ready_.push_back(this);
}

// ---- All of them --------------------------------------------------------------------------------

EpollFile::~EpollFile() {
  items_.clear();
  if (real_ != -1) __real_close(real_);
}

int EpollFile::control(int operation, int fd, const std::shared_ptr<File>& file, const epoll_event* event) {
  if (operation != EPOLL_CTL_DEL && (event->events & EPOLLEXCLUSIVE) != 0) notSimulated("EPOLLEXCLUSIVE");
  if (file == nullptr) return controlReal(operation, fd, event);
  if (file->waitQueue() == nullptr) notSimulated("an epoll descriptor that another one watches");
  const auto found = items_.find(fd);
  switch (operation) {
    case EPOLL_CTL_ADD: {
      if (found != items_.end()) return -EEXIST;
      items_[fd] = std::make_unique<Item>(*this, fd, file);
      items_[fd]->setEvent(*event);
      return 0;
    }
    case EPOLL_CTL_MOD:
      if (found == items_.end()) return -ENOENT;
      found->second->setEvent(*event);
      return 0;
    case EPOLL_CTL_DEL: return items_.erase(fd) == 1 ? 0 : -ENOENT;
    default: return -EINVAL;
  }
}

int EpollFile::controlReal(int operation, int fd, const epoll_event* event) {
  if (real_ == -1) real_ = __real_epoll_create1(EPOLL_CLOEXEC);
  epoll_event asked = event != nullptr ? *event : epoll_event{};
  asked.data.fd = fd;
  if (__real_epoll_ctl(real_, operation, fd, &asked) == -1) return -errno;
  if (operation == EPOLL_CTL_DEL) {
    realEvents_.erase(fd);
  } else {
    realEvents_[fd] = *event;
  }
  return 0;
}

int EpollFile::take(epoll_event* events, int room) {
  taken_.clear();
  int count = 0;
  std::list<Item*> queued = std::exchange(ready_, {});
  while (!queued.empty() && count < room) {
    Item& item = *queued.front();
    const unsigned ready = item.ready();
    if (ready == 0 || (item.events & (EPOLLET | EPOLLONESHOT)) != 0) {
      queued.pop_front();
      item.isQueued = false;
    } else {
      ready_.splice(ready_.end(), queued, queued.begin());
    }
    if (ready == 0) continue;
    events[count].events = ready;
    events[count].data = item.data;
    if ((item.events & EPOLLONESHOT) != 0) item.events &= kManner;
    taken_.push_back(item.fd);
    ++count;
  }
  ready_.splice(ready_.begin(), queued);
  return count + takeReal(events + count, room - count);
}

int EpollFile::takeReal(epoll_event* events, int room) {
  if (real_ == -1 || room == 0) return 0;
  const int count = __real_epoll_wait(real_, events, room, 0);
  for (int i = 0; i < count; ++i) {
    taken_.push_back(events[i].data.fd);
    events[i].data = realEvents_[events[i].data.fd].data;
  }
  return count;
}

void EpollFile::forget(const std::shared_ptr<File>& file) {
  for (auto item = items_.begin(); item != items_.end();) {
    item = item->second->file == file ? items_.erase(item) : std::next(item);
  }
}

std::string EpollFile::text() const {
  std::string text;
  const auto add = [&](int fd, unsigned events) {
    text += (text.empty() ? "" : ", ") + std::to_string(fd) + " " + epollEvents(events);
  };
  for (const auto& [fd, item] : items_) add(fd, item->events & ~unsigned{EPOLLERR | EPOLLHUP});
  for (const auto& [fd, event] : realEvents_) add(fd, event.events);
  return "[" + text + "]";
}

short EpollFile::state() const {
  for (const Item* item : ready_) {
    if (item->ready() != 0) return POLLIN | POLLRDNORM;
  }
  return real_ != -1 && realState(real_, POLLIN) != 0 ? short{POLLIN | POLLRDNORM} : short{0};
}

ssize_t EpollFile::read(void* /*buffer*/, std::size_t /*size*/) { return -EINVAL; }
ssize_t EpollFile::write(const void* /*data*/, std::size_t /*size*/) { return -EINVAL; }

}  // namespace quarlo::sim
