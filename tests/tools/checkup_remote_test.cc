// The rules about the remote, its daemon, and what that says. Sockets are real ones.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "input/linux_input_reader_limits.h"
#include "tests/tools/findings.h"
#include "tools/common/checkup/remote.h"
#include "tools/common/lirc_socket.h"

namespace quarlo::tools::checkup {
namespace {

using namespace std::chrono_literals;

// ---- A daemon -----------------------------------------------------------------------------------

// Listens, and answers each line that it gets as it is told: with nothing, it closes the connection. Without an answer
// at all, it does not even accept.
class FakeLircd {
 public:
  using Answer = std::function<std::string(const std::string& command)>;

  explicit FakeLircd(const std::string& path, const Answer& answer = nullptr, int backlog = 5)
      : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener_, backlog), 0);
    if (answer) server_ = std::thread([this, answer] { serve(answer); });
  }
  ~FakeLircd() {
    shutdown(listener_, SHUT_RDWR);
    if (server_.joinable()) server_.join();
    close(listener_);
  }
  FakeLircd(const FakeLircd&) = delete;
  FakeLircd& operator=(const FakeLircd&) = delete;

 private:
  void serve(const Answer& answer) const {
    for (int client = 0; (client = accept(listener_, nullptr, nullptr)) != -1; close(client)) {
      std::string command;
      for (char byte = 0; read(client, &byte, 1) == 1;) {
        if (byte != '\n') {
          command += byte;
          continue;
        }
        const std::string text = answer(command);
        if (text.empty()) break;
        send(client, text.data(), text.size(), MSG_NOSIGNAL);
        command.clear();
      }
    }
  }

  int listener_;
  std::thread server_;
};

std::string packet(const std::string& command, const std::vector<std::string>& data) {
  std::string text = "BEGIN\n" + command + "\nSUCCESS\n";
  if (!data.empty()) text += "DATA\n" + std::to_string(data.size()) + "\n";
  for (const std::string& line : data) text += line + "\n";
  return text + "END\n";
}

// Knows one remote of these buttons.
FakeLircd::Answer knows(const std::vector<std::string>& buttons) {
  return [buttons](const std::string& command) {
    if (command == "LIST") return packet(command, {"myremote"});
    std::vector<std::string> lines;
    lines.reserve(buttons.size());
    for (const std::string& button : buttons) lines.push_back("0000000000f40bf0 " + button);
    return packet(command, lines);
  };
}

constexpr auto kLimit = 10s;

TEST(LircClient, TakesRemotesAndTheirButtons) {
  const Root root;
  const std::string path = root.path() + "/lircd";
  const FakeLircd lircd(path, knows({"KEY_UP", "KEY_OK"}));
  const RemotesAnswer answer = askForRemotes(path, kLimit);
  EXPECT_EQ(answer.outcome, Outcome::kComplete);
  ASSERT_EQ(answer.remotes.size(), 1U);
  EXPECT_EQ(answer.remotes[0].name, "myremote");
  EXPECT_EQ(answer.remotes[0].buttons, (Ids{"KEY_UP", "KEY_OK"}));
}

TEST(LircClient, PassesOverButtonsThatArePressedMeanwhileAndReloads) {
  const Root root;
  const std::string path = root.path() + "/lircd";
  const FakeLircd lircd(path, [](const std::string& command) {
    return "0000000000f40bf0 00 KEY_UP myremote\nBEGIN\nSIGHUP\nEND\n" + knows({"KEY_UP"})(command);
  });
  const RemotesAnswer answer = askForRemotes(path, kLimit);
  EXPECT_EQ(answer.outcome, Outcome::kComplete);
  ASSERT_EQ(answer.remotes.size(), 1U);
  EXPECT_EQ(answer.remotes[0].buttons, Ids{"KEY_UP"});
}

struct NoAnswer {
  const char* what;
  std::string text;
  Outcome outcome;
};

std::vector<NoAnswer> noAnswers() {
  return {{"an error", "BEGIN\nLIST\nERROR\nDATA\n1\nunknown command\nEND\n", Outcome::kRefused},
          {"no success", "BEGIN\nLIST\nEND\n", Outcome::kRefused},
          {"no end", std::string("BEGIN\n") + std::string(100000, 'x'), Outcome::kTooMuch},
          {"too many lines", "BEGIN\nLIST\nSUCCESS\nDATA\n1\n" + std::string(300000, '\n'), Outcome::kTooMuch},
          {"nothing but an end", "END\nBEGIN\nEND\n", Outcome::kTimedOut},
          {"nothing, and no connection", "", Outcome::kClosed}};
}

