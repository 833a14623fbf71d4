#include "sim/kernel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "sim/trace.h"

// The call itself, past the machine (seam.cc).
// NOLINTNEXTLINE(bugprone-reserved-identifier): this is the linker's name
extern "C" int __real_poll(pollfd* entries, nfds_t count, int timeout);

namespace quarlo::sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr microseconds kFirstStart = seconds(1'000'000);
constexpr microseconds kPauseBetweenMachines = seconds(10);
constexpr microseconds kShortestWait(10);

// What select() takes for readable: an error or the end of a stream, too, so that the reader finds out.
constexpr int kReadable = POLLIN | POLLHUP | POLLERR;

// How many times a daemon can write to a client that does not read, before the kernel's buffer of the socket is full:
// each line takes a buffer of its own, and about this many fit into the default limit of 208 KiB.
constexpr int kMostUnread = 280;

Kernel* theKernel = nullptr;
int goingPast = 0;
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

// Whether a jump of the clock moves this one.
bool isWallClock(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

// The libc convention for a result that is a negative errno.
long finish(long result) {
  if (result >= 0) return result;
  errno = static_cast<int>(-result);
  return -1;
}

// What poll() says now of a descriptor of libc's.
short realState(int fd, short events) {
  pollfd look = {fd, events, 0};
  return __real_poll(&look, 1, 0) == 1 ? look.revents : short{0};
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

Kernel* Kernel::installed() { return goingPast == 0 ? theKernel : nullptr; }

void Kernel::goPast(int step) { goingPast += step; }

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

bool Kernel::ownsClock(clockid_t clock) {
  switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_TAI:
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_BOOTTIME: return true;
    default: return false;
  }
}

bool Kernel::ownsPoll(const pollfd* entries, nfds_t count, int timeoutMs) const {
  return timeoutMs != 0 || std::any_of(entries, entries + count, [this](const pollfd& entry) {
           return entry.fd >= 0 && ownsDescriptor(entry.fd);
         });
}

int Kernel::firstFreeDescriptor() const {
  int fd = firstDescriptor_;
  while (descriptors_.count(fd) != 0 || fcntl(fd, F_GETFD) != -1) ++fd;
  return fd;
}

// ---- Faults and trace ---------------------------------------------------------------------------

void Kernel::fail(Call call, int count, int error) { faults_[{call, counts_[call] + count}] = {error, {}}; }

void Kernel::truncateRead(int count, std::size_t bytes, Call call) {
  faults_[{call, counts_[call] + count}] = {0, bytes};
}

int Kernel::count(Call call) const {
  const auto found = counts_.find(call);
  return found == counts_.end() ? 0 : found->second;
}

std::optional<Kernel::Fault> Kernel::countCall(Call call) {
  if (callTime_ && callTime_->count() > 0) advance(*callTime_);
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

int Kernel::clockGettime(clockid_t clock, microseconds& time) {
  const auto fault = countCall(Call::kClockGettime);
  if (!fault) time = isWallClock(clock) ? now() : time_;
  const long result = finish(fault ? -fault->error : 0);
  if (tracing_)
    trace("clock_gettime(" + clockName(clock) + ")", fault ? callResult(result, errno) : sim::seconds(time));
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
  const auto read = [&]() -> std::optional<long> {
    const ssize_t result = cut ? file->readCut(buffer, std::min(size, *cut)) : file->read(buffer, size);
    if (result == -EAGAIN && file->blocking) return std::nullopt;
    return result;
  };
  return waitUntil(std::nullopt, read, [&] { return "read(" + std::to_string(fd) + ")"; });
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

ssize_t Kernel::receive(int fd, void* buffer, std::size_t size, int flags) {
  if ((flags & ~(MSG_PEEK | MSG_DONTWAIT | MSG_NOSIGNAL)) != 0) notSimulated("recv() with " + receiveFlags(flags));
  const std::shared_ptr<File> file = fileOf(fd);
  if (file == nullptr) return -EBADF;
  const auto receive = [&]() -> std::optional<long> {
    const ssize_t result = file->receive(buffer, size, (flags & MSG_PEEK) != 0);
    if (result == -EAGAIN && file->blocking && (flags & MSG_DONTWAIT) == 0) return std::nullopt;
    return result;
  };
  return waitUntil(std::nullopt, receive, [&] { return "recv(" + std::to_string(fd) + ")"; });
}

ssize_t Kernel::recv(int fd, void* buffer, std::size_t size, int flags) {
  const auto fault = countCall(Call::kRecv);
  long result = 0;
  if (!fault) {
    result = receive(fd, buffer, size, flags);
  } else if (!fault->bytes) {
    result = -fault->error;
  } else if (*fault->bytes > 0) {
    result = receive(fd, buffer, std::min(size, *fault->bytes), flags);
  }
  result = finish(result);
  if (tracing_) {
    trace("recv(" + std::to_string(fd) + ", " + std::to_string(size) + ", " + receiveFlags(flags) + ")",
          callResult(result, errno));
  }
  return result;
}

// ---- Pipes --------------------------------------------------------------------------------------

ssize_t Kernel::writeDescriptor(int fd, const void* data, std::size_t size) {
  const std::shared_ptr<File> file = fileOf(fd);
  if (file == nullptr) return -EBADF;
  std::size_t used = 0;
  const auto write = [&]() -> std::optional<long> {
    const ssize_t result = file->write(static_cast<const char*>(data) + used, size - used);
    if (result > 0) used += static_cast<std::size_t>(result);
    if (file->blocking && (result == -EAGAIN || (result > 0 && used < size))) return std::nullopt;
    return result < 0 ? result : static_cast<long>(used);
  };
  const long result = waitUntil(std::nullopt, write, [&] { return "write(" + std::to_string(fd) + ")"; });
  return result < 0 && used > 0 ? static_cast<long>(used) : result;
}

ssize_t Kernel::write(int fd, const void* data, std::size_t size) {
  const auto fault = countCall(Call::kWrite);
  const long result = finish(fault ? -fault->error : writeDescriptor(fd, data, size));
  if (tracing_) {
    trace("write(" + std::to_string(fd) + ", " + std::to_string(size) + ")", callResult(result, errno));
  }
  return result;
}

int Kernel::makePipe(int* ends, int flags) {
  if ((flags & ~(O_NONBLOCK | O_CLOEXEC)) != 0) notSimulated("pipe2() with " + flagsOfPipe(flags));
  auto [reader, writer] = sim::makePipe((flags & O_NONBLOCK) == 0);
  ends[0] = addFile(std::move(reader));
  ends[1] = addFile(std::move(writer));
  return 0;
}

int Kernel::pipe2(int* ends, int flags) {
  const auto fault = countCall(Call::kPipe2);
  const long result = finish(fault ? -fault->error : makePipe(ends, flags));
  if (tracing_) {
    const std::string made = result == 0 ? " [" + std::to_string(ends[0]) + " " + std::to_string(ends[1]) + "]" : "";
    trace("pipe2(" + flagsOfPipe(flags) + ")", callResult(result, errno) + made);
  }
  return static_cast<int>(result);
}

// ---- Waiting ------------------------------------------------------------------------------------

int Kernel::readyDescriptors(int count, const fd_set* readSet, fd_set& ready) const {
  FD_ZERO(&ready);
  int found = 0;
  for (int fd = 0; readSet != nullptr && fd < std::min<int>(count, FD_SETSIZE); ++fd) {
    if (!FD_ISSET(fd, readSet)) continue;
    const auto descriptor = descriptors_.find(fd);
    const short state = descriptor != descriptors_.end() ? descriptor->second->state() : realState(fd, POLLIN);
    if ((state & POLLNVAL) != 0) return -EBADF;
    if ((state & kReadable) == 0) continue;
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
  if (pace_) {
    const Outside outside;
    pace_(next - time_);
  }
  runUntil(next);
  return true;
}

template <typename Look, typename Name>
long Kernel::waitUntil(std::optional<microseconds> deadline, Look look, Name name) {
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

void Kernel::passShortWait(microseconds start) {
  if (!callTime_ && time_ == start) advance(kShortestWait);
}

long Kernel::selectUntil(int count, fd_set* readSet, std::optional<microseconds> deadline) {
  fd_set ready;
  const auto look = [&]() -> std::optional<long> {
    const int found = readyDescriptors(count, readSet, ready);
    if (found == 0) return std::nullopt;
    return found;
  };
  const long result = waitUntil(deadline, look, [&] {
    return "select() on " + (readSet != nullptr ? descriptorSet(count, readSet) : "nothing");
  });
  if (result >= 0 && readSet != nullptr) *readSet = ready;
  return result;
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
  passShortWait(start);
  return static_cast<int>(result);
}

int Kernel::lookAt(pollfd* entries, nfds_t count) const {
  int found = 0;
  for (nfds_t i = 0; i < count; ++i) {
    pollfd& entry = entries[i];
    entry.revents = 0;
    if (entry.fd < 0) continue;
    const auto descriptor = descriptors_.find(entry.fd);
    entry.revents = descriptor != descriptors_.end()
                        ? static_cast<short>(descriptor->second->state() & (entry.events | POLLERR | POLLHUP))
                        : realState(entry.fd, entry.events);
    if (entry.revents != 0) ++found;
  }
  return found;
}

long Kernel::pollUntil(pollfd* entries, nfds_t count, std::optional<microseconds> deadline) {
  const auto look = [&]() -> std::optional<long> {
    const int found = lookAt(entries, count);
    if (found == 0) return std::nullopt;
    return found;
  };
  return waitUntil(deadline, look, [&] { return "poll() on " + pollEntries(entries, count, &pollfd::events); });
}

int Kernel::poll(pollfd* entries, nfds_t count, int timeoutMs) {
  const auto fault = countCall(Call::kPoll);
  const microseconds start = time_;
  std::optional<microseconds> timeout;
  if (timeoutMs >= 0) timeout = milliseconds(timeoutMs);
  std::optional<microseconds> deadline;
  if (timeout) deadline = time_ + *timeout;
  const long result = finish(fault ? -fault->error : pollUntil(entries, count, deadline));
  if (tracing_) {
    trace("poll(" + pollEntries(entries, count, &pollfd::events) + ", " + sim::seconds(timeout) + ")",
          callResult(result, errno) + (result > 0 ? " " + pollEntries(entries, count, &pollfd::revents) : ""));
  }
  passShortWait(start);
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
