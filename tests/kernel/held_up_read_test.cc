// A read of a node that is held up in its middle, here by a page of its buffer that is not there yet. Between one
// record and the next the kernel takes in what the device sends, so its queue can run over meanwhile.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <linux/userfaultfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <thread>
#include <utility>

#include "input/input_loop.h"
#include "input/input_sources.h"
#include "tests/scenario/uinput.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using components::input::InputLoop;
using components::input::InputSources;
using msg::KeyInput;

// Without auto-repeat: nothing comes by itself while a key is held.
Description plainKeyboard() {
  Description device = keyboard();
  device.codes.erase(EV_REP);
  return device;
}

// Two pages, of which the second one can be taken away, with what is in it, until somebody writes to it.
class LatePage {
 public:
  LatePage() { EXPECT_GE(faults_, 0); }
  ~LatePage() {
    bringer_.join();
    close(faults_);
    munmap(pages_, 2 * size_);
  }
  LatePage(const LatePage&) = delete;
  LatePage& operator=(const LatePage&) = delete;

  char* get() const { return pages_ + size_; }

  // From now on it is not there. When somebody writes to it, `happening` comes first.
  void takeAway(std::function<void()> happening) {
    EXPECT_EQ(madvise(get(), size_, MADV_DONTNEED), 0);
    uffdio_api api = {};
    api.api = UFFD_API;
    EXPECT_EQ(ioctl(faults_, UFFDIO_API, &api), 0);
    uffdio_register late = {};
    late.range = range();
    late.mode = UFFDIO_REGISTER_MODE_MISSING;
    EXPECT_EQ(ioctl(faults_, UFFDIO_REGISTER, &late), 0);
    bringer_ = std::thread([this, happening = std::move(happening)] {
      uffd_msg fault;
      EXPECT_EQ(read(faults_, &fault, sizeof fault), static_cast<ssize_t>(sizeof fault));
      happening();
      uffdio_zeropage page = {};
      page.range = range();
      EXPECT_EQ(ioctl(faults_, UFFDIO_ZEROPAGE, &page), 0);
    });
  }

 private:
  uffdio_range range() const { return {reinterpret_cast<std::uintptr_t>(get()), size_}; }

  const std::size_t size_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  int faults_ = static_cast<int>(syscall(SYS_userfaultfd, O_CLOEXEC));
  char* pages_ =
      static_cast<char*>(mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  std::thread bringer_;
};

TEST(HeldUpReadTest, SynDroppedCanComeInItsMiddle) {
  constexpr int kBefore = 10;  // records that come before the page
  constexpr int kRoom = 64;
  UinputDevice device(keyboard());
  const int node = open(device.path().c_str(), O_RDONLY | O_NONBLOCK);
  for (int i = 0; i < 15; ++i) device.tap(KEY_A);  // 60 records, of which the read takes 11

  LatePage page;
  page.takeAway([&device] {
    for (int i = 0; i < 4; ++i) device.tap(KEY_B);  // 16 records, two more than there is room for
  });
  auto* const records = reinterpret_cast<input_event*>(page.get()) - kBefore;
  const ssize_t size = read(node, records, kRoom * sizeof(input_event));
  const auto count = size / static_cast<ssize_t>(sizeof(input_event));
  int place = 0;
  while (place < count && (records[place].type != EV_SYN || records[place].code != SYN_DROPPED)) ++place;
  EXPECT_EQ(place, kBefore + 1);
  EXPECT_EQ(count, kBefore + 4);  // behind it, the release of B and its SYN_REPORT
  close(node);
}

// The same with InputSources, of a further node whose queue lies across the boundary.
TEST(HeldUpReadTest, InputSourcesAsksWhatIsDownAllTheSame) {
  resetLog();
  UinputDevice device(plainKeyboard());
  LatePage page;
  constexpr std::size_t kBehind = 20 * sizeof(input_event);
  char* const place = page.get() + kBehind - sizeof(InputSources::FurtherNode);
  auto* const node = new (place) InputSources::FurtherNode;
  {
    LinuxInputReader reader;
    InputLoop loop(reader);
    InputSources sources(loop);
    EXPECT_TRUE(sources.join(*node));
    EXPECT_TRUE(sources.open(node->source(), device.path().c_str()));
    const auto round = [&] {
      loop.wait(sources.attend(0));
      Lines events;
      for (InputEvent event; loop.next(event);) events.push_back(text(event));
      return events;
    };
    device.press(KEY_LEFTSHIFT);
    EXPECT_EQ(round(), Lines({keyDown(16, 0, KeyInput::kShiftModifier)}));
    for (int i = 0; i < 15; ++i) device.tap(KEY_A);  // 60 records, of which the read takes 45
    page.takeAway([&device] {
      device.release(KEY_LEFTSHIFT);
      for (int i = 0; i < 12; ++i) device.tap(KEY_B);
    });
    round();
    // Of A, the release was lost, too.
    EXPECT_EQ(round(), Lines({keyUp(65, 'A', KeyInput::kShiftModifier), keyUp(16)}));
    EXPECT_FALSE(sources.isDown(node->source(), KEY_LEFTSHIFT));
    EXPECT_EQ(reader.modifiers, 0U);
  }
  node->~FurtherNode();
}

}  // namespace
}  // namespace quarlo::test
