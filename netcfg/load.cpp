// load.cpp - reading the database file into a cache, and freeing a cache.
//
// The file is a journal: a version line, then one record per line. Loading
// replays it into the cache's tables; a record that cannot be parsed is
// logged and skipped, while a bad version line or a read error fails the
// whole load.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "base/config_file.h"
#include "base/line_reader.h"
#include "base/scope_guard.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

NXCNetworkConfigurationDB *gDefaultCache = nullptr;

namespace {

constexpr size_t kMaxLineLength = 1024;  // of the version line
constexpr uint32_t kSupportedMajor = 1;
constexpr size_t kMaxDescriptionLength = 127;
constexpr char kProductConfigPath[] = "/etc/zymtra/config";

// ---- Tokens ----------------------------------------------------------------

// Splits off the text before the first blank; *rest becomes what follows
// that blank (empty when there is none). False when the token is empty.
bool NextToken(std::string_view *rest, std::string_view *token) {
  size_t blank = rest->find(' ');
  *token = rest->substr(0, blank);
  *rest = blank == std::string_view::npos ? std::string_view() : rest->substr(blank + 1);
  return !token->empty();
}

// A NUL-terminated copy of a token in a fixed buffer; false when too long.
template <size_t N>
bool CopyToken(std::string_view token, char (&out)[N]) {
  if (token.size() >= N) return false;
  // copy() and not memcpy(): an empty token may have no data pointer.
  out[token.copy(out, token.size())] = '\0';
  return true;
}

bool ParseVnet(std::string_view token, uint32_t *vnet) {
  uint32_t v = 0;
  if (!StrToUint32(token, &v) || v >= kNumVnets) return false;
  *vnet = v;
  return true;
}

bool ParsePort(std::string_view token, uint16_t *port) {
  uint32_t v = 0;
  if (!StrToUint32(token, &v) || v < 1 || v > 65535) return false;
  *port = static_cast<uint16_t>(v);
  return true;
}

// ---- Record parsers --------------------------------------------------------

bool DictRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  if (type == NXC_REC_REMOVE_ANSWER && !db->answers) {
    NXCLog(LOG_WRN, __func__, "Cannot delete from empty hash table");
    return true;
  }
  std::string_view key;
  if (!NextToken(&rest, &key)) {
    NXCLog(LOG_WRN, __func__, "Failed to extract key");
    return false;
  }
  CPtr<char> keyText(strndup(key.data(), key.size()));
  if (!keyText) {
    NXCLog(LOG_WRN, __func__, "Failed to extract key");
    return false;
  }
  if (type == NXC_REC_ANSWER) {
    if (rest.empty()) {
      NXCLog(LOG_WRN, __func__, "Empty value for key");
      return false;
    }
    CPtr<char> value(strndup(rest.data(), rest.size()));
    if (!value || !NetCfgHashAddAnswer(&db->answers, keyText.get(), value.get())) {
      NXCLog(LOG_WRN, __func__, "Failed to %s hash table", "add to");
      return false;
    }
    return true;
  }
  if (!db->answers->Delete(StrKey(keyText.get()))) {
    NXCLog(LOG_WRN, __func__, "Failed to %s hash table", "remove from");
    return false;
  }
  return true;
}

bool NatFwdRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to extract vnet number or invalid vnet number");
    return false;
  }
  bool tcp = false;
  if (!NextToken(&rest, &token) ||
      !(token.size() == 3 && (strncasecmp(token.data(), "tcp", 3) == 0 ||
                              strncasecmp(token.data(), "udp", 3) == 0))) {
    NXCLog(LOG_WRN, __func__, "Failed to parse tcp/udp");
    return false;
  }
  tcp = strncasecmp(token.data(), "tcp", 3) == 0;
  uint16_t hostPort = 0;
  if (!NextToken(&rest, &token) || !ParsePort(token, &hostPort)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host port");
    return false;
  }
  if (type == NXC_REC_REMOVE_NAT_PORTFWD) {
    if (!NetCfgHashRemoveNATPortFwd(db, vnet, tcp, hostPort)) {
      NXCLog(LOG_WRN, __func__, "Failed to remove NAT port forward from hash table");
      return false;
    }
    return true;
  }
  char vmIP[16];
  if (!NextToken(&rest, &token) || !CopyToken(token, vmIP) || !NXCIsValidIP(vmIP)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse VM IP address or invalid address");
    return false;
  }
  uint16_t vmPort = 0;
  if (!NextToken(&rest, &token) || !ParsePort(token, &vmPort)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host port");  // sic: the VM port's own report
    return false;
  }
  char description[kMaxDescriptionLength + 1];
  bool hasDescription = !rest.empty();
  if (hasDescription && !CopyToken(rest, description)) {
    NXCLog(LOG_ERR, __func__, "Discarding description since it is too long");
    hasDescription = false;
  }
  if (!NetCfgHashAddNATPortFwd(db, vnet, tcp, hostPort, vmIP, vmPort,
                               hasDescription ? description : nullptr)) {
    NXCLog(LOG_WRN, __func__, "Failed to add NAT Port forward to hash table");
    return false;
  }
  return true;
}

