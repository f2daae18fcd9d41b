// bridge_api.cpp - the public calls on bridging and host adapters: the
// default bridge vnet, the list of host Ethernet adapters with the vnets
// they are bridged to, moving one adapter to another vnet, and a vnet's
// host-only adapter.
//
// Changing the default bridge and moving an adapter each change several
// mappings and restart bridge daemons under one database lock. When a later
// step fails they restore every mapping and value they touched and restart
// again exactly the daemons they had restarted, so that the daemons run
// with the restored configuration.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "api/api_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {


[[nodiscard]] bool IsVnetNumber(int32_t vnet) {
  return vnet >= 0 && vnet < static_cast<int32_t>(NXC_NUM_VNETS);
}

// Restarts a running bridge daemon (a stopped one stays stopped); *restarted
// tells whether it was running and so was restarted, also on failure.
[[nodiscard]] bool RestartBridge(int32_t vnet, bool *restarted) {
  *restarted = false;
  return NXCRestartService(static_cast<uint32_t>(vnet), NXC_SERVICE_BRIDGE, restarted, nullptr,
                           /*startIfStopped=*/false);
}

// Starts the bridge daemon again after an undo, with the restored mappings.
[[nodiscard]] bool RestartBridgeForCleanup(int32_t vnet) {
  return NXCRestartService(static_cast<uint32_t>(vnet), NXC_SERVICE_BRIDGE, nullptr, nullptr,
                           /*startIfStopped=*/true);
}

// ---- Changing the default bridge ---------------------------------------------

struct DefaultBridgeChange {
  int32_t oldDefault;
  int32_t request;
  int32_t setVnet;  // the vnet whose adapters keep their vnet explicitly
  int32_t target;   // the vnet they are mapped to
  bool readOnly;
  NXC_HostAdapter *list = nullptr;
  bool listObtained = false;
  bool restartedOld = false;
  bool restartedNew = false;
};

// Puts back the default, the mappings of the adapter set, and restarts the
// daemons the change restarted. Always false, the change's result.
[[nodiscard]] bool RollbackDefaultBridge(const char *fn, const DefaultBridgeChange &c) {
  if (!NXCSetDefaultBridgeVnet(c.oldDefault))
    NXCLog(LOG_INFO, fn, "Failed to restore value of default bridge: %d", c.oldDefault);
  if (c.listObtained && !NXCSetBridgeMappingForMultipleAdapters(c.setVnet, c.list))
    NXCLog(LOG_ERR, fn, "Failed to restore the bridge mappings for vnet: %d", c.setVnet);
  if (c.readOnly) return false;
  // One wording serves the old and the new default bridge.
  if (c.restartedOld && !RestartBridgeForCleanup(c.oldDefault))
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on old default bridge: %d during cleanup",
           c.oldDefault);
  if (c.restartedNew && !RestartBridgeForCleanup(c.request))
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on old default bridge: %d during cleanup",
           c.request);
  return false;
}

// The work of a default bridge change under the lock. Switching the default
// bridge on hands it the adapters that belong to no vnet; switching it off
// keeps its adapters on it through explicit mappings.
[[nodiscard]] bool ChangeDefaultBridge(const char *fn, DefaultBridgeChange &c) {
  uint32_t count = 0;
  if (!NXCGetVnetBridge(c.setVnet, &count, &c.list)) {
    NXCLog(LOG_ERR, fn, "Error creating list of adapters on host");
    return RollbackDefaultBridge(fn, c);
  }
  c.listObtained = true;
  NXCLog(LOG_INFO2, fn, "Obtained list of %u adapters", count);
  if (!NXCSetBridgeMappingForMultipleAdapters(c.target, c.list)) {
    NXCLog(LOG_ERR, fn, "Failed to set the bridge mappings, vnet: %d", c.target);
    return RollbackDefaultBridge(fn, c);
  }
  if (!NXCSetDefaultBridgeVnet(c.request)) {
    NXCLog(LOG_INFO, fn, "Failed to set value of default bridge: %d", c.request);
    return RollbackDefaultBridge(fn, c);
  }
  // A read-only database changes only in memory: no daemon is touched.
  if (c.readOnly) return true;
  if (IsVnetNumber(c.oldDefault) && !RestartBridge(c.oldDefault, &c.restartedOld)) {
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on old default bridge: %d", c.oldDefault);
    return RollbackDefaultBridge(fn, c);
  }
  if (IsVnetNumber(c.request) && !RestartBridge(c.request, &c.restartedNew)) {
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on new default bridge: %d", c.request);
    return RollbackDefaultBridge(fn, c);
  }
  return true;
}

