// dhcp_params.cpp - a vnet's DHCP parameters: their identifiers and tables,
// checking and storing values, the defaults computed from the vnet's subnet,
// removal of the vnet's whole DHCP configuration, and the static MAC-to-IP
// mappings.
//
// A parameter is stored as the vnet answer "VNET_<n>_<config option>". An
// absent one has a default: addresses follow from HOSTONLY_SUBNET and
// HOSTONLY_NETMASK, lease times and the domain name are fixed texts.
#include <string.h>

#include <iterator>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"
#include "vnet/param_table.h"

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

using nxc::kIPTextSize;
using nxc::ParamTable;

constexpr char kHashField[] = "DHCP_CFG_HASH";
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

// The definition of a parameter a value can be set for, or null after
// logging "Invalid DHCP Param Name %d" under fn.
const DhcpParamDef *FindDhcpParam(uint32_t id, const char *fn) {
  for (const auto &p : kDhcpParams)
    if (p.id == id) return &p;
  NXCLog(LOG_ERR, fn, "Invalid DHCP Param Name %d", static_cast<int>(id));
  return nullptr;
}

// The public API reaches only these. 13356 maps one past the tables on
// purpose, so that parameter can never be set or read through the API.
constexpr nxc::ExternalParamId kExternalIds[] = {
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

extern const ParamTable kDhcpTable;

// Checks value against the parameter's kind, logging the rejection.
[[nodiscard]] bool CheckDhcpValue(uint32_t id, const char *value, const char *fn) {
  const DhcpParamDef *p = FindDhcpParam(id, fn);
  if (!p) return false;
  size_t len = strlen(value);
  const char *name = nxc::ParamName(kDhcpTable, id);
  switch (p->kind) {
    case Kind::kAddress:
      if (len > p->maxLength) {
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
      if (len > p->maxLength) {
        NXCLog(LOG_ERR, fn, "Invalid value length: %u, value: %s for parameter: %s",
               static_cast<unsigned>(len), value, name);
        return false;
      }
      return true;
  }
  return false;
}

// Computes an address default as dotted text into text.
[[nodiscard]]
bool AddressDefault(uint32_t vnet, const DhcpParamDef &p, char *text, const char *fn) {
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
  return NXCIPInt2Str(p.address(net, ~mask, NXCGetVnetUseNAT(vnet)), text);
}

[[nodiscard]]
bool ComputeDhcpDefault(uint32_t vnet, uint32_t id, char *text, bool *shortBufferSucceeds,
                        const char *fn) {
  const DhcpParamDef *p = FindDhcpParam(id, fn);
  if (!p) return false;
  // Lease times report success with nothing copied; callers rely on it.
  *shortBufferSucceeds = p->shortBufferSucceeds;
  if (p->kind == Kind::kAddress) return AddressDefault(vnet, *p, text, fn);
  memcpy(text, p->fixed, strlen(p->fixed) + 1);
  return true;
}

void DhcpNoRoom(const char *fn, uint32_t, const char *name, size_t size, size_t need,
                bool forDefault) {
  if (forDefault)
    NXCLog(LOG_ERR, fn, "Insufficient buffer size: %zu for DHCP parameter: %s required: %zu", size,
           name, need);
  else
    NXCLog(LOG_ERR, fn, "Insufficient space %zu to store value of DHCP parameter: %s, required: %zu",
           size, name, need);
}

constexpr ParamTable kDhcpTable = {
    .base = NXC_DHCP_PARAM_BASE,
    .options = NXCDHCPParamIDToConfigOption,
    .names = NXCDHCPParamIDToName,
    .firstStored = 9539,
    .lastStored = NXC_DHCP_PARAM_INVALID,
    .lastNamed = NXC_DHCP_PARAM_NETBIOS,
    .invalidName = "Invalid DHCP Parameter",
    .externalIds = kExternalIds,
    .unmapped = NXC_DHCP_PARAM_INVALID,
    .mappedTrace = "Mapped external ParamID: %u to internal ParamID: %u",
    .checkValue = CheckDhcpValue,
    .computeDefault = ComputeDhcpDefault,
    .getDefault = NXCDHCPGetParameterDefault,
    .noRoom = DhcpNoRoom,
    // Outside the looked-up range a parameter is simply not found.
    .unknownOnGet = nullptr,
    .storedValue = "Value of DHCP parameter: %s is: %s for vnet: %d",
    // Written at the error level even when a default follows.
    .notFoundLevel = LOG_ERR,
    .notFound = "Value for DHCP parameter: %s not found in configuration for vnet: %d",
    .reverting = "Reverting to getting default value",
    .setFailed = "Setting value of DHCP parameter: %s failed for vnet: %d",
    .setSucceeded = "Successfully set value of DHCP parameter: %s to value: %s for vnet: %d",
    .defaultValue = "Default value of DHCP parameter: %s is: %s for vnet: %d",
};

// Every parameter a vnet's DHCP configuration may hold, in the order of
// removal. Routers and NetBIOS are written only with NAT, and removed only
// then.
constexpr nxc::ParamRemoval kRemovals[] = {
    {NXC_DHCP_PARAM_LEASE_BEGIN_IP, "Failure in deleting DHCP parameter Lease Start IP"},
    {NXC_DHCP_PARAM_LEASE_END_IP, "Failure in deleting DHCP parameter lease end IP"},
    {NXC_DHCP_PARAM_BROADCAST_ADDR, "Failure in deleting DHCP parameter broadcast address"},
    {NXC_DHCP_PARAM_DNS_ADDR, "Failure in deleting DHCP parameter DNS address"},
    {NXC_DHCP_PARAM_NETBIOS, "Failure in deleting DHCP parameter netbios", /*onlyWithNat=*/true},
    {NXC_DHCP_PARAM_ROUTERS, "Failure in deleting DHCP parameter routers", /*onlyWithNat=*/true},
    {NXC_DHCP_PARAM_DOMAIN_NAME, "Failure in deleting DHCP parameter domain name"},
    {NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC,
     "Failure in deleting DHCP parameter default lease time"},
    {NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC, "Failure in deleting DHCP parameter max lease time"},
    {NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC,
     "Failure in deleting DHCP subnet parameter default lease time"},
    {NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC,
     "Failure in deleting DHCP subnet parameter max lease time"},
};

}  // namespace

extern "C" uint32_t NXCDHCPMapIntParamID(uint32_t externalId) noexcept {
  return nxc::MapExternalParamId(kDhcpTable, externalId, __func__);
}

extern "C" bool NXCDHCPSetParameter(uint32_t vnet, uint32_t id, const char *value) noexcept {
  static constexpr char kFn[] = "NXCDHCPSetParameter";
  InternalEnter(kFn, __LINE__);
  return InternalExit(kFn, __LINE__, nxc::SetParam(kDhcpTable, kFn, vnet, id, value));
}

extern "C" bool NXCDHCPRemoveParameter(uint32_t vnet, uint32_t id) noexcept {
  static constexpr char kFn[] = "NXCDHCPRemoveParameter";
  InternalEnter(kFn, __LINE__);
  const char *option = nxc::ParamOption(kDhcpTable, id);
  if (!option) {
    NXCLog(LOG_ERR, kFn, "Invalid DHCP parameter: %u", id);
    return InternalExit(kFn, __LINE__, false);
  }
  // The unused ids inside the range go on with their empty storage word.
  const char *name = nxc::ParamName(kDhcpTable, id);
  if (!NXCRemoveVnetCfg(vnet, option)) {
    NXCLog(LOG_ERR, kFn, "Removing value of DHCP parameter: %s failed for vnet: %d", name,
           static_cast<int>(vnet));
    return InternalExit(kFn, __LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Removed value of DHCP parameter: %s for vnet: %d", name,
         static_cast<int>(vnet));
  return InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCDHCPGetParameter(uint32_t vnet, uint32_t id, bool useDefault, char *buf,
                                    size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCDHCPGetParameter";
  InternalEnter(kFn, __LINE__);
  return InternalExit(kFn, __LINE__,
                      nxc::GetParam(kDhcpTable, kFn, vnet, id, useDefault, buf, bufSize));
}

extern "C" bool NXCDHCPGetParameterDefault(uint32_t vnet, uint32_t id, char *buf,
                                           size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCDHCPGetParameterDefault";
  InternalEnter(kFn, __LINE__);
  return InternalExit(kFn, __LINE__, nxc::GetParamDefault(kDhcpTable, kFn, vnet, id, buf, bufSize));
}

extern "C" bool NXCDHCPRemoveDHCPConfig(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCDHCPRemoveDHCPConfig";
  InternalEnter(kFn, __LINE__);
  bool ok = nxc::RemoveParams(kFn, vnet, kRemovals, NXCDHCPRemoveParameter);
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
