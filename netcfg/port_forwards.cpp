// port_forwards.cpp - the NAT port forward records: per vnet and protocol,
// keyed by host port. The family's entry and descriptor (keywords, parse,
// format, free, rewrite order), the in-memory changes that loading and
// undo make, the NXCNetCfg* calls, each change appended to the database
// file and undone in the cache when the write fails, the walk over a
// table that the nat.conf writer reads them by, and the comparison a merge
// makes of two caches' forwards.
#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "netcfg/port_forwards.h"

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "netcfg/netcfg_priv.h"

struct NATPortFwdEntry {
  uint32_t vnet;
  bool tcp;
  uint16_t hostPort;  // the table key
  char *vmIP;
  uint16_t vmPort;
  uint8_t vmIPLength;  // strlen(vmIP); fills padding, costs no room
  char *description;   // null when there is none
};
// In a table both texts live in the entry's own allocation, behind it.
static_assert(sizeof(NATPortFwdEntry) == 32);

namespace nxc {

namespace {

constexpr size_t kDescriptionSize = 128;

const char *ProtocolName(bool tcp) { return tcp ? "tcp" : "udp"; }

RecordTable<NATPortFwdEntry> *ProtocolTable(NXCNetworkConfigurationDB *db, uint32_t vnet,
                                            bool tcp) {
  NATVnetPortFwdConfig *block = db->portFwd[vnet];
  if (!block) return nullptr;
  return tcp ? &block->tcp : &block->udp;
}

NATPortFwdEntry *FindForward(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                             uint16_t hostPort) {
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  return t ? t->Find(NumKey(hostPort)) : nullptr;
}

// A forward's values kept aside for an undo.
struct SavedForward {
  bool present = false;
  char vmIP[kIPTextSize] = "";
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

void NetCfgNATPortFwdFreeEntry(void *p) {
  auto *e = static_cast<NATPortFwdEntry *>(p);
  if (!e) {
    NXCLog(LOG_ERR, "NetCfgNATPortFwdFreeEntry", "Invalid arguments");  // deliberately logged
    return;
  }
  // Checked here first: a whole table's entries are freed at once.
  if (nxcContext.logMask & LOG_INFO2)
    NXCLog(LOG_INFO2, "NetCfgNATPortFwdFreeEntry",
           "Free called over vnet: %d, hostport: %u, VM: %s:%u", static_cast<int>(e->vnet),
           e->hostPort, e->vmIP ? e->vmIP : "", e->vmPort);
  FreeEntry(e);
}

[[nodiscard]]
bool NetCfgHashAddNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                             uint16_t hostPort, const char *vmIP, uint16_t vmPort,
                             const char *description) {
  static constexpr char kFn[] = "NetCfgHashAddNATPortFwd";
  const size_t ipSize = strlen(vmIP) + 1, descriptionSize = description ? strlen(description) + 1 : 0;
  assert(ipSize <= kIPTextSize && "callers pass checked dotted addresses only");
  auto *entry = static_cast<NATPortFwdEntry *>(AllocEntry(sizeof(NATPortFwdEntry) + ipSize + descriptionSize));
  if (!entry) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failure");
    return false;
  }
  char *texts = reinterpret_cast<char *>(entry + 1);
  *entry = {vnet, tcp, hostPort, static_cast<char *>(memcpy(texts, vmIP, ipSize)), vmPort,
            static_cast<uint8_t>(ipSize - 1),
            description ? static_cast<char *>(memcpy(texts + ipSize, description, descriptionSize))
                        : nullptr};
  if (!db->portFwd[vnet]) {
    db->portFwd[vnet] =
        static_cast<NATVnetPortFwdConfig *>(calloc(1, sizeof(NATVnetPortFwdConfig)));
    if (!db->portFwd[vnet]) {
      NXCLog(LOG_ERR, kFn, "Memory allocation error for NATVnetPortFwdConfig");
      NetCfgNATPortFwdFreeEntry(entry);
      return false;
    }
  }
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t->exists() && !t->Create(kPortForwardRecords)) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error for NATVnetPortFwdConfig");
    NetCfgNATPortFwdFreeEntry(entry);
    return false;
  }
  if (!t->Put(NumKey(hostPort), entry, kFn,
              "NAT port forward entry already exists, deleting existing entry")) {
    NXCLog(LOG_ERR, kFn, "Failed to insert NAT Port forward entry into hash table");
    return false;
  }
  return true;
}

