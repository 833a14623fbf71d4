// Nothing in the reader allocates, shown on real pipes and a real socket with every allocation of the process counted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "input/linux_input_reader.h"
#include "logging/logging.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

int allocations = 0;

}  // namespace

// These take the place of libc's own, for libc too.
extern "C" {
void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}
}

namespace quarlo {
namespace logging {

// Everything is wanted, and formatted to nowhere.
void LogMessage(const char* /*file*/, int /*line*/, int /*severity*/, const char* /*format*/, ...) {}
int GetMinLogLevel() { return kInfo; }
int GetVlogLevelHelper(const char* /*file*/, std::size_t /*size*/) { return 10; }

}  // namespace logging

namespace {

using components::input::LinuxInputReader;

class HeapTest : public testing::Test {
 protected:
  HeapTest() {
    EXPECT_NE(mkdtemp(folder_), nullptr);
    mouse = makeFifo("mouse");
    keyboard = makeFifo("keyboard");
    mouseEnd = openBoth(mouse);
    keyboardEnd = openBoth(keyboard);
    lirc = path("lircd");
    listener_ = listenOn(lirc);
  }

  ~HeapTest() override {
    for (const int fd : {mouseEnd, keyboardEnd, listener_}) close(fd);
    for (const std::string& file : {mouse, keyboard, lirc}) unlink(file.c_str());
    rmdir(folder_);
  }

  int acceptClient() const { return accept(listener_, nullptr, nullptr); }

  static void send(int fd, int type, int code, int value) {
    input_event record = {};
    record.type = static_cast<__u16>(type);
    record.code = static_cast<__u16>(code);
    record.value = value;
    ASSERT_EQ(write(fd, &record, sizeof record), static_cast<ssize_t>(sizeof record));
  }

  std::string mouse;
  std::string keyboard;
  std::string lirc;
  int mouseEnd = -1;
  int keyboardEnd = -1;

 private:
  std::string path(const char* name) const { return std::string(folder_) + "/" + name; }

  std::string makeFifo(const char* name) const {
    EXPECT_EQ(mkfifo(path(name).c_str(), 0600), 0);
    return path(name);
  }

  // Held open for both, the pipe neither blocks nor ends.
  static int openBoth(const std::string& fifo) { return open(fifo.c_str(), O_RDWR); }

  static int listenOn(const std::string& socketPath) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd, 1), 0);
    return fd;
  }

  char folder_[32] = "/tmp/quarlo-heap-XXXXXX";
  int listener_ = -1;
};

TEST_F(HeapTest, AWholeLifeAllocatesNothing) {
  allocations = 0;
  int events = 0;
  {
    LinuxInputReader reader;
    ASSERT_TRUE(reader.init(mouse.c_str(), keyboard.c_str(), lirc.c_str(), 1280, 720));
    const int client = acceptClient();
    ASSERT_GE(client, 0);
    for (const int code : {KEY_LEFTSHIFT, KEY_A, KEY_CAPSLOCK}) send(keyboardEnd, EV_KEY, code, 1);
    for (const int step : {5, -5}) send(mouseEnd, EV_REL, REL_X, step);
    send(mouseEnd, EV_KEY, BTN_LEFT, 1);
    send(mouseEnd, EV_SYN, SYN_REPORT, 0);
    const char lines[] = "0 00 KEY_OK remote\n";
    ASSERT_EQ(write(client, lines, sizeof lines - 1), static_cast<ssize_t>(sizeof lines - 1));

    LinuxInputReader::InputEvent event;
    while (reader.readInput(event, 10)) ++events;
    EXPECT_EQ(close(client), 0);
    EXPECT_FALSE(reader.readInput(event, 0));
  }
  EXPECT_EQ(events, 6);
  EXPECT_EQ(allocations, 0);
}

TEST_F(HeapTest, TheCounterCounts) {
  allocations = 0;
  std::string text(1000, 'x');
  EXPECT_GT(allocations, 0);
}

TEST_F(HeapTest, SearchingAndListingAllocateNothingOnceStandardOutputHasItsBuffer) {
  std::printf("Searching and listing what this machine has:\n");
  std::fflush(stdout);
  LinuxInputReader reader;
  allocations = 0;
  reader.init(nullptr, nullptr, nullptr, 1280, 720);
  reader.listLinuxInputReader();
  EXPECT_EQ(allocations, 0);
}

}  // namespace
}  // namespace quarlo