// ---- Moving an adapter -------------------------------------------------------

struct AdapterMove {
  const char *name;
  int32_t source;
  int32_t destination;
  int32_t defaultBridge;
  bool readOnly;
  NXC_HostAdapter *displaced;  // the adapters the destination had, or null
  bool restartedSource = false;
  bool restartedDestination = false;
  bool restartedDefault = false;
};

// Puts the adapter and the displaced adapters back and restarts the daemons
// the move restarted. Always false, the move's result.
[[nodiscard]] bool RollbackMove(const char *fn, const AdapterMove &m) {
  if (!NXCSetBridgeMappingForAdapter(m.name, m.source))
    NXCLog(LOG_ERR, fn, "Unable to restore host adapter: %s to its previous vnet: %d", m.name,
           m.source);
  if (m.displaced && !NXCSetBridgeMappingForMultipleAdapters(m.destination, m.displaced))
    NXCLog(LOG_ERR, fn, "Failed to move back adapters from default bridge to destination vnet");
  if (m.readOnly) return false;
  if (m.restartedSource && !RestartBridgeForCleanup(m.source))
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on source vnet: %d, during cleanup",
           m.source);
  if (m.restartedDestination && !RestartBridgeForCleanup(m.destination))
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on destination vnet: %d, during cleanup",
           m.destination);
  if (m.restartedDefault && !RestartBridgeForCleanup(m.defaultBridge))
    NXCLog(LOG_ERR, fn,
           "Failed to restart bridge service on default bridge vnet: %d, during cleanup",
           m.defaultBridge);
  return false;
}

// The work of a move under the lock. The adapters a real destination vnet
// had go to the default bridge, so that a vnet bridges one adapter.
[[nodiscard]] bool MoveAdapter(const char *fn, AdapterMove &m) {
  if (!NXCSetBridgeMappingForAdapter(m.name, m.destination)) {
    NXCLog(LOG_ERR, fn, "Unable to bridge host adapter: %s to vnet: %d", m.name, m.destination);
    return RollbackMove(fn, m);
  }
  if (IsVnetNumber(m.destination)) {
    if (m.displaced && !NXCSetBridgeMappingForMultipleAdapters(m.defaultBridge, m.displaced)) {
      NXCLog(LOG_ERR, fn, "Failed to move adapters from destination vnet to default bridge");
      return RollbackMove(fn, m);
    }
    if (!m.readOnly) {
      if (!RestartBridge(m.destination, &m.restartedDestination)) {
        NXCLog(LOG_ERR, fn, "Failed to restart bridge service on destination vnet: %d",
               m.destination);
        return RollbackMove(fn, m);
      }
      // The default bridge's daemon takes the displaced adapters in.
      if (IsVnetNumber(m.defaultBridge) && !RestartBridge(m.defaultBridge, &m.restartedDefault)) {
        NXCLog(LOG_ERR, fn, "Failed to restart bridge service on destination vnet: %d",
               m.defaultBridge);
        return RollbackMove(fn, m);
      }
    }
  }
  if (m.readOnly) return true;
  if (IsVnetNumber(m.source) && !RestartBridge(m.source, &m.restartedSource)) {
    NXCLog(LOG_ERR, fn, "Failed to restart bridge service on old default bridge: %d", m.source);
    return RollbackMove(fn, m);
  }
  return true;
}

// The vnet the adapter is bridged to now, checked against the caller's
// source when one is given. False, after logging, when it cannot be had or
// differs.
[[nodiscard]]
bool SourceVnet(const char *fn, const char *name, const NXC_NetID *source, int32_t *vnet) {
  if (source) {
    if (!NXCValidateNetIDStruct(source)) {
      NXCLog(LOG_ERR, fn, "Invalid destination network");  // the source check has always said so
      return false;
    }
    NXCLog(LOG_INFO2, fn, "Checking source vnet: %d to see if it is bridged to adapter: %s",
           static_cast<int32_t>(source->vnet), name);
  }
  int32_t mapped = -1;
  if (!NXCGetBridgeMappingForAdapter(name, &mapped)) {
    NXCLog(LOG_ERR, fn, "Failed to get the bridge mapping for host adapter: %s, aborting", name);
    return false;
  }
  if (source && mapped != static_cast<int32_t>(source->vnet)) {
    NXCLog(LOG_ERR, fn, "Souce vnet: %d is not bridged to specified host adapter: %s",  // sic
           static_cast<int32_t>(source->vnet), name);
    return false;
  }
  *vnet = mapped;
  return true;
}

// ---- The public host adapter list --------------------------------------------

