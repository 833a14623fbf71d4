// The rules about nodes, and the command, on the simulated machine.
#include "tools/doctor/doctor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "sim/machine.h"
#include "tests/support/devices.h"
#include "tests/tools/findings.h"
#include "tools/common/checkup/checkup.h"
#include "tools/common/checkup/nodes.h"

namespace quarlo::tools {
namespace {

using checkup::Findings;
using checkup::Ids;
using checkup::idsOf;
using checkup::NodesFacts;
using checkup::Root;
using sim::Device;
using namespace std::chrono_literals;

std::string nodePath(int number) { return "/dev/input/event" + std::to_string(number); }

// A machine whose remote nobody asks for, and whose files are those of an empty directory.
class NodeRules : public testing::Test {
 protected:
  NodeRules() { sources.lirc = kLeaveOut; }

  Findings find() const { return checkup::examine(sources, root.path()).findings; }
  Ids check() const { return idsOf(find()); }

  sim::Machine machine;
  Root root;
  SourcePaths sources;
};

TEST_F(NodeRules, FindNothingOnAHealthyMachine) {
  machine.addNode("/dev/input/event0", {"Power Button", {{EV_KEY, {KEY_POWER}}}});
  machine.addNode("/dev/input/event1", Device::keyboard());
  machine.addNode("/dev/input/event2", Device::mouse());
  machine.addNode("/dev/input/event3", Device::touchscreen("Panel"));
  EXPECT_EQ(check(), Ids());
  sources.keyboard = "/dev/input/event1";
  sources.further = {"/dev/input/event3"};
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindNothingWhereALIRCDaemonIsNotUsed) {
  sources.lirc.reset();
  machine.addNode("/dev/input/event1", Device::keyboard());
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindThatThereIsNoNode) {
  EXPECT_EQ(check(), Ids{"no-node /dev/input"});
  sources.mouse = kLeaveOut;
  EXPECT_EQ(check(), Ids{"no-node /dev/input"});
}

TEST_F(NodeRules, FindThatNothingIsTaken) {
  machine.addNode("/dev/input/event0", {"Power Button", {{EV_KEY, {KEY_POWER}}}});
  EXPECT_EQ(check(), Ids{"no-source /dev/input"});
}

TEST_F(NodeRules, FindThatThereIsNoSocketWhereNodesAreLeftOut) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  sources.lirc.reset();
  sources.mouse = sources.keyboard = kLeaveOut;
  const Findings findings = find();
  EXPECT_EQ(idsOf(findings), Ids{"no-source /var/run/lirc/lircd, /var/lircd, /dev/lircd and /dev/lirc/lircd"});
  EXPECT_EQ(findings[0].what, "The application finds nothing to read from: no LIRC socket, and nodes are left out");
  EXPECT_EQ(findings[0].remedy, "Start lircd, or pass the path of its socket with --lirc");
}

TEST_F(NodeRules, FindWhatIsBeyondTheScanAndWouldBeTaken) {
  machine.addNode("/dev/input/event9", Device::keyboard());
  machine.addNode("/dev/input/event11", Device::keyboard());
  machine.addNode("/dev/input/event256", Device::mouse("Far"));
  EXPECT_EQ(check(), Ids{"beyond-scan /dev/input/event256"});
  EXPECT_EQ(
      find()[0].what,
      "Far (/dev/input/event256) would be the mouse, but autodetection looks no further than event10, and finds none "
      "there");
  sources.mouse = kLeaveOut;
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindWhatAnotherProcessHasGrabbed) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::keyboard("Grabbed")).setGrabbedElsewhere(true);
  machine.addNode("/dev/input/event2", Device::touchscreen()).setGrabbedElsewhere(true);
  EXPECT_EQ(check(), Ids{"node-grabbed /dev/input/event1"});
  sources.keyboard = "/dev/input/event0";
  EXPECT_EQ(check(), Ids());
  sources.keyboard = "/dev/input/event1";
  EXPECT_EQ(check(), Ids{"node-grabbed /dev/input/event1"});
  sources.keyboard = kLeaveOut;
  sources.further = {"/dev/input/event2"};
  EXPECT_EQ(check(), Ids{"node-grabbed /dev/input/event2"});
}

