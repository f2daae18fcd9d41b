// vnet_attr_api.cpp - the public calls that read and change the plain
// attributes of one vnet: display name, subnet address and mask, host
// adapter address and MTU.
//
// Every call runs in the API call frame (core/api_frame.h). Getters check
// their buffer's capacity before anything else and take no lock; setters
// check the value before they take the database lock, which the call's exit
// releases before its banner. A NULL value given to a setter removes the
// setting.
//
// The calls that find, assign and test subnets and the NAT66 prefix calls
// belong to the same family and live here too.
#include <stdlib.h>
#include <string.h>

#include "api/api_util.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {

// Minimum capacities of the getters' buffers.
constexpr uint32_t kDisplayNameMinLen = 128;
// The MTU's stored text is read into a buffer of this size.
constexpr size_t kMtuTextSize = 128;
// A NAT prefix description holds at most this many bytes, its NUL included.
constexpr int32_t kNatPrefixDescSize = 128;

}  // namespace

// ---- Getters -------------------------------------------------------------

extern "C" bool NXC_GetVnetDisplayName(const char *vnet, char *name, uint32_t *nameLen) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetDisplayName";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, name: %p, nameLen:%p,%u", (const void *)vnet,
         OrNull(vnet), (void *)name, (void *)nameLen, nameLen ? *nameLen : 0);
  if (!vnet || !name || !nameLen || *nameLen < kDisplayNameMinLen) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, name: %p, nameLen:%p,%u",
           (const void *)vnet, (void *)name, (void *)nameLen, nameLen ? *nameLen : 0);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!NXCGetVnetDisplayName(vnetNum, name, *nameLen)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting display name");
    return call.Exit(__LINE__, false);
  }
  // The display name's length leaves its NUL out, unlike every other
  // getter's: callers depend on that.
  *nameLen = static_cast<uint32_t>(strlen(name));
  NXCLog(LOG_INFO2, kFn, "Retrieved display name: %s, len: %u", name, *nameLen);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetVnetSubnetAddr(const char *vnet, char *addr, uint32_t *addrLen) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetSubnetAddr";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, ad: %p, sz:%p,%u", (const void *)vnet,
         OrNull(vnet), (void *)addr, (void *)addrLen, addrLen ? *addrLen : 0);
  if (!vnet || !addr || !addrLen || *addrLen < kIPTextSize) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, addr: %p, addrLen:%p,%u",
           (const void *)vnet, (void *)addr, (void *)addrLen, addrLen ? *addrLen : 0);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!NXCGetVnetSubnetAddr(vnetNum, addr, *addrLen)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting subnet address");
    return call.Exit(__LINE__, false);
  }
  *addrLen = static_cast<uint32_t>(strlen(addr) + 1);
  NXCLog(LOG_INFO2, kFn, "Retrieved subnet address: %s, len: %u", addr, *addrLen);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetVnetSubnetMask(const char *vnet, char *mask, uint32_t *maskLen) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetSubnetMask";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, mask: %p, maskLen:%p,%u", (const void *)vnet,
         OrNull(vnet), (void *)mask, (void *)maskLen, maskLen ? *maskLen : 0);
  if (!vnet || !mask || !maskLen || *maskLen < kIPTextSize) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, mask: %p, maskLen:%p,%u",
           (const void *)vnet, (void *)mask, (void *)maskLen, maskLen ? *maskLen : 0);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!NXCGetVnetSubnetMask(vnetNum, mask, *maskLen)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting subnet mask");
    return call.Exit(__LINE__, false);
  }
  *maskLen = static_cast<uint32_t>(strlen(mask) + 1);
  NXCLog(LOG_INFO2, kFn, "Retrieved subnet mask: %s, len: %u", mask, *maskLen);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetVnetAdapterAddr(const char *vnet, char *addr, uint32_t *addrLen,
                                       bool computeIfAbsent) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetAdapterAddr";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, ad: %p, sz:%p,%u", (const void *)vnet,
         OrNull(vnet), (void *)addr, (void *)addrLen, addrLen ? *addrLen : 0);
  if (!vnet || !addr || !addrLen || *addrLen < kIPTextSize) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, addr: %p, addrLen:%p,%u",
           (const void *)vnet, (void *)addr, (void *)addrLen, addrLen ? *addrLen : 0);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!NXCGetVnetVirtAdapterAddr(vnetNum, addr, *addrLen, computeIfAbsent)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting the adapter address");
    return call.Exit(__LINE__, false);
  }
  *addrLen = static_cast<uint32_t>(strlen(addr) + 1);
  NXCLog(LOG_INFO2, kFn, "Retrieved adapter address: %s, len: %u", addr, *addrLen);
  return call.Exit(__LINE__, true);
}

