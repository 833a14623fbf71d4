// The command `doctor` on a machine with faults that only a real kernel and real daemons can have.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/kd.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "input/linux_input_reader.h"
#include "tests/scenario/uinput.h"
#include "tests/support/devices.h"
#include "tests/support/infrared.h"
#include "tests/support/lircd.h"
#include "tests/tools/program.h"

namespace quarlo::tools {
namespace {

using test::Description;
using test::Lircd;
using test::UinputDevice;
using Lines = std::vector<std::string>;

void pause(int milliseconds) { poll(nullptr, 0, milliseconds); }

// Runs until the end of the test.
class Child {
 public:
  explicit Child(const std::vector<std::string>& command) : pid_(fork()) {
    if (pid_ != 0) return;
    setsid();
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  ~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  std::string pid() const { return std::to_string(pid_); }

 private:
  pid_t pid_;
};

// The processes of this name.
std::vector<pid_t> processesOf(const std::string& name) {
  std::vector<pid_t> pids;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::string line;
    std::getline(std::ifstream(entry.path() / "comm"), line);
    if (line == name) pids.push_back(std::stoi(entry.path().filename()));
  }
  return pids;
}

class DoctorTest : public testing::Test {
 protected:
  DoctorTest() { EXPECT_TRUE(daemon.start()); }

  // What it finds: "node-grabbed /dev/input/event3" of each; and, in `whats`, what it says of each.
  Lines check(const Arguments& arguments, const Arguments& launcher = {}) {
    Arguments all = {"doctor", "--json"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const Result result = run(all, Output::kPipe, launcher);
    unseen = result.err;
    Lines ids;
    whats.clear();
    for (const std::string& line : linesOf(result.out)) {
      const auto finding = nlohmann::json::parse(line);
      // One button of the daemon's remote is there to be unknown.
      if (finding["where"] == "remote myremote") continue;
      ids.push_back(std::string(finding["id"]) + " " + std::string(finding["where"]));
      whats.push_back(finding["what"]);
    }
    EXPECT_EQ(result.status, result.out.empty() ? 0 : 1);
    return ids;
  }

  Lines check() { return check({"--lirc", daemon.socketPath()}); }

  Folder folder;
  Lircd daemon{folder.path()};
  std::unique_ptr<UinputDevice> keyboard = std::make_unique<UinputDevice>(test::keyboard());
  Lines whats;
  std::string unseen;
};

TEST_F(DoctorTest, FindsNothingOnAHealthyMachine) {
  const UinputDevice mouse(test::mouse());
  EXPECT_EQ(check(), Lines());
  EXPECT_EQ(unseen, "");
  const Result result = run({"doctor", "--lirc", "none"});
  EXPECT_EQ(result.out, "Nothing found.\n");
  EXPECT_EQ(result.status, 0);
}

// ---- Nodes --------------------------------------------------------------------------------------

TEST_F(DoctorTest, FindsAGrabbedNodeAndWhoHasItOpen) {
  ASSERT_TRUE(keyboard->grabElsewhere());
  EXPECT_EQ(check(), Lines{"node-grabbed " + keyboard->path()});
  ASSERT_EQ(whats.size(), 1U);
  EXPECT_NE(whats[0].find("open in kernel_tests (process "), std::string::npos) << whats[0];
  keyboard->letGoElsewhere();
  EXPECT_EQ(check(), Lines());
}

TEST_F(DoctorTest, FindsAKeyboardBeyondTheScan) {
  std::vector<std::unique_ptr<UinputDevice>> buttons;
  keyboard.reset();
  for (int i = 0; i <= 10; ++i) buttons.push_back(std::make_unique<UinputDevice>(test::powerButton()));
  keyboard = std::make_unique<UinputDevice>(test::keyboard());
  EXPECT_EQ(check(), Lines{"beyond-scan /dev/input/event11"});
}

TEST_F(DoctorTest, FindsTheHalfOfAReceiverThatHasNoLetters) {
  std::vector<std::unique_ptr<UinputDevice>> nodes;
  for (const test::RealDevice& node : test::nanoTransceiver()) {
    nodes.push_back(std::make_unique<UinputDevice>(node.device));
  }
  EXPECT_EQ(check(), Lines{"no-letters " + nodes.back()->path()});
}

TEST_F(DoctorTest, FindsTheSilentHalfOfATouchpad) {
  const UinputDevice half(test::realDevice("SilentHalfOfATouchpad").device);
  const UinputDevice pad(test::realDevice("TouchpadOnI2c").device);
  EXPECT_EQ(check(), Lines{"touch-half " + half.path()});
}

TEST_F(DoctorTest, FindsARemoteThatIsTakenAsTheMouse) {
  const UinputDevice remote(test::realDevice("RemoteWithTheButtonsOfAMouse").device);
  EXPECT_EQ(check(), Lines{"remote-as-mouse " + remote.path()});
}

TEST_F(DoctorTest, FindsAKeyThatStaysDown) {
  keyboard->press(KEY_LEFTSHIFT);
  EXPECT_EQ(check(), Lines{"held-at-start " + keyboard->path()});
  keyboard->release(KEY_LEFTSHIFT);
  EXPECT_EQ(check(), Lines());
}

TEST_F(DoctorTest, FindsThatEvdevIsNotLoaded) {
  ASSERT_EQ(system("rmmod evdev"), 0);
  EXPECT_EQ(check(), Lines{"no-evdev /proc/bus/input/devices"});
  ASSERT_EQ(system("insmod /modules/evdev.ko"), 0);
  EXPECT_EQ(check(), Lines());
}

TEST_F(DoctorTest, FindsThatTheNodesWereNotMade) {
  std::filesystem::rename("/dev/input", "/dev/input-aside");
  EXPECT_EQ(check(), Lines{"nodes-not-made /dev/input"});
  std::filesystem::rename("/dev/input-aside", "/dev/input");
}

TEST_F(DoctorTest, FindsThatThereIsNoNode) {
  keyboard.reset();
  EXPECT_EQ(check(), Lines{"no-node /dev/input"});
  EXPECT_EQ(check({"--mouse", "none", "--keyboard", "none", "--lirc", daemon.socketPath()}), Lines());
}

// A user without rights, whom su logs in.
class UserTest : public DoctorTest {
 protected:
  static constexpr gid_t kGroup = 105;