[[nodiscard]] bool IsZynetAdapterName(const char *name) {
  return strncasecmp(name, "zynet", 5) == 0;
}

// Copies the adapters of raw (count of them) but the system's own zynet
// adapters into one zero-filled block: the header, then the entries, each
// linked to the next. Null, after logging, on failure.
NXC_HostAdapterList *ContiguousAdapterList(const char *fn, uint32_t count,
                                           const NXC_HostAdapter *raw) {
  size_t size = sizeof(NXC_HostAdapterList) + size_t{count} * sizeof(NXC_HostAdapter);
  auto *block = static_cast<NXC_HostAdapterList *>(calloc(1, size));
  if (!block) {
    NXCLog(LOG_ERR, fn, "Error in allocating memory for NXC_HostAdapterList");
    return nullptr;
  }
  auto *slots = reinterpret_cast<NXC_HostAdapter *>(reinterpret_cast<char *>(block) +
                                                    sizeof(NXC_HostAdapterList));
  block->version = 1;
  block->entries = count ? slots : nullptr;

  uint32_t remaining = count;
  NXC_HostAdapter *last = nullptr;
  const NXC_HostAdapter *a = raw;
  for (; a && remaining > 0; a = a->next, --remaining) {
    NXCLog(LOG_INFO2, fn, "Iterating adapter: %s", a->mappingName);
    if (IsZynetAdapterName(a->mappingName)) {
      NXCLog(LOG_INFO2, fn, "Skipping zynet virtual adapter: %s", a->mappingName);
      continue;
    }
    NXC_HostAdapter *slot = &slots[block->count];
    *slot = *a;
    slot->netId.version = NXC_NETID_VERSION;
    slot->netId.type = NXC_NETID_TYPE_VNET;
    NXCLog(LOG_INFO2, fn, "vnet: %d is bridged to host adapter: %s",
           static_cast<int32_t>(slot->netId.vnet), slot->mappingName);
    ++block->count;
    slot->next = remaining > 1 ? slot + 1 : nullptr;
    last = slot;
  }
  if (a || remaining != 0 || (count != 0 && !raw)) {
    NXCLog(LOG_ERR, fn, "Something wrong with the list operations or count");
    free(block);
    return nullptr;
  }
  if (last) last->next = nullptr;
  if (block->count == 0) block->entries = nullptr;
  return block;
}

// ---- The host-only adapter ---------------------------------------------------

// Brings the adapter up under the lock, with the netifup daemon running;
// a daemon this call started is stopped again when the adapter stays down.
[[nodiscard]] bool EnableWithNetifup(const char *fn, uint32_t num, const char *vnet) {
  if (!NXCCreateFile(static_cast<int32_t>(num), NXC_FILE_VNET_DEVICE, nullptr)) {
    NXCLog(LOG_ERR, fn, "Failed to create required zynet device before starting netifup service");
    return false;
  }
  NXCLog(LOG_INFO2, fn, "Success in creating zynet device before starting netifup service");
  uint32_t status = NXCServiceStatus(num, NXC_SERVICE_NETIFUP);
  if (status == NXC_SERVICE_STATUS_UNKNOWN) {
    NXCLog(LOG_ERR, fn, "Could not determine status of netifup service");
    return false;
  }
  if (status != NXC_SERVICE_NOT_RUNNING) {
    NXCLog(LOG_INFO2, fn, "netifup service is already running on vnet: %s", vnet);
    if (!NXCVirtAdapterEnable(num)) {
      NXCLog(LOG_ERR, fn, "Failed to enable hostonly adapter on vnet: %s", vnet);
      return false;
    }
    NXCLog(LOG_OK, fn, "Successfully enabled hostonly adapter on vnet: %s", vnet);
    return true;
  }
  NXCLog(LOG_INFO2, fn, "Starting netifup service on vnet: %s", vnet);
  if (!NXCServiceStart(num, NXC_SERVICE_NETIFUP)) {
    NXCLog(LOG_ERR, fn, "Failure in starting netifup service on vnet: %s", vnet);
  } else if (NXCVirtAdapterEnable(num)) {
    NXCLog(LOG_OK, fn, "Successfully enabled hostonly adapter on vnet: %s", vnet);
    return true;
  } else {
    NXCLog(LOG_ERR, fn, "Failed to enable hostonly adapter on vnet: %s", vnet);
  }
  if (!NXCServiceStop(num, NXC_SERVICE_NETIFUP))
    NXCLog(LOG_ERR, fn, "Failure in stopping netifup service on vnet: %s during cleanup", vnet);
  else
    NXCLog(LOG_INFO2, fn, "Stopped netifup service on vnet: %s during cleanup", vnet);
  return false;
}

}  // namespace

