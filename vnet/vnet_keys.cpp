// vnet_keys.cpp - a vnet's settings as answers of the database: the key
// scheme, the generic and per-field accessors, the feature switches and the
// "is this option configured" test.
//
// A setting of vnet n is the answer "VNET_<n>_<FIELD>". Nothing is cached
// here: every read asks the default cache and every write is appended to the
// database file by the answer store.
#include <stdio.h>
#include <string.h>

#include <charconv>
#include <string_view>

#include "base/text_sizes.h"
#include "nexcfg_internal.h"

namespace {

// Longest key, with its terminator.
constexpr size_t kKeySize = 511;
using nxc::kIPTextSize;

constexpr char kDisplayName[] = "DISPLAY_NAME";
constexpr char kSubnet[] = "HOSTONLY_SUBNET";
constexpr char kNetmask[] = "HOSTONLY_NETMASK";
constexpr char kUuid[] = "HOSTONLY_UUID";
constexpr char kAdapter[] = "VIRTUAL_ADAPTER";
constexpr char kAdapterAddr[] = "VIRTUAL_ADAPTER_ADDR";
constexpr char kAdapterName[] = "VIRTUAL_ADAPTER_NAME";
constexpr char kDhcp[] = "DHCP";
constexpr char kNat[] = "NAT";
constexpr char kMtu[] = "MTU";

// Forms the answer key of a vnet field. A key that does not fit is refused
// rather than cut, so a long field can never alias a shorter one.
[[nodiscard]] bool FormKey(uint32_t vnet, const char *field, char (&key)[kKeySize]) {
  if (!field) return false;
  // "VNET_%d_%s", put together by hand: every vnet field access forms one.
  static constexpr std::string_view kPrefix = "VNET_";
  memcpy(key, kPrefix.data(), kPrefix.size());
  char *const end = key + sizeof key;
  auto [at, failed] = std::to_chars(key + kPrefix.size(), end, static_cast<int>(vnet));
  if (failed != std::errc() || at == end) return false;
  *at++ = '_';
  size_t length = strlen(field);
  if (length >= static_cast<size_t>(end - at)) return false;
  memcpy(at, field, length + 1);
  return true;
}

// The field getters that copy keep the needed size to themselves.
[[nodiscard]] bool CopyField(uint32_t vnet, const char *field, char *buffer, size_t size) {
  size_t local = size;
  return NXCGetVnetCfgCpy(vnet, field, buffer, &local);
}

}  // namespace

// ---- Generic accessors ---------------------------------------------------

extern "C" const char *NXCGetVnetCfg(uint32_t vnet, const char *field) noexcept {
  char key[kKeySize];
  if (!FormKey(vnet, field, key)) return nullptr;
  const char *value = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, key, &value)) return nullptr;
  return value;
}

extern "C" bool NXCGetVnetCfgCpy(uint32_t vnet, const char *field, char *buffer,
                                 size_t *size) noexcept {
  if (!size) {
    NXCLog(LOG_ERR, __func__, "Invalid arguments");
    return false;
  }
  const char *value = NXCGetVnetCfg(vnet, field);
  if (!value) {
    NXCLog(LOG_INFO2, __func__, "Unable to find host configuration entry : \"%s\" for Vnet: %d",
           field ? field : "", static_cast<int>(vnet));
    return false;
  }
  size_t needed = strlen(value) + 1;
  if (needed > *size || !buffer) {
    NXCLog(LOG_INFO2, __func__, "Insufficient space provided for host configuration entry: \"%s\".",
           field);
    *size = needed;
    return false;
  }
  *size = needed;
  memcpy(buffer, value, needed);
  return true;
}

extern "C" bool NXCGetVnetCfgBool(uint32_t vnet, const char *field) noexcept {
  char key[kKeySize];
  if (!FormKey(vnet, field, key)) return false;
  bool value = false;
  if (!NXCNetCfgGetAnswerBool(nullptr, key, &value)) return false;
  return value;
}

extern "C" bool NXCSetVnetCfg(uint32_t vnet, const char *field, const char *value) noexcept {
  char key[kKeySize];
  if (!FormKey(vnet, field, key)) return false;
  return NXCNetCfgAddAnswerString(nullptr, key, value);
}

extern "C" bool NXCSetVnetCfgBool(uint32_t vnet, const char *field, bool value) noexcept {
  char key[kKeySize];
  if (!FormKey(vnet, field, key)) return false;
  return NXCNetCfgAddAnswerBool(nullptr, key, value);
}

