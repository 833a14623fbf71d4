// What the documents say, done.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "tests/docs/console.h"
#include "tests/support/files.h"
#include "tools/commands.h"

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
  std::vector<std::string> paths = {"README.md", "CONTRIBUTING.md", "sessions/README.md"};
  for (const fs::directory_entry& entry : fs::directory_iterator(kRoot / "docs")) {
    if (entry.path().extension() == ".md") paths.push_back(fs::relative(entry.path(), kRoot).string());
  }
  return paths;
}

// Where a document says something that a pattern's first group finds.
struct Mention {
  std::string document;
  std::string text;
};

std::vector<Mention> mentionsOf(const std::string& pattern) {
  const std::regex expression(pattern);
  std::vector<Mention> mentions;
  for (const std::string& document : documents()) {
    const std::string text = contentsOf(kRoot / document);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
      mentions.push_back({document, (*match)[1]});
    }
  }
  return mentions;
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

// A current directory that holds what the project does, without what is built.
class ProjectCopy {
 public:
  ProjectCopy() : before_(fs::current_path()) {
    for (const fs::directory_entry& entry : fs::directory_iterator(kRoot)) {
      const fs::path name = entry.path().filename();
      if (name != "build" && name != ".git") fs::create_symlink(entry.path(), folder_.path(name));
    }
    fs::current_path(folder_.path());
    // Where sources lie makes no difference to what a cache of the compiler's has of them.
    setenv("CCACHE_BASEDIR", folder_.path().c_str(), 1);
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

TEST(ConsoleTest, OutputWhereThereIsNoneIsAProblem) {
  const ProjectCopy copy;
  const std::vector<ConsoleBlock> blocks = consoleBlocks("```console\n$ echo a\n$ true\n```\n", "```console");
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(problemsOf(blocks[0]), "line 2: echo a\nprinted\na\ninstead of nothing\n");
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

// The words of a command line, up to where the shell would do something else with it.
std::vector<std::string> wordsOf(const std::string& command) {
  std::istringstream stream(command.substr(0, command.find_first_of("|&;>")));
  return {std::istream_iterator<std::string>(stream), {}};
}

std::string complaintAbout(const std::vector<std::string>& words) {
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  const tools::Request request =
      tools::parseArguments(tools::commands(), static_cast<int>(arguments.size()), arguments.data());
  const tools::WrongUsage* error = std::get_if<tools::WrongUsage>(&request);
  return error != nullptr ? error->message : "";
}

TEST(DocumentsTest, TheProgramUnderstandsTheCommandsThatTheyMention) {
  const std::vector<Mention> commands = mentionsOf("`(quarlo-input [^`]*)`");
  EXPECT_FALSE(commands.empty());
  for (const auto& [document, command] : commands) {
    EXPECT_EQ(complaintAbout(wordsOf(command)), "") << document << ": " << command;
  }
}

TEST(DocumentsTest, TheScriptsThatTheyMentionExist) {
  const std::vector<Mention> scripts = mentionsOf("`(script/[a-z-]+)");
  EXPECT_FALSE(scripts.empty());
  for (const auto& [document, script] : scripts) EXPECT_TRUE(fs::exists(kRoot / script)) << document << ": " << script;
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

TEST(DocumentsTest, TheirProgramsArePartsOfTheExamples) {
  const std::string examples = allExamples();
  const std::vector<Mention> programs = mentionsOf("```cpp\n([^`]*)```");
  EXPECT_FALSE(programs.empty());
  for (const auto& [document, program] : programs) {
    EXPECT_NE(examples.find(withoutIndentation(program)), std::string::npos)
        << document << " shows what no example has:\n"
        << program;
  }
}

// ---- Links --------------------------------------------------------------------------------------

// As GitHub makes them of headings.
std::string anchorOf(const std::string& heading) {
  std::string anchor;
  for (const char c : heading) {
    if (c == ' ') anchor += '-';
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_') {
      anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return anchor;
}

bool hasHeading(const std::string& document, const std::string& anchor) {
  std::istringstream stream(document);
  for (std::string line; std::getline(stream, line);) {
    const std::size_t level = line.find_first_not_of('#');
    if (level != 0 && level != std::string::npos && line[level] == ' ' && anchorOf(line.substr(level + 1)) == anchor) {
      return true;
    }
  }
  return false;
}

TEST(DocumentsTest, TheirLinksLeadSomewhere) {
  const std::vector<Mention> links = mentionsOf(R"(\]\(([^):]*)\))");
  EXPECT_FALSE(links.empty());
  for (const auto& [document, link] : links) {
    const std::size_t hash = std::min(link.find('#'), link.size());
    const fs::path target = hash == 0 ? kRoot / document : (kRoot / document).parent_path() / link.substr(0, hash);
    EXPECT_TRUE(fs::exists(target)) << document << ": " << link;
    EXPECT_TRUE(hash == link.size() || hasHeading(contentsOf(target), link.substr(hash + 1)))
        << document << ": " << link;
  }
}

}  // namespace
}  // namespace quarlo::test
