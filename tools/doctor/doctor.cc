#include "tools/doctor/doctor.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tools/common/checkup/checkup.h"
#include "tools/common/output.h"

namespace quarlo::tools::doctor {
namespace {

using checkup::Checkup;
using checkup::Finding;

constexpr std::size_t kWidth = 80;
constexpr std::size_t kIndent = 10;

// `text` in lines of the terminal's usual width, behind a label in the first.
void printParagraph(const char* label, const std::string& text) {
  std::istringstream words(printable(text));
  std::string line = "  " + std::string(label);
  line.resize(kIndent, ' ');
  bool isEmpty = true;
  for (std::string word; words >> word; isEmpty = false) {
    if (!isEmpty && line.size() + 1 + word.size() > kWidth) {
      std::printf("%s\n", line.c_str());
      line = std::string(kIndent, ' ');
      isEmpty = true;
    }
    line += (isEmpty ? "" : " ") + word;
  }
  std::printf("%s\n", line.c_str());
}

void printFinding(const Finding& finding) {
  const checkup::Kind& kind = kindOf(finding);
  std::printf("%s %s\n", nameOf(kind.severity), kind.id);
  printParagraph("where", finding.where);
  printParagraph("what", finding.what);
  printParagraph("remedy", finding.remedy);
  std::printf("\n");
}

void printSum(std::size_t findings) {
  const std::string sum = findings == 0 ? "Nothing found" : counted(static_cast<long>(findings), "finding");
  std::printf("%s%s.\n", sum.c_str(), findings > 1 ? ", the worst first" : "");
}

void printText(const Checkup& checkup) {
  for (const Finding& finding : checkup.findings) printFinding(finding);
  for (const std::string& unseen : checkup.unseen) std::printf("Not looked at: %s\n", printable(unseen).c_str());
  printSum(checkup.findings.size());
}

void printJson(const Checkup& checkup) {
  using nlohmann::ordered_json;
  constexpr bool kAsciiOnly = true;
  for (const Finding& finding : checkup.findings) {
    const std::string line = toJson(finding).dump(-1, ' ', kAsciiOnly, ordered_json::error_handler_t::replace);
    std::printf("%s\n", line.c_str());
  }
  for (const std::string& unseen : checkup.unseen) complain("not looked at: " + unseen);
}

}  // namespace

int run(const DoctorOptions& options) {
  const Checkup checkup = checkup::examine(options, options.root);
  if (options.json) {
    printJson(checkup);
  } else {
    printText(checkup);
  }
  return checkup.findings.empty() ? kDone : kFailed;
}

}  // namespace quarlo::tools::doctor
