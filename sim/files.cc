#include "sim/files.h"

#include <linux/ioctl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>

namespace quarlo::sim {

void notSimulated(const std::string& what) {
  std::fprintf(stderr, "sim: %s is not simulated\n", what.c_str());
  std::abort();
}

ssize_t File::receive(void* /*buffer*/, std::size_t /*size*/, bool /*peek*/) { return -ENOTSOCK; }

int File::ioctl(unsigned /*request*/, void* /*argument*/) { return -ENOTTY; }

// ---- Nodes --------------------------------------------------------------------------------------

NodeFile::NodeFile(bool isBlocking, const std::shared_ptr<NodeState>& node)
    : File(isBlocking), node_(node), client_(node->connect()) {}

NodeFile::~NodeFile() { node_->disconnect(client_); }

// As evdev_poll(): what is queued stays in sight of a node that is gone, though it cannot be read any more.
short NodeFile::state() const {
  const int queued = client_->readable() ? POLLIN | POLLRDNORM : 0;
  return static_cast<short>(queued | (node_->present ? POLLOUT | POLLWRNORM : POLLHUP | POLLERR));
}

bool NodeFile::hasUnread() const { return node_->present && client_->readable(); }

ssize_t NodeFile::read(void* buffer, std::size_t size) {
  if (!node_->present) return -ENODEV;
  if (!client_->readable()) return -EAGAIN;
  if (size < sizeof(input_event)) return -EINVAL;
  std::size_t used = 0;
  for (; used + sizeof(input_event) <= size && client_->readable(); used += sizeof(input_event)) {
    std::memcpy(static_cast<char*>(buffer) + used, &client_->front(), sizeof(input_event));
    if (node_->onRead) node_->onRead(client_->frontNumber());
    client_->pop();
  }
  return static_cast<ssize_t>(used);
}

ssize_t NodeFile::readCut(void* buffer, std::size_t bytes) {
  const std::size_t size = std::min(bytes, sizeof(input_event));
  if (client_->readable()) std::memcpy(buffer, &client_->front(), size);
  return static_cast<ssize_t>(size);
}

ssize_t NodeFile::write(const void* /*data*/, std::size_t /*size*/) { notSimulated("write() to a node"); }

namespace {

// The event type whose states a request asks for, 0 if it does not.
int typeOfStates(unsigned sizelessRequest) {
  switch (sizelessRequest) {
    case EVIOCGKEY(0): return EV_KEY;
    case EVIOCGLED(0): return EV_LED;
    case EVIOCGSND(0): return EV_SND;
    case EVIOCGSW(0): return EV_SW;
    default: return 0;
  }
}

template <typename Answer>
int give(const Answer& answer, void* buffer) {
  std::memcpy(buffer, &answer, sizeof answer);
  return 0;
}

// With its NUL if there is room for it.
int giveText(const std::optional<std::string>& text, void* buffer, std::size_t size) {
  if (!text) return -ENOENT;
  const std::size_t length = std::min(text->size() + 1, size);
  std::memcpy(buffer, text->c_str(), length);
  return static_cast<int>(length);
}

}  // namespace

int NodeFile::ioctl(unsigned request, void* argument) {
  if (!node_->present) return -ENODEV;
  const unsigned sizeless = withoutSize(request);
  const auto error = node_->ioctlErrors.find(sizeless);
  if (error != node_->ioctlErrors.end()) return -error->second;

  switch (request) {
    case EVIOCGRAB: return node_->grab(client_, argument != nullptr);
    case EVIOCGVERSION: return give(EV_VERSION, argument);
    case EVIOCGID: return give(node_->device.id, argument);
    case EVIOCGREP: return node_->autoRepeat(static_cast<unsigned*>(argument));
    case EVIOCSCLOCKID: return node_->setClock(*client_, *static_cast<const clockid_t*>(argument));
    default: return answer(sizeless, static_cast<unsigned char*>(argument), _IOC_SIZE(request));
  }
}

// The requests that say how much room there is for the answer.
int NodeFile::answer(unsigned sizeless, unsigned char* buffer, std::size_t size) {
  switch (sizeless) {
    case EVIOCGNAME(0): return giveText(node_->device.name, buffer, size);
    case EVIOCGPHYS(0): return giveText(node_->device.phys, buffer, size);
    case EVIOCGUNIQ(0): return giveText(node_->device.uniq, buffer, size);
    case EVIOCGPROP(0): return node_->properties(buffer, size);
    default: break;
  }
  if (const int type = typeOfStates(sizeless); type != 0) return node_->states(*client_, type, buffer, size);
  for (int type = 0; type <= EV_MAX; ++type) {
    if (sizeless == EVIOCGBIT(type, 0)) return node_->bits(type, buffer, size);
  }
  for (int code = 0; code <= ABS_MAX; ++code) {
    if (sizeless == withoutSize(EVIOCGABS(code))) return node_->axis(code, buffer, size);
  }
  return -EINVAL;
}

// ---- Sockets ------------------------------------------------------------------------------------

void Connection::end() {
  ended = true;
  changed.wake(0);
}

void Connection::queue(const std::string& text) {
  queued += text;
  lines += static_cast<int>(std::count(text.begin(), text.end(), '\n'));
  ++unread;
  changed.wake(POLLIN | POLLPRI | POLLRDNORM | POLLRDBAND);
}

void Connection::drop(std::size_t length) {
  const auto end = queued.begin() + static_cast<std::ptrdiff_t>(length);
  lines -= static_cast<int>(std::count(queued.begin(), end, '\n'));
  queued.erase(queued.begin(), end);
  unread = lines;
}

// The daemon finds out when it sends the next time.
SocketFile::~SocketFile() { connection_->ended = true; }

// As unix_poll() for streams.
short SocketFile::state() const {
  int state = POLLOUT | POLLWRNORM | POLLWRBAND;
  if (!connection_->connected) return static_cast<short>(state | POLLHUP);
  if (connection_->ended) state |= POLLIN | POLLRDNORM | POLLHUP | POLLRDHUP;
  if (!connection_->queued.empty()) state |= POLLIN | POLLRDNORM;
  return static_cast<short>(state);
}

ssize_t SocketFile::write(const void* /*data*/, std::size_t /*size*/) { notSimulated("write() to a daemon"); }

ssize_t SocketFile::receive(void* buffer, std::size_t size, bool peek) {
  if (!connection_->connected) return -EINVAL;
  const std::string& queued = connection_->queued;
  if (queued.empty() && !connection_->ended) return -EAGAIN;
  const std::size_t length = queued.copy(static_cast<char*>(buffer), size);
  if (!peek) connection_->drop(length);
  return static_cast<ssize_t>(length);
}

// ---- Pipes --------------------------------------------------------------------------------------

namespace {

// As the kernel keeps it: up to 16 pages, each with what one write has begun and the next ones may have filled.
struct Pipe {
  static constexpr std::size_t kPages = 16;
  static constexpr std::size_t kPageSize = 4096;
  struct Page {
    std::string bytes;
    std::size_t taken = 0;
  };

