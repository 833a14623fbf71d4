#include "tools/common/checkup/lirc_daemons.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <map>
#include <utility>

#include "tools/common/checkup/files.h"
#include "tools/common/numbers.h"

namespace quarlo::tools::checkup {
namespace {

using Options = std::map<std::string, std::string>;

// ---- Command lines ------------------------------------------------------------------------------

// An option with a value: what getopt_long() calls it, and its short form.
struct ValueOption {
  const char* name;
  char letter;
};

// Of lircd(8); the others have none, or one that stands behind an equals sign.
constexpr ValueOption kLircdValues[] = {{"driver-options", 'A'}, {"effective-user", 'e'}, {"options-file", 'O'},
                                        {"driver", 'H'},         {"device", 'd'},         {"output", 'o'},
                                        {"plugindir", 'U'},      {"permission", 'p'},     {"pidfile", 'P'},
                                        {"logfile", 'L'},        {"connect", 'c'},        {"repeat-max", 'R'}};

// Of inputlircd(8), which has no long ones.
constexpr ValueOption kInputlircdValues[] = {{"socket", 'd'}, {"lowest-key", 'm'}, {"name", 'n'},
                                             {"repeat", 'r'}, {"table", 't'},      {"user", 'u'}};

template <std::size_t kCount>
const ValueOption* findOption(const ValueOption (&options)[kCount], char letter) {
  const auto* found = std::find_if(std::begin(options), std::end(options),
                                   [&](const ValueOption& option) { return option.letter == letter; });
  return found == std::end(options) ? nullptr : found;
}

template <std::size_t kCount>
const ValueOption* findOption(const ValueOption (&options)[kCount], const std::string& name) {
  const auto* found = std::find_if(std::begin(options), std::end(options),
                                   [&](const ValueOption& option) { return option.name == name; });
  return found == std::end(options) ? nullptr : found;
}

// The values that a command line gives its options, as getopt_long() takes it apart.
class CommandLineOptions {
 public:
  template <std::size_t kCount>
  CommandLineOptions(const std::vector<std::string>& arguments, const ValueOption (&known)[kCount])
      : arguments_(arguments) {
    for (next_ = 1; next_ < arguments_.size() && arguments_[next_] != "--";) {
      const std::string& word = arguments_[next_++];
      if (word.rfind("--", 0) == 0) {
        takeLong(word.substr(2), known);
      } else if (word.size() > 1 && word[0] == '-') {
        takeShort(word.substr(1), known);
      }
    }
  }

  const Options& values() const { return values_; }

 private:
  template <std::size_t kCount>
  void takeLong(const std::string& word, const ValueOption (&known)[kCount]) {
    const std::size_t equals = word.find('=');
    const ValueOption* option = findOption(known, word.substr(0, equals));
    if (option == nullptr) return;
    values_[option->name] = equals == std::string::npos ? takeNext() : word.substr(equals + 1);
  }

  // Letters can share a word: the value of the first that has one is the rest of it.
  template <std::size_t kCount>
  void takeShort(const std::string& letters, const ValueOption (&known)[kCount]) {
    for (std::size_t i = 0; i < letters.size(); ++i) {
      const ValueOption* option = findOption(known, letters[i]);
      if (option == nullptr) continue;
      values_[option->name] = i + 1 < letters.size() ? letters.substr(i + 1) : takeNext();
      return;
    }
  }

  std::string takeNext() { return next_ < arguments_.size() ? arguments_[next_++] : ""; }

