// A program of examples/ while it runs.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace quarlo::test {

class Example {
 public:
  // `command` is the program, found as a shell finds it, and its arguments. What it logs goes to the file `log`.
  Example(const std::vector<std::string>& command, const std::string& log, uid_t user = getuid());
  ~Example();
  Example(const Example&) = delete;
  Example& operator=(const Example&) = delete;

  // The next lines that it prints, without their ends; fewer if it ends before.
  std::vector<std::string> next(std::size_t count);

  // Which part of the processor's time it takes, over a while.
  double load() const;

  // Stops it, as if it was busy, and lets it go on.
  void pause() const;
  void resume() const;

  // Waits for its end, and returns its exit status, as a shell has it.
  int end();

  // Sends it a signal before that.
  int end(int signal);

 private:
  double processorSeconds() const;

  pid_t pid_;
  FILE* out_;
};

}  // namespace quarlo::test
