// dbfile.cpp - replaying the records of a database or backup file.
#include "dbfile.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <set>

#include "address.h"
#include "base/answer_keys.h"
#include "cli.h"
#include "text.h"

namespace nexcfg {
namespace {

constexpr char kPrefixItem[] = "nat66-prefix ";

// Keywords compare without case, in ASCII only: a byte of 0x80 and above
// stays as it is.
void LowerAscii(std::string *text) {
  for (char &c : *text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
}

// A vnet number 0..255 as written in a record, or -1.
int VnetWord(const std::string &word) {
  if (word.empty() || word.size() > 3 || word.find_first_not_of("0123456789") != std::string::npos) return -1;
  int n = atoi(word.c_str());
  return n < 256 ? n : -1;
}

// An answer's place: "VNET_<n>_<FIELD>" belongs to vnet n.
std::pair<int, std::string> AnswerPlace(const std::string &key) {
  if (key.rfind("VNET_", 0) == 0) {
    size_t end = key.find('_', 5);
    int vnet = end == std::string::npos ? -1 : VnetWord(key.substr(5, end - 5));
    if (vnet >= 0 && end + 1 < key.size()) return {vnet, key.substr(end + 1)};
  }
  return {-1, key};
}

void Forget(Settings *s, const std::string &name) {
  for (auto &[vnet, items] : *s) items.erase(name);
}

// Replays one record line; false when it is not a record of the library's.
bool Replay(const std::string &line, Settings *s) {
  size_t blank = line.find(' ');
  if (blank == std::string::npos) return false;
  std::string keyword = line.substr(0, blank), rest = line.substr(blank + 1);
  LowerAscii(&keyword);
  Words words(rest);
  std::string a, b, c, d, e;
  if (keyword == "answer" || keyword == "remove_answer") {
    size_t end = rest.find(' ');
    std::string key = rest.substr(0, end);
    std::string value = end == std::string::npos ? "" : rest.substr(end + 1);
    if (key.empty() || (keyword == "answer" && value.empty())) return false;
    auto [vnet, name] = AnswerPlace(key);
    if (keyword == "answer")
      (*s)[vnet][name] = value;
    else
      (*s)[vnet].erase(name);
    return true;
  }
  bool add = keyword.rfind("add_", 0) == 0;
  if (keyword == "add_nat_portfwd" || keyword == "remove_nat_portfwd") {
    if (!words.Next(&a, &b, &c) || VnetWord(a) < 0) return false;
    LowerAscii(&b);
    std::string name = "forward " + b + " " + c;
    if (!add) {
      (*s)[VnetWord(a)].erase(name);
      return true;
    }
    if (!words.Next(&d, &e)) return false;
    std::string description(words.Rest());
    (*s)[VnetWord(a)][name] = d + ":" + e + description;
    return true;
  }
  if (keyword == "add_dhcp_mac_to_ip" || keyword == "remove_dhcp_mac_to_ip") {
    if (!words.Next(&a, &b) || VnetWord(a) < 0 || CanonicalMac(b).empty()) return false;
    std::string name = "lease " + CanonicalMac(b);
    if (!add) {
      (*s)[VnetWord(a)].erase(name);
      return true;
    }
    if (!words.Next(&c)) return false;
    (*s)[VnetWord(a)][name] = c;
    return true;
  }
  if (keyword == "add_bridge_mapping" || keyword == "remove_bridge_mapping") {
    if (!words.Next(&a)) return false;
    Forget(s, "bridge " + a);
    if (!add) return true;
    if (!words.Next(&b)) return false;
    (*s)[b == "-1" ? -1 : VnetWord(b)]["bridge " + a] = b == "-1" ? "none" : "yes";
    return b == "-1" || VnetWord(b) >= 0;
  }
  if (keyword == "add_nat_prefix" || keyword == "remove_nat_prefix") {
    if (!words.Next(&a, &b) || VnetWord(a) < 0) return false;
    if (add)
      (*s)[VnetWord(a)][kPrefixItem + b] = "yes";
    else
      (*s)[VnetWord(a)].erase(kPrefixItem + b);
    return true;
  }
  return false;
}

bool LooksBinary(const std::string &text) {
  return std::any_of(text.begin(), text.end(), [](char ch) {
    auto c = static_cast<unsigned char>(ch);
    return c < 0x20 && c != '\n' && c != '\r' && c != '\t';
  });
}

bool IsRecord(const std::string &name) { return name.find(' ') != std::string::npos; }

Settings WithoutPrefixes(Settings s) {
  for (auto &[vnet, items] : s)
    std::erase_if(items, [](const auto &item) { return item.first.rfind(kPrefixItem, 0) == 0; });
  return s;
}

}  // namespace

DbFile ReadDbFile(const std::string &path) {
  DbFile file;
  std::string text;
  if (!ReadFile(path, &text)) return file;
  if (LooksBinary(text)) {
    file.form = DbFile::Form::kBinary;
    return file;
  }
  bool first = true;
  for (std::string line : SplitText(text, '\n')) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (first) {
      first = false;
      std::string head = line.substr(0, line.find('='));
      file.form = head == "VERSION"          ? DbFile::Form::kDatabase
                  : head == "BACKUP_VERSION" ? DbFile::Form::kBackup
                                             : DbFile::Form::kNoVersion;
      if (file.form != DbFile::Form::kNoVersion) continue;
    }
    if (Replay(line, &file.settings)) ++file.records;
  }
  if (first) file.form = DbFile::Form::kNoVersion;  // an empty file
  return file;
}

std::string ImportProblem(const DbFile &file) {
  switch (file.form) {
    case DbFile::Form::kMissing:
      return "cannot be read";
    case DbFile::Form::kBinary:
      return "is not a text file";
    case DbFile::Form::kNoVersion:
      return file.records == 0 ? "holds no database records"
                               : "has no version line: the library would read it as a legacy backup";
    case DbFile::Form::kDatabase:
      return "is a database, not a backup: the library would read it as a legacy backup, which loses the "
             "vnets' names";
    default:
      return file.records == 0 ? "holds no database records" : "";
  }
}

namespace {

// The upgrade of a legacy backup, which the import gives any file without
// the backup's version line: a display name is stored and then removed
// again, an adapter name becomes a bridge mapping, a host address becomes
// the host-only adapter's.
void UpgradeLegacy(Settings *s) {
  for (auto &[vnet, items] : *s) {
    if (vnet < 0) continue;
    items.erase("DISPLAY_NAME");
    if (auto it = items.find("INTERFACE"); it != items.end()) {
      items["bridge " + it->second] = "yes";
      items.erase(it);
    }
    if (auto it = items.find("HOSTONLY_HOSTADDR"); it != items.end()) {
      std::string address = it->second;
      auto host = ParseIPv4(address);
      auto mask = ParseIPv4(items.count("HOSTONLY_NETMASK") ? items["HOSTONLY_NETMASK"] : "255.255.255.0");
      if (host && mask) items["HOSTONLY_SUBNET"] = IPv4Text(*host & *mask);
      items["VIRTUAL_ADAPTER"] = "yes";
      items["VIRTUAL_ADAPTER_ADDR"] = address;
      items.erase("HOSTONLY_HOSTADDR");
    }
  }
}

}  // namespace

Settings AfterImport(const DbFile &file) {
  // An import carries over the answers the library knows and drops the rest.
  Settings s = WithoutPrefixes(file.settings);
  for (auto &[vnet, items] : s) {
    const bool global = vnet < 0;
    std::erase_if(items, [global](const auto &item) {
      const std::string &name = item.first;
      return !IsRecord(name) && !(global ? nxc::IsOneOf(name, nxc::kKnownGlobalKeys)
                                         : nxc::IsOneOf(name, nxc::kKnownVnetFields));
    });
  }
  if (file.form != DbFile::Form::kBackup) UpgradeLegacy(&s);
  return s;
}

Settings AfterMerge(const DbFile &file) { return WithoutPrefixes(file.settings); }

std::vector<std::string> PrefixesOf(const DbFile &file, int vnet) {
  std::vector<std::string> prefixes;
  auto it = file.settings.find(vnet);
  if (it == file.settings.end()) return prefixes;
  for (const auto &[name, value] : it->second)
    if (name.rfind(kPrefixItem, 0) == 0) prefixes.push_back(name.substr(sizeof kPrefixItem - 1));
  return prefixes;
}

namespace {

std::string BackupName(unsigned n) { return std::string(kDatabasePath) + ".bak." + std::to_string(n); }
constexpr unsigned kMostBackups = 10000;

}  // namespace

void WriteFileWhole(const std::string &path, const std::string &text) {
  std::string temporary = path + ".new";
  int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  bool ok =
      fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
  int err = errno;
  if (fd >= 0) close(fd);
  if (ok && rename(temporary.c_str(), path.c_str()) == 0) return;
  err = ok ? errno : err;
  unlink(temporary.c_str());
  throw Error(kCodeFailed, "cannot write " + path + ": " + strerror(err));
}

std::string FreeBackupName() {
  for (unsigned n = 0; n < kMostBackups; ++n)
    if (access(BackupName(n).c_str(), F_OK) != 0) return BackupName(n);
  return BackupName(kMostBackups);
}

std::string CopyToNewBackup() {
  std::string text;
  const bool opened = ReadFile(kDatabasePath, &text);
  for (unsigned n = 0; opened && n < kMostBackups; ++n) {
    std::string name = BackupName(n);
    int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno == EEXIST) continue;
    bool ok =
        fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    int err = errno;
    if (fd >= 0) close(fd);
    if (ok) return name;
    if (fd >= 0) unlink(name.c_str());
    throw Error(kCodeFailed, "cannot keep the database as " + name + ": " + strerror(err));
  }
  throw Error(kCodeFailed, std::string("cannot read the database ") + kDatabasePath + " to keep a backup");
}