bool DhcpMacRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
    return false;
  }
  char macText[32];
  char mac[18];
  if (!NextToken(&rest, &token) || !CopyToken(token, macText) ||
      !NXCMACStandardizeFormat(macText, mac)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse MAC address or invalid MAC address");
    return false;
  }
  if (type == NXC_REC_REMOVE_DHCP_MAC_TO_IP) {
    if (!NetCfgHashRemoveDHCPMACToIP(db, vnet, mac)) {
      NXCLog(LOG_WRN, __func__, "Failed to %s DHCP MAC to IP mapping in hash table", "remove");
      return false;
    }
    return true;
  }
  char ip[16];
  if (!CopyToken(rest, ip) || !NXCIsValidIP(ip)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse IP address or invalid IP address");
    return false;
  }
  if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, ip)) {
    NXCLog(LOG_WRN, __func__, "Failed to %s DHCP MAC to IP mapping in hash table", "add");
    return false;
  }
  return true;
}

bool BridgeMappingRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type,
                                   std::string_view rest) {
  std::string_view token;
  char adapter[kHostAdapterNameSize];
  if (!NextToken(&rest, &token) || !CopyToken(token, adapter)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host adapter or invalid host adpater name");  // sic
    return false;
  }
  if (type == NXC_REC_REMOVE_BRIDGE_MAPPING) {
    if (!db->bridgeMappings.table) {
      NXCLog(LOG_ERR, __func__, "Cannot delete mapping entry from empty mapping list");
      return false;
    }
    if (!NetCfgHashRemoveBridgeMapping(db, adapter)) {
      NXCLog(LOG_WRN, __func__, "Failed to %s bridge mapping in hash table", "remove");
      return false;
    }
    return true;
  }
  int32_t vnet = 0;
  if (!NextToken(&rest, &token) || !StrToInt32(token, &vnet) || vnet < -1 ||
      vnet >= static_cast<int32_t>(kNumVnets)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
    return false;
  }
  if (!NetCfgHashAddBridgeMapping(db, adapter, vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to %s bridge mapping in hash table", "add");
    return false;
  }
  return true;
}

bool NatPrefixRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type,
                               std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
    return false;
  }
  char prefix[64];
  if (!NextToken(&rest, &token) || !CopyToken(token, prefix) || !NXCIsValidPrefix(prefix)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse prefix or invalid prefix");
    return false;
  }
  bool add = type == NXC_REC_ADD_NAT_PREFIX;
  bool ok = add ? NetCfgHashAddNATPrefix(db, vnet, prefix)
                : NetCfgHashRemoveNATPrefix(db, vnet, prefix);
  if (!ok) {
    NXCLog(LOG_WRN, __func__, "Failed to %s prefix in hash table", add ? "add" : "remove");
    return false;
  }
  return true;
}

using RecordParseFn = bool (*)(NXCNetworkConfigurationDB *, uint32_t, std::string_view);

struct RecordKeyword {
  const char *keyword;
  uint32_t type;
  RecordParseFn parse;
};

