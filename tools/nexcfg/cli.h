// cli.h - the frame every nexcfg command runs in: errors, output, aligned
// tables, command-line words, and library calls that report the library's
// own log lines when they fail.
//
// nexcfg is a client of the public interface (nexcfg.h) only.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "json.h"
#include "nexcfg.h"

namespace nexcfg {

// Exit status: done, the operation failed (or a question's answer is no),
// the command line was wrong.
enum ExitStatus : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

// ---- Errors ------------------------------------------------------------------

// The codes of the JSON error object.
constexpr char kCodeUsage[] = "usage";         // the command line is wrong (exit 2)
constexpr char kCodeInvalid[] = "invalid";     // a value the network would refuse
constexpr char kCodeRefused[] = "refused";     // an unsafe request, refused
constexpr char kCodeNotFound[] = "not-found";  // the thing asked for does not exist
constexpr char kCodeFailed[] = "failed";       // the library could not do it

// Why a command did not do what it was asked: one line in the user's
// words, what to do about it, and the library's log lines that matter.
struct Error : std::runtime_error {
  Error(std::string code, const std::string &message, std::string fix = "", std::vector<std::string> log = {})
      : std::runtime_error(message), code(std::move(code)), fix(std::move(fix)), log(std::move(log)) {}
  int Status() const { return code == kCodeUsage ? kExitUsage : kExitFailed; }
  std::string code;
  std::string fix;
  std::vector<std::string> log;
  std::string logPath;  // where the log lines come from
};

// The command line is wrong: exit status 2, with the command's usage.
struct UsageError : Error {
  explicit UsageError(const std::string &message) : Error(kCodeUsage, message) {}
};

// The lines under an error's first one on stderr: what to do, and the
// library's log lines.
void PrintErrorDetails(const Error &error);
// {"error": {"code", "message", "fix"}, "log": [lines]}
Json ErrorJson(const Error &error);

// ---- Output ----------------------------------------------------------------

struct Options {
  bool json = false;     // --json: machine-readable output on stdout
  bool verbose = false;  // -v: every call's log lines on stderr
  bool compact = false;  // --compact: rewrite the database at the unload
};
const Options &Opts();
Options &MutableOpts();

// Rows of text printed as aligned columns under a header.
class Table {
 public:
  explicit Table(std::vector<std::string> header) : header_(std::move(header)) {}
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  bool empty() const { return rows_.empty(); }
  // Aligned columns, each line indented by indent blanks.
  void Print(int indent = 0) const;

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

// Prints "name:  value" lines with the values aligned; the values of a JSON
// object's scalar members, in order (nested members are skipped).
void PrintFields(const Json &object);
// A JSON value on stdout.
void PrintJson(const Json &value);
// The value in --json mode, else the object's fields.
void PrintRecord(const Json &object);
// A line for people; nothing in --json mode.
void Say(const std::string &line);
// In --json mode the value; otherwise the line.
void Report(const Json &value, const std::string &line);
// A list of a vnet's: {"vnet", key: items} in --json mode; otherwise the
// items as print shows them, or the line none when there are none.
void PrintVnetList(const std::string &vnet, const char *key, Json items, const std::string &none,
                   void (*print)(const Json &items));

// ---- Commands ----------------------------------------------------------------

// What a command needs of the library before it runs.
enum class Needs {
  kNothing,    // no load (help, version)
  kUnloaded,   // must run while the library is not loaded (database file)
  kReadOnly,   // loaded, database read-only
  kReadWrite,  // loaded for changes
};

class Invocation;

struct Command {
  const char *name;     // words, e.g. "dhcp lease add"
  const char *args;     // positional words: "VNET MAC IP", "[FILE]", "SERVICE..."
  const char *options;  // e.g. "--cleanup --to=VNET"; "=" takes a value
  const char *summary;  // one line
  const char *details;  // more text for `nexcfg help`, or ""
  Needs needs;
  int (*run)(const Invocation &);
};

// One command line matched to its command.
class Invocation {
 public:
  Invocation(const Command &command, std::vector<std::string> args,
             std::map<std::string, std::string> options)
      : command_(command), args_(std::move(args)), options_(std::move(options)) {}
  const Command &command() const { return command_; }
  size_t count() const { return args_.size(); }
  const std::string &Arg(size_t i) const { return args_.at(i); }
  bool Has(size_t i) const { return i < args_.size(); }
  const std::vector<std::string> &args() const { return args_; }
  bool Flag(const char *name) const { return options_.count(name) != 0; }
  // The value of an option that takes one, or null.
  const std::string *Option(const char *name) const;

