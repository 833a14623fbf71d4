// The loop of an application that cannot wait for descriptors: it asks the reader itself, a hundred times a second.
#include "examples/application.h"
#include "input/linux_input_reader.h"

namespace example {

// One round: waits once, for a short time, and then takes all that is there.
void readInput(LinuxInputReader& reader, Application& application) {
  InputEvent event;
  for (int timeoutMs = 10;; timeoutMs = 0) {
    event.kind = InputEvent::kNoEvent;  // as a side button leaves it
    // A wheel brings this one back.
    if (!reader.hasPendingEvent) reader.pendingEvent.kind = InputEvent::kNoEvent;
    if (!reader.readInput(event, timeoutMs)) return;
    application.handle(event);
  }
}

}  // namespace example

int main(int argc, char** argv) {
  example::LinuxInputReader reader;
  if (!example::open(reader, argc, argv)) return 1;
  example::Application application(reader);
  while (!application.isOver()) {
    example::readInput(reader, application);
    application.draw();
  }
  return application.end();
}