TEST_F(NodeRules, SayWhoHasTheGrabbedNodeOpen) {
  machine.addNode("/dev/input/event0", Device::keyboard("Grabbed")).setGrabbedElsewhere(true);
  root.addProcess(7, "Xorg", {"Xorg"});
  root.addOpenFile(7, 12, "/dev/input/event0");
  root.addOpenFile(7, 13, "/dev/input/event0");
  root.addProcess(8, "evtest", {"evtest"});
  root.addOpenFile(8, 3, "/dev/input/event0");
  const Findings findings = find();
  EXPECT_EQ(idsOf(findings), Ids{"node-grabbed /dev/input/event0"});
  EXPECT_EQ(
      findings[0].what,
      "Grabbed (/dev/input/event0) is grabbed by another process, so the application gets nothing of it; open in Xorg "
      "(process 7) and evtest (process 8) (the kernel does not tell which of them has grabbed it)");
}

TEST_F(NodeRules, SayOnceThatOpenFilesCouldNotBeSeen) {
  machine.addNode("/dev/input/event0", Device::keyboard()).setGrabbedElsewhere(true);
  for (const int pid : {7, 8}) {
    root.addProcess(pid, "Xorg", {"Xorg"});
    std::filesystem::remove(root.path() + "/proc/" + std::to_string(pid) + "/fd");
  }
  EXPECT_EQ(checkup::examine(sources, root.path()).unseen,
            Ids{"which nodes and sockets the processes of other users have open: run this with sudo"});
}

TEST_F(NodeRules, LeaveALIRCDaemonItsNode) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::keyboard("Remote")).setGrabbedElsewhere(true);
  root.addProcess(7, "inputlircd", {"inputlircd", "-g", "-r", "200", "-m", "0", "/dev/input/event1"});
  root.addOpenFile(7, 3, "/dev/input/event1");
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, LeaveALIRCDaemonOfAnotherUserItsNode) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::keyboard("Remote")).setGrabbedElsewhere(true);
  root.addProcess(7, "inputlircd", {"inputlircd", "-g", "-r", "200", "-m", "0", "/dev/../dev/input/event1"});
  std::filesystem::remove(root.path() + "/proc/7/fd");
  EXPECT_EQ(check(), Ids());
  root.addProcess(7, "lircd", {"lircd", "--driver=devinput", "--device=/dev/input/event1"});
  std::filesystem::remove(root.path() + "/proc/7/fd");
  EXPECT_EQ(check(), Ids());
  root.addProcess(7, "lircd", {"lircd", "--driver=devinput", "--device=/dev/input/event0"});
  std::filesystem::remove(root.path() + "/proc/7/fd");
  EXPECT_EQ(check(), Ids{"node-grabbed /dev/input/event1"});
}

TEST_F(NodeRules, LeaveLircdTheNodeThatItHasFound) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::keyboard("Remote")).setGrabbedElsewhere(true);
  root.addProcess(7, "lircd", {"lircd", "--driver=devinput", "--device=auto"});
  root.addOpenFile(7, 3, "/dev/input/event1");
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, TakeNoProcessForADaemonWhoseNameOnlyBeginsLikeIt) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::keyboard("Remote")).setGrabbedElsewhere(true);
  root.addProcess(7, "lircd x", {"lircd", "--device=/dev/input/event1"});
  root.addOpenFile(7, 3, "/dev/input/event1");
  EXPECT_EQ(check(), Ids{"node-grabbed /dev/input/event1"});
}

TEST_F(NodeRules, FindAPathThatLeadsToNoNode) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  sources.mouse = "/dev/input/event5";
  EXPECT_EQ(check(), Ids{"node-not-usable /dev/input/event5"});
  sources.mouse = "/dev/null";
  EXPECT_EQ(check(), Ids{"node-not-usable /dev/null"});
  sources.mouse = "/dev/input/event0";
  machine.addNode("/dev/input/event1", Device::mouse()).setOpenError(ENODEV);
  sources.further = {"/dev/input/event1"};
  EXPECT_EQ(check(), Ids{"node-not-usable /dev/input/event1"});
}

TEST_F(NodeRules, FindNodesThatThisUserMayNotReadTogether) {
  machine.addNode("/dev/input/event0", Device::keyboard()).setOpenError(EACCES);
  machine.addNode("/dev/input/event1", Device::mouse()).setOpenError(EACCES);
  machine.addNode("/dev/input/event11", Device::mouse()).setOpenError(EACCES);
  EXPECT_EQ(check(), Ids{"not-permitted /dev/input/event0 and /dev/input/event1"});
  sources.mouse = sources.keyboard = kLeaveOut;
  sources.further = {"/dev/input/event11"};
  EXPECT_EQ(check(), Ids{"not-permitted /dev/input/event11"});
}

