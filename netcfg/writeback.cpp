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

#include <algorithm>

#include "base/byte_buffer.h"
#include "base/str_util.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {


// Where the records of a rewrite go. Into a file they go through a buffer
// of modest size that is written out each time it fills, so that write()
// copies bytes that are still in the processor's cache; without a file,
// into the caller's buffer, which takes them all.
class RecordSink {
 public:
  explicit RecordSink(ByteBuffer *whole) : buffer_(whole) {}
  explicit RecordSink(int fd) : buffer_(&chunk_), fd_(fd) {}
  RecordSink(const RecordSink &) = delete;
  RecordSink &operator=(const RecordSink &) = delete;

  ByteBuffer *buffer() { return buffer_; }
  // Writes the buffer to the file once it has filled, or whatever it
  // holds when last. After a failed write the rest is only counted.
  void Flush(bool last = false) {
    if (fd_ < 0 || (!last && buffer_->Size() < kChunk)) return;
    const char *data = buffer_->Data();
    const size_t size = buffer_->Size();
    for (size_t done = 0; written_ && done < size;) {
      ssize_t n = write(fd_, data + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      written_ = n > 0;
      if (written_) done += static_cast<size_t>(n);
    }
    flushed_ += size;
    buffer_->Clear();
  }
  bool written() const { return written_; }
  size_t total() const { return flushed_ + buffer_->Size(); }

 private:
  static constexpr size_t kChunk = 64 * 1024;
  ByteBuffer chunk_;
  ByteBuffer *buffer_;
  int fd_ = -1;
  size_t flushed_ = 0;
  bool written_ = true;
};

// BINDIR comes from the product configuration file at every load.
[[nodiscard]] bool IsBindir(const NetworkConfigDictionaryEntry *entry) {
  return strcmp(entry->key, "BINDIR") == 0;
}

// Asks the memory for the entries ahead of their use: the entry and what
// its allocation holds behind it (the texts of most families).
void PrefetchEntries(void *const *entries, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    __builtin_prefetch(entries[i]);
    __builtin_prefetch(static_cast<const char *>(entries[i]) + 64);
  }
}

void LogWriteFailure(uint32_t type, const char *fn) {
  NXCLog(LOG_ERR, fn, "Failed to write record of type: %u to  database file", type);  // sic
}

// Puts the listed entries of a table of the family of type in the
// family's rewrite order and writes them; logs and fails on the first bad
// record.
[[nodiscard]]
bool WriteListed(RecordSink *sink, uint32_t type, void **entries, size_t count, const char *fn) {
  const RecordFamily &family = *FamilyOfType(type);
  if (family.sortForRewrite) family.sortForRewrite(entries, count);
  for (size_t i = 0; i < count; ++i) {
    if (!AppendRecord(sink->buffer(), type, entries[i])) {
      LogWriteFailure(type, fn);
      return false;
    }
  }
  sink->Flush();
  return true;
}

// Lists the entries of one table of the family of type and writes them
// as WriteListed does. For the tables with a handful of entries.
[[nodiscard]]
bool WriteTable(RecordSink *sink, uint32_t type, const HashTable *table, size_t *written,
                const char *fn) {
  void **entries = nullptr;
  size_t count = 0;
  if (table && !table->Snapshot(&entries, &count)) {
    NXCLog(LOG_ERR, fn, "Failed to create array of records of type: %u", type);
    return false;
  }
  CPtr<void *> owner(entries);
  if (!WriteListed(sink, type, entries, count, fn)) return false;
  *written += count;
  return true;
}

// An answer's line, formatted into a scratch buffer, with what sorts it:
// the answers go out by key, byte-wise, and the first 24 bytes of a key
// mostly decide, compared as three numbers.
struct AnswerLine {
  uint64_t head[3];  // the key's first 24 bytes, big-endian, zeros after its end
  size_t offset;     // of the line in the scratch buffer
  size_t length;
  size_t keyLength;
};

constexpr size_t kHeadBytes = sizeof AnswerLine::head;

void SetHead(AnswerLine *line, const char *key) {
  unsigned char bytes[kHeadBytes] = {};
  memcpy(bytes, key, std::min(line->keyLength, kHeadBytes));
  for (size_t w = 0; w < kHeadBytes / 8; ++w) {
    uint64_t word = 0;
    for (size_t b = 0; b < 8; ++b) word = word << 8 | bytes[8 * w + b];
    line->head[w] = word;
  }
}