  UserTest() {
    std::filesystem::rename("/etc/passwd", "/etc/passwd-aside");
    std::ofstream("/etc/passwd") << "root:x:0:0:root:/:/bin/sh\ntv:x:1000:1000::/:/bin/sh\n";
    setMembers("");
    EXPECT_EQ(chmod("/etc/group", 0666), 0);
    EXPECT_EQ(chown(keyboard->path().c_str(), 0, kGroup), 0);
  }

  void TearDown() override {
    std::filesystem::rename("/etc/passwd-aside", "/etc/passwd");
    std::filesystem::remove("/etc/group");
  }

  static std::string groups(const std::string& members) {
    return "root:x:0:\ninput:x:" + std::to_string(kGroup) + ":" + members + "\ntv:x:1000:\n";
  }

  static void setMembers(const std::string& members) { std::ofstream("/etc/group") << groups(members); }

  // Logs in, and runs it after this command.
  Lines checkAfter(const std::string& command) {
    return check({"--lirc", daemon.socketPath()}, {"su", "-c", command + "; exec \"$0\" \"$@\"", "--", "tv"});
  }
};

TEST_F(UserTest, WhoMayNotReadIsSentIntoTheGroup) {
  EXPECT_EQ(chmod(keyboard->path().c_str(), 0660), 0);
  EXPECT_EQ(checkAfter(":"), Lines{"not-permitted " + keyboard->path()});
  EXPECT_NE(whats.at(0).find("group input, mode 0660"), std::string::npos) << whats[0];
}

TEST_F(UserTest, WhoHasBecomeAMemberIsSentToLogInAgain) {
  EXPECT_EQ(chmod(keyboard->path().c_str(), 0660), 0);
  EXPECT_EQ(checkAfter("echo '" + groups("tv") + "' >/etc/group"), Lines{"group-not-in-session " + keyboard->path()});
  setMembers("tv");
  EXPECT_EQ(checkAfter(":"), Lines());
}

TEST_F(UserTest, WhoMayNotConnectIsTold) {
  EXPECT_EQ(chmod(keyboard->path().c_str(), 0644), 0);
  EXPECT_EQ(chmod(daemon.socketPath().c_str(), 0600), 0);
  EXPECT_EQ(checkAfter(":"), Lines{"socket-not-permitted " + daemon.socketPath()});
}

TEST_F(UserTest, IsToldOnceWhatItCannotLookAt) {
  EXPECT_EQ(chmod(keyboard->path().c_str(), 0644), 0);
  EXPECT_EQ(checkAfter(":"), Lines());
  EXPECT_EQ(
      unseen,
      "quarlo-input: not looked at: which nodes and sockets the processes of other users have open: run this with "
      "sudo\n");
}

// ---- The console --------------------------------------------------------------------------------

TEST_F(DoctorTest, FindsAPromptBehindTheScreen) {
  const int console = open("/dev/tty1", O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_NE(console, -1);
  int mode = K_OFF;
  EXPECT_EQ(ioctl(console, KDGKBMODE, &mode), 0);
  EXPECT_EQ(ioctl(console, KDSKBMODE, K_UNICODE), 0);
  EXPECT_EQ(check(), Lines());
  const Child prompt({"getty", "-n", "-l", "/bin/sh", "38400", "tty1"});
  for (int i = 0; i < 100 && check().empty(); ++i) pause(100);
  EXPECT_EQ(check(), Lines{"console-types /dev/tty1"});
  ASSERT_EQ(whats.size(), 1U);
  EXPECT_NE(whats[0].find("(process " + prompt.pid() + ")"), std::string::npos) << whats[0];
  EXPECT_EQ(ioctl(console, KDSKBMODE, K_OFF), 0);
  EXPECT_EQ(check(), Lines());
  EXPECT_EQ(ioctl(console, KDSKBMODE, mode), 0);
  close(console);
}

// ---- The remote ---------------------------------------------------------------------------------

TEST_F(DoctorTest, FindsADaemonOnAnotherSocket) {
  EXPECT_EQ(check(Arguments{}), Lines{"other-socket " + daemon.socketPath()});
  EXPECT_EQ(check({"--lirc", "/run/elsewhere"}), Lines{"other-socket " + daemon.socketPath()});
}

TEST_F(DoctorTest, FindsADaemonThatHasEnded) {
  daemon.stop();
  EXPECT_EQ(check(), Lines{"daemon-not-running " + daemon.socketPath()});
}

TEST_F(DoctorTest, FindsADaemonThatDoesNotAnswer) {
  const std::vector<pid_t> pids = processesOf("lircd");
  ASSERT_EQ(pids.size(), 1U);
  kill(pids[0], SIGSTOP);
  EXPECT_EQ(check(), Lines{"daemon-silent " + daemon.socketPath()});
  kill(pids[0], SIGCONT);
  EXPECT_EQ(check(), Lines());
}

// The directory below /usr/lib is named after the architecture.
std::string pluginsFolder() {
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib")) {
    const std::filesystem::path folder = entry.path() / "lirc/plugins";
    if (std::filesystem::exists(folder)) return folder;
  }
  return "";
}

// The daemon with another configuration, as its options would have it.
class LircdTest : public DoctorTest {
 protected:
  LircdTest() { daemon.stop(); }

