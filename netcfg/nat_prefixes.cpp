// nat_prefixes.cpp - the NAT prefix records: NAT66 prefixes per vnet, keyed
// by prefix text. The family's entry and descriptor, the in-memory changes
// that loading and undo make, and the NXCNetCfg* calls.
//
// Unlike the other record families, prefixes live only in the appended
// journal: the compact rewrite does not write them, and a failed write of an
// added prefix keeps it in the cache.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

struct NATPrefixEntry {
  uint32_t vnet;
  char *prefix;  // the table key
};

namespace nxc {

namespace {

// The loader reads a prefix into this many bytes.
constexpr size_t kPrefixSize = 64;

// CacheForVnet, and a prefix is required.
NXCNetworkConfigurationDB *CacheForPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                          const char *prefix, const char *fn) {
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, fn);
  if (db && !prefix) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return nullptr;
  }
  return db;
}

// Appends an add or remove record of a prefix; *error gets the errno of a
// failed write (ENOMEM when the record could not be formatted).
[[nodiscard]]
bool AppendPrefixRecord(NXCNetworkConfigurationDB *db, uint32_t type, uint32_t vnet,
                        const char *prefix, int *error) {
  NATPrefixEntry entry = {vnet, const_cast<char *>(prefix)};
  ByteBuffer text;
  if (!AppendRecord(&text, type, &entry)) {
    *error = ENOMEM;
    return false;
  }
  return AppendChange(db, text.Data(), text.Size(), error);
}

[[nodiscard]] bool HasPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  return db->prefixes[vnet].Find(StrKey(prefix)) != nullptr;
}

void NetCfgPrefixFreeEntry(void *p) {
  auto *e = static_cast<NATPrefixEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgPrefixFreeEntry", "Invalid arguments");  // deliberately logged
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgPrefixFreeEntry", "Free called over vnet; %d, prefix: %s",
         static_cast<int>(e->vnet), e->prefix ? e->prefix : "");
  free(e->prefix);
  free(e);
}

[[nodiscard]]
bool NetCfgHashAddNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  static constexpr char kFn[] = "NetCfgHashAddNATPrefix";
  RecordTable<NATPrefixEntry> *t = &db->prefixes[vnet];
  bool created = t->CreateForVnet(kNatPrefixRecords, vnet, kFn);
  auto *entry = static_cast<NATPrefixEntry *>(calloc(1, sizeof(NATPrefixEntry)));
  if (!created || !entry) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    free(entry);
    return false;
  }
  *entry = {vnet, strdup(prefix)};
  if (!entry->prefix) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    NetCfgPrefixFreeEntry(entry);
    return false;
  }
  if (t->Find(StrKey(prefix)))
    NXCLog(LOG_INFO2, kFn, "Prefix entry already exists, deleting existing entry");
  return t->Put(StrKey(entry->prefix), entry, kFn);
}

[[nodiscard]]
bool NetCfgHashRemoveNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  return db->prefixes[vnet].Remove(StrKey(prefix));
}

// ---- The record family -------------------------------------------------------

[[nodiscard]]
bool NatPrefixRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type,
                               std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
    return false;
  }
  char prefix[kPrefixSize];
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

[[nodiscard]]
bool FormatPrefix(ByteBuffer *out, std::string_view keyword, bool add, const void *entry) {
  const auto &e = *static_cast<const NATPrefixEntry *>(entry);
  const int length = static_cast<int>(keyword.size());
  if (!add)
    return out->AppendPrintf("%.*s %d %s\n", length, keyword.data(), static_cast<int>(e.vnet),
                             e.prefix);
  return out->AppendPrintf("%.*s %u %s\n", length, keyword.data(), e.vnet, e.prefix);
}

}  // namespace

// The compact rewrite never writes prefixes.
constexpr RecordFamily kNatPrefixRecords = {
    .addType = NXC_REC_ADD_NAT_PREFIX,
    .addKeyword = "add_nat_prefix",
    .removeKeyword = "remove_nat_prefix",
    .keyKind = HashTable::Kind::kString,
    .parse = NatPrefixRecordParseFunct,
    .format = FormatPrefix,
    .free = NetCfgPrefixFreeEntry,
    .sortForRewrite = nullptr,
    .prefetch = nullptr,
};

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgAddNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                      const char *prefix, const char * /*desc*/,
                                      int32_t /*descLen*/) noexcept {
  static constexpr char kFn[] = "NXCNetCfgAddNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForPrefix(cache, vnet, prefix, kFn);
  if (!db) return false;
  if (HasPrefix(db, vnet, prefix)) return true;
  if (!CheckRecordText(kFn, "NAT prefix", prefix, RecordText::kWord, kPrefixSize - 1))
    return false;
  if (!NetCfgHashAddNATPrefix(db, vnet, prefix)) {
    NXCLog(LOG_ERR, kFn, "Failed to add prefix: %s to record", prefix);
    return false;
  }
  int err = 0;
  if (!db->readOnly && !AppendPrefixRecord(db, NXC_REC_ADD_NAT_PREFIX, vnet, prefix, &err)) {
    // The prefix stays in the cache: only the journal misses it.
    NXCLog(LOG_ERR, kFn, "Failed to add prefix record");
    return false;
  }
  db->changed = true;
  return true;
}

extern "C" bool NXCNetCfgRemoveNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         const char *prefix) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForPrefix(cache, vnet, prefix, kFn);
  if (!db || !HasPrefix(db, vnet, prefix)) return false;
  CPtr<char> name(strdup(prefix));  // prefix may be the entry's own text
  if (!name) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return false;
  }
  int err = 0;
  if (!NetCfgHashRemoveNATPrefix(db, vnet, name.get())) {
    NXCLog(LOG_ERR, kFn, "Failed to remove NAT prefix for %s from hash table", name.get());
  } else if (db->readOnly ||
             AppendPrefixRecord(db, NXC_REC_REMOVE_NAT_PREFIX, vnet, name.get(), &err)) {
    db->changed = true;
    return true;
  } else {
    NXCLog(LOG_ERR, kFn, "Failed to remove NAT prefix for %s from database file, error: %s",
           name.get(), strerror(err));
  }
  if (!HasPrefix(db, vnet, name.get()) && !NetCfgHashAddNATPrefix(db, vnet, name.get()))
    NXCLog(LOG_ERR, kFn, "Failed to add back NAT prefix for %s from database file, error: %s",
           name.get(), strerror(err));
  return false;
}

extern "C" bool NXCNetCfgLookupNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         const char *prefix) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLookupNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForPrefix(cache, vnet, prefix, kFn);
  if (!db) return false;
  const RecordTable<NATPrefixEntry> &t = db->prefixes[vnet];
  if (!t.exists()) {
    NXCLog(LOG_ERR, kFn, "List of prefix is empty");
    return false;
  }
  NATPrefixEntry *e = t.Find(StrKey(prefix));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find prefix entry: %s in hash: %p", prefix, (void *)t.hash());
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Found prefix entry: %p for prefix: %s", (void *)e, prefix);
  return true;
}

extern "C" bool NXCNetCfgRemoveAllNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                            bool writeRecords) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAllNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  RecordTable<NATPrefixEntry> *t = &db->prefixes[vnet];
  if (!t->exists()) return true;
  bool ok = !writeRecords || AppendRemovals(db, NXC_REC_REMOVE_NAT_PREFIX, t->hash());
  t->Clear();
  return ok;
}
