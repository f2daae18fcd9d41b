// nat_params.cpp - a vnet's NAT parameters: identifiers and tables, checking
// and storing values, defaults, removal of the vnet's NAT configuration, and
// the port forwards and NAT66 prefixes of the database.
//
// A parameter is stored as the vnet answer "VNET_<n>_<config option>"; an
// absent one has a default. The netmask and the device cannot be set by
// callers: they follow the vnet's subnet and name unless an answer was put
// in the database by other means.
#include <stdio.h>
#include <string.h>

#include <iterator>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"
#include "vnet/param_table.h"

using nxc::InternalEnter;
using nxc::InternalExit;

// The two exported tables, indexed by id - NXC_NAT_PARAM_BASE.
extern "C" const char *const NXCNATParamIDToConfigOption[NXC_NAT_PARAM_COUNT] = {
    "",                                    // 13858 base
    "NAT_PARAM_GATEWAY_IP",                // 13859
    "NAT_PARAM_INT_GATEWAY_IPSUBNETMASK",  // 13860
    "",                                    // 13861 unused
    "NAT_PARAM_CONFIG_PORT",               // 13862
    "NAT_PARAM_ACTIVE_FTP",                // 13863
    "NAT_PARAM_ALLOW_ANY_OUI",             // 13864
    "NAT_PARAM_DEVICE",                    // 13865
    "NAT_PARAM_UDP_TIMEOUT",               // 13866
    "NAT_PARAM_NOT_SUPPORTED",             // 13867
    "NAT_PARAM_NAT6",                      // 13868
    "NAT_PARAM_NAT6_PREFIX",               // 13869
};

extern "C" const char *const NXCNATParamIDToName[NXC_NAT_PARAM_COUNT] = {
    "\"\"",
    "\"gateway ip\"",
    "\"gateway netmask\"",
    "\"\"",
    "\"configport\"",
    "\"activeFTP\"",
    "\"allowAnyOUI\"",
    "\"device\"",
    "\"timeout\"",
    "\"non support\"",
    "\"natIp6Enable\"",
    "\"natIp6Prefix\"",
};

