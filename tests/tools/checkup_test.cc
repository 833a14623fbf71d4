// The rules that are about the machine around the sources: its environment, clock, console, kernel and processes.
#include "tools/common/checkup/checkup.h"

#include <gtest/gtest.h>
#include <linux/kd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>

#include "sim/machine.h"
#include "tests/tools/findings.h"
#include "tools/common/checkup/clock.h"
#include "tools/common/checkup/console.h"
#include "tools/common/checkup/environment.h"
#include "tools/common/checkup/files.h"
#include "tools/common/checkup/kernel.h"
#include "tools/common/checkup/processes.h"

namespace quarlo::tools::checkup {
namespace {

// ---- Findings -----------------------------------------------------------------------------------

TEST(Findings, StandInTheOrderOfTheirProblems) {
  for (std::size_t i = 0; i < kinds().size(); ++i) EXPECT_EQ(static_cast<std::size_t>(kinds()[i].problem), i);
}

TEST(Findings, ComeInTheOrderOfHarm) {
  Findings findings = {{Problem::kClockNotSet, "", "a", ""},
                       {Problem::kRemoteTwice, "", "b", ""},
                       {Problem::kNoNode, "", "c", ""},
                       {Problem::kRemoteTwice, "", "d", ""}};
  sortByHarm(findings);
  EXPECT_EQ(idsOf(findings), (Ids{"no-node c", "remote-twice b", "remote-twice d", "clock-not-set a"}));
}

TEST(Findings, AreNeverLessHarmfulThanThoseBehindThem) {
  for (std::size_t i = 1; i < kinds().size(); ++i) EXPECT_LE(kinds()[i - 1].severity, kinds()[i].severity);
}

TEST(Findings, HaveTheirPartsAsFields) {
  EXPECT_EQ(
      toJson({Problem::kNodeGrabbed, "Grabbed", "/dev/input/event3", "End it"}).dump(),
      R"({"id":"node-grabbed","severity":"error","what":"Grabbed","where":"/dev/input/event3","remedy":"End it"})");
}

TEST(Findings, HaveARowEachInTheirDocument) {
  std::ifstream stream(QUARLO_DOCUMENTS "/doctor.md");
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const std::regex row(R"(\n\| `([a-z-]+)` \| (error|warning|notice) \|)");
  Ids documented;
  for (std::sregex_iterator match(text.begin(), text.end(), row), end; match != end; ++match) {
    documented.push_back((*match)[1].str() + " " + (*match)[2].str());
  }
  Ids known;
  for (const Kind& kind : kinds()) known.push_back(std::string(kind.id) + " " + nameOf(kind.severity));
  EXPECT_EQ(documented, known);
}

// ---- The environment ----------------------------------------------------------------------------

Ids environment(const std::optional<std::string>& repeat, const std::optional<std::string>& release) {
  return idsOf(checkEnvironment({repeat, release}));
}

TEST(EnvironmentRules, FindNothingWhereNothingIsSetOrItWorks) {
  EXPECT_EQ(environment(std::nullopt, std::nullopt), Ids());
  EXPECT_EQ(environment("75", "400"), Ids());
  EXPECT_EQ(environment(" +75 ", "10000"), Ids());
  EXPECT_EQ(environment("23", "24"), Ids());
}

TEST(EnvironmentRules, FindWhatIsNoNumberAboveZero) {
  for (const char* text : {"", "fast", "0", "-5", "0.3", "0x64"}) {
    EXPECT_EQ(environment(text, std::nullopt), Ids{"timeout-ignored LIRC_REPEAT_TIMEOUT"}) << text;
    EXPECT_EQ(environment(std::nullopt, text), Ids{"timeout-ignored LIRC_RELEASE_TIMEOUT"}) << text;
  }
}

TEST(EnvironmentRules, FindWhatIsReadInPart) {
  EXPECT_EQ(environment("75ms", std::nullopt), Ids{"timeout-misread LIRC_REPEAT_TIMEOUT"});
  EXPECT_EQ(environment(std::nullopt, "4e2"), Ids{"timeout-misread LIRC_RELEASE_TIMEOUT"});
}

TEST(EnvironmentRules, FindWhatNoRemoteCanKeepTo) {
  EXPECT_EQ(environment("22", std::nullopt), Ids{"timeout-unusable LIRC_REPEAT_TIMEOUT"});
  EXPECT_EQ(environment(std::nullopt, "10001"), Ids{"timeout-unusable LIRC_RELEASE_TIMEOUT"});
  EXPECT_EQ(environment(std::nullopt, "99999999999999999999"), Ids{"timeout-unusable LIRC_RELEASE_TIMEOUT"});
}

TEST(EnvironmentRules, FindAReleaseTimeoutThatIsNotLonger) {
  const Ids both = {"timeout-unusable LIRC_RELEASE_TIMEOUT, LIRC_REPEAT_TIMEOUT"};
  EXPECT_EQ(environment("300", std::nullopt), both);
  EXPECT_EQ(environment(std::nullopt, "100"), both);
  EXPECT_EQ(environment("200", "150"), both);
}

TEST(EnvironmentRules, LookAtTheEnvironment) {
  sim::Machine machine;
  EXPECT_EQ(idsOf(checkEnvironment(gatherEnvironment())), Ids());
  machine.setEnvironment("LIRC_REPEAT_TIMEOUT", "soon");
  machine.setEnvironment("LIRC_RELEASE_TIMEOUT", "never");
  EXPECT_EQ(idsOf(checkEnvironment(gatherEnvironment())),
            (Ids{"timeout-ignored LIRC_REPEAT_TIMEOUT", "timeout-ignored LIRC_RELEASE_TIMEOUT"}));
}

// ---- The clock ----------------------------------------------------------------------------------

constexpr std::int64_t kStartOf2020 = 1577836800;
constexpr std::int64_t kLastNarrowSecond = INT32_MAX;
constexpr std::int64_t kYear = 365 * 86400;

TEST(ClockRules, FindAClockThatWasNeverSet) {
  EXPECT_EQ(idsOf(checkClock({0, false})), Ids{"clock-not-set clock"});
  EXPECT_EQ(idsOf(checkClock({kStartOf2020 - 1, true})), Ids{"clock-not-set clock"});
  EXPECT_EQ(idsOf(checkClock({kStartOf2020, true})), Ids());
}

TEST(ClockRules, FindAClockOf32BitsInItsLastYearAndBeyond) {
  EXPECT_EQ(idsOf(checkClock({kLastNarrowSecond - kYear, true})), Ids());
  EXPECT_EQ(idsOf(checkClock({kLastNarrowSecond - kYear + 1, true})), Ids{"clock-ends clock"});
  EXPECT_EQ(idsOf(checkClock({-5, true})), Ids{"clock-ends clock"});
  EXPECT_EQ(idsOf(checkClock({kLastNarrowSecond + kYear, false})), Ids());
}

TEST(ClockRules, LookAtTheClock) {
  const ClockFacts facts = gatherClock();
  EXPECT_GT(facts.seconds, kStartOf2020);
  EXPECT_EQ(facts.hasNarrowTime, sizeof(std::time_t) == 4);
}

// ---- The console --------------------------------------------------------------------------------

TEST(ConsoleRules, FindAProgramThatWaitsAtAConsoleWhoseKeysBecomeText) {
  for (const int mode : {K_XLATE, K_UNICODE}) {
    EXPECT_EQ(idsOf(checkConsole({"tty1", mode, {"agetty (process 412)"}, true})), Ids{"console-types /dev/tty1"});
  }
}

TEST(ConsoleRules, FindNothingWhereNobodyWaitsOrTypesOrTheKeyboardIsOff) {
  for (const int mode : {K_OFF, K_RAW, K_MEDIUMRAW}) {
    EXPECT_EQ(idsOf(checkConsole({"tty1", mode, {"agetty (process 412)"}, true})), Ids());
  }
  EXPECT_EQ(idsOf(checkConsole({"tty1", K_UNICODE, {}, true})), Ids());
  EXPECT_EQ(idsOf(checkConsole({"tty1", K_UNICODE, {"agetty (process 412)"}, false})), Ids());
}

TEST(ConsoleRules, SayThatTheConsoleCouldNotBeAsked) {
  const ConsoleFacts facts = {"tty1", std::nullopt, {"agetty (process 412)"}, true};
  EXPECT_EQ(idsOf(checkConsole(facts)), Ids());
  EXPECT_EQ(unseenOfConsole(facts),
            "whether what is typed reaches the console tty1 behind the screen: this user may not ask it");
  EXPECT_EQ(unseenOfConsole({"tty1", std::nullopt, {}, true}), "");
  EXPECT_EQ(unseenOfConsole({"tty1", K_OFF, {"agetty (process 412)"}, true}), "");
}

TEST(ConsoleRules, LookAtWhoWaitsAtTheConsoleInFront) {
  constexpr int kTty1 = 4 * 256 + 1;
  constexpr int kTty2 = 4 * 256 + 2;
  constexpr int kSerial1 = 4 * 256 + 65;
  constexpr int kPseudo1 = 136 * 256 + 1;
  const Root root;
  root.write("/sys/class/tty/tty0/active", "tty1\n");
  root.write("/dev/tty1", "not a console");
  root.addProcess(10, "agetty", {"/sbin/agetty"}, kTty1);
  root.addProcess(11, "(sd) 1 2", {"x"}, kTty2);
  root.addProcess(12, ") R 9 9 9 1025", {"x"}, kTty1);
  root.addProcess(13, "getty", {"x"}, kSerial1);
  root.addProcess(14, "bash", {"x"}, kPseudo1);
  const ConsoleFacts facts = gatherConsole(findProcesses(root.path()), true, root.path());
  EXPECT_EQ(facts.console, "tty1");
  EXPECT_EQ(facts.processes, (Ids{"agetty (process 10)", ") R 9 9 9 1025 (process 12)"}));
  EXPECT_EQ(facts.keyboardMode, std::nullopt);
}

TEST(ConsoleRules, FindNothingWithoutConsoles) {
  const Root root;
  const std::vector<Process> processes = {{10, "agetty", 1, {}, true}};
  for (const char* active : {"", "\n", "hvc0\n", "tty\n", "tty99\n", "ttyS0\n"}) {
    root.write("/sys/class/tty/tty0/active", active);
    const ConsoleFacts facts = gatherConsole(processes, true, root.path());
    EXPECT_EQ(facts.console, "") << active;
    EXPECT_EQ(idsOf(checkConsole(facts)), Ids()) << active;
  }
}

// ---- The kernel ---------------------------------------------------------------------------------

// As /proc/bus/input/devices has them, a keyboard with this handler more.
std::string devices(const std::string& handler) {
  return "I: Bus=0011 Vendor=0001 Product=0001 Version=ab41\n"
         "N: Name=\"H: Handlers=event99\"\n"
         "H: Handlers=sysrq kbd leds " +
         handler + "\nB: EV=120013\n\n";
}

Ids kernel(const Root& root, const std::vector<std::string>& nodes) {
  return idsOf(checkKernel(gatherKernel(nodes, true, root.path())));
}

TEST(KernelRules, FindNothingWhereTheNodesAreThere) {
  const Root root;
  root.write("/proc/bus/input/devices", devices("event0") + devices("event1"));
  EXPECT_EQ(kernel(root, {"event0", "event1"}), Ids());
}

TEST(KernelRules, FindThatThereIsNoDevice) {
  const Root root;
  EXPECT_EQ(kernel(root, {}), Ids{"no-node /dev/input"});
  EXPECT_EQ(idsOf(checkKernel(gatherKernel({}, /*nodesAreNeeded=*/false, root.path()))), Ids());
}

TEST(KernelRules, FindThatEvdevIsMissing) {
  const Root root;
  root.write("/proc/bus/input/devices", devices(""));
  EXPECT_EQ(kernel(root, {}), Ids{"no-evdev /proc/bus/input/devices"});
}

TEST(KernelRules, FindThatNobodyMadeTheNodes) {
  const Root root;
  root.write("/proc/bus/input/devices", devices("event0") + devices("event1"));
  EXPECT_EQ(kernel(root, {}), Ids{"nodes-not-made /dev/input"});
  EXPECT_EQ(kernel(root, {"event0"}), Ids{"nodes-not-made /dev/input"});
}

TEST(KernelRules, FindAContainerByWhatItLeaves) {
  const std::vector<std::pair<std::string, std::string>> hints = {
      {"/.dockerenv", ""},
      {"/run/.containerenv", ""},
      {"/run/systemd/container", "lxc"},
      {"/proc/1/environ", std::string("PATH=/\0container=lxc\0", 21)},
      {"/proc/1/environ", std::string("container=podman\0", 17)},
      {"/proc/1/cgroup", "0::/kubepods/burstable/pod1"}};
  for (const auto& [file, text] : hints) {
    const Root root;
    root.write(file, text);
    root.write("/proc/bus/input/devices", devices("event0"));
    EXPECT_EQ(kernel(root, {}), Ids{"container-without-nodes /dev/input"}) << file;
    EXPECT_EQ(kernel(root, {"event1"}), Ids()) << file;
  }
}

TEST(KernelRules, TakeNoOtherMachineForAContainer) {
  const Root root;
  root.write("/proc/1/environ", std::string("HOME=/\0nocontainer=1\0", 21));
  root.write("/proc/1/cgroup", "0::/init.scope");
  EXPECT_EQ(kernel(root, {}), Ids{"no-node /dev/input"});
}

// ---- Files and processes that are odd -----------------------------------------------------------

TEST(CheckupFiles, ThatAreNoneOrAreMissingAreEmpty) {
  const Root root;
  EXPECT_EQ(contentOf(root.path() + "/nothing"), "");
  EXPECT_EQ(contentOf(root.path()), "");
  EXPECT_EQ(contentOf("/dev/zero"), "");
  EXPECT_EQ(namesIn(root.path() + "/nothing"), Ids());
  EXPECT_EQ(targetOf(root.path()), "");
  const test::Fifo fifo(root.path() + "/fifo");
  EXPECT_EQ(contentOf(root.path() + "/fifo"), "");
}

// Opening a device can do something: a watchdog starts, a tape rewinds.
TEST(CheckupFiles, ThatAreNoneAreNotEvenOpened) {
  const Root root;
  const test::Fifo fifo(root.path() + "/fifo");
  root.write("/file", "x");
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ASSERT_NE(inotify_add_watch(watch, (root.path() + "/fifo").c_str(), IN_OPEN), -1);
  inotify_event event = {};
  contentOf(root.path() + "/fifo");
  EXPECT_EQ(read(watch, &event, sizeof event), -1);
  ASSERT_NE(inotify_add_watch(watch, (root.path() + "/file").c_str(), IN_OPEN), -1);
  EXPECT_EQ(contentOf(root.path() + "/file"), "x");
  EXPECT_EQ(read(watch, &event, sizeof event), static_cast<ssize_t>(sizeof event));
  close(watch);
}

TEST(CheckupFiles, ThatAreLongAreReadInPart) {
  const Root root;
  root.write("/long", std::string(3 * 1024 * 1024, 'x'));
  EXPECT_LT(contentOf(root.path() + "/long").size(), 2 * 1024 * 1024U);
}

TEST(CheckupFiles, AreEnumeratedForAPerson) {
  EXPECT_EQ(enumerated({}, 2), "");
  EXPECT_EQ(enumerated({"a"}, 2), "a");
  EXPECT_EQ(enumerated({"a", "b"}, 2), "a and b");
  EXPECT_EQ(enumerated({"a", "b", "c"}, 3), "a, b and c");
  EXPECT_EQ(enumerated({"a", "b", "c", "d"}, 2), "a, b and 2 more");
}

TEST(Processes, ThatEndWhileTheyAreReadAreLeftOut) {
  const Root root;
  root.addProcess(7, "lircd", {"lircd", "-n"});
  root.addOpenFile(7, 3, "/dev/input/event3");
  std::filesystem::create_directories(root.path() + "/proc/8");  // its files are gone
  root.write("/proc/9/stat", "9 (odd");
  root.write("/proc/x/stat", "10 (x) S 1 1 1 0");
  root.write("/proc/11", "not a directory");
  root.addProcess(getpid(), "doctor", {"doctor"});
  const std::vector<Process> processes = findProcesses(root.path());
  ASSERT_EQ(processes.size(), 2U);
  EXPECT_EQ(processes[0].pid, 7);
  EXPECT_EQ(processes[0].name, "lircd");
  EXPECT_EQ(argumentsOf(processes[0], root.path()), (Ids{"lircd", "-n"}));
  EXPECT_EQ(processes[0].openFiles, Ids{"/dev/input/event3"});
  EXPECT_TRUE(processes[0].openFilesAreKnown);
  EXPECT_EQ(processes[1].pid, 9);
  EXPECT_EQ(processes[1].console, 0);
  EXPECT_FALSE(processes[1].openFilesAreKnown);
}

TEST(Processes, KeepNothingOpenButInputDevicesAndSockets) {
  const Root root;
  root.addProcess(7, "x", {"x"});
  root.addOpenFile(7, 0, "/home/tv/" + std::string(3000, 'x'));
  root.addOpenFile(7, 1, "/dev/input/" + std::string(3000, 'x'));
  root.addOpenFile(7, 2, "pipe:[4711]");
  root.addOpenFile(7, 3, "socket:[4711]");
  root.addOpenFile(7, 4, "/dev/input/event3");
  root.addOpenFile(7, 5, "/tmp/dev/input/event3");
  const std::vector<Process> processes = findProcesses(root.path());
  ASSERT_EQ(processes.size(), 1U);
  EXPECT_EQ(processes[0].openFiles, (Ids{"socket:[4711]", "/dev/input/event3"}));
}

TEST(Processes, KeepAsManyOpenFilesAsADaemonCanHave) {
  const Root root;
  root.addProcess(7, "x", {"x"});
  for (int fd = 0; fd < 1100; ++fd) root.addOpenFile(7, fd, "/dev/input/event3");
  const std::vector<Process> processes = findProcesses(root.path());
  ASSERT_EQ(processes.size(), 1U);
  EXPECT_EQ(processes[0].openFiles.size(), 1024U);
}

TEST(Processes, WithEndlessArgumentsAreReadInPart) {
  const Root root;
  root.addProcess(7, "lircd", Ids(100000, ""));
  EXPECT_EQ(argumentsOf(findProcesses(root.path()).at(0), root.path()).size(), 256U);
  root.addProcess(7, "lircd", {"lircd", std::string(1 << 20, 'x')});
  const Ids arguments = argumentsOf(findProcesses(root.path()).at(0), root.path());
  ASSERT_EQ(arguments.size(), 2U);
  EXPECT_LT(arguments[1].size(), 1U << 16);
}

TEST(Processes, OfThisMachineAreRead) { EXPECT_FALSE(findProcesses("").empty()); }

}  // namespace
}  // namespace quarlo::tools::checkup