  std::string configure(const std::string& codes) const {
    return folder.write("mine.conf",
                        "begin remote\n  name mine\n  bits 16\n  eps 30\n  aeps 100\n  one 560 1690\n"
                        "  zero 560 560\n  gap 108000\n  begin codes\n" +
                            codes + "  end codes\nend remote\n");
  }

  // Starts it, and finds what there is once it listens.
  Lines checkWith(const std::string& configuration, const std::string& options) {
    const std::string socket = folder.path("mine");
    const std::string file = folder.write("options.conf", "[lircd]\n" + options);
    const Child lircd({"lircd", "--nodaemon", "--options-file=" + file, "--plugindir=" + pluginsFolder(),
                       "--output=" + socket, "--pidfile=" + folder.path("mine.pid"),
                       "--logfile=" + folder.path("mine.log"), configuration});
    Lines found;
    do {
      pause(100);
      found = check({"--lirc", socket});
    } while (found == Lines{"other-socket " + socket} || found == Lines{"daemon-not-running " + socket} ||
             std::find(found.begin(), found.end(), "no-socket " + socket) != found.end());
    return found;
  }
};

TEST_F(LircdTest, WithoutARemoteIsFound) {
  EXPECT_EQ(checkWith(folder.write("empty.conf", "# nothing\n"), "driver = udp\ndevice = 8765\n"),
            Lines{"no-remotes " + folder.path("mine")});
}

TEST_F(LircdTest, WithoutANameThatTheReaderKnowsIsFound) {
  EXPECT_EQ(checkWith(configure("BTN_ONE 0x1\nKEY_POWER2 0x2\n"), "driver = udp\ndevice = 8765\n"),
            Lines{"no-known-button " + folder.path("mine")});
}

TEST_F(LircdTest, WithNamesThatTheReaderDoesNotKnowIsFound) {
  EXPECT_EQ(checkWith(configure("KEY_UP 0x1\nKEY_TELETEXT 0x2\n"), "driver = udp\ndevice = 8765\n"),
            Lines{"unknown-buttons remote mine"});
  ASSERT_EQ(whats.size(), 1U);
  EXPECT_EQ(whats[0], "The reader does not know 1 of its 2 buttons, and gives nothing for them: KEY_TELETEXT");
}

TEST_F(LircdTest, WhoseReceiverIsNotThereIsFound) {
  EXPECT_EQ(checkWith(configure("KEY_UP 0x1\n"), "driver = default\ndevice = /dev/lirc7\n"),
            Lines{"no-receiver /dev/lirc7"});
  EXPECT_EQ(checkWith(configure("KEY_UP 0x1\n"), "driver = devinput\ndevice = auto\n"),
            Lines{"no-receiver " + folder.path("options.conf")});
}

// ---- Two ways -----------------------------------------------------------------------------------

// lircd switches the kernel's decoders off when its first client comes: somebody has switched one on again.
TEST_F(DoctorTest, FindsThatTheKernelDecodesBesideLircd) {
  daemon.stop();
  const test::InfraredReceiver receiver;
  ASSERT_TRUE(daemon.startOnReceiver(receiver.device()));
  const int client = components::input::LinuxInputReader().openLircSocket(daemon.socketPath().c_str());
  ASSERT_NE(client, -1);
  const auto isFound = [&] {
    const Lines found = check();
    return std::count(found.begin(), found.end(), "remote-twice rc0") == 1;
  };
  EXPECT_FALSE(isFound());
  receiver.decode("nec");
  EXPECT_TRUE(isFound());
  ASSERT_FALSE(whats.empty());
  EXPECT_NE(whats[0].find("(nec), which sends keys on " + receiver.node()), std::string::npos) << whats[0];
  receiver.decode("lirc");
  EXPECT_FALSE(isFound());
  close(client);
}

// inputlircd on a node, with these options more.
class InputlircdTest : public DoctorTest {
 protected:
  InputlircdTest() { daemon.stop(); }

