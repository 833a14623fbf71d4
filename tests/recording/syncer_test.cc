// What a session's writer puts on the disk, and when.
#include "recording/syncer.h"

#include <linux/input.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "recording/writer.h"
#include "tests/recording/recording_test.h"

namespace quarlo::recording {
namespace {

using namespace std::chrono_literals;

// The disk of a test: it can be slow, or broken.
class Disk {
 public:
  Disk() { the_ = this; }
  ~Disk() { the_ = nullptr; }
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;

  static int sync(int fd) { return the_->take(fd); }

  // It takes nothing until release().
  void hold() { held_.lock(); }
  void release() { held_.unlock(); }

  void waitUntilItIsAsked() {
    while (!isAsked_) std::this_thread::yield();
  }

  // It takes no files, but directories.
  void setError(int error) {
    const std::lock_guard lock(mutex_);
    error_ = error;
  }

  // It does not take this one.
  void refuse(const std::string& path) {
    const std::lock_guard lock(mutex_);
    refused_ = statusOf(path).st_ino;
  }

  // How much of a file, or directory, is on it. -1: not even its name, as far as that was asked for.
  std::int64_t sizeOf(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto found = sizes_.find(statusOf(path).st_ino);
    return found == sizes_.end() ? -1 : found->second;
  }

  void waitForSize(const std::string& path, std::size_t size) {
    while (sizeOf(path) != static_cast<std::int64_t>(size)) std::this_thread::yield();
  }

  // How often a file, or directory, was put on it.
  int writingsOf(const std::string& path) {
    const std::lock_guard lock(mutex_);
    return writings_[statusOf(path).st_ino];
  }

  bool hasSignalsBlocked() {
    const std::lock_guard lock(mutex_);
    return signalsAreBlocked_;
  }

 private:
  static struct stat statusOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
  }

  int take(int fd) {
    isAsked_ = true;
    const std::lock_guard wait(held_);
    const std::lock_guard lock(mutex_);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    signalsAreBlocked_ = sigismember(&blocked, SIGINT) == 1 && sigismember(&blocked, SIGTERM) == 1;
    struct stat status = {};
    EXPECT_EQ(fstat(fd, &status), 0);
    errno = status.st_ino == refused_ ? EIO : error_;
    if (status.st_ino == refused_ || (error_ != 0 && S_ISREG(status.st_mode))) return -1;
    sizes_[status.st_ino] = status.st_size;
    ++writings_[status.st_ino];
    return 0;
  }

  static Disk* the_;
  std::mutex held_;
  std::mutex mutex_;
  std::atomic<bool> isAsked_ = false;
  int error_ = 0;
  ino_t refused_ = 0;
  std::map<ino_t, std::int64_t> sizes_;
  std::map<ino_t, int> writings_;
  bool signalsAreBlocked_ = false;
};

Disk* Disk::the_ = nullptr;

class SyncerTest : public FolderTest {
 protected:
  WriterOptions options(bool rotates = false) const {
    WriterOptions options;
    options.sync = Disk::sync;
    options.rotates = rotates;
    options.mostLines = 4;
    return options;
  }

  std::string content(const std::string& file) const {
    std::ostringstream text;
    text << std::ifstream(folder_ + "/" + file).rdbuf();
    return text.str();
  }

  SessionWriter writer(const WriterOptions& options) const {
    return {folder_, "comment", Access::kByUmask, {}, options};
  }

  // Until it is done.
  static void flush(SessionWriter& session) {
    do {
      session.flush();
    } while (session.isHeldUp());
  }

  // Makes an empty file, and wants it. Returns its path.
  std::string wantFile(Syncer& syncer, const std::string& name) const {
    const std::shared_ptr<std::FILE> file(std::fopen(write(name, "").c_str(), "re"), std::fclose);
    syncer.want(fileno(file.get()), path(name));
    return path(name);
  }

