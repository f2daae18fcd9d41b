// record_common.cpp - what every record family shares: the text of each
// record type, appending a change's records to the database file, the
// generic record table with its cached enumeration array, and the entry
// free functions.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "base/str_util.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

char *FormatRecord(uint32_t type, const void *entry) {
  const auto *answer = static_cast<const NetworkConfigDictionaryEntry *>(entry);
  const auto *fwd = static_cast<const NATPortFwdEntry *>(entry);
  const auto *dhcp = static_cast<const DHCPMACToIPEntry *>(entry);
  const auto *bridge = static_cast<const BridgeMappingEntry *>(entry);
  const auto *prefix = static_cast<const NATPrefixEntry *>(entry);
  switch (type) {
    case NXC_REC_ANSWER:
      return AllocPrint("answer %s %s\n", answer->key, answer->value);
    case NXC_REC_REMOVE_ANSWER:
      return AllocPrint("remove_answer %s\n", answer->key);
    case NXC_REC_ADD_NAT_PORTFWD:
      return AllocPrint("add_nat_portfwd %u %s %u %s %u%s%s\n", fwd->vnet, fwd->tcp ? "tcp" : "udp",
                        fwd->hostPort, fwd->vmIP, fwd->vmPort, fwd->description ? " " : "",
                        fwd->description ? fwd->description : "");
    case NXC_REC_REMOVE_NAT_PORTFWD:
      return AllocPrint("remove_nat_portfwd %u %s %u\n", fwd->vnet, fwd->tcp ? "tcp" : "udp",
                        fwd->hostPort);
    case NXC_REC_ADD_DHCP_MAC_TO_IP:
      return AllocPrint("add_dhcp_mac_to_ip %u %s %s\n", dhcp->vnet, dhcp->mac, dhcp->ip);
    case NXC_REC_REMOVE_DHCP_MAC_TO_IP:
      return AllocPrint("remove_dhcp_mac_to_ip %u %s\n", dhcp->vnet, dhcp->mac);
    case NXC_REC_ADD_BRIDGE_MAPPING:
      return AllocPrint("add_bridge_mapping %s %d\n", bridge->adapter, bridge->vnet);
    case NXC_REC_REMOVE_BRIDGE_MAPPING:
      return AllocPrint("remove_bridge_mapping %s\n", bridge->adapter);
    case NXC_REC_ADD_NAT_PREFIX:
      return AllocPrint("add_nat_prefix %u %s\n", prefix->vnet, prefix->prefix);
    case NXC_REC_REMOVE_NAT_PREFIX:
      return AllocPrint("remove_nat_prefix %d %s\n", static_cast<int>(prefix->vnet),
                        prefix->prefix);
    default:
      return nullptr;
  }
}

bool AppendToStream(FILE *stream, const char *text, int *error) {
  if (!stream) {
    *error = EBADF;
    return false;
  }
  if (fseek(stream, 0, SEEK_END) != 0 || fputs(text, stream) == EOF) {
    *error = errno;
    clearerr(stream);
    return false;
  }
  return true;
}

NXCNetworkConfigurationDB *CacheForVnet(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *fn) {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, fn, "Database cache is not loaded");
    return nullptr;
  }
  if (vnet >= kNumVnets) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return nullptr;
  }
  return db;
}

bool ChangeRecords::Add(uint32_t type, const void *entry) {
  CPtr<char> text(FormatRecord(type, entry));
  if (!failed_ && text && text_.AppendString(text.get())) {
    if (firstLength_ == 0) firstLength_ = text_.Size();
    return true;
  }
  if (!failed_)
    NXCLog(LOG_ERR, "NetCfgWriteRecordToConfig", "Memory allocation failure, error: %s",
           strerror(ENOMEM));
  failed_ = true;
  return false;
}

bool ChangeRecords::AppendTo(NXCNetworkConfigurationDB *db, int *error) {
  int ignored = 0;
  if (!error) error = &ignored;
  if (failed_) {
    *error = ENOMEM;
    return false;
  }
  if (!AppendChange(db, text_.Data(), text_.Size(), error)) {
    NXCLog(LOG_ERR, "NetCfgWriteRecordToConfig", "Failed to write record to database file: %.*s",
           static_cast<int>(firstLength_), text_.Data());
    return false;
  }
  db->changed = true;
  return true;
}

bool AppendRecordsOf(NXCNetworkConfigurationDB *db, std::initializer_list<RecordOf> records,
                     int *error) {
  ChangeRecords change;
  for (const RecordOf &r : records) (void)change.Add(r.type, r.entry);
  return change.AppendTo(db, error);
}

