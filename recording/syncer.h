// Puts files on the disk while the program goes on: a disk can take seconds for that.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quarlo::recording {

class Syncer {
 public:
  // fsync(), or what stands for it.
  using Sync = int (*)(int fd);

  // Lets the disk rest until `pause` after the last start. Throws Error if there cannot be another thread.
  Syncer(std::chrono::microseconds pause, Sync sync);

  // Does finish().
  ~Syncer();
  Syncer(const Syncer&) = delete;
  Syncer& operator=(const Syncer&) = delete;

  // Asks for what is in a file, or directory, when start() is called. The caller may close the descriptor. Of a path of
  // which something went wrong, nothing is done any more.
  void want(int fd, const std::string& path);

  // Begins with what was asked for, as soon as the disk has had its rest. Returns at once.
  void start();

  // Makes that wait for the next start(), so that the disk does not hold up who writes until then. Returns false if it
  // is busy already.
  bool holdOff();

  // Whether all is on the disk that was asked for, and takeProblem() has nothing to tell.
  bool isDone();

  // Returns when all is on the disk that was asked for. Nothing must be asked for afterwards.
  void finish();

  // What went wrong first since the last call, for a person. Empty if nothing did.
  std::string takeProblem();

 private:
  struct File {
    std::string path;
    int fd;
  };

  void run();
  void syncAll(const std::vector<File>& files);
  void fail(const std::string& path, int error);
  void closeDone();

  const std::chrono::microseconds pause_;
  const Sync sync_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<File> wanted_;  // each path once
  bool isStarted_ = false;    // with what is wanted
  bool isBusy_ = false;
  std::vector<int> done_;            // descriptors to be closed
  std::vector<std::string> failed_;  // paths
  std::string problem_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace quarlo::recording