namespace {

using nxc::kIPTextSize;
using nxc::kParamTextSize;
using nxc::kVnetNameSize;
using nxc::ParamTable;

constexpr size_t kPrefixSize = 46;
constexpr int32_t kMaxPort = 65535;

// How a value is checked before it is stored; kNotSettable refuses it.
enum class Check : uint8_t { kNotSettable, kAddress, kPort, kSwitch, kSeconds, kUnchecked };
// Where the default comes from; kNone means there is none.
enum class Default : uint8_t { kNone, kGateway, kNetmask, kFixed, kDevice, kNat6Prefix };

struct NatParamDef {
  uint32_t id;
  Check check;
  Default dflt;
  const char *fixed = nullptr;  // Default::kFixed
};

constexpr NatParamDef kNatParams[] = {
    {.id = NXC_NAT_PARAM_BASE, .check = Check::kNotSettable, .dflt = Default::kNone},
    {.id = NXC_NAT_PARAM_GATEWAY_IP, .check = Check::kAddress, .dflt = Default::kGateway},
    {.id = NXC_NAT_PARAM_GATEWAY_NETMASK, .check = Check::kNotSettable, .dflt = Default::kNetmask},
    {.id = 13861, .check = Check::kNotSettable, .dflt = Default::kNone},
    {.id = NXC_NAT_PARAM_CONFIG_PORT,
     .check = Check::kPort,
     .dflt = Default::kFixed,
     .fixed = "33445"},
    {.id = NXC_NAT_PARAM_ACTIVE_FTP, .check = Check::kSwitch, .dflt = Default::kFixed, .fixed = "1"},
    {.id = NXC_NAT_PARAM_ALLOW_ANY_OUI,
     .check = Check::kSwitch,
     .dflt = Default::kFixed,
     .fixed = "1"},
    {.id = NXC_NAT_PARAM_DEVICE, .check = Check::kNotSettable, .dflt = Default::kDevice},
    {.id = NXC_NAT_PARAM_UDP_TIMEOUT,
     .check = Check::kSeconds,
     .dflt = Default::kFixed,
     .fixed = "60"},
    {.id = NXC_NAT_PARAM_NOT_SUPPORTED, .check = Check::kNotSettable, .dflt = Default::kNone},
    {.id = NXC_NAT_PARAM_NAT6, .check = Check::kSwitch, .dflt = Default::kFixed, .fixed = "0"},
    {.id = NXC_NAT_PARAM_NAT6_PREFIX, .check = Check::kUnchecked, .dflt = Default::kNat6Prefix},
};
static_assert(std::size(kNatParams) == NXC_NAT_PARAM_COUNT);

// The parameter of an id in 13859..13869 (the range every call but the
// default accepts), else null.
const NatParamDef *FindNatParam(uint32_t id) {
  if (id < NXC_NAT_PARAM_GATEWAY_IP || id > NXC_NAT_PARAM_NAT6_PREFIX) return nullptr;
  for (const auto &p : kNatParams)
    if (p.id == id) return &p;
  return nullptr;
}

constexpr nxc::ExternalParamId kExternalIds[] = {
    {.external = 9027, .internal = NXC_NAT_PARAM_GATEWAY_IP},
    {.external = 9030, .internal = NXC_NAT_PARAM_CONFIG_PORT},
    {.external = 9031, .internal = NXC_NAT_PARAM_ACTIVE_FTP},
    {.external = 9032, .internal = NXC_NAT_PARAM_ALLOW_ANY_OUI},
    {.external = 9033, .internal = NXC_NAT_PARAM_UDP_TIMEOUT},
    {.external = 9050, .internal = NXC_NAT_PARAM_NAT6},
    {.external = 9051, .internal = NXC_NAT_PARAM_NAT6_PREFIX},
};
static_assert(std::size(kExternalIds) == 7);

extern const ParamTable kNatTable;

// Checks value by the parameter's rule. The rejection lines print the
// parameter's id where they say "vnet"; that is how they read.
[[nodiscard]] bool CheckNatValue(uint32_t id, const char *value, const char *fn) {
  const NatParamDef *p = FindNatParam(id);
  if (!p || p->check == Check::kNotSettable) {
    NXCLog(LOG_ERR, fn, "Unrecognized NAT parameter ID: %u", id);
    return false;
  }
  const char *name = nxc::ParamName(kNatTable, id);
  const int shownId = static_cast<int>(id);
  int32_t number = 0;
  switch (p->check) {
    case Check::kNotSettable:
      return false;
    case Check::kAddress:
      if (NXCIsValidIP(value)) return true;
      NXCLog(LOG_ERR, fn, "Invalid IP address value: %s for NAT parameter: %s on vnet: %d", value,
             name, shownId);
      return false;
    case Check::kPort:
      if (nxc::StrToInt32(value, &number) && number >= 1 && number <= kMaxPort) return true;
      NXCLog(LOG_ERR, fn, "Invalid config port value: %s for NAT parameter: %s on vnet: %d ",
             value, name, shownId);
      return false;
    case Check::kSwitch:
      if ((value[0] == '0' || value[0] == '1') && value[1] == '\0') return true;
      NXCLog(LOG_ERR, fn, "Invalid value: %s for NAT parameter: %s on vnet: %d", value, name,
             shownId);
      return false;
    case Check::kSeconds:
      if (nxc::StrToInt32(value, &number) && number >= 0) return true;
      NXCLog(LOG_ERR, fn, "Invalid value: %s for NAT parameter: %s on vnet: %d", value, name,
             shownId);
      return false;
    case Check::kUnchecked:
      return true;
  }
  return false;
}

// Puts the default text of id into text (kParamTextSize bytes); logs why
// not.
[[nodiscard]]
bool ComputeNatDefault(uint32_t vnet, uint32_t id, char *text, bool *, const char *fn) {
  const NatParamDef *p = FindNatParam(id);
  const int n = static_cast<int>(vnet);
  switch (p ? p->dflt : Default::kNone) {
    case Default::kNone:
      break;
    case Default::kGateway: {
      // The stored subnet address as it is, not masked.
      char subnet[kIPTextSize] = "";
      uint32_t address = 0;
      if (!NXCGetVnetSubnetAddr(vnet, subnet, sizeof subnet) || !NXCIPStr2Int(subnet, &address)) {
        NXCLog(LOG_ERR, fn, "Could not get subnet address for vnet: %d", n);
        return false;
      }
      address += 2;
      int len = snprintf(text, kIPTextSize, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF,
                         (address >> 8) & 0xFF, address & 0xFF);
      if (len < 0 || static_cast<size_t>(len) >= kIPTextSize) {
        NXCLog(LOG_ERR, fn, "Could not calculate NAT gateway address for vnet: %d", n);
        return false;
      }
      return true;
    }
    case Default::kNetmask:
      if (NXCGetVnetSubnetMask(vnet, text, kIPTextSize)) return true;
      NXCLog(LOG_ERR, fn, "Could not get subnet netmask for vnet: %d", n);
      return false;
    case Default::kFixed:
      (void)snprintf(text, kParamTextSize, "%s", p->fixed);
      return true;
    case Default::kDevice: {
      char name[kVnetNameSize] = "";
      if (!NXCConvVnetNumToName(vnet, name)) {
        NXCLog(LOG_ERR, fn, "Could not get zynet name for vnet: %d", n);
        return false;
      }
      (void)snprintf(text, kParamTextSize, "/dev/%s", name);
      return true;
    }
    case Default::kNat6Prefix:
      (void)snprintf(text, kPrefixSize, "fd15:4ba5:5a2b:10%02x::/64", vnet);
      return true;
  }
  NXCLog(LOG_ERR, fn, "Unrecognized NAT parameter ID: %d", static_cast<int>(id));
  return false;
}

// One line for a stored value and a default alike.
void NatNoRoom(const char *fn, uint32_t id, const char *, size_t, size_t, bool) {
  NXCLog(LOG_ERR, fn, "Insufficient space to store NAT param %d.", static_cast<int>(id));
}

constexpr ParamTable kNatTable = {
    .base = NXC_NAT_PARAM_BASE,
    .options = NXCNATParamIDToConfigOption,
    .names = NXCNATParamIDToName,
    .firstStored = NXC_NAT_PARAM_GATEWAY_IP,
    .lastStored = NXC_NAT_PARAM_NAT6_PREFIX,
    .lastNamed = NXC_NAT_PARAM_NAT6_PREFIX,
    .invalidName = "",
    .externalIds = kExternalIds,
    .unmapped = NXC_NAT_PARAM_NOT_SUPPORTED,
    .mappedTrace = nullptr,
    .checkValue = CheckNatValue,
    .computeDefault = ComputeNatDefault,
    .getDefault = NXCNATGetParamDefault,
    .noRoom = NatNoRoom,
    .unknownOnGet = "Unrecognized NAT parameter ID: %d",
    .storedValue = "Value of NAT parameter: %s is: %s for vnet: %d",
    // Unlike a DHCP parameter, a missing NAT parameter is no error.
    .notFoundLevel = LOG_INFO2,
    .notFound = "Value of NAT parameter: %s not found in configuration for vnet: %d",
    .reverting = "Reverting to default value",
    .setFailed = "Setting value of NAT parameter: %s failed for vnet: %d",
    .setSucceeded = "Successfully set value of NAT parameter: %s to value: %s for vnet: %d",
    .defaultValue = "Default value of NAT parameter: %s is: %s for vnet: %d",
};

// Every parameter of a vnet's NAT configuration, in the order of removal.
constexpr nxc::ParamRemoval kRemovals[] = {
    {NXC_NAT_PARAM_GATEWAY_IP, "Failure while removing value for NAT parameter Gateway IP Address"},
    {NXC_NAT_PARAM_NAT6, "Failure while removing value for NAT parameter nat ipv6 enable"},
    {NXC_NAT_PARAM_NAT6_PREFIX, "Failure while removing value for NAT parameter nat ipv6 prefix"},
    {NXC_NAT_PARAM_GATEWAY_NETMASK, "Failure while removing value for NAT parameter Gateway netmask"},
    {NXC_NAT_PARAM_CONFIG_PORT, "Failure while removing value for NAT parameter Config port"},
    {NXC_NAT_PARAM_DEVICE, "Failure while removing value for NAT parameter device"},
    {NXC_NAT_PARAM_ACTIVE_FTP, "Failure while removing value for NAT parameter active FTP"},
    {NXC_NAT_PARAM_ALLOW_ANY_OUI, "Failure while removing value for NAT parameter allow any OUI"},
    // "setting" is how this line reads.
    {NXC_NAT_PARAM_UDP_TIMEOUT, "Failure while setting value for NAT parameter UDP timeout"},
};

}  // namespace

