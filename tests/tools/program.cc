#include "tests/tools/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

namespace quarlo::tools {
namespace {

constexpr uid_t kNobody = 65534;

struct Pipe {
  int read;
  int write;
};

Pipe makePipe() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return {ends[0], ends[1]};
}

Pipe makeTerminal() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_EQ(grantpt(master), 0);
  EXPECT_EQ(unlockpt(master), 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings = {};
  EXPECT_EQ(tcgetattr(slave, &settings), 0);
  settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
  EXPECT_EQ(tcsetattr(slave, TCSANOW, &settings), 0);
  return {master, slave};
}

Pipe makeOutput(Output output) {
  switch (output) {
    case Output::kFullDisk: return {-1, open("/dev/full", O_WRONLY | O_CLOEXEC)};
    case Output::kTerminal: return makeTerminal();
    default: return makePipe();
  }
}

// What ignores a signal, such as nohup, has its programs ignore it, too.
void resetSignals() {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM}) std::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// In a session of its own, so that it does not take the terminal of whoever runs the tests.
[[noreturn]] void execute(const Arguments& command, int out, int err) {
  setsid();
  resetSignals();
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execvp(words[0], words.data());
  _exit(127);
}

// Appends what can be read now. Returns false at the end; a terminal whose other side is closed gives EIO.
bool readInto(int fd, std::string& text) {
  char buffer[4096];
  const ssize_t length = read(fd, buffer, sizeof buffer);
  if (length > 0) text.append(buffer, static_cast<std::size_t>(length));
  return length > 0;
}

}  // namespace

bool hasTerminals() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master == -1) return false;
  close(master);
  return true;
}

Program::Program(const Arguments& arguments, Output output, const Arguments& launcher) {
  Arguments command = launcher;
  command.push_back(QUARLO_PROGRAM);
  command.insert(command.end(), arguments.begin(), arguments.end());
  for (const std::string& word : command) command_ += (command_.empty() ? "" : " ") + word;
  const Pipe out = makeOutput(output);
  const Pipe err = makePipe();
  if (output == Output::kClosedPipe) close(out.read);
  pid_ = fork();
  if (pid_ == 0) execute(command, out.write, err.write);
  close(out.write);
  close(err.write);
  out_ = output == Output::kClosedPipe ? -1 : out.read;
  err_ = err.read;
}

Program::~Program() {
  if (pid_ == -1) return;
  kill(pid_, SIGKILL);
  finish();
}

std::string Program::story(const std::string& problem) const {
  return command_ + "\n" + problem + " within " + std::to_string(limit_.count()) +
         " ms. Its standard output so far:\n" + result_.out + "\nIts standard error:\n" + result_.err;
}

bool Program::readSome(Time deadline) {
  if (out_ == -1 && err_ == -1) return false;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  pollfd sources[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
  if (poll(sources, 2, static_cast<int>(std::max<long long>(left, 0))) < 1) return false;
  for (const auto& [source, fd, text] :
       {std::tuple<pollfd, int*, std::string*>(sources[0], &out_, &result_.out), {sources[1], &err_, &result_.err}}) {
    if (source.revents == 0 || readInto(source.fd, *text)) continue;
    close(*fd);
    *fd = -1;
  }
  return true;
}

bool Program::hasEnded(Time deadline, int& status) const {
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

testing::AssertionResult Program::waitFor(const std::string& text) {
  const Time until = deadline();
  while (result_.out.find(text) == std::string::npos) {
    if (!readSome(until)) return testing::AssertionFailure() << story("did not print \"" + text + "\"");
  }
  return testing::AssertionSuccess();
}

void Program::signal(int number) const { kill(pid_, number); }

Result Program::finish() {
  const Time until = deadline();
  while (readSome(until)) {
  }
  int status = 0;
  if (!hasEnded(until, status)) {
    ADD_FAILURE() << story("did not end");
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  for (int* fd : {&out_, &err_}) {
    if (*fd != -1) close(*fd);
    *fd = -1;
  }
  pid_ = -1;
  result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result_;
}

Result run(const Arguments& arguments, Output output, const Arguments& launcher) {
  return Program(arguments, output, launcher).finish();
}

Arguments redirected(const std::string& redirection, const std::string& file) {
  return {"sh", "-c", "exec \"$@\" " + redirection, file};
}

Arguments asNobody() {
  return geteuid() == 0 ? Arguments{"/usr/bin/setpriv", "--reuid=" + std::to_string(kNobody)} : Arguments{};
}

bool canReadMemory(pid_t pid) {
  const pid_t reader = fork();
  if (reader == 0) {
    if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) _exit(2);
    _exit(open(("/proc/" + std::to_string(pid) + "/environ").c_str(), O_RDONLY | O_CLOEXEC) == -1 ? 1 : 0);
  }
  int status = 0;
  waitpid(reader, &status, 0);
  return status == 0;
}

bool isHarmless(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return byte == '\n' || (byte >= ' ' && byte <= '~'); });
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> eventsOf(const std::string& out) {
  std::vector<std::string> events;
  for (const std::string& line : linesOf(out)) {
    const std::size_t end = line.find("  ", line.find_first_not_of(' '));
    constexpr std::size_t kSourceColumns = 10;
    const bool hasSource = end != std::string::npos && line.size() > end + 2 + kSourceColumns;
    const std::string event = hasSource ? line.substr(end + 2 + kSourceColumns) : "";
    for (const std::string kind : {"key ", "mouse ", "wheel ", "no event "}) {
      if (event.rfind(kind, 0) == 0) events.push_back(event);
    }
  }
  return events;
}

std::vector<std::string> withMovesMerged(const std::vector<std::string>& events) {
  const auto isMove = [](const std::string& event) { return event.rfind("mouse move", 0) == 0; };
  std::vector<std::string> merged;
  for (const std::string& event : events) {
    if (!merged.empty() && isMove(event) && isMove(merged.back())) merged.pop_back();
    merged.push_back(event);
  }
  return merged;
}

std::vector<std::string> withRepeatsMerged(const std::vector<std::string>& events) {
  std::vector<std::string> merged = withMovesMerged(events);
  merged.erase(std::unique(merged.begin(), merged.end()), merged.end());
  return merged;
}

}  // namespace quarlo::tools
