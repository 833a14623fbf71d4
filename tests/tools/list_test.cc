#include "tools/list/list.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "input/linux_input_reader.h"
#include "input/linux_input_reader_limits.h"
#include "logging/stderr_logging.h"
#include "sim/machine.h"
#include "tests/support/devices.h"
#include "tests/support/files.h"
#include "tools/common/survey.h"

namespace quarlo::tools::list {
namespace {

using components::input::kLircSocketPaths;
using components::input::LinuxInputReader;
using sim::Device;
namespace fs = std::filesystem;

// Without what the sysfs of this computer says of its own nodes.
const SystemFolders kNoSysfs = {"/dev", "/nowhere"};

std::string verdictName(const NodeReport& report) { return toJson(report)["verdict"]; }

// One line per node: "/dev/input/event3 Mouse: not taken; <reason>; <remedy>".
std::string survey() {
  std::string text;
  for (const NodeReport& report : surveyNodes(kNoSysfs)) {
    text += report.path + " " + report.facts.name + ": " + verdictName(report);
    if (report.verdict == Verdict::kNotTaken) text += "; " + report.reason + "; " + report.remedy;
    text += "\n";
  }
  return text;
}

Device keyboardWith(int type, std::set<int> codes) {
  Device device = Device::keyboard("Combined");
  device.codes[type].merge(codes);
  return device;
}

TEST(Survey, OfAMachineWithoutNodesIsEmpty) {
  sim::Machine machine;
  EXPECT_EQ(survey(), "");
}

TEST(Survey, TakesAMouseAndAKeyboard) {
  sim::Machine machine;
  machine.addNode("/dev/input/event2", Device::keyboard("Keys"));
  machine.addNode("/dev/input/event10", Device::mouse("Mouse"));
  EXPECT_EQ(survey(),
            "/dev/input/event2 Keys: keyboard\n"
            "/dev/input/event10 Mouse: mouse\n");
}

TEST(Survey, SaysWhatADeviceLacks) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", {"Power Button", {{EV_KEY, {KEY_POWER}}}});
  machine.addNode("/dev/input/event1", Device::touchscreen("Touch"));
  machine.addNode("/dev/input/event2", {"Knob", {{EV_REL, {REL_X, REL_Y}}}});
  machine.addNode("/dev/input/event3", keyboardWith(EV_REL, {REL_X, REL_Y}));
  EXPECT_EQ(survey(),
            "/dev/input/event0 Power Button: not taken; no relative axes, so no mouse; not all four arrow keys, so no "
            "keyboard; Passed by its path, it gives its keys: --keyboard /dev/input/event0\n"
            "/dev/input/event1 Touch: not taken; a touchscreen: absolute positions are not read; Opened by its path, "
            "it gives nothing but: left button (where the pointer is: at 0,0 if nothing moves it)\n"
            "/dev/input/event2 Knob: not taken; relative axes, but no left button, so no mouse; Opened by its path, it "
            "gives nothing but: motion\n"
            "/dev/input/event3 Combined: not taken; no left button, so no mouse; relative axes, so never a keyboard; "
            "Passed by its path, it gives its keys: --keyboard /dev/input/event3\n");
}

TEST(Survey, TakesTheHighestNumber) {
  sim::Machine machine;
  for (const char* path : {"/dev/input/event1", "/dev/input/event4"}) machine.addNode(path, Device::mouse("Mouse"));
  for (const char* path : {"/dev/input/event2", "/dev/input/event9"}) machine.addNode(path, Device::keyboard("Keys"));
  EXPECT_EQ(survey(),
            "/dev/input/event1 Mouse: not taken; /dev/input/event4 fits too, and the highest number is taken; "
            "Pass it by its path: --mouse /dev/input/event1\n"
            "/dev/input/event2 Keys: not taken; /dev/input/event9 fits too, and the highest number is taken; "
            "Pass it by its path: --keyboard /dev/input/event2\n"
            "/dev/input/event4 Mouse: mouse\n"
            "/dev/input/event9 Keys: keyboard\n");
}

TEST(Survey, SeesNodesThatAutodetectionDoesNot) {
  sim::Machine machine;
  machine.addNode("/dev/input/event11", Device::keyboard("Keys"));
  machine.addNode("/dev/input/event1023", Device::mouse("Mouse"));
  EXPECT_EQ(survey(),
            "/dev/input/event11 Keys: not taken; above event10, where autodetection does not look; "
            "Pass it by its path: --keyboard /dev/input/event11\n"
            "/dev/input/event1023 Mouse: not taken; above event10, where autodetection does not look; "
            "Pass it by its path: --mouse /dev/input/event1023\n");
}

TEST(Survey, SaysThatANodeIsGrabbedAndDoesNotCountIt) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse("Lower"));
  machine.addNode("/dev/input/event1", Device::mouse("Higher")).setGrabbedElsewhere(true);
  EXPECT_EQ(survey(),
            "/dev/input/event0 Lower: mouse\n"
            "/dev/input/event1 Higher: not taken; grabbed by another process; "
            "End the program that has grabbed it (sudo fuser -v /dev/input/event1)\n");
}