[[nodiscard]]
bool NetCfgHashRemoveNATPortFwd(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp,
                                uint16_t hostPort) {
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->exists()) {
    NXCLog(LOG_ERR, "NetCfgHashRemoveNATPortFwd", "Cannot delete port list entry from empty port list");
    return false;
  }
  return t->Remove(NumKey(hostPort));
}

// ---- The record family -------------------------------------------------------

// "tcp" or "udp" in any case; *tcp tells which. Setting bit 5 lowers a
// letter's case and makes no other byte one of these letters.
[[nodiscard]] bool ParseProtocol(std::string_view token, bool *tcp) {
  if (token.size() != 3) return false;
  const char a = static_cast<char>(token[0] | 0x20), b = static_cast<char>(token[1] | 0x20),
             c = static_cast<char>(token[2] | 0x20);
  *tcp = a == 't' && b == 'c' && c == 'p';
  return *tcp || (a == 'u' && b == 'd' && c == 'p');
}

[[nodiscard]]
bool NatFwdRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  std::string_view token;
  uint32_t vnet = 0;
  if (!NextToken(&rest, &token) || !ParseVnet(token, &vnet)) {
    NXCLog(LOG_WRN, __func__, "Failed to extract vnet number or invalid vnet number");
    return false;
  }
  bool tcp = false;
  if (!NextToken(&rest, &token) || !ParseProtocol(token, &tcp)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse tcp/udp");
    return false;
  }
  uint16_t hostPort = 0;
  if (!NextToken(&rest, &token) || !ParsePort(token, &hostPort)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host port");
    return false;
  }
  if (type == NXC_REC_REMOVE_NAT_PORTFWD) {
    if (!NetCfgHashRemoveNATPortFwd(db, vnet, tcp, hostPort)) {
      NXCLog(LOG_WRN, __func__, "Failed to remove NAT port forward from hash table");
      return false;
    }
    return true;
  }
  char vmIP[kIPTextSize];
  if (!NextToken(&rest, &token) || !CopyToken(token, vmIP) || !NXCIsValidIP(vmIP)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse VM IP address or invalid address");
    return false;
  }
  uint16_t vmPort = 0;
  if (!NextToken(&rest, &token) || !ParsePort(token, &vmPort)) {
    NXCLog(LOG_WRN, __func__, "Failed to parse host port");  // sic: the VM port's own report
    return false;
  }
  char description[kDescriptionSize];
  bool hasDescription = !rest.empty();
  if (hasDescription && !CopyToken(rest, description)) {
    NXCLog(LOG_ERR, __func__, "Discarding description since it is too long");
    hasDescription = false;
  }
  if (!NetCfgHashAddNATPortFwd(db, vnet, tcp, hostPort, vmIP, vmPort,
                               hasDescription ? description : nullptr)) {
    NXCLog(LOG_WRN, __func__, "Failed to add NAT Port forward to hash table");
    return false;
  }
  return true;
}

void PrefetchForward(NXCNetworkConfigurationDB *db, std::string_view rest) {
  std::string_view vnet, protocol, port;
  if (!NextToken(&rest, &vnet) || !NextToken(&rest, &protocol) || !NextToken(&rest, &port)) return;
  const uint32_t v = LeadingNumber(vnet);
  const RecordTable<NATPortFwdEntry> *t =
      v < kNumVnets ? ProtocolTable(db, v, (protocol[0] | 0x20) == 't') : nullptr;
  if (t && t->exists()) t->hash()->Prefetch(LeadingNumber(port));
}

