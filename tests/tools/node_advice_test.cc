#include "tools/common/node_advice.h"

#include <gtest/gtest.h>
#include <linux/input.h>

#include <string>
#include <utility>
#include <vector>

namespace quarlo::tools {
namespace {

using Words = std::vector<std::string>;

NodeFacts facts(std::map<int, std::set<int>> codes) {
  NodeFacts found;
  found.codes = std::move(codes);
  return found;
}

TEST(Deliveries, OfKeysAndButtonsAreThoseThatTheReaderKnows) {
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {KEY_A, KEY_LEFTSHIFT, KEY_NUMLOCK}}})), Words({"keys"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {KEY_COFFEE, BTN_SOUTH, BTN_0}}})), Words({"unknown keys"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {KEY_A, BTN_0}}})), Words({"keys", "unknown keys"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {BTN_SIDE, BTN_EXTRA, BTN_TASK}}})), Words());
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {BTN_MIDDLE, BTN_RIGHT, BTN_LEFT}}})),
            Words({"left button", "right button", "middle button"}));
}

TEST(Deliveries, OfTouchAreTheLeftButton) {
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {BTN_TOUCH}}, {EV_ABS, {ABS_X, ABS_Y}}})), Words({"left button"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_KEY, {BTN_TOOL_FINGER, BTN_TOOL_DOUBLETAP}}})),
            Words({"unknown keys", "left button"}));
}

TEST(Deliveries, OfAxesAreMotionButNotThoseOfAWheel) {
  EXPECT_EQ(deliveriesOf(facts({{EV_REL, {REL_X}}})), Words({"motion"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_REL, {REL_Y, REL_WHEEL}}})), Words({"motion"}));
  EXPECT_EQ(deliveriesOf(facts({{EV_REL, {REL_WHEEL, REL_HWHEEL}}})), Words());
  EXPECT_EQ(deliveriesOf(facts({{EV_ABS, {ABS_X, ABS_Y}}, {EV_SW, {SW_LID}}})), Words());
}

// ---- What is passed over ------------------------------------------------------------------------

NodeReport report(NodeClass nodeClass, Words delivers = {}) {
  NodeReport found;
  found.path = "/dev/input/event7";
  found.readable = true;
  found.nodeClass = nodeClass;
  found.delivers = std::move(delivers);
  return found;
}

std::string explained(NodeReport found) {
  explainUnsuitable(found);
  return found.reason + ". " + found.remedy;
}

TEST(Unsuitable, ATouchpadGivesClicksOnly) {
  EXPECT_EQ(explained(report(NodeClass::kTouchpad, {"unknown keys", "left button"})),
            "a touchpad: absolute positions are not read. Opened by its path, it gives nothing but: unknown keys, left "
            "button (where the pointer is: at 0,0 if nothing moves it)");
}

TEST(Unsuitable, ASwitchGivesNothing) {
  EXPECT_EQ(explained(report(NodeClass::kSwitch)),
            "a switch: it is not read. Nothing of it is read, not by its path either");
}

TEST(Unsuitable, KeysWithoutArrowsArePassedByTheirPath) {
  NodeReport keys = report(NodeClass::kMediaKeys, {"keys"});
  keys.byPath = {"/dev/input/by-path/keys"};
  EXPECT_EQ(explained(keys),
            "no relative axes, so no mouse; not all four arrow keys, so no keyboard. "
            "Passed by its path, it gives its keys: --keyboard /dev/input/by-path/keys");
  keys.byId = {"/dev/input/by-id/keys"};
  explainUnsuitable(keys);
  EXPECT_EQ(keys.remedy, "Passed by its path, it gives its keys: --keyboard /dev/input/by-id/keys");
}

TEST(Unsuitable, AnAbsoluteMouseIsOfAVirtualMachine) {
  EXPECT_EQ(explained(report(NodeClass::kAbsoluteMouse, {"left button"})),
            "a mouse with absolute positions, which are not read. Give the virtual machine a mouse with relative axes "
            "(QEMU: -device usb-mouse). Opened by its path, it gives nothing but: left button (where the pointer is: "
            "at 0,0 if nothing moves it)");
}