extern "C" bool NXCRemoveVnetCfg(uint32_t vnet, const char *field) noexcept {
  if (!field) {
    NXCLog(LOG_ERR, __func__, "Invalid config option");
    return false;
  }
  char key[kKeySize];
  if (!FormKey(vnet, field, key)) return false;
  return NXCNetCfgRemoveAnswer(nullptr, key);
}

// ---- Field accessors -----------------------------------------------------

extern "C" bool NXCGetVnetDisplayName(uint32_t vnet, char *buffer, size_t size) noexcept {
  return CopyField(vnet, kDisplayName, buffer, size);
}

extern "C" bool NXCSetVnetDisplayName(uint32_t vnet, const char *name) noexcept {
  return NXCSetVnetCfg(vnet, kDisplayName, name);
}

extern "C" bool NXCGetVnetSubnetAddr(uint32_t vnet, char *buffer, size_t size) noexcept {
  return CopyField(vnet, kSubnet, buffer, size);
}

extern "C" bool NXCSetVnetSubnetAddr(uint32_t vnet, const char *subnet) noexcept {
  return NXCSetVnetCfg(vnet, kSubnet, subnet);
}

extern "C" bool NXCRemoveVnetSubnetAddr(uint32_t vnet) noexcept {
  // A subnet the vnet gives up may be handed out automatically again.
  char subnet[kIPTextSize];
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_SUBNET) &&
      NXCGetVnetSubnetAddr(vnet, subnet, sizeof subnet)) {
    NXCLog(LOG_INFO, __func__, "Marking subnet: %s as unused", subnet);
    NXCMarkSubnetUsed(subnet, /*taken=*/false);
  }
  return NXCRemoveVnetCfg(vnet, kSubnet);
}

extern "C" bool NXCGetVnetSubnetMask(uint32_t vnet, char *buffer, size_t size) noexcept {
  return CopyField(vnet, kNetmask, buffer, size);
}

extern "C" bool NXCSetVnetSubnetMask(uint32_t vnet, const char *mask) noexcept {
  return NXCSetVnetCfg(vnet, kNetmask, mask);
}

extern "C" bool NXCRemoveVnetSubnetMask(uint32_t vnet) noexcept {
  return NXCRemoveVnetCfg(vnet, kNetmask);
}

extern "C" bool NXCRemoveSubnetAssignment(uint32_t vnet) noexcept {
  if (!NXCRemoveVnetSubnetAddr(vnet)) return false;
  return NXCRemoveVnetSubnetMask(vnet);
}

extern "C" bool NXCSetVnetVirtAdapterAddr(uint32_t vnet, const char *address) noexcept {
  return NXCSetVnetCfg(vnet, kAdapterAddr, address);
}

extern "C" bool NXCRemoveVnetVirtAdapterAddr(uint32_t vnet) noexcept {
  return NXCRemoveVnetCfg(vnet, kAdapterAddr);
}

extern "C" bool NXCGetVnetVirtAdapter(uint32_t vnet, char *buffer, size_t size) noexcept {
  size_t local = size;
  if (NXCGetVnetCfgCpy(vnet, kAdapterName, buffer, &local)) return true;
  // The copy reports a needed size only when a stored name did not fit.
  if (local != size) return false;
  // No stored name: the adapter of vnet n is "zynet<n>".
  (void)snprintf(buffer, size, "zynet%d", static_cast<int>(vnet));
  return true;
}

extern "C" bool NXCSetVnetVirtAdapter(uint32_t vnet, const char *name) noexcept {
  return NXCSetVnetCfg(vnet, kAdapterName, name);
}

extern "C" bool NXCGetVnetMTU(uint32_t vnet, char *buffer, size_t size) noexcept {
  return CopyField(vnet, kMtu, buffer, size);
}

extern "C" bool NXCSetVnetMTU(uint32_t vnet, const char *mtu) noexcept {
  return NXCSetVnetCfg(vnet, kMtu, mtu);
}

extern "C" bool NXCRemoveVnetMTU(uint32_t vnet) noexcept { return NXCRemoveVnetCfg(vnet, kMtu); }

extern "C" bool NXCGetVnetUseDHCP(uint32_t vnet) noexcept { return NXCGetVnetCfgBool(vnet, kDhcp); }

extern "C" bool NXCGetVnetUseNAT(uint32_t vnet) noexcept { return NXCGetVnetCfgBool(vnet, kNat); }

