// What comes through the LIRC socket: any bytes, cut into reads anywhere, at any time.
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/machine.h"
#include "tests/fuzz/checked_reader.h"
#include "tests/fuzz/fresh_machine.h"
#include "tests/fuzz/input_bytes.h"

namespace quarlo::fuzz {
namespace {

using std::chrono::milliseconds;

constexpr char kSocket[] = "/run/lircd";
constexpr int kMostLines = 600;           // of a flood: twice as many as a daemon lets a client leave unread
constexpr std::size_t kLongestLine = 40;  // bytes, in a flood, so that it is soon read

void sendButton(sim::LircDaemon& daemon, InputBytes& input) {
  const std::string repeatCount = input.takeText();
  const std::string button = input.takeText();
  daemon.sendText("0000000000f40bf0 " + repeatCount + " KEY_" + button + " remote\n");
}

void flood(sim::LircDaemon& daemon, InputBytes& input) {
  const std::string text = input.takeText().substr(0, kLongestLine);
  const int count = input.take<std::uint16_t>() % kMostLines;
  for (int i = 0; i < count; ++i) daemon.sendText(text);
}

void step(FreshMachine& machine, sim::LircDaemon& daemon, CheckedReader& reader, InputBytes& input) {
  switch (input.takeBelow(10)) {
    case 0: daemon.sendText(input.takeText()); break;
    case 1: sendButton(daemon, input); break;
    case 2: reader.readInput(0); break;
    case 3: reader.readInput(input.take<std::uint8_t>()); break;
    case 4: machine.advance(milliseconds(input.take<std::uint16_t>())); break;
    case 5: machine.jump(milliseconds(input.take<std::int32_t>())); break;
    case 6: machine.truncateRead(1, input.take<std::uint8_t>()); break;
    case 7: machine.fail(sim::Call::kRead, 1, input.pick({EINTR, ECONNRESET, EBADF})); break;
    case 8: flood(daemon, input); break;
    default: daemon.hangUp();
  }
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  InputBytes input(data, size);
  FreshMachine machine;
  quarlo::sim::LircDaemon& daemon = machine.addLircDaemon(kSocket);
  CheckedReader reader(machine);
  reader.init("/dev/input/none", "/dev/input/none", kSocket, 1919, 1079);
  while (!input.isEmpty()) step(machine, daemon, reader, input);
  while (reader.readInput(0)) {
  }
  return 0;
}