NodeReport remote() {
  NodeReport found = report(NodeClass::kRemote, {"keys", "motion"});
  found.byPath = {"/dev/input/by-path/ir"};
  found.tests.relative = true;
  found.tests.arrows = true;
  found.facts.repeat = NodeRepeat{250, 33};
  found.facts.rc = RcFacts{"rc1", "driver", "map", {"nec", "lirc"}, {"nec", "lirc"}, "/dev/lirc1"};
  return found;
}

TEST(Unsuitable, ARemoteIsPassedByItsPathAndItsRepeatIsSet) {
  EXPECT_EQ(explained(remote()),
            "a remote that the kernel decodes; it declares relative axes, so it is never a keyboard, and has no left "
            "button. Pass it by its path: --keyboard /dev/input/by-path/ir, or --also /dev/input/by-path/ir beside a "
            "keyboard. A held button repeats after 250 ms, then each 33 ms: `ir-keytable -s rc1 -D 500 -P 125`, "
            "EVIOCSREP or a udev rule sets that");
}

TEST(Unsuitable, ARemoteThatRepeatsAsItShouldNeedsNoAdvice) {
  NodeReport found = remote();
  found.facts.repeat = NodeRepeat{500, 125};
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy,
            "Pass it by its path: --keyboard /dev/input/by-path/ir, or --also /dev/input/by-path/ir beside a keyboard");
  for (const NodeRepeat& other : {NodeRepeat{500, 124}, NodeRepeat{250, 125}}) {
    found.facts.repeat = other;
    explainUnsuitable(found);
    EXPECT_NE(found.remedy.find(". A held button repeats after "), std::string::npos) << found.remedy;
  }
}

TEST(Unsuitable, ARemoteWithoutARepeatOrAReceiverHasLessToSay) {
  NodeReport found = remote();
  found.facts.repeat.reset();
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy,
            "Pass it by its path: --keyboard /dev/input/by-path/ir, or --also /dev/input/by-path/ir beside a keyboard");
  found.facts.repeat = NodeRepeat{0, 125};
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy.find("repeats"), std::string::npos) << found.remedy;
  found.facts.repeat = NodeRepeat{250, 33};
  found.facts.rc.reset();
  found.tests = {};
  EXPECT_EQ(explained(found),
            "a remote that the kernel decodes; it has not all four arrow keys, so it is not a keyboard. Pass it by its "
            "path: --keyboard /dev/input/by-path/ir, or --also /dev/input/by-path/ir beside a keyboard. A held button "
            "repeats after 250 ms, then each 33 ms: for 500 and 125, call EVIOCSREP in the service; for a moment, use "
            "evemu-event (docs/tuning.md)");
}

TEST(Unsuitable, AReceiverThatDecodesNothingHasToBeToldWhat) {
  NodeReport found = remote();
  found.facts.rc->active = {"lirc"};
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy,
            "The kernel decodes nothing for it now: switch its protocol on (ir-keytable -s rc1 -p ...), or let lircd "
            "decode /dev/lirc1");
  found.facts.rc->lirc.clear();
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy, "The kernel decodes nothing for it now: switch its protocol on (ir-keytable -s rc1 -p ...)");
  found.facts.rc->protocols.clear();
  found.facts.rc->active.clear();
  explainUnsuitable(found);
  EXPECT_EQ(found.remedy.substr(0, 23), "Pass it by its path: --");
}

// ---- What is taken ------------------------------------------------------------------------------

std::set<int> letters() {
  std::set<int> keys;
  for (int code = KEY_ESC; code <= KEY_COMPOSE; ++code) keys.insert(code);
  return keys;
}

