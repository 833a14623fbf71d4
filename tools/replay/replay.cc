#include "tools/replay/replay.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "input/linux_input_reader_limits.h"
#include "recording/lines.h"
#include "tools/common/causes.h"
#include "tools/common/damages.h"
#include "tools/common/event_printer.h"
#include "tools/common/output.h"
#include "tools/common/player.h"
#include "tools/common/stop_request.h"
#include "tools/replay/record_lines.h"

namespace quarlo::tools::replay {
namespace {

using recording::Record;
using recording::RemoteLine;
using recording::Session;

Session readSession(const ReplayOptions& options) {
  return options.events ? recording::readPair(options.session, *options.events)
                        : recording::readSession(options.session);
}

// The file of the first further node; empty if there is none.
std::string firstFurtherNode(const Session& session) {
  for (std::size_t i = 0; i < session.further.size(); ++i) {
    if (session.further[i]) return recording::furtherNodeFile(i);
  }
  return "";
}

// The variables that are set, by name. REQUIRES: there is no machine yet, which has an environment of its own.
Environment lircEnvironment() {
  Environment environment;
  for (const char* name : {components::input::kRepeatTimeoutVariable, components::input::kReleaseTimeoutVariable}) {
    if (const char* value = std::getenv(name)) environment[name] = value;
  }
  return environment;
}

PlayOptions playOptions(const ReplayOptions& options) {
  PlayOptions result;
  static_cast<ReaderOptions&>(result) = options;
  result.realtime = options.realtime;
  if (options.lircEnvironment) result.environment = lircEnvironment();
  return result;
}

PrintOptions printOptions(const ReplayOptions& options) {
  PrintOptions result;
  result.json = options.json;
  result.countEmptyRecords = options.verbosity > 0;
  return result;
}

// Prints the events that come.
class PrintedEvents : public Audience {
 public:
  PrintedEvents(const Session& session, const ReplayOptions& options)
      : session_(session), options_(options), printer_(printOptions(options)) {}

  void begin() override {
    printer_.begin(sourcesOf(session_));
    const char* remark = remarkOnLog(options_);
    if (session_.remote && remark != nullptr) std::fprintf(printer_.statusStream(), "%s\n", remark);
  }

  bool take(microseconds time, const InputEvent& event, const Origin& origin,
            const InputLoop::Cause* /*cause*/) override {
    return printer_.print(time, event, origin);
  }

  virtual void end(microseconds duration) { printer_.printSummary(duration); }

 protected:
  const ReplayOptions& options() const { return options_; }
  EventPrinter& printer() { return printer_; }

 private:
  const Session& session_;
  const ReplayOptions& options_;
  EventPrinter printer_;
};

// Prints them with the records and lines that they came of.
class PrintedRecords final : public PrintedEvents, private Witness {
 public:
  PrintedRecords(const Session& session, const ReplayOptions& options)
      : PrintedEvents(session, options), causes_(session, *this) {}

  // What gave no event is counted as without records, and printed as a record.
  bool take(microseconds time, const InputEvent& event, const Origin& origin, const InputLoop::Cause* cause) override {
    const bool isEmpty = event.kind == InputEvent::kNoEvent;
    if (isEmpty && isGiven(emptyToShow(options()), origin)) printer().print(time, event, origin);
    return causes_.take(time, event, origin, cause) && std::ferror(stdout) == 0;
  }

  void read(InputLoop::Source source, std::uint64_t number) override { causes_.read(source, number); }

  void look(microseconds time, const LinuxInputReader& reader) override { causes_.look(time, reader); }

  void end(microseconds duration) override {
    causes_.end();
    PrintedEvents::end(duration);
  }

 private:
  void record(InputLoop::Source source, std::size_t number, const Record& record, const Outcome& outcome) override {
    printRecord(source, number, record, outcome);
  }

  void line(std::size_t number, const RemoteLine& line, const Outcome& outcome) override {
    printLine(number, line, outcome);
  }

  void state(const RemoteState& state) override { printState(state); }

  bool event(const NumberedEvent& event) override {
    return printer().print(event.time, event.event, event.origin, EventNumber{event.number, event.cause});
  }

  Causes causes_;
};

}  // namespace

bool play(const Session& session, const ReplayOptions& options) {
  const PlayOptions playing = playOptions(options);
  std::unique_ptr<PrintedEvents> printed = std::make_unique<PrintedEvents>(session, options);
  if (options.records) printed = std::make_unique<PrintedRecords>(session, options);
  const ReaderLoop::Empty empty = options.records ? ReaderLoop::Empty::kEverything : emptyToShow(options);
  const Played played = playSession(session, playing, empty, *printed);
  printed->end(played.duration);
  return played.isWhole;
}

int run(const ReplayOptions& options) {
  setVerbosity(options.verbosity);
  try {
    const Session session = readSession(options);
    const std::string further = firstFurtherNode(session);
    if (options.pollTimeout && !further.empty()) {
      return fail(options.session + ": a loop that polls reads no further node, and there is " + further +
                  "; play this session without --loop poll");
    }
    catchStopRequests();
    const int status = sayDamages(session);
    if (play(session, options)) return status;
    return fail(options.session +
                ": the remote's lines come faster than the reader takes them, so that the LIRC daemon would close the "
                "connection; the rest was not played");
  } catch (const recording::Error& error) {
    return fail(error.what());
  } catch (const std::bad_alloc&) {
    return fail(options.session + ": there is not enough memory for this session");
  }
}

}  // namespace quarlo::tools::replay
