// What the component's calls reach while a Machine exists: the part of Linux that input code sees. Each call behaves
// like the system call of the same name, and returns -1 with errno set when it fails.
#pragma once

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sim/evdev.h"
#include "sim/files.h"
#include "sim/machine.h"
#include "sim/timers.h"

namespace quarlo::sim {

// The libc convention for a result that is a negative errno.
long finish(long result);

// Whether a jump of the clock moves this one.
bool isWallClock(clockid_t clock);

struct DaemonState {
  void send(const std::string& text);
  bool hasClients() const;

  bool running = true;
  bool hasSocket = true;
  std::vector<std::shared_ptr<Connection>> clients;
};

class Kernel final : public Timers {
 public:
  Kernel();
  ~Kernel();
  Kernel(const Kernel&) = delete;
  Kernel& operator=(const Kernel&) = delete;

  // The kernel that exists, or null: also while calls go past it.
  static Kernel* installed();

  // Lets calls go past it to libc, until it is called as often with -1 as with 1.
  static void goPast(int step);

  bool ownsPath(const std::string& path) const;
  bool ownsDescriptor(int fd) const;
  static bool ownsEnvironment(const std::string& name);
  static bool ownsClock(clockid_t clock);

  // Whether a poll() is the machine's: not one that only looks at descriptors of libc's.
  bool ownsPoll(const pollfd* entries, nfds_t count, int timeoutMs) const;

  int open(const char* path, int flags);
  int close(int fd);
  int fstat(int fd, unsigned& mode, dev_t& number);
  ssize_t read(int fd, void* buffer, std::size_t size);
  ssize_t recv(int fd, void* buffer, std::size_t size, int flags);
  ssize_t write(int fd, const void* data, std::size_t size);
  int pipe2(int* ends, int flags);
  int ioctl(int fd, unsigned request, void* argument);
  int socket(int domain, int type, int protocol);
  int connect(int fd, const sockaddr* address, socklen_t length);
  char* getenv(const char* name);

  // No timeout is none, a negative one is invalid. As on Linux, select() leaves in it what is left.
  int select(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, std::optional<microseconds>& timeout);
  int poll(pollfd* entries, nfds_t count, int timeoutMs);
  int ppoll(pollfd* entries, nfds_t count, std::optional<microseconds> timeout, const sigset_t* mask);
  int epollCreate1(int flags);
  int epollCtl(int epoll, int operation, int fd, const epoll_event* event);
  int epollWait(int epoll, epoll_event* events, int room, int timeoutMs, const sigset_t* mask);

  int eventfd(unsigned count, int flags);
  int timerfdCreate(clockid_t clock, int flags);
  int timerfdSettime(int fd, int flags, const TimerSetting& setting, TimerSetting& old);
  int timerfdGettime(int fd, TimerSetting& setting);

  // A negative time is invalid. `left` is set if a signal ends the sleep before it is over.
  int nanosleep(microseconds time, microseconds& left);
  int clockNanosleep(clockid_t clock, int flags, microseconds time, microseconds& left);  // an errno or 0
  int usleep(microseconds time);
  int gettimeofday(microseconds& time);

  // REQUIRES: ownsClock(clock)
  int clockGettime(clockid_t clock, microseconds& time);

  void addNode(const std::string& path, std::shared_ptr<NodeState> node);
  void addLink(const std::string& path, const std::string& target) { links_[path] = target; }
  void addDaemon(const std::string& path, std::shared_ptr<DaemonState> daemon);
  void setEnvironment(const std::string& name, const std::string& value);

  microseconds now() const override { return time_ + clockOffset_; }
  microseconds monotonic() const override { return time_; }
  void advance(microseconds time);
  void jumpClock(microseconds by);
  void after(microseconds delay, std::function<void()> happening);
  Happenings::iterator afterInBackground(microseconds delay, std::function<void()> happening) override;
  void cancelInBackground(Happenings::iterator happening) override;
  void signalAfter(microseconds delay);
  bool hasScheduled() const { return happenings_.size() > background_; }
  std::optional<microseconds> untilNext() const;
  bool hasUnread() const;
  void onWait(std::function<void(microseconds)> pace) { pace_ = std::move(pace); }

