// main.cpp - nexcfg, the command-line tool over libnexcfg's public
// interface: global options, the command table, help, and the run of one
// command with the library loaded as the command needs it.
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
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
    {"Importing and merging databases", ImportCommands},
    {"Vnets", VnetCommands},
    {"DHCP", DhcpCommands},
    {"NAT", NatCommands},
    {"Host-only adapters and bridges", BridgeCommands},
    {"Services and devices", ServiceCommands},
    {"All vnets up and down (start-up and shut-down)", BootCommands},
    {"Features", FindCommands},
    {"Checking", CheckCommands},
};

constexpr char kIntro[] =
    "usage: nexcfg [--json] [-v] COMMAND [ARGUMENTS]\n"
    "\n"
    "Shows and changes the configuration of the hypervisor's virtual networks\n"
    "(vnets zynet0 ... zynet255) in the networking database, through libnexcfg.\n"
    "A vnet is named zynet<n> or just <n>.\n"
    "\n"
    "Options (anywhere on the line):\n"
    "  --json          print results (and errors) as JSON for scripts; the shapes\n"
    "                  are in the man page, nexcfg(1)\n"
    "  -v, --verbose   print the library's log lines of every call on stderr\n"
    "  --compact       rewrite a changed database compactly when done (this drops\n"
    "                  NAT66 prefixes, which the library keeps only as appended records;\n"
    "                  a journal grown far past its settings is rewritten anyway, with\n"
    "                  the prefixes kept)\n"
    "  -h, --help      this text; `nexcfg help COMMAND` describes one command\n"
    "  --version       the tool's and the library's versions\n"
    "\n"
    "A change that would give the configuration a problem (an address outside its\n"
    "subnet, overlapping subnets, ...) is refused; --force makes it anyway.\n"
    "\n"
    "Exit status: 0 done, 1 the operation failed or was refused (stderr says why,\n"
    "what to do, and the library's log lines that matter), 2 the command line is\n"
    "wrong.\n";

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
    line +=
        " [" + (eq == std::string::npos ? option : option.substr(0, eq) + " " + option.substr(eq + 1)) + "]";
  }
  return line;
}

// "  synopsis  summary", the summary on a line of its own under a long
// synopsis.
std::string Listing(const Command &command) {
  constexpr int kColumn = 34;
  std::string synopsis = Synopsis(command, true);
  char line[512];
  if (synopsis.size() <= kColumn)
    snprintf(line, sizeof line, "  %-*s %s\n", kColumn, synopsis.c_str(), command.summary);
  else
    snprintf(line, sizeof line, "  %s\n  %-*s %s\n", synopsis.c_str(), kColumn, "", command.summary);
  return line;
}

std::string Overview() {
  std::string text = kIntro;
  for (const Group &group : kGroups) {
    text += "\n" + std::string(group.title) + ":\n";
    for (const Command &command : group.commands()) text += Listing(command);
  }
  return text;
}

std::string CommandHelp(const Command &command) {
  std::string text = "usage: nexcfg " + Synopsis(command) + "\n\n" + command.summary + "\n";
  if (*command.details) text += "\n" + std::string(command.details);
  return text;
}

std::string Joined(const std::vector<std::string> &words) {
  std::string joined;
  for (const auto &w : words) joined += (joined.empty() ? "" : " ") + w;
  return joined;
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

// Help for the words given: one command, or the list of a family; as
// {"command", "text"} in --json mode.
int Help(const std::vector<std::string> &words) {
  size_t taken = 0;
  const Command *command = words.empty() ? nullptr : Lookup(words, &taken);
  std::string text;
  if (words.empty()) {
    text = Overview();
  } else if (command && taken == words.size()) {
    text = CommandHelp(*command);
  } else {
    auto under = CommandsUnder(words);
    if (under.empty()) throw UsageError("no command \"" + Joined(words) + "\"; `nexcfg --help` lists them");
    for (const Command *c : under) text += Listing(*c);
  }
  Json out = Json::Object();
  out.Set("command", words.empty() ? Json() : Json(Joined(words)));
  out.Set("text", text);
  if (Opts().json)
    PrintJson(out);
  else
    printf("%s", text.c_str());
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
    if (optionsDone || word.size() < 2 || word[0] != '-' || word == "-" || (word[1] >= '0' && word[1] <= '9')) {
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
  std::vector<std::string> required;
  size_t allowed = 0;
  bool unlimited = false;
  for (const auto &w : Words(command.args)) {
    if (w.find("...") != std::string::npos) unlimited = true;
    ++allowed;
    if (w[0] != '[') required.push_back(w);
  }
  if (args.size() < required.size()) {
    std::string missing;
    for (size_t i = args.size(); i < required.size(); ++i)
      missing += (missing.empty() ? "" : " ") + required[i];
    throw UsageError("missing " + missing);
  }
  if (!unlimited && args.size() > allowed)
    throw UsageError("too many arguments: \"" + args[allowed] + "\" and after it are not wanted");
  return Invocation(command, std::move(args), std::move(options));
}

// Prints why a command did not do what it was asked: for people on
// stderr, and in --json mode as {"error": {"code", "message", "fix"},
// "log": [...]} on stdout.
int ReportError(const Error &error, const Command *command) {
  if (error.code == kCodeUsage && command)
    fprintf(stderr, "nexcfg %s: %s\nusage: nexcfg %s\n", command->name, error.what(),
            Synopsis(*command).c_str());
  else
    fprintf(stderr, "nexcfg: %s\n", error.what());
  PrintErrorDetails(error);
  if (Opts().json) PrintJson(ErrorJson(error));
  return error.Status();
}

// The command the words name; a usage error names the family's commands
// when only the family matches.
const Command &CommandOf(const std::vector<std::string> &words, size_t *taken) {
  if (words.empty()) throw UsageError("no command given; `nexcfg --help` lists them");
  if (const Command *command = Lookup(words, taken)) return *command;
  auto under = CommandsUnder(std::vector<std::string>(words.begin(), words.begin() + 1));
  if (under.empty()) throw UsageError("no command \"" + Joined(words) + "\"; `nexcfg --help` lists them");
  std::string names;
  for (const Command *c : under) names += "\n  nexcfg " + Synopsis(*c);
  throw UsageError("\"" + Joined(words) + "\" is not a command; the " + words[0] + " commands are:" + names);
}

int Run(int argc, char **argv) {
  std::vector<std::string> words;
  bool help = false, optionsDone = false;
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
      words.push_back("version");
    } else {
      if (word == "--") optionsDone = true;
      words.push_back(std::move(word));
    }
  }
  const Command *command = nullptr;
  try {
    if (!words.empty() && words[0] == "help")
      return Help(std::vector<std::string>(words.begin() + 1, words.end()));
    if (help) return Help(words);
    size_t taken = 0;
    command = &CommandOf(words, &taken);
    Invocation invocation =
        Parse(*command, std::vector<std::string>(words.begin() + static_cast<long>(taken), words.end()));
    std::optional<Library> library;
    if (command->needs == Needs::kReadOnly || command->needs == Needs::kReadWrite)
      library.emplace(command->needs == Needs::kReadOnly);
    return command->run(invocation);
  } catch (const Error &error) {
    return ReportError(error, command);
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
    return nexcfg::ReportError(nexcfg::Error(nexcfg::kCodeFailed, error.what()), nullptr);
  }
}
