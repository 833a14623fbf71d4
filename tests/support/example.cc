#include "tests/support/example.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

namespace quarlo::test {
namespace {

[[noreturn]] void execute(const std::vector<std::string>& command, int out, const std::string& log, uid_t user) {
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  dup2(out, STDOUT_FILENO);
  dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
  if (setuid(user) == 0) execvp(words[0], words.data());
  _exit(127);
}

}  // namespace

Example::Example(const std::vector<std::string>& command, const std::string& log, uid_t user) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  pid_ = fork();
  if (pid_ == 0) execute(command, ends[1], log, user);
  close(ends[1]);
  out_ = fdopen(ends[0], "r");
}

Example::~Example() {
  if (pid_ != -1) end(SIGKILL);
  std::fclose(out_);
}

std::vector<std::string> Example::next(std::size_t count) {
  std::vector<std::string> lines;
  char line[128];
  while (lines.size() < count && std::fgets(line, sizeof line, out_) != nullptr) {
    lines.emplace_back(line);
    lines.back().pop_back();
  }
  return lines;
}

double Example::load() const {
  constexpr std::chrono::seconds kWhile{2};
  const auto start = std::chrono::steady_clock::now();
  const double before = processorSeconds();
  std::this_thread::sleep_for(kWhile);
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  return (processorSeconds() - before) / passed.count();
}

void Example::pause() const {
  kill(pid_, SIGSTOP);
  waitpid(pid_, nullptr, WUNTRACED);
}

void Example::resume() const { kill(pid_, SIGCONT); }

int Example::end() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Example::end(int signal) {
  kill(pid_, signal);
  return end();
}

double Example::processorSeconds() const {
  std::ostringstream contents;
  contents << std::ifstream("/proc/" + std::to_string(pid_) + "/stat").rdbuf();
  const std::string text = contents.str();
  std::istringstream stat(text.substr(text.rfind(')') + 1));
  constexpr int kFieldsBefore = 11;  // from the state to cmajflt (proc(5))
  std::string skipped;
  for (int i = 0; i < kFieldsBefore; ++i) stat >> skipped;
  long user = 0;
  long system = 0;
  EXPECT_TRUE(stat >> user >> system) << text;
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace quarlo::test
