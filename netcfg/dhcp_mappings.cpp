// dhcp_mappings.cpp - the DHCP MAC-to-IP records, the static leases: per
// vnet, MAC address (canonical form) to IPv4 address. The family's entry and
// descriptor, the in-memory changes that loading and undo make, and the
// NXCNetCfg* calls, each change appended to the database file and undone
// in the cache when the write fails.
#include <stdlib.h>
#include <string.h>

#include <array>

#include "netcfg/dhcp_mappings.h"

#include "base/text_sizes.h"
#include "netcfg/netcfg_priv.h"

// Both texts are held in the entry: a canonical MAC has a fixed length,
// and an address the records hold fits kIPTextSize.
struct DHCPMACToIPEntry {
  char mac[nxc::kMACTextSize];  // canonical form, the table key
  char ip[nxc::kIPTextSize];
  uint8_t vnet;
  uint8_t ipLength;  // of ip, measured once
};
static_assert(kNumVnets <= 256, "a vnet number fits the entry's byte");
static_assert(sizeof(DHCPMACToIPEntry) <= 40, "the address length takes no room of its own");

namespace nxc {

namespace {

// Fills the entry of a mapping of a canonical MAC; false when the address
// does not fit.
[[nodiscard]] bool MakeMapping(uint32_t vnet, const char (&mac)[kMACTextSize], const char *ip,
                               DHCPMACToIPEntry *e) {
  const size_t length = strlen(ip);
  if (length >= sizeof e->ip) return false;
  e->vnet = static_cast<uint8_t>(vnet);
  e->ipLength = static_cast<uint8_t>(length);
  memcpy(e->mac, mac, sizeof e->mac);
  memcpy(e->ip, ip, length + 1);
  return true;
}

DHCPMACToIPEntry *FindMapping(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
  return db->dhcp[vnet].Find(StrKey(mac));
}

// The table key of a MAC as a caller wrote it; false (logged) when invalid.
[[nodiscard]] bool CanonicalMac(const char *mac, char (&out)[kMACTextSize]) {
  return mac && NXCMACStandardizeFormat(mac, out);
}

void NetCfgDHCPMACToIPFreeEntry(void *p) {
  auto *e = static_cast<DHCPMACToIPEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgDHCPMACToIPFreeEntry", "Invalid arguments");  // deliberately logged
    return;
  }
  // Checked here first: a whole table's entries are freed at once.
  if (nxcContext.logMask & LOG_INFO2)
    NXCLog(LOG_INFO2, "NetCfgDHCPMACToIPFreeEntry", "Free called over vnet; %d, mac: %s, ip: %s",
           static_cast<int>(e->vnet), e->mac, e->ip);
  FreeEntry(e);
}

[[nodiscard]]
bool NetCfgHashAddDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet,
                              const char (&mac)[kMACTextSize], const char *ip) {
  static constexpr char kFn[] = "NetCfgHashAddDHCPMACToIP";
  RecordTable<DHCPMACToIPEntry> *t = &db->dhcp[vnet];
  bool created = t->CreateForVnet(kDhcpMappingRecords, vnet, kFn);
  auto *entry = static_cast<DHCPMACToIPEntry *>(created ? AllocEntry(sizeof(DHCPMACToIPEntry)) : nullptr);
  if (!entry || !MakeMapping(vnet, mac, ip, entry)) {
    FreeEntry(entry);
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    return false;
  }
  return t->Put(StrKey(entry->mac), entry, kFn, "DHCP entry already exists, deleting existing entry");
}

[[nodiscard]]
bool NetCfgHashRemoveDHCPMACToIP(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
  return db->dhcp[vnet].Remove(StrKey(mac));
}

// ---- The record family -------------------------------------------------------

// Copies a MAC as the writers write it (six pairs of upper-case hex digits
// joined by colons: the canonical form already) into mac; false, leaving
// the text to the full parse, for any other form.
[[nodiscard]] bool TakeWrittenMac(std::string_view text, char (&mac)[kMACTextSize]) {
  static constexpr auto kUpperHex = [] {
    std::array<bool, 256> digit{};
    for (const char c : std::string_view("0123456789ABCDEF")) digit[static_cast<unsigned char>(c)] = true;
    return digit;
  }();
  auto hex = [&](size_t i) { return kUpperHex[static_cast<unsigned char>(text[i])]; };
  if (text.size() != kMACTextSize - 1) return false;
  for (size_t i = 0; i < text.size(); i += 3) {
    if (!hex(i) || !hex(i + 1) || (i + 2 < text.size() && text[i + 2] != ':')) return false;
  }
  memcpy(mac, text.data(), text.size());
  mac[text.size()] = '\0';
  return true;
}

[[nodiscard]]
bool DhcpMacRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
    return false;
  }
  char macText[32];
  char mac[kMACTextSize];
  if (!NextToken(&rest, &token) ||
      (!TakeWrittenMac(token, mac) &&
       (!CopyToken(token, macText) || !NXCMACStandardizeFormat(macText, mac)))) {
    NXCLog(LOG_WRN, __func__, "Failed to parse MAC address or invalid MAC address");
    return false;
  }
  if (type == NXC_REC_REMOVE_DHCP_MAC_TO_IP) {
    if (!NetCfgHashRemoveDHCPMACToIP(db, vnet, mac)) {
      NXCLog(LOG_WRN, __func__, "Failed to %s DHCP MAC to IP mapping in hash table", "remove");
      return false;
    }
    return true;
  }
  char ip[kIPTextSize];
  if (!CopyToken(rest, ip) || !NXCIsValidIP(ip)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse IP address or invalid IP address");
    return false;
  }
  if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, ip)) {
    NXCLog(LOG_WRN, __func__, "Failed to %s DHCP MAC to IP mapping in hash table", "add");
    return false;
  }
  return true;
}

