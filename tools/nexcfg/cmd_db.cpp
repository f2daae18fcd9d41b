// cmd_db.cpp - the networking database file, raw answers, log levels and
// the library's version.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli.h"
#include "config.h"
#include "dbfile.h"
#include "features.h"

namespace nexcfg {
namespace {

constexpr char kDefaultExportFile[] = "/tmp/networking_export";

int DbCreate(const Invocation &in) {
  bool overwrite = in.Flag("--overwrite");
  // The library keeps a database it replaces as the first free numbered
  // backup.
  bool exists = NXC_NetworkingDBExists();
  std::string backup = overwrite && exists ? FreeBackupName() : "";
  Call("create the networking database", [&] { return NXC_CreateNetworkingDB(overwrite); });
  Json out = Json::Object();
  out.Set("database", kDatabasePath);
  out.Set("backup", Json::TextOrNull(backup));
  Report(out, backup.empty() ? "created the networking database"
                             : "created the networking database (the old one is kept as " + backup + ")");
  return kExitOk;
}

struct RunningDaemon {
  std::string vnet;
  const Daemon *daemon;
};

std::vector<RunningDaemon> RunningDaemons() {
  std::vector<RunningDaemon> running;
  for (uint32_t n = 0; n < NXC_NUM_VNETS; ++n)
    for (const Daemon &d : Daemons())
      if (DaemonStatus(VnetNameOf(n), d) == NXC_SERVICE_RUNNING) running.push_back({VnetNameOf(n), &d});
  return running;
}

int DbDelete(const Invocation &in) {
  // Daemons outliving their database could not be stopped through it.
  std::vector<RunningDaemon> running;
  if (NXC_NetworkingDBExists()) {
    Library library(/*readOnly=*/!in.Flag("--stop-services"));
    running = RunningDaemons();
    std::string names;
    for (const auto &r : running) names += (names.empty() ? "" : ", ") + r.vnet + " " + r.daemon->name;
    if (!running.empty() && !in.Flag("--stop-services"))
      throw Error(kCodeRefused, "cannot delete the networking database: daemons still run (" + names + ")",
                  "nexcfg db delete --stop-services, or stop them first (nexcfg service stop VNET)");
    for (const auto &r : running)
      Call("stop the " + std::string(r.daemon->name) + " service of " + r.vnet,
           [&] { return NXC_StopService(r.vnet.c_str(), r.daemon->type); });
  }
  Call("delete the networking database", [] { return NXC_DeleteNetworkingDB(); });
  Json out = Json::Object(), stopped = Json::Array();
  out.Set("database", kDatabasePath);
  for (const auto &r : running) {
    Json row = Json::Object();
    row.Set("vnet", r.vnet);
    row.Set("service", r.daemon->name);
    stopped.Push(std::move(row));
  }
  out.Set("stopped", std::move(stopped));
  Report(out, "deleted the networking database" +
                  (running.empty() ? std::string()
                                   : " (after stopping " + std::to_string(running.size()) + " daemons)"));
  return kExitOk;
}

int DbCheck(const Invocation &) {
  bool exists = Ask([] { return NXC_NetworkingDBExists(); });
  bool readable = exists && Ask([] { return NXC_CanReadNetworkingDB(); });
  Json out = Json::Object();
  out.Set("database", kDatabasePath);
  out.Set("exists", exists);
  out.Set("readable", readable);
  PrintRecord(out);
  return exists && readable ? kExitOk : kExitFailed;
}

// The database in a backup's form, which `db import` and `db merge` take
// back whole: the library reads a file in the database's own form as a
// legacy backup, which loses the vnets' names.
std::string BackupText() {
  char *text = Call("export the networking database", [] { return NXC_ExportDatabaseToBuffer(); });
  std::string backup = text;
  free(text);
  if (backup.rfind("VERSION=", 0) == 0) return "BACKUP_" + backup;
  return "BACKUP_VERSION=1,0\n" + backup;
}

int DbExport(const Invocation &in) {
  std::string text = BackupText(), file = in.Has(0) ? in.Arg(0) : kDefaultExportFile;
  Json out = Json::Object();
  out.Set("file", file);
  out.Set("text", text);
  if (file == "-") {
    Report(out, text.substr(0, text.size() - (text.empty() ? 0 : 1)));
    return kExitOk;
  }
  WriteFileWhole(file, text);
  Report(out, "exported the networking database to " + file);
  return kExitOk;
}

int AnswerGet(const Invocation &in) {
  const std::string &key = in.Arg(0);
  std::string value = AskAnswer(key);
  if (value.empty()) throw Error(kCodeNotFound, "no answer " + key + " in the networking database");
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", value);
  Report(out, value);
  return kExitOk;
}

// Vets a raw answer as the setting it is: "VNET_<n>_<FIELD>" of a field
// the rules know goes through them.
std::vector<Problem> VetAnswer(const std::string &key, const std::optional<std::string> &value, bool force) {
  // A record line of the database ("answer KEY VALUE") must be read back
  // whole by the loader's 1,024-byte lines.
  constexpr size_t kMostLine = 1023 - sizeof "answer  ";
  std::string why = key.empty()                          ? "is empty"
                    : key.find(' ') != std::string::npos ? "holds a blank"
                                                         : TextProblem(key, 255);
  if (!why.empty()) throw Error(kCodeInvalid, "the answer key \"" + key + "\" " + why, "give one word");
  if (value && !(why = TextProblem(*value, kMostLine - key.size())).empty())
    throw Error(kCodeInvalid, "the value of " + key + " " + why, "give one shorter line");
  Config before = ReadConfig(), after = before;
  for (VnetConfig &v : after.vnets) {
    std::string prefix = "VNET_" + std::to_string(VnetNumber(v.name)) + "_";
    if (key.rfind(prefix, 0) == 0 && IsRuleField(key.substr(prefix.size())))
      v.Set(key.substr(prefix.size()), value);
  }
  return Vet(before, after, force);
}

int AnswerSet(const Invocation &in) {
  const std::string &key = in.Arg(0), &value = in.Arg(1);
  auto warnings = VetAnswer(key, value, in.Flag("--force"));
  Call("set the answer " + key, [&] { return NXC_VnetCfgAddAnswer(key.c_str(), value.c_str()); });
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", value);
  PrintChange(std::move(out), warnings, key + " = " + value);
  return kExitOk;
}

int AnswerUnset(const Invocation &in) {
  const std::string &key = in.Arg(0);
  auto warnings = VetAnswer(key, std::nullopt, in.Flag("--force"));
  Call("remove the answer " + key, [&] { return NXC_VnetCfgRemoveAnswer(key.c_str()); });
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", Json());
  PrintChange(std::move(out), warnings, "removed " + key);
  return kExitOk;
}

struct LevelName {
  const char *name;
  uint32_t bit;
};
constexpr LevelName kLevels[] = {
    {"err", NXC_LOG_ERR}, {"info", NXC_LOG_INFO},   {"errcmn", NXC_LOG_ERRCMN}, {"wrn", NXC_LOG_WRN},
    {"ok", NXC_LOG_OK},   {"info2", NXC_LOG_INFO2}, {"args", NXC_LOG_ARGS},
};

std::string LevelNames(uint32_t level) {
  std::string names;
  for (const LevelName &l : kLevels)
    if (level & l.bit) names += (names.empty() ? "" : ",") + std::string(l.name);
  return names.empty() ? "none" : names;
}

Json LevelJson(uint32_t level) {
  Json out = Json::Object();
  char hex[16];
  snprintf(hex, sizeof hex, "0x%x", level);
  out.Set("value", level);
  out.Set("hex", hex);
  Json names = Json::Array();
  for (const LevelName &l : kLevels)
    if (level & l.bit) names.Push(l.name);
  out.Set("levels", std::move(names));
  return out;
}

// A level given as a number (0x19) or as names (err,wrn,ok).
uint32_t ParseLevel(const std::string &word) {
  if (!word.empty() && isdigit(static_cast<unsigned char>(word[0])))
    return static_cast<uint32_t>(Number(word, "the log level", 0, 0xffffffffu));
  uint32_t level = 0;
  size_t start = 0;
  while (start <= word.size()) {
    size_t comma = word.find(',', start);
    std::string name = word.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    bool known = false;
    for (const LevelName &l : kLevels) {
      if (name == l.name) {
        level |= l.bit;
        known = true;
      }
    }
    if (name == "all") {
      level |= 0x7f;
      known = true;
    }
    if (!known)
      throw UsageError("unknown log level \"" + name + "\": give a number or names out of " +
                       "err,info,errcmn,wrn,ok,info2,args,all");
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return level;
}

int LogShow(const Invocation &) {
  uint32_t stored = NXC_GetDefaultLogLevel();
  uint32_t current = NXC_GetCurrentLogLevel();
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("default", LevelJson(stored));
    out.Set("current", LevelJson(current));
    out.Set("file", LogPath());
    PrintJson(out);
    return kExitOk;
  }
  printf("default:  0x%02x  %s  (stored in the database; in effect from the next load)\n", stored,
         LevelNames(stored).c_str());
  printf("current:  0x%02x  %s\n", current, LevelNames(current).c_str());
  printf("file:     %s\n", LogPath().c_str());
  return kExitOk;
}

int LogSetDefault(const Invocation &in) {
  uint32_t level = ParseLevel(in.Arg(0));
  Call("store the default log level", [&] { return NXC_SetDefaultLogLevel(level); });
  Json out = Json::Object();
  out.Set("default", LevelJson(level));
  if (Opts().json) PrintJson(out);
  char line[96];
  snprintf(line, sizeof line, "default log level 0x%02x (%s)", level, LevelNames(level).c_str());
  Say(line);
  return kExitOk;
}

int Version(const Invocation &) {
  uint32_t v = NXC_Version();
  Json out = Json::Object();
  out.Set("tool", NXC_TOOL_VERSION);
  char api[16];
  snprintf(api, sizeof api, "%u.%u", v >> 16, v & 0xffff);
  out.Set("interface", api);
  out.Set("vnets", NXC_GetNumberOfVnets());
  out.Set("macos_virt_api", NXC_IsMacosVirtApiEnabled());
  PrintRecord(out);
  return kExitOk;
}

const Command kCommands[] = {
    {"db create", "", "--overwrite", "create the networking database",
     "Creates /etc/zymtra/networking with the default configuration. An existing\n"
     "database is refused unless --overwrite is given; it is then kept as\n"
     "<database>.bak.<n>. Runs while no other program has the library loaded.\n",
     Needs::kUnloaded, DbCreate},
    {"db delete", "", "--stop-services", "delete the networking database",
     "Refused while daemons of a vnet run, since they could not be stopped through\n"
     "the tool afterwards; --stop-services stops them first.\n",
     Needs::kUnloaded, DbDelete},
    {"db check", "", "", "tell whether the database exists and this library can read it",
     "Exit status 0 when both hold, 1 otherwise. `nexcfg check` judges what it holds.\n", Needs::kUnloaded,
     DbCheck},
    {"db export", "[FILE]", "", "write the database as a backup for db import and merge (- for stdout)",
     "Without FILE the library's default /tmp/networking_export is written. With\n"
     "\"-\" the backup is printed. NAT66 prefixes are not part of it.\n",
     Needs::kReadOnly, DbExport},
    {"answer get", "KEY", "", "print a raw database answer",
     "Fails (not-found) when the answer is not set. Keys of vnet settings read\n"
     "VNET_<n>_<FIELD>, e.g. VNET_1_HOSTONLY_SUBNET.\n",
     Needs::kReadOnly, AnswerGet},
    {"answer set", "KEY VALUE", "--force", "store a raw database answer",
     "A vnet setting the rules know (a subnet, a parameter...) is vetted as by the\n"
     "commands that set it.\n",
     Needs::kReadWrite, AnswerSet},
    {"answer unset", "KEY", "--force", "remove a raw database answer", "", Needs::kReadWrite, AnswerUnset},
    {"log show", "", "", "show the stored and current log levels and the log file", "", Needs::kReadOnly,
     LogShow},
    {"log set-default", "LEVEL", "", "store the log level used from the next load",
     "LEVEL is a number up to 0x7f or names joined by commas: err (0x1), info (0x2),\n"
     "errcmn (0x4), wrn (0x8), ok (0x10), info2 (0x20), args (0x40), or all.\n"
     "The library's default is 0x19 (err,wrn,ok).\n",
     Needs::kReadWrite, LogSetDefault},
    {"version", "", "", "show the tool's and the library's versions and limits", "", Needs::kNothing,
     Version},
};

}  // namespace

std::span<const Command> DatabaseCommands() { return kCommands; }

}  // namespace nexcfg