  const std::vector<std::string>& arguments_;
  std::size_t next_ = 1;
  Options values_;
};

// ---- Options in a file --------------------------------------------------------------------------

std::string trimmed(const std::string& text) {
  constexpr char kBlanks[] = " \t\r";
  const std::size_t start = text.find_first_not_of(kBlanks);
  if (start == std::string::npos) return "";
  return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

// Of lirc_options.conf, the section of lircd.
Options optionsIn(const std::string& content) {
  Options options;
  bool isLircds = false;
  for (const std::string& whole : linesIn(content)) {
    const std::string line = trimmed(whole.substr(0, whole.find_first_of("#;")));
    const std::size_t equals = line.find('=');
    if (!line.empty() && line[0] == '[') isLircds = line == "[lircd]";
    if (isLircds && equals != std::string::npos)
      options[trimmed(line.substr(0, equals))] = trimmed(line.substr(equals + 1));
  }
  return options;
}

std::string valueOf(const Options& options, const std::string& name, const std::string& fallback = "") {
  const auto found = options.find(name);
  return found == options.end() || found->second.empty() ? fallback : found->second;
}

// ---- Sockets ------------------------------------------------------------------------------------

// The sockets that somebody listens on, as "socket:[4711]", with their paths.
std::map<std::string, std::string> listeningSockets(const std::string& root) {
  constexpr std::size_t kFlags = 3;
  constexpr std::size_t kInode = 6;
  constexpr std::size_t kPath = 7;
  std::map<std::string, std::string> sockets;
  for (const std::string& line : linesIn(contentOf(root + "/proc/net/unix"))) {
    const std::vector<std::string> fields = wordsIn(line);
    if (fields.size() <= kPath || fields[kFlags] != "00010000") continue;
    sockets["socket:[" + fields[kInode] + "]"] = line.substr(line.find(fields[kPath]));
  }
  return sockets;
}

using Listening = std::map<std::string, std::string>;

std::vector<std::string> socketsOf(const Process& process, const Listening& listening, const std::string& configured) {
  std::vector<std::string> paths;
  for (const std::string& file : process.openFiles) {
    const auto socket = listening.find(file);
    if (socket != listening.end()) paths.push_back(socket->second);
  }
  return paths.empty() ? std::vector<std::string>{configured} : paths;
}

// ---- Daemons ------------------------------------------------------------------------------------

constexpr char kLircdSocket[] = "/var/run/lirc/lircd";
constexpr char kInputlircdSocket[] = "/run/lirc/lircd";
constexpr char kLircdOptionsFile[] = "/etc/lirc/lirc_options.conf";

LircDaemon lircdOf(const Process& process, const Listening& listening, const std::string& root) {
  const Options given = CommandLineOptions(argumentsOf(process, root), kLircdValues).values();
  LircDaemon daemon;
  daemon.optionsFile = valueOf(given, "options-file", kLircdOptionsFile);
  const Options inFile = optionsIn(contentOf(root + daemon.optionsFile));
  const auto option = [&](const char* name, const char* fallback) {
    return valueOf(given, name, valueOf(inFile, name, fallback));
  };
  daemon.driver = option("driver", "");
  daemon.device = option("device", "");
  daemon.sockets = socketsOf(process, listening, option("output", kLircdSocket));
  return daemon;
}

std::optional<int> numberIn(const Options& options, const char* name) {
  int number = 0;
  return isNumber(valueOf(options, name), 0, INT_MAX, number) ? std::optional<int>(number) : std::nullopt;
}

// Those that are open, or, where that cannot be seen, those of the command line.
std::vector<std::string> nodesOf(const Process& process, const std::vector<std::string>& arguments) {
  std::vector<std::string> files = process.openFiles;
  if (!process.openFilesAreKnown) {
    std::transform(arguments.begin(), arguments.end(), std::back_inserter(files), withoutLinks);
  }
  std::vector<std::string> nodes;
  std::copy_if(files.begin(), files.end(), std::back_inserter(nodes),
               [](const std::string& file) { return file.rfind("/dev/input/event", 0) == 0; });
  return nodes;
}

LircDaemon inputlircdOf(const Process& process, const Listening& listening, const std::string& root) {
  const std::vector<std::string> arguments = argumentsOf(process, root);
  const Options given = CommandLineOptions(arguments, kInputlircdValues).values();
  LircDaemon daemon;
  daemon.kind = DaemonKind::kInputlircd;
  daemon.repeatMs = numberIn(given, "repeat");
  daemon.lowestKey = valueOf(given, "lowest-key");
  daemon.nodes = nodesOf(process, arguments);
  daemon.sockets = socketsOf(process, listening, valueOf(given, "socket", kInputlircdSocket));
  return daemon;
}

LircDaemon lircdUinput() {
  LircDaemon daemon;
  daemon.kind = DaemonKind::kLircdUinput;
  return daemon;
}

}  // namespace

std::vector<LircDaemon> findLircDaemons(const std::vector<Process>& processes, const std::string& root) {
  const Listening listening = listeningSockets(root);
  std::vector<LircDaemon> daemons;
  for (const Process& process : processes) {
    if (process.name == "lircd") {
      daemons.push_back(lircdOf(process, listening, root));
    } else if (process.name == "inputlircd") {
      daemons.push_back(inputlircdOf(process, listening, root));
    } else if (process.name == "lircd-uinput") {
      daemons.push_back(lircdUinput());
    } else {
      continue;
    }
    daemons.back().process = describe(process);
  }
  return daemons;
}

}  // namespace quarlo::tools::checkup