constexpr RecordKeyword kRecordKeywords[] = {
    {.keyword = "answer", .type = NXC_REC_ANSWER, .parse = DictRecordParseFunct},
    {.keyword = "remove_answer", .type = NXC_REC_REMOVE_ANSWER, .parse = DictRecordParseFunct},
    {.keyword = "add_nat_portfwd", .type = NXC_REC_ADD_NAT_PORTFWD, .parse = NatFwdRecordParseFunct},
    {.keyword = "remove_nat_portfwd",
     .type = NXC_REC_REMOVE_NAT_PORTFWD,
     .parse = NatFwdRecordParseFunct},
    {.keyword = "add_dhcp_mac_to_ip",
     .type = NXC_REC_ADD_DHCP_MAC_TO_IP,
     .parse = DhcpMacRecordParseFunct},
    {.keyword = "remove_dhcp_mac_to_ip",
     .type = NXC_REC_REMOVE_DHCP_MAC_TO_IP,
     .parse = DhcpMacRecordParseFunct},
    {.keyword = "add_bridge_mapping",
     .type = NXC_REC_ADD_BRIDGE_MAPPING,
     .parse = BridgeMappingRecordParseFunct},
    {.keyword = "remove_bridge_mapping",
     .type = NXC_REC_REMOVE_BRIDGE_MAPPING,
     .parse = BridgeMappingRecordParseFunct},
    {.keyword = "add_nat_prefix", .type = NXC_REC_ADD_NAT_PREFIX, .parse = NatPrefixRecordParseFunct},
    {.keyword = "remove_nat_prefix",
     .type = NXC_REC_REMOVE_NAT_PREFIX,
     .parse = NatPrefixRecordParseFunct},
};
static_assert(std::size(kRecordKeywords) == NXC_REC_REMOVE_NAT_PREFIX);

// Replays one record line. Lines whose first word is no keyword are
// ignored without a message; the file has no other kind of comment.
void ParseRecordLine(NXCNetworkConfigurationDB *db, const char *line, uint32_t lineNumber) {
  std::string_view rest(line);
  std::string_view word;
  if (!NextToken(&rest, &word)) {
    NXCLog(LOG_ERR, "NXCNetCfgLoad", "Failed to parse record at line #: %u, data: %s", lineNumber,
           line);
    return;
  }
  for (const RecordKeyword &k : kRecordKeywords) {
    if (word.size() != strlen(k.keyword) || strncasecmp(word.data(), k.keyword, word.size()) != 0)
      continue;
    if (!k.parse(db, k.type, rest))
      NXCLog(LOG_ERR, "NXCNetCfgLoad", "Failed to parse record at line #: %u, data: %s",
             lineNumber, line);
    return;
  }
}

// ---- The version line --------------------------------------------------------

enum class VersionLine { kOk, kFailed, kLegacy };

// Reads and checks the first line. A backup file without a version line is
// a legacy backup: version 0.0, and its first line is a record.
VersionLine ReadVersionLine(NXCNetworkConfigurationDB *db, FILE *reader, const char *fn) {
  int err = 0;
  CPtr<char> line(ReadNextLine(reader, kMaxLineLength, &err));
  if (!line && err != 0) {
    NXCLog(LOG_ERR, fn, "Failed to read version number, error: %s", strerror(err));
    return VersionLine::kFailed;
  }
  if (!line) {
    if (!db->backup) {
      NXCLog(LOG_ERR, fn, "Database file cannot be empty, aborting");
      return VersionLine::kFailed;
    }
    return VersionLine::kLegacy;
  }
  std::string_view text(line.get());
  size_t eq = text.find('=');
  std::string_view name = text.substr(0, eq);
  if (!db->backup && name != "VERSION") {
    NXCLog(LOG_ERR, fn, "Database file must have version number, aborting");
    return VersionLine::kFailed;
  }
  if (db->backup && name != "BACKUP_VERSION") {
    NXCLog(LOG_INFO, fn, "Version line not found in database file, defaulting to legacy version");
    if (fseek(reader, 0, SEEK_SET) != 0) {
      err = errno;
      NXCLog(LOG_ERR, fn, "fseek: failed, error: %s", strerror(err));
      return VersionLine::kFailed;
    }
    return VersionLine::kLegacy;
  }
  // The numbers are the rest of the line after the "="; a line without one
  // has none.
  const char *numbers = eq == std::string_view::npos ? "" : line.get() + eq + 1;
  if (!ParseVersionString(numbers, &db->major, &db->minor)) return VersionLine::kFailed;
  return VersionLine::kOk;
}

