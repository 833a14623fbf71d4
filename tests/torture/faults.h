// What can go wrong: which calls a life makes, and how each of them can fail.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace quarlo::test::torture {

using sim::Call;

// What goes wrong, and when.
struct Fault {
  Call call;
  int count;  // of the calls of its kind in this life
  int error;
  std::optional<std::size_t> bytes;  // what a read() returns, instead of failing
  int times = 1;                     // in a row
};

// A call as a machine's trace has it.
struct TracedCall {
  Call call;
  int count;  // of its kind
  std::string line;
  std::string firstArgument;
  std::string result;
  bool succeeded;
};

using Calls = std::vector<TracedCall>;

Calls callsOf(const std::vector<std::string>& trace);

bool isReadOf(const TracedCall& call, int fd);

// How many records or lines were read from a descriptor before the call at `index`.
std::size_t readBefore(const Calls& calls, std::size_t index, int fd);

// The last node that was opened up to the call at `index`, its number.
int nodeOf(const Calls& calls, std::size_t index);

std::string nodePath(int number);

std::string nameOf(Call call);

// Such as "read EIO", or "read 3 bytes".
std::string kindOf(const Fault& fault);

// Where it goes wrong, and how.
std::string describe(const std::string& life, const TracedCall& call, const Fault& fault);

// ---- The faults of one call ---------------------------------------------------------------------

// What the manual pages name: open(2), ... and, for what is not in ioctl(2), read(2) and connect(2), what evdev and
// unix(7) give.
std::vector<int> errorsOf(Call call);

// Each of its errors.
std::vector<Fault> eachError(const TracedCall& call);

// A set-up's call that fails, and all of its kind after it.
std::vector<Fault> anErrorForGood(const TracedCall& call);

// A wait or a read that fails twice.
std::vector<Fault> twoErrors(const TracedCall& call);

// A read that gives nothing.
std::vector<Fault> anEmptyRead(const TracedCall& call);

// A read that gives less than a record, cut at each of its fields.
std::vector<Fault> partsOfARecord(const TracedCall& call);

// A read that gives less than a line, cut anywhere.
std::vector<Fault> partsOfALine(const TracedCall& call);

}  // namespace quarlo::test::torture
