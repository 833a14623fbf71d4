// The command line: commands, their options, and what it asks for.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace quarlo::tools {

// What is wrong with an argument, for a person. It can hold arguments as they are: escape it before it reaches a
// terminal.
class ArgumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs a command. Returns the exit status.
using Run = std::function<int()>;

// The options of one command. What is passed by reference must live as long as the Run that the command's declaration
// returns.
class CommandLine {
 public:
  // Takes the value of an option. Throws ArgumentError if it is wrong; the message need not name the option.
  using Take = std::function<void(const std::string&)>;

  // An option that is there or not.
  void addFlag(const std::string& names, bool& isThere, const std::string& description);

  // An option that counts how often it is there.
  void addCounter(const std::string& names, int& count, const std::string& description);

  // An option with a value, whose kind `type` names: "--size" with "WxH".
  void addOption(const std::string& names, const std::string& type, const std::string& description, const Take& take);
  // The same, as often as one likes: each value is taken in its turn.
  void addRepeatableOption(const std::string& names, const std::string& type, const std::string& description,
                           const Take& take);
  void addRequiredOption(const std::string& names, const std::string& type, const std::string& description,
                         const Take& take);

  // An argument that is not an option. Its name is its type in lower case.
  void addArgument(const std::string& type, const std::string& description, const Take& take);
  void addRequiredArgument(const std::string& type, const std::string& description, const Take& take);

  // Two options that cannot be given together.
  void exclude(const std::string& option, const std::string& other);

  // What to do instead if there are too many arguments.
  void setHintForArguments(const std::string& hint);

  // A variable of the environment, or a file, that the command reads: what --help says of it, behind the options.
  void addVariable(const std::string& name, const std::string& description);
  void addFile(const std::string& path, const std::string& description);

  // Called when everything was taken, after the checks that were added before. Throws ArgumentError if it does not fit
  // together.
  void addCheck(const std::function<void()>& check);

  // What --help says below all that, in lines of at most 80 characters.
  void setHelp(const std::string& text);

 private:
  friend class Parser;
  struct Declaration;
  explicit CommandLine(Declaration& declaration) : declaration_(declaration) {}

  Declaration& declaration_;
};

struct Command {
  std::string name;
  std::string summary;  // one line for --help
  std::function<Run(CommandLine&)> declare;
};

// A command whose options are a struct of its own.
template <typename Options>
Command makeCommand(const std::string& name, const std::string& summary, void (*addOptions)(CommandLine&, Options&),
                    int (*run)(const Options&)) {
  return {name, summary, [addOptions, run](CommandLine& line) -> Run {
            const auto options = std::make_shared<Options>();
            addOptions(line, *options);
            return [run, options] { return run(*options); };
          }};
}

// A text for standard output, and nothing else: help, or the version.
struct Information {
  std::string text;
};

// Why the arguments are wrong, and where help is. To be escaped as ArgumentError is.
struct WrongUsage {
  std::string message;
};

using Request = std::variant<WrongUsage, Information, Run>;

// Takes what main() gets. Prints nothing.
Request parseArguments(const std::vector<Command>& commands, int argc, const char* const* argv);

}  // namespace quarlo::tools