bool AppendRemovals(NXCNetworkConfigurationDB *db, uint32_t type, HashTable *table) {
  ChangeRecords change;
  struct Ctx {
    ChangeRecords *change;
    uint32_t type;
  } ctx{&change, type};
  (void)table->ForEach(
      [](HashKey, void *entry, void *c) {
        auto *x = static_cast<Ctx *>(c);
        return x->change->Add(x->type, entry) ? 0 : 1;
      },
      &ctx);
  return change.empty() || change.AppendTo(db);
}

bool CopyOut(const char *text, char *buffer, size_t size) {
  size_t length = strlen(text);
  if (!buffer || length + 1 > size) return false;
  memcpy(buffer, text, length + 1);
  return true;
}

bool RecordTableEnsure(RecordTable *t, HashTable::Kind kind, HashTable::FreeEntryFn freeEntry) {
  constexpr uint32_t kRecordBuckets = 512;
  if (!t->table) t->table = HashTable::Create(kind, kRecordBuckets, freeEntry);
  return t->table != nullptr;
}

void RecordTableInvalidate(RecordTable *t) {
  free(t->array);
  t->array = nullptr;
  t->arrayCount = 0;
  t->arrayBuilt = false;
}

bool RecordTableBuildArray(RecordTable *t) {
  if (t->arrayBuilt) return true;
  if (!t->table) return false;
  void **array = nullptr;
  size_t count = 0;
  if (!t->table->Snapshot(&array, &count)) return false;
  t->array = array;
  t->arrayCount = count;
  t->arrayBuilt = true;
  return true;
}

bool RecordTableReplace(RecordTable *t, HashKey key, void *entry, const char *fn) {
  HashTable::FreeEntryFn freeEntry = t->table->FreeFunction();
  RecordTableInvalidate(t);
  if (t->table->Lookup(key) && !t->table->Delete(key)) {
    NXCLog(LOG_ERR, fn, "Cannot delete existing entry");
    freeEntry(entry);
    return false;
  }
  if (!t->table->Insert(key, entry)) {
    freeEntry(entry);
    return false;
  }
  return true;
}

RecordTable *VnetRecordTable(RecordTable *tables, uint32_t vnet, HashTable::FreeEntryFn freeEntry,
                             const char *fn) {
  RecordTable *t = &tables[vnet];
  if (t->table) return t;
  if (!RecordTableEnsure(t, HashTable::Kind::kString, freeEntry)) return nullptr;
  NXCLog(LOG_INFO2, fn, "Allocated hash table for zynet: %d", static_cast<int>(vnet));
  return t;
}

void RecordTableDestroy(RecordTable *t) {
  RecordTableInvalidate(t);
  HashTable::Destroy(t->table);
  t->table = nullptr;
}

void NetCfgNATPortFwdFreeEntry(void *p) {
  auto *e = static_cast<NATPortFwdEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgNATPortFwdFreeEntry", "Invalid arguments");
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgNATPortFwdFreeEntry", "Free called over vnet: %d, hostport: %u, VM: %s:%u",
         static_cast<int>(e->vnet), e->hostPort, e->vmIP ? e->vmIP : "", e->vmPort);
  free(e->vmIP);
  free(e->description);
  free(e);
}

void NetCfgDHCPMACToIPFreeEntry(void *p) {
  auto *e = static_cast<DHCPMACToIPEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgDHCPMACToIPFreeEntry", "Invalid arguments");
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgDHCPMACToIPFreeEntry", "Free called over vnet; %d, mac: %s, ip: %s",
         static_cast<int>(e->vnet), e->mac ? e->mac : "", e->ip ? e->ip : "");
  free(e->mac);
  free(e->ip);
  free(e);
}

void NetCfgBridgeMappingFreeEntry(void *p) {
  auto *e = static_cast<BridgeMappingEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgBridgeMappingFreeEntry", "Invalid arguments");
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgBridgeMappingFreeEntry", "Free called over host adapter: %s, vnet: %d",
         e->adapter ? e->adapter : "", e->vnet);
  free(e->adapter);
  free(e);
}

void NetCfgPrefixFreeEntry(void *p) {
  auto *e = static_cast<NATPrefixEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgPrefixFreeEntry", "Invalid arguments");
    return;
  }
  NXCLog(LOG_INFO2, "NetCfgPrefixFreeEntry", "Free called over vnet; %d, prefix: %s",
         static_cast<int>(e->vnet), e->prefix ? e->prefix : "");
  free(e->prefix);
  free(e);
}

}  // namespace nxc
