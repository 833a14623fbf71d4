// This takes the place of libc's read(), for the component too.
#include "bench/tapped_read.h"

#include <linux/input.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

namespace {

bool isTapping = false;
quarlo::bench::Tapped tapped = {};
int lastNumber = 0;
bool isGapExplained = false;

void tap(const input_event& record) {
  if (record.type == EV_SYN && record.code == SYN_DROPPED) {
    ++tapped.dropped;
    isGapExplained = true;
  } else if (record.type == EV_REL && record.code == REL_X) {
    ++tapped.steps;
  } else if (record.type == EV_REL && record.code == REL_Y) {
    if (record.value != lastNumber + 1 && !isGapExplained) ++tapped.unexplained;
    lastNumber = record.value;
    isGapExplained = false;
  }
}

}  // namespace

extern "C" ssize_t read(int fd, void* buf, size_t nbytes) {
  const ssize_t taken = syscall(SYS_read, fd, buf, nbytes);
  if (isTapping && taken > 0) {
    const auto* records = static_cast<const input_event*>(buf);
    for (std::size_t i = 0; i < static_cast<std::size_t>(taken) / sizeof *records; ++i) tap(records[i]);
  }
  return taken;
}

namespace quarlo::bench {

void startTapping() {
  tapped = {};
  lastNumber = 0;
  isGapExplained = false;
  isTapping = true;
}

Tapped stopTapping() {
  isTapping = false;
  return tapped;
}

}  // namespace quarlo::bench