TEST(LircClient, SaysWhyAnAnswerIsNone) {
  for (const NoAnswer& answer : noAnswers()) {
    const Root root;
    const std::string path = root.path() + "/lircd";
    const FakeLircd lircd(path, [&](const std::string& /*command*/) { return answer.text; });
    EXPECT_EQ(askForRemotes(path, 200ms).outcome, answer.outcome) << answer.what;
  }
}

TEST(LircClient, TakesNoMoreThanAMebibyteOverAll) {
  const Root root;
  const std::string path = root.path() + "/lircd";
  const FakeLircd lircd(path, [](const std::string& command) {
    if (command == "LIST") return packet(command, std::vector<std::string>(100, "myremote"));
    return packet(command, std::vector<std::string>(1000, "0000000000f40bf0 KEY_UP"));
  });
  const RemotesAnswer answer = askForRemotes(path, kLimit);
  EXPECT_EQ(answer.outcome, Outcome::kTooMuch);
  EXPECT_LT(answer.remotes.size(), 50U);
}

TEST(LircClient, DoesNotWaitForADaemonThatDoesNotAnswer) {
  const Root root;
  const std::string path = root.path() + "/lircd";
  const FakeLircd lircd(path);
  EXPECT_EQ(askForRemotes(path, 100ms).outcome, Outcome::kTimedOut);
}

TEST(LircClient, DoesNotWaitForOneThatStopsInTheMiddle) {
  const Root root;
  const std::string path = root.path() + "/lircd";
  const FakeLircd lircd(path, [](const std::string& command) {
    return command == "LIST" ? packet(command, {"myremote"}) : "BEGIN\nLIST myremote\nSUCC";
  });
  EXPECT_EQ(askForRemotes(path, 200ms).outcome, Outcome::kTimedOut);
}

TEST(LircClient, DoesNotWaitWhereNobodyListens) {
  EXPECT_EQ(askForRemotes("/nowhere/lircd", kLimit).outcome, Outcome::kClosed);
}

// ---- The socket ---------------------------------------------------------------------------------

class SocketRules : public testing::Test {
 protected:
  Ids check() const { return idsOf(checkRemote(gatherRemote(path, findProcesses(root.path()), root.path()))); }

  void addLircd(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"/usr/sbin/lircd", "--nodaemon"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    root.addProcess(7, "lircd", arguments);
  }

  Root root;
  std::string path = root.path() + "/lircd";
};

TEST_F(SocketRules, FindNothingWhereLircdAnswersAndKnowsButtons) {
  const FakeLircd lircd(path, knows({"KEY_UP", "ok", "KEY_NUMERIC_1", "a"}));
  addLircd({"--output=" + path});
  EXPECT_EQ(check(), Ids());
}

TEST_F(SocketRules, FindNothingWhereTheRemoteIsLeftOut) {
  addLircd({"--output=/run/elsewhere"});
  path = kLeaveOut;
  EXPECT_EQ(check(), Ids());
}

TEST_F(SocketRules, FindThatThereIsNone) { EXPECT_EQ(check(), Ids{"no-socket " + path}); }

TEST_F(SocketRules, FindAPathThatIsTooLong) {
  path = "/" + std::string(components::input::kLongestLircPath, 'x');
  EXPECT_EQ(check(), Ids{"socket-path-too-long " + path});
}

TEST_F(SocketRules, FindAPathOfTheDaemonThatIsTooLong) {
  const std::string longPath = "/" + std::string(components::input::kLongestLircPath, 'x');
  addLircd({"--output", longPath});
  EXPECT_EQ(check(), Ids{"socket-path-too-long " + longPath});
}

TEST_F(SocketRules, FindADaemonThatHasEnded) {
  { const FakeLircd lircd(path); }
  EXPECT_EQ(check(), Ids{"daemon-not-running " + path});
}

TEST_F(SocketRules, FindAFileInThePlaceOfTheSocket) {
  root.write("/lircd", "");
  EXPECT_EQ(check(), Ids{"not-a-socket " + path});
}

