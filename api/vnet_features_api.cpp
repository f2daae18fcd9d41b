// vnet_features_api.cpp - the public calls that switch a vnet's host-only
// adapter, DHCP server and NAT on and off, read the switches back, report
// the host-only adapter's state and regenerate a service's configuration
// from the database.
//
// Switching a feature on gives a vnet without a subnet a free one first; a
// subnet assigned that way is taken away again in the same call when the
// switch fails, before the lock is released.
#include "api/api_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {


// The texts and calls that tell the three switches apart. Each text is a
// whole log line; the comment on each column says which arguments it is
// given (a format that uses fewer simply ignores the rest).
struct FeatureSwitch {
  const char *fn;
  const char *argsTrace;         // vnet pointer, vnet text, use, cleanup
  const char *nullVnet;          // vnet pointer
  bool (*current)(uint32_t vnet);
  bool (*set)(uint32_t vnet, bool use, bool removeConfig);
  const char *sameState;         // (LOG_INFO) no arguments
  const char *cleanedUp;         // (LOG_INFO) vnet name
  const char *cleanUpFailed;     // vnet name
  const char *changeTrace;       // current state, requested state
  const char *switchOnTrace;     // vnet name; null when the feature has none
  const char *subnetAttempt;     // vnet name
  const char *subnetAssigned;    // vnet name, at subnetAssignedLevel
  uint32_t subnetAssignedLevel;
  const char *subnetFailed;      // vnet name
  const char *undoNotice;        // vnet name; null when the feature has none
  const char *onSucceeded;       // (LOG_OK) vnet name
  const char *onFailed;          // vnet name
  const char *offSucceeded;      // (LOG_OK) vnet name
  const char *offFailed;         // vnet name
};

[[nodiscard]] bool AdapterConfigured(uint32_t vnet) {
  return NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_ADAPTER);
}

constexpr FeatureSwitch kAdapterSwitch = {
    "NXC_SetVnetUseAdapter",
    "Arguments - v: %p,%s, uA: %u, c: %u",
    "Invalid argument - vnet: %p",
    AdapterConfigured,
    NXCSetVnetUseAdapter,
    "Current Adapter status and requested status are same",
    "Cleaned up existing adapter configuration values for vnet: %s",
    "Failed to cleanup existing adapter configuration values for vnet: %s",
    "Changing Adapter status",
    nullptr,
    "Attemping to configure subnet for vnet",  // sic
    "New subnet configured",
    LOG_INFO,
    "Failed to assign subnet to vnet",
    nullptr,
    "Success in configuring Adapter for the vnet",
    "Configuring Adapter failed on vnet: %s, current status unknown",
    "Success in unconfiguring Adapter on vnet: %s",
    "Unconfiguring Adapter failed on vnet: %s, current status unknown",
};

constexpr FeatureSwitch kDhcpSwitch = {
    "NXC_SetVnetUseDHCP",
    "Arguments - v: %p,%s, uD: %u",  // the clean-up byte is not traced
    "Invalid argument - %p",
    NXCGetVnetUseDHCP,
    NXCSetVnetUseDHCP,
    "Current DHCP status and requested status are same",
    "Cleaned up existing DHCP configuration for vnet: %s",
    "Failed to cleanup existing DHCP configuration for vnet: %s",
    "Current DHCP status: %u, requested status: %u, changing DHCP status",
    nullptr,
    "Attemping to configure subnet for vnet",  // sic
    "New subnet configured",
    LOG_INFO2,
    "Failed to assign subnet to vnet",
    nullptr,
    "Success in configuring DHCP for the vnet",
    "Configuring DHCP failed on vnet: %s, current status unknown",
    "Success in unconfiguring DHCP  on vnet: %s",  // sic: two blanks
    "Unconfiguring DHCP failed on vnet: %s, current status unknown",
};

constexpr FeatureSwitch kNatSwitch = {
    "NXC_SetVnetUseNAT",
    "Arguments - v: %p,%s, uN: %u",
    "Invalid argument - vnet: %p",
    NXCGetVnetUseNAT,
    NXCSetVnetUseNAT,
    "Current NAT status and requested status are same",
    "Cleaned up existing NAT configuration for vnet: %s",
    "Failed to cleanup existing NAT configuration for vnet: %s",
    "Current NAT status: %u, requested status: %u, changing NAT status",
    // Printed on the way on, in these words, as callers' log readers know it.
    "Setting NAT to \"dont use\" for vnet: %s",
    "Attempting to assign an unused subnet for vnet: %s",
    "New subnet configured for vnet: %s",
    LOG_INFO2,
    "Failed to assign subnet to vnet: %s",
    "Removing assigned subnet for vnet: %s because of error",
    "Success in configuring NAT for vnet: %s",
    "Configuring NAT failed on vnet: %s",
    "Success in unconfiguring NAT on vnet: %s",
    "Unconfiguring NAT failed on vnet: %s",
};

