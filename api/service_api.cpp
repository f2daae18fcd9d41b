// service_api.cpp - the public calls that start, stop and query a vnet's
// daemons, create and delete its device node, and remove a whole vnet from
// the configuration.
#include "api/api_util.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {

// A public service type resolved to its service.
struct ServiceTarget {
  uint32_t vnet;
  uint32_t id;
  const char *desc;
};

uint32_t ServiceForType(uint32_t type) {
  switch (type) {
    case NXC_SERVICE_TYPE_BRIDGE:
      return NXC_SERVICE_BRIDGE;
    case NXC_SERVICE_TYPE_DHCP:
      return NXC_SERVICE_DHCP;
    case NXC_SERVICE_TYPE_NAT:
      return NXC_SERVICE_NAT;
    case NXC_SERVICE_TYPE_NETIFUP:
      return NXC_SERVICE_NETIFUP;
    default:
      return 0;
  }
}

// The argument trace and checks the three service calls share.
[[nodiscard]]
bool ResolveService(const char *fn, const char *vnet, uint32_t type, ServiceTarget *out) {
  NXCLog(LOG_ARGS, fn, "Arguments - v: %p,%s, sT: %u", (const void *)vnet, OrNull(vnet), type);
  uint32_t id = ServiceForType(type);
  if (!vnet || id == 0) {
    NXCLog(LOG_ERR, fn, "Invalid argument - vnet: %p, serviceType: %u", (const void *)vnet, type);
    return false;
  }
  if (!ApiVnetNumber(vnet, fn, &out->vnet)) return false;
  out->id = id;
  out->desc = NXCLookupDescStringForServiceID(id);
  return true;
}

// The checks a start makes before it touches anything.
[[nodiscard]] bool ServiceCanStart(const char *fn, const ServiceTarget &s) {
  if (!NXCVnetIsOptionConfigured(s.vnet, NXCLookupConfigOptionForServiceID(s.id))) {
    NXCLog(LOG_ERR, fn, "\"%s\" service is not configured for this vnet", s.desc);
    return false;
  }
  if (s.id != NXC_SERVICE_BRIDGE && !NXCVnetIsOptionConfigured(s.vnet, NXC_VNET_OPTION_SUBNET)) {
    NXCLog(LOG_ERR, fn, "Subnet is not assigned, so service \"%s\" is invalid", s.desc);
    return false;
  }
  if (s.id == NXC_SERVICE_NAT && !NXCFileExists(static_cast<int32_t>(s.vnet), NXC_FILE_NAT_CONF, nullptr)) {
    NXCLog(LOG_ERR, fn, "NAT configuration file needed for the service does not exist");
    return false;
  }
  if (s.id == NXC_SERVICE_DHCP &&
      !NXCFileExists(static_cast<int32_t>(s.vnet), NXC_FILE_DHCPD_CONF, nullptr)) {
    NXCLog(LOG_ERR, fn, "DHCP configuration file needed for the service does not exist");
    return false;
  }
  return true;
}

}  // namespace

extern "C" bool NXC_StartService(const char *vnet, uint32_t serviceType) noexcept {
  static constexpr char kFn[] = "NXC_StartService";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  ServiceTarget s{};
  if (!ResolveService(kFn, vnet, serviceType, &s) || !ServiceCanStart(kFn, s))
    return call.Exit(__LINE__, false);
  if (NXCServiceStatus(s.vnet, s.id) == NXC_SERVICE_RUNNING) {
    NXCLog(LOG_INFO, kFn, "\"%s\" Service is already running on the vnet: %s", s.desc, vnet);
    return call.Exit(__LINE__, true);
  }
  // Daemon changes never interleave with configuration changes, so the
  // lock is taken even for a read-only database.
  if (!call.Lock(/*evenReadOnly=*/true)) return call.Exit(__LINE__, false);
  bool ok = false;
  if (!NXCCreateFile(static_cast<int32_t>(s.vnet), NXC_FILE_VNET_DEVICE, nullptr)) {
    NXCLog(LOG_ERR, kFn, "Failed to create required vnet device before starting \"%s\" service",
           s.desc);
  } else {
    NXCLog(LOG_INFO2, kFn, "Success in creating zynet device before starting \"%s\" service for vnet: %s",
           s.desc, vnet);
    ok = NXCServiceStart(s.vnet, s.id);
    if (ok)
      NXCLog(LOG_OK, kFn, "Started \"%s\" service for vnet: %s", s.desc, vnet);
    else
      NXCLog(LOG_ERR, kFn, "Failure in starting \"%s\" service for vnet: %s", s.desc, vnet);
  }
  return call.Exit(__LINE__, ok);
}