TEST_F(NodeRules, FindNothingWhereANodeIsNotReadThatIsNotNeeded) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::mouse());
  machine.addNode("/dev/input/event2", Device::keyboard()).setOpenError(EACCES);
  EXPECT_EQ(check(), Ids());
  EXPECT_EQ(checkup::examine(sources, root.path()).unseen,
            Ids{"what /dev/input/event2 can do: this user may not read it"});
  sources.further = {"/dev/input/event2"};
  EXPECT_EQ(check(), Ids{"not-permitted /dev/input/event2"});
  EXPECT_EQ(checkup::examine(sources, root.path()).unseen, Ids());
}

TEST_F(NodeRules, FindANodeThatThisUserMayNotReadWhereOneOfTwoIsNotFound) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::mouse()).setOpenError(EACCES);
  EXPECT_EQ(check(), Ids{"not-permitted /dev/input/event1"});
  sources.mouse = kLeaveOut;
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindAGivenNodeThatThisUserMayNotReadOnce) {
  machine.addNode("/dev/input/event0", Device::keyboard()).setOpenError(EACCES);
  sources.keyboard = "/dev/input/event0";
  EXPECT_EQ(find()[0].what.substr(0, 30), "This user may not read 1 node:");
}

TEST_F(NodeRules, FindAGroupThatTheSessionDoesNotHave) {
  NodesFacts facts;
  const Obstacle obstacle = {"Permission denied (owner root, group input, mode 0660)", "Add yourself"};
  facts.mouseIsSearched = true;
  facts.forbidden = {{"/dev/input/event0", obstacle, "input"}, {"/dev/input/event1", obstacle, ""}};
  Findings findings = checkNodes(facts);
  checkup::sortByHarm(findings);
  EXPECT_EQ(idsOf(findings), (Ids{"not-permitted /dev/input/event1", "group-not-in-session /dev/input/event0"}));
  EXPECT_EQ(findings[1].remedy, "Log out and in again, or start this with sg input");
}

TEST_F(NodeRules, FindWhatStaysDown) {
  sim::Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_ENTER);
  machine.after(300ms, [&] { keyboard.release(KEY_ENTER); });
  const Findings findings = find();
  EXPECT_EQ(idsOf(findings), Ids{"held-at-start /dev/input/event0"});
  EXPECT_EQ(findings[0].what.substr(0, 21), "KEY_LEFTSHIFT is down");
}

TEST_F(NodeRules, DoNotTakeTypingForWhatStaysDown) {
  sim::Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  keyboard.press(KEY_LEFTSHIFT);
  keyboard.press(KEY_A);
  machine.after(450ms, [&] {
    keyboard.press(KEY_BACKSPACE);
    keyboard.release(KEY_A);
  });
  machine.after(950ms, [&] {
    keyboard.press(KEY_D);
    keyboard.release(KEY_BACKSPACE);
    keyboard.press(KEY_ENTER);
  });
  const Findings findings = find();
  EXPECT_EQ(idsOf(findings), Ids{"held-at-start /dev/input/event0"});
  EXPECT_EQ(findings[0].what.substr(0, 21), "KEY_LEFTSHIFT is down");
}

TEST_F(NodeRules, FindNothingWhereSomebodyTypes) {
  sim::Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  keyboard.press(KEY_LEFT);
  machine.after(450ms, [&] {
    keyboard.press(KEY_RIGHT);
    keyboard.release(KEY_LEFT);
  });
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, CountWhatMayBeTypedAndDoNotNameIt) {
  sim::Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  const auto what = [&] { return find()[0].what.substr(0, find()[0].what.find(", and")); };
  keyboard.press(KEY_D);
  EXPECT_EQ(what(), "1 key is down");
  keyboard.press(KEY_7);
  EXPECT_EQ(what(), "2 keys are down");
  keyboard.press(KEY_LEFTSHIFT);
  EXPECT_EQ(what(), "KEY_LEFTSHIFT and 2 other keys are down");
  keyboard.release(KEY_7);
  keyboard.press(KEY_RIGHTALT);
  EXPECT_EQ(what(), "KEY_LEFTSHIFT, KEY_RIGHTALT and 1 other key are down");
}

TEST_F(NodeRules, GiveTheEnterThatStartedTheProgramTimeToComeUp) {
  sim::Node& keyboard = machine.addNode("/dev/input/event0", Device::keyboard());
  keyboard.press(KEY_ENTER);
  machine.after(300ms, [&] { keyboard.release(KEY_ENTER); });
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindTheHalfOfAReceiverThatHasNoLetters) {
  int number = 0;
  for (const test::RealDevice& node : test::nanoTransceiver()) machine.addNode(nodePath(number++), node.device);
  EXPECT_EQ(check(), Ids{"no-letters " + nodePath(number - 1)});
  sources.keyboard = nodePath(0);
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, FindTheSilentHalfOfATouchpad) {
  machine.addNode(nodePath(0), test::realDevice("SilentHalfOfATouchpad").device);
  machine.addNode(nodePath(1), test::realDevice("TouchpadOnI2c").device);
  EXPECT_EQ(check(), Ids{"touch-half " + nodePath(0)});
}

