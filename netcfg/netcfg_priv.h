// netcfg_priv.h - the database cache and the pieces its files share.
#pragma once

#include <sys/types.h>

#include <initializer_list>
#include <string_view>

#include "base/answer_keys.h"
#include "base/byte_buffer.h"
#include "base/file_lock.h"
#include "base/hash_table.h"
#include "base/str_util.h"
#include "netcfg/record_table.h"
#include "nexcfg_internal.h"

// ---- Entries ---------------------------------------------------------------

// An answer: key and value, both owned. The answer store (answers.cpp) is a
// record family too; its entry is here because import, merge and the
// rewrite read answers as well.
struct NetworkConfigDictionaryEntry {
  char *key;
  char *value;
};

// The entries of the other families; each is defined in its family's file.
struct NATPortFwdEntry;     // port_forwards.cpp
struct DHCPMACToIPEntry;    // dhcp_mappings.cpp
struct BridgeMappingEntry;  // bridge_mappings.cpp
struct NATPrefixEntry;      // nat_prefixes.cpp

// Per vnet: TCP and UDP forwards, each keyed by host port. Created with the
// vnet's first forward, freed when both tables are gone.
struct NATVnetPortFwdConfig {
  nxc::RecordTable<NATPortFwdEntry> tcp;
  nxc::RecordTable<NATPortFwdEntry> udp;
};

constexpr uint32_t kNumVnets = NXC_NUM_VNETS;

// ---- The cache -------------------------------------------------------------

// What a cache knows of its database file. Other processes append to the
// same file, and a compact rewrite elsewhere renames a new file over it; a
// cache whose file holds records it has not read must not rewrite the
// database from its own tables.
struct JournalState {
  dev_t dev;    // the file the descriptor is open on
  ino_t ino;
  off_t known;  // its first bytes, which the cache accounts for in order
  bool behind;  // the file holds records of others before or after known
  // known ends a line this cache wrote: no unfinished line to look for.
  bool endsLine;
  // The cache holds the lock taken on its own descriptor, and the path was
  // seen to name that file then: size is the file's size, which under the
  // lock only this cache's appends change.
  bool locked;
  off_t size;
};

struct NXCNetworkConfigurationDB {
  nxc::FileLock *lock;  // held between lock and unlock, else null
  int fd;               // the database file (O_APPEND unless read-only), or -1
  char *path;
  bool backup;
  bool changed;  // a record was appended since loading
  uint32_t major;
  uint32_t minor;
  bool readOnly;
  JournalState journal;
  nxc::HashTable *answers;
  nxc::RecordTable<BridgeMappingEntry> bridgeMappings;
  NATVnetPortFwdConfig *portFwd[kNumVnets];
  nxc::RecordTable<DHCPMACToIPEntry> dhcp[kNumVnets];
  nxc::RecordTable<NATPrefixEntry> prefixes[kNumVnets];
};