class TakenTest : public testing::Test {
 protected:
  NodeReport& add(NodeClass nodeClass, Verdict verdict = Verdict::kNotTaken) {
    NodeReport node = report(nodeClass);
    node.path = "/dev/input/event" + std::to_string(nodes.size());
    node.verdict = verdict;
    node.tests.arrows = true;
    if (nodeClass == NodeClass::kKeyboard) node.facts.codes[EV_KEY] = letters();
    nodes.push_back(node);
    return nodes.back();
  }

  // The warnings of all nodes.
  std::string warnings() const {
    std::string text;
    for (const NodeReport& node : nodes) {
      for (const NodeWarning& warning : warningsOf(node, nodes)) {
        text += node.path + ": " + warning.id + ": " + warning.text + ". " + warning.remedy + "\n";
      }
    }
    return text;
  }

  static void putInto(NodeReport& node, const std::string& device) { node.facts.parent = device; }

  TakenTest() { nodes.reserve(16); }

  std::vector<NodeReport> nodes;
};

TEST_F(TakenTest, AKeyboardWithoutLettersIsWarnedOfWhereAnotherHasThem) {
  add(NodeClass::kKeyboard).byId = {"/dev/input/by-id/letters"};
  add(NodeClass::kMediaKeys, Verdict::kKeyboard);
  EXPECT_EQ(warnings(),
            "/dev/input/event1: no-letters: it has no letter keys, and /dev/input/event0 has. Pass that one by its "
            "path: --keyboard /dev/input/by-id/letters\n");
}

TEST_F(TakenTest, TheKeyboardOfTheSameModelIsTheOneToPass) {
  add(NodeClass::kKeyboard).facts.ids.vendor = 0x45e;
  add(NodeClass::kKeyboard);
  add(NodeClass::kMediaKeys, Verdict::kKeyboard).facts.ids.vendor = 0x45e;
  EXPECT_NE(warnings().find("--keyboard /dev/input/event0\n"), std::string::npos) << warnings();
}

TEST_F(TakenTest, TheHighestOfTheSameModelIsTheOneToPass) {
  add(NodeClass::kKeyboard).facts.ids.vendor = 0x45e;
  add(NodeClass::kKeyboard).facts.ids.vendor = 0x45e;
  add(NodeClass::kKeyboard);
  add(NodeClass::kMediaKeys, Verdict::kKeyboard).facts.ids.vendor = 0x45e;
  EXPECT_NE(warnings().find("--keyboard /dev/input/event1\n"), std::string::npos) << warnings();
}

TEST_F(TakenTest, TheHighestOfOtherModelsIsTheOneToPass) {
  add(NodeClass::kKeyboard);
  add(NodeClass::kKeyboard);
  add(NodeClass::kMediaKeys, Verdict::kKeyboard).facts.ids.vendor = 0x45e;
  EXPECT_NE(warnings().find("--keyboard /dev/input/event1\n"), std::string::npos) << warnings();
}

TEST_F(TakenTest, AKeyboardWithoutLettersIsAllRightWhereNoOtherCouldBePassed) {
  add(NodeClass::kKeyboard).grabbed = true;
  add(NodeClass::kKeyboard).readable = false;
  add(NodeClass::kKeyboard).tests.arrows = false;
  add(NodeClass::kKeyboard, Verdict::kMouse);
  add(NodeClass::kMediaKeys, Verdict::kKeyboard);
  EXPECT_EQ(warnings(), "");
}

TEST_F(TakenTest, AKeyboardWithLettersIsAllRight) {
  add(NodeClass::kKeyboard);
  add(NodeClass::kKeyboard, Verdict::kKeyboard);
  add(NodeClass::kMediaKeys);
  EXPECT_EQ(warnings(), "");
}

TEST_F(TakenTest, AMouseIsWarnedOfThatIsATouchpadsHalf) {
  putInto(add(NodeClass::kTouchpad), "/sys/devices/pad");
  putInto(add(NodeClass::kMouse, Verdict::kMouse), "/sys/devices/pad");
  EXPECT_EQ(warnings(),
            "/dev/input/event1: touch-half: it is probably the silent half of the touchpad /dev/input/event0, and "
            "never moves. Plug in a mouse: absolute positions are not read\n");
}

