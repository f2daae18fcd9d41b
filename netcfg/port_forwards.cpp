// port_forwards.cpp - NAT port forwards: per vnet and protocol, keyed by
// host port, each change appended to the database file and undone in the
// cache when the write fails.
#include <stdlib.h>
#include <string.h>

#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr size_t kDescriptionSize = 128;

const char *ProtocolName(bool tcp) { return tcp ? "tcp" : "udp"; }

RecordTable *ProtocolTable(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp) {
  NATVnetPortFwdConfig *block = db->portFwd[vnet];
  if (!block) return nullptr;
  return tcp ? &block->tcp : &block->udp;
}

NATPortFwdEntry *FindForward(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                             uint16_t hostPort) {
  RecordTable *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->table) return nullptr;
  return static_cast<NATPortFwdEntry *>(t->table->Lookup(NumKey(hostPort)));
}

// A forward's values kept aside for an undo.
struct SavedForward {
  bool present = false;
  char vmIP[16] = "";
  uint16_t vmPort = 0;
  char description[kDescriptionSize] = "";
  bool hasDescription = false;
};

SavedForward SaveForward(const NATPortFwdEntry *e) {
  SavedForward s;
  if (!e) return s;
  s.present = CopyOut(e->vmIP, s.vmIP, sizeof s.vmIP);
  s.hasDescription = e->description && CopyOut(e->description, s.description, sizeof s.description);
  s.vmPort = e->vmPort;
  return s;
}

}  // namespace

bool NetCfgHashAddNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                             uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                             const char *description) {
  static constexpr char kFn[] = "NetCfgHashAddNATPortFwd";
  auto *entry = static_cast<NATPortFwdEntry *>(calloc(1, sizeof(NATPortFwdEntry)));
  if (!entry) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    return false;
  }
  *entry = {vnet, tcp, hostPort, strdup(vmIP), vmPort, description ? strdup(description) : nullptr};
  if (!entry->vmIP || (description && !entry->description)) {
    NXCLog(LOG_ERR, kFn, "strdup failed, possibly because of out of memory");
    NetCfgNATPortFwdFreeEntry(entry);
    return false;
  }
  if (!db->portFwd[vnet]) {
    db->portFwd[vnet] =
        static_cast<NATVnetPortFwdConfig *>(calloc(1, sizeof(NATVnetPortFwdConfig)));
    if (!db->portFwd[vnet]) {
      NXCLog(LOG_ERR, kFn, "Memory allocation error for NATVnetPortFwdConfig");
      NetCfgNATPortFwdFreeEntry(entry);
      return false;
    }
  }
  RecordTable *t = ProtocolTable(db, vnet, tcp);
  RecordTableInvalidate(t);
  if (!RecordTableEnsure(t, HashTable::Kind::kInteger, NetCfgNATPortFwdFreeEntry)) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error for NATVnetPortFwdConfig");
    NetCfgNATPortFwdFreeEntry(entry);
    return false;
  }
  if (t->table->Lookup(NumKey(hostPort)))
    NXCLog(LOG_INFO2, kFn, "NAT port forward entry already exists, deleting existing entry");
  if (!RecordTableReplace(t, NumKey(hostPort), entry, kFn)) {
    NXCLog(LOG_ERR, kFn, "Failed to insert NAT Port forward entry into hash table");
    return false;
  }
  return true;
}

