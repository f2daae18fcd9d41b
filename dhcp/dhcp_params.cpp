// dhcp_params.cpp - a vnet's DHCP parameters: their identifiers and tables,
// checking and storing values, the defaults computed from the vnet's subnet,
// removal of the vnet's whole DHCP configuration, and the static MAC-to-IP
// mappings.
//
// A parameter is stored as the vnet answer "VNET_<n>_<config option>". An
// absent one has a default: addresses follow from HOSTONLY_SUBNET and
// HOSTONLY_NETMASK, lease times and the domain name are fixed texts.
#include <stdio.h>
#include <string.h>

#include <iterator>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using nxc::InternalEnter;
using nxc::InternalExit;

// The two exported tables, indexed by id - NXC_DHCP_PARAM_BASE.
extern "C" const char *const NXCDHCPParamIDToConfigOption[NXC_DHCP_PARAM_COUNT] = {
    "",                                   // 9538 base
    "",                                   // 9539 unused
    "",                                   // 9540 unused
    "",                                   // 9541 unused
    "DHCP_PARAM_LEASE_START_IP",          // 9542
    "DHCP_PARAM_LEASE_END_IP",            // 9543
    "",                                   // 9544 unused
    "",                                   // 9545 unused
    "DHCP_PARAM_DEFAULT_LEASE_TIME",      // 9546
    "DHCP_PARAM_MAX_LEASE_TIME",          // 9547
    "DHCP_PARAM_BROADCAST_ADDR",          // 9548
    "DHCP_PARAM_DNS_ADDR",                // 9549
    "DHCP_PARAM_ROUTERS",                 // 9550
    "DHCP_PARAM_DOMAIN_NAME",             // 9551
    "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME",  // 9552
    "DHCP_PARAM_SUB_MAX_LEASE_TIME",      // 9553
    "DHCP_PARAM_NETBIOS",                 // 9554
    "",                                   // 9555 invalid
};

extern "C" const char *const NXCDHCPParamIDToName[NXC_DHCP_PARAM_COUNT] = {
    "\"DHCP Param Base\"",
    "\"\"",
    "\"\"",
    "\"\"",
    "\"Lease Begin IP\"",
    "\"Lease End IP\"",
    "\"\"",
    "\"\"",
    "\"Default Lease Duration\"",
    "\"Max Lease Duration\"",
    "\"Broadcast Address\"",
    "\"DNS Address\"",
    "\"Routers\"",
    "\"Domain Name\"",
    "\"Subnet Default Lease Duration\"",
    "\"Subnet Max Lease Duration\"",
    "\"Netbios\"",
    "\"\"",
};

