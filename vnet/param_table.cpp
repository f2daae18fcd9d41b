// param_table.cpp - the steps the DHCP and NAT parameter layers share.
#include "vnet/param_table.h"

#include <string.h>

#include "nexcfg_internal.h"

namespace nxc {

const char *ParamOption(const ParamTable &t, uint32_t id) {
  if (id < t.firstStored || id > t.lastStored) return nullptr;
  return t.options[id - t.base];
}

const char *ParamName(const ParamTable &t, uint32_t id) {
  if (id < t.firstStored || id > t.lastNamed) return t.invalidName;
  return t.names[id - t.base];
}

uint32_t MapExternalParamId(const ParamTable &t, uint32_t external, const char *fn) {
  uint32_t internal = t.unmapped;
  bool mapped = false;
  for (const ExternalParamId &m : t.externalIds) {
    if (m.external != external) continue;
    internal = m.internal;
    mapped = true;
    break;
  }
  if (!mapped) NXCLog(LOG_ERR, fn, "Could not map external paramID: %u", external);
  if (t.mappedTrace) NXCLog(LOG_INFO2, fn, t.mappedTrace, external, internal);
  return internal;
}

[[nodiscard]]
bool SetParam(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, const char *value) {
  if (!value) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return false;
  }
  if (!t.checkValue(id, value, fn)) return false;
  if (!NXCSetVnetCfg(vnet, ParamOption(t, id), value)) {
    NXCLog(LOG_ERR, fn, t.setFailed, ParamName(t, id), static_cast<int>(vnet));
    return false;
  }
  NXCLog(LOG_INFO2, fn, t.setSucceeded, ParamName(t, id), value, static_cast<int>(vnet));
  return true;
}

[[nodiscard]]
bool GetParam(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, bool useDefault,
              char *buf, size_t size) {
  const char *option = ParamOption(t, id);
  if (!option && t.unknownOnGet) {
    NXCLog(LOG_ERR, fn, t.unknownOnGet, static_cast<int>(id));
    return false;
  }
  const char *name = ParamName(t, id);
  // Without an option nothing is found.
  const char *stored = NXCGetVnetCfg(vnet, option);
  if (stored) {
    size_t need = strlen(stored) + 1;
    if (need > size || !buf) {
      t.noRoom(fn, id, name, size, need, /*forDefault=*/false);
      return false;
    }
    memcpy(buf, stored, need);
    NXCLog(LOG_INFO2, fn, t.storedValue, name, buf, static_cast<int>(vnet));
    return true;
  }
  NXCLog(t.notFoundLevel, fn, t.notFound, name, static_cast<int>(vnet));
  if (!useDefault) return false;
  NXCLog(LOG_INFO2, fn, "%s", t.reverting);
  if (!t.getDefault(vnet, id, buf, size)) {
    NXCLog(LOG_ERR, fn, "Failure in getting default value of parameter");
    return false;
  }
  return true;
}

[[nodiscard]]
bool GetParamDefault(const ParamTable &t, const char *fn, uint32_t vnet, uint32_t id, char *buf,
                     size_t size) {
  char text[kParamTextSize] = "";
  bool shortBufferSucceeds = false;
  if (!t.computeDefault(vnet, id, text, &shortBufferSucceeds, fn)) return false;
  size_t need = strlen(text) + 1;
  if (need > size || !buf) {
    t.noRoom(fn, id, ParamName(t, id), size, need, /*forDefault=*/true);
    return shortBufferSucceeds;
  }
  memcpy(buf, text, need);
  NXCLog(LOG_INFO2, fn, t.defaultValue, ParamName(t, id), buf, static_cast<int>(vnet));
  return true;
}

[[nodiscard]]
bool RemoveParams(const char *fn, uint32_t vnet, std::span<const ParamRemoval> steps,
                  bool (*remove)(uint32_t vnet, uint32_t id)) {
  bool ok = true;
  int withNat = -1;  // asked when the first step that depends on it comes
  for (const ParamRemoval &step : steps) {
    if (step.onlyWithNat) {
      if (withNat < 0) withNat = NXCGetVnetUseNAT(vnet) ? 1 : 0;
      if (!withNat) continue;
    }
    if (!remove(vnet, step.id)) {
      ok = false;
      NXCLog(LOG_ERR, fn, "%s", step.failed);
    }
  }
  return ok;
}

}  // namespace nxc