TEST(Survey, AcceptsANodeThatCannotBeGrabbed) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse("Mouse")).setIoctlError(EVIOCGRAB, EINVAL);
  EXPECT_EQ(survey(), "/dev/input/event0 Mouse: mouse\n");
}

TEST(Survey, SaysWhyANodeCannotBeOpened) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse("Mouse")).setOpenError(ENODEV);
  EXPECT_EQ(survey(), "/dev/input/event0 : not taken; No such device; No device is behind it: plug it in again\n");
}

// It is there when it is opened, and gone when it is asked.
TEST(Survey, SaysThatANodeHasGone) {
  sim::Machine machine;
  sim::Node& node = machine.addNode("/dev/input/event0", Device::mouse("Mouse"));
  for (const unsigned request : {unsigned{EVIOCGNAME(0)}, unsigned{EVIOCGBIT(0, 0)}, unsigned{EVIOCGBIT(EV_KEY, 0)},
                                 unsigned{EVIOCGBIT(EV_REL, 0)}, unsigned{EVIOCGBIT(EV_ABS, 0)}, unsigned{EVIOCGID},
                                 unsigned{EVIOCGPROP(0)}, unsigned{EVIOCGREP}, unsigned{EVIOCGRAB}}) {
    node.setIoctlError(request, ENODEV);
  }
  const auto expectGone = [] {
    testing::internal::CaptureStderr();
    EXPECT_EQ(survey(), "/dev/input/event0 : not taken; No such device; No device is behind it: plug it in again\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  };
  expectGone();
  node.setIoctlError(EVIOCGVERSION, ENODEV);
  expectGone();
  EXPECT_FALSE(surveyNodes(kNoSysfs).front().readable);
}

// A container makes a directory of the path of a node that is not there.
TEST(Survey, SaysWhatIsNoEvdevNode) {
  const test::Folder folder;
  fs::create_directories(folder.path("input/event1"));
  folder.write("input/event0", "");
  ASSERT_EQ(mkfifo(folder.path("input/event2").c_str(), 0600), 0);
  const std::vector<NodeReport> reports = surveyNodes({folder.path(), "/nowhere"});
  ASSERT_EQ(reports.size(), 3U);
  for (const NodeReport& report : reports) {
    EXPECT_FALSE(report.readable) << report.path;
    EXPECT_EQ(report.verdict, Verdict::kNotTaken);
    EXPECT_EQ(report.reason, "not an evdev node");
    EXPECT_EQ(report.remedy, "Look what it is (ls -ld " + report.path +
                                 ") and remove it: the kernel or udev makes the node of a device");
  }
}

TEST(TakenWarnings, OfWhatHasGoneAskTheReaderNothing) {
  sim::Machine machine;
  sim::Node& node = machine.addNode("/dev/input/event0", Device::mouse("Mouse"));
  for (const unsigned request : {unsigned{EVIOCGVERSION}, unsigned{EVIOCGBIT(0, 0)}, unsigned{EVIOCGBIT(EV_KEY, 0)},
                                 unsigned{EVIOCGBIT(EV_REL, 0)}, unsigned{EVIOCGBIT(EV_ABS, 0)}}) {
    node.setIoctlError(request, ENODEV);
  }
  logging::SetMinLogLevel(logging::kError);
  testing::internal::CaptureStderr();
  const TakenWarnings warnings = warningsOfTaken("/dev/input/event0", "", kNoSysfs);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(warnings.mouse.empty());
}

TEST(TakenWarnings, OfWhatIsNoEvdevNodeAskTheReaderNothing) {
  const test::Folder folder;
  fs::create_directories(folder.path("input"));
  folder.write("input/event0", "");
  logging::SetMinLogLevel(logging::kError);
  testing::internal::CaptureStderr();
  warningsOfTaken("", "", {folder.path(), "/nowhere"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Survey, LeavesNothingOpenOrGrabbed) {
  sim::Machine machine;
  const sim::Node& node = machine.addNode("/dev/input/event0", Device::mouse());
  surveyNodes(kNoSysfs);
  EXPECT_FALSE(node.isGrabbed());
  EXPECT_EQ(machine.openDescriptors(), 0);
}

// The nodes that the reader opens to read from, in its order.
std::vector<std::string> nodesTaken(sim::Machine& machine) {
  machine.takeTrace();
  LinuxInputReader reader;
  reader.init(nullptr, nullptr, nullptr, 1919, 1079);
  std::vector<std::string> nodes;
  for (const std::string& call : machine.takeTrace()) {
    const std::string start = "open(\"";
    const std::size_t end = call.find("\", O_RDONLY|O_NONBLOCK)");
    if (call.rfind(start, 0) == 0 && end != std::string::npos) nodes.push_back(call.substr(6, end - 6));
  }
  return nodes;
}

TEST(Survey, AgreesWithTheReader) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard());
  machine.addNode("/dev/input/event1", Device::mouse());
  machine.addNode("/dev/input/event2", Device::mouse());
  machine.addNode("/dev/input/event3", Device::keyboard());
  machine.addNode("/dev/input/event5", keyboardWith(EV_REL, {REL_X, REL_Y}));
  machine.addNode("/dev/input/event7", Device::keyboard()).setGrabbedElsewhere(true);
  machine.addNode("/dev/input/event8", Device::touchscreen());
  machine.addNode("/dev/input/event11", Device::mouse());
  std::map<Verdict, std::string> taken;
  for (const NodeReport& report : surveyNodes(kNoSysfs)) taken[report.verdict] = report.path;
  EXPECT_EQ(nodesTaken(machine), (std::vector<std::string>{taken[Verdict::kMouse], taken[Verdict::kKeyboard]}));
}

TEST(LircSocketPaths, AreThoseThatTheReaderTries) {
  sim::Machine machine;
  LinuxInputReader reader;
  reader.init(nullptr, nullptr, nullptr, 1919, 1079);
  std::vector<std::string> tried;
  for (const std::string& call : machine.takeTrace()) {
    if (call.rfind("connect(", 0) != 0) continue;
    const std::size_t start = call.find('"') + 1;
    tried.push_back(call.substr(start, call.rfind('"') - start));
  }
  EXPECT_EQ(tried, std::vector<std::string>(std::begin(kLircSocketPaths), std::end(kLircSocketPaths)));
}

// What `list` prints on standard output.
std::string listed(const ListOptions& options, int expectedStatus, const SystemFolders& folders = kNoSysfs) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(list(options, folders), expectedStatus);
  return testing::internal::GetCapturedStdout();
}

ListOptions asJson() {
  ListOptions options;
  options.json = true;
  return options;
}

TEST(List, PrintsTheNodes) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard("Keys"));
  machine.addNode("/dev/input/event1", {"Power Button", {{EV_KEY, {KEY_POWER}}}});
  machine.addNode("/dev/input/event2", Device::mouse("Mouse")).setOpenError(ENODEV);
  EXPECT_EQ(listed({}, 0),
            "/dev/input/event0  Keys\n"
            "    class     keyboard\n"
            "    device    0x00 0000:0000 version 0000\n"
            "    repeat    after 250 ms, then each 33 ms\n"
            "    gives     keys\n"
            "    taken     as the keyboard\n"
            "/dev/input/event1  Power Button\n"
            "    class     buttons\n"
            "    device    0x00 0000:0000 version 0000\n"
            "    gives     keys\n"
            "    not taken no relative axes, so no mouse; not all four arrow keys, so no keyboard\n"
            "    remedy    Passed by its path, it gives its keys: --keyboard /dev/input/event1\n"
            "/dev/input/event2\n"
            "    not taken No such device\n"
            "    remedy    No device is behind it: plug it in again\n");
}

