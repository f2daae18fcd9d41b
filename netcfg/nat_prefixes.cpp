// nat_prefixes.cpp - NAT66 prefixes per vnet, keyed by prefix text.
//
// Unlike the other record families, prefixes live only in the appended
// journal: the compact rewrite does not write them, and a failed write of an
// added prefix keeps it in the cache.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr size_t kMaxPrefixLength = 63;

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
bool AppendPrefixRecord(NXCNetworkConfigurationDB *db, uint32_t type, uint32_t vnet,
                        const char *prefix, int *error) {
  NATPrefixEntry entry = {vnet, const_cast<char *>(prefix)};
  CPtr<char> text(FormatRecord(type, &entry));
  if (!text) {
    *error = ENOMEM;
    return false;
  }
  return AppendChange(db, text.get(), strlen(text.get()), error);
}

bool HasPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  HashTable *t = db->prefixes[vnet].table;
  return t && t->Lookup(StrKey(prefix));
}

}  // namespace

bool NetCfgHashAddNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  static constexpr char kFn[] = "NetCfgHashAddNATPrefix";
  RecordTable *t = VnetRecordTable(db->prefixes, vnet, NetCfgPrefixFreeEntry, kFn);
  auto *entry = static_cast<NATPrefixEntry *>(calloc(1, sizeof(NATPrefixEntry)));
  if (!t || !entry) {
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
  if (t->table->Lookup(StrKey(prefix)))
    NXCLog(LOG_INFO2, kFn, "Prefix entry already exists, deleting existing entry");
  return RecordTableReplace(t, StrKey(entry->prefix), entry, kFn);
}

bool NetCfgHashRemoveNATPrefix(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *prefix) {
  HashTable *t = db->prefixes[vnet].table;
  return t && t->Delete(StrKey(prefix));
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgAddNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                      const char *prefix, const char * /*desc*/,
                                      int32_t /*descLen*/) noexcept {
  static constexpr char kFn[] = "NXCNetCfgAddNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForPrefix(cache, vnet, prefix, kFn);
  if (!db) return false;
  if (HasPrefix(db, vnet, prefix)) return true;
  // The loader reads a prefix into 64 bytes.
  if (!CheckRecordText(kFn, "NAT prefix", prefix, RecordText::kWord, kMaxPrefixLength))
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
  HashTable *t = db->prefixes[vnet].table;
  if (!t) {
    NXCLog(LOG_ERR, kFn, "List of prefix is empty");
    return false;
  }
  void *e = t->Lookup(StrKey(prefix));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find prefix entry: %s in hash: %p", prefix, (void *)t);
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Found prefix entry: %p for prefix: %s", e, prefix);
  return true;
}

extern "C" bool NXCNetCfgRemoveAllNATPrefix(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                            bool writeRecords) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAllNATPrefix";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  RecordTable *t = &db->prefixes[vnet];
  if (!t->table) return true;
  bool ok = !writeRecords || AppendRemovals(db, NXC_REC_REMOVE_NAT_PREFIX, t->table);
  RecordTableDestroy(t);
  return ok;
}
