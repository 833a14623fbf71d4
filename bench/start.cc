// A program of one contestant, from its start to its first event: start_... MOUSE KEYBOARD REMOTE. Prints when the
// event came (ns of the monotonic clock), and its peak of memory (KB).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "bench/contestant.h"
#include "bench/fail.h"

namespace {

// The highest number that a line of the file with this label has.
long largest(const char* path, const char* label) {
  std::FILE* file = std::fopen(path, "r");
  if (file == nullptr) quarlo::bench::failWithErrno(path);
  char line[256];
  long most = 0;
  while (std::fgets(line, sizeof line, file) != nullptr) {
    const std::size_t length = std::strlen(label);
    if (std::strncmp(line, label, length) == 0) most = std::max(most, std::strtol(line + length, nullptr, 10));
  }
  std::fclose(file);
  return most;
}

// The kernel's record of the peak lags behind for a small program, but not its count of what is there now.
long peakKilobytes() {
  return std::max(largest("/proc/self/status", "VmHWM:"), largest("/proc/self/smaps_rollup", "Rss:"));
}

}  // namespace

int main(int argc, char** argv) {
  using namespace quarlo::bench;
  constexpr int kMostMs = 1000;
  if (argc != 4) return 2;
  const auto contestant = QUARLO_BENCH_OPEN({argv[1], argv[2], argv[3]});
  InputEvent event;
  // One that has other things to do first comes back without an event.
  for (int tries = 10; !contestant->readInput(event, kMostMs); --tries) {
    if (tries == 0) fail("No event came");
  }
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("%lld%09ld %ld\n", static_cast<long long>(now.tv_sec), now.tv_nsec, peakKilobytes());
  return 0;
}