namespace {

constexpr uint32_t kFirstStored = 9539;  // first id the getter and remover look up
constexpr uint32_t kLastNamed = 9554;    // ids above use kInvalidName in messages
constexpr char kInvalidName[] = "Invalid DHCP Parameter";
constexpr char kHashField[] = "DHCP_CFG_HASH";
using nxc::kIPTextSize;
// Masks above this leave fewer than 8 addresses.
constexpr uint32_t kSmallestMask = 0xFFFFFFF8u;

enum class Kind : uint8_t { kAddress, kSeconds, kText };

// The default of an address parameter, from the vnet's network number, its
// host part (~mask) and whether the vnet uses NAT.
using AddressRule = uint32_t (*)(uint32_t net, uint32_t host, bool nat);

struct DhcpParamDef {
  uint32_t id;
  Kind kind;
  size_t maxLength = 0;             // kAddress, kText: longest value accepted
  AddressRule address = nullptr;    // kAddress
  const char *fixed = nullptr;      // kSeconds, kText: the default text
  bool shortBufferSucceeds = false; // a default that does not fit still succeeds
};

// Every parameter a value can be set for; the unused ids in between are absent.
constexpr DhcpParamDef kDhcpParams[] = {
    {.id = NXC_DHCP_PARAM_LEASE_BEGIN_IP,
     .kind = Kind::kAddress,
     .maxLength = 15,
     // The first address of the upper half of the subnet.
     .address = [](uint32_t net, uint32_t host, bool) -> uint32_t {
       return (net | (host >> 1)) + 1;
     }},
    {.id = NXC_DHCP_PARAM_LEASE_END_IP,
     .kind = Kind::kAddress,
     .maxLength = 15,
     .address = [](uint32_t net, uint32_t host, bool) -> uint32_t { return (net | host) - 1; }},
    {.id = NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC,
     .kind = Kind::kSeconds,
     .fixed = "1800",
     .shortBufferSucceeds = true},
    {.id = NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC,
     .kind = Kind::kSeconds,
     .fixed = "7200",
     .shortBufferSucceeds = true},
    {.id = NXC_DHCP_PARAM_BROADCAST_ADDR,
     .kind = Kind::kAddress,
     .maxLength = 15,
     .address = [](uint32_t net, uint32_t host, bool) -> uint32_t { return net | host; }},
    // With NAT the NAT gateway (net + 2) answers DNS, else the host (net + 1).
    {.id = NXC_DHCP_PARAM_DNS_ADDR,
     .kind = Kind::kAddress,
     .maxLength = 15,
     .address = [](uint32_t net, uint32_t, bool nat) -> uint32_t { return net + (nat ? 2 : 1); }},
    {.id = NXC_DHCP_PARAM_ROUTERS,
     .kind = Kind::kAddress,
     .maxLength = 15,
     .address = [](uint32_t net, uint32_t, bool) -> uint32_t { return net + 2; }},
    {.id = NXC_DHCP_PARAM_DOMAIN_NAME, .kind = Kind::kText, .maxLength = 63, .fixed = "localdomain"},
    {.id = NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC,
     .kind = Kind::kSeconds,
     .fixed = "1800",
     .shortBufferSucceeds = true},
    {.id = NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC,
     .kind = Kind::kSeconds,
     .fixed = "7200",
     .shortBufferSucceeds = true},
    {.id = NXC_DHCP_PARAM_NETBIOS,
     .kind = Kind::kAddress,
     .maxLength = 15,
     .address = [](uint32_t net, uint32_t, bool) -> uint32_t { return net + 2; }},
};
static_assert(std::size(kDhcpParams) == 11);

const DhcpParamDef *FindDhcpParam(uint32_t id) {
  for (const auto &p : kDhcpParams)
    if (p.id == id) return &p;
  return nullptr;
}

struct ExternalIdMapping {
  uint32_t external;
  uint32_t internal;
};

// The public API reaches only these. 13356 maps one past the tables on
// purpose, so that parameter can never be set or read through the API.
constexpr ExternalIdMapping kExternalIds[] = {
    {.external = 13350, .internal = NXC_DHCP_PARAM_LEASE_BEGIN_IP},
    {.external = 13351, .internal = NXC_DHCP_PARAM_LEASE_END_IP},
    {.external = 13354, .internal = NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC},
    {.external = 13355, .internal = NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC},
    {.external = 13356, .internal = 9556},
    {.external = 13357, .internal = NXC_DHCP_PARAM_DNS_ADDR},
    {.external = 13358, .internal = NXC_DHCP_PARAM_ROUTERS},
    {.external = 13362, .internal = NXC_DHCP_PARAM_NETBIOS},
};
static_assert(std::size(kExternalIds) == 8);

bool InStoredRange(uint32_t id) {
  return static_cast<int32_t>(id) >= static_cast<int32_t>(kFirstStored) &&
         static_cast<int32_t>(id) <= static_cast<int32_t>(NXC_DHCP_PARAM_INVALID);
}

// The storage word of an id the getter and remover accept, else null.
const char *ConfigOption(uint32_t id) {
  return InStoredRange(id) ? NXCDHCPParamIDToConfigOption[id - NXC_DHCP_PARAM_BASE] : nullptr;
}

// The display name for messages; ids outside the looked-up range or past the
// named ones read as invalid.
const char *DisplayName(uint32_t id) {
  if (!InStoredRange(id) || id > kLastNamed) return kInvalidName;
  return NXCDHCPParamIDToName[id - NXC_DHCP_PARAM_BASE];
}

// Checks value against the parameter's kind, logging the rejection.
bool ValueIsValid(const DhcpParamDef &p, const char *value, const char *fn) {
  size_t len = strlen(value);
  const char *name = DisplayName(p.id);
  switch (p.kind) {
    case Kind::kAddress:
      if (len > p.maxLength) {
        NXCLog(LOG_ERR, fn, "Invalid value length: %u, value: %s for parameter: %s",
               static_cast<unsigned>(len), value, name);
        return false;
      }
      if (!NXCIsValidIP(value)) {
        NXCLog(LOG_ERR, fn, "Invalid IP address: %s for parameter: %s", value, name);
        return false;
      }
      return true;
    case Kind::kSeconds: {
      int32_t seconds = 0;
      if (!nxc::StrToInt32(value, &seconds) || seconds < 0) {
        NXCLog(LOG_ERR, fn, "Invalid argument for time");
        return false;
      }
      return true;
    }
    case Kind::kText:
      if (len > p.maxLength) {
        NXCLog(LOG_ERR, fn, "Invalid value length: %u, value: %s for parameter: %s",
               static_cast<unsigned>(len), value, name);
        return false;
      }
      return true;
  }
  return false;
}

// Computes an address default as dotted text into text (16 bytes).
bool AddressDefault(uint32_t vnet, const DhcpParamDef &p, char (&text)[kIPTextSize],
                    const char *fn) {
  char subnetText[kIPTextSize] = "";
  char maskText[kIPTextSize] = "";
  uint32_t subnet = 0, mask = 0;
  if (!NXCGetVnetSubnetAddr(vnet, subnetText, sizeof subnetText) ||
      !NXCIPStr2Int(subnetText, &subnet)) {
    NXCLog(LOG_ERR, fn, "Cannot obtain subnet address");
    return false;
  }
  if (!NXCGetVnetSubnetMask(vnet, maskText, sizeof maskText) || !NXCIPStr2Int(maskText, &mask)) {
    NXCLog(LOG_ERR, fn, "Cannot obtain subnet netmask");
    return false;
  }
  uint32_t net = subnet & mask;
  if (mask > kSmallestMask) {
    NXCLog(LOG_ERR, fn, "The subnet: %s, mask: %s is too small, we need atleast 8 hosts",  // sic
           subnetText, maskText);
    return false;
  }
  uint32_t value = p.address(net, ~mask, NXCGetVnetUseNAT(vnet));
  (void)snprintf(text, sizeof text, "%u.%u.%u.%u", value >> 24, (value >> 16) & 0xFF,
                 (value >> 8) & 0xFF, value & 0xFF);
  return true;
}

}  // namespace