bool NetCfgHashRemoveNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                                uint16_t hostPort) {
  RecordTable *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->table) {
    NXCLog(LOG_ERR, "NetCfgHashRemoveNATPortFwd", "Cannot delete port list entry from empty port list");
    return false;
  }
  RecordTableInvalidate(t);
  return t->table->Delete(NumKey(hostPort));
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgAddNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                       uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                                       const char *description, bool restoring) noexcept {
  static constexpr char kFn[] = "NXCNetCfgAddNATPortFwd";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  if (!vmIP) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  if (!CheckRecordAddress(kFn, "VM IP address", vmIP) ||
      (description && !CheckRecordText(kFn, "port forward description", description,
                                       RecordText::kRestOfLine, kDescriptionSize - 1)))
    return false;
  SavedForward old = SaveForward(FindForward(db, vnet, tcp, hostPort));
  NATPortFwdEntry added = {vnet, tcp, hostPort, const_cast<char *>(vmIP), vmPort,
                           const_cast<char *>(description)};
  bool ok = NetCfgHashAddNATPortFwd(db, vnet, tcp, hostPort, vmIP, vmPort, description);
  // A replaced forward's removal and the new one reach the file together.
  if (ok && !db->readOnly &&
      !(old.present ? AppendRecordsOf(db, {{NXC_REC_REMOVE_NAT_PORTFWD, &added},
                                           {NXC_REC_ADD_NAT_PORTFWD, &added}})
                    : AppendRecordsOf(db, {{NXC_REC_ADD_NAT_PORTFWD, &added}}))) {
    if (old.present)
      NXCLog(LOG_ERR, kFn, "Failed to remove port forward record for %s port %u", ProtocolName(tcp),
             hostPort);
    else
      NXCLog(LOG_ERR, kFn, "Failed to add port forward record for %s port %u", ProtocolName(tcp),
             hostPort);
    ok = false;
  }
  RecordTableInvalidate(ProtocolTable(db, vnet, tcp));
  if (ok || restoring) return ok;
  // The failed write left the file as it was: only the table is undone.
  if (old.present) {
    if (!NetCfgHashAddNATPortFwd(db, vnet, tcp, hostPort, old.vmIP, old.vmPort,
                                 old.hasDescription ? old.description : nullptr))
      NXCLog(LOG_ERR, kFn, "Failed to restore previous values, vnet: %u, %s, port %u, vmip: %s, vmPort: %u",
             vnet, ProtocolName(tcp), hostPort, old.vmIP, old.vmPort);
  } else if (!NetCfgHashRemoveNATPortFwd(db, vnet, tcp, hostPort)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove newly added record, vnet: %u, %s, port %u, vmip: %s, vmPort: %u",
           vnet, ProtocolName(tcp), hostPort, vmIP, vmPort);
  }
  return false;
}

extern "C" bool NXCNetCfgRemoveNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                          bool tcp, uint16_t hostPort) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveNATPortFwd";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  char vmIP[16];
  uint16_t vmPort = 0;
  char description[kDescriptionSize];
  if (!NXCNetCfgLookupNATPortFwd(db, vnet, tcp, hostPort, vmIP, sizeof vmIP, &vmPort, description,
                                 sizeof description))
    return false;
  bool hadDescription = FindForward(db, vnet, tcp, hostPort)->description != nullptr;
  NATPortFwdEntry removed = {vnet, tcp, hostPort, vmIP, vmPort, nullptr};
  if (!NetCfgHashRemoveNATPortFwd(db, vnet, tcp, hostPort)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove NAT port forward for %s port %u from hash table",
           ProtocolName(tcp), hostPort);
    return false;
  }
  int err = 0;
  if (!db->readOnly && !AppendRecordsOf(db, {{NXC_REC_REMOVE_NAT_PORTFWD, &removed}}, &err)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove NAT port forward for %s port %u from database file, error: %s",
           ProtocolName(tcp), hostPort, strerror(err));
    if (!NetCfgHashAddNATPortFwd(db, vnet, tcp, hostPort, vmIP, vmPort,
                                 hadDescription ? description : nullptr))
      NXCLog(LOG_ERR, kFn,
             "Failed to restore previous value for NAT port  forward record, vnet: %u, \"%s\", "
             "hostPort: %u, vmIP: %s vmPort: %u, desc.: %s",  // sic: two blanks
             vnet, ProtocolName(tcp), hostPort, vmIP, vmPort, hadDescription ? description : "");
    return false;
  }
  db->changed = true;
  return true;
}

