// What the sources sent, and what became of it, as JSON objects on standard output: a line each, beside those of
// events.
#pragma once

#include <cstddef>

#include "recording/session.h"
#include "tools/common/causes.h"

namespace quarlo::tools::replay {

// {"time":0.607428,"source":"keyboard","kind":"record","number":2,"type":"EV_KEY","linuxName":"KEY_A","linuxCode":30,
// "value":1,"event":1}, and of a record that gave no event "event":null,"why":"mark".
void printRecord(InputLoop::Source source, std::size_t number, const recording::Record& record, const Outcome& outcome);

// {"time":6.210793,"source":"remote","kind":"line","number":1,"line":"0 00 KEY_OK sample","event":14}
void printLine(std::size_t number, const recording::RemoteLine& line, const Outcome& outcome);

// {"time":6.210793,"source":"remote","kind":"state","state":"held","line":1,"until":6.510793}
void printState(const RemoteState& state);

}  // namespace quarlo::tools::replay
