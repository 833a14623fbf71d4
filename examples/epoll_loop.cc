// A loop around epoll, for an application that waits for much else besides. Here that is a clock, which ticks each
// second.
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <iterator>
#include <vector>

#include "examples/application.h"
#include "input/input_loop.h"

namespace example {

// Level-triggered: without EPOLLET. The loop does not read everything to its end, and counts on being told of the rest
// again. Edge-triggered, epoll would not, and the rest would lie there until something new comes.
void add(int epoll, int fd) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = fd;
  epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
}

class EpollLoop {
 public:
  EpollLoop(InputLoop& loop, Application& application) : loop_(loop), application_(application) {
    add(epoll_, clock_);
    addSources();
  }
  ~EpollLoop() {
    close(clock_);
    close(epoll_);
  }
  EpollLoop(const EpollLoop&) = delete;
  EpollLoop& operator=(const EpollLoop&) = delete;

  void run() {
    while (!application_.isOver()) {
      wait();
      InputEvent event;
      while (loop_.next(event)) application_.handle(event);
      if (loop_.generation() != generation_) addSources();
      application_.lose(loop_.gone());
      application_.draw();
    }
  }

 private:
  void wait() {
    epoll_event events[8];
    const int count = epoll_wait(epoll_, events, static_cast<int>(std::size(events)), loop_.timeoutMs());
    for (int i = 0; i < count; ++i) {
      if (events[i].data.fd == clock_) {
        tick();
      } else {
        loop_.setReady(events[i].data.fd, static_cast<int>(events[i].events));
      }
    }
  }

  // What has been read is not reported again.
  void tick() const {
    std::uint64_t ticks;
    while (read(clock_, &ticks, sizeof ticks) > 0) {
    }
  }

  // Those of before go first: a source that is gone would be reported without an end. One whose descriptor has been
  // closed has gone by itself, and epoll_ctl() fails.
  void addSources() {
    for (const int fd : sources_) epoll_ctl(epoll_, EPOLL_CTL_DEL, fd, nullptr);
    pollfd fds[InputLoop::kMaxDescriptors];
    const int count = loop_.descriptors(fds);
    sources_.clear();
    for (int i = 0; i < count; ++i) {
      add(epoll_, fds[i].fd);
      sources_.push_back(fds[i].fd);
    }
    generation_ = loop_.generation();
  }

  static int makeClock() {
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    const itimerspec eachSecond = {{1, 0}, {1, 0}};
    timerfd_settime(clock, 0, &eachSecond, nullptr);
    return clock;
  }

  InputLoop& loop_;
  Application& application_;
  const int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  const int clock_ = makeClock();
  std::vector<int> sources_;
  std::uint32_t generation_ = 0;
};

}  // namespace example

int main(int argc, char** argv) {
  example::LinuxInputReader reader;
  if (!example::open(reader, argc, argv)) return 1;
  example::InputLoop loop(reader);
  example::Application application(reader);
  example::EpollLoop(loop, application).run();
  return application.end();
}
