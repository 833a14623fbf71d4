#include "tools/common/node_advice.h"

#include <linux/input.h>

#include <algorithm>

#include "input/linux_input_reader.h"
#include "tools/common/output.h"

namespace quarlo::tools {
namespace {

using components::input::LinuxInputReader;
using InputEvent = LinuxInputReader::InputEvent;
using MouseData = InputEvent::MouseData;

bool contains(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// ---- What the reader delivers -------------------------------------------------------------------

const char* nameOfButton(std::int32_t button) {
  switch (button) {
    case MouseData::kLeft: return "left button";
    case MouseData::kRight: return "right button";
    default: return "middle button";
  }
}

const char* nameOfDelivery(const InputEvent& event) {
  if (event.kind == InputEvent::kKeyEvent) return event.keyData.key == 0 ? "unknown keys" : "keys";
  return event.mouseData.action == MouseData::kMove ? "motion" : nameOfButton(event.mouseData.button);
}

// The reader itself is asked, with a release and a step of nothing: neither counts as a click.
std::set<std::string> deliveriesOf(const NodeFacts& facts, int type) {
  std::set<std::string> found;
  const auto codes = facts.codes.find(type);
  if (codes == facts.codes.end()) return found;
  LinuxInputReader reader;
  for (const int code : codes->second) {
    input_event record = {};
    record.type = static_cast<__u16>(type);
    record.code = static_cast<__u16>(code);
    InputEvent event = {};
    event.kind = InputEvent::kNoEvent;
    reader.translateEvent(&record, event);
    if (event.kind != InputEvent::kNoEvent) found.insert(nameOfDelivery(event));
  }
  return found;
}

}  // namespace

std::vector<std::string> deliveriesOf(const NodeFacts& facts) {
  std::set<std::string> found = deliveriesOf(facts, EV_KEY);
  found.merge(deliveriesOf(facts, EV_REL));
  std::vector<std::string> ordered;
  for (const char* word : {"keys", "unknown keys", "motion", "left button", "right button", "middle button"}) {
    if (found.count(word) != 0) ordered.emplace_back(word);
  }
  return ordered;
}

// ---- Why it is passed over ----------------------------------------------------------------------

namespace {

std::string whyNoMouseAndNoKeyboard(const ReaderTests& tests) {
  if (!tests.relative) return "no relative axes, so no mouse; not all four arrow keys, so no keyboard";
  if (!tests.arrows) return "relative axes, but no left button, so no mouse";
  return "no left button, so no mouse; relative axes, so never a keyboard";
}

std::string whyRemoteIsPassedOver(const ReaderTests& tests) {
  const std::string what = "a remote that the kernel decodes; ";
  return what + (tests.relative ? "it declares relative axes, so it is never a keyboard, and has no left button"
                                : "it has not all four arrow keys, so it is not a keyboard");
}

std::string whyPassedOver(const NodeReport& report) {
  switch (report.nodeClass) {
    case NodeClass::kRemote: return whyRemoteIsPassedOver(report.tests);
    case NodeClass::kTouchpad: return "a touchpad: absolute positions are not read";
    case NodeClass::kTouchscreen: return "a touchscreen: absolute positions are not read";
    case NodeClass::kPen: return "a pen: absolute positions are not read";
    case NodeClass::kAbsoluteMouse: return "a mouse with absolute positions, which are not read";
    case NodeClass::kGamepad: return "a gamepad: its axes are not read, and its buttons are not keys";
    case NodeClass::kTabletButtons: return "the buttons of a tablet: they are not keys";
    case NodeClass::kSwitch: return "a switch: it is not read";
    case NodeClass::kSensor: return "a sensor: its axes are not read";
    default: return whyNoMouseAndNoKeyboard(report.tests);
  }
}

// Without a protocol, its node sends nothing. Of what only lircd decodes, "lirc" is the protocol.
bool isDecoding(const RcFacts& rc) {
  return rc.protocols.empty() ||
         std::any_of(rc.active.begin(), rc.active.end(), [](const std::string& name) { return name != "lirc"; });
}

std::string howToDecode(const RcFacts& rc) {
  const std::string raw = rc.lirc.empty() ? "" : ", or let lircd decode " + rc.lirc;
  return "The kernel decodes nothing for it now: switch its protocol on (ir-keytable -s " + rc.device + " -p ...)" +
         raw;
}

// What rc-core sets for its receivers.
bool repeatsAsARemote(const NodeRepeat& repeat) { return repeat.delayMs == 500 && repeat.periodMs == 125; }

// ir-keytable sets the receivers of rc-core, and without a name rc0.
std::string howToSetRepeat(const NodeFacts& facts) {
  if (!facts.repeat || !facts.repeat->isOn() || repeatsAsARemote(*facts.repeat)) return "";
  const std::string how =
      facts.rc ? "`ir-keytable -s " + facts.rc->device + " -D 500 -P 125`, EVIOCSREP or a udev rule sets that"
               : "for 500 and 125, call EVIOCSREP in the service; for a moment, use evemu-event "
                 "(docs/tuning.md)";
  return ". A held button repeats after " + std::to_string(facts.repeat->delayMs) + " ms, then each " +
         std::to_string(facts.repeat->periodMs) + " ms: " + how;
}

std::string howToUseRemote(const NodeReport& report) {
  if (report.facts.rc && !isDecoding(*report.facts.rc)) return howToDecode(*report.facts.rc);
  const std::string path = lastingPathOf(report);
  return "Pass it by its path: --keyboard " + path + ", or --also " + path + " beside a keyboard" +
         howToSetRepeat(report.facts);
}

std::string whatItsPathGives(const std::vector<std::string>& delivers) {
  if (delivers.empty()) return "Nothing of it is read, not by its path either";
  const bool clicksInPlace = contains(delivers, "left button") && !contains(delivers, "motion");
  return "Opened by its path, it gives nothing but: " + joined(delivers, ", ") +
         (clicksInPlace ? " (where the pointer is: at 0,0 if nothing moves it)" : "");
}

std::string howToUse(const NodeReport& report) {
  if (report.nodeClass == NodeClass::kRemote) return howToUseRemote(report);
  if (contains(report.delivers, "keys"))
    return "Passed by its path, it gives its keys: --keyboard " + lastingPathOf(report);
  std::string gives = whatItsPathGives(report.delivers);
  if (report.nodeClass != NodeClass::kAbsoluteMouse) return gives;
  return "Give the virtual machine a mouse with relative axes (QEMU: -device usb-mouse). " + gives;
}

}  // namespace

void explainUnsuitable(NodeReport& report) {
  report.reason = whyPassedOver(report);
  report.remedy = howToUse(report);
}

// ---- What is wrong with what is taken -----------------------------------------------------------

namespace {

bool isSameModel(const NodeFacts& a, const NodeFacts& b) {
  return a.ids.bus == b.ids.bus && a.ids.vendor == b.ids.vendor && a.ids.product == b.ids.product &&
         a.ids.version == b.ids.version;
}

// "Pad Mouse" and "Pad Touchpad" are of one name.
std::string withoutLastWord(const std::string& name) { return name.substr(0, name.rfind(' ')); }

// Whether two nodes are parts of one device. What no sysfs tells, the place where it is connected tells, and without
// that its name.
bool isPartOfSame(const NodeFacts& a, const NodeFacts& b) {
  if (!a.parent.empty() || !b.parent.empty()) return a.parent == b.parent;
  return isSameModel(a, b) && a.uniq == b.uniq && a.phys == b.phys &&
         (!a.phys.empty() || withoutLastWord(a.name) == withoutLastWord(b.name));
}

bool canBePassed(const NodeReport& report) { return report.readable && !report.grabbed; }

// The best node that fits and could be passed instead: of the same model, and with the highest number.
template <typename Fits>
const NodeReport* findInstead(const NodeReport& taken, const std::vector<NodeReport>& nodes, const Fits& fits) {
  const NodeReport* best = nullptr;
  for (const NodeReport& node : nodes) {
    if (node.path == taken.path || !canBePassed(node) || !fits(node)) continue;
    const bool isBetter =
        best == nullptr || isSameModel(node.facts, taken.facts) || !isSameModel(best->facts, taken.facts);
    if (isBetter) best = &node;
  }
  return best;
}

bool isTouch(const NodeReport& report) {
  return report.nodeClass == NodeClass::kTouchpad || report.nodeClass == NodeClass::kTouchscreen;
}

// What the kernel calls a stick is one, also beside a touchpad.
const NodeReport* touchHalfOf(const NodeReport& mouse, const std::vector<NodeReport>& nodes) {
  if (mouse.nodeClass != NodeClass::kMouse || mouse.facts.hasProperty(INPUT_PROP_POINTING_STICK)) return nullptr;
  const auto half = std::find_if(nodes.begin(), nodes.end(), [&](const NodeReport& node) {
    return node.readable && isTouch(node) && isPartOfSame(node.facts, mouse.facts);
  });
  return half == nodes.end() ? nullptr : &*half;
}

const NodeReport* findOtherMouse(const NodeReport& taken, const std::vector<NodeReport>& nodes) {
  return findInstead(taken, nodes, [&](const NodeReport& node) {
    return node.nodeClass == NodeClass::kMouse && touchHalfOf(node, nodes) == nullptr;
  });
}

std::string passInstead(const char* option, const NodeReport& other) {
  return "Pass that one by its path: " + std::string(option) + " " + lastingPathOf(other);
}

void warnOfNoLetters(const NodeReport& taken, const std::vector<NodeReport>& nodes,
                     std::vector<NodeWarning>& warnings) {
  if (taken.verdict != Verdict::kKeyboard || hasLetters(taken.facts)) return;
  const NodeReport* other = findInstead(taken, nodes, [](const NodeReport& node) {
    return node.verdict == Verdict::kNotTaken && hasLetters(node.facts) && node.tests.arrows;
  });
  if (other == nullptr) return;
  warnings.push_back(
      {"no-letters", "it has no letter keys, and " + other->path + " has", passInstead("--keyboard", *other)});
}

void warnOfTouchHalf(const NodeReport& taken, const std::vector<NodeReport>& nodes,
                     std::vector<NodeWarning>& warnings) {
  if (taken.verdict != Verdict::kMouse) return;
  const NodeReport* half = touchHalfOf(taken, nodes);
  if (half == nullptr) return;
  const NodeReport* other = findOtherMouse(taken, nodes);
  warnings.push_back({"touch-half",
                      "it is probably the silent half of the " + std::string(nameOf(half->nodeClass)) + " " +
                          half->path + ", and never moves",
                      other == nullptr ? "Plug in a mouse: absolute positions are not read"
                                       : "Pass the mouse by its path: --mouse " + lastingPathOf(*other)});
}

void warnOfRemoteAsMouse(const NodeReport& taken, const std::vector<NodeReport>& nodes,
                         std::vector<NodeWarning>& warnings) {
  if (taken.verdict != Verdict::kMouse || taken.nodeClass != NodeClass::kRemote) return;
  const NodeReport* other = findOtherMouse(taken, nodes);
  warnings.push_back({"remote-as-mouse", "it is a remote that the kernel decodes, and has a left button among its keys",
                      "Pass the mouse by its path (--mouse " + (other == nullptr ? "none" : lastingPathOf(*other)) +
                          ") and this one as the keyboard (--keyboard " + lastingPathOf(taken) + ")" +
                          howToSetRepeat(taken.facts)});
}

}  // namespace

std::vector<NodeWarning> warningsOf(const NodeReport& taken, const std::vector<NodeReport>& nodes) {
  std::vector<NodeWarning> warnings;
  warnOfNoLetters(taken, nodes, warnings);
  warnOfTouchHalf(taken, nodes, warnings);
  warnOfRemoteAsMouse(taken, nodes, warnings);
  return warnings;
}

}  // namespace quarlo::tools
