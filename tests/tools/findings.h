// Findings as tests compare them, and a machine's files in a directory.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tools/common/checkup/finding.h"

namespace quarlo::tools::checkup {

// The words of a finding are known, but for its numbers and a test's directory: a change of them is a change of the
// golden file.
inline void checkWords(const Finding& finding) {
  static const std::string known = "\n" + test::contentOf(QUARLO_GOLDEN "/doctor.txt");
  const std::string words = std::string(kindOf(finding).id) + ". " + finding.what + ". " + finding.remedy + ".";
  const std::string withoutFolder = std::regex_replace(words, std::regex("[^ ]*/quarlo-[A-Za-z0-9]{6}"), "DIRECTORY");
  const std::string line = "\n" + std::regex_replace(withoutFolder, std::regex("[0-9]+"), "0") + "\n";
  EXPECT_NE(known.find(line), std::string::npos) << line;
}

// "node-grabbed /dev/input/event3" of each.
inline std::vector<std::string> idsOf(const Findings& findings) {
  std::vector<std::string> ids;
  for (const Finding& finding : findings) {
    if (!finding.what.empty()) checkWords(finding);
    ids.push_back(std::string(kindOf(finding).id) + " " + finding.where);
  }
  return ids;
}

using Ids = std::vector<std::string>;

// What takes the place of "/".
class Root {
 public:
  const std::string& path() const { return folder_.path(); }

  // Makes the directories above it, too. `name` begins with a slash.
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(std::filesystem::path(path() + name).parent_path());
    folder_.write(name.substr(1), text);
  }

  void link(const std::string& name, const std::string& target) const {
    std::filesystem::create_directories(std::filesystem::path(path() + name).parent_path());
    std::filesystem::create_symlink(target, path() + name);
  }

  // A process with these arguments. `terminal` is as the kernel numbers it: 1025 is /dev/tty1.
  void addProcess(int pid, const std::string& name, const std::vector<std::string>& arguments, int terminal = 0) const {
    const std::string folder = "/proc/" + std::to_string(pid);
    std::string commandLine;
    for (const std::string& argument : arguments) commandLine += argument + '\0';
    write(folder + "/stat", std::to_string(pid) + " (" + name + ") S 1 1 1 " + std::to_string(terminal) + " 1 0");
    write(folder + "/cmdline", commandLine);
    std::filesystem::create_directories(path() + folder + "/fd");
  }

  void addOpenFile(int pid, int fd, const std::string& target) const {
    link("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd), target);
  }

 private:
  test::Folder folder_;
};

}  // namespace quarlo::tools::checkup
