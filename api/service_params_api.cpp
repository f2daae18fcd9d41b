// service_params_api.cpp - the public calls that read and write a vnet's
// DHCP and NAT parameters by their public parameter numbers.
//
// Public numbers are mapped to the layers' own; a number that maps to the
// layer's "unsupported" value is refused before the lock is taken.
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "api/api_util.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {

// "%.*s" precision for a caller's length.
int Precision(uint32_t length) { return length > INT_MAX ? INT_MAX : static_cast<int>(length); }

// The caller's count, for "%u" traces of a pointer that may be null.
uint32_t CountAt(const uint32_t *count) { return count ? *count : 0; }

}  // namespace

// ---- DHCP ------------------------------------------------------------------

extern "C" bool NXC_GetDHCPParam(const char *vnet, uint32_t paramId, bool useDefault, char *value,
                                 uint32_t *valueLen) noexcept {
  static constexpr char kFn[] = "NXC_GetDHCPParam";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, pID: %u, uD: %u, p: %p, pL: %p,%u",
         (const void *)vnet, OrNull(vnet), paramId, useDefault ? 1u : 0u, (void *)value,
         (void *)valueLen, CountAt(valueLen));
  if (!vnet || !value || !valueLen || *valueLen == 0) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - v: %p p: %p, pL: %p,%u", (const void *)vnet,
           (void *)value, (void *)valueLen, CountAt(valueLen));
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  uint32_t internalId = NXCDHCPMapIntParamID(paramId);
  if (internalId == NXC_DHCP_PARAM_INVALID) {
    NXCLog(LOG_ERR, kFn, "Unsupported DHCP Parameter");
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Mapped external param ID: %u to internal paramID: %u", paramId,
         internalId);
  if (!NXCDHCPGetParameter(num, internalId, useDefault, value, *valueLen)) {
    NXCLog(LOG_ERR, kFn, "Get DHCP Parameter failed on vnet: %s, paramID: %u", vnet, paramId);
    return call.Exit(__LINE__, false);
  }
  *valueLen = static_cast<uint32_t>(strlen(value) + 1);
  NXCLog(LOG_INFO2, kFn,
         "Success in getting value of DHCP parameter,vnet: %s, paramID: %u, value: %s, len: %u",
         vnet, paramId, value, *valueLen);
  return call.Exit(__LINE__, true);
}

namespace {

// The work of NXC_SetDHCPParam once the lock is held. The DHCP layer is
// given a terminated copy of the value, as far as valueLen reaches.
[[nodiscard]]
bool SetDhcpParam(const char *fn, const char *vnet, uint32_t num, uint32_t internalId,
                  const char *value, uint32_t valueLen) {
  if (!value) {
    if (!NXCDHCPRemoveParameter(num, internalId)) {
      NXCLog(LOG_ERR, fn, "Deleting DHCP parameter: %u failed for vnet: %s", internalId, vnet);
      return false;
    }
    NXCLog(LOG_OK, fn, "Deleted value for DHCP parameter: %u for vnet: %s", internalId, vnet);
    return true;
  }
  // Up to valueLen bytes or the first NUL: nothing past the caller's text.
  CPtr<char> copy(strndup(value, valueLen));
  if (!copy) {
    NXCLog(LOG_ERR, fn, "Memory allocation failure for DHCP parameter");
    return false;
  }
  if (!NXCDHCPSetParameter(num, internalId, copy.get())) {
    NXCLog(LOG_ERR, fn, "Setting value for DHCP Parameter failed, vnet: %s, paramID: %u, param: %s",
           vnet, internalId, copy.get());
    return false;
  }
  NXCLog(LOG_OK, fn, "Setting value for DHCP Parameter succeeded, vnet: %s, paramID: %u, param: %s",
         vnet, internalId, copy.get());
  return true;
}

}  // namespace

extern "C" bool NXC_SetDHCPParam(const char *vnet, uint32_t paramId, const char *value,
                                 uint32_t valueLen) noexcept {
  static constexpr char kFn[] = "NXC_SetDHCPParam";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, pID: %u, p: %p,%.*s pL: %u", (const void *)vnet,
         OrNull(vnet), paramId, (const void *)value, value ? Precision(valueLen) : 0,
         OrNull(value), valueLen);
  if (!vnet) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, param: %p", (const void *)vnet,
           (const void *)value);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  uint32_t internalId = NXCDHCPMapIntParamID(paramId);
  if (internalId == NXC_DHCP_PARAM_INVALID) {
    NXCLog(LOG_ERR, kFn, "Unsupported DHCP Parameter");
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Mapped external param ID: %u to internal paramID: %u", paramId,
         internalId);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = SetDhcpParam(kFn, vnet, num, internalId, value, valueLen);
  return call.Exit(__LINE__, ok);
}

