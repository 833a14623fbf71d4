// quarlo-input: the reader at work, for people and for scripts.

#include <cstdio>
#include <variant>

#include "tools/commands.h"
#include "tools/common/output.h"

namespace {

using namespace quarlo::tools;

int answer(const WrongUsage& usage) { return fail(usage.message, kUsage); }

int answer(const Information& information) {
  std::fputs(information.text.c_str(), stdout);
  return kDone;
}

int answer(const Run& run) { return run(); }

}  // namespace

int main(int argc, char** argv) {
  prepareOutput();
  const Request request = parseArguments(commands(), argc, argv);
  return finishOutput(std::visit([](const auto& asked) { return answer(asked); }, request));
}