TEST_F(SocketRules, AdviseToRemoveOnlyAFileThatWasNotGiven) {
  RemoteFacts facts;
  facts.sockets = {{"/run/lircd", ECONNREFUSED, true, false}};
  EXPECT_EQ(checkRemote(facts)[0].remedy,
            "Remove it, and start the daemon again, or pass the path of the daemon's socket with --lirc");
  facts.isGiven = true;
  EXPECT_EQ(checkRemote(facts)[0].remedy, "Pass the path of the daemon's socket with --lirc");
}

TEST_F(SocketRules, LeaveAPathThatAProcessChoseOutOfTheRemedy) {
  const std::string chosen = "/tmp/x;$(touch /tmp/y)";
  addLircd({"--output=" + chosen, "--driver=default", "--device=" + chosen, "--options-file=" + chosen});
  const Findings findings = checkRemote(gatherRemote(path, findProcesses(root.path()), root.path()));
  EXPECT_EQ(idsOf(findings), (Ids{"other-socket " + chosen, "no-receiver " + chosen}));
  for (const Finding& finding : findings) {
    EXPECT_EQ(finding.remedy.find(chosen), std::string::npos) << finding.remedy;
  }
}

TEST_F(SocketRules, FindADaemonThatTakesNoMoreConnections) {
  const FakeLircd lircd(path, nullptr, 0);
  const int first = connectWithoutWaiting(path);
  EXPECT_EQ(check(), Ids{"daemon-silent " + path});
  close(first);
}

TEST_F(SocketRules, FindADaemonThatTakesConnectionsAndDoesNotAnswer) {
  const FakeLircd lircd(path);
  EXPECT_EQ(check(), Ids{"daemon-silent " + path});
}

TEST_F(SocketRules, FindADaemonThatClosesConnections) {
  const FakeLircd lircd(path, [](const std::string& /*command*/) { return ""; });
  const Findings findings = checkRemote(gatherRemote(path, {}, root.path()));
  EXPECT_EQ(idsOf(findings), Ids{"daemon-silent " + path});
  EXPECT_NE(findings[0].what.find("closes them without an answer"), std::string::npos) << findings[0].what;
}

TEST_F(SocketRules, LeaveUnseenWhatADaemonDoesNotSay) {
  const std::vector<std::pair<std::string, std::string>> answers = {
      {"BEGIN\nLIST\nERROR\nEND\n", "refuses the question (command LIST)"},
      {std::string(100000, 'x'), "answers too much (command LIST)"}};
  for (const auto& [text, what] : answers) {
    path = root.path() + "/" + std::to_string(text.size());
    const FakeLircd lircd(path, [text = text](const std::string& /*command*/) { return text; });
    const RemoteFacts facts = gatherRemote(path, {}, root.path());
    EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
    EXPECT_EQ(unseenOfRemote(facts),
              "which buttons the daemon at " + path + " knows: it " + what + ", as another one than lircd does");
  }
}

TEST_F(SocketRules, AskInputlircdNothing) {
  const FakeLircd daemon(path);
  root.addProcess(7, "inputlircd", {"inputlircd", "-m0", "-r", "200", "-d", path, "/dev/input/event3"});
  EXPECT_EQ(check(), Ids());
}

TEST_F(SocketRules, FindADaemonOnAnotherSocketByWhatItHasOpen) {
  addLircd({});
  root.addOpenFile(7, 3, "socket:[4711]");
  root.write("/proc/net/unix",
             "Num       RefCount Protocol Flags    Type St Inode Path\n"
             "0000000000000000: 00000002 00000000 00010000 0001 01 4710 /run/other\n"
             "0000000000000000: 00000002 00000000 00010000 0001 01 4711 /run/a b/lircd\n"
             "0000000000000000: 00000003 00000000 00000000 0001 03 4712 /run/client\n"
             "0000000000000000: 00000003 00000000 00000000 0001 03 4713\n");
  EXPECT_EQ(check(), Ids{"other-socket /run/a b/lircd"});
}

TEST_F(SocketRules, FindADaemonOnAnotherSocketByItsCommandLine) {
  const std::vector<std::vector<std::string>> ways = {
      {"--output=/run/other"},     {"--output", "/run/other"}, {"-o/run/other"},
      {"-o", "/run/other"},        {"-no", "/run/other"},      {"-n", "--device=x", "-o", "/run/other"},
      {"-H", "-o", "-o/run/other"}};
  for (const std::vector<std::string>& way : ways) {
    addLircd(way);
    EXPECT_EQ(check(), Ids{"other-socket /run/other"}) << way[0];
  }
}

