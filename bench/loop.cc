#include <memory>

#include "bench/contestant.h"
#include "bench/fail.h"
#include "input/input_loop.h"
#include "logging/stderr_logging.h"

namespace quarlo::bench {
namespace {

using components::input::InputLoop;

class Loop final : public Contestant {
 public:
  explicit Loop(const Paths& paths) {
    logging::SetMinLogLevel(logging::kError);
    if (!reader_.init(paths.mouse.c_str(), paths.keyboard.c_str(), paths.remote.c_str(), kMaxX, kMaxY)) {
      fail("The reader could open no source");
    }
  }

  bool readInput(InputEvent& event, int timeoutMs) override {
    if (!isDraining_) loop_.wait(timeoutMs);
    isDraining_ = loop_.next(event);
    return isDraining_;
  }

 private:
  LinuxInputReader reader_;
  InputLoop loop_{reader_};
  bool isDraining_ = false;
};

}  // namespace

std::unique_ptr<Contestant> openLoop(const Paths& paths) { return std::make_unique<Loop>(paths); }

}  // namespace quarlo::bench
