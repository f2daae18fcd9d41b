// writeback.cpp - writing records out: the compact rewrite of the whole
// database (at the last unload and for export), and freeing a cache, which
// writes a changed database back first.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/byte_buffer.h"
#include "base/str_util.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {


// The entries of one table in listing order (a malloc'd array, null when
// the table is empty or missing). False when memory runs out.
[[nodiscard]] bool ListEntries(const HashTable *table, void ***entries, size_t *count) {
  *entries = nullptr;
  *count = 0;
  return !table || table->Snapshot(entries, count);
}

// BINDIR comes from the product configuration file at every load.
[[nodiscard]] bool IsBindir(uint32_t type, const void *entry) {
  return type == NXC_REC_ANSWER &&
         strcmp(static_cast<const NetworkConfigDictionaryEntry *>(entry)->key, "BINDIR") == 0;
}

// Formats one record into the buffer; the failure flag as result.
int NetCfgWriteRecord(ByteBuffer *buffer, uint32_t type, const void *entry) {
  if (IsBindir(type, entry)) return 0;
  return AppendRecord(buffer, type, entry) ? 0 : 1;
}

// Lists the entries of one table of the family of type, puts them in the
// family's rewrite order and writes them; logs and fails on the first bad
// record.
[[nodiscard]]
bool WriteTable(ByteBuffer *sink, uint32_t type, const HashTable *table, size_t *written,
                const char *fn) {
  void **entries = nullptr;
  size_t count = 0;
  if (!ListEntries(table, &entries, &count)) {
    NXCLog(LOG_ERR, fn, "Failed to create array of records of type: %u", type);
    return false;
  }
  CPtr<void *> owner(entries);
  const RecordFamily &family = *FamilyOfType(type);
  if (family.sortForRewrite) family.sortForRewrite(entries, count);
  for (size_t i = 0; i < count; ++i) {
    if (NetCfgWriteRecord(sink, type, entries[i]) != 0) {
      NXCLog(LOG_ERR, fn, "Failed to write record of type: %u to  database file", type);  // sic
      return false;
    }
  }
  *written += count;
  return true;
}

// Every answer and every "add_" record except NAT prefixes: answers; then
// per vnet its TCP forwards, its UDP forwards and its DHCP mappings; then
// bridge mappings, each group in its family's rewrite order. NAT prefixes
// live only in the appended journal, so a rewrite drops them.
[[nodiscard]] bool WriteAllRecords(NXCNetworkConfigurationDB *db, ByteBuffer *sink, const char *fn) {
  size_t answers = 0;
  if (!WriteTable(sink, NXC_REC_ANSWER, db->answers, &answers, fn)) return false;
  NXCLog(LOG_INFO, fn, "Records of type: %u, count %zu written to database file", NXC_REC_ANSWER,
         answers);
  size_t forwards = 0;
  size_t mappings = 0;
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet) {
    if (const NATVnetPortFwdConfig *fwd = db->portFwd[vnet]) {
      if (!WriteTable(sink, NXC_REC_ADD_NAT_PORTFWD, fwd->tcp.hash(), &forwards, fn) ||
          !WriteTable(sink, NXC_REC_ADD_NAT_PORTFWD, fwd->udp.hash(), &forwards, fn))
        return false;
    }
    if (!WriteTable(sink, NXC_REC_ADD_DHCP_MAC_TO_IP, db->dhcp[vnet].hash(), &mappings, fn))
      return false;
  }
  NXCLog(LOG_INFO, fn, "Records of type: %u, count %zu written to database file",
         NXC_REC_ADD_NAT_PORTFWD, forwards);
  NXCLog(LOG_INFO, fn, "Records of type: %u, count %zu written to database file",
         NXC_REC_ADD_DHCP_MAC_TO_IP, mappings);
  size_t bridges = 0;
  if (!WriteTable(sink, NXC_REC_ADD_BRIDGE_MAPPING, db->bridgeMappings.hash(), &bridges, fn))
    return false;
  NXCLog(LOG_INFO, fn, "Records of type: %u, count %zu written to database file",
         NXC_REC_ADD_BRIDGE_MAPPING, bridges);
  return true;
}