// Reads every record after the version line; false on a read error. Lines
// are read whole, however long. A last line without its end is what a
// writer that died while appending leaves: it is reported like any other
// line that cannot be parsed.
bool ReadRecords(NXCNetworkConfigurationDB *db, FILE *reader, uint32_t firstLineNumber,
                 const char *fn) {
  char *line = nullptr;
  size_t capacity = 0;
  ScopeGuard freeLine([&] { free(line); });
  for (uint32_t lineNumber = firstLineNumber;; ++lineNumber) {
    errno = 0;
    ssize_t length = getline(&line, &capacity, reader);
    if (length < 0) {
      int err = errno;
      if (!ferror(reader) && err != ENOMEM) return true;
      NXCLog(LOG_ERR, fn, "Error while reading database file, error: %s",
             strerror(err ? err : EIO));
      return false;
    }
    if (line[length - 1] != '\n') {
      NXCLog(LOG_ERR, "NXCNetCfgLoad", "Failed to parse record at line #: %u, data: %s", lineNumber,
             line);
      continue;
    }
    line[length - 1] = '\0';
    ParseRecordLine(db, line, lineNumber);
  }
}

// Takes "bindir" from the product configuration file as the in-memory
// answer BINDIR. Only a failure to store it fails the load.
bool LoadProductConfig(NXCNetworkConfigurationDB *db, const char *fn) {
  char why[256] = "";
  KeyValueFile *config = KeyValueFileLoad(kProductConfigPath, why, sizeof why);
  if (!config) {
    NXCLog(LOG_WRN, fn, "Failed to load product config file: %s, error: %s", kProductConfigPath,
           why);
    return true;
  }
  const char *bindir = KeyValueFileGet(config, "bindir");
  bool ok = true;
  if (!bindir) {
    NXCLog(LOG_WRN, fn, "Value not found for bindir");
  } else if (!NetCfgHashAddAnswer(&db->answers, "BINDIR", bindir)) {
    NXCLog(LOG_ERR, fn, "Failed to insert value of bindir");
    ok = false;
  }
  KeyValueFileFree(config);
  return ok;
}

// Reads the version line and the records of the file at path into db.
bool ReadJournal(NXCNetworkConfigurationDB *db, const char *path, const char *fn) {
  UniqueFile reader(fopen(path, "re"));
  if (!reader) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  VersionLine version = ReadVersionLine(db, reader.get(), fn);
  if (version == VersionLine::kFailed) return false;
  if (version == VersionLine::kLegacy) db->major = db->minor = 0;
  NXCLog(LOG_INFO2, fn, "Database file, Major version: %u, Minor version: %u", db->major,
         db->minor);
  // The version line is line 1; a legacy backup's first line is a record.
  return ReadRecords(db, reader.get(), version == VersionLine::kLegacy ? 1 : 2, fn);
}