extern "C" bool NXCNetCfgLookupNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                          uint16_t hostPort, char *vmIP, size_t vmIPSize,
                                          uint16_t *vmPort, char *description,
                                          size_t descriptionSize) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLookupNATPortFwd";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  RecordTable *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->table) {
    NXCLog(LOG_ERR, kFn, "List of NAT forwarded ports is empty");
    return false;
  }
  auto *e = static_cast<NATPortFwdEntry *>(t->table->Lookup(NumKey(hostPort)));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Port lookup failed");
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Port Fwd Lookup succeeded: %s:%u for %u, %s", e->vmIP, e->vmPort,
         hostPort, ProtocolName(tcp));
  if (strlen(e->vmIP) + 1 > vmIPSize || !vmIP) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer length: %zu for IP address: %s", vmIPSize, e->vmIP);
    return false;
  }
  const char *desc = e->description ? e->description : "";
  if (description && strlen(desc) + 1 > descriptionSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer length for description");
    return false;
  }
  (void)CopyOut(e->vmIP, vmIP, vmIPSize);
  if (vmPort) *vmPort = e->vmPort;
  if (description) (void)CopyOut(desc, description, descriptionSize);
  return true;
}

extern "C" bool NXCNetCfgEnumNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet, bool tcp,
                                        uint32_t *index, uint16_t *hostPort, char *vmIP,
                                        size_t vmIPSize, uint16_t *vmPort, char *description,
                                        size_t *descriptionSize) noexcept {
  static constexpr char kFn[] = "NXCNetCfgEnumNATPortFwd";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db || !index) return false;
  RecordTable *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->table) {
    NXCLog(LOG_ERR, kFn, "List of forwarded ports is empty");
    return false;
  }
  if (!t->arrayBuilt) {
    if (!RecordTableBuildArray(t)) {
      NXCLog(LOG_ERR, kFn, "Failed to create array of forwarded ports");
      return false;
    }
    NXCLog(LOG_INFO2, kFn, "Created array of forwarded ports");
  }
  if (*index >= t->arrayCount) {
    NXCLog(LOG_INFO2, kFn, "No ports to enumerate");
    return false;
  }
  auto *e = static_cast<NATPortFwdEntry *>(t->array[*index]);
  if (!vmIP || strlen(e->vmIP) + 1 > vmIPSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer length: %zu for IP address: %s", vmIPSize, e->vmIP);
    return false;
  }
  bool wantDescription = description && descriptionSize;
  // A described forward needs room for its text and two more bytes, and
  // reports its length plus two; an undescribed one reports 0.
  if (wantDescription && e->description && *descriptionSize <= strlen(e->description) + 1) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer length for description");
    return false;
  }
  if (hostPort) *hostPort = e->hostPort;
  (void)CopyOut(e->vmIP, vmIP, vmIPSize);
  if (vmPort) *vmPort = e->vmPort;
  if (wantDescription && !e->description) *descriptionSize = 0;
  if (wantDescription && e->description) {
    (void)CopyOut(e->description, description, *descriptionSize);
    *descriptionSize = strlen(e->description) + 2;
  }
  ++*index;
  return true;
}

extern "C" bool NXCNetCfgRemoveAllNATPortFwd(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                             bool tcp, bool udp, bool writeRecords) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAllNATPortFwd";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  NATVnetPortFwdConfig *block = db->portFwd[vnet];
  if (!block) return true;
  bool ok = true;
  for (bool protoTcp : {true, false}) {
    RecordTable *t = protoTcp ? &block->tcp : &block->udp;
    if (!(protoTcp ? tcp : udp) || !t->table) continue;
    if (writeRecords && !AppendRemovals(db, NXC_REC_REMOVE_NAT_PORTFWD, t->table)) {
      if (protoTcp)
        NXCLog(LOG_WRN, kFn, "All the forwarded TCP ports could not be deleted");
      else
        NXCLog(LOG_WRN, kFn, "All the forwarded UDP ports could not be deleted");
      ok = false;
    }
    RecordTableDestroy(t);
  }
  if (!block->tcp.table && !block->udp.table) {
    free(block);
    db->portFwd[vnet] = nullptr;
  }
  return ok;
}