// The MAC as written: the writers write the table key's form.
void PrefetchMapping(NXCNetworkConfigurationDB *db, std::string_view rest) {
  std::string_view vnet, mac;
  if (!NextToken(&rest, &vnet) || !NextToken(&rest, &mac)) return;
  const uint32_t v = LeadingNumber(vnet);
  if (v < kNumVnets && db->dhcp[v].exists()) db->dhcp[v].hash()->Prefetch(mac);
}

[[nodiscard]]
bool FormatMapping(ByteBuffer *out, std::string_view keyword, bool add, const void *entry) {
  const auto &e = *static_cast<const DHCPMACToIPEntry *>(entry);
  const uint32_t vnet = e.vnet;
  if (!add) return out->AppendAll(keyword, ' ', vnet, ' ', e.mac, '\n');
  return out->AppendAll(keyword, ' ', vnet, ' ', e.mac, ' ', e.ip, '\n');
}

constexpr char kEnumFn[] = "NXCNetCfgEnumDHCPMACToIP";
constexpr EnumTexts kEnumTexts = {
    .noTable = "List of mappings is empty",
    .arrayBuilt = "Created array of DHCP mappings",
    .atEnd = "No mappings to enumerate",
};

}  // namespace

// A rewrite writes each vnet's mappings in the order of its table.
constexpr RecordFamily kDhcpMappingRecords = {
    .addType = NXC_REC_ADD_DHCP_MAC_TO_IP,
    .addKeyword = "add_dhcp_mac_to_ip",
    .removeKeyword = "remove_dhcp_mac_to_ip",
    .keyKind = HashTable::Kind::kString,
    .parse = DhcpMacRecordParseFunct,
    .format = FormatMapping,
    .free = NetCfgDHCPMACToIPFreeEntry,
    .sortForRewrite = nullptr,
    .prefetch = PrefetchMapping,
};

bool EnumDhcpMappings(uint32_t vnet, DhcpMappingVisitFn visit, void *context,
                      RecordTableBase::EnumState *found) {
  NXCNetworkConfigurationDB *db = CacheForVnet(nullptr, vnet, kEnumFn);
  if (!db) return true;
  RecordTable<DHCPMACToIPEntry> *t = &db->dhcp[vnet];
  *found = t->SavedEnum();
  // An entry's canonical MAC and address always fit the buffers of
  // kMACTextSize and kIPTextSize bytes: none ends the enumeration early.
  return t->Each(kEnumTexts, kEnumFn, [&](const DHCPMACToIPEntry *e) {
    return visit(context, std::string_view(e->mac, kMACTextSize - 1),
                 std::string_view(e->ip, e->ipLength));
  });
}

void RestoreDhcpEnum(uint32_t vnet, const RecordTableBase::EnumState &found) {
  NXCNetworkConfigurationDB *db = ResolveCache(nullptr);
  if (db && vnet < kNumVnets) db->dhcp[vnet].RestoreEnum(found);
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
  DHCPMACToIPEntry added;
  if (!MakeMapping(vnet, mac, ip, &added)) return false;  // the address was checked
  if (!NetCfgHashAddDHCPMACToIP(db, vnet, mac, ip)) {
    NXCLog(LOG_ERR, kFn, "Failed to add DHCP address mapping for MAC: %s To IP: %s", mac, ip);
    return false;
  }
  // A replaced mapping's removal and the new one reach the file together.
  bool ok = db->readOnly ||
            (hadOld ? AppendRecordsOf(db, {{NXC_REC_REMOVE_DHCP_MAC_TO_IP, &added},
                                           {NXC_REC_ADD_DHCP_MAC_TO_IP, &added}})
                    : AppendRecordsOf(db, {{NXC_REC_ADD_DHCP_MAC_TO_IP, &added}}));
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
  DHCPMACToIPEntry removed;
  if (!MakeMapping(vnet, mac, oldIP, &removed)) return false;  // both come from the table
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
  const RecordTable<DHCPMACToIPEntry> &t = db->dhcp[vnet];
  if (!t.exists()) {
    NXCLog(LOG_ERR, kFn, "List of DHCP mappings is empty");
    return false;
  }
  DHCPMACToIPEntry *e = t.Find(StrKey(mac));
  if (!e) {
    NXCLog(LOG_ERR, kFn, "Cannot find mapping for MAC: %s in hash: %p", mac, (void *)t.hash());
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
  static constexpr const char *kFn = kEnumFn;
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db || !index) return false;
  DHCPMACToIPEntry *e = db->dhcp[vnet].Enum(*index, kEnumTexts, kFn);
  if (!e) return false;
  if (!mac || kMACTextSize > macSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for MAC address: %s", macSize, e->mac);
    return false;
  }
  if (!ip || e->ipLength + size_t{1} > ipSize) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for IP address: %s", ipSize, e->ip);
    return false;
  }
  memcpy(mac, e->mac, kMACTextSize);
  memcpy(ip, e->ip, e->ipLength + size_t{1});
  ++*index;
  return true;
}

extern "C" bool NXCNetCfgRemoveAllDHCPMACToIPMapping(NXCNetworkConfigurationDB *cache,
                                                     uint32_t vnet, bool writeRecords) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAllDHCPMACToIPMapping";
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kFn);
  if (!db) return false;
  RecordTable<DHCPMACToIPEntry> *t = &db->dhcp[vnet];
  if (!t->exists()) return true;
  bool ok = true;
  if (writeRecords && !AppendRemovals(db, NXC_REC_REMOVE_DHCP_MAC_TO_IP, t->hash())) {
    NXCLog(LOG_WRN, kFn, "All the DHCP mappings could not be deleted");
    ok = false;
  }
  t->Clear();
  return ok;
}
