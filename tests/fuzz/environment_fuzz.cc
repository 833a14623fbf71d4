// The two variables of the environment: any texts, and the remote's timing with what the reader makes of them.
#include <cctype>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "input/linux_input_reader_limits.h"
#include "sim/machine.h"
#include "tests/fuzz/checked_reader.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/rules.h"

namespace quarlo::fuzz {
namespace {

using std::chrono::milliseconds;

constexpr char kSocket[] = "/run/lircd";

bool isSpace(char character) { return std::isspace(static_cast<unsigned char>(character)) != 0; }

bool isDigit(char character) { return character >= '0' && character <= '9'; }

// The timeout that a text stands for: its leading number if that is positive, up to the largest of 32 bits.
std::int32_t timeoutOf(const std::string& text, std::int32_t fallback) {
  std::size_t i = 0;
  while (i < text.size() && isSpace(text[i])) ++i;
  const bool negative = i < text.size() && text[i] == '-';
  if (negative || (i < text.size() && text[i] == '+')) ++i;
  std::int64_t value = 0;
  for (; i < text.size() && isDigit(text[i]); ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > INT32_MAX) value = INT32_MAX;
  }
  return value == 0 || negative ? fallback : static_cast<std::int32_t>(value);
}

// Up to the first NUL, which a variable cannot hold.
std::string takeVariable(InputBytes& input) {
  const std::string text = input.takeText();
  return text.substr(0, text.find('\0'));
}

void send(sim::LircDaemon& daemon, const char* button, InputBytes& input) {
  daemon.send(button, static_cast<unsigned>(input.takeBelow(3)));
}

void step(FreshMachine& machine, sim::LircDaemon& daemon, CheckedReader& reader, InputBytes& input) {
  switch (input.takeBelow(5)) {
    case 0: send(daemon, "KEY_OK", input); break;
    case 1: send(daemon, "KEY_UP", input); break;
    case 2: reader.readInput(input.take<std::int8_t>()); break;
    case 3: machine.advance(milliseconds(input.take<std::uint16_t>())); break;
    default: machine.jump(milliseconds(input.take<std::int32_t>()));
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::components::input;
  using namespace quarlo::fuzz;
  InputBytes input(data, size);
  FreshMachine machine;
  quarlo::sim::LircDaemon& daemon = machine.addLircDaemon(kSocket);
  const std::string repeat = takeVariable(input);
  const std::string release = takeVariable(input);
  machine.setEnvironment(kRepeatTimeoutVariable, repeat);
  machine.setEnvironment(kReleaseTimeoutVariable, release);

  CheckedReader reader(machine);
  require(reader.reader().lircRepeatTimeout == timeoutOf(repeat, kDefaultRepeatTimeoutMs),
          "the repeat timeout is the variable's");
  require(reader.reader().lircReleaseTimeout == timeoutOf(release, kDefaultReleaseTimeoutMs),
          "the release timeout is the variable's");
  reader.init("/dev/input/none", "/dev/input/none", kSocket, 1919, 1079);
  while (!input.isEmpty()) step(machine, daemon, reader, input);
  return 0;
}