// Makes a rename in the directory of path durable.
void SyncDirectoryOf(const char *path) {
  char dir[PATH_MAX];
  const char *slash = strrchr(path, '/');
  if (!slash) {
    memcpy(dir, ".", 2);
  } else if (BoundedPrint(dir, sizeof dir, "%.*s",
                          static_cast<int>(slash == path ? 1 : slash - path), path) < 0) {
    return;
  }
  UniqueFd fd(open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // The rename is done either way; only its surviving a power cut is at stake.
  if (fd) (void)fsync(fd.get());
}

// The compact rewrite: the whole database into a temporary file beside it,
// synced, then renamed over it, and the rename synced. Failures are logged
// only; the database file then stays as it was.
void RewriteDatabase(NXCNetworkConfigurationDB *db, const char *fn) {
  char tempPath[PATH_MAX];
  if (!RewritePattern(db->path, tempPath, sizeof tempPath)) {
    NXCLog(LOG_ERR, fn, "Failed to create temporary backup file, error: %s", strerror(ENAMETOOLONG));
    return;
  }
  UniqueFd fd(mkostemp(tempPath, O_CLOEXEC));
  if (!fd) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Failed to create temporary backup file, error: %s", strerror(err));
    return;
  }
  struct stat st;
  if (stat(db->path, &st) != 0 || fchmod(fd.get(), st.st_mode & 07777) != 0)
    NXCLog(LOG_ERR, fn, "Failed to change permissions on backup file: %s", tempPath);
  fd.reset();
  if (!NetCfgWriteDatabaseFile(db, tempPath, db->backup)) {
    NXCLog(LOG_ERR, fn, "Failed to write to temp database file: %s", tempPath);
    (void)unlink(tempPath);
    return;
  }
  if (rename(tempPath, db->path) != 0) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Failed to reame: %s to %s, error: %s", tempPath, db->path,  // sic
           strerror(err));
    (void)unlink(tempPath);
    return;
  }
  SyncDirectoryOf(db->path);
  NXCLog(LOG_INFO2, fn, "Renamed temp file: %s to %s", tempPath, db->path);
}

void FreeTables(NXCNetworkConfigurationDB *db) {
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet)
    (void)NXCNetCfgRemoveAllNATPortFwd(db, vnet, true, true, /*writeRecords=*/false);
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet)
    (void)NXCNetCfgRemoveAllDHCPMACToIPMapping(db, vnet, /*writeRecords=*/false);
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet)
    (void)NXCNetCfgRemoveAllNATPrefix(db, vnet, /*writeRecords=*/false);
  db->bridgeMappings.Clear();
  HashTable::Destroy(db->answers);
  db->answers = nullptr;
}

// The last unload's rewrite of a changed cache, under the database lock.
// Other processes append to the same file: when it holds records this
// cache has not read (or another process renamed a new file over it), the
// rewrite starts from the file's records instead of the cache's, so that
// every change made anywhere stays. The file holds every change this cache
// made, so nothing of its own is lost either way.
void SaveChanges(NXCNetworkConfigurationDB *db, const char *fn) {
  DatabaseLockScope lock(db);
  if (!lock.held()) {
    // The journal keeps every change; it only stays long.
    NXCLog(LOG_ERR, fn, "Failed to lock config file, file: %s, error: %s", db->path,
           lock.error() ? strerror(lock.error()) : "timed out");
    return;
  }
  if (JournalInSync(db)) {
    RewriteDatabase(db, fn);
    return;
  }
  NXCNetworkConfigurationDB *file = nullptr;
  if (!ReadDatabaseFile(db->path, db->backup, &file, fn)) return;
  RewriteDatabase(file, fn);
  FreeCache(file);
}

}  // namespace