// This call writes no exit banner on any path: its entry banner stands
// alone in the log, as callers' log readers have always seen it.
extern "C" bool NXC_StopService(const char *vnet, uint32_t serviceType) noexcept {
  static constexpr char kFn[] = "NXC_StopService";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  ServiceTarget s{};
  if (!ResolveService(kFn, vnet, serviceType, &s)) return false;
  if (!call.Lock(/*evenReadOnly=*/true)) return false;
  bool ok = NXCServiceStop(s.vnet, s.id);
  if (ok)
    NXCLog(LOG_OK, kFn, "Stopped \"%s\" service on vnet: %s", s.desc, vnet);
  else
    NXCLog(LOG_ERR, kFn, "Failure in stopping \"%s\" service on vnet: %s", s.desc, vnet);
  return call.ExitWithoutBanner(ok);
}

extern "C" uint32_t NXC_GetServiceStatus(const char *vnet, uint32_t serviceType) noexcept {
  static constexpr char kFn[] = "NXC_GetServiceStatus";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return 0;
  ServiceTarget s{};
  if (!ResolveService(kFn, vnet, serviceType, &s))
    return call.Exit(__LINE__, NXC_SERVICE_STATUS_UNKNOWN);
  uint32_t status = NXCServiceStatus(s.vnet, s.id);
  if (status == NXC_SERVICE_STATUS_UNKNOWN)
    NXCLog(LOG_ERR, kFn, "Failure in determining status of \"%s\" service on vnet: %s", s.desc, vnet);
  else
    NXCLog(LOG_INFO, kFn, "\"%s\" service is currently %s on vnet: %s", s.desc,
           status == NXC_SERVICE_NOT_RUNNING ? "stopped" : "running", vnet);
  return call.Exit(__LINE__, status);
}

extern "C" bool NXCCreateDeleteZynetDevice(const char *vnet, bool create) noexcept {
  static constexpr char kFn[] = "NXCCreateDeleteZynetDevice";
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  if (!vnet) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p", (const void *)vnet);
    return false;
  }
  // A bad name is logged, and the file layer then refuses the number.
  uint32_t num = NXCConvVnetNameToNum(vnet);
  if (num >= NXC_NUM_VNETS) NXCLog(LOG_ERR, kFn, "Invalid vnet name: %s", vnet);
  int32_t n = static_cast<int32_t>(num);
  bool ok = create ? NXCCreateFile(n, NXC_FILE_VNET_DEVICE, nullptr)
                   : NXCRemoveFile(n, NXC_FILE_VNET_DEVICE, nullptr);
  if (!ok)
    NXCLog(LOG_ERR, kFn, "Failed to %s zynet device for zyet: %s",  // sic
           create ? "create" : "delete", vnet);
  return ok;
}

extern "C" bool NXC_CreateZynetDevice(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_CreateZynetDevice";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  return call.Exit(__LINE__, NXCCreateDeleteZynetDevice(vnet, true));
}

extern "C" bool NXC_DeleteZynetDevice(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_DeleteZynetDevice";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  return call.Exit(__LINE__, NXCCreateDeleteZynetDevice(vnet, false));
}

