// dhcp_mappings.cpp - static DHCP leases: per vnet, MAC address (canonical
// form) to IPv4 address, each change appended to the database file and
// undone in the cache when the write fails.
#include <stdlib.h>
#include <string.h>

#include "base/text_sizes.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {


DHCPMACToIPEntry *FindMapping(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
  HashTable *t = db->dhcp[vnet].table;
  return t ? static_cast<DHCPMACToIPEntry *>(t->Lookup(StrKey(mac))) : nullptr;
}

// The table key of a MAC as a caller wrote it; false (logged) when invalid.
bool CanonicalMac(const char *mac, char (&out)[kMACTextSize]) {
  return mac && NXCMACStandardizeFormat(mac, out);
}

}  // namespace

bool NetCfgHashAddDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac,
                              const char *ip) {
  static constexpr char kFn[] = "NetCfgHashAddDHCPMACToIP";
  RecordTable *t = VnetRecordTable(db->dhcp, vnet, NetCfgDHCPMACToIPFreeEntry, kFn);
  auto *entry = static_cast<DHCPMACToIPEntry *>(calloc(1, sizeof(DHCPMACToIPEntry)));
  if (!t || !entry) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    free(entry);
    return false;
  }
  *entry = {vnet, strdup(mac), strdup(ip)};
  if (!entry->mac || !entry->ip) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    NetCfgDHCPMACToIPFreeEntry(entry);
    return false;
  }
  if (t->table->Lookup(StrKey(mac)))
    NXCLog(LOG_INFO2, kFn, "DHCP entry already exists, deleting existing entry");
  return RecordTableReplace(t, StrKey(entry->mac), entry, kFn);
}

bool NetCfgHashRemoveDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
  RecordTable *t = &db->dhcp[vnet];
  if (!t->table) return false;
  RecordTableInvalidate(t);
  return t->table->Delete(StrKey(mac));
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgAddDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *macText, const char *ip,
                                        bool restoring) noexcept {
  static constexpr char kFn[] = "NXCNetCfgAddDHCPMACToIP";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  char mac[kMACTextSize];
  if (!db || !ip || !CanonicalMac(macText, mac) ||
      !CheckRecordAddress(kFn, "DHCP mapping IP address", ip))
    return false;
  char oldIP[kIPTextSize] = "";
  DHCPMACToIPEntry *existing = FindMapping(db, vnet, mac);
  bool hadOld = existing && CopyOut(existing->ip, oldIP, sizeof oldIP);
  DHCPMACToIPEntry added = {vnet, mac, const_cast<char *>(ip)};
  if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, ip)) {
    NXCLog(LOG_ERR, kFn, "Failed to add DHCP address mapping for MAC: %s To IP: %s", mac, ip);
    return false;
  }
  // A replaced mapping's removal and the new one reach the file together.
  bool ok = db->readOnly ||
            (hadOld ? AppendRecordsOf(db, {{NXC_REC_REMOVE_DHCP_MAC_TO_IP, &added},
                                           {NXC_REC_ADD_DHCP_MAC_TO_IP, &added}})
                    : AppendRecordsOf(db, {{NXC_REC_ADD_DHCP_MAC_TO_IP, &added}}));
  RecordTableInvalidate(&db->dhcp[vnet]);
  if (ok) return true;
  NXCLog(LOG_ERR, kFn, "Failed to add DHCP address mapping record for MAC: %s To IP: %s", mac, ip);
  if (restoring) return false;
  // The failed write left the file as it was: only the table is undone.
  if (hadOld) {
    if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, oldIP))
      NXCLog(LOG_ERR, kFn, "Failed to restore previous values of DHCP mapping, mac: %s, ip: %s", mac,
             oldIP);
  } else if (!NetCfgHashRemoveDHCPMACToIP(db, vnet, mac)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove newly added record, %s:%s", mac, ip);
  }
  return false;
}

extern "C" bool NXCNetCfgRemoveDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                           const char *macText) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveDHCPMACToIP";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  char mac[kMACTextSize];
  if (!db || !CanonicalMac(macText, mac)) return false;
  char oldIP[kIPTextSize];
  if (!NXCNetCfgLookupDHCPMACToIP(db, vnet, mac, oldIP, sizeof oldIP)) return false;
  DHCPMACToIPEntry removed = {vnet, mac, oldIP};
  if (!NetCfgHashRemoveDHCPMACToIP(db, vnet, mac)) {
    NXCLog(LOG_ERR, kFn, "Failed to remove DHCP address mapping for MAC: %s", mac);
    return false;
  }
  if (db->readOnly || AppendRecordsOf(db, {{NXC_REC_REMOVE_DHCP_MAC_TO_IP, &removed}})) {
    db->changed = true;
    return true;
  }
  NXCLog(LOG_ERR, kFn, "Failed to remove DHCP address mapping for MAC: %s", mac);
  if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, oldIP))
    NXCLog(LOG_ERR, kFn, "Failed to restore previous values %s:%s", mac, oldIP);
  return false;
}

extern "C" bool NXCNetCfgLookupDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                           const char *macText, char *ip, size_t ipSize) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLookupDHCPMACToIP";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  char mac[kMACTextSize];
  if (!db || !CanonicalMac(macText, mac)) return false;
  HashTable *t = db->dhcp[vnet].table;
  if (!t) {
    NXCLog(LOG_ERR, kFn, "List of DHCP mappings is empty");
    return false;
  }
  auto *e = static_cast<DHCPMACToIPEntry *>(t->Lookup(StrKey(mac)));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find mapping for MAC: %s in hash: %p", mac, (void *)t);
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Found DHCP entry: %p for MAC: %s", (void *)e, mac);
  if (!CopyOut(e->ip, ip, ipSize)) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for IP address: %s", ipSize, e->ip);
    return false;
  }
  return true;
}

extern "C" bool NXCNetCfgEnumDHCPMACToIP(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                         uint32_t *index, char *mac, size_t macSize, char *ip,
                                         size_t ipSize) noexcept {
  static constexpr char kFn[] = "NXCNetCfgEnumDHCPMACToIP";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db || !index) return false;
  RecordTable *t = &db->dhcp[vnet];
  if (!t->table) {
    NXCLog(LOG_ERR, kFn, "List of mappings is empty");
    return false;
  }
  if (!t->arrayBuilt) {
    if (!RecordTableBuildArray(t)) {
      NXCLog(LOG_ERR, kFn, "Memory allocation failure");
      return false;
    }
    NXCLog(LOG_INFO2, kFn, "Created array of DHCP mappings");
  }
  if (*index >= t->arrayCount) {
    NXCLog(LOG_INFO2, kFn, "No mappings to enumerate");
    return false;
  }
  auto *e = static_cast<DHCPMACToIPEntry *>(t->array[*index]);
  if (!mac || strlen(e->mac) + 1 > macSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for MAC address: %s", macSize, e->mac);
    return false;
  }
  if (!ip || strlen(e->ip) + 1 > ipSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for IP address: %s", ipSize, e->ip);
    return false;
  }
  (void)CopyOut(e->mac, mac, macSize);
  (void)CopyOut(e->ip, ip, ipSize);
  ++*index;
  return true;
}

extern "C" bool NXCNetCfgRemoveAllDHCPMACToIPMapping(NXCNetworkConfigurationDB *cache,
                                                     uint32_t vnet, bool writeRecords) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAllDHCPMACToIPMapping";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  RecordTable *t = &db->dhcp[vnet];
  if (!t->table) return true;
  bool ok = true;
  if (writeRecords && !AppendRemovals(db, NXC_REC_REMOVE_DHCP_MAC_TO_IP, t->table)) {
    NXCLog(LOG_WRN, kFn, "All the DHCP mappings could not be deleted");
    ok = false;
  }
  RecordTableDestroy(t);
  return ok;
}
