// main.cpp - nexcfg, the command-line tool over libnexcfg's public
// interface: global options, the command table, help, and the run of one
// command with the library loaded as the command needs it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"

namespace nexcfg {
namespace {

struct Group {
  const char *title;
  std::span<const Command> (*commands)();
};

const Group kGroups[] = {
    {"Database, raw answers and log levels", DatabaseCommands},
    {"Vnets", VnetCommands},
    {"DHCP", DhcpCommands},
    {"NAT", NatCommands},
    {"Host-only adapters and bridges", BridgeCommands},
    {"Services and devices", ServiceCommands},
    {"Features", FindCommands},
};

constexpr char kIntro[] =
    "usage: nexcfg [--json] [-v] COMMAND [ARGUMENTS]\n"
    "\n"
    "Shows and changes the configuration of the hypervisor's virtual networks\n"
    "(vnets zynet0 ... zynet255) in the networking database, through libnexcfg.\n"
    "A vnet is named zynet<n> or just <n>.\n"
    "\n"
    "Options (anywhere on the line):\n"
    "  --json          print results as JSON for scripts\n"
    "  -v, --verbose   print the library's log lines of every call on stderr\n"
    "  --compact       rewrite a changed database compactly when done (this drops\n"
    "                  NAT66 prefixes, which the library keeps only as appended records)\n"
    "  -h, --help      this text; `nexcfg help COMMAND` describes one command\n"
    "  --version       the tool's and the library's versions\n"
    "\n"
    "Exit status: 0 done, 1 the operation failed (what failed and the library's\n"
    "log lines of the call are on stderr), 2 the command line is wrong.\n";

std::vector<const Command *> AllCommands() {
  std::vector<const Command *> all;
  for (const Group &group : kGroups)
    for (const Command &command : group.commands()) all.push_back(&command);
  return all;
}

std::vector<std::string> Words(const char *text) {
  std::vector<std::string> words;
  std::string word;
  for (const char *p = text;; ++p) {
    if (*p == ' ' || *p == '\0') {
      if (!word.empty()) words.push_back(word);
      word.clear();
      if (*p == '\0') break;
    } else {
      word.push_back(*p);
    }
  }
  return words;
}

// The command's usage line; brief lists many options as one word.
std::string Synopsis(const Command &command, bool brief = false) {
  constexpr size_t kManyOptions = 4;
  std::string line = command.name;
  if (*command.args) line += std::string(" ") + command.args;
  if (brief && Words(command.options).size() > kManyOptions) return line + " [OPTIONS]";
  for (const auto &option : Words(command.options)) {
    size_t eq = option.find('=');
    line += " [" + (eq == std::string::npos ? option : option.substr(0, eq) + " " + option.substr(eq + 1)) + "]";
  }
  return line;
}

// "  synopsis  summary", the summary on a line of its own under a long
// synopsis.
void PrintListing(const Command &command) {
  constexpr int kColumn = 34;
  std::string synopsis = Synopsis(command, true);
  if (synopsis.size() <= kColumn)
    printf("  %-*s %s\n", kColumn, synopsis.c_str(), command.summary);
  else
    printf("  %s\n  %-*s %s\n", synopsis.c_str(), kColumn, "", command.summary);
}

void PrintOverview() {
  printf("%s", kIntro);
  for (const Group &group : kGroups) {
    printf("\n%s:\n", group.title);
    for (const Command &command : group.commands()) PrintListing(command);
  }
}

void PrintCommandHelp(const Command &command) {
  printf("usage: nexcfg %s\n\n%s\n", Synopsis(command).c_str(), command.summary);
  if (*command.details) printf("\n%s", command.details);
}

// The commands whose name starts with the given words.
std::vector<const Command *> CommandsUnder(const std::vector<std::string> &words) {
  std::vector<const Command *> found;
  for (const Command *command : AllCommands()) {
    auto name = Words(command->name);
    if (name.size() < words.size()) continue;
    bool match = true;
    for (size_t i = 0; i < words.size() && match; ++i) match = name[i] == words[i];
    if (match) found.push_back(command);
  }
  return found;
}

// The command named by the longest run of leading words, and how many
// words its name took.
const Command *Lookup(const std::vector<std::string> &words, size_t *taken) {
  const Command *best = nullptr;
  for (const Command *command : AllCommands()) {
    auto name = Words(command->name);
    if (name.size() > words.size() || (best && name.size() <= *taken)) continue;
    bool match = true;
    for (size_t i = 0; i < name.size() && match; ++i) match = name[i] == words[i];
    if (match) {
      best = command;
      *taken = name.size();
    }
  }
  return best;
}

// Help for the words given: one command, or the list of a family.
int Help(const std::vector<std::string> &words) {
  if (words.empty()) {
    PrintOverview();
    return kExitOk;
  }
  size_t taken = 0;
  const Command *command = Lookup(words, &taken);
  if (command && taken == words.size()) {
    PrintCommandHelp(*command);
    return kExitOk;
  }
  auto under = CommandsUnder(words);
  if (under.empty()) {
    std::string joined;
    for (const auto &w : words) joined += (joined.empty() ? "" : " ") + w;
    fprintf(stderr, "nexcfg: no command \"%s\"; `nexcfg --help` lists them\n", joined.c_str());
    return kExitUsage;
  }
  for (const Command *c : under) PrintListing(*c);
  return kExitOk;
}

// Splits the words after the command's name into arguments and options.
Invocation Parse(const Command &command, const std::vector<std::string> &rest) {
  std::vector<std::string> args;
  std::map<std::string, std::string> options;
  auto known = Words(command.options);
  bool optionsDone = false;
  for (size_t i = 0; i < rest.size(); ++i) {
    const std::string &word = rest[i];
    if (optionsDone || word.size() < 2 || word[0] != '-' || word == "-" || isdigit(word[1])) {
      args.push_back(word);
      continue;
    }
    if (word == "--") {
      optionsDone = true;
      continue;
    }
    std::string name = word, value;
    bool inlineValue = false;
    if (size_t eq = word.find('='); eq != std::string::npos) {
      name = word.substr(0, eq);
      value = word.substr(eq + 1);
      inlineValue = true;
    }
    const std::string *option = nullptr;
    for (const auto &k : known)
      if (k == name || k.rfind(name + "=", 0) == 0) option = &k;
    if (!option) throw UsageError("unknown option " + name);
    bool takesValue = option->find('=') != std::string::npos;
    if (takesValue && !inlineValue) {
      if (i + 1 >= rest.size()) throw UsageError("option " + name + " needs a value");
      value = rest[++i];
    } else if (!takesValue && inlineValue) {
      throw UsageError("option " + name + " takes no value");
    }
    options[name] = value;
  }
  size_t required = 0, allowed = 0;
  bool unlimited = false;
  for (const auto &w : Words(command.args)) {
    if (w.find("...") != std::string::npos) unlimited = true;
    if (w[0] == '[') {
      ++allowed;
    } else {
      ++required;
      ++allowed;
    }
  }
  if (args.size() < required) throw UsageError("missing arguments");
  if (!unlimited && args.size() > allowed) throw UsageError("too many arguments");
  return Invocation(command, std::move(args), std::move(options));
}

// The library loaded for one command and unloaded after it; the last
// unload writes a changed database back.
class Session {
 public:
  explicit Session(Needs needs) {
    if (needs != Needs::kReadOnly && needs != Needs::kReadWrite) {
      NoteLogPath(false);
      return;
    }
    bool readOnly = needs == Needs::kReadOnly;
    LogWatch watch;
    loaded_ = NXC_Load(readOnly ? 1 : 0);
    watch.Report();
    if (!loaded_) {
      std::string what = "cannot load the networking database";
      if (!NXC_NetworkingDBExists()) what += " (it does not exist: `nexcfg db create` makes one)";
      throw Failure(what, watch.Lines(), LogPath());
    }
    NoteLogPath(true);
  }
  ~Session() {
    // Every change is in the database file already, appended by the call
    // that made it. The compact rewrite at the last unload is left to
    // --compact: it drops the NAT66 prefixes, which the library keeps only
    // as appended records.
    if (!loaded_) return;
    if (Opts().compact)
      NXC_Unload();
    else
      NXC_Unload2(0);
  }
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