TEST_F(SocketRules, FindADaemonOnAnotherSocketByItsOptionsFile) {
  root.write("/etc/mine.conf",
             "output = /run/wrong\n[lircd]\n# output = /run/wrong\n  output\t=  /run/other  ; a comment\n"
             "[lircmd]\noutput = /run/wrong\n");
  addLircd({"-O", "/etc/mine.conf"});
  EXPECT_EQ(check(), Ids{"other-socket /run/other"});
}

TEST_F(SocketRules, FindADaemonOnItsDefaultSocket) {
  addLircd({});
  EXPECT_EQ(check(), Ids{"other-socket /var/run/lirc/lircd"});
}

TEST_F(SocketRules, FindInputlircdOnAnotherSocket) {
  root.addProcess(7, "inputlircd", {"inputlircd", "-m", "0", "-r200", "-cd", "/run/other"});
  EXPECT_EQ(check(), Ids{"other-socket /run/other"});
}

TEST_F(SocketRules, TakeALinkForTheSocketItself) {
  const FakeLircd lircd(path, knows({"KEY_UP"}));
  const std::string real = path;
  path = root.path() + "/link";
  root.link("/link", real);
  addLircd({"--output=" + real});
  EXPECT_EQ(check(), Ids());
}

TEST_F(SocketRules, FindThatThisUserMayNotConnect) {
  RemoteFacts facts;
  facts.sockets = {{"/run/lircd", EACCES, true, true}};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"socket-not-permitted /run/lircd"});
}

TEST_F(SocketRules, FindNothingWhereNoRemoteIsGivenAndNoDaemonRuns) {
  RemoteFacts facts;
  facts.sockets = {{"/var/run/lirc/lircd", ENOENT, false, false}, {"/dev/lircd", ENOENT, false, false}};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
}

// ---- What the daemon knows ----------------------------------------------------------------------

TEST_F(SocketRules, FindThatLircdKnowsNoRemote) {
  const FakeLircd lircd(path, [](const std::string& command) { return packet(command, {}); });
  EXPECT_EQ(check(), Ids{"no-remotes " + path});
}

TEST_F(SocketRules, FindThatNoButtonIsKnown) {
  const FakeLircd lircd(path, knows({"BTN_1", "KEY_POWER2"}));
  EXPECT_EQ(check(), Ids{"no-known-button " + path});
}

TEST_F(SocketRules, FindTheButtonsThatAreNotKnown) {
  const FakeLircd lircd(path, knows({"KEY_UP", "KEY_POWER2", "TELETEXT", "KEY_KEY_UP", "KEY_"}));
  const Findings findings = checkRemote(gatherRemote(path, {}, root.path()));
  EXPECT_EQ(idsOf(findings), Ids{"unknown-buttons remote myremote"});
  EXPECT_EQ(
      findings[0].what,
      "The reader does not know 4 of its 5 buttons, and gives nothing for them: KEY_POWER2, TELETEXT, KEY_KEY_UP and "
      "KEY_");
}

TEST(RemoteRules, DoNotListAllKeysOfLinux) {
  RemoteFacts facts;
  facts.sockets = {{"/run/lircd", 0, true, true}};
  facts.answer = RemotesAnswer{Outcome::kComplete, {{"devinput-64", {"KEY_UP", "KEY_ZOOM"}}}};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
}

// ---- The receiver -------------------------------------------------------------------------------

LircDaemon lircd(const std::string& driver, const std::string& device) {
  LircDaemon daemon;
  daemon.process = "lircd (process 7)";
  daemon.optionsFile = "/etc/lirc/lirc_options.conf";
  daemon.driver = driver;
  daemon.device = device;
  return daemon;
}

RemoteFacts connectedTo(const LircDaemon& daemon) {
  RemoteFacts facts;
  facts.sockets = {{"/run/lirc/lircd", 0, true, true}};
  facts.daemons = {daemon};
  return facts;
}