// A sysfs in which rc0 has event0 as its input device.
class Receiver {
 public:
  Receiver() {
    fs::create_directories(path() + "/input0/event0");
    fs::create_directories(path() + "/lirc0");
    fs::create_directories(folder_.path("dev/char"));
    fs::create_directories(folder_.path("class/rc"));
    fs::create_symlink(path() + "/input0/event0", folder_.path("dev/char/13:64"));
    fs::create_symlink("..", path() + "/input0/event0/device");
    fs::create_symlink("..", path() + "/input0/device");
    fs::create_symlink("../class/rc", path() + "/subsystem");
    write("protocols", "rc-5 [nec] [lirc]\n");
    write("uevent", "NAME=rc-\x1b[m\nDRV_NAME=rc-loopback\n");
  }

  // A file of the receiver's directory.
  void write(const std::string& name, const std::string& text) const { folder_.write("rc0/" + name, text); }

  SystemFolders folders() const { return {"/dev", folder_.path()}; }

 private:
  std::string path() const { return folder_.path("rc0"); }

  test::Folder folder_;
};

TEST(List, PrintsARemoteWithItsReceiver) {
  const Receiver receiver;
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteOfAMediaCenter").device);
  EXPECT_EQ(listed({}, 0, receiver.folders()),
            "/dev/input/event0  Media Center Ed. eHome Infrared Remote Transceiver (0471:0815)\n"
            "    class     remote\n"
            "    device    usb 0471:0815 version 0000, usb-0000:00:1d.7-2/input0\n"
            "    receiver  rc0 (rc-loopback, rc-\\x1b[m), protocols rc-5 [nec] [lirc], /dev/lirc0\n"
            "    repeat    after 500 ms, then each 125 ms\n"
            "    gives     keys, motion\n"
            "    not taken a remote that the kernel decodes; it declares relative axes, so it is never a keyboard, and "
            "has no left button\n"
            "    remedy    Pass it by its path: --keyboard /dev/input/event0, or --also /dev/input/event0 beside a "
            "keyboard\n");
}