extern "C" uint32_t NXCDHCPMapIntParamID(uint32_t externalId) noexcept {
  uint32_t internal = NXC_DHCP_PARAM_INVALID;
  bool mapped = false;
  for (const auto &m : kExternalIds) {
    if (m.external != externalId) continue;
    internal = m.internal;
    mapped = true;
    break;
  }
  if (!mapped) NXCLog(LOG_ERR, __func__, "Could not map external paramID: %u", externalId);
  NXCLog(LOG_INFO2, __func__, "Mapped external ParamID: %u to internal ParamID: %u", externalId,
         internal);
  return internal;
}

extern "C" bool NXCDHCPSetParameter(uint32_t vnet, uint32_t id, const char *value) noexcept {
  static constexpr char kFn[] = "NXCDHCPSetParameter";
  InternalEnter(kFn, __LINE__);
  if (!value) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return InternalExit(kFn, __LINE__, false);
  }
  const DhcpParamDef *p = FindDhcpParam(id);
  if (!p) {
    NXCLog(LOG_ERR, kFn, "Invalid DHCP Param Name %d", static_cast<int>(id));
    return InternalExit(kFn, __LINE__, false);
  }
  if (!ValueIsValid(*p, value, kFn)) return InternalExit(kFn, __LINE__, false);
  if (!NXCSetVnetCfg(vnet, ConfigOption(id), value)) {
    NXCLog(LOG_ERR, kFn, "Setting value of DHCP parameter: %s failed for vnet: %d",
           DisplayName(id), static_cast<int>(vnet));
    return InternalExit(kFn, __LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Successfully set value of DHCP parameter: %s to value: %s for vnet: %d",
         DisplayName(id), value, static_cast<int>(vnet));
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPRemoveParameter(uint32_t vnet, uint32_t id) noexcept {
  static constexpr char kFn[] = "NXCDHCPRemoveParameter";
  InternalEnter(kFn, __LINE__);
  if (!InStoredRange(id)) {
    NXCLog(LOG_ERR, kFn, "Invalid DHCP parameter: %u", id);
    return InternalExit(kFn, __LINE__, false);
  }
  // The unused ids inside the range go on with their empty storage word.
  if (!NXCRemoveVnetCfg(vnet, ConfigOption(id))) {
    NXCLog(LOG_ERR, kFn, "Removing value of DHCP parameter: %s failed for vnet: %d",
           DisplayName(id), static_cast<int>(vnet));
    return InternalExit(kFn, __LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Removed value of DHCP parameter: %s for vnet: %d", DisplayName(id),
         static_cast<int>(vnet));
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPGetParameter(uint32_t vnet, uint32_t id, bool useDefault, char *buf,
                                    size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCDHCPGetParameter";
  InternalEnter(kFn, __LINE__);
  const char *name = DisplayName(id);
  // Outside the range there is no storage word, so nothing is found.
  const char *stored = NXCGetVnetCfg(vnet, ConfigOption(id));
  if (stored) {
    size_t need = strlen(stored) + 1;
    if (need > bufSize || !buf) {
      NXCLog(LOG_ERR, kFn,
             "Insufficient space %zu to store value of DHCP parameter: %s, required: %zu", bufSize,
             name, need);
      return InternalExit(kFn, __LINE__, false);
    }
    memcpy(buf, stored, need);
    NXCLog(LOG_INFO2, kFn, "Value of DHCP parameter: %s is: %s for vnet: %d", name, buf,
           static_cast<int>(vnet));
    return InternalExit(kFn, __LINE__, true);
  }
  // Written at the error level even when a default follows.
  NXCLog(LOG_ERR, kFn, "Value for DHCP parameter: %s not found in configuration for vnet: %d",
         name, static_cast<int>(vnet));
  if (!useDefault) return InternalExit(kFn, __LINE__, false);
  NXCLog(LOG_INFO2, kFn, "Reverting to getting default value");
  if (!NXCDHCPGetParameterDefault(vnet, id, buf, bufSize)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting default value of parameter");
    return InternalExit(kFn, __LINE__, false);
  }
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPGetParameterDefault(uint32_t vnet, uint32_t id, char *buf,
                                           size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCDHCPGetParameterDefault";
  InternalEnter(kFn, __LINE__);
  const DhcpParamDef *p = FindDhcpParam(id);
  if (!p) {
    NXCLog(LOG_ERR, kFn, "Invalid DHCP Param Name %d", static_cast<int>(id));
    return InternalExit(kFn, __LINE__, false);
  }
  char address[kIPTextSize] = "";
  const char *value = p->fixed;
  if (p->kind == Kind::kAddress) {
    if (!AddressDefault(vnet, *p, address, kFn)) return InternalExit(kFn, __LINE__, false);
    value = address;
  }
  size_t need = strlen(value) + 1;
  if (bufSize < need || !buf) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer size: %zu for DHCP parameter: %s required: %zu",
           bufSize, DisplayName(id), need);
    // Lease times report success with nothing copied; callers rely on it.
    return InternalExit(kFn, __LINE__, p->shortBufferSucceeds);
  }
  memcpy(buf, value, need);
  NXCLog(LOG_INFO2, kFn, "Default value of DHCP parameter: %s is: %s for vnet: %d",
         DisplayName(id), buf, static_cast<int>(vnet));
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPRemoveDHCPConfig(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCDHCPRemoveDHCPConfig";
  InternalEnter(kFn, __LINE__);
  bool ok = true;
  // Every step runs; a failure only clears the result.
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_LEASE_BEGIN_IP)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter Lease Start IP");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_LEASE_END_IP)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter lease end IP");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_BROADCAST_ADDR)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter broadcast address");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_DNS_ADDR)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter DNS address");
  }
  // Routers and NetBIOS are written only with NAT, and removed only then.
  if (NXCGetVnetUseNAT(vnet)) {
    if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_NETBIOS)) {
      ok = false;
      NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter netbios");
    }
    if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_ROUTERS)) {
      ok = false;
      NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter routers");
    }
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_DOMAIN_NAME)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter domain name");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter default lease time");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP parameter max lease time");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP subnet parameter default lease time");
  }
  if (!NXCDHCPRemoveParameter(vnet, NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC)) {
    ok = false;
    NXCLog(LOG_ERR, kFn, "Failure in deleting DHCP subnet parameter max lease time");
  }
  // The hash and the mappings go too; their outcome does not count.
  (void)NXCRemoveVnetCfg(vnet, kHashField);
  (void)NXCNetCfgRemoveAllDHCPMACToIPMapping(nullptr, vnet, /*writeRecords=*/true);
  return InternalExit(kFn, __LINE__, ok);
}

