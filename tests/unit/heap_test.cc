// Nothing in the reader allocates, shown on real pipes and a real socket with every allocation of the process counted.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "input/linux_input_reader.h"
#include "logging/logging.h"
#include "tests/support/files.h"

// NOLINTBEGIN(bugprone-reserved-identifier): these are libc's names
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

int allocations = 0;

}  // namespace

// These take the place of libc's own, for libc too.
extern "C" {
void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t nmemb, std::size_t size) {
  ++allocations;
  return __libc_calloc(nmemb, size);
}
void* realloc(void* ptr, std::size_t size) {
  ++allocations;
  return __libc_realloc(ptr, size);
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
  HeapTest() : listener(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, lirc.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener, 1), 0);
  }

  ~HeapTest() override { close(listener); }

  test::Folder folder;
  std::string mousePath = folder.path("mouse");
  std::string keyboardPath = folder.path("keyboard");
  test::Fifo mouse{mousePath};
  test::Fifo keyboard{keyboardPath};
  std::string lirc = folder.path("lircd");
  int listener;
};

TEST_F(HeapTest, AWholeLifeAllocatesNothing) {
  allocations = 0;
  int events = 0;
  {
    LinuxInputReader reader;
    ASSERT_TRUE(reader.init(mousePath.c_str(), keyboardPath.c_str(), lirc.c_str(), 1280, 720));
    const int client = accept(listener, nullptr, nullptr);
    ASSERT_GE(client, 0);
    keyboard.send({{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_A, 1}, {EV_KEY, KEY_CAPSLOCK, 1}});
    mouse.send({{EV_REL, REL_X, 5}, {EV_REL, REL_X, -5}, {EV_KEY, BTN_LEFT, 1}});
    const char line[] = "0 00 KEY_OK remote\n";
    ASSERT_EQ(write(client, line, sizeof line - 1), static_cast<ssize_t>(sizeof line - 1));

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
