#include "sim/kernel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "sim/trace.h"

namespace quarlo::sim {
namespace {

using std::chrono::seconds;

constexpr microseconds kFirstStart = seconds(1'000'000);
constexpr microseconds kPauseBetweenMachines = seconds(10);
constexpr microseconds kShortestSelect(10);

// What select() takes for readable: an error or the end of a stream, too, so that the reader finds out.
constexpr int kReadable = POLLIN | POLLHUP | POLLERR;

// How many times a daemon can write to a client that does not read, before the kernel's buffer of the socket is full:
// each line takes a buffer of its own, and about this many fit into the default limit of 208 KiB.
constexpr int kMostUnread = 280;

Kernel* theKernel = nullptr;
microseconds nextStart = kFirstStart;

bool isBelowDevInput(const std::string& path) { return path.rfind("/dev/input/", 0) == 0; }

std::string pathOf(const sockaddr* address) {
  const auto* local = reinterpret_cast<const sockaddr_un*>(address);
  return {local->sun_path, strnlen(local->sun_path, sizeof local->sun_path)};
}

bool isValid(const timeval& timeout) { return timeout.tv_sec >= 0 && timeout.tv_usec >= 0; }

microseconds toMicroseconds(const timeval& time) { return seconds(time.tv_sec) + microseconds(time.tv_usec); }

timeval toTimeval(microseconds time) {
  timeval result = {};
  result.tv_sec = static_cast<decltype(result.tv_sec)>(time.count() / 1'000'000);
  result.tv_usec = static_cast<decltype(result.tv_usec)>(time.count() % 1'000'000);
  return result;
}

// A select() as a trace shows it.
std::string selectCall(int count, const fd_set* readSet, const fd_set* writeSet, const fd_set* exceptSet,
                       const timeval* timeout) {
  std::string text = "select(" + std::to_string(count) + ", ";
  text += readSet != nullptr ? descriptorSet(count, readSet) : "null";
  if (writeSet != nullptr) text += ", to write";
  if (exceptSet != nullptr) text += ", exceptions";
  text += ", ";
  if (timeout == nullptr) {
    text += sim::seconds(std::nullopt);
  } else {
    text += isValid(*timeout) ? sim::seconds(toMicroseconds(*timeout)) : "negative";
  }
  return text + ")";
}

// The libc convention for a result that is a negative errno.
long finish(long result) {
  if (result >= 0) return result;
  errno = static_cast<int>(-result);
  return -1;
}

// Whether libc's descriptor has data now: -1 for one that is not open.
int realReadable(int fd) {
  pollfd look = {fd, POLLIN, 0};
  if (poll(&look, 1, 0) < 1) return 0;
  return (look.revents & POLLNVAL) != 0 ? -1 : 1;
}

}  // namespace

// ---- Life cycle ---------------------------------------------------------------------------------

Kernel::Kernel() : time_(nextStart) {
  if (theKernel != nullptr) {
    std::fprintf(stderr, "sim: a second Machine was made while one exists\n");
    std::abort();
  }
  theKernel = this;
}

Kernel::~Kernel() {
  theKernel = nullptr;
  nextStart = std::chrono::ceil<std::chrono::seconds>(std::max({nextStart, time_, now()}) + kPauseBetweenMachines);
}

Kernel* Kernel::installed() { return theKernel; }

void Kernel::addNode(const std::string& path, std::shared_ptr<NodeState> node) {
  const auto found = nodes_.find(path);
  if (found != nodes_.end() && found->second->present) {
    std::fprintf(stderr, "sim: there is a node at %s already\n", path.c_str());
    std::abort();
  }
  nodes_[path] = std::move(node);
}

void Kernel::addDaemon(const std::string& path, std::shared_ptr<DaemonState> daemon) {
  const auto found = daemons_.find(path);
  if (found != daemons_.end() && found->second->running) {
    std::fprintf(stderr, "sim: there is a daemon at %s already\n", path.c_str());
    std::abort();
  }
  daemons_[path] = std::move(daemon);
}

void Kernel::setEnvironment(const std::string& name, const std::string& value) {
  if (!ownsEnvironment(name)) {
    std::fprintf(stderr, "sim: %s is not a variable of the machine's\n", name.c_str());
    std::abort();
  }
  environment_[name] = value;
}

bool Kernel::ownsPath(const std::string& path) const {
  return isBelowDevInput(path) || nodes_.count(path) != 0 || links_.count(path) != 0;
}

bool Kernel::ownsDescriptor(int fd) const {
  if (fd == -1 || descriptors_.count(fd) != 0) return true;
  return closed_.count(fd) != 0 && fcntl(fd, F_GETFD) == -1;
}

bool Kernel::ownsEnvironment(const std::string& name) {
  return name == "LIRC_REPEAT_TIMEOUT" || name == "LIRC_RELEASE_TIMEOUT";
}

std::shared_ptr<File> Kernel::fileOf(int fd) const {
  const auto found = descriptors_.find(fd);
  return found == descriptors_.end() ? nullptr : found->second;
}

int Kernel::addFile(std::shared_ptr<File> file) {
  const int fd = firstFreeDescriptor();
  descriptors_[fd] = std::move(file);
  return fd;
}

int Kernel::firstFreeDescriptor() const {
  int fd = firstDescriptor_;
  while (descriptors_.count(fd) != 0 || fcntl(fd, F_GETFD) != -1) ++fd;
  return fd;
}

// ---- Faults and trace ---------------------------------------------------------------------------

void Kernel::fail(Call call, int count, int error) { faults_[{call, counts_[call] + count}] = {error, {}}; }

void Kernel::truncateRead(int count, std::size_t bytes) {
  faults_[{Call::kRead, counts_[Call::kRead] + count}] = {0, bytes};
}

int Kernel::count(Call call) const {
  const auto found = counts_.find(call);
  return found == counts_.end() ? 0 : found->second;
}

std::optional<Kernel::Fault> Kernel::countCall(Call call) {
  const auto found = faults_.find({call, ++counts_[call]});
  if (found == faults_.end()) return std::nullopt;
  const Fault fault = found->second;
  faults_.erase(found);
  return fault;
}

void Kernel::trace(const std::string& call, const std::string& result) { trace_.push_back(call + " = " + result); }

std::vector<std::string> Kernel::takeTrace() { return std::exchange(trace_, {}); }

// ---- Time ---------------------------------------------------------------------------------------

void Kernel::after(microseconds delay, std::function<void()> happening) {
  happenings_.emplace(time_ + delay, std::move(happening));
}

void Kernel::afterInBackground(microseconds delay, std::function<void()> happening) {
  ++background_;
  after(delay, [this, run = std::move(happening)] {
    --background_;
    run();
  });
}

void Kernel::signalAfter(microseconds delay) {
  after(delay, [this] { interrupted_ = true; });
}

void Kernel::runUntil(microseconds time) {
  while (!happenings_.empty() && happenings_.begin()->first <= time) {
    const auto next = happenings_.begin();
    time_ = std::max(time_, next->first);
    const std::function<void()> happening = std::move(next->second);
    happenings_.erase(next);
    happening();
  }
  time_ = std::max(time_, time);
}

void Kernel::advance(microseconds time) { runUntil(time_ + time); }

void Kernel::jumpClock(microseconds by) { clockOffset_ += by; }

int Kernel::gettimeofday(timeval* time) {
  const auto fault = countCall(Call::kGettimeofday);
  if (!fault) *time = toTimeval(now());
  const long result = finish(fault ? -fault->error : 0);
  if (tracing_) trace("gettimeofday()", fault ? callResult(result, errno) : sim::seconds(now()));
  return static_cast<int>(result);
}

char* Kernel::getenv(const char* name) {
  const auto fault = countCall(Call::kGetenv);
  const auto found = environment_.find(name);
  char* value = fault || found == environment_.end() ? nullptr : found->second.data();
  if (tracing_) trace("getenv(" + quoted(name) + ")", value == nullptr ? "null" : quoted(value));
  return value;
}

// ---- Nodes --------------------------------------------------------------------------------------

int Kernel::openNode(const std::string& path, int flags) {
  const auto link = links_.find(path);
  const auto found = nodes_.find(link != links_.end() ? link->second : path);
  if (found == nodes_.end() || !found->second->present) return -ENOENT;
  const std::shared_ptr<NodeState>& node = found->second;
  if (node->openError != 0) return -node->openError;
  return addFile(std::make_shared<NodeFile>((flags & O_NONBLOCK) == 0, node));
}

int Kernel::open(const char* path, int flags) {
  const auto fault = countCall(Call::kOpen);
  const long result = finish(fault ? -fault->error : openNode(path, flags));
  if (tracing_) trace("open(" + quoted(path) + ", " + openFlags(flags) + ")", callResult(result, errno));
  return static_cast<int>(result);
}

int Kernel::close(int fd) {
  const auto fault = countCall(Call::kClose);
  long result = -EBADF;
  if (descriptors_.erase(fd) == 1) {
    closed_.insert(fd);
    result = 0;
  }
  result = finish(fault ? -fault->error : result);
  if (tracing_) trace("close(" + std::to_string(fd) + ")", callResult(result, errno));
  return static_cast<int>(result);
}

int Kernel::ioctl(int fd, unsigned request, void* argument) {
  const auto fault = countCall(Call::kIoctl);
  const std::shared_ptr<File> file = fileOf(fd);
  const long result = finish(fault ? -fault->error : file == nullptr ? -EBADF : file->ioctl(request, argument));
  if (tracing_) {
    trace("ioctl(" + std::to_string(fd) + ", " + ioctlRequest(request, reinterpret_cast<long>(argument)) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

// ---- Reading ------------------------------------------------------------------------------------

bool Kernel::hasUnread() const {
  return std::any_of(descriptors_.begin(), descriptors_.end(),
                     [](const auto& entry) { return entry.second->hasUnread(); });
}

ssize_t Kernel::readDescriptor(int fd, void* buffer, std::size_t size, std::optional<std::size_t> cut) {
  const std::shared_ptr<File> file = fileOf(fd);
  if (file == nullptr) return -EBADF;
  const microseconds horizon = lastScheduled();
  for (;;) {
    const ssize_t result = cut ? file->readCut(buffer, std::min(size, *cut)) : file->read(buffer, size);
    if (result != -EAGAIN || !file->blocking) return result;
    if (!waitForNext(std::nullopt, horizon)) deadlock("read(" + std::to_string(fd) + ")");
    if (std::exchange(interrupted_, false)) return -EINTR;
  }
}

ssize_t Kernel::read(int fd, void* buffer, std::size_t size) {
  const auto fault = countCall(Call::kRead);
  const long result =
      finish(fault && fault->error != 0 ? -fault->error
                                        : readDescriptor(fd, buffer, size, fault ? fault->bytes : std::nullopt));
  if (tracing_) {
    trace("read(" + std::to_string(fd) + ", " + byteCount(size) + ")",
          result > 0 ? byteCount(static_cast<std::size_t>(result)) : callResult(result, errno));
  }
  return result;
}

// ---- Waiting ------------------------------------------------------------------------------------

int Kernel::readyDescriptors(int count, const fd_set* readSet, fd_set& ready) const {
  FD_ZERO(&ready);
  int found = 0;
  for (int fd = 0; readSet != nullptr && fd < std::min<int>(count, FD_SETSIZE); ++fd) {
    if (!FD_ISSET(fd, readSet)) continue;
    const auto descriptor = descriptors_.find(fd);
    const int readable = descriptor != descriptors_.end()
                             ? static_cast<int>((descriptor->second->state() & kReadable) != 0)
                             : realReadable(fd);
    if (readable == -1) return -EBADF;
    if (readable == 0) continue;
    FD_SET(fd, &ready);
    ++found;
  }
  return found;
}

microseconds Kernel::lastScheduled() const { return happenings_.empty() ? time_ : happenings_.rbegin()->first; }

// Moves time to what is scheduled next, or to the deadline if that is earlier. Returns false if there is neither. The
// background goes on forever: if nothing else is left, background timers after `horizon` do not count.
bool Kernel::waitForNext(std::optional<microseconds> deadline, microseconds horizon) {
  const bool nothingComes = happenings_.empty() || (!hasScheduled() && happenings_.begin()->first > horizon);
  if (nothingComes && !deadline) return false;
  microseconds next = happenings_.empty() ? *deadline : std::max(time_, happenings_.begin()->first);
  if (deadline) next = std::min(next, *deadline);
  if (pace_) pace_(next - time_);
  runUntil(next);
  return true;
}

int Kernel::selectUntil(int count, fd_set* readSet, std::optional<microseconds> deadline) {
  interrupted_ = false;
  const microseconds horizon = lastScheduled();
  fd_set ready;
  for (;;) {
    const int found = readyDescriptors(count, readSet, ready);
    if (found < 0) return found;
    if (found > 0 || (deadline && time_ >= *deadline)) {
      if (readSet != nullptr) *readSet = ready;
      return found;
    }
    if (!waitForNext(deadline, horizon))
      deadlock("select() on " + (readSet != nullptr ? descriptorSet(count, readSet) : "nothing"));
    if (std::exchange(interrupted_, false)) return -EINTR;
  }
}

int Kernel::select(int count, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* timeout) {
  const auto fault = countCall(Call::kSelect);
  const std::string call = tracing_ ? selectCall(count, readSet, writeSet, exceptSet, timeout) : "";
  const microseconds start = time_;
  long result = -EINVAL;
  if (fault) {
    result = -fault->error;
  } else if (count >= 0 && (timeout == nullptr || isValid(*timeout))) {
    std::optional<microseconds> deadline;
    if (timeout != nullptr) deadline = time_ + toMicroseconds(*timeout);
    result = selectUntil(count, readSet, deadline);
    if (result >= 0 && writeSet != nullptr) FD_ZERO(writeSet);
    if (result >= 0 && exceptSet != nullptr) FD_ZERO(exceptSet);
    // As on Linux, what is left of the timeout.
    if (deadline) *timeout = toTimeval(std::max(*deadline - time_, microseconds(0)));
  }
  result = finish(result);
  if (tracing_) trace(call, callResult(result, errno) + (result > 0 ? " " + descriptorSet(count, readSet) : ""));
  // A loop that only polls must make progress in time, too.
  if (time_ == start) runUntil(start + kShortestSelect);
  return static_cast<int>(result);
}

void Kernel::deadlock(const std::string& wait) {
  std::fprintf(stderr,
               "sim: deadlock: %s would wait forever, since nothing is scheduled any more.\n"
               "Schedule input (after), a signal (signalAfter), or wait with a timeout.\n",
               wait.c_str());
  std::abort();
}

// ---- Sockets and the daemon ---------------------------------------------------------------------

void DaemonState::send(const std::string& text) {
  for (const auto& client : clients) {
    if (client->unread == kMostUnread) {
      client->ended = true;
    } else {
      client->queued += text;
      ++client->unread;
    }
  }
  clients.erase(std::remove_if(clients.begin(), clients.end(), [](const auto& client) { return client->ended; }),
                clients.end());
}

bool DaemonState::hasClients() const {
  return std::any_of(clients.begin(), clients.end(), [](const auto& client) { return !client->ended; });
}

int Kernel::socket(int domain, int type, int protocol) {
  const auto fault = countCall(Call::kSocket);
  const long result =
      finish(fault ? -fault->error : addFile(std::make_shared<SocketFile>((type & SOCK_NONBLOCK) == 0)));
  if (tracing_) {
    trace("socket(" + (domain == AF_UNIX ? "AF_UNIX" : std::to_string(domain)) + ", " + socketType(type) + ", " +
              std::to_string(protocol) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

int Kernel::connectTo(int fd, const std::string& path) {
  const std::shared_ptr<File> file = fileOf(fd);
  if (file == nullptr) return -EBADF;
  const std::shared_ptr<Connection> connection = file->connection();
  if (connection == nullptr) return -ENOTSOCK;
  if (connection->connected) return -EISCONN;
  const auto daemon = daemons_.find(path);
  if (daemon == daemons_.end()) return -ENOENT;
  if (!daemon->second->running) return -ECONNREFUSED;
  connection->connected = true;
  daemon->second->clients.push_back(connection);
  return 0;
}

int Kernel::connect(int fd, const sockaddr* address, socklen_t length) {
  const auto fault = countCall(Call::kConnect);
  const std::string path = pathOf(address);
  const long result = finish(fault ? -fault->error : connectTo(fd, path));
  if (tracing_) {
    trace("connect(" + std::to_string(fd) + ", " + quoted(path) + ", " + std::to_string(length) + ")",
          callResult(result, errno));
  }
  return static_cast<int>(result);
}

}  // namespace quarlo::sim
