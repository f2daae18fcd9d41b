// bridge.cpp - the default bridge vnet, per-adapter bridge mappings and the
// effective list of host adapters a vnet bridges.
//
// An adapter belongs to the vnet of its explicit mapping in the database's
// bridge mapping table; an adapter without one belongs to the default bridge
// vnet (0) or, when the default bridge is switched off (-1), to no vnet.
#include <strings.h>

#include "nexcfg_internal.h"

namespace {

constexpr char kDefaultBridgeKey[] = "NXC_DEFAULT_BRIDGE_VNET";
// The cache holds this while the default bridge has not been read from the
// loaded database; the database unload puts it back.
constexpr int32_t kDefaultBridgeUnknown = -100;

}  // namespace

NXC_EXPORT int32_t nxcDefaultBridgeVnet = kDefaultBridgeUnknown;

extern "C" bool NXCGetDefaultBridgeVnet(int32_t *vnet) noexcept {
  if (nxcDefaultBridgeVnet == kDefaultBridgeUnknown) {
    int32_t stored = 0;
    if (!NXCNetCfgGetAnswerInt32(nullptr, kDefaultBridgeKey, &stored)) {
      // Absent means vnet 0; a value that is there but no number is as bad
      // as a number out of range.
      const char *text = nullptr;
      if (NXCNetCfgGetAnswerString(nullptr, kDefaultBridgeKey, &text)) {
        NXCLog(LOG_ERR, __func__, "Invalid value of defaultBridge in config");
        return false;
      }
      stored = 0;
    }
    if (stored != 0 && stored != -1) {
      NXCLog(LOG_ERR, __func__, "Invalid value of defaultBridge in config");
      return false;
    }
    nxcDefaultBridgeVnet = stored;
  }
  if (vnet) *vnet = nxcDefaultBridgeVnet;
  return true;
}

extern "C" bool NXCSetDefaultBridgeVnet(int32_t vnet) noexcept {
  // Any value is stored; the next read from a fresh load refuses what is
  // neither 0 nor -1.
  if (!NXCNetCfgAddAnswerInt32(nullptr, kDefaultBridgeKey, vnet)) {
    NXCLog(LOG_ERR, __func__, "Error setting value of DefaultBridge in config");
    return false;
  }
  nxcDefaultBridgeVnet = vnet;
  return true;
}

extern "C" bool NXCGetBridgeMappingForAdapter(const char *adapter, int32_t *vnet) noexcept {
  if (!adapter || !vnet) {
    NXCLog(LOG_ERR, __func__, "Invalid arguments");
    return false;
  }
  int32_t mapped = -1;
  if (!NXCNetCfgLookupVnetForHostAdapter(nullptr, adapter, &mapped) &&
      !NXCGetDefaultBridgeVnet(&mapped))
    return false;
  *vnet = mapped;
  return true;
}

extern "C" bool NXCSetBridgeMappingForAdapter(const char *adapter, int32_t vnet) noexcept {
  return NXCNetCfgAddHostAdapterMapping(nullptr, adapter, vnet, /*restoring=*/false);
}

extern "C" bool NXCSetBridgeMappingForMultipleAdapters(int32_t vnet,
                                                       const NXC_HostAdapter *list) noexcept {
  bool ok = true;
  for (const NXC_HostAdapter *entry = list; entry; entry = entry->next) {
    NXCLog(LOG_INFO2, __func__, "Iterating adapter: %s", entry->mappingName);
    if (NXCSetBridgeMappingForAdapter(entry->mappingName, vnet)) continue;
    NXCLog(LOG_ERR, __func__, "Failed to set bridge mapping, vnet: %d, host adapter: %s", vnet,
           entry->mappingName);
    ok = false;
  }
  return ok;
}

namespace {

[[nodiscard]] bool IsZynetAdapter(const NXC_HostAdapter &adapter) {
  return strncasecmp(adapter.mappingName, "zynet", 5) == 0;
}

[[nodiscard]] bool ListHasAdapter(const NXC_HostAdapter *list, const NXC_HostAdapter &adapter) {
  for (const NXC_HostAdapter *entry = list; entry; entry = entry->next)
    if (strncasecmp(entry->mappingName, adapter.mappingName, NXC_ADAPTER_NAME_LEN) == 0)
      return true;
  return false;
}

void FreeAdapter(NXC_HostAdapter *adapter) {
  adapter->next = nullptr;
  NXCFreeHostAdapList(&adapter);
}

// Moves the host adapters that belong to vnet from hostList to the head of
// *result, counting them in *count; frees the rest. Every adapter of hostList
// is consumed, also on failure.
[[nodiscard]]
bool AddHostAdapters(int32_t vnet, NXC_HostAdapter *hostList, NXC_HostAdapter **result,
                     uint32_t *count, const char *fn) {
  while (hostList) {
    NXC_HostAdapter *adapter = hostList;
    hostList = adapter->next;
    adapter->next = nullptr;

    if (IsZynetAdapter(*adapter)) {
      NXCLog(LOG_INFO2, fn, "Skipping zynet virtual adapter: %s", adapter->mappingName);
      FreeAdapter(adapter);
      continue;
    }
    int32_t mapped = -1;
    if (!NXCGetBridgeMappingForAdapter(adapter->mappingName, &mapped)) {
      NXCLog(LOG_ERR, fn, "Failed to get the bridge mapping for host adapter: %s",
             adapter->mappingName);
      FreeAdapter(adapter);
      NXCFreeHostAdapList(&hostList);
      return false;
    }
    if (vnet != NXC_ALL_HOST_ADAPTERS && mapped != vnet) {
      NXCLog(LOG_INFO2, fn, "Removing adapter: %s not bridged to DefaultBridge",
             adapter->mappingName);
      FreeAdapter(adapter);
      continue;
    }
    if (ListHasAdapter(*result, *adapter)) {
      NXCLog(LOG_INFO2, fn, "Removing duplicate adapter: %s", adapter->mappingName);
      FreeAdapter(adapter);
      continue;
    }
    adapter->netId.version = NXC_NETID_VERSION;
    adapter->netId.type = NXC_NETID_TYPE_VNET;
    adapter->netId.vnet = static_cast<uint32_t>(mapped);
    adapter->next = *result;
    *result = adapter;
    ++*count;
  }
  return true;
}

}  // namespace