  bool isFull() const { return pages.size() == kPages; }

  void endOfReader() {
    hasReader = false;
    forWriter.wake(0);
  }

  void endOfWriter() {
    hasWriter = false;
    forReader.wake(0);
  }

  std::deque<Page> pages;
  bool hasReader = true;
  bool hasWriter = true;
  WaitQueue forReader;
  WaitQueue forWriter;
};

class PipeReader final : public File {
 public:
  PipeReader(bool isBlocking, std::shared_ptr<Pipe> pipe) : File(isBlocking), pipe_(std::move(pipe)) {}
  ~PipeReader() override { pipe_->endOfReader(); }

  short state() const override {
    const int queued = pipe_->pages.empty() ? 0 : POLLIN | POLLRDNORM;
    return static_cast<short>(queued | (pipe_->hasWriter ? 0 : POLLHUP));
  }

  ssize_t read(void* buffer, std::size_t size) override {
    if (size == 0) return 0;
    if (pipe_->pages.empty()) return pipe_->hasWriter ? -EAGAIN : 0;
    const bool wasFull = pipe_->isFull();
    std::size_t used = 0;
    while (used < size && !pipe_->pages.empty()) {
      Pipe::Page& page = pipe_->pages.front();
      const std::size_t length = page.bytes.copy(static_cast<char*>(buffer) + used, size - used, page.taken);
      used += length;
      page.taken += length;
      if (page.taken == page.bytes.size()) pipe_->pages.pop_front();
    }
    if (wasFull) pipe_->forWriter.wake(POLLOUT | POLLWRNORM);
    return static_cast<ssize_t>(used);
  }

  ssize_t write(const void* /*data*/, std::size_t /*size*/) override { return -EBADF; }
  unsigned mode() const override { return S_IFIFO | 0600; }
  WaitQueue* waitQueue() override { return &pipe_->forReader; }

 private:
  std::shared_ptr<Pipe> pipe_;
};

class PipeWriter final : public File {
 public:
  PipeWriter(bool isBlocking, std::shared_ptr<Pipe> pipe) : File(isBlocking), pipe_(std::move(pipe)) {}
  ~PipeWriter() override { pipe_->endOfWriter(); }

  short state() const override {
    const int room = pipe_->isFull() ? 0 : POLLOUT | POLLWRNORM;
    return static_cast<short>(room | (pipe_->hasReader ? 0 : POLLERR));
  }

  ssize_t read(void* /*buffer*/, std::size_t /*size*/) override { return -EBADF; }

  // As pipe_write(): the end of it joins the last page if it fits there as a whole.
  ssize_t write(const void* data, std::size_t size) override {
    if (size == 0) return 0;
    if (!pipe_->hasReader) {
      std::raise(SIGPIPE);
      return -EPIPE;
    }
    const char* bytes = static_cast<const char*>(data);
    std::size_t used = 0;
    const std::size_t rest = size % Pipe::kPageSize;
    if (!pipe_->pages.empty() && pipe_->pages.back().bytes.size() + rest <= Pipe::kPageSize) {
      pipe_->pages.back().bytes.append(bytes, rest);
      used = rest;
    }
    while (used < size && !pipe_->isFull()) {
      const std::size_t length = std::min(size - used, Pipe::kPageSize);
      pipe_->pages.push_back({std::string(bytes + used, length), 0});
      used += length;
    }
    if (used == 0) return -EAGAIN;
    pipe_->forReader.wake(POLLIN | POLLRDNORM);
    return static_cast<ssize_t>(used);
  }

  unsigned mode() const override { return S_IFIFO | 0600; }
  WaitQueue* waitQueue() override { return &pipe_->forWriter; }

 private:
  std::shared_ptr<Pipe> pipe_;
};

}  // namespace

std::pair<std::shared_ptr<File>, std::shared_ptr<File>> makePipe(bool isBlocking) {
  auto pipe = std::make_shared<Pipe>();
  return {std::make_shared<PipeReader>(isBlocking, pipe), std::make_shared<PipeWriter>(isBlocking, pipe)};
}

}  // namespace quarlo::sim
