#include "tools/common/node_report.h"

#include <linux/input.h>

#include <cstdio>
#include <nlohmann/json.hpp>

namespace quarlo::tools {
namespace {

using nlohmann::ordered_json;

std::string hexadecimal(int number, const char* format) {
  char text[16];
  std::snprintf(text, sizeof text, format, static_cast<unsigned>(number));
  return text;
}

std::string idText(int id) { return hexadecimal(id, "%04x"); }

ordered_json repeatToJson(const std::optional<NodeRepeat>& repeat) {
  if (!repeat) return nullptr;
  return {{"delayMs", repeat->delayMs}, {"periodMs", repeat->periodMs}};
}

ordered_json rcToJson(const std::optional<RcFacts>& rc) {
  if (!rc) return nullptr;
  return {{"device", rc->device},       {"driver", rc->driver}, {"keyMap", rc->keyMap},
          {"protocols", rc->protocols}, {"active", rc->active}, {"lirc", rc->lirc}};
}

// What only the node itself can tell.
void addFacts(const NodeReport& report, ordered_json& json) {
  const NodeFacts& facts = report.facts;
  json["name"] = facts.name;
  json["class"] = nameOf(report.nodeClass);
  json["bus"] = busName(facts.ids.bus);
  json["vendor"] = idText(facts.ids.vendor);
  json["product"] = idText(facts.ids.product);
  json["version"] = idText(facts.ids.version);
  json["phys"] = facts.phys;
  json["uniq"] = facts.uniq;
  json["grabbed"] = report.grabbed;
  json["relative"] = report.tests.relative;
  json["absolute"] = report.tests.absolute;
  json["pointerButton"] = report.tests.pointerButton;
  json["arrows"] = report.tests.arrows;
  json["letters"] = hasLetters(facts);
  json["repeat"] = repeatToJson(facts.repeat);
  json["rc"] = rcToJson(facts.rc);
  json["delivers"] = report.delivers;
}

}  // namespace

std::string lastingPathOf(const NodeReport& report) {
  if (!report.byId.empty()) return report.byId.front();
  return report.byPath.empty() ? report.path : report.byPath.front();
}

std::string busName(int bus) {
  switch (bus) {
    case BUS_PCI: return "pci";
    case BUS_USB: return "usb";
    case BUS_BLUETOOTH: return "bluetooth";
    case BUS_VIRTUAL: return "virtual";
    case BUS_ISA: return "isa";
    case BUS_I8042: return "i8042";
    case BUS_RS232: return "rs232";
    case BUS_I2C: return "i2c";
    case BUS_HOST: return "host";
    case BUS_SPI: return "spi";
    case BUS_RMI: return "rmi";
    case BUS_CEC: return "cec";
    default: return hexadecimal(bus, "0x%02x");
  }
}

ordered_json toJson(const NodeReport& report) {
  static constexpr const char* kVerdicts[] = {"mouse", "keyboard", "not taken"};
  ordered_json json;
  json["node"] = report.path;
  json["byId"] = report.byId;
  json["byPath"] = report.byPath;
  json["readable"] = report.readable;
  if (report.readable) addFacts(report, json);
  json["verdict"] = kVerdicts[static_cast<int>(report.verdict)];
  json["reason"] = report.reason;
  json["remedy"] = report.remedy;
  json["warnings"] = toJson(report.warnings);
  return json;
}

ordered_json toJson(const std::vector<NodeWarning>& warnings) {
  ordered_json list = ordered_json::array();
  for (const NodeWarning& warning : warnings) {
    list.push_back({{"id", warning.id}, {"text", warning.text}, {"remedy", warning.remedy}});
  }
  return list;
}

}  // namespace quarlo::tools