TEST(List, LeavesOutWhatAReceiverDoesNotSay) {
  const Receiver receiver;
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteOfAMediaCenter").device);
  const auto expectRow = [&](const std::string& text) {
    const std::string out = listed({}, 0, receiver.folders());
    EXPECT_NE(out.find("    receiver  " + text + "\n"), std::string::npos) << out;
  };
  receiver.write("uevent", "DRV_NAME=rc-loopback\n");
  expectRow("rc0 (rc-loopback), protocols rc-5 [nec] [lirc], /dev/lirc0");
  receiver.write("uevent", "");
  expectRow("rc0, protocols rc-5 [nec] [lirc], /dev/lirc0");
  receiver.write("protocols", "");
  expectRow("rc0, /dev/lirc0");
}

TEST(List, GivesAReceiverAsAnObjectOfJson) {
  const Receiver receiver;
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteOfAMediaCenter").device);
  const std::string text = listed(asJson(), 0, receiver.folders());
  EXPECT_NE(text.find(R"json("class":"remote","bus":"usb","vendor":"0471","product":"0815","version":"0000",)json"
                      R"json("phys":"usb-0000:00:1d.7-2/input0","uniq":"",)json"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(R"json("repeat":{"delayMs":500,"periodMs":125},"rc":{"device":"rc0","driver":"rc-loopback",)json"
                      R"json("keyMap":"rc-\u001b[m","protocols":["rc-5","nec","lirc"],"active":["nec","lirc"],)json"
                      R"json("lirc":"/dev/lirc0"},)json"),
            std::string::npos)
      << text;
}

TEST(List, SaysThatTheKernelDoesNotRepeat) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteThroughTheTelevision").device);
  EXPECT_NE(listed({}, 0).find("    repeat    switched off\n"), std::string::npos) << listed({}, 0);
}

TEST(List, PrintsASerialNumber) {
  sim::Machine machine;
  Device device = Device::mouse("Mouse");
  device.id = {BUS_BLUETOOTH, 0x5ac, 0x30d, 0x84};
  device.phys = "5c:f3:70:00:00:01";
  device.uniq = "d8:a2:5e:00:00:02";
  machine.addNode("/dev/input/event0", device);
  const std::string row =
      "    device    bluetooth 05ac:030d version 0084, 5c:f3:70:00:00:01, serial number d8:a2:5e:00:00:02\n";
  EXPECT_NE(listed({}, 0).find(row), std::string::npos) << listed({}, 0);
}

// A combined receiver as a computer sees it: what types comes first, and what is taken comes last.
TEST(List, WarnsOfAReceiversKeyboardThatHasNoLetters) {
  sim::Machine machine;
  int number = 0;
  for (const test::RealDevice& node : test::nanoTransceiver()) {
    machine.addNode("/dev/input/event" + std::to_string(number++), node.device);
  }
  const std::string text = listed({}, 0);
  const std::string last = text.substr(text.find("/dev/input/event3"));
  EXPECT_NE(last.find("    taken     as the keyboard\n"
                      "    warning   it has no letter keys, and /dev/input/event0 has\n"
                      "    remedy    Pass that one by its path: --keyboard /dev/input/event0\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("warning"), text.rfind("warning")) << text;
}

TEST(List, WarnsOfATouchpadsSilentHalf) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("TouchpadOnI2c").device);
  machine.addNode("/dev/input/event1", test::realDevice("SilentHalfOfATouchpad").device);
  EXPECT_NE(
      listed(asJson(), 0)
          .find(R"json("verdict":"mouse","reason":"","remedy":"","warnings":[{"id":"touch-half",)json"
                R"json("text":"it is probably the silent half of the touchpad /dev/input/event0, and never moves",)json"
                R"json("remedy":"Plug in a mouse: absolute positions are not read"}]})json"),
      std::string::npos)
      << listed(asJson(), 0);
}

TEST(List, WarnsOfARemoteThatBecomesTheMouse) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", test::realDevice("RemoteWithTheButtonsOfAMouse").device);
  EXPECT_NE(listed(asJson(), 0).find(R"("warnings":[{"id":"remote-as-mouse",)"), std::string::npos);
}