namespace nxc {

// The process-wide default cache (null while not loaded).
extern NXCNetworkConfigurationDB *gDefaultCache;

// The given cache, or the default one when null (which may itself be null).
inline NXCNetworkConfigurationDB *ResolveCache(NXCNetworkConfigurationDB *cache) {
  return cache ? cache : gDefaultCache;
}

// How long a change waits for the database lock held elsewhere.
inline constexpr uint32_t kLockTimeoutMs = 3500;

// ---- The journal (journal.cpp) ---------------------------------------------

// A new, empty cache (no file open); null, logged under fn, when memory
// runs out.
NXCNetworkConfigurationDB *NewCache(const char *fn);
// Frees a cache's tables, path and the cache itself; nothing is written.
void FreeCache(NXCNetworkConfigurationDB *db);

// Opens path as the cache's database file, for appending or only for
// reading, creating it when create. False with *error set to errno.
[[nodiscard]]
bool JournalOpen(NXCNetworkConfigurationDB *db, const char *path, bool append, bool create,
                 int *error);
// Records that the cache now accounts for the whole file as it is. Called
// where nobody else can append: under the lock, or on a file just made.
void JournalMarkKnown(NXCNetworkConfigurationDB *db);
// True when the file at the cache's path is the cache's file and holds
// nothing the cache does not account for. Meaningful under the lock only.
[[nodiscard]] bool JournalInSync(NXCNetworkConfigurationDB *db);
// Closes the cache's database file.
void JournalClose(NXCNetworkConfigurationDB *db);

// Takes the database lock for db (time-out kLockTimeoutMs): on the cache's
// own descriptor of its file when the path still names that file, so that
// a change costs no descriptor of its own and no second look at the file;
// on a descriptor of the file the path names otherwise. Null with *error
// as FileLockAcquire. Release it with JournalUnlock.
FileLock *JournalLock(NXCNetworkConfigurationDB *db, int *error);
// Releases a lock of JournalLock (null is fine); false with *error set
// when the unlock failed.
[[nodiscard]] bool JournalUnlock(NXCNetworkConfigurationDB *db, FileLock *lock, int *error);

// Appends the records of one change (whole lines) to the database file in
// a single write, under the database lock (the cache's own, or taken for
// this append), and makes them durable (fdatasync) before returning true.
// An unfinished line left at the end by a writer that died is cut first. A
// write that fails or comes up short is cut back, so the file is as it was;
// *error then has the errno. The cache's tables are not touched.
[[nodiscard]]
bool AppendChange(NXCNetworkConfigurationDB *db, const char *text, size_t length, int *error);

// The temporary file pattern of a compact rewrite of path: ".<name>.XXXXXX"
// beside it. False when it does not fit size.
[[nodiscard]] bool RewritePattern(const char *path, char *pattern, size_t size);
// Removes the temporary files that interrupted rewrites of path left
// beside it (logged). Called under the database lock, which every rewrite
// holds, so none of them is in use.
void RemoveStaleRewrites(const char *path, const char *fn);

// The database lock for one scope: the cache's own lock when it holds it,
// else taken here (time-out kLockTimeoutMs) and released at scope exit.
class DatabaseLockScope {
 public:
  explicit DatabaseLockScope(NXCNetworkConfigurationDB *db);
  ~DatabaseLockScope();
  DatabaseLockScope(const DatabaseLockScope &) = delete;
  DatabaseLockScope &operator=(const DatabaseLockScope &) = delete;
  [[nodiscard]] bool held() const { return held_; }
  int error() const { return error_; }  // why it could not be had; 0: timed out

 private:
  NXCNetworkConfigurationDB *db_;
  FileLock *own_ = nullptr;
  bool held_ = false;
  int error_ = 0;
};

// ---- Text that goes into records (record_text.cpp) and comes out of them ---

// How a caller's text is held in a record line: a record must read back as
// exactly the text it was written from, and one line must stay one record.
enum class RecordText {
  kWord,        // non-empty and without blanks: a key, an adapter name, a prefix
  kValue,       // non-empty: an answer's value, the rest of its line
  kRestOfLine,  // may be empty: a port forward's description
};
// True when text can go into a record as kind says, with at most maxLength
// bytes (0: any length). Otherwise logs one LOG_ERR line under fn that
// names field and the reason, and returns false. No text may hold a line
// break or any other control character.
[[nodiscard]]
bool CheckRecordText(const char *fn, const char *field, const char *text, RecordText kind,
                     size_t maxLength = 0);
// CheckRecordText without a log line, for a caller that names the field
// only when it has to.
[[nodiscard]] bool RecordTextOk(const char *text, RecordText kind, size_t maxLength = 0);
// True when text is an IPv4 address as the library writes them (dotted
// decimal without blanks or leading zeros); else as CheckRecordText.
[[nodiscard]] bool CheckRecordAddress(const char *fn, const char *field, const char *text);

// The fields of a record line as the families' parse functions read them.
// Splits off the text before the first blank; *rest becomes what follows
// that blank (empty when there is none). False when the token is empty.
[[nodiscard]] inline bool NextToken(std::string_view *rest, std::string_view *token) {
  size_t blank = rest->find(' ');
  *token = rest->substr(0, blank);
  *rest = blank == std::string_view::npos ? std::string_view() : rest->substr(blank + 1);
  return !token->empty();
}
// A vnet number 0..255; false for anything else.
[[nodiscard]] inline bool ParseVnet(std::string_view token, uint32_t *vnet) {
  uint32_t v = 0;
  if (!StrToUint32(token, &v) || v >= kNumVnets) return false;
  *vnet = v;
  return true;
}
// A port 1..65535; false for anything else.
[[nodiscard]] inline bool ParsePort(std::string_view token, uint16_t *port) {
  uint32_t v = 0;
  if (!StrToUint32(token, &v) || v < 1 || v > 65535) return false;
  *port = static_cast<uint16_t>(v);
  return true;
}
// A NUL-terminated copy of a token in a fixed buffer; false when too long.
template <size_t N>
[[nodiscard]] bool CopyToken(std::string_view token, char (&out)[N]) {
  if (token.size() >= N) return false;
  // copy() and not memcpy(): an empty token may have no data pointer.
  out[token.copy(out, token.size())] = '\0';
  return true;
}

// ---- Records -----------------------------------------------------------------

// The records of one change, gathered so that they reach the database file
// in a single append.
class ChangeRecords {
 public:
  // Adds the record of type for entry (an entry of the matching kind).
  // False, logged once, when memory runs out; the change then fails.
  [[nodiscard]] bool Add(uint32_t type, const void *entry);
  // Appends all of them with AppendChange and marks the cache changed. On
  // failure logs "Failed to write record to database file: %s" with the
  // first record; *error (optional) gets the errno.
  [[nodiscard]] bool AppendTo(NXCNetworkConfigurationDB *db, int *error = nullptr);
  [[nodiscard]] bool empty() const { return text_.Size() == 0 && !failed_; }