extern "C" bool NXCAssignUUIDToVnet(uint32_t vnet) noexcept {
  (void)vnet;
  return true;
}

// ---- Feature switches ----------------------------------------------------

extern "C" bool NXCSetVnetUseDHCP(uint32_t vnet, bool use, bool removeConfig) noexcept {
  if (!NXCSetVnetCfgBool(vnet, kDhcp, use)) {
    NXCLog(LOG_ERR, __func__, "Error setting DHCP to %u in vnet config", use ? 1u : 0u);
    return false;
  }
  NXCLog(LOG_INFO2, __func__, "DHCP set to %u in vnet config for vnet: %u", use ? 1u : 0u, vnet);
  if (!removeConfig) return true;
  if (!NXCDHCPRemoveDHCPConfig(vnet)) {
    NXCLog(LOG_ERR, __func__, "Error removing DHCP configuration informtion");  // sic
    return false;
  }
  return true;
}

extern "C" bool NXCSetVnetUseNAT(uint32_t vnet, bool use, bool removeConfig) noexcept {
  if (!NXCSetVnetCfgBool(vnet, kNat, use)) {
    NXCLog(LOG_ERR, __func__, "Error setting NAT to %u in vnet config", use ? 1u : 0u);
    return false;
  }
  NXCLog(LOG_INFO2, __func__, "NAT set to %u in vnet config for vnet: %u", use ? 1u : 0u, vnet);
  // Unlike DHCP, a failed NAT clean-up is only noted: the switch itself
  // has been stored and the call succeeds.
  if (removeConfig && !NXCNATRemoveConfig(vnet))
    NXCLog(LOG_INFO, __func__, "Error removing NAT coniguration information");  // sic
  return true;
}

extern "C" bool NXCSetVnetUseAdapter(uint32_t vnet, bool use, bool removeConfig) noexcept {
  if (!NXCSetVnetCfgBool(vnet, kAdapter, use)) {
    NXCLog(LOG_ERR, __func__, "Error setting VIRTUAL_ADAPTER to %u in vnet config", use ? 1u : 0u);
    return false;
  }
  NXCLog(LOG_INFO2, __func__, "VIRTUAL_ADAPTER set to %u in vnet config for vnet: %u",
         use ? 1u : 0u, vnet);
  if (!removeConfig) return true;
  if (!NXCRemoveVnetVirtAdapterAddr(vnet)) {
    NXCLog(LOG_ERR, __func__, "Error removing Adapter address from vnet config");
    return false;
  }
  if (!NXCRemoveVnetCfg(vnet, kAdapterName)) {
    NXCLog(LOG_ERR, __func__, "Error removing Adapter name from vnet config");
    return false;
  }
  return true;
}

// ---- Option test ---------------------------------------------------------

namespace {

// A vnet is bridged when it is the default bridge or bridges some adapter.
[[nodiscard]] bool IsBridged(uint32_t vnet, const char *fn) {
  int32_t defaultBridge = -1;
  if (!NXCGetDefaultBridgeVnet(&defaultBridge))
    NXCLog(LOG_ERR, fn, "Failed to get the value of default bridge");
  else if (defaultBridge == static_cast<int32_t>(vnet))
    return true;

  uint32_t count = 0;
  NXC_HostAdapter *list = nullptr;
  if (!NXCGetVnetBridge(static_cast<int32_t>(vnet), &count, &list)) {
    NXCLog(LOG_ERR, fn, "Cannot get bridge mappings for vnet: %d", static_cast<int>(vnet));
    return false;
  }
  NXCFreeHostAdapList(&list);
  return count > 0;
}

}  // namespace

extern "C" bool NXCVnetIsOptionConfigured(uint32_t vnet, uint32_t option) noexcept {
  switch (option) {
    case NXC_VNET_OPTION_BRIDGE:
      return IsBridged(vnet, __func__);
    case NXC_VNET_OPTION_DHCP:
      return NXCGetVnetUseDHCP(vnet);
    case NXC_VNET_OPTION_NAT:
      return NXCGetVnetUseNAT(vnet);
    case NXC_VNET_OPTION_ADAPTER:
      return NXCGetVnetCfgBool(vnet, kAdapter);
    case NXC_VNET_OPTION_SUBNET:
      return NXCGetVnetCfg(vnet, kSubnet) != nullptr;
    case NXC_VNET_OPTION_UUID:
      return NXCGetVnetCfg(vnet, kUuid) != nullptr;
    default:
      return false;
  }
}
