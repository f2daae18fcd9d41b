// bridge.cpp - the default bridge vnet, per-adapter bridge mappings and the
// effective list of host adapters a vnet bridges.
//
// An adapter belongs to the vnet of its explicit mapping in the database's
// bridge mapping table; an adapter without one belongs to the default bridge
// vnet (0) or, when the default bridge is switched off (-1), to no vnet.
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
