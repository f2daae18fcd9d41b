// bridge_mappings.cpp - the bridge mapping records: host adapter name to
// vnet (0..255, or -1 for no vnet), one table for all vnets. The family's
// entry and descriptor, the in-memory changes that loading, an import and
// undo make, and the NXCNetCfg* calls, each change appended to the
// database file and undone in the cache when the write fails.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "netcfg/netcfg_priv.h"

struct BridgeMappingEntry {
  int32_t vnet;   // 0..255 or -1
  char *adapter;  // the table key
};

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
  return db->bridgeMappings.Find(StrKey(adapter));
}

[[nodiscard]] bool Selected(int32_t wanted, int32_t mapped, bool exclude) {
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

void NetCfgBridgeMappingFreeEntry(void *p) {
  auto *e = static_cast<BridgeMappingEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgBridgeMappingFreeEntry", "Invalid arguments");  // deliberately logged
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgBridgeMappingFreeEntry", "Free called over host adapter: %s, vnet: %d",
         e->adapter ? e->adapter : "", e->vnet);
  free(e->adapter);
  free(e);
}

}  // namespace

[[nodiscard]]
bool NetCfgHashAddBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter, int32_t vnet) {
  static constexpr char kFn[] = "NetCfgHashAddBridgeMapping";
  RecordTable<BridgeMappingEntry> *t = &db->bridgeMappings;
  auto *entry = static_cast<BridgeMappingEntry *>(calloc(1, sizeof(BridgeMappingEntry)));
  if (!entry || !t->Create(kBridgeMappingRecords)) {
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
  if (t->Find(StrKey(adapter)))
    NXCLog(LOG_INFO2, kFn, "Bridge mapping entry already exists, deleting existing entry");
  return t->Put(StrKey(entry->adapter), entry, kFn);
}

namespace {

[[nodiscard]]
bool NetCfgHashRemoveBridgeMapping(NXCNetworkConfigurationDB *db, const char *adapter) {
  return db->bridgeMappings.Remove(StrKey(adapter));
}

// ---- The record family -------------------------------------------------------

[[nodiscard]]
bool BridgeMappingRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type,
                                   std::string_view rest) {
  std::string_view token;
  char adapter[kHostAdapterNameSize];
  if (!NextToken(&rest, &token) || !CopyToken(token, adapter)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host adapter or invalid host adpater name");  // sic
    return false;
  }
  if (type == NXC_REC_REMOVE_BRIDGE_MAPPING) {
    if (!db->bridgeMappings.exists()) {
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

[[nodiscard]]
bool FormatBridgeMapping(ByteBuffer *out, std::string_view keyword, bool add, const void *entry) {
  const auto &e = *static_cast<const BridgeMappingEntry *>(entry);
  const int length = static_cast<int>(keyword.size());
  if (!add) return out->AppendPrintf("%.*s %s\n", length, keyword.data(), e.adapter);
  return out->AppendPrintf("%.*s %s %d\n", length, keyword.data(), e.adapter, e.vnet);
}

// By vnet as a signed number (so -1 first), then by adapter name.
void SortBridgeMappings(void **entries, size_t count) {
  std::sort(entries, entries + count, [](void *a, void *b) {
    const auto &x = *static_cast<const BridgeMappingEntry *>(a);
    const auto &y = *static_cast<const BridgeMappingEntry *>(b);
    return x.vnet != y.vnet ? x.vnet < y.vnet : strcmp(x.adapter, y.adapter) < 0;
  });
}

}  // namespace

constexpr RecordFamily kBridgeMappingRecords = {
    .addType = NXC_REC_ADD_BRIDGE_MAPPING,
    .addKeyword = "add_bridge_mapping",
    .removeKeyword = "remove_bridge_mapping",
    .keyKind = HashTable::Kind::kString,
    .parse = BridgeMappingRecordParseFunct,
    .format = FormatBridgeMapping,
    .free = NetCfgBridgeMappingFreeEntry,
    .sortForRewrite = SortBridgeMappings,
    .prefetch = nullptr,
};

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
  const RecordTable<BridgeMappingEntry> &t = db->bridgeMappings;
  if (!t.exists()) {
    NXCLog(LOG_ERR, kFn, "List of Bridge mappings is empty");
    return false;
  }
  BridgeMappingEntry *e = t.Find(StrKey(adapter));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find mapping for adapter: %s in hash: %p", adapter,
           (void *)t.hash());
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
  RecordTable<BridgeMappingEntry> *t = &db->bridgeMappings;
  if (t->Count() == 0) {
    NXCLog(LOG_INFO2, kFn, "List of bridge mappings is empty");
    *count = 0;
    *list = nullptr;
    return true;
  }
  if (!t->BuildArray()) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return false;
  }
  NXC_HostAdapter *head = nullptr;
  NXC_HostAdapter *tail = nullptr;
  uint32_t n = 0;
  for (size_t i = 0; i < t->ArrayCount(); ++i) {
    const BridgeMappingEntry &m = *t->At(i);
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