 private:
  ByteBuffer text_;
  size_t firstLength_ = 0;
  bool failed_ = false;
};

// One record of a change: its type and an entry of the matching kind.
struct RecordOf {
  uint32_t type;
  const void *entry;
};
// A ChangeRecords of the given records, appended.
[[nodiscard]]
bool AppendRecordsOf(NXCNetworkConfigurationDB *db, std::initializer_list<RecordOf> records,
                     int *error = nullptr);
// Appends a removal record of the given type for every entry of table, as
// one change; false (logged) when it could not be written.
[[nodiscard]] bool AppendRemovals(NXCNetworkConfigurationDB *db, uint32_t type, HashTable *table);
// The cache (the default one for null) for a call on vnet's records; null,
// after logging why, when no cache is loaded or the vnet is out of range.
NXCNetworkConfigurationDB *CacheForVnet(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *fn);
// Copies text into an output buffer when it fits whole (length + 1 <= size).
[[nodiscard]] bool CopyOut(const char *text, char *buffer, size_t size);

// The text of a record of the given type for an entry of its family
// (answer types take a NetworkConfigDictionaryEntry, and so on), malloc'd;
// null when memory runs out.
char *FormatRecord(uint32_t type, const void *entry);

// In-memory insert or replace of an answer, creating the table on first use.
[[nodiscard]] bool NetCfgHashAddAnswer(HashTable **table, const char *key, const char *value);
// In-memory insert or replace of a bridge mapping (an import's upgrade of a
// legacy answer).
[[nodiscard]]
bool NetCfgHashAddBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter, int32_t vnet);

// The compact writers: every "answer" and "add_" record of the cache (NAT
// prefixes excepted) in the fixed order, into a new database file or a
// buffer.
[[nodiscard]]
bool NetCfgWriteDatabaseFile(NXCNetworkConfigurationDB *db, const char *path, bool backup);

// Writes the same records in the same order into buffer, without a version
// line. Returns the failure flag: false when everything was written.
[[nodiscard]] bool NetCfgWriteDatabaseToBuffer(NXCNetworkConfigurationDB *db, ByteBuffer *buffer);

// True when key is "VNET_<n>_<field>" with n a vnet number and field one of
// the known vnet fields; *vnet gets n.
[[nodiscard]] bool IsKnownVnetKey(std::string_view key, uint32_t *vnet);

// Gives an imported or merged cache the database's name and opens the
// database file for appending to it (the merge's failure line keeps its own
// wording). False, logged, when either cannot be had.
[[nodiscard]]
bool ReopenAsDatabase(NXCNetworkConfigurationDB *db, const char *databasePath, bool merging,
                      const char *fn);

// Reads the database file at path into a new cache that keeps no file
// open, for a caller that holds the database lock; logged as a load is.
// False when the file cannot be read (the cache is then freed).
[[nodiscard]]
bool ReadDatabaseFile(const char *path, bool backup, NXCNetworkConfigurationDB **out,
                      const char *fn);

// Parses "<major>,<minor>" of a version line; logs and fails on anything
// else or on an unsupported major version.
[[nodiscard]] bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor);

}  // namespace nxc