extern "C" bool NXC_GetBridgeDefaultNetwork(NXC_NetID *netId) noexcept {
  static constexpr char kFn[] = "NXC_GetBridgeDefaultNetwork";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - n: %p", (void *)netId);
  if (!netId) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - netId: %p", (void *)netId);
    return call.Exit(__LINE__, false);
  }
  if (netId->version != NXC_NETID_VERSION) {
    NXCLog(LOG_ERR, kFn, "Unsupported version number: %u", netId->version);
    return call.Exit(__LINE__, false);
  }
  int32_t vnet = -1;
  if (!NXCGetDefaultBridgeVnet(&vnet)) {
    NXCLog(LOG_ERR, kFn, "Failed to get value of default bridge");
    return call.Exit(__LINE__, false);
  }
  netId->vnet = static_cast<uint32_t>(vnet);
  netId->type = NXC_NETID_TYPE_VNET;
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_SetBridgeDefaultNetwork(const NXC_NetID *netId) noexcept {
  static constexpr char kFn[] = "NXC_SetBridgeDefaultNetwork";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - n: %p", (const void *)netId);
  if (!netId || !NXCValidateNetIDStruct(netId)) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments - netId: %p", (const void *)netId);
    return call.Exit(__LINE__, false);
  }
  // Only vnet 0 can be the default bridge; all ones switches it off.
  if (netId->vnet != 0 && netId->vnet != NXC_INVALID_VNET) {
    NXCLog(LOG_ERR, kFn, "Invalid vnet number for default bridge: %d",
           static_cast<int32_t>(netId->vnet));
    return call.Exit(__LINE__, false);
  }
  DefaultBridgeChange c{};
  c.request = static_cast<int32_t>(netId->vnet);
  if (!NXCGetDefaultBridgeVnet(&c.oldDefault)) {
    NXCLog(LOG_ERR, kFn, "Failed to get value of default bridge");
    return call.Exit(__LINE__, false);
  }
  if (c.oldDefault == c.request) {
    NXCLog(LOG_INFO, kFn,
           "Current and requested values of DefaultBridgeVnet are same. Nothing to do");
    return call.Exit(__LINE__, true);
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  c.readOnly = NXCNetCfgIsReadOnly(nullptr);
  c.setVnet = c.request == 0 ? -1 : c.oldDefault;
  c.target = c.request == 0 ? 0 : c.oldDefault;
  bool ok = ChangeDefaultBridge(kFn, c);
  NXCFreeHostAdapList(&c.list);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_GetHostAdapterList(uint32_t version, NXC_HostAdapterList **list) noexcept {
  static constexpr char kFn[] = "NXC_GetHostAdapterList";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %u, h: %p", version, (void *)list);
  if (!list) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - header: %p", (void *)list);
    return call.Exit(__LINE__, false);
  }
  if (version != 1) {
    NXCLog(LOG_ERR, kFn, "Unsupported version number: %u", version);
    return call.Exit(__LINE__, false);
  }
  uint32_t count = 0;
  NXC_HostAdapter *raw = nullptr;
  if (!NXCGetVnetBridge(NXC_ALL_HOST_ADAPTERS, &count, &raw)) {
    NXCLog(LOG_ERR, kFn, "Error creating list of adapters on host");
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Obtained non-contig list of %u adapters", count);
  NXC_HostAdapterList *block = ContiguousAdapterList(kFn, count, raw);
  if (block) {
    *list = block;
    NXCLog(LOG_OK, kFn, "Returning list of %u host adapters", block->count);
  }
  NXCLog(LOG_INFO2, kFn, "Freeing non-contig list of adapters");
  NXCFreeHostAdapList(&raw);
  return call.Exit(__LINE__, block != nullptr);
}

// Works whether or not the library is loaded, and accepts null.
extern "C" void NXC_FreeHostAdapterList(NXC_HostAdapterList *list) noexcept {
  static constexpr char kFn[] = "NXC_FreeHostAdapterList";
  ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  free(list);
  call.Exit(__LINE__);
}

extern "C" bool NXC_BridgeMoveAdapter(const NXC_HostAdapter *adapter, const NXC_NetID *source,
                                      const NXC_NetID *destination) noexcept {
  static constexpr char kFn[] = "NXC_BridgeMoveAdapter";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - a: %p, s: %p, d: %p", (const void *)adapter,
         (const void *)source, (const void *)destination);
  if (!adapter) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments - adapter: %p", (const void *)adapter);
    return call.Exit(__LINE__, false);
  }
  if (adapter->version != 1) {
    NXCLog(LOG_ERR, kFn, "Unsupported adapter version: %u", adapter->version);
    return call.Exit(__LINE__, false);
  }
  // The caller's entry may come from anywhere: its name is read only up to
  // the end of its field.
  char name[NXC_ADAPTER_NAME_LEN];
  (void)snprintf(name, sizeof name, "%.*s", static_cast<int>(sizeof name - 1),
                 adapter->mappingName);

  AdapterMove m{};
  m.name = name;
  if (!NXCGetDefaultBridgeVnet(&m.defaultBridge)) {
    NXCLog(LOG_ERR, kFn, "Failed to get value of default bridge");
    return call.Exit(__LINE__, false);
  }
  m.destination = m.defaultBridge;
  if (destination) {
    if (!NXCValidateNetIDStruct(destination)) {
      NXCLog(LOG_ERR, kFn, "Invalid destination network");
      return call.Exit(__LINE__, false);
    }
    m.destination = static_cast<int32_t>(destination->vnet);
  }
  if (!SourceVnet(kFn, name, source, &m.source)) return call.Exit(__LINE__, false);
  NXCLog(LOG_INFO2, kFn, "SourceVnet: %d, DestinationVnet: %d", m.source, m.destination);
  if (m.source == m.destination) {
    NXCLog(LOG_INFO, kFn, "Host adapter: %s is already configured as bridge for vnet: %d", name,
           m.destination);
    return call.Exit(__LINE__, true);
  }
  if (m.destination != m.defaultBridge && m.destination != -1 &&
      !NXCGetVnetBridge(m.destination, nullptr, &m.displaced)) {
    NXCLog(LOG_ERR, kFn, "Failed to get adapter bridged to vnet: %d", m.destination);
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock()) {
    NXCFreeHostAdapList(&m.displaced);
    return call.Exit(__LINE__, false);
  }
  m.readOnly = NXCNetCfgIsReadOnly(nullptr);
  bool ok = MoveAdapter(kFn, m);
  NXCFreeHostAdapList(&m.displaced);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_DisableNetworkAdapter(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_DisableNetworkAdapter";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  uint32_t num = 0;
  if (!ApiVnetArgument(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  char adapter[kAdapterNameSize] = "";
  if (!NXCGetVnetVirtAdapter(num, adapter, sizeof adapter)) {
    NXCLog(LOG_ERR, kFn, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  if (NXCAdapterStatus(adapter) == NXC_ADAPTER_STATUS_ABSENT) {
    NXCLog(LOG_INFO2, kFn, "Hostonly adapter: %s does not exist", vnet);
    return call.Exit(__LINE__, true);
  }
  // Adapter and daemon changes never interleave: locked even when the
  // database is read-only.
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  // The daemon is stopped whether or not the adapter went down; the stop
  // decides the result.
  if (NXCVirtAdapterDisable(num))
    NXCLog(LOG_INFO, kFn, "Successfully disabled hostonly adapter: %s for vnet: %s", adapter, vnet);
  else
    NXCLog(LOG_ERR, kFn, "Failed to disable hostonly adapter: %s for vnet: %s", adapter, vnet);
  NXCLog(LOG_INFO2, kFn, "Attempting to stop netifup service on vnet: %s", vnet);
  bool ok = NXCServiceStop(num, NXC_SERVICE_NETIFUP);
  if (ok)
    NXCLog(LOG_INFO, kFn, "Stopped netifup service on vnet: %s", vnet);
  else
    NXCLog(LOG_ERR, kFn, "Failed to stop netifup service on vnet: %s", vnet);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_EnableNetworkAdapter(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_EnableNetworkAdapter";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  uint32_t num = 0;
  if (!ApiVnetArgument(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  if (!NXCVnetIsOptionConfigured(num, NXC_VNET_OPTION_ADAPTER)) {
    NXCLog(LOG_ERR, kFn, "Hostonly adapter not configured for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  char adapter[kAdapterNameSize] = "";
  if (!NXCGetVnetVirtAdapter(num, adapter, sizeof adapter)) {
    NXCLog(LOG_ERR, kFn, "Failed to get the virtual adapter's name");
    return call.Exit(__LINE__, false);
  }
  if (NXCAdapterStatus(adapter) == NXC_ADAPTER_STATUS_UP) {
    NXCLog(LOG_INFO2, kFn, "Adapter is already enabled");
    return call.Exit(__LINE__, true);
  }
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  bool ok = EnableWithNetifup(kFn, num, vnet);
  return call.Exit(__LINE__, ok);
}
