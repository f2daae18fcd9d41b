// cli.h - the frame every nexcfg command runs in: JSON values, aligned
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
#include <type_traits>
#include <utility>
#include <vector>

#include "nexcfg.h"

namespace nexcfg {

// Exit status: done, the operation failed, the command line was wrong.
enum ExitStatus : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

// ---- JSON values -----------------------------------------------------------

// A JSON value. Objects keep their keys in insertion order, so that output
// reads in the order the command built it.
class Json {
 public:
  enum class Kind { kNull, kBool, kInt, kString, kArray, kObject };

  Json() = default;
  Json(std::nullptr_t) {}
  Json(bool b) : kind_(Kind::kBool), bool_(b) {}
  template <class T>
    requires(std::is_integral_v<T> && !std::is_same_v<T, bool>)
  Json(T n) : kind_(Kind::kInt), int_(static_cast<int64_t>(n)) {}
  Json(const char *s) : kind_(Kind::kString), string_(s ? s : "") {}
  Json(std::string s) : kind_(Kind::kString), string_(std::move(s)) {}

  static Json Array() { return Json(Kind::kArray); }
  static Json Object() { return Json(Kind::kObject); }

  Kind kind() const { return kind_; }
  bool IsNull() const { return kind_ == Kind::kNull; }
  // Array: appends. Object: sets key (replacing an earlier value).
  Json &Push(Json value);
  Json &Set(const std::string &key, Json value);
  // Object: sets every member of another object.
  void Merge(const Json &other);
  // Object member, or null when absent.
  const Json *Find(const std::string &key) const;
  const std::vector<Json> &items() const { return items_; }
  const std::vector<std::pair<std::string, Json>> &members() const { return members_; }
  bool AsBool() const { return bool_; }
  int64_t AsInt() const { return int_; }
  const std::string &AsString() const { return string_; }

  // Serialized with two-space indentation.
  std::string Dump() const;
  // A scalar for people: "-" for null and empty text, "yes"/"no" for
  // booleans.
  std::string Text() const;

 private:
  explicit Json(Kind kind) : kind_(kind) {}
  void DumpTo(std::string *out, int indent) const;

  Kind kind_ = Kind::kNull;
  bool bool_ = false;
  int64_t int_ = 0;
  std::string string_;
  std::vector<Json> items_;
  std::vector<std::pair<std::string, Json>> members_;
};

// ---- Errors ------------------------------------------------------------------

// The command line is wrong: exit status 2, with the command's usage.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// An operation failed: exit status 1, with the library's log lines written
// during the failed call.
struct Failure : std::runtime_error {
  Failure(const std::string &what, std::vector<std::string> lines, std::string path)
      : std::runtime_error(what), log(std::move(lines)), logPath(std::move(path)) {}
  std::vector<std::string> log;
  std::string logPath;
};

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
std::span<const Command> VnetCommands();
std::span<const Command> DhcpCommands();
std::span<const Command> NatCommands();
std::span<const Command> BridgeCommands();
std::span<const Command> ServiceCommands();
std::span<const Command> FindCommands();

// ---- Words -------------------------------------------------------------------

// "zynet<n>" or "<n>", n = 0..255, as the library's name "zynet<n>".
std::string VnetName(const std::string &word);
uint32_t VnetNumber(const std::string &name);
// A decimal (or 0x hexadecimal) number in [min, max]; what names it.
uint64_t Number(const std::string &word, const char *what, uint64_t min, uint64_t max);
// on/off, yes/no, true/false, 1/0.
bool Switch(const std::string &word, const char *what);
// "tcp" (true) or "udp" (false).
bool Protocol(const std::string &word);
inline const char *ProtocolName(bool tcp) { return tcp ? "tcp" : "udp"; }

// ---- Library calls -----------------------------------------------------------

// The log file the library writes to now.
std::string LogPath();
// Called once the library is loaded (or unloaded) to find its log file.
void NoteLogPath(bool loaded);

// Watches the library's log across one call: the lines written from its
// construction on. While the library is loaded the current log level is
// raised for the call, so that information and warning lines are there too.
class LogWatch {
 public:
  LogWatch();
  ~LogWatch();
  LogWatch(const LogWatch &) = delete;
  LogWatch &operator=(const LogWatch &) = delete;
  std::vector<std::string> Lines() const;
  // In verbose mode, prints the call's lines on stderr.
  void Report() const;

 private:
  std::string path_;
  long start_;
  bool raised_ = false;
  uint32_t savedLevel_ = 0;
};

// Runs one library call; when it fails (a false result) throws a Failure
// "cannot <what>" with the library's log lines of the call.
template <class F>
auto Call(const std::string &what, F &&call) {
  LogWatch watch;
  auto result = call();
  watch.Report();
  if (!result) throw Failure("cannot " + what, watch.Lines(), LogPath());
  return result;
}

// Runs one library call whose false result is an answer, not a failure (a
// value that is not set, a search without a match).
template <class F>
auto Ask(F &&call) {
  LogWatch watch;
  auto result = call();
  watch.Report();
  return result;
}

// A text getter of the shape (vnet, buffer, &len): the text, or "" when the
// call fails (nothing is set).
std::string AskText(bool (*getter)(const char *, char *, uint32_t *), const std::string &vnet,
                    uint32_t capacity);

}  // namespace nexcfg
