// An application has 64-bit time if the library has, and both have the same reader.
#include <cstdlib>
#include <ctime>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"

static_assert(sizeof(std::time_t) == 8, "in 2038, the clock ends");

int main() {
  setenv(quarlo::components::input::kReleaseTimeoutVariable, "123", 1);
  const quarlo::components::input::LinuxInputReader reader;
  return reader.lircReleaseTimeout == 123 ? 0 : 1;  // a member behind a timeval
}
