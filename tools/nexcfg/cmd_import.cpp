// cmd_import.cpp - importing and merging a database file: the file judged
// first, the change shown vnet by vnet, the replaced database kept under a
// new numbered backup.
#include <cstdio>

#include "cli.h"
#include "config.h"
#include "dbfile.h"

namespace nexcfg {
namespace {

constexpr char kDefaultFile[] = "/tmp/networking_export";

std::string FileArg(const Invocation &in) { return in.Has(0) ? in.Arg(0) : kDefaultFile; }

// The file, read; refused when it is no database unless --force.
DbFile JudgedFile(const std::string &path, bool force, std::vector<Problem> *warnings) {
  DbFile file = ReadDbFile(path);
  if (file.form == DbFile::Form::kMissing)
    throw Error(kCodeNotFound, "cannot read " + path, "give the path of a file written by nexcfg db export");
  std::string why = ImportProblem(file);
  if (why.empty()) return file;
  if (!force)
    throw Error(kCodeRefused, path + " " + why,
                "give a file written by nexcfg db export; --force hands it to the library anyway");
  warnings->push_back({"", true, "not-a-database", path + " " + why, "--force was given"});
  return file;
}

Json ChangesJson(const std::vector<SettingChange> &changes) {
  Json list = Json::Array();
  for (const SettingChange &c : changes) {
    Json row = Json::Object();
    row.Set("vnet", c.vnet < 0 ? Json() : Json(VnetNameOf(static_cast<uint32_t>(c.vnet))));
    row.Set("setting", c.name);
    row.Set("before", Json::TextOrNull(c.before));
    row.Set("after", Json::TextOrNull(c.after));
    list.Push(std::move(row));
  }
  return list;
}

// The change for people, vnet by vnet, before it is made.
void PrintChanges(const std::vector<SettingChange> &changes, const std::string &verb) {
  // verb: "importing FILE changes", "merging FILE would change"
  if (Opts().json) return;
  if (changes.empty()) {
    printf("%s nothing\n", verb.c_str());
    return;
  }
  printf("%s:\n", verb.c_str());
  Table table({"VNET", "SETTING", "BEFORE", "AFTER"});
  for (const SettingChange &c : changes)
    table.Add({c.vnet < 0 ? "(all)" : VnetNameOf(static_cast<uint32_t>(c.vnet)), c.name, c.before, c.after});
  table.Print(2);
}

int ImportOrMerge(const Invocation &in, bool merge) {
  std::string path = FileArg(in);
  std::vector<Problem> warnings;
  DbFile file = JudgedFile(path, in.Flag("--force"), &warnings);
  std::vector<SettingChange> changes =
      Changes(ReadDbFile(kDatabasePath).settings, merge ? AfterMerge(file) : AfterImport(file));
  bool dryRun = in.Flag("--dry-run");
  PrintChanges(changes, std::string(merge ? "merging " : "importing ") + path +
                            (dryRun ? " would change" : " changes"));
  std::string backup;
  if (!dryRun && merge) {
    backup = CopyToNewBackup();
    Call("merge " + path + " into the networking database",
         [&] { return NXC_MergeDatabaseFromFile(path.c_str()); });
  } else if (!dryRun) {
    // The library keeps the replaced database as "<database>.bak.0",
    // removing what that held; that goes to a free number first.
    MoveFirstBackupAside();
    Call("import the networking database from " + path,
         [&] { return NXC_ImportDatabaseFromFile(path.c_str()); });
    backup = std::string(kDatabasePath) + ".bak.0";
  }
  Json out = Json::Object();
  out.Set("file", path);
  out.Set("dry_run", dryRun);
  out.Set("changes", ChangesJson(changes));
  out.Set("backup", Json::TextOrNull(backup));
  std::string line = dryRun ? "nothing was changed (--dry-run)"
                            : std::string(merge ? "merged " : "imported ") + path +
                                  "; the old database is kept as " + backup;
  PrintChange(std::move(out), warnings, line);
  return kExitOk;
}

int Import(const Invocation &in) { return ImportOrMerge(in, /*merge=*/false); }
int Merge(const Invocation &in) { return ImportOrMerge(in, /*merge=*/true); }

const Command kCommands[] = {
    {"db import", "[FILE]", "--dry-run --force", "replace the database with a file's contents",
     "FILE (default /tmp/networking_export) is a file written by `nexcfg db export`\n"
     "or a backup. What changes is shown vnet by vnet first; --dry-run stops there.\n"
     "A file that holds no database records or has no version line is refused\n"
     "unless --force. The library keeps only the settings a backup carries, and no\n"
     "NAT66 prefixes. The replaced database is kept as <database>.bak.0; earlier\n"
     "backups move to free numbers, none is overwritten.\n",
     Needs::kUnloaded, Import},
    {"db merge", "[FILE]", "--dry-run --force", "take a file's configuration, restarting changed vnets",
     "The file replaces the configuration: a vnet it does not name loses its\n"
     "settings. What changes is shown vnet by vnet first; --dry-run stops there. The\n"
     "daemons of every changed vnet are stopped and started again. The database is\n"
     "kept first under a new numbered backup <database>.bak.<n>.\n",
     Needs::kReadWrite, Merge},
};

}  // namespace

std::span<const Command> ImportCommands() { return kCommands; }

}  // namespace nexcfg