TEST(ReceiverRules, FindADeviceThatIsNotThere) {
  RemoteFacts facts = connectedTo(lircd("default", "/dev/lirc0"));
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"no-receiver /dev/lirc0"});
  EXPECT_NE(checkRemote(facts)[0].what.find("CONFIG_RC_CORE"), std::string::npos);
  facts.receivers = {{"rc0", {}, "", {"/dev/input/event5"}}};
  EXPECT_NE(checkRemote(facts)[0].what.find("CONFIG_LIRC"), std::string::npos);
  facts.deviceFiles = {"/dev/lirc0"};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
}

TEST(ReceiverRules, FindThatLircdFindsNoneByItself) {
  RemoteFacts facts = connectedTo(lircd("devinput", "auto"));
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"no-receiver /etc/lirc/lirc_options.conf"});
  facts.receivers = {{"rc0", {}, "", {"/dev/input/event5", "/dev/input/event6"}}};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"no-receiver /etc/lirc/lirc_options.conf"});
  facts.receivers = {{"rc0", {}, "", {"/dev/input/event5"}}};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
  facts.daemons = {lircd("default", "auto")};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"no-receiver /etc/lirc/lirc_options.conf"});
}

TEST(ReceiverRules, KnowNothingOfOtherDrivers) {
  EXPECT_EQ(idsOf(checkRemote(connectedTo(lircd("udp", "8765")))), Ids());
  EXPECT_EQ(idsOf(checkRemote(connectedTo(lircd("", "")))), Ids());
  EXPECT_EQ(idsOf(checkRemote(connectedTo(lircd("udp", "auto")))), Ids());
}

TEST_F(SocketRules, LookAtTheReceiverThatLircdIsToReadFrom) {
  const FakeLircd lircd(path, knows({"KEY_UP"}));
  root.write("/etc/lirc/lirc_options.conf", "[lircd]\ndriver = default\ndevice = /dev/lirc0\n");
  addLircd({"--output=" + path});
  EXPECT_EQ(check(), Ids{"no-receiver /dev/lirc0"});
  root.write("/dev/lirc0", "");
  EXPECT_EQ(check(), Ids());
}

// ---- Two ways -----------------------------------------------------------------------------------

TEST_F(SocketRules, FindAReceiverThatTheKernelDecodesAsWell) {
  const FakeLircd lircd(path, knows({"KEY_UP"}));
  root.write("/dev/lirc0", "");
  root.write("/sys/class/rc/rc0/protocols", "rc-5 [nec] rc-6 [lirc]\n");
  std::filesystem::create_directories(root.path() + "/sys/class/rc/rc0/lirc0");
  std::filesystem::create_directories(root.path() + "/sys/class/rc/rc0/input5/event7");
  addLircd({"--output=" + path, "--driver=default", "--device=/dev/lirc0"});
  EXPECT_EQ(check(), Ids{"remote-twice rc0"});
  root.write("/sys/class/rc/rc0/protocols", "rc-5 nec rc-6 [lirc]\n");
  EXPECT_EQ(check(), Ids());
}

TEST(TwoWaysRules, SayWhetherEachPressComesTwice) {
  RemoteFacts facts = connectedTo(lircd("default", "/dev/lirc0"));
  facts.deviceFiles = {"/dev/lirc0"};
  facts.receivers = {{"rc0", {"nec"}, "/dev/lirc0", {"/dev/input/event7"}}};
  EXPECT_NE(checkRemote(facts)[0].what.find("the console gets them"), std::string::npos);
  facts.nodesRead = {"/dev/input/event7"};
  EXPECT_NE(checkRemote(facts)[0].what.find("each press comes twice"), std::string::npos);
}

TEST(TwoWaysRules, FindLircdUinput) {
  LircDaemon daemon;
  daemon.kind = DaemonKind::kLircdUinput;
  daemon.process = "lircd-uinput (process 9)";
  EXPECT_EQ(idsOf(checkRemote(connectedTo(daemon))), Ids{"remote-twice lircd-uinput (process 9)"});
}

TEST_F(SocketRules, FindLircdUinputAmongTheProcesses) {
  const FakeLircd lircd(path, knows({"KEY_UP"}));
  root.addProcess(9, "lircd-uinput", {"/usr/sbin/lircd-uinput"});
  EXPECT_EQ(check(), Ids{"remote-twice lircd-uinput (process 9)"});
}

