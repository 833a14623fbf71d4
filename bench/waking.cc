#include <poll.h>

#include <memory>

#include "bench/contestant.h"
#include "bench/fail.h"
#include "logging/stderr_logging.h"

namespace quarlo::bench {
namespace {

// While a button of the remote is held, readInput() must be called now and then: only it can forget the button.
constexpr int kRemoteStepMs = 10;

class Waking final : public Contestant {
 public:
  explicit Waking(const Paths& paths) {
    logging::SetMinLogLevel(logging::kError);
    if (!reader_.init(paths.mouse.c_str(), paths.keyboard.c_str(), paths.remote.c_str(), kMaxX, kMaxY)) {
      fail("The reader could open no source");
    }
  }

  bool readInput(InputEvent& event, int timeoutMs) override {
    if (!isDraining_) wait(timeoutMs);
    isDraining_ = reader_.readInput(event, 0);
    return isDraining_;
  }

 private:
  void wait(int timeoutMs) const {
    pollfd sources[] = {{reader_.keyboardFd, POLLIN, 0}, {reader_.mouseFd, POLLIN, 0}, {reader_.lircFd, POLLIN, 0}};
    poll(sources, 3, reader_.lircKey == 0 ? timeoutMs : kRemoteStepMs);
  }

  LinuxInputReader reader_;
  bool isDraining_ = false;
};

}  // namespace

std::unique_ptr<Contestant> openWaking(const Paths& paths) { return std::make_unique<Waking>(paths); }

}  // namespace quarlo::bench
