// What a recording tells of typed text: `record` beside the recorders of evemu and libinput, on the same keyboard at
// the same time. docs/permissions.md has the outcome as a table.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <thread>

#include "tests/scenario/uinput.h"
#include "tests/support/files.h"

namespace quarlo::test {
namespace {

using namespace std::chrono_literals;
using Codes = std::set<int>;

std::string contentsOf(const std::string& path) {
  std::ifstream stream(path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A program that records until it gets a SIGINT.
class Recorder {
 public:
  // `started` is what the program writes to `file` once it records; `file` may be its output.
  Recorder(const std::vector<std::string>& command, const std::string& output, const std::string& started)
      : pid_(fork()) {
    if (pid_ == 0) {
      const int out = open(output.c_str(), O_WRONLY | O_CREAT, 0600);
      dup2(out, STDOUT_FILENO);
      dup2(out, STDERR_FILENO);
      std::vector<char*> words;
      for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
      words.push_back(nullptr);
      execvp(words[0], words.data());
      _exit(127);
    }
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries && contentsOf(output).find(started) == std::string::npos; ++i) {
      std::this_thread::sleep_for(10ms);
    }
    EXPECT_NE(contentsOf(output).find(started), std::string::npos) << command[0] << ": " << contentsOf(output);
  }

  ~Recorder() {
    kill(pid_, SIGINT);
    waitpid(pid_, nullptr, 0);
  }

  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

 private:
  pid_t pid_;
};

// The keys of a text with a PIN, as it is typed on keyboards of several countries and on a remote.
constexpr int kTyped[] = {KEY_H,   KEY_4,      KEY_SPACE, KEY_KP7,   KEY_102ND,        KEY_RO,      KEY_NUMERIC_1,
                          KEY_YEN, KEY_DOLLAR, KEY_EURO,  KEY_KPDOT, KEY_NUMERIC_STAR, KEY_BRL_DOT1};
constexpr int kTelling[] = {KEY_LEFTSHIFT, KEY_RIGHTALT, KEY_CAPSLOCK, KEY_NUMLOCK, KEY_BACKSPACE, KEY_DELETE};
constexpr int kNavigating[] = {KEY_ENTER, KEY_TAB, KEY_UP, KEY_LEFT, KEY_VOLUMEUP};

// What a recording has of these keys.
template <std::size_t count>
Codes among(const int (&keys)[count], const Codes& recorded) {
  Codes found;
  for (const int key : keys) {
    if (recorded.count(key) != 0) found.insert(key);
  }
  return found;
}

template <std::size_t count>
Codes all(const int (&keys)[count]) {
  return {std::begin(keys), std::end(keys)};
}

// The numbers that a pattern finds in a text.
Codes numbersIn(const std::string& text, const char* pattern, int base) {
  const std::regex expression(pattern);
  Codes numbers;
  for (std::sregex_iterator match(text.begin(), text.end(), expression); match != std::sregex_iterator(); ++match) {
    numbers.insert(std::stoi((*match)[1], nullptr, base));
  }
  return numbers;
}

class RecordersTest : public testing::Test {
 protected:
  static Description describeKeyboard() {
    Description description = keyboard();
    for (const int key : kTyped) description.codes[EV_KEY].insert(key);
    for (const int key : kTelling) description.codes[EV_KEY].insert(key);
    for (const int key : kNavigating) description.codes[EV_KEY].insert(key);
    description.codes[EV_MSC].insert(MSC_SCAN);
    description.codes[EV_LED] = {LED_NUML, LED_CAPSL, LED_SCROLLL};  // the console switches the first two
    return description;
  }

  // In a report of its own, as a display server does.
  void switchLight() {
    const int node = open(device_.path().c_str(), O_WRONLY);
    input_event report[2] = {};
    report[0].type = EV_LED;
    report[0].code = LED_SCROLLL;
    report[0].value = 1;
    report[1].type = EV_SYN;
    EXPECT_EQ(write(node, report, sizeof report), static_cast<ssize_t>(sizeof report));
    close(node);
  }

  void type(int key) {
    constexpr int kScanCodes = 0x70000;
    device_.report(EV_MSC, MSC_SCAN, kScanCodes + key);
    device_.tap(key);
    std::this_thread::sleep_for(10ms);
  }

  // Has all three record while the keys are typed.
  RecordersTest() {
    const Recorder ours({"quarlo-input", "record", "--keyboard", device_.path(), "--mouse", "none", "--lirc", "none",
                         "-o", folder_.path("session")},
                        folder_.path("ours"), "Ctrl-C ends.");
    const Recorder evemu({"evemu-record", device_.path()}, folder_.path("evemu"), "B: 15");
    const Recorder libinput({"libinput-record", "-o", folder_.path("libinput.yml"), device_.path()},
                            folder_.path("libinput"), "Recording to");
    for (const int key : kTyped) type(key);
    for (const int key : kTelling) type(key);
    for (const int key : kNavigating) type(key);
    switchLight();
    std::this_thread::sleep_for(100ms);
  }

  // The keys and the scan codes that a recording names.
  Codes keys(const std::string& file) const {
    const std::string text = contentsOf(folder_.path(file));
    if (file == "libinput.yml") return numbersIn(text, R"(\[ *\d+, *\d+, *1, *(\d+), *1\])", 10);
    return numbersIn(text, "E: [0-9.]+ 0001 ([0-9a-f]+) 0*1[^0-9]", 16);
  }

  Codes scanCodes(const std::string& file) const {
    const std::string text = contentsOf(folder_.path(file));
    if (file == "libinput.yml") return numbersIn(text, R"(\[ *\d+, *\d+, *4, *4, *(\d+)\])", 10);
    return numbersIn(text, "E: [0-9.]+ 0004 0004 ([0-9]+)", 10);
  }

  Folder folder_;
  UinputDevice device_{describeKeyboard()};
};

TEST_F(RecordersTest, OursNamesNoKeyThatTypesOrTellsOfTyping) {
  const Codes recorded = keys("session/keyboard.evemu");
  EXPECT_EQ(among(kTyped, recorded), Codes());
  EXPECT_EQ(among(kTelling, recorded), Codes());
  EXPECT_EQ(among(kNavigating, recorded), all(kNavigating));
  EXPECT_EQ(scanCodes("session/keyboard.evemu"), Codes{0});
}

TEST_F(RecordersTest, OursNamesInItsCommentsWhatItsRecordsHave) {
  const std::string text = contentsOf(folder_.path("session/keyboard.evemu"));
  const std::regex pressed("E: [0-9.]+ 0001 [0-9a-f]+ 0001\t# EV_KEY / ([A-Z_0-9]+) 1\n");
  std::set<std::string> names;
  for (std::sregex_iterator match(text.begin(), text.end(), pressed); match != std::sregex_iterator(); ++match) {
    names.insert((*match)[1]);
  }
  EXPECT_EQ(names, (std::set<std::string>{"KEY_A", "KEY_ENTER", "KEY_LEFT", "KEY_TAB", "KEY_UP", "KEY_VOLUMEUP"}));
}

// A change of a light says at which place of a text a lock key was pressed, and so does the end of its report.
TEST_F(RecordersTest, OursLeavesOutThatALightChanged) {
  const auto count = [&](const char* file, const char* typeAndCode) {
    const std::string text = contentsOf(folder_.path(file));
    const std::regex record("E: [0-9.]+ " + std::string(typeAndCode));
    return std::distance(std::sregex_iterator(text.begin(), text.end(), record), std::sregex_iterator());
  };
  constexpr long kReports = 2 * (std::size(kTyped) + std::size(kTelling) + std::size(kNavigating));
  EXPECT_GT(count("evemu", "0011 "), 0);
  EXPECT_GT(count("evemu", "0000 0000 "), kReports);
  EXPECT_EQ(count("session/keyboard.evemu", "0011 "), 0);
  EXPECT_EQ(count("session/keyboard.evemu", "0000 0000 "), kReports);
}

TEST_F(RecordersTest, EvemusNamesAllOfThem) {
  const Codes recorded = keys("evemu");
  EXPECT_EQ(among(kTyped, recorded), all(kTyped));
  EXPECT_EQ(among(kTelling, recorded), all(kTelling));
  EXPECT_EQ(scanCodes("evemu").size(), std::size(kTyped) + std::size(kTelling) + std::size(kNavigating));
}

TEST_F(RecordersTest, LibinputsNamesSomeOfThem) {
  const Codes recorded = keys("libinput.yml");
  EXPECT_EQ(among(kTyped, recorded),
            (Codes{KEY_102ND, KEY_RO, KEY_YEN, KEY_DOLLAR, KEY_EURO, KEY_NUMERIC_1, KEY_NUMERIC_STAR, KEY_BRL_DOT1}));
  EXPECT_EQ(among(kTelling, recorded), (Codes{KEY_RIGHTALT, KEY_CAPSLOCK, KEY_NUMLOCK, KEY_DELETE}));
  EXPECT_EQ(scanCodes("libinput.yml"), Codes{KEY_A});
}

}  // namespace
}  // namespace quarlo::test
