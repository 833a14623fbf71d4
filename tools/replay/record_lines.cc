#include "tools/replay/record_lines.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/common/code_names.h"
#include "tools/common/event_printer.h"

namespace quarlo::tools::replay {
namespace {

void printBeginning(microseconds time, InputLoop::Source source, const char* kind) {
  std::printf(R"({"time":%s,"source":"%s","kind":"%s",)", jsonTime(time).c_str(), sourceName(source).c_str(), kind);
}

void printOutcome(const Outcome& outcome) {
  std::printf(R"(,"event":%s)", orNull(outcome.event).c_str());
  if (outcome.event == 0) std::printf(R"(,"why":"%s")", nameOf(outcome.why).id);
  std::puts("}");
}

const char* nameOf(RemoteKey key) {
  switch (key) {
    case RemoteKey::kNone: return "none";
    case RemoteKey::kHeld: return "held";
    default: return "repeating";
  }
}

}  // namespace

void printRecord(InputLoop::Source source, std::size_t number, const recording::Record& record,
                 const Outcome& outcome) {
  printBeginning(record.time, source, "record");
  std::printf(R"("number":%s,"type":"%s","linuxName":"%s","linuxCode":%d,"value":%d)", std::to_string(number).c_str(),
              typeName(record.type).c_str(), codeName(record.type, record.code).c_str(), int{record.code},
              record.value);
  printOutcome(outcome);
}

void printLine(std::size_t number, const recording::RemoteLine& line, const Outcome& outcome) {
  printBeginning(line.time, InputLoop::kRemote, "line");
  std::printf(R"("number":%s,"line":%s)", std::to_string(number).c_str(), dumped(line.text.get()).c_str());
  printOutcome(outcome);
}

void printState(const RemoteState& state) {
  printBeginning(state.time, InputLoop::kRemote, "state");
  std::printf(R"("state":"%s","line":%s,"until":%s)", nameOf(state.key), orNull(state.line).c_str(),
              jsonTime(state.deadline).c_str());
  std::puts("}");
}

}  // namespace quarlo::tools::replay
