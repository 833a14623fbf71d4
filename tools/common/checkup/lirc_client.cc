#include "tools/common/checkup/lirc_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "tools/common/checkup/files.h"
#include "tools/common/lirc_socket.h"

namespace quarlo::tools::checkup {
namespace {

using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

// A connection that never waits longer than it is told.
class Connection {
 public:
  explicit Connection(const std::string& path) : fd_(connectWithoutWaiting(path)) {}
  ~Connection() {
    if (fd_ != -1) close(fd_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // What has kept a line from being sent or taken; kComplete: nothing has.
  Outcome outcome() const { return outcome_; }

  // A daemon that reads nothing has no room for a line.
  bool send(const std::string& line) {
    const ssize_t size = ::send(fd_, line.data(), line.size(), MSG_NOSIGNAL);
    if (size == static_cast<ssize_t>(line.size())) return true;
    return fail(size == -1 && errno != EAGAIN ? Outcome::kClosed : Outcome::kTimedOut);
  }

  bool fail(Outcome outcome) {
    outcome_ = outcome;
    return false;
  }

  // The next line, without its end; none if it does not come in time, is too long, or all lines together are.
  std::optional<std::string> takeLine(Clock::time_point deadline) {
    for (;;) {
      const std::size_t end = queued_.find('\n');
      if (end != std::string::npos) {
        const std::string line = queued_.substr(0, end);
        queued_.erase(0, end + 1);
        return line;
      }
      if (!receive(deadline)) return std::nullopt;
    }
  }

 private:
  bool receive(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait = {fd_, POLLIN, 0};
    if (queued_.size() > kLongestLine || received_ > kMostBytes) return fail(Outcome::kTooMuch);
    if (left <= 0 || poll(&wait, 1, static_cast<int>(left)) != 1) return fail(Outcome::kTimedOut);
    char bytes[4096];
    const ssize_t size = recv(fd_, bytes, sizeof bytes, 0);
    if (size <= 0) return fail(Outcome::kClosed);
    queued_.append(bytes, static_cast<std::size_t>(size));
    received_ += static_cast<std::size_t>(size);
    return true;
  }

  // Far more than the remotes of a machine need: whoever has the socket decides what comes.
  static constexpr std::size_t kMostBytes = std::size_t{1} << 20;
  static constexpr std::size_t kLongestLine = 4096;

  int fd_;  // -1: nobody takes connections
  std::string queued_;
  std::size_t received_ = 0;
  Outcome outcome_ = Outcome::kComplete;
};

// Takes one packet: what stands between BEGIN and END. Buttons that are pressed meanwhile come between packets.
std::optional<Lines> takePacket(Connection& connection, Clock::time_point deadline) {
  constexpr std::size_t kMostLines = 10000;
  std::optional<std::string> line;
  do line = connection.takeLine(deadline);
  while (line && *line != "BEGIN");
  Lines packet;
  while ((line = connection.takeLine(deadline)) && *line != "END" && packet.size() < kMostLines) {
    packet.push_back(*line);
  }
  if (line == "END") return packet;
  if (line) connection.fail(Outcome::kTooMuch);
  return std::nullopt;
}

// The lines of data of lircd's answer: command, SUCCESS, DATA, their number, and they.
std::optional<Lines> ask(Connection& connection, const std::string& command, Clock::time_point deadline) {
  constexpr std::size_t kFirstOfData = 4;
  if (!connection.send(command + "\n")) return std::nullopt;
  std::optional<Lines> packet;
  do packet = takePacket(connection, deadline);
  while (packet && (packet->empty() || packet->front() != command));
  if (!packet) return std::nullopt;
  if (packet->size() < 2 || (*packet)[1] != "SUCCESS") {
    connection.fail(Outcome::kRefused);
    return std::nullopt;
  }
  if (packet->size() <= kFirstOfData) return Lines();
  return Lines(packet->begin() + kFirstOfData, packet->end());
}

// A line of data is "0000000000000bf0 KEY_UP".
bool askForButtons(Connection& connection, Remote& remote, Clock::time_point deadline) {
  const std::optional<Lines> lines = ask(connection, "LIST " + remote.name, deadline);
  if (!lines) return false;
  for (const std::string& line : *lines) {
    const Lines fields = wordsIn(line);
    if (fields.size() == 2) remote.buttons.push_back(fields[1]);
  }
  return true;
}

}  // namespace

RemotesAnswer askForRemotes(const std::string& socketPath, std::chrono::milliseconds limit) {
  const Clock::time_point deadline = Clock::now() + limit;
  Connection connection(socketPath);
  const std::optional<Lines> names = ask(connection, "LIST", deadline);
  RemotesAnswer answer;
  for (const std::string& name : names.value_or(Lines())) {
    answer.remotes.push_back({name, {}});
    if (!askForButtons(connection, answer.remotes.back(), deadline)) break;
  }
  answer.outcome = connection.outcome();
  return answer;
}

}  // namespace quarlo::tools::checkup
