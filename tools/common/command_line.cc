#include "tools/common/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>
#include <optional>
#include <sstream>

#include "tools/common/letter_case.h"

namespace quarlo::tools {

struct CommandLine::Declaration {
  CLI::App* app;
  std::string hintForArguments;
  std::string variables;  // as lines, like the options
  std::string files;
  std::string help;
  std::vector<std::function<void()>> checks;
};

namespace {

constexpr char kProgram[] = "quarlo-input";

// ---- Declaring ----------------------------------------------------------------------------------

constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kOptionsWidth = 28;   // of the column with the names of options
constexpr std::size_t kCommandsWidth = 16;  // of that with the names of commands

// As lines for the column behind the names.
std::string wrapped(const std::string& text) {
  std::istringstream words(text);
  std::string lines;
  std::size_t length = 0;
  for (std::string word; words >> word; length += word.size()) {
    const bool fits = length + 1 + word.size() <= kHelpWidth - kOptionsWidth;
    if (!lines.empty()) lines += fits ? ' ' : '\n';
    length = fits && !lines.empty() ? length + 1 : 0;
    lines += word;
  }
  return lines;
}

// A line of --help that looks like that of an option: the name in a column of its own.
std::string entry(const std::string& name, const std::string& description) {
  const std::string column(kOptionsWidth, ' ');
  std::string lines = "  " + name;
  const bool fits = lines.size() < kOptionsWidth;
  lines += fits ? column.substr(lines.size()) : "\n" + column;
  for (const char c : wrapped(description)) lines += c == '\n' ? "\n" + column : std::string(1, c);
  return lines + "\n";
}

// What stands below a heading, if there is anything.
std::string section(const std::string& heading, const std::string& entries) {
  return entries.empty() ? "" : heading + "\n" + entries + "\n";
}

// "--output" of "-o,--output".
std::string longName(const std::string& names) { return names.substr(names.rfind(',') + 1); }

// `take`, whose error names the option.
CommandLine::Take takeOrName(const std::string& names, const CommandLine::Take& take) {
  return [name = longName(names), take](const std::string& text) {
    try {
      take(text);
    } catch (const ArgumentError& error) {
      throw CLI::ValidationError(name, error.what());
    }
  };
}

CLI::Option* addValue(CLI::App& app, const std::string& names, const std::string& type, const std::string& description,
                      const CommandLine::Take& take) {
  return app.add_option_function<std::string>(names, takeOrName(names, take), wrapped(description))->type_name(type);
}

// A flag takes no value: it is there or not, or counts how often it is there.
template <typename Value>
void addFlagFor(CLI::App& app, const std::string& names, Value& value, const std::string& description) {
  app.add_flag(names, value, wrapped(description))->disable_flag_override();
}

// ---- Saying what is wrong -----------------------------------------------------------------------

// How many letters must be added, left out or changed to make one word of the other.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row[b.size()];
}

// "; did you mean monitor?", if one of the known words is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& known) {
  const auto nearer = [&](const std::string& a, const std::string& b) { return distance(a, word) < distance(b, word); };
  const auto nearest = std::min_element(known.begin(), known.end(), nearer);
  if (nearest == known.end() || distance(*nearest, word) > 1 + word.size() / 4) return "";
  return "; did you mean " + *nearest + "?";
}

std::vector<std::string> optionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

// "monitor, list or tune".
std::string enumerated(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
  }
  return text;
}

bool replace(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t start = text.find(from);
  if (start == std::string::npos) return false;
  text.replace(start, from.size(), to);
  return true;
}

// What the library says of too few, too many and excluded values, in words of ours.
std::string inOurWords(std::string message) {
  const std::size_t name = message.find(": ");
  if (replace(message, " was given a disallowed flag override", " takes no value")) return "--" + message;
  if (replace(message, " excludes ", " cannot be combined with ")) return message;
  if (name != std::string::npos && message.find(": At Most 1 required") == name) {
    return message.substr(0, name) + " can be given only once";
  }
  if (replace(message, ": 1 required ", " needs a value: ")) replace(message, " missing", "");
  return message;
}

}  // namespace

// ---- A command's options ------------------------------------------------------------------------

void CommandLine::addFlag(const std::string& names, bool& isThere, const std::string& description) {
  addFlagFor(*declaration_.app, names, isThere, description);
}

void CommandLine::addCounter(const std::string& names, int& count, const std::string& description) {
  addFlagFor(*declaration_.app, names, count, description);
}

void CommandLine::addOption(const std::string& names, const std::string& type, const std::string& description,
                            const Take& take) {
  addValue(*declaration_.app, names, type, description, take);
}

void CommandLine::addRepeatableOption(const std::string& names, const std::string& type, const std::string& description,
                                      const Take& take) {
  const auto takeEach = [take = takeOrName(names, take)](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) take(text);
  };
  declaration_.app->add_option_function<std::vector<std::string>>(names, takeEach, wrapped(description))
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false)
      ->type_name(type);
}

void CommandLine::addRequiredOption(const std::string& names, const std::string& type, const std::string& description,
                                    const Take& take) {
  addValue(*declaration_.app, names, type, description, take)->required();
}

void CommandLine::addArgument(const std::string& type, const std::string& description, const Take& take) {
  addValue(*declaration_.app, inSmallLetters(type), type, description, take);
}