 private:
  bool loaded_ = false;
};

void ReportFailure(const Failure &failure) {
  fprintf(stderr, "nexcfg: %s\n", failure.what());
  if (failure.log.empty()) {
    fprintf(stderr, "  (the library wrote nothing to %s during the call)\n", failure.logPath.c_str());
  } else {
    fprintf(stderr, "  library log (%s):\n", failure.logPath.c_str());
    for (const auto &line : failure.log) fprintf(stderr, "    %s\n", line.c_str());
  }
  if (Opts().json) {
    Json error = Json::Object();
    error.Set("error", failure.what());
    Json lines = Json::Array();
    for (const auto &line : failure.log) lines.Push(line);
    error.Set("log", std::move(lines));
    PrintJson(error);
  }
}

int Run(int argc, char **argv) {
  std::vector<std::string> words;
  bool help = false, version = false, optionsDone = false;
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    if (!optionsDone && word == "--json") {
      MutableOpts().json = true;
    } else if (!optionsDone && (word == "-v" || word == "--verbose")) {
      MutableOpts().verbose = true;
    } else if (!optionsDone && word == "--compact") {
      MutableOpts().compact = true;
    } else if (!optionsDone && (word == "-h" || word == "--help")) {
      help = true;
    } else if (!optionsDone && word == "--version" && words.empty()) {
      version = true;
    } else {
      if (word == "--") optionsDone = true;
      words.push_back(std::move(word));
    }
  }
  if (version) {
    uint32_t v = NXC_Version();
    printf("nexcfg (libnexcfg %s), library interface version %u.%u\n", NXC_TOOL_VERSION, v >> 16,
           v & 0xffff);
    return kExitOk;
  }
  if (!words.empty() && words[0] == "help") {
    words.erase(words.begin());
    return Help(words);
  }
  if (help) return Help(words);
  if (words.empty()) {
    fprintf(stderr, "usage: nexcfg [--json] [-v] COMMAND [ARGUMENTS]\n`nexcfg --help` lists the commands\n");
    return kExitUsage;
  }