// Orders lines by key: the heads as numbers, then the rest of the keys
// (which start at keys + offset) byte-wise, then the lengths.
bool KeyBefore(const AnswerLine &a, const AnswerLine &b, const char *keys) {
  if (a.head[0] != b.head[0]) return a.head[0] < b.head[0];
  if (a.head[1] != b.head[1]) return a.head[1] < b.head[1];
  if (a.head[2] != b.head[2]) return a.head[2] < b.head[2];
  const size_t common = std::min(a.keyLength, b.keyLength);
  int c = common > kHeadBytes
              ? memcmp(keys + a.offset + kHeadBytes, keys + b.offset + kHeadBytes, common - kHeadBytes)
              : 0;
  return c != 0 ? c < 0 : a.keyLength < b.keyLength;
}

uint8_t HeadByte(const AnswerLine &line, size_t at) {
  return static_cast<uint8_t>(line.head[at / 8] >> (56 - 8 * (at % 8)));
}

// Sorts lines (whose keys agree in their first depth bytes) by key: by
// their byte at depth into 256 groups, each sorted the same way one byte
// deeper; small groups, and keys alike in all of their head, by
// comparison. The keys mostly share their first bytes ("VNET_"), where a
// comparison sort would compare them again and again. spare has room for
// count lines.
void SortAnswerLines(AnswerLine *lines, AnswerLine *spare, size_t count, size_t depth,
                     const char *keys) {
  constexpr size_t kSmall = 32;
  for (; depth < kHeadBytes && count > kSmall; ++depth) {
    size_t start[257] = {};
    for (size_t i = 0; i < count; ++i) ++start[HeadByte(lines[i], depth) + 1];
    if (start[HeadByte(lines[0], depth) + 1] == count) continue;  // one group: next byte
    for (size_t b = 0; b < 256; ++b) start[b + 1] += start[b];
    size_t at[256];
    memcpy(at, start, sizeof at);
    for (size_t i = 0; i < count; ++i) spare[at[HeadByte(lines[i], depth)]++] = lines[i];
    memcpy(lines, spare, count * sizeof *lines);
    for (size_t b = 0; b < 256; ++b) {
      if (start[b + 1] - start[b] > 1)
        SortAnswerLines(lines + start[b], spare, start[b + 1] - start[b], depth + 1, keys);
    }
    return;
  }
  std::sort(lines, lines + count,
            [keys](const AnswerLine &a, const AnswerLine &b) { return KeyBefore(a, b, keys); });
}

// Every answer but BINDIR, by key. Each line is formatted once, in the
// table's order; the lines are then sorted and copied out in order.
[[nodiscard]] bool WriteAnswers(const HashTable *table, RecordSink *sink, const char *fn) {
  const size_t count = table ? table->Count() : 0;
  if (count == 0) return true;
  void **listing = nullptr;
  size_t listed = 0;
  bool ok = table->Snapshot(&listing, &listed);
  CPtr<void *> entries(listing);
  CPtr<AnswerLine> lines(static_cast<AnswerLine *>(malloc(count * sizeof(AnswerLine))));
  if (!ok || !lines) {
    NXCLog(LOG_ERR, fn, "Failed to create array of records of type: %u", NXC_REC_ANSWER);
    return false;
  }
  // The key is the first field of the line, after the keyword and a blank.
  const size_t keyAt = kAnswerRecords.addKeyword.size() + 1;
  constexpr size_t kAhead = 16;
  ByteBuffer scratch;
  size_t kept = 0;
  for (size_t i = 0; i < listed; ++i) {
    if (i + kAhead < listed) PrefetchEntries(entries.get() + i + kAhead, 1);
    const auto *entry = static_cast<const NetworkConfigDictionaryEntry *>(entries.get()[i]);
    if (IsBindir(entry)) continue;
    AnswerLine &line = lines.get()[kept++];
    line.offset = scratch.Size();
    if (!AppendRecord(&scratch, NXC_REC_ANSWER, entry)) {
      LogWriteFailure(NXC_REC_ANSWER, fn);
      return false;
    }
    line.length = scratch.Size() - line.offset;
    line.keyLength = strlen(entry->key);
    SetHead(&line, entry->key);
  }
  const char *text = scratch.Data();
  CPtr<AnswerLine> spare(static_cast<AnswerLine *>(malloc((kept ? kept : 1) * sizeof(AnswerLine))));
  if (!spare) {
    NXCLog(LOG_ERR, fn, "Failed to create array of records of type: %u", NXC_REC_ANSWER);
    return false;
  }
  SortAnswerLines(lines.get(), spare.get(), kept, 0, text + keyAt);
  for (size_t i = 0; i < kept; ++i) {
    if (i + kAhead < kept) {
      const AnswerLine &ahead = lines.get()[i + kAhead];
      __builtin_prefetch(text + ahead.offset);
      __builtin_prefetch(text + ahead.offset + ahead.length - 1);
    }
    const AnswerLine &line = lines.get()[i];
    if (!sink->buffer()->Append(text + line.offset, line.length)) {
      LogWriteFailure(NXC_REC_ANSWER, fn);
      return false;
    }
    sink->Flush();
  }
  return true;
}