// Steps 4 to 14 of a load into the fresh cache db; on failure the caller
// frees db.
bool FillCache(NXCNetworkConfigurationDB *db, const char *path, bool backup, bool readOnly,
               const char *fn) {
  int err = 0;
  if (!readOnly) {
    db->lock = FileLockAcquire(path, kLockTimeoutMs, &err);
    if (!db->lock) {
      NXCLog(LOG_ERR, fn, "Failed to lock config database file, error: %s",
             err ? strerror(err) : "timed out");
      return false;
    }
    RemoveStaleRewrites(path, fn);
  }
  db->backup = backup;
  db->readOnly = readOnly;
  if (!JournalOpen(db, path, /*append=*/!readOnly, /*create=*/false, &err)) {
    NXCLog(LOG_ERR, fn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  db->path = strdup(path);
  if (!db->path) {
    err = errno;
    NXCLog(LOG_ERR, fn, "strdup failed, error: %s", strerror(err));
    return false;
  }
  // The records are read through a buffered stream of their own; the
  // database descriptor only ever appends.
  if (!ReadJournal(db, path, fn)) return false;
  // Under the lock nobody appended meanwhile: the cache holds the file.
  JournalMarkKnown(db);
  if (db->lock) {
    FileLock *lock = db->lock;
    db->lock = nullptr;
    if (!FileLockRelease(lock, &err)) {
      NXCLog(LOG_ERR, fn, "Failed to unlock database file: %s, error: %s", path, strerror(err));
      return false;
    }
  }
  return LoadProductConfig(db, fn);
}

}  // namespace

bool ReadDatabaseFile(const char *path, bool backup, NXCNetworkConfigurationDB **out,
                      const char *fn) {
  NXCNetworkConfigurationDB *db = NewCache(fn);
  if (!db) return false;
  db->backup = backup;
  db->readOnly = true;  // never appended to
  db->path = strdup(path);
  if (!db->path || !ReadJournal(db, path, fn)) {
    NXCLog(LOG_ERR, fn, "Failed to load database cache with contents of file: %s", path);
    FreeCache(db);
    return false;
  }
  *out = db;
  return true;
}

bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor) {
  static constexpr char kFn[] = "ParseVersionString";
  std::string_view s(text ? text : "");
  size_t comma = s.find(',');
  int32_t majorValue = 0;
  if (comma == std::string_view::npos || !StrToInt32(s.substr(0, comma), &majorValue) ||
      majorValue < 0) {
    NXCLog(LOG_ERR, kFn, "Cannot parse major version of database file, aborting parsing");
    return false;
  }
  int32_t minorValue = 0;
  if (!StrToInt32(s.substr(comma + 1), &minorValue) || minorValue < 0) {
    NXCLog(LOG_ERR, kFn, "Cannot parse or invalid minor version of database file, aborting parsing");
    return false;
  }
  if (static_cast<uint32_t>(majorValue) > kSupportedMajor) {
    NXCLog(LOG_ERR, kFn, "Unsupported major version, supported: %u, actual: %d", kSupportedMajor,
           majorValue);
    return false;
  }
  *major = static_cast<uint32_t>(majorValue);
  *minor = static_cast<uint32_t>(minorValue);
  return true;
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgLoad(const char *path, NXCNetworkConfigurationDB **out, bool backup,
                              bool readOnly) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLoad";
  if (!out && gDefaultCache) {
    NXCLog(LOG_WRN, kFn, "Network configuration database cache is already loaded");
    return true;
  }
  if (!path || !NXCFileExists(-1, NXC_FILE_CUSTOM, path)) {
    NXCLog(LOG_ERR, kFn, "Import file does not exist");
    return false;
  }
  NXCNetworkConfigurationDB *db = NewCache(kFn);
  if (!db) return false;
  if (!FillCache(db, path, backup, readOnly, kFn)) {
    NXCLog(LOG_ERR, kFn, "Failed to load database cache with contents of file: %s", path);
    (void)NXCNetCfgUnload(&db, /*writeBack=*/false);
    return false;
  }
  if (out)
    *out = db;
  else
    gDefaultCache = db;
  NXCLog(LOG_INFO, kFn, "Database cache loaded with contents of file: %s", path);
  return true;
}

extern "C" bool NXCNetCfgCheckVersion(const char *path) noexcept {
  static constexpr char kFn[] = "NXCNetCfgCheckVersion";
  UniqueFile stream(path ? fopen(path, "re") : nullptr);
  if (!stream) {
    int err = path ? errno : EINVAL;
    NXCLog(LOG_ERR, kFn, "Unable to open network configuration database file, error: %s",
           strerror(err));
    return false;
  }
  int err = 0;
  CPtr<char> line(ReadNextLine(stream.get(), kMaxLineLength, &err));
  if (!line) {
    NXCLog(LOG_ERR, kFn, "Failed to read version number, error: %s",
           strerror(err ? err : ENODATA));
    return false;
  }
  std::string_view text(line.get());
  size_t eq = text.find('=');
  if (eq == std::string_view::npos || text.substr(0, eq) != "VERSION") {
    NXCLog(LOG_ERR, kFn, "Cannot find version in database file");
    return false;
  }
  uint32_t major = 0;
  uint32_t minor = 0;
  return ParseVersionString(line.get() + eq + 1, &major, &minor);
}

extern "C" bool NXCNetCfgIsReadOnly(NXCNetworkConfigurationDB *cache) noexcept {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  return db && db->readOnly;
}
