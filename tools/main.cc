// quarlo-input: the reader at work, for people and for scripts.

#include <cstdio>
#include <variant>

#include "tools/arguments.h"
#include "tools/common/output.h"

namespace {

using namespace quarlo::tools;

int run(const UsageError& error) { return fail(error.message + " (see quarlo-input --help)", kUsage); }

int run(const Information& information) {
  std::fputs(information.text.c_str(), stdout);
  return kDone;
}

int run(const MonitorOptions& options) { return monitor(options); }
int run(const ListOptions& options) { return list(options); }
int run(const KeymapOptions& options) { return keymap(options); }
int run(const RecordOptions& options) { return record(options); }
int run(const ReplayOptions& options) { return replay(options); }
int run(const TuneOptions& options) { return tune(options); }

}  // namespace

int main(int argc, char** argv) {
  prepareOutput();
  return finishOutput(std::visit([](const auto& request) { return run(request); }, parseArguments(argc, argv)));
}
