// bridge_mappings.cpp - host adapter name to vnet (0..255, or -1 for no
// vnet), one table for all vnets, each change appended to the database file
// and undone in the cache when the write fails.
#include <stdlib.h>
#include <string.h>

#include "base/text_sizes.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr int32_t kAllAdapters = -100;

NXCNetworkConfigurationDB *CacheForAdapter(NXCNetworkConfigurationDB *cache, const char *adapter,
                                           const char *fn) {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, fn, "Database cache is not loaded");
    return nullptr;
  }
  if (!adapter || strlen(adapter) >= kHostAdapterNameSize) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return nullptr;
  }
  return db;
}

BridgeMappingEntry *FindMapping(NXCNetworkConfigurationDB *db, const char *adapter) {
  HashTable *t = db->bridgeMappings.table;
  return t ? static_cast<BridgeMappingEntry *>(t->Lookup(StrKey(adapter))) : nullptr;
}

bool Selected(int32_t wanted, int32_t mapped, bool exclude) {
  if (wanted == kAllAdapters) return true;
  return exclude ? mapped != wanted : mapped == wanted;
}

// A zeroed host adapter list entry for a mapped adapter.
NXC_HostAdapter *NewListEntry(const BridgeMappingEntry &m) {
  auto *a = static_cast<NXC_HostAdapter *>(calloc(1, sizeof(NXC_HostAdapter)));
  if (!a) return nullptr;
  a->version = 1;
  a->netId.version = NXC_NETID_VERSION;
  a->netId.type = NXC_NETID_TYPE_VNET;
  a->netId.vnet = static_cast<uint32_t>(m.vnet);
  memcpy(a->name, m.adapter, strlen(m.adapter) + 1);
  memcpy(a->mappingName, m.adapter, strlen(m.adapter) + 1);
  return a;
}

}  // namespace

bool NetCfgHashAddBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter, int32_t vnet) {
  static constexpr char kFn[] = "NetCfgHashAddBridgeMapping";
  RecordTable *t = &db->bridgeMappings;
  auto *entry = static_cast<BridgeMappingEntry *>(calloc(1, sizeof(BridgeMappingEntry)));
  if (!entry || !RecordTableEnsure(t, HashTable::Kind::kString, NetCfgBridgeMappingFreeEntry)) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    free(entry);
    return false;
  }
  *entry = {vnet, strdup(adapter)};
  if (!entry->adapter) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    NetCfgBridgeMappingFreeEntry(entry);
    return false;
  }
  if (t->table->Lookup(StrKey(adapter)))
    NXCLog(LOG_INFO2, kFn, "Bridge mapping entry already exists, deleting existing entry");
  return RecordTableReplace(t, StrKey(entry->adapter), entry, kFn);
}

bool NetCfgHashRemoveBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter) {
  RecordTable *t = &db->bridgeMappings;
  if (!t->table) return false;
  RecordTableInvalidate(t);
  return t->table->Delete(StrKey(adapter));
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgAddHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                               const char *adapter, int32_t vnet,
                                               bool restoring) noexcept {
  static constexpr char kFn[] = "NXCNetCfgAddHostAdapterMapping";
  NXCNetworkConfigurationDB *db = CacheForAdapter(cache, adapter, kFn);
  if (!db || !CheckRecordText(kFn, "host adapter name", adapter, RecordText::kWord)) return false;
  const BridgeMappingEntry *existing = FindMapping(db, adapter);
  bool hadOld = existing != nullptr;
  int32_t oldVnet = hadOld ? existing->vnet : 0;
  if (hadOld && oldVnet == vnet) {
    NXCLog(LOG_INFO2, kFn, "New and old value vnet in the configuration are same: %d for adapter: %s",
           vnet, adapter);
    return true;
  }
  BridgeMappingEntry added = {vnet, const_cast<char *>(adapter)};
  if (!NetCfgHashAddBridgeMapping(db, adapter, vnet)) {
    NXCLog(LOG_ERR, kFn, "Failed to add Bridge mapping for adapter: %s to vnet: %d", adapter, vnet);
    return false;
  }
  bool ok = true;
  int err = 0;
  // A moved adapter's removal and its new mapping reach the file together.
  if (!db->readOnly &&
      !(hadOld ? AppendRecordsOf(db, {{NXC_REC_REMOVE_BRIDGE_MAPPING, &added},
                                      {NXC_REC_ADD_BRIDGE_MAPPING, &added}}, &err)
               : AppendRecordsOf(db, {{NXC_REC_ADD_BRIDGE_MAPPING, &added}}, &err))) {
    if (hadOld)
      NXCLog(LOG_ERR, kFn,
             "Failed to remove bridge mapping for adapter: %s To vnet: %d from database file, error: %s",
             adapter, oldVnet, strerror(err));
    else
      NXCLog(LOG_ERR, kFn,
             "Failed to write bridge for adapter: %s To vnet: %d to database file, error: %s",
             adapter, vnet, strerror(err));
    ok = false;
  }
  RecordTableInvalidate(&db->bridgeMappings);
  if (ok || restoring) return ok;
  // The failed write left the file as it was: only the table is undone.
  if (hadOld) {
    if (!NetCfgHashAddBridgeMapping(db, adapter, oldVnet))
      NXCLog(LOG_ERR, kFn, "Failed to restore previous values of Bridge mapping adapter: %s, vnet: %d",
             adapter, oldVnet);
  } else if (!NetCfgHashRemoveBridgeMapping(db, adapter)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove newly added record, adapter: %s, vnet:%d", adapter, vnet);
  }
  return false;
}

