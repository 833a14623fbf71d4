// The loop of a box that knows its devices' paths, whose devices and daemon come and go while it runs, and whose second
// remote is decoded by the kernel: lasting_loop MOUSE KEYBOARD SOCKET RECEIVER
#include <cstdio>

#include "examples/application.h"
#include "input/input_loop.h"
#include "input/input_sources.h"

namespace example {

using quarlo::components::input::InputSources;

constexpr unsigned kEveryMs = 1000;

struct Paths {
  const char* mouse;
  const char* keyboard;
  const char* socket;
  const char* receiver;
};

class LastingLoop {
 public:
  int run(const Paths& paths) {
    reader_.init(paths.mouse, paths.keyboard, paths.socket, 1919, 1079);  // what is not there yet may come later
    sources_.keepOpen(InputLoop::kMouse, paths.mouse, kEveryMs);
    sources_.keepOpen(InputLoop::kKeyboard, paths.keyboard, kEveryMs);
    sources_.keepOpen(InputLoop::kRemote, paths.socket, kEveryMs);
    sources_.join(receiver_);
    sources_.keepOpen(receiver_.source(), paths.receiver, kEveryMs);
    sources_.adopt(InputLoop::kKeyboard);
    int timeoutMs = attend();
    while (!application_.isOver()) {
      loop_.wait(timeoutMs);
      InputEvent event;
      while (loop_.next(event)) application_.handle(event);
      timeoutMs = attend();  // before drawing takes its time: now nothing is unread
      application_.draw();
    }
    return application_.end();
  }

 private:
  int attend() {
    const int timeoutMs = sources_.attend(-1);
    for (const InputLoop::Source source : {InputLoop::kMouse, InputLoop::kKeyboard, receiver_.source()}) {
      if ((sources_.opened() >> source & 1) != 0) sources_.adopt(source);
    }
    return timeoutMs;
  }

  LinuxInputReader reader_;
  InputLoop loop_{reader_};
  InputSources::FurtherNode receiver_;
  InputSources sources_{loop_};
  Application application_{reader_};
};

}  // namespace example

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: lasting_loop MOUSE KEYBOARD SOCKET RECEIVER\n");
    return 2;
  }
  return example::LastingLoop().run({argv[1], argv[2], argv[3], argv[4]});
}