TEST_F(NodeRules, FindARemoteThatIsTakenAsTheMouse) {
  machine.addNode(nodePath(0), test::realDevice("RemoteWithTheButtonsOfAMouse").device);
  EXPECT_EQ(check(), Ids{"remote-as-mouse " + nodePath(0)});
  sources.mouse = kLeaveOut;
  sources.keyboard = nodePath(0);
  EXPECT_EQ(check(), Ids());
}

TEST_F(NodeRules, LeaveNothingOpenOrGrabbed) {
  const sim::Node& node = machine.addNode("/dev/input/event0", Device::keyboard());
  sources.further = {"/dev/input/event0"};
  sources.lirc.reset();
  find();
  EXPECT_FALSE(node.isGrabbed());
  EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(NodeRules, SurviveNodesThatVanishBetweenTwoCalls) {
  for (int call = 1; call <= 60; ++call) {
    machine.addNode("/dev/input/event" + std::to_string(call), Device::keyboard());
    machine.fail(sim::Call::kOpen, call, ENODEV);
    machine.fail(sim::Call::kIoctl, call, ENODEV);
    find();
    EXPECT_EQ(machine.openDescriptors(), 0);
  }
}

// ---- The command --------------------------------------------------------------------------------

class Doctor : public NodeRules {
 protected:
  // What it prints on standard output.
  std::string output(bool json, int expectedStatus) const {
    doctor::DoctorOptions options;
    static_cast<SourcePaths&>(options) = sources;
    options.json = json;
    options.root = root.path();
    testing::internal::CaptureStdout();
    EXPECT_EQ(run(options), expectedStatus);
    return testing::internal::GetCapturedStdout();
  }
};

TEST_F(Doctor, SaysThatNothingWasFound) {
  machine.addNode("/dev/input/event0", Device::keyboard());
  EXPECT_EQ(output(false, 0), "Nothing found.\n");
  EXPECT_EQ(output(true, 0), "");
}

TEST_F(Doctor, PrintsFindingsForAPerson) {
  machine.setEnvironment("LIRC_REPEAT_TIMEOUT", "75ms");
  EXPECT_EQ(output(false, 1),
            "error no-node\n"
            "  where   /dev/input\n"
            "  what    There is no event node: the kernel has a driver for no input device\n"
            "  remedy  Plug one in, and look at dmesg; if only a remote is used, pass --mouse\n"
            "          none --keyboard none\n"
            "\n"
            "warning timeout-misread\n"
            "  where   LIRC_REPEAT_TIMEOUT\n"
            "  what    \"75ms\" is taken for 75 ms: the rest is not read\n"
            "  remedy  Set it to a whole number of milliseconds above 0, such as 100, or\n"
            "          unset it\n"
            "\n"
            "2 findings, the worst first.\n");
}

TEST_F(Doctor, PrintsAnObjectPerFinding) {
  machine.addNode("/dev/input/event0", Device::keyboard("\x1b[2J\xff")).setGrabbedElsewhere(true);
  const auto finding = nlohmann::json::parse(output(true, 1));
  EXPECT_EQ(finding["id"], "node-grabbed");
  EXPECT_EQ(finding["severity"], "error");
  EXPECT_EQ(finding["where"], "/dev/input/event0");
  EXPECT_EQ(
      finding["remedy"],
      "End the process that has grabbed it, or keep it from this node (sudo fuser -v /dev/input/event0 names those "
      "that have it open)");
}

TEST_F(Doctor, PrintsNothingButAsciiWhateverADeviceOrAProcessIsCalled) {
  std::string name;
  for (int byte = 1; byte <= 0xff; ++byte) name += static_cast<char>(byte);
  machine.addNode("/dev/input/event0", Device::keyboard(name)).setGrabbedElsewhere(true);
  root.addProcess(7, name, {name});
  root.addOpenFile(7, 3, "/dev/input/event0");
  for (const bool json : {false, true}) {
    const std::string text = output(json, 1);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) {
      return byte == '\n' || (byte >= ' ' && byte <= '~');
    })) << text;
  }
}

}  // namespace
}  // namespace quarlo::tools