// Takes away the subnet this call assigned. A failure of the removal is
// not reported: the switch has failed already.
void UndoSubnetAssignment(const FeatureSwitch &s, uint32_t vnet, const char *name) {
  if (s.undoNotice) NXCLog(LOG_ERR, s.fn, s.undoNotice, name);
  (void)NXCRemoveSubnetAssignment(vnet);
}

// The switch's work once the lock is held.
[[nodiscard]]
bool ChangeFeature(const FeatureSwitch &s, uint32_t vnet, const char *name, bool use,
                   bool cleanup) {
  bool current = s.current(vnet);
  if (current == use) {
    NXCLog(LOG_INFO, s.fn, s.sameState, name);
    if (!cleanup) return true;
    if (!s.set(vnet, use, cleanup)) {
      NXCLog(LOG_ERR, s.fn, s.cleanUpFailed, name);
      return false;
    }
    NXCLog(LOG_INFO, s.fn, s.cleanedUp, name);
    return true;
  }
  NXCLog(LOG_INFO2, s.fn, s.changeTrace, current ? 1u : 0u, use ? 1u : 0u);
  if (!use) {
    if (!s.set(vnet, false, cleanup)) {
      NXCLog(LOG_ERR, s.fn, s.offFailed, name);
      return false;
    }
    NXCLog(LOG_OK, s.fn, s.offSucceeded, name);
    return true;
  }
  if (s.switchOnTrace) NXCLog(LOG_INFO2, s.fn, s.switchOnTrace, name);
  bool assigned = false;
  if (!NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_SUBNET)) {
    NXCLog(LOG_INFO2, s.fn, s.subnetAttempt, name);
    if (!NXCAssignUnusedSubnetAddressToVNet(vnet)) {
      NXCLog(LOG_ERR, s.fn, s.subnetFailed, name);
      // The assignment may have stored part of the subnet before failing.
      UndoSubnetAssignment(s, vnet, name);
      return false;
    }
    NXCLog(s.subnetAssignedLevel, s.fn, s.subnetAssigned, name);
    assigned = true;
  }
  if (!s.set(vnet, true, cleanup)) {
    NXCLog(LOG_ERR, s.fn, s.onFailed, name);
    // A subnet the vnet had before this call stays.
    if (assigned) UndoSubnetAssignment(s, vnet, name);
    return false;
  }
  NXCLog(LOG_OK, s.fn, s.onSucceeded, name);
  return true;
}

// The shared body of the three switch calls, after the loaded test. The
// lock it takes is released by the call's exit.
[[nodiscard]]
bool SetFeature(ApiCall &call, const FeatureSwitch &s, const char *vnet, bool use, bool cleanup) {
  NXCLog(LOG_ARGS, s.fn, s.argsTrace, (const void *)vnet, OrNull(vnet), use ? 1u : 0u,
         cleanup ? 1u : 0u);
  if (!vnet) {
    NXCLog(LOG_ERR, s.fn, s.nullVnet, (const void *)vnet);
    return false;
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, s.fn, &num)) return false;
  if (!call.Lock()) return false;
  return ChangeFeature(s, num, vnet, use, cleanup);
}

}  // namespace

extern "C" bool NXC_SetVnetUseAdapter(const char *vnet, bool use, bool cleanup) noexcept {
  static constexpr const char *kFn = kAdapterSwitch.fn;
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  return call.Exit(__LINE__, SetFeature(call, kAdapterSwitch, vnet, use, cleanup));
}

extern "C" bool NXC_SetVnetUseDHCP(const char *vnet, bool use, bool cleanup) noexcept {
  static constexpr const char *kFn = kDhcpSwitch.fn;
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  return call.Exit(__LINE__, SetFeature(call, kDhcpSwitch, vnet, use, cleanup));
}