TEST(List, PrintsTheReadersListingOnRequestInOneStream) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::keyboard("Keys"));
  machine.addNode("/dev/input/event1", {"Power Button", {{EV_KEY, {KEY_POWER}}}});
  ListOptions options;
  options.verbosity = 1;
  const std::string text = listed(options, 0);
  EXPECT_EQ(text.substr(text.find("\n\n") + 2),
            "The reader's own listing (event0 to event9):\n"
            "INFO /dev/input/event0: Keys\n"
            "INFO Probably a keyboard\n"
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n"
            "  Event type 0x04  (Something miscellaneous)\n"
            "  Event type 0x11  (LEDs)\n"
            "  Event type 0x14  (Repeat)\n"
            "INFO /dev/input/event1: Power Button\n"
            "Supported event types:\n"
            "  Event type 0x00  (Unknown event type: 0x0000)\n"
            "  Event type 0x01  (Keys or Buttons)\n");
}

TEST(List, GivesEachFactAsAFieldOfJson) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", {"Keys", {{EV_KEY, {KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT}}}});
  machine.addNode("/dev/input/event3", Device::mouse("Mouse")).setGrabbedElsewhere(true);
  machine.addNode("/dev/input/event4", Device::mouse("Mouse")).setOpenError(ENODEV);
  EXPECT_EQ(listed(asJson(), 0),
            R"json({"node":"/dev/input/event0","byId":[],"byPath":[],"readable":true,"name":"Keys",)json"
            R"json("class":"media keys","bus":"0x00","vendor":"0000","product":"0000","version":"0000",)json"
            R"json("phys":"","uniq":"","grabbed":false,"relative":false,"absolute":false,)json"
            R"json("pointerButton":false,"arrows":true,"letters":false,"repeat":null,"rc":null,)json"
            R"json("delivers":["keys"],"verdict":"keyboard","reason":"","remedy":"","warnings":[]})json"
            "\n"
            R"json({"node":"/dev/input/event3","byId":[],"byPath":[],"readable":true,"name":"Mouse",)json"
            R"json("class":"mouse","bus":"0x00","vendor":"0000","product":"0000","version":"0000",)json"
            R"json("phys":"","uniq":"","grabbed":true,"relative":true,"absolute":false,)json"
            R"json("pointerButton":true,"arrows":false,"letters":false,"repeat":null,"rc":null,)json"
            R"json("delivers":["motion","left button","right button","middle button"],)json"
            R"json("verdict":"not taken","reason":"grabbed by another process",)json"
            R"json("remedy":"End the program that has grabbed it (sudo fuser -v /dev/input/event3)",)json"
            R"json("warnings":[]})json"
            "\n"
            R"json({"node":"/dev/input/event4","byId":[],"byPath":[],"readable":false,)json"
            R"json("verdict":"not taken","reason":"No such device",)json"
            R"json("remedy":"No device is behind it: plug it in again","warnings":[]})json"
            "\n");
}

