#include "tests/kernel/remote_witness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <sstream>

namespace quarlo::test {
namespace {

using components::input::InputLoop;
using std::chrono::milliseconds;
using Clock = RemoteWitness::Clock;

// The key-downs of the buttons that tests press. Of any other, there is none.
const std::map<std::string, std::string>& keyDowns() {
  static const std::map<std::string, std::string> keyDownOf = {{"KEY_UP", keyDown(38)},
                                                               {"KEY_RIGHT", keyDown(39)},
                                                               {"KEY_1", keyDown('1', '1')},
                                                               {"KEY_OK", keyDown(13, 13)},
                                                               {"KEY_BACK", keyDown(461)}};
  return keyDownOf;
}

// What becomes of a line, by the two timeouts, which are those that an environment without them gives.
class Rules {
 public:
  // Whether a line is a key-down. It was read at `time`; up to `looked`, the application would have noticed that none
  // comes.
  bool isKeyDown(Clock::time_point time, Clock::time_point looked, bool isFresh, const std::string& button) {
    const auto quiet = looked - pressed_;
    const bool isHeld = !isFresh && button == held_ && quiet < timeout_ + kRepeatTimeout;
    if (isHeld && time - pressed_ < timeout_) return false;
    isFast_ = isHeld && (isFast_ || quiet >= timeout_);
    timeout_ = isFast_ ? kRepeatTimeout : kReleaseTimeout;
    held_ = button;
    pressed_ = time;
    return true;
  }

 private:
  static constexpr milliseconds kReleaseTimeout{300};
  static constexpr milliseconds kRepeatTimeout{100};

  std::string held_;
  bool isFast_ = false;
  Clock::time_point pressed_;
  milliseconds timeout_{0};
};

}  // namespace

// ---- A further client ---------------------------------------------------------------------------

LircClient::LircClient(const std::string& socketPath) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
  EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << socketPath;
  EXPECT_EQ(fcntl(fd_, F_SETFL, O_NONBLOCK), 0);
}

LircClient::~LircClient() {
  if (fd_ != -1) close(fd_);
}

bool LircClient::hasUnread() const {
  pollfd wait = {fd_, POLLIN, 0};
  return poll(&wait, 1, 0) == 1;
}

Lines LircClient::take() {
  Lines lines;
  char byte;
  ssize_t size;
  while ((size = read(fd_, &byte, 1)) == 1) {
    begun_ += byte;
    if (byte != '\n') continue;
    lines.push_back(begun_);
    begun_.clear();
  }
  if (size == 0) {
    close(fd_);
    fd_ = -1;
  }
  return lines;
}

// ---- The application ----------------------------------------------------------------------------

RemoteWitness::RemoteWitness(const std::string& socketPath, const std::string& node) : client_(socketPath) {
  EXPECT_TRUE(reader.init("/nowhere", node.c_str(), socketPath.c_str(), 1919, 1079));
}

void RemoteWitness::watch(milliseconds time) {
  const Clock::time_point end = Clock::now() + time;
  bool isLate = client_.hasUnread();
  for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - now) + milliseconds(1);
    loop_.wait(static_cast<int>(left.count()), client_.fd());
    for (InputEvent event; loop_.next(event);) {
      (loop_.source() == InputLoop::kRemote ? given_ : givenByNode_).push_back(text(event));
    }
    const Clock::time_point looked = isLate ? looked_ : Clock::now();
    for (const std::string& line : client_.take()) lines_.push_back({Clock::now(), looked, line});
    isLate = false;
  }
  looked_ = Clock::now();
}

Lines RemoteWitness::heard() const {
  Lines heard;
  for (const Line& line : lines_) {
    const std::string text = line.text.substr(0, line.text.size() - 1);
    heard.push_back(text.substr(text.find(' ') + 1));
  }
  return heard;
}

void RemoteWitness::expectWhatTheRulesSay() const {
  Rules rules;
  Lines expected;
  for (const Line& line : lines_) {
    std::istringstream fields(line.text);
    std::string code;
    unsigned repeat;
    std::string button;
    fields >> code >> std::hex >> repeat >> button;
    const auto known = keyDowns().find(button);
    if (fields && known != keyDowns().end() && rules.isKeyDown(line.time, line.looked, repeat == 0, button)) {
      expected.push_back(known->second);
    }
  }
  EXPECT_EQ(given_, expected) << testing::PrintToString(heard());
}

void RemoteWitness::forget() {
  lines_.clear();
  given_.clear();
  givenByNode_.clear();
}

}  // namespace quarlo::test