TEST_F(SocketRules, FindANodeThatInputlircdReadsBesideTheReader) {
  const FakeLircd daemon(path);
  root.addProcess(7, "inputlircd", {"inputlircd", "-d", path, "-r", "200", "-m", "0", "/dev/input/by-id/x"});
  root.addOpenFile(7, 3, "/dev/input/event3");
  root.addOpenFile(7, 4, "/dev/input/event4");
  RemoteFacts facts = gatherRemote(path, findProcesses(root.path()), root.path());
  facts.nodesRead = {"/dev/input/event1"};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids());
  facts.nodesRead = {"/dev/input/event1", "/dev/input/event4"};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"remote-twice /dev/input/event4"});
}

TEST_F(SocketRules, TakeTheNodesOfInputlircdFromItsCommandLineWhereItsFilesCannotBeSeen) {
  const FakeLircd daemon(path);
  root.addProcess(7, "inputlircd", {"inputlircd", "-d", path, "-r", "200", "-m", "0", "/dev/input/event4"});
  std::filesystem::remove(root.path() + "/proc/7/fd");
  RemoteFacts facts = gatherRemote(path, findProcesses(root.path()), root.path());
  facts.nodesRead = {"/dev/input/event4"};
  EXPECT_EQ(idsOf(checkRemote(facts)), Ids{"remote-twice /dev/input/event4"});
}

// ---- inputlircd ---------------------------------------------------------------------------------

TEST_F(SocketRules, FindInputlircdWithoutRepeatsAndWithoutDigits) {
  const FakeLircd daemon(path);
  root.addProcess(7, "inputlircd", {"inputlircd", "-d", path, "/dev/input/event3"});
  EXPECT_EQ(check(), (Ids{"repeats-are-presses inputlircd (process 7)", "digits-left-out inputlircd (process 7)"}));
  root.addProcess(7, "inputlircd", {"inputlircd", "-d", path, "-r", "0", "-m", "88", "/dev/input/event3"});
  EXPECT_EQ(check(), (Ids{"repeats-are-presses inputlircd (process 7)", "digits-left-out inputlircd (process 7)"}));
}

TEST_F(SocketRules, SayWhichKeysInputlircdLeavesOut) {
  constexpr int kMostConnections = 20;
  const FakeLircd daemon(path, nullptr, kMostConnections);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"0", ""},
      {"2", ""},
      {"3", "leaves out keys below 3: digits are among them"},
      {"28", "leaves out keys below 28: digits are among them"},
      {"29", "leaves out keys below 29: digits and Enter are among them"},
      {"", "leaves out keys below 88, as it does without -m: digits and Enter are among them"},
      {"99999999999",
       "runs with -m \"99999999999\", which is not the number of a key: digits and Enter can be left out"},
      {"0x1", "runs with -m \"0x1\", which is not the number of a key: digits and Enter can be left out"}};
  for (const auto& [lowest, what] : cases) {
    root.addProcess(7, "inputlircd", {"inputlircd", "-d", path, "-r", "200", "-m", lowest, "/dev/input/event3"});
    const Findings findings = checkRemote(gatherRemote(path, findProcesses(root.path()), root.path()));
    EXPECT_EQ(idsOf(findings), what.empty() ? Ids() : Ids{"digits-left-out inputlircd (process 7)"}) << lowest;
    EXPECT_EQ(findings.empty() ? "" : findings[0].what, what.empty() ? "" : "inputlircd (process 7) " + what);
  }
}

// ---- Odd files ----------------------------------------------------------------------------------

TEST_F(SocketRules, TakeNoHarmOfAnOddSysfsAndAnOddProc) {
  const FakeLircd lircd(path, knows({"KEY_UP"}));
  root.write("/sys/class/rc/rc0/protocols", "] [ [] [\n[lirc");
  root.write("/sys/class/rc/rc1", "not a directory");
  root.write("/sys/class/rc/rc2/input3", "not a directory");
  root.write("/proc/net/unix", "0: 0 0 00010000\n\n\xff\xff");
  root.write("/proc/7/stat", "7 (lircd)");
  root.write("/proc/8/stat", "8 (inputlircd) S");
  EXPECT_EQ(check(), (Ids{"repeats-are-presses inputlircd (process 8)", "digits-left-out inputlircd (process 8)"}));
}

}  // namespace
}  // namespace quarlo::tools::checkup