// The per-vnet tables in the order a rewrite writes them: per vnet its TCP
// forwards, its UDP forwards and its DHCP mappings.
constexpr size_t kTablesPerVnet = 3;
constexpr size_t kVnetTables = kTablesPerVnet * kNumVnets;

uint32_t VnetTableType(size_t t) {
  return t % kTablesPerVnet == 2 ? NXC_REC_ADD_DHCP_MAC_TO_IP : NXC_REC_ADD_NAT_PORTFWD;
}

// The entries of the tables [first, last) in listing order, table after
// table, into out; table t's start at start[t]. Each entry is asked for
// from memory as soon as it is known, so that they have come when they
// are sorted and written.
void ListTables(const HashTable *const *tables, const size_t *start, size_t first, size_t last,
                void **out) {
  for (size_t t = first; t < last; ++t) {
    HashTable::Cursor cursor;
    for (size_t i = 0; start[t] + i < start[t + 1]; ++i) {
      void **slot = out + start[t] + i;
      *slot = tables[t]->EntryAt(i, &cursor);
      PrefetchEntries(slot, 1);
    }
  }
}

// Every port forward and DHCP mapping, vnet by vnet; the counts of each
// written into *forwards and *mappings.
[[nodiscard]]
bool WriteVnetTables(NXCNetworkConfigurationDB *db, RecordSink *sink, size_t *forwards,
                     size_t *mappings, const char *fn) {
  const HashTable *tables[kVnetTables];
  size_t start[kVnetTables + 1];
  start[0] = 0;
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet) {
    const NATVnetPortFwdConfig *fwd = db->portFwd[vnet];
    const HashTable **t = tables + kTablesPerVnet * vnet;
    t[0] = fwd ? fwd->tcp.hash() : nullptr;
    t[1] = fwd ? fwd->udp.hash() : nullptr;
    t[2] = db->dhcp[vnet].hash();
    for (size_t i = 0; i < kTablesPerVnet; ++i) {
      const size_t k = kTablesPerVnet * vnet + i;
      start[k + 1] = start[k] + (tables[k] ? tables[k]->Count() : 0);
    }
  }
  const size_t total = start[kVnetTables];
  CPtr<void *> all(static_cast<void **>(malloc((total ? total : 1) * sizeof(void *))));
  if (!all) {
    NXCLog(LOG_ERR, fn, "Failed to create array of records of type: %u", NXC_REC_ADD_NAT_PORTFWD);
    return false;
  }
  // A group of vnets at a time: their entries are listed, and are still
  // in the processor's cache when they are written.
  constexpr size_t kGroupTables = kTablesPerVnet * 16;
  for (size_t t = 0; t < kVnetTables; ++t) {
    if (t % kGroupTables == 0)
      ListTables(tables, start, t, std::min(t + kGroupTables, kVnetTables), all.get());
    const size_t count = start[t + 1] - start[t];
    const uint32_t type = VnetTableType(t);
    if (!WriteListed(sink, type, all.get() + start[t], count, fn)) return false;
    *(type == NXC_REC_ADD_NAT_PORTFWD ? forwards : mappings) += count;
  }
  return true;
}

// Every answer and every "add_" record except NAT prefixes: answers; then
// per vnet its TCP forwards, its UDP forwards and its DHCP mappings; then
// bridge mappings, each group in its family's rewrite order. NAT prefixes
// live only in the appended journal, so a rewrite drops them.
[[nodiscard]] bool WriteAllRecords(NXCNetworkConfigurationDB *db, RecordSink *sink, const char *fn) {
  if (!WriteAnswers(db->answers, sink, fn)) return false;
  NXCLog(LOG_INFO, fn, "Records of type: %u, count %zu written to database file", NXC_REC_ANSWER,
         db->answers ? db->answers->Count() : 0);
  size_t forwards = 0;
  size_t mappings = 0;
  if (!WriteVnetTables(db, sink, &forwards, &mappings, fn)) return false;
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
  {
    EntryReleaseBatch batch;
    FreeTables(db);
  }
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
  RecordSink sink(fd.get());
  if (!WriteAllRecords(db, &sink, kFn)) return false;
  sink.Flush(/*last=*/true);
  if (sink.total() > 0) db->changed = true;
  bool written = sink.written();
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
  RecordSink sink(buffer);
  return !WriteAllRecords(db, &sink, "NetCfgWriteDatabaseToBuffer");
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
