// The reader on a simulated machine, with a check after each call of what must hold whatever its sources send.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "input/linux_input_reader.h"
#include "sim/machine.h"

namespace quarlo::fuzz {

using components::input::LinuxInputReader;

// The calls and the arguments are the reader's. A broken rule ends the process (rules.h).
// REQUIRES: all descriptors that are open on the machine are this reader's.
class CheckedReader {
 public:
  explicit CheckedReader(sim::Machine& machine);
  ~CheckedReader();
  CheckedReader(const CheckedReader&) = delete;
  CheckedReader& operator=(const CheckedReader&) = delete;

  void init(const char* mouseDevice, const char* keyboardDevice, const char* lircSocket, std::uint32_t width,
            std::uint32_t height);

  // A wait without a limit (-1) is ended by a signal after a second.
  bool readInput(int timeoutMs);

  void listLinuxInputReader();

  const LinuxInputReader& reader() const { return *reader_; }

 private:
  using InputEvent = LinuxInputReader::InputEvent;

  // How often each call was made; kGetenv is the last of them.
  using Counts = std::array<int, static_cast<std::size_t>(sim::Call::kGetenv) + 1>;

  Counts counts() const;
  void checkCalls(const Counts& before, bool wasHeld) const;
  void checkWait(int timeoutMs, sim::microseconds waited) const;
  void checkEvent(const InputEvent& event) const;
  void checkKey(const InputEvent::KeyData& key) const;
  void checkMouse(const InputEvent::MouseData& mouse) const;
  void checkRemote(const InputEvent& event) const;
  void checkState() const;
  void checkPosition(std::int32_t position, std::int32_t max) const;
  void checkWaitSet() const;
  bool hasDevice() const;
  int openSources() const;

  sim::Machine& machine_;
  std::optional<LinuxInputReader> reader_;
};

}  // namespace quarlo::fuzz
