#include "tests/docs/console.h"

#include <fnmatch.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace quarlo::test {
namespace {

const std::string kPrompt = "$ ";
const std::string kAnything = "...";
const std::string kScript = "commands.sh";
const std::string kLimit = "500";  // seconds for a block: less than a test has
const std::string kEndOfStep = "--- the command ended with status ";

using Lines = std::vector<std::string>;

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// "..." becomes a *, and nothing else is one.
std::string patternOf(const std::string& documented) {
  std::string pattern;
  for (std::size_t at = 0; at < documented.size();) {
    if (documented.compare(at, kAnything.size(), kAnything) == 0) {
      pattern += '*';
      at += kAnything.size();
    } else {
      pattern += {'\\', documented[at++]};
    }
  }
  return pattern;
}

bool isLineAsDocumented(const std::string& line, const std::string& documented) {
  return fnmatch(patternOf(documented).c_str(), line.c_str(), 0) == 0;
}

bool areLinesAsDocumented(const Lines& lines, std::size_t line, const Lines& documented, std::size_t next) {
  if (next == documented.size()) return line == lines.size();
  if (documented[next] == kAnything) {
    for (std::size_t rest = line; rest <= lines.size(); ++rest) {
      if (areLinesAsDocumented(lines, rest, documented, next + 1)) return true;
    }
    return false;
  }
  return line < lines.size() && isLineAsDocumented(lines[line], documented[next]) &&
         areLinesAsDocumented(lines, line + 1, documented, next + 1);
}

// A script that says after each step how it ended, on a line of its own whatever the step has printed.
void writeScript(const ConsoleBlock& block) {
  std::ofstream script(kScript);
  script << "exec 2>&1 </dev/null\n";
  for (const Step& step : block) {
    script << step.command << "\n"
           << "status=$?; echo; echo \"" << kEndOfStep << "$status\"\n";
  }
}

std::string outputOf(const std::string& command) {
  std::string output;
  std::FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  while (const std::size_t length = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, length);
  pclose(pipe);
  return output;
}

std::string problemOf(const Step& step, const std::string& output, const std::string& status) {
  const std::string where = "line " + std::to_string(step.line) + ": " + step.command + "\n";
  if (status != "0") return where + "ended with status " + status + ", and printed\n" + output;
  if (isAsDocumented(output, step.output)) return "";
  return where + "printed\n" + output + (step.output.empty() ? "instead of nothing\n" : "instead of\n" + step.output);
}

}  // namespace

std::vector<ConsoleBlock> consoleBlocks(const std::string& document, const std::string& opening) {
  std::vector<ConsoleBlock> blocks;
  bool inside = false;
  int number = 0;
  for (const std::string& line : linesOf(document)) {
    ++number;
    if (!inside) {
      inside = line == opening;
      if (inside) blocks.emplace_back();
    } else if (line == "```") {
      inside = false;
    } else if (startsWith(line, kPrompt)) {
      blocks.back().push_back({number, line.substr(kPrompt.size()), ""});
    } else if (!blocks.back().empty()) {
      Step& step = blocks.back().back();
      const bool goesOn = step.output.empty() && step.command.back() == '\\';
      (goesOn ? step.command : step.output) += goesOn ? "\n" + line : line + "\n";
    }
  }
  return blocks;
}

bool isAsDocumented(const std::string& output, const std::string& documented) {
  return areLinesAsDocumented(linesOf(output), 0, linesOf(documented), 0);
}

std::string problemsOf(const ConsoleBlock& block) {
  writeScript(block);
  const std::string output = outputOf("timeout " + kLimit + " sh ./" + kScript);
  std::string problems;
  std::size_t from = 0;
  for (const Step& step : block) {
    const std::size_t end = output.find("\n" + kEndOfStep, from);
    if (end == std::string::npos) {
      return problems + "line " + std::to_string(step.line) + ": " + step.command +
             "\nended the shell, or was not done " + kLimit + " s after the block had begun, and printed\n" +
             output.substr(from);
    }
    const std::size_t status = end + 1 + kEndOfStep.size();
    const std::size_t next = output.find('\n', status);
    problems += problemOf(step, output.substr(from, end - from), output.substr(status, next - status));
    from = next + 1;
  }
  return problems;
}

}  // namespace quarlo::test