// ---- Setters -------------------------------------------------------------

extern "C" bool NXC_SetVnetSubnetAddr(const char *vnet, const char *addr) noexcept {
  static constexpr char kFn[] = "NXC_SetVnetSubnetAddr";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, sn: %p,%s", (const void *)vnet, OrNull(vnet),
         (const void *)addr, OrNull(addr));
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (addr && !NXCIsValidIP(addr)) {
    NXCLog(LOG_ERR, kFn, "Subnet address is not valid: %s", addr);
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  const bool ok = addr ? NXCSetVnetSubnetAddr(vnetNum, addr) : NXCRemoveVnetSubnetAddr(vnetNum);
  if (!ok) {
    NXCLog(LOG_ERR, kFn, "Error %s subnet address for vnet: %s", addr ? "setting" : "removing",
           vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Successfully %s the subnet address for vnet: %s", addr ? "set" : "removed",
         vnet);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_SetVnetSubnetMask(const char *vnet, const char *mask) noexcept {
  static constexpr char kFn[] = "NXC_SetVnetSubnetMask";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, mask: %p,%s", (const void *)vnet, OrNull(vnet),
         (const void *)mask, OrNull(mask));
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (mask && !NXCIsValidSubnetMask(mask)) {
    NXCLog(LOG_ERR, kFn, "Specified mask is not valid");
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  const bool ok = mask ? NXCSetVnetSubnetMask(vnetNum, mask) : NXCRemoveVnetSubnetMask(vnetNum);
  if (!ok) {
    NXCLog(LOG_ERR, kFn, "Error %s mask for vnet: %s", mask ? "setting" : "removing", vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Successfully %s the mask for vnet: %s", mask ? "set" : "removed", vnet);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_SetVnetAdapterAddr(const char *vnet, const char *addr) noexcept {
  static constexpr char kFn[] = "NXC_SetVnetAdapterAddr";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, ad: %p,%s", (const void *)vnet, OrNull(vnet),
         (const void *)addr, OrNull(addr));
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (addr && !NXCIsValidIP(addr)) {
    NXCLog(LOG_ERR, kFn, "Invalid adapter IP address: %s", addr);
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  const bool ok =
      addr ? NXCSetVnetVirtAdapterAddr(vnetNum, addr) : NXCRemoveVnetVirtAdapterAddr(vnetNum);
  if (!ok) {
    NXCLog(LOG_ERR, kFn, "Error %s adapter address for vnet: %s", addr ? "setting" : "removing",
           vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Successfully %s adapter address for vnet: %s", addr ? "set" : "removed",
         vnet);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_SetVnetDisplayName(const char *vnet, const char *name) noexcept {
  static constexpr char kFn[] = "NXC_SetVnetDisplayName";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, name: %p,%s", (const void *)vnet, OrNull(vnet),
         (const void *)name, OrNull(name));
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  // A NULL name is handed on as it is: the display name has no removal, so
  // the answer store refuses it.
  if (!NXCSetVnetDisplayName(vnetNum, name)) {
    NXCLog(LOG_ERR, kFn, "Error setting display name for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Successfully set the display name for vnet: %s", vnet);
  return call.Exit(__LINE__, true);
}

// ---- MTU -----------------------------------------------------------------

extern "C" bool NXC_SetVnetMTU(const char *vnet, uint32_t mtu) noexcept {
  static constexpr char kFn[] = "NXC_SetVnetMTU";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, mtu: %u", (const void *)vnet, OrNull(vnet), mtu);
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  // Any MTU is stored as given; the services that use it judge it.
  if (!call.Lock()) return call.Exit(__LINE__, false);
  CPtr<char> text(AllocPrint("%u", mtu));
  if (!text) return call.Exit(__LINE__, false);  // out of memory: no line of its own
  if (!NXCSetVnetMTU(vnetNum, text.get())) {
    NXCLog(LOG_ERR, kFn, "Error setting mtu for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Successfully set the mtu for vnet: %s", vnet);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetVnetMTU(const char *vnet, uint32_t *mtu) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetMTU";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  if (!vnet || !mtu) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, mtu: %p", (const void *)vnet, (void *)mtu);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  char text[kMtuTextSize] = {};
  if (!NXCGetVnetMTU(vnetNum, text, sizeof text)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting MTU");
    return call.Exit(__LINE__, false);
  }
  // Unchecked on purpose: a stored text that is not a number reads as 0.
  *mtu = static_cast<uint32_t>(strtol(text, nullptr, 10));
  NXCLog(LOG_INFO2, kFn, "Retrieved MTU: %u", *mtu);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_RemoveMTU(const char *vnet) noexcept {
  static constexpr char kFn[] = "NXC_RemoveMTU";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s", (const void *)vnet, OrNull(vnet));
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  if (!NXCRemoveVnetMTU(vnetNum)) {
    NXCLog(LOG_ERR, kFn, "Removing MTU setting failed for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Removing MTU setting succeeded for vnet: %s", vnet);
  return call.Exit(__LINE__, true);
}

// ---- Subnets -------------------------------------------------------------

extern "C" bool NXC_AssignSubnetAddressToVnet(const char *vnet, bool overwriteExisting) noexcept {
  static constexpr char kFn[] = "NXC_AssignSubnetAddressToVnet";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, oE: %u", (const void *)vnet, OrNull(vnet),
         overwriteExisting ? 1u : 0u);
  uint32_t vnetNum = 0;
  if (!ApiVnetArgument(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  const bool hasSubnet = NXCVnetIsOptionConfigured(vnetNum, NXC_VNET_OPTION_SUBNET);
  const bool hasUuid = NXCVnetIsOptionConfigured(vnetNum, NXC_VNET_OPTION_UUID);

  if (hasSubnet && !overwriteExisting) {
    NXCLog(LOG_INFO2, kFn, "Not overwriting existing subnet");
    if (hasUuid) return call.Exit(__LINE__, true);
    // The vnet keeps its subnet whether or not it also gets an identifier,
    // so a lock that cannot be had does not fail the call.
    if (!call.Lock()) return call.Exit(__LINE__, true);
    const bool assigned = NXCAssignUUIDToVnet(vnetNum);
    if (!assigned) NXCLog(LOG_ERR, kFn, "Failed to assign UUID to vnet: %s", vnet);
    return call.Exit(__LINE__, assigned);
  }
  if (hasSubnet) NXCLog(LOG_INFO2, kFn, "Overwriting existing subnet");

  if (!call.Lock()) return call.Exit(__LINE__, false);
  if (!NXCAssignUnusedSubnetAddressToVNet(vnetNum)) {
    NXCLog(LOG_ERR, kFn, "Failed to assign subnet to vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "New subnet configured for vnet: %s", vnet);
  char subnet[kIPTextSize] = "";
  (void)NXCGetVnetSubnetAddr(vnetNum, subnet, sizeof subnet);  // for the trace only
  NXCLog(LOG_INFO2, kFn, "Subnet address: %s", subnet);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetUnusedSubnet(char *subnet, uint32_t subnetLen, char *mask,
                                    uint32_t maskLen) noexcept {
  static constexpr char kFn[] = "NXC_GetUnusedSubnet";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - s: %p, sl: %u, m: %p, ml: %u", (void *)subnet, subnetLen,
         (void *)mask, maskLen);
  if (!subnet || !mask || subnetLen < kIPTextSize || maskLen < kIPTextSize) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return call.Exit(__LINE__, false);
  }
  // Only found, not stored: no lock.
  if (!NXCSubnetProbe(subnet, mask)) {
    NXCLog(LOG_ERR, kFn, "Failed to probe for unused subnet");
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Obtained unused subnet: %s, mask: %s", subnet, mask);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_CheckSubnetAvailability(const char *vnet, bool useBroadcast, uint32_t timeout,
                                            uint32_t interval, bool *available) noexcept {
  static constexpr char kFn[] = "NXC_CheckSubnetAvailability";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, b: %u, t: %u, i: %u, a: %p", (const void *)vnet,
         OrNull(vnet), useBroadcast ? 1u : 0u, timeout, interval, (void *)available);
  if (!vnet || !available) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, available: %p", (const void *)vnet,
           (void *)available);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  char subnet[kIPTextSize] = "";
  if (!NXCGetVnetSubnetAddr(vnetNum, subnet, sizeof subnet)) {
    NXCLog(LOG_ERR, kFn, "Failure in getting subnet address");
    return call.Exit(__LINE__, false);
  }
  // The result tells only that the question could be asked; the answer
  // travels through *available.
  const bool isFree = NXCPingAndCheckSubnet(subnet, useBroadcast, timeout, interval);
  *available = isFree;
  NXCLog(LOG_OK, kFn, "Subnet: %s on vnet: %s is %savailable", subnet, vnet, isFree ? "" : "not ");
  return call.Exit(__LINE__, true);
}

// ---- NAT66 prefixes ------------------------------------------------------

extern "C" bool NXC_SetNATPrefix(const char *vnet, const char *prefix, const char *desc,
                                 int32_t descLen) noexcept {
  static constexpr char kFn[] = "NXC_SetNATPrefix";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  // No argument trace for this call.
  if (!vnet || !prefix) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p", (const void *)vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  if (!NXCIsValidPrefix(prefix)) {
    NXCLog(LOG_ERR, kFn, "Invalid prefix: %s", prefix);
    return call.Exit(__LINE__, false);
  }
  CPtr<char> descCopy;
  if (desc) {
    if (descLen < 0 || descLen >= kNatPrefixDescSize) {
      NXCLog(LOG_ERR, kFn, "Description is too long, allowed is: %u bytes",
             static_cast<unsigned>(kNatPrefixDescSize));
      return call.Exit(__LINE__, false);
    }
    if (descLen == 0) {
      NXCLog(LOG_INFO2, kFn, "Using a NULL description since, length is 0");
    } else {
      descCopy.reset(static_cast<char *>(malloc(static_cast<size_t>(descLen) + 1)));
      if (!descCopy) {
        // The port forward calls' wording, kept for this call too.
        NXCLog(LOG_ERR, kFn, "Error in memory allocation for NAT port forward description");
        return call.Exit(__LINE__, false);
      }
      memcpy(descCopy.get(), desc, static_cast<size_t>(descLen));
      descCopy.get()[descLen] = '\0';
    }
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  if (!NXCNATSetPrefix(vnetNum, prefix, descCopy.get(), descLen)) {
    NXCLog(LOG_ERR, kFn, "Setting NAT prefix failed for vnet: %s, prefix: %s", vnet, prefix);
    return call.Exit(__LINE__, false);
  }
  NXCLog(LOG_OK, kFn, "Setting NAT prefix succeeded for vnet: %s, prefix: %s ", vnet, prefix);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_GetNATPrefix(const char *vnet, const char *prefix, void *desc,
                                 uint32_t *descLen) noexcept {
  static constexpr char kFn[] = "NXC_GetNATPrefix";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  // No argument trace for this call.
  if (!vnet || !prefix || (desc && !descLen)) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p", (const void *)vnet);
    return call.Exit(__LINE__, false);
  }
  uint32_t vnetNum = 0;
  if (!ApiVnetNumber(vnet, kFn, &vnetNum)) return call.Exit(__LINE__, false);
  // Prefix entries keep no description: desc and *descLen stay as they
  // came in, on success too.
  if (!NXCNATGetPrefix(vnetNum, prefix)) {
    NXCLog(LOG_ERR, kFn, "Getting NAT prefix failed on vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  return call.Exit(__LINE__, true);
}

// ---- Counts and platform -------------------------------------------------

// Neither of these runs in the call frame: callers use them before loading.
extern "C" uint32_t NXC_GetNumberOfVnets(void) noexcept { return NXC_NUM_VNETS; }

extern "C" bool NXC_IsMacosVirtApiEnabled(void) noexcept { return NXCIsMacosVirtApiEnabled(); }