extern "C" uint32_t NXCNATMapIntParamID(uint32_t externalId) noexcept {
  return nxc::MapExternalParamId(kNatTable, externalId, __func__);
}

extern "C" bool NXCNATSetParameter(uint32_t vnet, uint32_t id, const char *value) noexcept {
  static constexpr char kFn[] = "NXCNATSetParameter";
  InternalEnter(kFn, __LINE__);
  return InternalExit(kFn, __LINE__, nxc::SetParam(kNatTable, kFn, vnet, id, value));
}

// Only the exit is traced here; the entry line is left out on purpose.
extern "C" bool NXCNATGetParameter(uint32_t vnet, uint32_t id, bool useDefault, char *buf,
                                   size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCNATGetParameter";
  return InternalExit(kFn, __LINE__,
                      nxc::GetParam(kNatTable, kFn, vnet, id, useDefault, buf, bufSize));
}

extern "C" bool NXCNATGetParamDefault(uint32_t vnet, uint32_t id, char *buf,
                                      size_t bufSize) noexcept {
  static constexpr char kFn[] = "NXCNATGetParamDefault";
  InternalEnter(kFn, __LINE__);
  return InternalExit(kFn, __LINE__, nxc::GetParamDefault(kNatTable, kFn, vnet, id, buf, bufSize));
}