  Disk disk_;
  std::string folder_ = path("session");
  std::string file_ = folder_ + "/remote.lirc";
};

const std::string kHead = "# quarlo-input session 2\n# comment\n";
const std::string kLine = "0.000000 a\n";

TEST_F(SyncerTest, TheDirectoriesAreOnTheDiskBeforeAnythingComes) {
  SessionWriter session = writer(options());
  while (disk_.sizeOf(path()) == -1 || disk_.sizeOf(folder_) == -1) std::this_thread::yield();
}

TEST_F(SyncerTest, TheNameOfEachPartIsOnTheDiskAtTheEnd) {
  SessionWriter session = writer(options(true));
  while (!session.isOnDisk()) std::this_thread::yield();
  EXPECT_EQ(disk_.writingsOf(folder_), 1);
  FileWriter& remote = session.addRemote();
  for (int part = 1; part <= 2; ++part) {
    for (int i = 0; i < 2; ++i) remote.write(RemoteLine{0us, "a"});
    flush(session);
    while (!session.isOnDisk()) std::this_thread::yield();
    EXPECT_EQ(disk_.writingsOf(folder_), 1 + part);
  }
}

TEST_F(SyncerTest, WhatCameIsOnTheDiskWithoutAnEnd) {
  SessionWriter session = writer(options());
  FileWriter& remote = session.addRemote();
  std::string written = kHead;
  for (int i = 0; i < 2; ++i) {
    remote.write(RemoteLine{0us, "a"});
    flush(session);
    written += kLine;
    disk_.waitForSize(file_, written.size());
  }
}

TEST_F(SyncerTest, TheDiskRestsUntilTheEnd) {
  WriterOptions rare = options();
  rare.pause = 1h;
  SessionWriter session = writer(rare);
  while (disk_.sizeOf(folder_) == -1) std::this_thread::yield();
  session.addRemote().write(RemoteLine{0us, "a"});
  flush(session);
  EXPECT_EQ(disk_.sizeOf(file_), -1);
  session.close();
  EXPECT_EQ(disk_.sizeOf(file_), static_cast<std::int64_t>((kHead + kLine).size()));
}

TEST_F(SyncerTest, WhatCameLastIsOnTheDiskAtTheEnd) {
  SessionWriter session = writer(options());
  FileWriter& remote = session.addRemote();
  remote.write(RemoteLine{0us, "a"});
  flush(session);
  remote.write(RemoteLine{0us, "a"});
  session.close();
  EXPECT_EQ(disk_.sizeOf(file_), static_cast<std::int64_t>((kHead + kLine + kLine).size()));
}

TEST_F(SyncerTest, EachPartIsOnTheDiskAtTheEnd) {
  SessionWriter session = writer(options(true));
  FileWriter& remote = session.addRemote();
  for (int i = 0; i < 3; ++i) remote.write(RemoteLine{0us, "a"});
  session.close();
  EXPECT_EQ(disk_.sizeOf(file_), static_cast<std::int64_t>((kHead + kLine + kLine).size()));
  EXPECT_EQ(disk_.sizeOf(folder_ + "/remote.0002.lirc"), static_cast<std::int64_t>((kHead + kLine).size()));
}

// The kernel's queue of a node would overflow meanwhile.
TEST_F(SyncerTest, NothingWaitsForASlowDisk) {
  disk_.hold();
  SessionWriter session = writer(options());
  disk_.waitUntilItIsAsked();
  FileWriter& remote = session.addRemote();
  for (int i = 0; i < 2; ++i) {
    remote.write(RemoteLine{0us, "a"});
    session.flush();
    EXPECT_TRUE(session.isHeldUp());
  }
  EXPECT_FALSE(std::filesystem::exists(file_));
  disk_.release();
  flush(session);
  EXPECT_EQ(content("remote.lirc"), kHead + kLine + kLine);
  EXPECT_FALSE(session.isHeldUp());
}

TEST_F(SyncerTest, NothingIsHeldUpThatHasNotCome) {
  disk_.hold();
  SessionWriter session = writer(options());
  EXPECT_FALSE(session.isHeldUp());
  disk_.waitUntilItIsAsked();
  session.addRemote();
  session.flush();
  EXPECT_FALSE(session.isHeldUp());
  disk_.release();
}

TEST_F(SyncerTest, NothingIsOnTheDiskBeforeThatHasTakenIt) {
  SessionWriter session = writer(options());
  FileWriter& remote = session.addRemote();
  while (!session.isOnDisk()) std::this_thread::yield();
  disk_.hold();
  remote.write(RemoteLine{0us, "a"});
  flush(session);
  EXPECT_FALSE(session.isOnDisk());
  disk_.release();
  while (!session.isOnDisk()) std::this_thread::yield();
  EXPECT_EQ(disk_.sizeOf(file_), static_cast<std::int64_t>((kHead + kLine).size()));
}

TEST_F(SyncerTest, NothingIsOnTheDiskUntilItIsToldThatThatFailed) {
  disk_.setError(EIO);
  SessionWriter session = writer(options());
  FileWriter& remote = session.addRemote();
  while (!session.isOnDisk()) std::this_thread::yield();
  remote.write(RemoteLine{0us, "a"});
  flush(session);
  while (errorOf([&] { session.flush(); }).empty()) ASSERT_FALSE(session.isOnDisk());
  EXPECT_TRUE(session.isOnDisk());
}

TEST_F(SyncerTest, MemoryIsNotFilledForASlowDisk) {
  disk_.hold();
  WriterOptions limited = options();
  limited.mostHeldUp = kHead.size() + kLine.size();
  SessionWriter session = writer(limited);
  disk_.waitUntilItIsAsked();
  FileWriter& remote = session.addRemote();
  remote.write(RemoteLine{0us, "a"});
  session.flush();
  EXPECT_TRUE(session.isHeldUp());
  remote.write(RemoteLine{0us, "a"});
  session.flush();
  EXPECT_FALSE(session.isHeldUp());
  EXPECT_EQ(content("remote.lirc"), kHead + kLine + kLine);
  disk_.release();
}

TEST_F(SyncerTest, ADiskThatFailsEndsTheRecording) {
  for (const int error : {EIO, ENOSPC}) {
    std::filesystem::remove_all(folder_);
    disk_.setError(error);
    SessionWriter session = writer(options());
    FileWriter& remote = session.addRemote();
    remote.write(RemoteLine{0us, "a"});
    std::string problem;
    while (problem.empty()) problem = errorOf([&] { session.flush(); });
    EXPECT_EQ(problem, file_ + ": " + std::strerror(error) +
                           ": the recording ends here, and what came last may not be on the disk");
    EXPECT_EQ(errorOf([&] { session.close(); }), "");  // it was said
  }
}

TEST_F(SyncerTest, WhatIsKeptOfAFileIsOnTheDisk) {
  SessionWriter session = writer(options());
  FileWriter& remote = session.addRemote();
  remote.write(RemoteLine{0us, "a"});
  flush(session);
  while (!session.isOnDisk()) std::this_thread::yield();
  const int before = disk_.writingsOf(file_);
  remote.write(RemoteLine{0us, "a"});
  {
    const FileSizeLimit limit((kHead + kLine).size() + 1);
    EXPECT_NE(errorOf([&] { flush(session); }), "");
  }
  session.close();
  EXPECT_EQ(disk_.sizeOf(file_), static_cast<std::int64_t>((kHead + kLine).size()));
  EXPECT_EQ(disk_.writingsOf(file_), before + 1);
}

TEST_F(SyncerTest, AFileForWhichThereIsNoDescriptorEndsTheRecording) {
  WriterOptions atOnce = options();
  atOnce.pause = 0ms;
  SessionWriter session = writer(atOnce);
  FileWriter& remote = session.addRemote();
  remote.write(RemoteLine{0us, "a"});
  flush(session);
  disk_.waitForSize(file_, (kHead + kLine).size());
  remote.write(RemoteLine{0us, "a"});
  std::string problem;
  while (problem.empty()) {
    problem = errorOf([&] {
      const NoFurtherDescriptors limit;
      session.flush();
    });
  }
  EXPECT_EQ(problem, file_ + ": " + std::strerror(EMFILE) +
                         ": the recording ends here, and what came last may not be on the disk");
}

TEST_F(SyncerTest, ADirectoryThatDoesNotGetToTheDiskEndsTheRecordingToo) {
  disk_.refuse(path());
  SessionWriter session = writer(options());
  std::string problem;
  while (problem.empty()) problem = errorOf([&] { session.flush(); });
  EXPECT_EQ(problem.rfind(folder_ + "/..: Input/output error: ", 0), 0U) << problem;
}

TEST_F(SyncerTest, ADiskThatWasAskedForNothingIsNotBusy) {
  Syncer syncer(0us, Disk::sync);
  EXPECT_TRUE(syncer.holdOff());
}

TEST_F(SyncerTest, OfTwoFilesThatFailTheFirstIsTheProblem) {
  disk_.setError(EIO);
  Syncer syncer(0us, Disk::sync);
  for (const std::string name : {"one", "two"}) wantFile(syncer, name);
  syncer.finish();
  EXPECT_EQ(syncer.takeProblem().rfind(path("one: "), 0), 0U);
}

TEST_F(SyncerTest, AFileThatFailedIsNotTriedAgain) {
  disk_.setError(EIO);
  Syncer syncer(0us, Disk::sync);
  wantFile(syncer, "file");
  syncer.start();
  while (syncer.takeProblem().empty()) std::this_thread::yield();
  wantFile(syncer, "file");
  syncer.finish();
  EXPECT_EQ(syncer.takeProblem(), "");
}

TEST_F(SyncerTest, WhatIsHeldOffWaitsForTheNextStart) {
  constexpr auto kPause = 10ms;
  Syncer syncer(kPause, Disk::sync);
  std::string file;
  int count = 0;
  do {
    file = wantFile(syncer, "file" + std::to_string(++count));
    syncer.start();
  } while (!syncer.holdOff() || disk_.sizeOf(file) != -1);
  Syncer other(kPause, Disk::sync);
  for (const std::string name : {"one", "two", "three"}) {
    wantFile(other, name);
    other.start();
    disk_.waitForSize(path(name), 0);
  }
  EXPECT_EQ(disk_.sizeOf(file), -1);
  syncer.finish();
  EXPECT_EQ(disk_.sizeOf(file), 0);
}

TEST_F(SyncerTest, DescriptorsAreClosedWithTheNextFile) {
  Syncer syncer(0us, Disk::sync);
  const auto before = openDescriptors();
  for (const std::string name : {"one", "two", "three"}) {
    wantFile(syncer, name);
    EXPECT_EQ(openDescriptors(), before + 1);
    syncer.start();
    while (!syncer.isDone()) std::this_thread::yield();
  }
}

TEST_F(SyncerTest, ADiskThatFailsAtTheEndIsAProblemToo) {
  SessionWriter session = writer(options());
  disk_.setError(EIO);
  session.addRemote().write(RemoteLine{0us, "a"});
  EXPECT_NE(errorOf([&] { session.close(); }).find("remote.lirc: Input/output error"), std::string::npos);
  EXPECT_EQ(content("remote.lirc"), kHead + kLine);
}

TEST_F(SyncerTest, AFileSystemThatCannotDoItIsNoProblem) {
  disk_.setError(EINVAL);
  SessionWriter session = writer(options());
  session.addRemote().write(RemoteLine{0us, "a"});
  EXPECT_EQ(errorOf([&] { session.close(); }), "");
}

TEST_F(SyncerTest, SignalsAreLeftToTheProgram) {
  writer(options()).close();
  EXPECT_TRUE(disk_.hasSignalsBlocked());
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  EXPECT_EQ(sigismember(&blocked, SIGINT), 0);
}

TEST_F(SyncerTest, ClosesEachDescriptor) {
  const auto before = openDescriptors();
  {
    SessionWriter session = writer(options());
    session.addRemote().write(RemoteLine{0us, "a"});
    session.close();
  }
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace quarlo::recording