extern "C" bool NXC_SetVnetUseNAT(const char *vnet, bool use, bool cleanup) noexcept {
  static constexpr const char *kFn = kNatSwitch.fn;
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  return call.Exit(__LINE__, SetFeature(call, kNatSwitch, vnet, use, cleanup));
}

// ---- Switch getters --------------------------------------------------------

// Neither getter locks: both only read. A failure reads as "off".
extern "C" bool NXC_GetVnetUseDHCP(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetUseDHCP";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v:%p,%s", (const void *)vnet, OrNull(vnet));
  uint32_t num = 0;
  if (!ApiVnetArgument(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  bool on = NXCGetVnetUseDHCP(num);
  NXCLog(LOG_INFO2, kFn, "DHCP %s on vnet: %s", on ? "configured" : "not configured", vnet);
  return call.Exit(__LINE__, on);
}

extern "C" bool NXC_GetVnetUseNAT(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetUseNAT";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  if (!vnet) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p", (const void *)vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  bool on = NXCGetVnetUseNAT(num);
  NXCLog(LOG_INFO2, kFn, "NAT %s on vnet %s", on ? "configured" : "not configured", vnet);
  return call.Exit(__LINE__, on);
}

// ---- Adapter state ---------------------------------------------------------

extern "C" bool NXC_GetVnetAdapterStatus(const char *vnet, bool *installed,
                                         bool *enabled) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetAdapterStatus";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, i: %p, e: %p", (const void *)vnet, OrNull(vnet),
         (void *)installed, (void *)enabled);
  if (!vnet || !installed || !enabled) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, installed: %p, e: %p", (const void *)vnet,
           (void *)installed, (void *)enabled);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  if (!NXCVnetIsOptionConfigured(num, NXC_VNET_OPTION_ADAPTER)) {
    *installed = false;
    *enabled = false;
    // An answer, not a failure, logged at the error level all the same:
    // callers' log readers look for it there.
    NXCLog(LOG_ERR, kFn, "Hostonly virtual adapter is not configured on vnet: %s", vnet);
    return call.Exit(__LINE__, true);
  }
  // "installed" is reported before the runtime state is asked, and stays
  // set when that fails.
  *installed = true;
  NXCLog(LOG_INFO2, kFn, "Hostonly virtual adapter is configured on vnet: %s", vnet);
  char name[kAdapterNameSize];
  if (!NXCGetVnetVirtAdapter(num, name, sizeof name)) {
    NXCLog(LOG_ERR, kFn, "Failed to get the name of hostonly adapter for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t state = NXCAdapterStatus(name);
  if (state == NXC_ADAPTER_STATUS_ERROR) {
    NXCLog(LOG_ERR, kFn, "Could not determing runtime status of adapter on vnet: %s",  // sic
           vnet);
    return call.Exit(__LINE__, false);
  }
  *enabled = state == NXC_ADAPTER_STATUS_UP;
  NXCLog(LOG_INFO2, kFn, "Hostonly virtual adapter is %s on vnet: %s",
         *enabled ? "enabled" : "disabled", vnet);
  return call.Exit(__LINE__, true);
}

// ---- Regeneration from the database ----------------------------------------

namespace {

// The argument trace and checks of the three update calls.
[[nodiscard]] bool UpdateTarget(const char *fn, const char *vnet, uint32_t *num) {
  NXCLog(LOG_ARGS, fn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  if (!vnet) {
    NXCLog(LOG_ERR, fn, "Invalid argument - zynet: %p", (const void *)vnet);
    return false;
  }
  return ApiVnetNumber(vnet, fn, num);
}

}  // namespace

// The two file updates demand a stopped daemon, so that a running one
// never reads a half-written file; a status that cannot be read refuses
// too. They lock even a read-only database: the files are written anyway.
extern "C" bool NXC_UpdateDHCPFromConfig(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_UpdateDHCPFromConfig";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  uint32_t num = 0;
  if (!UpdateTarget(kFn, vnet, &num)) return call.Exit(__LINE__, false);
  NXCLog(LOG_INFO2, kFn, "Checking to see if DHCP service is running");
  if (NXCServiceStatus(num, NXC_SERVICE_DHCP) != NXC_SERVICE_NOT_RUNNING) {
    NXCLog(LOG_ERR, kFn,
           "DHCP service is not in stopped state on this vnet, Cannot update config files");
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  const char *action = NXCGetVnetUseDHCP(num) ? "Writing" : "Removing";
  bool ok = NXCDHCPUpdateFromConfig(num);
  if (ok)
    NXCLog(LOG_OK, kFn, "%s DHCP configuration file succeeded for vnet: %s", action, vnet);
  else
    NXCLog(LOG_ERR, kFn, "%s DHCP configuration file failed for vnet: %s", action, vnet);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_UpdateNATFromConfig(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_UpdateNATFromConfig";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  uint32_t num = 0;
  if (!UpdateTarget(kFn, vnet, &num)) return call.Exit(__LINE__, false);
  NXCLog(LOG_INFO2, kFn, "Checking to see if NAT service is running");
  if (NXCServiceStatus(num, NXC_SERVICE_NAT) != NXC_SERVICE_NOT_RUNNING) {
    NXCLog(LOG_ERR, kFn,
           "NAT service is not in stopped state on this vnet,Cannot update config information");
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  const char *action = NXCGetVnetUseNAT(num) ? "Writing" : "Removing";
  bool ok = NXCNATUpdateFromConfig(num);
  if (ok)
    NXCLog(LOG_OK, kFn, "%s NAT configuration file succeeded for vnet: %s", action, vnet);
  else
    NXCLog(LOG_ERR, kFn, "%s NAT configuration file failed for vnet: %s", action, vnet);
  return call.Exit(__LINE__, ok);
}

namespace {

// Brings a configured adapter that is up down and up again, so that it
// takes the stored address. The result is the disable step's: the enable's
// outcome is only logged, and an adapter whose state cannot be read gives
// false even when it could be enabled.
[[nodiscard]] bool RefreshConfiguredAdapter(const char *fn, uint32_t vnet, const char *name) {
  char adapter[kAdapterNameSize];
  if (!NXCGetVnetVirtAdapter(vnet, adapter, sizeof adapter)) {
    NXCLog(LOG_ERR, fn, "Failed to get the name of hostonly adapter for vnet: %s", name);
    return false;
  }
  uint32_t state = NXCAdapterStatus(adapter);
  if (state == NXC_ADAPTER_STATUS_ABSENT || state == NXC_ADAPTER_STATUS_DOWN) {
    NXCLog(LOG_ERR, fn, "Adapter is currently disabled, nothing to update on vnet: %s", name);
    return true;
  }
  bool ok = false;
  if (state == NXC_ADAPTER_STATUS_UP) {
    if (!NXCVirtAdapterDisable(vnet)) {
      NXCLog(LOG_ERR, fn, "Failed to disable hostonly adapter: %s for vnet: %s", adapter, name);
      return false;
    }
    NXCLog(LOG_INFO, fn, "Successfully disabled hostonly adapter: %s for vnet: %s", adapter, name);
    ok = true;
  }
  if (NXCVirtAdapterEnable(vnet))
    NXCLog(LOG_OK, fn, "Successfully updated adapter from config on vnet: %s", name);
  else
    NXCLog(LOG_ERR, fn, "Failed to enable the virtual adapter on vnet: %s", name);
  return ok;
}

// A vnet without a host-only adapter: its adapter goes down and its netifup
// daemon stops. Both steps run; either failure makes the result false.
[[nodiscard]] bool RetireUnconfiguredAdapter(const char *fn, uint32_t vnet, const char *name) {
  NXCLog(LOG_ERR, fn, "Hostonly adapter not configured for vnet: %s", name);
  bool ok = NXCVirtAdapterDisable(vnet);
  if (!ok) NXCLog(LOG_ERR, fn, "Failed to disable hostonly adapter: %s for vnet: %s", "", name);
  if (!NXCServiceStop(vnet, NXC_SERVICE_NETIFUP)) {
    NXCLog(LOG_ERR, fn, "Failed to stop netifup service for vnet: %s", name);
    ok = false;
  }
  return ok;
}

}  // namespace

extern "C" bool NXC_UpdateAdapterFromConfig(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_UpdateAdapterFromConfig";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  uint32_t num = 0;
  if (!UpdateTarget(kFn, vnet, &num)) return call.Exit(__LINE__, false);
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  bool ok = NXCVnetIsOptionConfigured(num, NXC_VNET_OPTION_ADAPTER)
                ? RefreshConfiguredAdapter(kFn, num, vnet)
                : RetireUnconfiguredAdapter(kFn, num, vnet);
  return call.Exit(__LINE__, ok);
}