extern "C" bool NXCGetVnetBridge(int32_t vnet, uint32_t *count, NXC_HostAdapter **list) noexcept {
  if (!list) {
    NXCLog(LOG_ERR, __func__, "Invalid arguments");
    return false;
  }
  uint32_t resultCount = 0;
  NXC_HostAdapter *result = nullptr;
  if (!NXCNetCfgLookupHostAdaptersForVnet(nullptr, vnet, &resultCount, &result,
                                          /*exclude=*/false)) {
    NXCLog(LOG_ERR, __func__, "Cannot get list of bridge mappings for vnet: %d", vnet);
    return false;
  }
  NXCLog(LOG_INFO2, __func__,
         "Obtained list of %u adapters with bridge mapping configured for vnet: %d", resultCount,
         vnet);

  int32_t defaultBridge = -1;
  if (!NXCGetDefaultBridgeVnet(&defaultBridge)) {
    NXCLog(LOG_ERR, __func__, "Failed to get the value of default bridge");
    NXCFreeHostAdapList(&result);
    return false;
  }
  // Only the default bridge (and the all-adapters request) takes in the host
  // adapters that have no explicit mapping.
  if (vnet == defaultBridge || vnet == NXC_ALL_HOST_ADAPTERS) {
    uint32_t hostCount = 0;
    NXC_HostAdapter *hostList = nullptr;
    if (!NXCCreateHostAdapList(&hostCount, &hostList)) {
      NXCLog(LOG_ERR, __func__, "Error creating list of adapters on host");
      NXCFreeHostAdapList(&result);
      return false;
    }
    NXCLog(LOG_INFO2, __func__, "Obtained list of %u host adapters from the system", hostCount);
    if (!AddHostAdapters(vnet, hostList, &result, &resultCount, __func__)) {
      NXCFreeHostAdapList(&result);
      return false;
    }
  }
  if (count) *count = resultCount;
  *list = result;
  return true;
}

extern "C" bool NXCRemoveBridgeMappingsForVnet(int32_t vnet) noexcept {
  bool ok = true;
  int32_t defaultBridge = -1;
  if (!NXCGetDefaultBridgeVnet(&defaultBridge)) {
    NXCLog(LOG_ERR, __func__, "Failed to get value of default bridge");
    ok = false;
    defaultBridge = -1;
  }
  NXC_HostAdapter *list = nullptr;
  if (!NXCGetVnetBridge(vnet, nullptr, &list)) {
    NXCLog(LOG_ERR, __func__, "Failed to get list of adapters bridged to vnet: %d", vnet);
    ok = false;
  }
  if (defaultBridge == vnet) {
    if (!NXCSetDefaultBridgeVnet(-1)) {
      NXCLog(LOG_ERR, __func__, "Failed to set value of default bridge");
      ok = false;
    }
    defaultBridge = -1;
  }
  // The adapters go where unmapped adapters go: to the default bridge, or
  // to no vnet when there is none.
  if (list && !NXCSetBridgeMappingForMultipleAdapters(defaultBridge, list)) {
    NXCLog(LOG_ERR, __func__, "Failed to set the bridge mapping for vnet: %d, host adapter: %s",
           vnet, list->mappingName);
    ok = false;
  }
  NXCFreeHostAdapList(&list);
  if (defaultBridge < 0 || defaultBridge >= static_cast<int32_t>(NXC_NUM_VNETS)) return ok;
  // The default bridge's daemon is restarted to take the adapters in; one
  // that is not running stays stopped.
  if (!NXCRestartService(static_cast<uint32_t>(defaultBridge), NXC_SERVICE_BRIDGE, nullptr, nullptr,
                         /*startIfStopped=*/false)) {
    NXCLog(LOG_ERR, __func__, "Failed to restart bridge service on default bridge: %d",
           defaultBridge);
    return false;
  }
  return ok;
}