extern "C" bool NXCDHCPGetIPToMAC(uint32_t vnet, char *ipBuf, size_t ipBufSize,
                                  const char *mac) noexcept {
  static constexpr char kFn[] = "NXCDHCPGetIPToMAC";
  InternalEnter(kFn, __LINE__);
  if (!NXCNetCfgLookupDHCPMACToIP(nullptr, vnet, mac, ipBuf, ipBufSize)) {
    NXCLog(LOG_ERR, kFn, "Failure while getting the value of DHCP IP to MAC in vnet config");
    return InternalExit(kFn, __LINE__, false);
  }
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPSetIPToMAC(uint32_t vnet, const char *ip, const char *mac) noexcept {
  static constexpr char kFn[] = "NXCDHCPSetIPToMAC";
  InternalEnter(kFn, __LINE__);
  if (!ip) return InternalExit(kFn, __LINE__, NXCNetCfgRemoveDHCPMACToIP(nullptr, vnet, mac));
  if (!NXCIsValidIP(ip)) {
    NXCLog(LOG_ERR, kFn, "IP address: %s is not valid", ip);
    return InternalExit(kFn, __LINE__, false);
  }
  return InternalExit(kFn, __LINE__,
                      NXCNetCfgAddDHCPMACToIP(nullptr, vnet, mac, ip, /*restoring=*/false));
}

extern "C" bool NXCDHCPEnumIPToMAC(uint32_t vnet, uint32_t *cookie, char *ipBuf, size_t ipBufSize,
                                   char *macBuf, size_t macBufSize) noexcept {
  return NXCNetCfgEnumDHCPMACToIP(nullptr, vnet, cookie, macBuf, macBufSize, ipBuf, ipBufSize);
}
