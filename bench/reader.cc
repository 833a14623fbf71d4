#include <memory>

#include "bench/contestant.h"
#include "bench/fail.h"
#include "logging/stderr_logging.h"

namespace quarlo::bench {
namespace {

class Reader final : public Contestant {
 public:
  explicit Reader(const Paths& paths) {
    logging::SetMinLogLevel(logging::kError);
    if (!reader_.init(paths.mouse.c_str(), paths.keyboard.c_str(), paths.remote.c_str(), kMaxX, kMaxY)) {
      fail("The reader could open no source");
    }
  }

  bool readInput(InputEvent& event, int timeoutMs) override { return reader_.readInput(event, timeoutMs); }

 private:
  LinuxInputReader reader_;
};

}  // namespace

std::unique_ptr<Contestant> openReader(const Paths& paths) { return std::make_unique<Reader>(paths); }

}  // namespace quarlo::bench