[[nodiscard]]
bool FormatForward(ByteBuffer *out, std::string_view keyword, bool add, const void *entry) {
  const auto &e = *static_cast<const NATPortFwdEntry *>(entry);
  const unsigned hostPort = e.hostPort, vmPort = e.vmPort;
  if (!add) return out->AppendAll(keyword, ' ', e.vnet, ' ', ProtocolName(e.tcp), ' ', hostPort, '\n');
  return out->AppendAll(keyword, ' ', e.vnet, ' ', ProtocolName(e.tcp), ' ', hostPort, ' ', e.vmIP,
                        ' ', vmPort, e.description ? " " : "", e.description ? e.description : "",
                        '\n');
}

// By vnet, then host port.
void SortForwards(void **entries, size_t count) {
  std::sort(entries, entries + count, [](void *a, void *b) {
    const auto &x = *static_cast<const NATPortFwdEntry *>(a);
    const auto &y = *static_cast<const NATPortFwdEntry *>(b);
    return x.vnet != y.vnet ? x.vnet < y.vnet : x.hostPort < y.hostPort;
  });
}

}  // namespace

constexpr RecordFamily kPortForwardRecords = {
    .addType = NXC_REC_ADD_NAT_PORTFWD,
    .addKeyword = "add_nat_portfwd",
    .removeKeyword = "remove_nat_portfwd",
    .keyKind = HashTable::Kind::kInteger,
    .parse = NatFwdRecordParseFunct,
    .format = FormatForward,
    .free = NetCfgNATPortFwdFreeEntry,
    .sortForRewrite = SortForwards,
    .prefetch = PrefetchForward,
};

namespace {

// ---- Enumeration -----------------------------------------------------------------

constexpr char kEnumFn[] = "NXCNetCfgEnumNATPortFwd";
constexpr EnumTexts kEnumTexts = {
    .noTable = "List of forwarded ports is empty",
    .arrayBuilt = "Created array of forwarded ports",
    .atEnd = "No ports to enumerate",
};

// Whether the enumeration can give e's VM IP in the caller's buffer of
// size bytes (none when !buffer); says so when it cannot.
[[nodiscard]] bool IPFits(const NATPortFwdEntry *e, bool buffer, size_t size) {
  if (buffer && e->vmIPLength + size_t{1} <= size) return true;
  NXCLog(LOG_ERR, kEnumFn, "Insufficient buffer length: %zu for IP address: %s", size, e->vmIP);
  return false;
}

// ---- Merge's comparison --------------------------------------------------------

size_t ForwardCount(NXCNetworkConfigurationDB *db, uint32_t vnet, bool tcp) {
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  return t ? t->Count() : 0;
}

// Every forward of one protocol of db's vnet is also in other.
[[nodiscard]]
bool ForwardsContained(NXCNetworkConfigurationDB *db, NXCNetworkConfigurationDB *other,
                       uint32_t vnet, bool tcp) {
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->exists()) return true;
  return t->hash()->ForEach(
             [](HashKey, void *entry, void *c) {
               auto *f = static_cast<NATPortFwdEntry *>(entry);
               return NXCNetCfgMergeConfigPortFwdCmpHash(
                          static_cast<NXCNetworkConfigurationDB *>(c), f->vnet, f->tcp,
                          f->hostPort, f->vmIP, f->vmPort, f->description)
                          ? 0
                          : 1;
             },
             other) == 0;
}

}  // namespace

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
                           static_cast<uint8_t>(strlen(vmIP)),
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
  char vmIP[kIPTextSize];
  uint16_t vmPort = 0;
  char description[kDescriptionSize];
  if (!NXCNetCfgLookupNATPortFwd(db, vnet, tcp, hostPort, vmIP, sizeof vmIP, &vmPort, description,
                                 sizeof description))
    return false;
  bool hadDescription = FindForward(db, vnet, tcp, hostPort)->description != nullptr;
  NATPortFwdEntry removed = {vnet, tcp, hostPort, vmIP, vmPort,
                             static_cast<uint8_t>(strlen(vmIP)), nullptr};
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
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t || !t->exists()) {
    NXCLog(LOG_ERR, kFn, "List of NAT forwarded ports is empty");
    return false;
  }
  NATPortFwdEntry *e = t->Find(NumKey(hostPort));
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
  NXCNetworkConfigurationDB *db = CacheForVnet(cache, vnet, kEnumFn);
  if (!db || !index) return false;
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t) {
    NXCLog(LOG_ERR, kEnumFn, "%s", kEnumTexts.noTable);
    return false;
  }
  NATPortFwdEntry *e = t->Enum(*index, kEnumTexts, kEnumFn);
  if (!e || !IPFits(e, vmIP != nullptr, vmIPSize)) return false;
  bool wantDescription = description && descriptionSize;
  // A described forward needs room for its text and two more bytes, and
  // reports its length plus two; an undescribed one reports 0.
  if (wantDescription && e->description && *descriptionSize <= strlen(e->description) + 1) {
    NXCLog(LOG_ERR, kEnumFn, "Insufficient buffer length for description");
    return false;
  }
  if (hostPort) *hostPort = e->hostPort;
  memcpy(vmIP, e->vmIP, e->vmIPLength + size_t{1});
  if (vmPort) *vmPort = e->vmPort;
  if (wantDescription && !e->description) *descriptionSize = 0;
  if (wantDescription && e->description) {
    (void)CopyOut(e->description, description, *descriptionSize);
    *descriptionSize = strlen(e->description) + 2;
  }
  ++*index;
  return true;
}

