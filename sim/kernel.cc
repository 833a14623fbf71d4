#include "sim/kernel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <utility>

#include "sim/epoll.h"
#include "sim/trace.h"

namespace quarlo::sim {
namespace {

using std::chrono::seconds;

constexpr microseconds kFirstStart = seconds(1'000'000);
constexpr microseconds kPauseBetweenMachines = seconds(10);

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

}  // namespace

long finish(long result) {
  if (result >= 0) return result;
  errno = static_cast<int>(-result);
  return -1;
}

bool isWallClock(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

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

namespace {

// The input core's major, and event0's minor (Linux: Documentation/admin-guide/devices.txt). Of a node elsewhere, the
// minor is one that no other path has.
dev_t deviceNumber(const std::string& path) {
  constexpr unsigned kInputMajor = 13;
  constexpr unsigned kFirstEventMinor = 64;
  constexpr unsigned kElsewhere = 0x10000;
  unsigned event = 0;
  if (std::sscanf(path.c_str(), "/dev/input/event%u", &event) == 1)
    return makedev(kInputMajor, kFirstEventMinor + event);
  return makedev(kInputMajor, kElsewhere + (std::hash<std::string>()(path) & (kElsewhere - 1)));
}

}  // namespace

void Kernel::addNode(const std::string& path, std::shared_ptr<NodeState> node) {
  const auto found = nodes_.find(path);
  if (found != nodes_.end() && found->second->present) {
    std::fprintf(stderr, "sim: there is a node at %s already\n", path.c_str());
    std::abort();
  }
  node->number = deviceNumber(path);
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

Kernel::Happenings::iterator Kernel::afterInBackground(microseconds delay, std::function<void()> happening) {
  ++background_;
  return happenings_.emplace(time_ + delay, [this, run = std::move(happening)] {
    --background_;
    run();
  });
}

void Kernel::cancelInBackground(Happenings::iterator happening) {
  --background_;
  happenings_.erase(happening);
}

void Kernel::signalAfter(microseconds delay) {
  after(delay, [this] { interrupted_ = true; });
}

std::optional<microseconds> Kernel::untilNext() const {
  if (happenings_.empty()) return std::nullopt;
  return std::max(happenings_.begin()->first - time_, microseconds(0));
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

void Kernel::jumpClock(microseconds by) {
  clockOffset_ += by;
  for (const auto& [fd, file] : descriptors_) file->clockWasSet();
}

int Kernel::gettimeofday(microseconds& time) {
  const auto fault = countCall(Call::kGettimeofday);
  if (!fault) time = now();
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
  if (const auto found = descriptors_.find(fd); found != descriptors_.end()) {
    const std::shared_ptr<File> file = found->second;
    descriptors_.erase(found);
    for (const auto& [other, watcher] : descriptors_) {
      if (EpollFile* epoll = watcher->epoll()) epoll->forget(file);
    }
    closed_.insert(fd);
    result = 0;
  }
  result = finish(fault ? -fault->error : result);
  if (tracing_) trace("close(" + std::to_string(fd) + ")", callResult(result, errno));
  return static_cast<int>(result);
}

int Kernel::fstat(int fd, unsigned& mode, dev_t& number) {
  const auto fault = countCall(Call::kFstat);
  const std::shared_ptr<File> file = fileOf(fd);
  const long result = finish(fault ? -fault->error : file == nullptr ? -EBADF : 0);
  if (result == 0) {
    mode = file->mode();
    number = file->number();
  }
  if (tracing_) trace("fstat(" + std::to_string(fd) + ")", callResult(result, errno));
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
  if ((flags & ~(O_NONBLOCK | O_CLOEXEC)) != 0) notSimulated("pipe2() with " + descriptorFlags(flags));
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
    trace("pipe2(" + descriptorFlags(flags) + ")", callResult(result, errno) + made);
  }
  return static_cast<int>(result);
}

// ---- Sockets and the daemon ---------------------------------------------------------------------

void DaemonState::send(const std::string& text) {
  for (const auto& client : clients) {
    if (client->unread == kMostUnread) {
      client->end();
    } else {
      client->queue(text);
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
  if (daemon == daemons_.end() || !daemon->second->hasSocket) return -ENOENT;
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
