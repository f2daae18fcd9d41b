// cmd_db.cpp - the networking database file, raw answers, log levels and
// the library's version.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli.h"

namespace nexcfg {
namespace {

// The file argument, or null for the library's default export file.
const char *FileArg(const Invocation &in) { return in.Has(0) ? in.Arg(0).c_str() : nullptr; }
std::string FileShown(const Invocation &in) {
  return in.Has(0) ? in.Arg(0) : std::string("/tmp/networking_export");
}

int DbCreate(const Invocation &in) {
  bool overwrite = in.Flag("--overwrite");
  Call("create the networking database", [&] { return NXC_CreateNetworkingDB(overwrite); });
  Json out = Json::Object();
  out.Set("created", true);
  out.Set("overwritten", overwrite);
  if (Opts().json)
    PrintJson(out);
  else
    Say(overwrite ? "created the networking database (the old one was kept as a numbered .bak file)"
                  : "created the networking database");
  return kExitOk;
}

int DbDelete(const Invocation &) {
  Call("delete the networking database", [] { return NXC_DeleteNetworkingDB(); });
  Json out = Json::Object();
  out.Set("deleted", true);
  if (Opts().json) PrintJson(out);
  Say("deleted the networking database");
  return kExitOk;
}

int DbCheck(const Invocation &) {
  bool exists = Ask([] { return NXC_NetworkingDBExists(); });
  bool readable = exists && Ask([] { return NXC_CanReadNetworkingDB(); });
  Json out = Json::Object();
  out.Set("exists", exists);
  out.Set("readable", readable);
  PrintRecord(out);
  if (!exists) fprintf(stderr, "nexcfg: the networking database does not exist\n");
  else if (!readable) fprintf(stderr, "nexcfg: this library cannot read the networking database's version\n");
  return exists && readable ? kExitOk : kExitFailed;
}

int DbExport(const Invocation &in) {
  if (in.Has(0) && in.Arg(0) == "-") {
    char *text = Call("export the networking database", [] { return NXC_ExportDatabaseToBuffer(); });
    if (Opts().json) {
      Json out = Json::Object();
      out.Set("database", std::string(text));
      PrintJson(out);
    } else {
      fputs(text, stdout);
    }
    free(text);
    return kExitOk;
  }
  Call("export the networking database to " + FileShown(in),
       [&] { return NXC_ExportDatabaseToFile(FileArg(in)); });
  Json out = Json::Object();
  out.Set("exported", FileShown(in));
  if (Opts().json) PrintJson(out);
  Say("exported the networking database to " + FileShown(in));
  return kExitOk;
}

int DbImport(const Invocation &in) {
  Call("import the networking database from " + FileShown(in),
       [&] { return NXC_ImportDatabaseFromFile(FileArg(in)); });
  Json out = Json::Object();
  out.Set("imported", FileShown(in));
  if (Opts().json) PrintJson(out);
  Say("imported the networking database from " + FileShown(in));
  return kExitOk;
}

int DbMerge(const Invocation &in) {
  Call("merge " + FileShown(in) + " into the networking database",
       [&] { return NXC_MergeDatabaseFromFile(FileArg(in)); });
  Json out = Json::Object();
  out.Set("merged", FileShown(in));
  if (Opts().json) PrintJson(out);
  Say("merged " + FileShown(in) + " into the networking database");
  return kExitOk;
}

int AnswerGet(const Invocation &in) {
  const std::string &key = in.Arg(0);
  const char *value = nullptr;
  bool found = Ask([&] { return NXC_VnetCfgGetAnswer(key.c_str(), &value); });
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", found && value ? Json(value) : Json());
  if (Opts().json)
    PrintJson(out);
  else if (found && value)
    printf("%s\n", value);
  if (!found) fprintf(stderr, "nexcfg: no answer %s in the networking database\n", key.c_str());
  return found ? kExitOk : kExitFailed;
}

int AnswerSet(const Invocation &in) {
  const std::string &key = in.Arg(0), &value = in.Arg(1);
  Call("set the answer " + key, [&] { return NXC_VnetCfgAddAnswer(key.c_str(), value.c_str()); });
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", value);
  if (Opts().json) PrintJson(out);
  Say(key + " = " + value);
  return kExitOk;
}

int AnswerUnset(const Invocation &in) {
  const std::string &key = in.Arg(0);
  Call("remove the answer " + key, [&] { return NXC_VnetCfgRemoveAnswer(key.c_str()); });
  Json out = Json::Object();
  out.Set("key", key);
  out.Set("value", Json());
  if (Opts().json) PrintJson(out);
  Say("removed " + key);
  return kExitOk;
}

struct LevelName {
  const char *name;
  uint32_t bit;
};
constexpr LevelName kLevels[] = {
    {"err", NXC_LOG_ERR},   {"info", NXC_LOG_INFO},   {"errcmn", NXC_LOG_ERRCMN}, {"wrn", NXC_LOG_WRN},
    {"ok", NXC_LOG_OK},     {"info2", NXC_LOG_INFO2}, {"args", NXC_LOG_ARGS},
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
    {"db delete", "", "", "delete the networking database", "", Needs::kUnloaded, DbDelete},
    {"db check", "", "", "tell whether the database exists and this library can read it",
     "Exit status 0 when both hold, 1 otherwise.\n", Needs::kUnloaded, DbCheck},
    {"db export", "[FILE]", "", "write the database as a backup file (- for stdout)",
     "Without FILE the library's default /tmp/networking_export is written. With\n"
     "\"-\" the records are printed (in --json mode as {\"database\": text}).\n",
     Needs::kReadOnly, DbExport},
    {"db import", "[FILE]", "", "replace the database with a backup file's contents",
     "FILE defaults to /tmp/networking_export. The replaced database is kept aside\n"
     "while the import runs and put back when it fails.\n",
     Needs::kUnloaded, DbImport},
    {"db merge", "[FILE]", "", "take a backup file's configuration, restarting changed vnets",
     "The daemons of every vnet whose settings change are stopped and started\n"
     "again. FILE defaults to /tmp/networking_export.\n",
     Needs::kReadWrite, DbMerge},
    {"answer get", "KEY", "", "print a raw database answer",
     "Exit status 1 when the answer is not set. Keys of vnet settings read\n"
     "VNET_<n>_<FIELD>, e.g. VNET_1_HOSTONLY_SUBNET.\n",
     Needs::kReadOnly, AnswerGet},
    {"answer set", "KEY VALUE", "", "store a raw database answer", "", Needs::kReadWrite, AnswerSet},
    {"answer unset", "KEY", "", "remove a raw database answer", "", Needs::kReadWrite, AnswerUnset},
    {"log show", "", "", "show the stored and current log levels and the log file", "",
     Needs::kReadOnly, LogShow},
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