TEST(List, EscapesTheNameOfADevice) {
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse("\x1b[31mRed\n\xc2\x9b\xff"));
  ListOptions options;
  options.verbosity = 1;
  const std::string text = listed(options, 0);
  EXPECT_NE(text.find("/dev/input/event0  \\x1b[31mRed\\n\\xc2\\x9b\\xff\n"), std::string::npos);
  EXPECT_NE(text.find("INFO /dev/input/event0: \\x1b[31mRed\\n\\xc2\\x9b\\xff\n"), std::string::npos);
  EXPECT_NE(listed(asJson(), 0).find(R"("name":"\u001b[31mRed\n\u009b\ufffd")"), std::string::npos);
}

TEST(List, PrintsNothingButAsciiWhateverADeviceIsCalled) {
  std::string name;
  for (int byte = 1; byte <= 0xff; ++byte) name += static_cast<char>(byte);
  sim::Machine machine;
  machine.addNode("/dev/input/event0", Device::mouse(name));
  machine.addNode("/dev/input/event1", Device::keyboard(name.substr(0x7f)));
  for (const bool json : {false, true}) {
    ListOptions options;
    options.json = json;
    options.verbosity = json ? 0 : 1;
    const std::string text = listed(options, 0);
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) {
      return byte == '\n' || (byte >= ' ' && byte <= '~');
    })) << text;
  }
}

TEST(List, FailsWhereThereIsNoNode) {
  sim::Machine machine;
  EXPECT_EQ(listed({}, 1), "");
}

}  // namespace
}  // namespace quarlo::tools::list