namespace {

// Tests each daemon of the vnet in turn: false (after logging) when a
// status cannot be read; *busy is set for every daemon that runs, and the
// others are still tested. Each row holds its service's three texts whole.
[[nodiscard]]
bool CheckServicesStopped(const char *fn, uint32_t vnet, const char *name, bool *busy) {
  struct Check {
    uint32_t id;
    const char *unknown;
    const char *running;
    const char *stopped;
  };
  static constexpr Check kChecks[] = {
      {NXC_SERVICE_BRIDGE, "Cannot determine status of bridge service on vnet: %s",
       "Bridge service is still running on this vnet Cannot delete config information",
       "Bridge service is not running on vnet: %s"},
      {NXC_SERVICE_DHCP, "Cannot determine status of DHCP service on vnet: %s",
       "DHCP service is still running on this vnet Cannot delete config information",
       "DHCP service is not running on vnet: %s"},
      {NXC_SERVICE_NAT, "Cannot determine status of NAT service on vnet: %s",
       "NAT service is still running on this vnet Cannot delete config information",
       "NAT service is not running on vnet: %s"},
      {NXC_SERVICE_NETIFUP, "Cannot determine status of NETIFUP service on vnet: %s",
       "NETIFUP service is still running on this vnet Cannot delete config information",
       "NETIFUP service is not running on vnet: %s"},
  };
  for (const Check &c : kChecks) {
    uint32_t status = NXCServiceStatus(vnet, c.id);
    if (status == NXC_SERVICE_STATUS_UNKNOWN) {
      NXCLog(LOG_ERR, fn, c.unknown, name);
      return false;
    }
    if (status == NXC_SERVICE_RUNNING) {
      NXCLog(LOG_ERR, fn, c.running, name);
      *busy = true;
    } else {
      NXCLog(LOG_INFO2, fn, c.stopped, name);
    }
  }
  return true;
}

// A vnet is removed only while nothing of it runs: no daemon, and no
// host-only adapter up.
[[nodiscard]] bool VnetIsIdle(const char *fn, uint32_t vnet, const char *name) {
  bool busy = false;
  if (!CheckServicesStopped(fn, vnet, name, &busy)) return false;
  char adapter[16];
  if (!NXCGetVnetVirtAdapter(vnet, adapter, sizeof adapter)) {
    NXCLog(LOG_ERR, fn, "Failed to get the name of the hostonly adapter for vnet: %s", name);
    return false;
  }
  uint32_t state = NXCAdapterStatus(adapter);
  if (state == NXC_ADAPTER_STATUS_ERROR) {
    NXCLog(LOG_ERR, fn, "Could not determine status of hostonly adapter for vnet: %s", name);
    return false;
  }
  if (state != NXC_ADAPTER_STATUS_ABSENT) {
    NXCLog(LOG_ERR, fn, "Hostonly Adapter %s is still enabled on vnet: %s. Cannot delete config information",
           adapter, name);
    return false;
  }
  NXCLog(LOG_INFO2, fn, "Hostonly Adapter %s is disabled on vnet: %s", adapter, name);
  return !busy;
}

// Every removal of a vnet's configuration, each attempted whatever became
// of the others; true when all succeeded.
[[nodiscard]]
bool RemoveVnetConfiguration(const char *fn, uint32_t vnet, const char *name, bool readOnly) {
  bool all = true;
  if (NXCRemoveBridgeMappingsForVnet(static_cast<int32_t>(vnet))) {
    NXCLog(LOG_INFO, fn, "Removed bridge mappings for vnet: %s", name);
  } else {
    NXCLog(LOG_ERR, fn, "Falied to remove brige mappings for vnet: %s", name);  // sic
    all = false;
  }
  if (NXCSetVnetUseDHCP(vnet, false, true)) {
    NXCLog(LOG_INFO, fn, "Removed DHCP on vnet: %s", name);
  } else {
    // The NAT wording is used for the DHCP failure as well.
    NXCLog(LOG_ERR, fn, "Removing NAT failed on vnet: %s, current status unknown", name);
    all = false;
  }
  if (!readOnly) {
    if (NXCDHCPUpdateFromConfig(vnet)) {
      NXCLog(LOG_INFO, fn, "Removed DHCP system configuraiton file, for vnet: %s", name);  // sic
    } else {
      NXCLog(LOG_ERR, fn, "Failed to remove DHCP system configuraiton file, for vnet: %s", name);
      all = false;
    }
  }
  if (NXCSetVnetUseNAT(vnet, false, true)) {
    NXCLog(LOG_INFO, fn, "Removed NAT on vnet: %s", name);
  } else {
    NXCLog(LOG_ERR, fn, "Removing NAT failed on vnet: %s, current status unknown", name);
    all = false;
  }
  if (!readOnly) {
    if (NXCNATUpdateFromConfig(vnet)) {
      NXCLog(LOG_INFO, fn, "Removed NAT system configuration file, for vnet: %s", name);
    } else {
      NXCLog(LOG_ERR, fn, "Failed to remove NAT system configuraiton file, for vnet: %s",  // sic
             name);
      all = false;
    }
  }
  if (NXCSetVnetUseAdapter(vnet, false, true)) {
    NXCLog(LOG_INFO, fn, "Removed Adapter from vnet: %s", name);
  } else {
    NXCLog(LOG_ERR, fn, "Failed to delete adapter from configuration");
    all = false;
  }
  if (NXCRemoveSubnetAssignment(vnet)) {
    NXCLog(LOG_INFO, fn, "Removed subnet assignment for vnet: %s", name);
  } else {
    NXCLog(LOG_ERR, fn, "Failed to delete subnet assignment");
    all = false;
  }
  if (!NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_VNET_DEVICE, nullptr)) {
    NXCLog(LOG_ERR, fn, "Failed to delete zynet device");
    all = false;
  }
  return all;
}

}  // namespace

extern "C" bool NXC_DeleteVnetFromDatabase(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_DeleteVnetFromDatabase";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  if (!vnet) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p", (const void *)vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  bool readOnly = NXCNetCfgIsReadOnly(nullptr);
  if (!readOnly && !VnetIsIdle(kFn, num, vnet)) return call.Exit(__LINE__, false);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = RemoveVnetConfiguration(kFn, num, vnet, readOnly);
  if (ok)
    NXCLog(LOG_OK, kFn, "Vnet: %s is successfully unconfigured", vnet);
  else
    NXCLog(LOG_ERR, kFn,
           "Not able to delete some configration information for one/more of the services for vnet: %s",  // sic
           vnet);
  return call.Exit(__LINE__, ok);
}
