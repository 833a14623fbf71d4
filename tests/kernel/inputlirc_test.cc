// Debian's inputlircd, which makes a LIRC socket of an evdev node, such as that of a remote that the kernel decodes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/kernel/remote_witness.h"
#include "tests/scenario/node_client.h"
#include "tests/scenario/uinput.h"
#include "tests/support/files.h"
#include "tests/support/infrared.h"
#include "tests/unit/events.h"
#include "tests/unit/test_log.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;

constexpr unsigned kAddress = 4;
constexpr unsigned kButton = 1;

const std::string kUp = keyDown(38);

// ---- The daemon ---------------------------------------------------------------------------------

class InputLircd {
 public:
  // Returns once it takes connections. Its socket and its log are in `folder`.
  InputLircd(const Lines& options, const std::string& node, const Folder& folder)
      : socketPath_(folder.path("inputlircd")) {
    Lines command = {"inputlircd", "-f", "-d", socketPath_};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(node);
    start(command, folder.path("inputlircd.log"));
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries && !accepts(); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(accepts()) << testing::PrintToString(command);
  }
  ~InputLircd() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  InputLircd(const InputLircd&) = delete;
  InputLircd& operator=(const InputLircd&) = delete;

  const std::string& socketPath() const { return socketPath_; }

 private:
  void start(const Lines& command, const std::string& log) {
    pid_ = fork();
    if (pid_ != 0) return;
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), STDERR_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }

  bool accepts() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath_.c_str(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isConnected = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return isConnected;
  }

  std::string socketPath_;
  pid_t pid_ = -1;
};

// ---- What it makes of a node --------------------------------------------------------------------

class InputLircTest : public testing::Test {
 protected:
  InputLircTest() { resetLog(); }

  // Starts the daemon on a node, and the application on the daemon.
  void start(const Lines& options, const std::string& node) {
    witness.reset();
    daemon.reset();
    daemon.emplace(options, node, folder);
    witness.emplace(daemon->socketPath());
    witness->watch(50ms);  // meanwhile the daemon notices its clients
  }

  Folder folder;
  std::optional<InputLircd> daemon;
  std::optional<RemoteWitness> witness;
};

// A line without its code; what it calls its remote is the path of the node.
std::string line(const std::string& text, const std::string& node = "/dev/input/event0") { return text + " " + node; }

TEST_F(InputLircTest, KeysBelow88AreLeftOutUnlessItIsToldOtherwise) {
  UinputDevice remote(keyboard());
  start({}, remote.path());
  for (const int key : {KEY_1, KEY_ENTER, KEY_UP}) remote.tap(key);
  witness->watch(100ms);
  EXPECT_EQ(witness->heard(), Lines({line("0 KEY_UP")}));

  start({"-m", "0"}, remote.path());
  for (const int key : {KEY_1, KEY_ENTER, KEY_UP}) remote.tap(key);
  witness->watch(100ms);
  EXPECT_EQ(witness->heard(), Lines({line("0 KEY_1"), line("0 KEY_ENTER"), line("0 KEY_UP")}));
  EXPECT_EQ(witness->given(), Lines({keyDown('1', '1'), kUp}));  // Enter is not a button's name to the reader
}

TEST_F(InputLircTest, ButtonsCanBeRenamed) {
  UinputDevice remote(keyboard());
  const std::string names = folder.write("names", "KEY_ENTER = KEY_OK\nKEY_ESC = KEY_BACK\n");
  start({"-m", "0", "-t", names}, remote.path());
  for (const int key : {KEY_ENTER, KEY_ESC, KEY_UP}) remote.tap(key);
  witness->watch(100ms);
  EXPECT_EQ(witness->heard(), Lines({line("0 KEY_OK"), line("0 KEY_BACK"), line("0 KEY_UP")}));
  EXPECT_EQ(witness->given(), Lines({keyDown(13, 13), keyDown(461), kUp}));
}

