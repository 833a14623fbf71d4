#include <poll.h>
#include <unistd.h>

#include <memory>

#include "bench/contestant.h"
#include "bench/opening.h"

namespace quarlo::bench {
namespace {

constexpr int kRecordsPerRead = 64;

// The line below the floor: waits, and reads only what is ready, many records at once. One record per read() is the
// component's contract, so it cannot come here.
class Batch final : public Contestant {
 public:
  explicit Batch(const Paths& paths)
      : sources_{{openNode(paths.keyboard), POLLIN, 0},
                 {openNode(paths.mouse), POLLIN, 0},
                 {connectTo(paths.remote), POLLIN, 0}} {}

  ~Batch() override {
    for (const pollfd& source : sources_) close(source.fd);
  }

  bool readInput(InputEvent& /*event*/, int timeoutMs) override {
    if (poll(sources_, 3, timeoutMs) <= 0) return false;
    for (const pollfd& source : sources_) {
      input_event records[kRecordsPerRead];
      if ((source.revents & POLLIN) != 0 && read(source.fd, records, sizeof records) < 0) return false;
    }
    return true;
  }

 private:
  pollfd sources_[3];
};

}  // namespace

std::unique_ptr<Contestant> openBatch(const Paths& paths) { return std::make_unique<Batch>(paths); }

}  // namespace quarlo::bench