TEST_F(TakenTest, ARealMouseIsTheOneToPassInsteadOfAHalf) {
  putInto(add(NodeClass::kMouse), "/sys/devices/mouse");
  putInto(add(NodeClass::kTouchscreen), "/sys/devices/other");
  putInto(add(NodeClass::kMouse), "/sys/devices/other");
  putInto(add(NodeClass::kTouchscreen), "/sys/devices/screen");
  putInto(add(NodeClass::kMouse, Verdict::kMouse), "/sys/devices/screen");
  EXPECT_EQ(warnings(),
            "/dev/input/event4: touch-half: it is probably the silent half of the touchscreen /dev/input/event3, and "
            "never moves. Pass the mouse by its path: --mouse /dev/input/event0\n");
}

TEST_F(TakenTest, AStickBesideATouchpadIsAllRight) {
  putInto(add(NodeClass::kTouchpad), "/sys/devices/serio1");
  NodeReport& stick = add(NodeClass::kMouse, Verdict::kMouse);
  putInto(stick, "/sys/devices/serio1");
  stick.facts.properties = {INPUT_PROP_POINTING_STICK};
  EXPECT_EQ(warnings(), "");
}

TEST_F(TakenTest, WithoutSysfsAHalfIsToldByItsPlaceAndModel) {
  NodeReport& pad = add(NodeClass::kTouchpad);
  pad.facts.ids = {BUS_I2C, 0x6cb, 0x76ad, 1};
  pad.facts.phys = "i2c-DLL0704:01";
  NodeReport& mouse = add(NodeClass::kMouse, Verdict::kMouse);
  mouse.facts.ids = pad.facts.ids;
  mouse.facts.phys = pad.facts.phys;
  EXPECT_NE(warnings(), "");
  mouse.facts.phys = "i2c-DLL0704:02";
  EXPECT_EQ(warnings(), "");
  mouse.facts.phys = pad.facts.phys;
  mouse.facts.ids.product = 1;
  EXPECT_EQ(warnings(), "");
}

TEST_F(TakenTest, WithoutSysfsAndPlaceAHalfIsToldByItsName) {
  NodeReport& pad = add(NodeClass::kTouchpad);
  pad.facts.name = "DLL0704:01 06CB:76AD Touchpad";
  NodeReport& mouse = add(NodeClass::kMouse, Verdict::kMouse);
  mouse.facts.name = "DLL0704:01 06CB:76AD Mouse";
  EXPECT_NE(warnings(), "");
  mouse.facts.name = "USB Mouse";
  EXPECT_EQ(warnings(), "");
}

TEST_F(TakenTest, ARemoteIsWarnedOfThatBecomesTheMouse) {
  NodeReport& infrared = add(NodeClass::kRemote, Verdict::kMouse);
  infrared.byPath = {"/dev/input/by-path/ir"};
  infrared.facts.repeat = NodeRepeat{250, 33};
  EXPECT_EQ(warnings(),
            "/dev/input/event0: remote-as-mouse: it is a remote that the kernel decodes, and has a left button among "
            "its keys. Pass the mouse by its path (--mouse none) and this one as the keyboard (--keyboard "
            "/dev/input/by-path/ir). A held button repeats after 250 ms, then each 33 ms: for 500 and 125, call "
            "EVIOCSREP in the service; for a moment, use evemu-event (docs/tuning.md)\n");
  add(NodeClass::kMouse);
  EXPECT_NE(warnings().find("(--mouse /dev/input/event1)"), std::string::npos) << warnings();
}

TEST_F(TakenTest, NobodyIsWarnedOfWhatIsNotTaken) {
  add(NodeClass::kKeyboard);
  add(NodeClass::kMediaKeys);
  add(NodeClass::kRemote);
  putInto(add(NodeClass::kTouchpad), "/sys/devices/pad");
  putInto(add(NodeClass::kMouse), "/sys/devices/pad");
  EXPECT_EQ(warnings(), "");
}

}  // namespace
}  // namespace quarlo::tools
