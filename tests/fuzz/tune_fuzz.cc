// What `tune` prints, as text and as JSON, the script of its picture, and the data of its page: any recorded remote,
// any imagined one, any settings.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "recording/lines.h"
#include "tests/fuzz/input_bytes.h"
#include "tests/fuzz/printed.h"
#include "tests/fuzz/scratch.h"
#include "tests/tools/page_data.h"
#include "tools/common/output.h"
#include "tools/tune/kernel_remote.h"
#include "tools/tune/timing_plot.h"
#include "tools/tune/tune.h"

namespace quarlo::fuzz {
namespace {

using namespace tools;
using namespace tools::tune;
using std::chrono::milliseconds;

// ---- What is studied ----------------------------------------------------------------------------

// As the command line takes it: an ordered list without repetitions, a short one here.
std::vector<int> takeValues(InputBytes& input, int most) {
  std::set<int> values;
  for (int count = 1 + input.takeBelow(2); count > 0; --count) values.insert(1 + input.take<std::uint16_t>() % most);
  return {values.begin(), values.end()};
}

Protocol takeProtocol(InputBytes& input) {
  Protocol protocol;
  protocol.period = milliseconds(10 + input.take<std::uint16_t>() % 490);
  const auto mostLines = static_cast<int>((kShortestHold - milliseconds(1)) / protocol.period);
  protocol.tapLines = 1 + input.takeBelow(mostLines + 1);
  protocol.keyUp = keyUpOf(protocol.period);
  return protocol;
}

TuneOptions takeOptions(InputBytes& input) {
  TuneOptions options;
  options.protocol = takeProtocol(input);
  options.hold = kShortestHold + milliseconds(input.take<std::uint8_t>());
  options.grid.loop = input.takeBool() ? LoopKind::kWait : LoopKind::kPoll;
  options.grid.repeatMs = takeValues(input, 1000);
  options.grid.startMs = takeValues(input, 2000);
  options.grid.pollMs = {1 + input.take<std::uint16_t>() % 1000};
  options.delayMs = takeValues(input, 1000);
  options.periodMs = takeValues(input, 1000);
  if (input.takeBool()) options.kernel = NodeRepeat{input.take<std::uint16_t>(), input.take<std::uint16_t>()};
  options.nodeGridIsGiven = options.kernel.has_value();
  options.json = input.takeBool();
  return options;
}

// Taps and held buttons of a remote, with lines of any text among them.
std::string takeLines(InputBytes& input) {
  constexpr const char* kButtons[] = {"KEY_OK", "KEY_UP", "KEY_5", "KEY_NOSUCH"};
  constexpr int kMostLines = 60;
  std::string text;
  milliseconds time(0);
  int repeat = 0;
  for (int i = 0; i < kMostLines && !input.isEmpty(); ++i) {
    const int kind = input.takeBelow(8);
    repeat = kind == 0 ? 0 : repeat + 1;
    time += milliseconds(kind == 0 ? 1000 + input.take<std::uint16_t>() % 2000 : 20 + input.takeBelow(200));
    char count[8];
    std::snprintf(count, sizeof count, "%02x", static_cast<unsigned>(repeat));
    const std::string line =
        kind == 7 ? input.takeText() : std::string("00f4 ") + count + " " + kButtons[input.takeBelow(4)] + " tv";
    text += recording::timeText(time) + " " + line.substr(0, line.find('\n')) + "\n";
  }
  return text;
}

// ---- The picture --------------------------------------------------------------------------------

// Of a line of gnuplot's, whether each quote has its other end, and none is within a text.
bool hasWholeTexts(const std::string& line) {
  return std::count(line.begin(), line.end(), '\'') % 2 == 0 && std::count(line.begin(), line.end(), '"') % 2 == 0;
}

bool hasNumbersOnly(const std::string& line) {
  for (const char* word : {"nan", "inf", "-nan"}) {
    if (line.find(std::string(" ") + word) != std::string::npos) return false;
  }
  return true;
}

// Each block of data ends, and no line was cut.
void checkScript(const std::string& script) {
  constexpr std::size_t kLongestLine = 500;
  std::istringstream lines(script);
  bool isData = false;
  for (std::string line; std::getline(lines, line);) {
    require(line.size() < kLongestLine, "no line of the script is so long that it is cut");
    require(hasWholeTexts(line), "the texts of the script have their ends");
    require(hasNumbersOnly(line), "the script's numbers are numbers");
    require(std::all_of(line.begin(), line.end(), [](char byte) { return static_cast<unsigned char>(byte) >= ' '; }),
            "the script has no control character");
    if (line.find("<< EOD") != std::string::npos) {
      require(!isData, "a block of data has its end");
      isData = true;
    } else if (line == "EOD") {
      isData = false;
    }
  }
  require(!isData, "a block of data has its end");
}

void checkPicture(const TuneOptions& options) {
  const bool kernel = options.kernel.has_value();
  const Remote remote = kernel ? imagineKernelRemote(options.protocol, options.hold, *options.kernel)
                               : imagineRemote(options.protocol, options.hold);
  Grid grid = options.grid;
  if (kernel) grid = {options.grid.loop, options.periodMs, options.delayMs, options.grid.pollMs};
  checkScript(plotScript(remote, studyTiming(remote, grid), "title"));
}

// ---- The command --------------------------------------------------------------------------------

void checkCommand(const TuneOptions& options) {
  int status = -1;
  const Printed printed = printedBy([&] { status = run(options); });
  requirePlainLines(printed.err);
  require(printed.err.empty() == (status == kDone), "what goes wrong is said");
  options.json ? requireJsonLines(printed.out) : requirePlainLines(printed.out);
}

// Whatever the remote is called, the data are one value of JSON that stays in its element.
void checkPage(const std::string& path) {
  std::ostringstream page;
  page << std::ifstream(path, std::ios::binary).rdbuf();
  const std::string text = tools::dataTextOf(page.str());
  require(text.find('<') == std::string::npos, "what is in an element stays in it");
  requireJsonLines(text + "\n");
}

void checkRecording(const Scratch& scratch, TuneOptions options, InputBytes& input) {
  const std::string name = "recorded/" + input.takeFileName() + ".lirc";
  scratch.write(name, takeLines(input));
  options.session = scratch.path(name);
  if (!options.json) options.html = scratch.path("recorded/page.html");
  checkCommand(options);
  if (std::filesystem::exists(options.html)) checkPage(options.html);
  std::filesystem::remove_all(scratch.path("recorded"));
}

}  // namespace
}  // namespace quarlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quarlo::fuzz;
  static const Scratch scratch;
  InputBytes input(data, size);
  const auto options = takeOptions(input);
  switch (input.takeBelow(3)) {
    case 0: checkPicture(options); break;
    case 1: checkCommand(options); break;
    default: checkRecording(scratch, options, input);
  }
  return 0;
}
