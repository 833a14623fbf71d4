// The loop of an application that draws 60 times a second and takes input as it comes. The display paces it: a timer
// stands for the descriptor on which a display announces that the next frame is due.
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

#include "examples/application.h"
#include "input/input_loop.h"

namespace example {

constexpr long kFrameNs = 16'666'667;

// A descriptor that becomes readable at each frame.
int makeDisplay() {
  const int display = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  const itimerspec eachFrame = {{0, kFrameNs}, {0, kFrameNs}};
  timerfd_settime(display, 0, &eachFrame, nullptr);
  return display;
}

void run(InputLoop& loop, Application& application, int display) {
  while (!application.isOver()) {
    const InputLoop::Wake wake = loop.wait(-1, display);
    InputEvent event;
    while (loop.next(event)) application.handle(event);
    application.lose(wake.gone);
    // However much comes, next() has returned false after some milliseconds, and what is left comes in the next round.
    if (!wake.ownFd) continue;
    std::uint64_t frames;
    if (read(display, &frames, sizeof frames) > 0) application.draw();
  }
}

}  // namespace example

int main(int argc, char** argv) {
  example::LinuxInputReader reader;
  if (!example::open(reader, argc, argv)) return 1;
  example::InputLoop loop(reader);
  example::Application application(reader);
  const int display = example::makeDisplay();
  example::run(loop, application, display);
  close(display);
  return application.end();
}
