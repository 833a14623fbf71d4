// An application: types what a keyboard types. Its arguments are the mouse, the keyboard and the LIRC daemon's socket.
#include <cstdio>
#include <cstring>

#include "input/linux_input_reader_limits.h"
#include "typed_text.h"

int main(int argc, char** argv) {
  if (argc != 4 || std::strlen(argv[3]) > quarlo::components::input::kLongestLircPath) return 2;
  quarlo::components::input::LinuxInputReader reader;
  if (!reader.init(argv[1], argv[2], argv[3], 1919, 1079)) {
    std::printf("no input device\n");
    return 1;
  }
  quarlo::components::input::InputLoop loop(reader);
  for (;;) {
    std::fputs(typedText(loop).c_str(), stdout);
    std::fflush(stdout);
  }
}
