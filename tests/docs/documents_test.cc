// What the documents say, done.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "tests/docs/console.h"
#include "tests/support/files.h"

namespace quarlo::test {
namespace {

namespace fs = std::filesystem;

const fs::path kRoot = QUARLO_ROOT;

std::string contentsOf(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// From the root.
std::vector<std::string> documents() {
  std::vector<std::string> paths = {"README.md", "sessions/README.md"};
  for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / "docs")) {
    if (entry.path().extension() == ".md") paths.push_back(fs::relative(entry.path(), kRoot).string());
  }
  return paths;
}

std::vector<ConsoleBlock> commandsIn(const std::string& document) {
  return consoleBlocks(contentsOf(kRoot / document), "```console");
}

std::vector<std::string> documentsWithCommands() {
  std::vector<std::string> paths;
  for (const std::string& document : documents()) {
    if (!commandsIn(document).empty()) paths.push_back(document);
  }
  return paths;
}

// The present folder, with what the project has in it, and nothing of what is built.
class ProjectCopy {
 public:
  ProjectCopy() : before_(fs::current_path()) {
    for (const fs::directory_entry& entry : fs::directory_iterator(kRoot)) {
      const fs::path name = entry.path().filename();
      if (name != "build" && name != ".git") fs::create_symlink(entry.path(), folder_.path(name));
    }
    fs::current_path(folder_.path());
  }
  ~ProjectCopy() { fs::current_path(before_); }
  ProjectCopy(const ProjectCopy&) = delete;
  ProjectCopy& operator=(const ProjectCopy&) = delete;

 private:
  Folder folder_;
  fs::path before_;
};

// ---- Commands -----------------------------------------------------------------------------------

class DocumentTest : public testing::TestWithParam<std::string> {
 protected:
  DocumentTest() {
    setenv("PATH", (QUARLO_PROGRAM_FOLDER ":" + std::string(getenv("PATH"))).c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    unsetenv("LIRC_REPEAT_TIMEOUT");
    unsetenv("LIRC_RELEASE_TIMEOUT");
  }
};

TEST_P(DocumentTest, ItsCommandsDoWhatItSays) {
  const ProjectCopy copy;
  for (const ConsoleBlock& block : commandsIn(GetParam())) {
    const std::string problems = problemsOf(block);
    EXPECT_TRUE(problems.empty()) << GetParam() << ", " << problems;
  }
}

INSTANTIATE_TEST_SUITE_P(Documents, DocumentTest, testing::ValuesIn(documentsWithCommands()), [](const auto& document) {
  return std::regex_replace(document.param, std::regex("[^A-Za-z0-9]"), "_");
});

TEST(ConsoleTest, ACommandThatFailsIsAProblem) {
  const ProjectCopy copy;
  const std::vector<ConsoleBlock> blocks = consoleBlocks("```console\n$ true\n$ echo so; false\n```\n", "```console");
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(problemsOf(blocks[0]), "line 3: echo so; false\nended with status 1, and printed\nso\n");
}

TEST(ConsoleTest, OtherOutputIsAProblem) {
  const ProjectCopy copy;
  const std::vector<ConsoleBlock> blocks = consoleBlocks("```console\n$ echo a\nb\n```\n", "```console");
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(problemsOf(blocks[0]), "line 2: echo a\nprinted\na\ninstead of\nb\n");
}

TEST(ConsoleTest, ThreeDotsStandForAnyLinesOrForAnyTextInALine) {
  EXPECT_TRUE(isAsDocumented("a\nb\nc\n", "a\n...\nc\n"));
  EXPECT_TRUE(isAsDocumented("a\nc\n", "a\n...\nc\n"));
  EXPECT_TRUE(isAsDocumented("at 12 ms\n", "at ... ms\n"));
  EXPECT_FALSE(isAsDocumented("a\nb\n", "a\n...\nc\n"));
  EXPECT_FALSE(isAsDocumented("at 12 ms\nb\n", "at ... ms\n"));
  EXPECT_FALSE(isAsDocumented("at 12 s\n", "at ... ms\n"));
  EXPECT_FALSE(isAsDocumented("abc\n", "a*\n"));
}

// ---- Programs -----------------------------------------------------------------------------------

// Without its indentation: a document can show a part of a function.
std::string withoutIndentation(const std::string& text) {
  return std::regex_replace(text, std::regex("(^|\n) +"), "$1");
}

std::string allExamples() {
  std::string text;
  for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / "examples")) text += contentsOf(entry.path());
  return withoutIndentation(text);
}

std::vector<std::string> programsIn(const std::string& document) {
  const std::string text = contentsOf(kRoot / document);
  const std::regex block("```cpp\n([^`]*)```");
  std::vector<std::string> programs;
  for (std::sregex_iterator match(text.begin(), text.end(), block), end; match != end; ++match) {
    programs.push_back(withoutIndentation((*match)[1]));
  }
  return programs;
}

TEST(DocumentsTest, TheirProgramsArePartsOfTheExamples) {
  const std::string examples = allExamples();
  int count = 0;
  for (const std::string& document : documents()) {
    for (const std::string& program : programsIn(document)) {
      EXPECT_NE(examples.find(program), std::string::npos) << document << " shows what no example has:\n" << program;
      ++count;
    }
  }
  EXPECT_GT(count, 0);
}

}  // namespace
}  // namespace quarlo::test