TEST_F(InputLircTest, WithAGrabNobodyElseGetsTheKeys) {
  UinputDevice remote(keyboard());
  const NodeClient other(remote.path());
  start({}, remote.path());
  remote.tap(KEY_UP);
  witness->watch(100ms);
  EXPECT_FALSE(other.all().empty());

  start({"-g"}, remote.path());
  remote.tap(KEY_UP);
  witness->watch(100ms);
  EXPECT_EQ(witness->given(), Lines({kUp}));
  EXPECT_EQ(other.all(), Lines());
}

TEST_F(InputLircTest, ANodeThatComesBackIsNotOpenedAgainBeforeTheDaemonIsRestarted) {
  std::optional<UinputDevice> remote(std::in_place, keyboard());
  start({"-m", "0", "-r", "200"}, remote->path());
  remote->press(KEY_UP);
  witness->watch(1s);
  witness->expectWhatTheRulesSay();
  EXPECT_GT(witness->given().size(), 4U);
  remote.reset();
  witness->watch(500ms);  // the daemon still sends what it had read
  witness->forget();
  remote.emplace(keyboard());
  remote->tap(KEY_UP);
  witness->watch(500ms);
  EXPECT_EQ(witness->heard(), Lines());

  start({"-m", "0", "-r", "200"}, remote->path());
  remote->tap(KEY_UP);
  witness->watch(100ms);
  EXPECT_EQ(witness->given(), Lines({kUp}));
}

// ---- The kernel's remotes -----------------------------------------------------------------------

class InputLircInfraredTest : public InputLircTest {
 protected:
  InputLircInfraredTest() {
    receiver.decode("nec");
    receiver.setKey(256 * kAddress + kButton, KEY_UP);
    receiver.send(Thumbs().holdNec(0, 0, 0ms));  // of the first frame, nothing is made
  }
  ~InputLircInfraredTest() override {
    witness.reset();
    daemon.reset();
  }

  void hold(std::chrono::milliseconds time) {
    witness->forget();
    const Thumbs thumbs = Thumbs().holdNec(kAddress, kButton, time);
    std::thread light([&] { receiver.send(thumbs); });
    witness->watch(thumbs.length() + 700ms);
    light.join();
  }

  // The kernel's own delay and period of repeats (ms).
  void setRepeat(unsigned delay, unsigned period) const {
    unsigned repeat[] = {delay, period};
    const NodeClient node(receiver.node());
    EXPECT_EQ(ioctl(node.fd(), EVIOCSREP, repeat), 0);
  }

  InfraredReceiver receiver;
};

// The rate is less than the kernel's delay before the first repeat, so that one is a press as well.
TEST_F(InputLircInfraredTest, WithARepeatRateAHeldButtonIsCountedAndRepeatsByTheReadersTimeouts) {
  start({"-m", "0", "-r", "200"}, receiver.node());
  hold(0ms);
  EXPECT_EQ(witness->heard(), Lines({line("0 KEY_UP")}));
  EXPECT_EQ(witness->given(), Lines({kUp}));

  hold(2000ms);
  const Lines heard = witness->heard();
  ASSERT_EQ(heard.size(), 13U);
  EXPECT_EQ(heard[1], line("0 KEY_UP"));
  EXPECT_EQ(heard[2], line("1 KEY_UP"));
  EXPECT_EQ(heard[11], line("a KEY_UP"));
  EXPECT_EQ(witness->given().size(), 11U);
  witness->expectWhatTheRulesSay();
}

TEST_F(InputLircInfraredTest, WithARepeatRateTheReadersTimeoutsHoldBackAFastNode) {
  start({"-m", "0", "-r", "200"}, receiver.node());
  setRepeat(250, 33);
  hold(2000ms);
  EXPECT_EQ(witness->heard().size(), 47U);
  EXPECT_EQ(witness->given().size(), 15U);
  witness->expectWhatTheRulesSay();
}

TEST_F(InputLircInfraredTest, WithoutOneEachOfTheKernelsRepeatsIsAPress) {
  start({"-m", "0"}, receiver.node());
  hold(2000ms);
  EXPECT_EQ(witness->heard(), Lines(13, line("0 KEY_UP")));
  EXPECT_EQ(witness->given(), Lines(13, kUp));
}

}  // namespace
}  // namespace quarlo::test