extern "C" bool NXCNetCfgRemoveHostAdapterMapping(NXCNetworkConfigurationDB *cache,
                                                  const char *adapter) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveHostAdapterMapping";
  NXCNetworkConfigurationDB *db = CacheForAdapter(cache, adapter, kFn);
  if (!db) return false;
  int32_t vnet = 0;
  if (!NXCNetCfgLookupVnetForHostAdapter(db, adapter, &vnet)) return false;
  char name[kHostAdapterNameSize];
  memcpy(name, adapter, strlen(adapter) + 1);  // adapter may be the entry's own text
  BridgeMappingEntry removed = {vnet, name};
  if (!NetCfgHashRemoveBridgeMapping(db, name)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove Bridge mapping for adapter: %s from hash table", name);
    NXCLog(LOG_ERR, kFn, "Removing Bridge mapping failed");
    return false;
  }
  if (db->readOnly || AppendRecordsOf(db, {{NXC_REC_REMOVE_BRIDGE_MAPPING, &removed}})) {
    db->changed = true;
    return true;
  }
  NXCLog(LOG_ERR, kFn, "Failed to remove Bridge mapping for adapter: %s from database file", name);
  if (!NetCfgHashAddBridgeMapping(db, name, vnet))
    NXCLog(LOG_ERR, kFn, "Failed to restore previous values of Bridge mapping, adapter: %s, vnet: %d",
           name, vnet);
  NXCLog(LOG_ERR, kFn, "Removing Bridge mapping failed");
  return false;
}

extern "C" bool NXCNetCfgLookupVnetForHostAdapter(NXCNetworkConfigurationDB *cache,
                                                  const char *adapter, int32_t *vnet) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLookupVnetForHostAdapter";
  NXCNetworkConfigurationDB *db = CacheForAdapter(cache, adapter, kFn);
  if (!db) return false;
  HashTable *t = db->bridgeMappings.table;
  if (!t) {
    NXCLog(LOG_ERR, kFn, "List of Bridge mappings is empty");
    return false;
  }
  auto *e = static_cast<BridgeMappingEntry *>(t->Lookup(StrKey(adapter)));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find mapping for adapter: %s in hash: %p", adapter, (void *)t);
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Found Bridge mapping entry: %p for adapter: %s", (void *)e, adapter);
  if (vnet) *vnet = e->vnet;
  return true;
}

extern "C" bool NXCNetCfgLookupHostAdaptersForVnet(NXCNetworkConfigurationDB *cache, int32_t vnet,
                                                   uint32_t *count, NXC_HostAdapter **list,
                                                   bool exclude) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLookupHostAdaptersForVnet";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db || !count || !list) {
    NXCLog(LOG_ERR, kFn, db ? "Invalid arguments" : "Database cache is not loaded");
    return false;
  }
  RecordTable *t = &db->bridgeMappings;
  if (!t->table || t->table->Count() == 0) {
    NXCLog(LOG_INFO2, kFn, "List of bridge mappings is empty");
    *count = 0;
    *list = nullptr;
    return true;
  }
  if (!RecordTableBuildArray(t)) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return false;
  }
  NXC_HostAdapter *head = nullptr;
  NXC_HostAdapter *tail = nullptr;
  uint32_t n = 0;
  for (size_t i = 0; i < t->arrayCount; ++i) {
    const auto &m = *static_cast<const BridgeMappingEntry *>(t->array[i]);
    if (!Selected(vnet, m.vnet, exclude)) continue;
    if (strlen(m.adapter) >= kHostAdapterNameSize) {
      NXCLog(LOG_ERR, kFn, "Adapter: %s is longer than expected, skipping", m.adapter);
      continue;
    }
    NXC_HostAdapter *a = NewListEntry(m);
    if (!a) {
      NXCLog(LOG_ERR, kFn, "Memory allocation error");
      NXCFreeHostAdapList(&head);
      return false;
    }
    NXCLog(LOG_INFO2, kFn, "Entry in Array: %p", (void *)a);
    (tail ? tail->next : head) = a;
    tail = a;
    ++n;
  }
  *count = n;
  *list = head;
  return true;
}