  // What there is once it listens.
  Lines checkWith(const Arguments& options, const Arguments& sources = {}) {
    const std::string socket = folder.path("inputlircd");
    Arguments command = {"inputlircd", "-f", "-d", socket};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(keyboard->path());
    const Child inputlircd(command);
    Arguments arguments = {"--lirc", socket};
    arguments.insert(arguments.end(), sources.begin(), sources.end());
    Lines found;
    do {
      pause(100);
      found = check(arguments);
    } while (!found.empty() && (found[0] == "other-socket " + socket || found[0] == "daemon-not-running " + socket ||
                                found[0] == "no-socket " + socket));
    for (std::string& finding : found) finding.resize(finding.find(' '));
    std::filesystem::remove(socket);
    return found;
  }
};

TEST_F(InputlircdTest, WithoutItsOptionsIsFound) {
  EXPECT_EQ(checkWith({}, {"--keyboard", "none"}), (Lines{"repeats-are-presses", "digits-left-out"}));
  EXPECT_EQ(checkWith({"-m", "0", "-r", "200"}, {"--keyboard", "none"}), Lines());
}

TEST_F(InputlircdTest, ThatReadsTheKeyboardOfTheApplicationIsFound) {
  EXPECT_EQ(checkWith({"-m", "0", "-r", "200"}), Lines{"remote-twice"});
  EXPECT_EQ(checkWith({"-m", "0", "-r", "200", "-g"}), Lines());
  EXPECT_EQ(checkWith({"-m", "0", "-r", "200", "-g"}, {"--keyboard", keyboard->path()}), Lines{"node-grabbed"});
}

}  // namespace
}  // namespace quarlo::tools