 private:
  const Command &command_;
  std::vector<std::string> args_;
  std::map<std::string, std::string> options_;
};

// The command families, in the order of the help text.
std::span<const Command> DatabaseCommands();
std::span<const Command> ImportCommands();
std::span<const Command> VnetCommands();
std::span<const Command> DhcpCommands();
std::span<const Command> NatCommands();
std::span<const Command> BridgeCommands();
std::span<const Command> ServiceCommands();
std::span<const Command> BootCommands();
std::span<const Command> FindCommands();
std::span<const Command> CheckCommands();

// ---- Words -------------------------------------------------------------------

// "zynet<n>" or "<n>", n = 0..255, as the library's name "zynet<n>".
std::string VnetName(const std::string &word);
uint32_t VnetNumber(const std::string &name);
std::string VnetNameOf(uint32_t number);
// A decimal (or 0x hexadecimal) number in [min, max]; what names it.
uint64_t Number(const std::string &word, const char *what, uint64_t min, uint64_t max);
// on/off, yes/no, true/false, 1/0.
bool Switch(const std::string &word, const char *what);
// "tcp" (true) or "udp" (false).
bool Protocol(const std::string &word);
inline const char *ProtocolName(bool tcp) { return tcp ? "tcp" : "udp"; }

// ---- Library calls -----------------------------------------------------------

// The library loaded for as long as the object lives (a nested load only
// counts). Throws an Error when the database cannot be loaded.
class Library {
 public:
  Library(bool readOnly);
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

 private:
  bool wasLoaded_;
  bool readOnly_;
};
bool LibraryLoaded();

// The log file the library writes to now.
std::string LogPath();

// Watches the library's log across one call: the lines written from its
// construction on. A watched call (quiet false) runs at the stored log
// level with errors added, or every level with -v. A quiet call is a
// question whose "no" is an answer (a value that is not set): it writes
// nothing to the log, unless -v asks for every line.
class LogWatch {
 public:
  explicit LogWatch(bool quiet = false);
  ~LogWatch();
  LogWatch(const LogWatch &) = delete;
  LogWatch &operator=(const LogWatch &) = delete;
  std::vector<std::string> Lines() const;
  // In verbose mode, prints the call's lines on stderr.
  void Report() const;

 private:
  std::string path_;
  long start_;
  bool changed_ = false;
  uint32_t savedLevel_ = 0;
};

// The error of a failed library call: "cannot <what>", the reason in the
// user's words when the log lines tell it, and the lines that matter (all
// of them with -v).
Error CallFailure(const std::string &what, const std::vector<std::string> &lines);

// Runs one library call; when it fails (a false result) throws the
// CallFailure of the call.
template <class F>
auto Call(const std::string &what, F &&call) {
  LogWatch watch;
  auto result = call();
  watch.Report();
  if (!result) throw CallFailure(what, watch.Lines());
  return result;
}

// Runs one library call whose false result is an answer, not a failure (a
// value that is not set, a search without a match), quietly.
template <class F>
auto Ask(F &&call) {
  LogWatch watch(/*quiet=*/true);
  auto result = call();
  watch.Report();
  return result;
}

// A text getter of the shape (vnet, buffer, &len): the text, or "" when the
// call fails (nothing is set).
std::string AskText(bool (*getter)(const char *, char *, uint32_t *), const std::string &vnet,
                    uint32_t capacity);
// A raw database answer, or "" when it is not set.
std::string AskAnswer(const std::string &key);

}  // namespace nexcfg
