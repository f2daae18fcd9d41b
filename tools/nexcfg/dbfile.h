// dbfile.h - the settings a database or backup file holds, replayed from
// its records the way the library loads them.
//
// nexcfg reads such files itself for three things the library's interface
// cannot tell: whether a file given to `db import` or `db merge` is a
// database at all, what importing or merging it would change, and which
// NAT66 prefixes the database holds (the interface can add and test a
// prefix, not list them).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace nexcfg {

constexpr char kDatabasePath[] = "/etc/zymtra/networking";

// One setting of a file: its vnet (-1 for the whole configuration), and a
// name such as "HOSTONLY_SUBNET", "lease 00:50:56:3F:00:10",
// "forward tcp 8080", "bridge eth0" or "nat66-prefix fd00::/64".
using Settings = std::map<int, std::map<std::string, std::string>>;

struct DbFile {
  enum class Form { kMissing, kBinary, kNoVersion, kDatabase, kBackup };
  Form form = Form::kMissing;
  size_t records = 0;  // lines that are records of the library's
  Settings settings;
};

DbFile ReadDbFile(const std::string &path);
// Why the library should not be given the file unless forced, or "": a
// backup is what `nexcfg db export` writes.
std::string ImportProblem(const DbFile &file);

// What a file will hold once the library has imported it (keys it does not
// carry over dropped, a file without a backup's version line upgraded as
// a legacy backup) or merged it; either way the compact rewrite that
// follows drops the NAT66 prefixes.
Settings AfterImport(const DbFile &file);
Settings AfterMerge(const DbFile &file);

// The NAT66 prefixes of a vnet that a file holds.
std::vector<std::string> PrefixesOf(const DbFile &file, int vnet);

// Writes text to path through a new file renamed over it.
void WriteFileWhole(const std::string &path, const std::string &text);
// The first "<database>.bak.<n>" that does not exist.
std::string FreeBackupName();
// Copies the database to a new numbered backup, never over an earlier
// one; its name. Throws an Error when it cannot.
std::string CopyToNewBackup();
// Moves "<database>.bak.0", where the library's import keeps the database
// it replaces (removing what was there), to a free number.
void MoveFirstBackupAside();

struct SettingChange {
  int vnet;  // -1: the whole configuration
  std::string name;
  std::string before, after;  // "" when absent
};
std::vector<SettingChange> Changes(const Settings &before, const Settings &after);

}  // namespace nexcfg