void CommandLine::addRequiredArgument(const std::string& type, const std::string& description, const Take& take) {
  addValue(*declaration_.app, inSmallLetters(type), type, description, take)->required();
}

void CommandLine::exclude(const std::string& option, const std::string& other) {
  declaration_.app->get_option(option)->excludes(other);
}

void CommandLine::setHintForArguments(const std::string& hint) { declaration_.hintForArguments = hint; }

void CommandLine::addCheck(const std::function<void()>& check) {
  declaration_.checks.push_back(check);
  declaration_.app->callback([&checks = declaration_.checks] {
    try {
      for (const std::function<void()>& each : checks) each();
    } catch (const ArgumentError& error) {
      throw CLI::ValidationError(error.what());
    }
  });
}

void CommandLine::addVariable(const std::string& name, const std::string& description) {
  declaration_.variables += entry(name, description);
}

void CommandLine::addFile(const std::string& path, const std::string& description) {
  declaration_.files += entry(path, description);
}

void CommandLine::setHelp(const std::string& text) { declaration_.help = text; }

// ---- All commands -------------------------------------------------------------------------------

class Parser {
 public:
  explicit Parser(const std::vector<Command>& commands) : declarations_(commands.size()) {
    app_.require_subcommand(0, 1);  // so that a word that is none gets named
    app_.set_version_flag("-V,--version", QUARLO_VERSION, "Print the version and exit");
    app_.get_formatter()->column_width(kCommandsWidth);
    app_.footer(
        "Each command has its own --help.\nExit status: 0 done, 1 failed, 2 wrong arguments.\n"
        "See also: docs/bring-up.md, docs/behaviour.md");
    for (std::size_t i = 0; i < commands.size(); ++i) {
      CLI::App* command = app_.add_subcommand(commands[i].name, commands[i].summary);
      command->formatter(std::make_shared<CLI::Formatter>());
      command->get_formatter()->column_width(kOptionsWidth);
      declarations_[i].app = command;
      CommandLine commandLine(declarations_[i]);
      runs_.push_back(commands[i].declare(commandLine));
      command->footer(section("Environment:", declarations_[i].variables) + section("Files:", declarations_[i].files) +
                      declarations_[i].help);
      names_.push_back(commands[i].name);
    }
  }

  Request parse(const std::vector<std::string>& words) {
    try {
      app_.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::CallForHelp&) {
      if (!parsed() && !app_.remaining().empty()) return wrong(whatIsNotExpected(words));
      return Information{app_.help()};
    } catch (const CLI::CallForVersion& version) {
      return Information{std::string(version.what()) + "\n"};
    } catch (const CLI::ExtrasError&) {
      return wrong(whatIsNotExpected(words));
    } catch (const CLI::RequiredError& error) {
      return wrong(app_.remaining(true).empty() ? inOurWords(error.what()) : whatIsNotExpected(words));
    } catch (const CLI::ParseError& error) {
      return wrong(inOurWords(error.what()));
    }
    const std::optional<std::size_t> command = parsed();
    if (!command) return wrong("a command is required: " + enumerated(names_));
    return runs_[*command];
  }

 private:
  // The number of the command that was asked for.
  std::optional<std::size_t> parsed() const {
    for (std::size_t i = 0; i < declarations_.size(); ++i) {
      if (declarations_[i].app->parsed()) return i;
    }
    return std::nullopt;
  }

  WrongUsage wrong(const std::string& problem) const {
    const std::optional<std::size_t> command = parsed();
    return {problem + " (see " + kProgram + (command ? " " + names_[*command] : "") + " --help)"};
  }

  // Of what is not expected, the first.
  std::string whatIsNotExpected(const std::vector<std::string>& words) const {
    const std::vector<std::string> all = app_.remaining(true);
    const auto first = std::find_first_of(words.begin(), words.end(), all.begin(), all.end());
    const std::string word = first == words.end() ? all.front() : *first;
    const std::optional<std::size_t> command = parsed();
    const std::string quoted = "\"" + word + "\"";
    if (word.size() > 1 && word.front() == '-') {
      const CLI::App& app = command ? *declarations_[*command].app : app_;
      if (command && app.get_option_no_throw(word) != nullptr) {
        return quoted + " is not an option here: options of " + names_[*command] + " stand behind " + names_[*command];
      }
      const std::string of = command ? " of " + names_[*command] : "";
      return quoted + " is not an option" + of + suggestion(word.substr(0, word.find('=')), optionNames(app));
    }
    if (!command) return quoted + " is not a command" + suggestion(word, names_);
    const std::string& hint = declarations_[*command].hintForArguments;
    return quoted + " is one argument too many" + (hint.empty() ? "" : ": " + hint);
  }

  CLI::App app_{"Mouse, keyboard and infrared remote on Linux, as one stream of events.", kProgram};
  std::vector<CommandLine::Declaration> declarations_;  // and what follows, in the order of the commands
  std::vector<Run> runs_;
  std::vector<std::string> names_;
};

Request parseArguments(const std::vector<Command>& commands, int argc, const char* const* argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  // "help tune" is what many type.
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  return Parser(commands).parse(words);
}

}  // namespace quarlo::tools