// ---- NAT -------------------------------------------------------------------

namespace {

// The work of NXC_SetNATParam once the lock is held. Like the DHCP setter,
// the NAT layer gets the bounded copy: a caller's text need not be
// terminated within valueLen bytes, and reading on to a NUL would run past
// its end.
[[nodiscard]]
bool SetNatParam(const char *fn, const char *vnet, uint32_t num, uint32_t internalId,
                 const char *value, uint32_t valueLen) {
  if (!value) {
    if (!NXCNATRemoveParam(num, internalId)) {
      NXCLog(LOG_ERR, fn, "Deleting NAT parameter: %u failed for vnet: %s", internalId, vnet);
      return false;
    }
    NXCLog(LOG_OK, fn, "Deleted value for NAT parameter: %u for vnet: %s", internalId, vnet);
    return true;
  }
  // Up to valueLen bytes or the first NUL: nothing past the caller's text.
  CPtr<char> copy(strndup(value, valueLen));
  if (!copy) {
    NXCLog(LOG_ERR, fn, "Memory allocation failure for NAT param string");
    return false;
  }
  if (!NXCNATSetParameter(num, internalId, copy.get())) {
    NXCLog(LOG_ERR, fn, "Setting value for NAT parameter: %u, %s failed for vnet: %s", internalId,
           copy.get(), vnet);
    return false;
  }
  NXCLog(LOG_OK, fn, "Setting value for NAT parameter: %u, %s succeeded for vnet: %s", internalId,
         copy.get(), vnet);
  return true;
}

}  // namespace

extern "C" bool NXC_SetNATParam(const char *vnet, uint32_t paramId, const char *value,
                                uint32_t valueLen) noexcept {
  static constexpr char kFn[] = "NXC_SetNATParam";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, pID: %u, p: %p,%.*s, pL: %u", (const void *)vnet,
         OrNull(vnet), paramId, (const void *)value, value ? Precision(valueLen) : 0,
         OrNull(value), valueLen);
  if (!vnet) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p", (const void *)vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  uint32_t internalId = NXCNATMapIntParamID(paramId);
  if (internalId == NXC_NAT_PARAM_NOT_SUPPORTED) {
    NXCLog(LOG_ERR, kFn, "Unsupported NAT parameter: %u", paramId);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Mapped external parameter ID: %u to internal parameter ID: %u", paramId,
         internalId);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = SetNatParam(kFn, vnet, num, internalId, value, valueLen);
  return call.Exit(__LINE__, ok);
}

// This getter writes no argument trace.
extern "C" bool NXC_GetNATParam(const char *vnet, uint32_t paramId, bool useDefault, char *value,
                                uint32_t *valueLen) noexcept {
  static constexpr char kFn[] = "NXC_GetNATParam";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  if (!value || !valueLen || !vnet || *valueLen == 0) {
    NXCLog(LOG_ERR, kFn, "Invalid argument");
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  uint32_t internalId = NXCNATMapIntParamID(paramId);
  if (internalId == NXC_NAT_PARAM_NOT_SUPPORTED) {
    NXCLog(LOG_ERR, kFn, "Unsupported NAT parameter ID: %u", paramId);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_INFO2, kFn, "Mapped external NAT param ID: %u to internal param ID: %u", paramId,
         internalId);
  if (!NXCNATGetParameter(num, internalId, useDefault, value, *valueLen)) {
    NXCLog(LOG_ERR, kFn, "Getting value of NAT Parameter: %u failed for vnet: %s", paramId, vnet);
    return call.Exit(__LINE__, false);
  }
  *valueLen = static_cast<uint32_t>(strlen(value) + 1);
  NXCLog(LOG_INFO2, kFn,
         "Retrieved value of NAT parameter, paramID: %u, value: %s, len: %u for vnet: %s", paramId,
         value, *valueLen, vnet);
  return call.Exit(__LINE__, true);
}