  size_t taken = 0;
  const Command *command = Lookup(words, &taken);
  if (!command) {
    auto under = CommandsUnder(std::vector<std::string>(words.begin(), words.begin() + 1));
    std::string joined;
    for (const auto &w : words) joined += (joined.empty() ? "" : " ") + w;
    if (under.empty()) {
      fprintf(stderr, "nexcfg: no command \"%s\"; `nexcfg --help` lists them\n", joined.c_str());
      return kExitUsage;
    }
    // A family's name alone, or with an unknown verb: its commands.
    fprintf(stderr, "nexcfg: \"%s\" is not a command; the %s commands are:\n", joined.c_str(),
            words[0].c_str());
    for (const Command *c : under) fprintf(stderr, "  nexcfg %s\n", Synopsis(*c).c_str());
    return kExitUsage;
  }
  std::vector<std::string> rest(words.begin() + static_cast<long>(taken), words.end());
  try {
    Invocation invocation = Parse(*command, rest);
    Session session(command->needs);
    return command->run(invocation);
  } catch (const UsageError &error) {
    fprintf(stderr, "nexcfg %s: %s\nusage: nexcfg %s\n", command->name, error.what(),
            Synopsis(*command).c_str());
    return kExitUsage;
  } catch (const Failure &failure) {
    ReportFailure(failure);
    return kExitFailed;
  }
}

}  // namespace
}  // namespace nexcfg

int main(int argc, char **argv) {
  try {
    int status = nexcfg::Run(argc, argv);
    fflush(stdout);
    return status;
  } catch (const std::exception &error) {
    fprintf(stderr, "nexcfg: %s\n", error.what());
    return nexcfg::kExitFailed;
  }
}