void MoveFirstBackupAside() {
  std::string first = BackupName(0);
  if (access(first.c_str(), F_OK) != 0) return;
  // link() never replaces an existing name.
  for (unsigned n = 1; n < kMostBackups; ++n) {
    if (link(first.c_str(), BackupName(n).c_str()) == 0) {
      unlink(first.c_str());
      return;
    }
    if (errno != EEXIST) break;
  }
  throw Error(kCodeFailed, "cannot move " + first + " aside: " + strerror(errno),
              "move it yourself; the import would replace it");
}

std::vector<SettingChange> Changes(const Settings &before, const Settings &after) {
  std::set<int> vnets;
  for (const auto &[vnet, items] : before) vnets.insert(vnet);
  for (const auto &[vnet, items] : after) vnets.insert(vnet);
  auto itemsOf = [](const Settings &s, int vnet) {
    auto it = s.find(vnet);
    return it == s.end() ? std::map<std::string, std::string>() : it->second;
  };
  std::vector<SettingChange> changes;
  for (int vnet : vnets) {
    auto old = itemsOf(before, vnet), now = itemsOf(after, vnet);
    std::set<std::string> names;
    for (const auto &[name, value] : old) names.insert(name);
    for (const auto &[name, value] : now) names.insert(name);
    for (const auto &name : names) {
      // The hash of the generated dhcpd.conf block is the library's own.
      if (name == "DHCP_CFG_HASH" || old[name] == now[name]) continue;
      changes.push_back({vnet, name, old[name], now[name]});
    }
  }
  return changes;
}

}  // namespace nexcfg