  void fail(Call call, int count, int error);
  void truncateRead(int count, std::size_t bytes, Call call);
  int count(Call call) const;
  std::vector<std::string> takeTrace();
  void setTracing(bool on) { tracing_ = on; }
  void setCallTime(microseconds time) { callTime_ = time; }
  void setFirstDescriptor(int number) { firstDescriptor_ = number; }
  int openDescriptors() const { return static_cast<int>(descriptors_.size()); }

 private:
  // What goes wrong with one call.
  struct Fault {
    int error = 0;
    std::optional<std::size_t> bytes;  // a read's result instead of an error
  };

  // The work of the calls, without faults and trace; a negative result is an errno.
  int openNode(const std::string& path, int flags);
  ssize_t receive(int fd, void* buffer, std::size_t size, int flags);
  ssize_t writeDescriptor(int fd, const void* data, std::size_t size);
  int makePipe(int* ends, int flags);
  ssize_t readDescriptor(int fd, void* buffer, std::size_t size, std::optional<std::size_t> cut);
  long selectUntil(int count, fd_set* readSet, std::optional<microseconds> timeout);
  long pollUntil(pollfd* entries, nfds_t count, std::optional<microseconds> timeout, const char* name);
  int epollControl(int epoll, int operation, int fd, const epoll_event* event);
  long epollUntil(int epoll, epoll_event* events, int room, std::optional<microseconds> timeout);
  int addTimer(clockid_t clock, int flags);
  int addCounter(unsigned count, int flags);
  int setTimer(int fd, int flags, const TimerSetting& setting, TimerSetting& old);
  int timerSetting(int fd, TimerSetting& setting);
  long sleepFor(microseconds time, microseconds& left);
  long sleepUntil(clockid_t clock, microseconds time);
  int connectTo(int fd, const std::string& path);

  std::optional<Fault> countCall(Call call);
  std::shared_ptr<File> fileOf(int fd) const;
  int addFile(std::shared_ptr<File> file);
  int firstFreeDescriptor() const;
  int lookAt(pollfd* entries, nfds_t count) const;
  int readyDescriptors(int count, const fd_set* readSet, fd_set& ready) const;
  void runUntil(microseconds time);
  microseconds lastScheduled() const;

  // Asks `look` again and again, moving time to what is scheduled next, until it has a result. The result is 0 after
  // the timeout and -EINTR after a signal. A wait without end is a deadlock of what `name` gives.
  template <typename Look, typename Name>
  long waitUntil(std::optional<microseconds> timeout, Look look, Name name);

  // Lets a wait that did not wait take time, too.
  void passShortWait(microseconds start);

  bool waitForNext(std::optional<microseconds> deadline, microseconds horizon);
  [[noreturn]] static void deadlock(const std::string& wait);
  void trace(const std::string& call, const std::string& result);

  microseconds time_;  // never goes back
  microseconds clockOffset_{0};
  Happenings happenings_;
  std::size_t background_ = 0;  // how many of them are in the background
  std::function<void(microseconds)> pace_;
  std::optional<microseconds> callTime_;
  bool interrupted_ = false;

  std::map<std::string, std::shared_ptr<NodeState>> nodes_;
  std::map<std::string, std::string> links_;  // to nodes
  std::map<std::string, std::shared_ptr<DaemonState>> daemons_;
  std::map<std::string, std::string> environment_;
  std::map<int, std::shared_ptr<File>> descriptors_;
  std::set<int> closed_;  // numbers that were descriptors
  int firstDescriptor_ = 100;

  std::map<Call, int> counts_;
  std::map<std::pair<Call, int>, Fault> faults_;
  std::vector<std::string> trace_;
  bool tracing_ = true;
};

template <typename Look, typename Name>
long Kernel::waitUntil(std::optional<microseconds> timeout, Look look, Name name) {
  std::optional<microseconds> deadline;
  if (timeout) deadline = time_ + *timeout;
  interrupted_ = false;
  const microseconds horizon = lastScheduled();
  for (;;) {
    const std::optional<long> result = look();
    if (result) return *result;
    if (deadline && time_ >= *deadline) return 0;
    if (!waitForNext(deadline, horizon)) deadlock(name());
    if (std::exchange(interrupted_, false)) return -EINTR;
  }
}

}  // namespace quarlo::sim