size_t nxc::PortForwardCount(uint32_t vnet, bool tcp) {
  NXCNetworkConfigurationDB *db = ResolveCache(nullptr);
  return db && vnet < kNumVnets ? ForwardCount(db, vnet, tcp) : 0;
}

bool nxc::EnumPortForwards(uint32_t vnet, bool tcp, PortForwardVisitFn visit, void *context) {
  NXCNetworkConfigurationDB *db = CacheForVnet(nullptr, vnet, kEnumFn);
  if (!db) return true;
  RecordTable<NATPortFwdEntry> *t = ProtocolTable(db, vnet, tcp);
  if (!t) {
    NXCLog(LOG_ERR, kEnumFn, "%s", kEnumTexts.noTable);
    return true;
  }
  bool stopped = false;
  (void)t->Each(kEnumTexts, kEnumFn, [&](const NATPortFwdEntry *e) {
    // As read into an IP buffer of kIPTextSize bytes, which ends the
    // enumeration when the address does not fit.
    if (!IPFits(e, /*buffer=*/true, kIPTextSize)) return false;
    stopped = !visit(context, e->hostPort, std::string_view(e->vmIP, e->vmIPLength), e->vmPort);
    return !stopped;
  });
  return !stopped;
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
    RecordTable<NATPortFwdEntry> *t = protoTcp ? &block->tcp : &block->udp;
    if (!(protoTcp ? tcp : udp) || !t->exists()) continue;
    if (writeRecords && !AppendRemovals(db, NXC_REC_REMOVE_NAT_PORTFWD, t->hash())) {
      if (protoTcp)
        NXCLog(LOG_WRN, kFn, "All the forwarded TCP ports could not be deleted");
      else
        NXCLog(LOG_WRN, kFn, "All the forwarded UDP ports could not be deleted");
      ok = false;
    }
    t->Clear();
  }
  if (!block->tcp.exists() && !block->udp.exists()) {
    free(block);
    db->portFwd[vnet] = nullptr;
  }
  return ok;
}

extern "C" bool NXCNetCfgMergeConfigPortFwdCmpHash(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                                   bool tcp, uint16_t hostPort, const char *vmIP,
                                                   uint16_t vmPort,
                                                   const char *description) noexcept {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db || vnet >= kNumVnets) return false;
  const NATPortFwdEntry *e = FindForward(db, vnet, tcp, hostPort);
  return e && e->vmPort == vmPort && SameText(e->vmIP, vmIP) &&
         SameText(e->description, description);
}

extern "C" bool NXCNetCfgMergeConfigPortFwdCmp(NXCNetworkConfigurationDB *cache,
                                               uint32_t vnet) noexcept {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db || !gDefaultCache || vnet >= kNumVnets) return false;
  for (bool tcp : {true, false}) {
    if (ForwardCount(db, vnet, tcp) != ForwardCount(gDefaultCache, vnet, tcp) ||
        !ForwardsContained(db, gDefaultCache, vnet, tcp))
      return false;
  }
  return true;
}
