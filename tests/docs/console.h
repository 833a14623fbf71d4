// The commands in documents, run as a reader of the document would.
//
//   ```console
//   $ quarlo-input --version
//   0.1.0
//   ```
//
// A line after "$ " is a command; one that ends with a backslash goes on in the next line. The lines up to the next
// command are what it prints, "..." standing for anything: alone, for any number of lines. Where there are none, it
// prints nothing. The commands of a block share a shell. Each must succeed, and together they may take some minutes.
#pragma once

#include <string>
#include <vector>

namespace quarlo::test {

struct Step {
  int line;  // of the document, from 1
  std::string command;
  std::string output;  // as the document has it
};

using ConsoleBlock = std::vector<Step>;

// The blocks of a document that start with exactly this line, such as "```console".
std::vector<ConsoleBlock> consoleBlocks(const std::string& document, const std::string& opening);

// Whether a command that printed `output` printed what the document says.
bool isAsDocumented(const std::string& output, const std::string& documented);

// Runs a block in the current directory. Returns what differed from the document, for a person, or nothing.
std::string problemsOf(const ConsoleBlock& block);

}  // namespace quarlo::test
