#include "recording/syncer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "recording/session.h"

namespace quarlo::recording {
namespace {

// As long as it lives, this thread and those that it starts get no signal.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t before_;
};

// A thread that gets no signal: those are for the program's own.
template <typename Action>
std::thread startThread(Action action) {
  const NoSignals block;
  try {
    return std::thread(action);
  } catch (const std::system_error& error) {
    throw Error(std::string("a thread that waits for the disk cannot be started: ") + error.what());
  }
}

}  // namespace

Syncer::Syncer(std::chrono::microseconds pause, Sync sync)
    : pause_(pause), sync_(sync), thread_(startThread([this] { run(); })) {}

Syncer::~Syncer() { finish(); }

void Syncer::want(int fd, const std::string& path) {
  const std::lock_guard lock(mutex_);
  closeDone();
  if (std::find(failed_.begin(), failed_.end(), path) != failed_.end()) return;
  if (std::any_of(wanted_.begin(), wanted_.end(), [&](const File& file) { return file.path == path; })) return;
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy == -1) return fail(path, errno);
  wanted_.push_back({path, copy});
}

void Syncer::start() {
  const std::lock_guard lock(mutex_);
  isStarted_ = !wanted_.empty();
  changed_.notify_all();
}

bool Syncer::holdOff() {
  const std::lock_guard lock(mutex_);
  isStarted_ = isStarted_ && isBusy_;
  return !isBusy_;
}

bool Syncer::isDone() {
  const std::lock_guard lock(mutex_);
  return wanted_.empty() && !isBusy_ && problem_.empty();
}

void Syncer::finish() {
  if (!thread_.joinable()) return;
  start();
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    changed_.notify_all();
  }
  thread_.join();
  closeDone();
}

std::string Syncer::takeProblem() {
  const std::lock_guard lock(mutex_);
  std::string problem;
  problem.swap(problem_);
  return problem;
}

void Syncer::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return isStarted_ || isEnding_; });
    if (!isStarted_) return;
    const auto next = std::chrono::steady_clock::now() + pause_;
    std::vector<File> files;
    files.swap(wanted_);
    isStarted_ = false;
    isBusy_ = true;
    lock.unlock();
    syncAll(files);
    lock.lock();
    isBusy_ = false;
    changed_.wait_until(lock, next, [this] { return isEnding_; });
  }
}

// A file system that knows nothing of this answers EINVAL, and can do no more.
void Syncer::syncAll(const std::vector<File>& files) {
  for (const File& file : files) {
    const int error = sync_(file.fd) == 0 ? 0 : errno;
    const std::lock_guard lock(mutex_);
    done_.push_back(file.fd);
    if (error != 0 && error != EINVAL) fail(file.path, error);
  }
}

// The thread itself calls nothing but sync_().
void Syncer::closeDone() {
  for (const int fd : done_) close(fd);
  done_.clear();
}

void Syncer::fail(const std::string& path, int error) {
  failed_.push_back(path);
  if (!problem_.empty()) return;
  problem_ =
      path + ": " + std::strerror(error) + ": the recording ends here, and what came last may not be on the disk";
}

}  // namespace quarlo::recording