extern "C" bool NXCNATRemoveParam(uint32_t vnet, uint32_t id) noexcept {
  if (!FindNatParam(id)) {
    NXCLog(LOG_ERR, __func__, "Unrecognized NAT parameter ID: %d", static_cast<int>(id));
    return false;
  }
  const char *option = nxc::ParamOption(kNatTable, id);
  if (!NXCGetVnetCfg(vnet, option)) return true;
  if (!NXCRemoveVnetCfg(vnet, option)) {
    NXCLog(LOG_ERR, __func__, "Failure while removing value of NAT parameter");
    return false;
  }
  return true;
}

extern "C" bool NXCNATRemoveConfig(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCNATRemoveConfig";
  InternalEnter(kFn, __LINE__);
  bool ok = nxc::RemoveParams(kFn, vnet, kRemovals, NXCNATRemoveParam);
  (void)NXCNetCfgRemoveAllNATPortFwd(nullptr, vnet, /*tcp=*/true, /*udp=*/true,
                                     /*writeRecords=*/true);
  return InternalExit(kFn, __LINE__, ok);
}

extern "C" bool NXCNATSetPortForward(uint32_t vnet, int8_t protocol, uint16_t externalPort,
                                     const char *ip, uint16_t internalPort,
                                     const char *description) noexcept {
  if (!ip) return NXCNetCfgRemoveNATPortFwd(nullptr, vnet, protocol != 0, externalPort);
  return NXCNetCfgAddNATPortFwd(nullptr, vnet, protocol != 0, externalPort, ip, internalPort,
                                description, /*restoring=*/false);
}

extern "C" bool NXCNATGetPortForward(uint32_t vnet, int8_t protocol, uint16_t externalPort,
                                     char *ipBuf, size_t ipBufSize, uint16_t *internalPort,
                                     char *descBuf, size_t *descBufSize) noexcept {
  size_t descSize = descBufSize ? *descBufSize : 0;
  return NXCNetCfgLookupNATPortFwd(nullptr, vnet, protocol != 0, externalPort, ipBuf, ipBufSize,
                                   internalPort, descBuf, descSize);
}

extern "C" bool NXCNATEnumPortForward(uint32_t vnet, int8_t protocol, uint32_t *cookie,
                                      uint16_t *externalPort, char *ipBuf, size_t ipBufSize,
                                      uint16_t *internalPort, char *descBuf,
                                      size_t *descBufSize) noexcept {
  return NXCNetCfgEnumNATPortFwd(nullptr, vnet, protocol != 0, cookie, externalPort, ipBuf,
                                 ipBufSize, internalPort, descBuf, descBufSize);
}

extern "C" bool NXCNATSetPrefix(uint32_t vnet, const char *prefix, const char *desc,
                                int32_t descLen) noexcept {
  if (!prefix) {
    NXCLog(LOG_ERR, __func__, "Invalid prefix");
    return false;
  }
  return NXCNetCfgAddNATPrefix(nullptr, vnet, prefix, desc, descLen);
}

extern "C" bool NXCNATGetPrefix(uint32_t vnet, const char *prefix) noexcept {
  return NXCNetCfgLookupNATPrefix(nullptr, vnet, prefix);
}