void FreeCache(NXCNetworkConfigurationDB *db) {
  FreeTables(db);
  free(db->path);
  free(db);
}

[[nodiscard]]
bool NetCfgWriteDatabaseFile(NXCNetworkConfigurationDB *db, const char *path, bool backup) {
  static constexpr char kFn[] = "NetCfgWriteDatabaseFile";
  if (!NXCNetCfgCreateDB(path, backup)) {
    NXCLog(LOG_ERR, kFn, "Failed to create/initialize database %sfile: %s", backup ? "backup " : "",
           path);
    return false;
  }
  UniqueFd fd(open(path, O_WRONLY | O_APPEND | O_CLOEXEC));
  if (!fd) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "Failed to open database file for writing, error: %s", strerror(err));
    return false;
  }
  // Every record is formatted first and reaches the file in one write.
  ByteBuffer records;
  if (!WriteAllRecords(db, &records, kFn)) return false;
  bool written = true;
  for (size_t done = 0; written && done < records.Size();) {
    ssize_t n = write(fd.get(), records.Data() + done, records.Size() - done);
    if (n < 0 && errno == EINTR) continue;
    written = n > 0;
    if (written) done += static_cast<size_t>(n);
  }
  if (records.Size() > 0) db->changed = true;
  // On stable storage before anyone renames it into place or reads it.
  bool synced = written && fsync(fd.get()) == 0;
  if (close(fd.release()) != 0 || !synced) {
    NXCLog(LOG_ERR, kFn, "Failed to write record of type: %u to  database file",  // sic
           NXC_REC_ADD_BRIDGE_MAPPING);
    return false;
  }
  return true;
}

[[nodiscard]] bool NetCfgWriteDatabaseToBuffer(NXCNetworkConfigurationDB *db, ByteBuffer *buffer) {
  return !WriteAllRecords(db, buffer, "NetCfgWriteDatabaseToBuffer");
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgCreateDB(const char *path, bool backup) noexcept {
  static constexpr char kFn[] = "NXCNetCfgCreateDB";
  if (!path || !NXCCreateFile(-1, NXC_FILE_CUSTOM, path)) {
    NXCLog(LOG_ERR, kFn, "Failed to create file: %s", path ? path : "");
    return false;
  }
  FILE *stream = fopen(path, "we");
  if (!stream) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "Failed to open file: %s, error: %s", path, strerror(err));
    (void)NXCRemoveFile(-1, NXC_FILE_CUSTOM, path);
    return false;
  }
  bool written = fprintf(stream, "%s=%u,%u\n", backup ? "BACKUP_VERSION" : "VERSION", 1u, 0u) > 0;
  int err = errno;
  written = fclose(stream) == 0 && written;
  if (!written) {
    NXCLog(LOG_ERR, kFn, "Failed to write initialization data into file: %serror: %s",  // sic
           path, strerror(err));
    (void)NXCRemoveFile(-1, NXC_FILE_CUSTOM, path);
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Created and initialized database %sfile: %s", backup ? "backup " : "",
         path);
  return true;
}

extern "C" bool NXCNetCfgUnload(NXCNetworkConfigurationDB **cachePointer, bool writeBack) noexcept {
  static constexpr char kFn[] = "NXCNetCfgUnload";
  NXCNetworkConfigurationDB *db = cachePointer ? *cachePointer : gDefaultCache;
  if (!db) {
    NXCLog(LOG_ERR, kFn, "Requested cache is not loaded");
    return true;
  }
  if (writeBack && db->changed && !db->readOnly) SaveChanges(db, kFn);
  JournalClose(db);
  if (db->lock) {
    int err = 0;
    (void)JournalUnlock(db, db->lock, &err);
    db->lock = nullptr;
  }
  bool isDefault = db == gDefaultCache;
  FreeCache(db);
  nxcDefaultBridgeVnet = -100;  // not known until read again
  if (cachePointer) *cachePointer = nullptr;
  if (isDefault) gDefaultCache = nullptr;
  return true;
}
