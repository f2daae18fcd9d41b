// mapping_api.cpp - the public calls on a vnet's two record tables: static
// DHCP leases (an IP address bound to a MAC address) and NAT port forwards.
//
// Each table has a setter that also removes (given a null IP), a getter by
// key and an enumerator with a cursor the caller keeps. Setters change the
// database under its lock; getters and enumerators take none, so an
// enumeration interleaved with another caller's changes sees the table as
// it is at each step. Callers' counts carry a capacity in and a length out,
// and are left alone on failure.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "api/api_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {

// A description holds at most this many bytes of text.
constexpr uint32_t kMaxDescriptionLen = 127;

// For traces of an output buffer whose contents the caller chose: at most
// its first 15 bytes, always terminated.
struct ShownText {
  char text[kIPTextSize];
  explicit ShownText(const char *buffer) {
    text[0] = '\0';
    if (buffer)
      (void)snprintf(text, sizeof text, "%.*s", static_cast<int>(sizeof text - 1), buffer);
  }
};

// The trace precision of a caller's description: never more than the
// longest description plus one, whatever length the caller claims.
int DescriptionShown(const char *desc, uint32_t descLen) {
  if (!desc) return 4;  // "null"
  return static_cast<int>(descLen <= kMaxDescriptionLen + 1 ? descLen : kMaxDescriptionLen + 1);
}

// The caller's description as a NUL-terminated copy in *copy (null for no
// description). False, after logging, when it is too long or cannot be
// copied.
[[nodiscard]]
bool CopyDescription(const char *fn, const char *desc, uint32_t descLen, CPtr<char> *copy) {
  if (!desc) return true;
  if (descLen > kMaxDescriptionLen) {
    NXCLog(LOG_ERR, fn, "Description is too long, allowed is: %u bytes", kMaxDescriptionLen + 1);
    return false;
  }
  if (descLen == 0) {
    NXCLog(LOG_INFO2, fn, "Using a NULL description since, length is 0");
    return true;
  }
  CPtr<char> text(static_cast<char *>(malloc(descLen + 1)));
  if (!text) {
    NXCLog(LOG_ERR, fn, "Error in memory allocation for NAT port forward description");
    return false;
  }
  memcpy(text.get(), desc, descLen);
  text.get()[descLen] = '\0';
  *copy = std::move(text);
  return true;
}

}  // namespace

// ---- Static DHCP leases -----------------------------------------------------

extern "C" bool NXC_SetDHCPIPToMAC(const char *vnet, const char *ip, const char *mac) noexcept {
  static constexpr char kFn[] = "NXC_SetDHCPIPToMAC";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, ip: %s, mac: %s", (const void *)vnet, OrNull(vnet),
         OrNull(ip), OrNull(mac));
  if (!vnet || !mac) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - vnet: %p, mac: %p", (const void *)vnet,
           (const void *)mac);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  if (ip && !NXCIsValidIP(ip)) {
    NXCLog(LOG_ERR, kFn, "IP address is not valid: %s", ip);
    return call.Exit(__LINE__, false);
  }
  if (!ip) NXCLog(LOG_INFO2, kFn, "IP address is NULL");
  char canonical[kMACTextSize] = "";
  if (!NXCMACStandardizeFormat(mac, canonical)) {
    NXCLog(LOG_ERR, kFn, "MAC address is not valid: %s", mac);
    return call.Exit(__LINE__, false);
  }
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = NXCDHCPSetIPToMAC(num, ip, canonical);
  if (ok)
    NXCLog(LOG_OK, kFn,
           "Creating/Removing DHCP static mapping succeeded for vnet: %s, ip: %s, mac: %s", vnet,
           OrNull(ip), mac);
  else
    NXCLog(LOG_ERR, kFn, "Creating/Removing DHCP static mapping failed for vnet: %s", vnet);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_GetDHCPIPToMAC(const char *vnet, char *ip, uint32_t *ipLen,
                                   const char *mac) noexcept {
  static constexpr char kFn[] = "NXC_GetDHCPIPToMAC";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, ip: %p, iL: %p,%u, m: %p, %s", (const void *)vnet,
         OrNull(vnet), (void *)ip, (void *)ipLen, ipLen ? *ipLen : 0, (const void *)mac,
         OrNull(mac));
  if (!vnet || !ip || !ipLen || !mac || *ipLen < kIPTextSize) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p, ip: %p, ipLen: %p,%u, mac: %p",
           (const void *)vnet, (void *)ip, (void *)ipLen, ipLen ? *ipLen : 0, (const void *)mac);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  char canonical[kMACTextSize] = "";
  if (!NXCMACStandardizeFormat(mac, canonical)) {
    // This line has always shown the caller's IP buffer, not the MAC.
    NXCLog(LOG_ERR, kFn, "MAC address is not valid: %s", ShownText(ip).text);
    return call.Exit(__LINE__, false);
  }
  if (!NXCDHCPGetIPToMAC(num, ip, *ipLen, canonical)) {
    NXCLog(LOG_ERR, kFn, "Getting DHCP static IP address mapping failedvnet: %s, MAC: %s",  // sic
           vnet, canonical);
    return call.Exit(__LINE__, false);
  }
  *ipLen = static_cast<uint32_t>(strlen(ip) + 1);
  NXCLog(LOG_INFO, kFn,
         "Success in getting DHCP static IP mapping, vnet: %s, MAC: %s, IP: %s, len: %u", vnet,
         canonical, ip, *ipLen);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_EnumDHCPIPToMAC(const char *vnet, uint32_t *enumOffset, char *ip,
                                    uint32_t *ipLen, char *mac, uint32_t *macLen) noexcept {
  static constexpr char kFn[] = "NXC_EnumDHCPIPToMAC";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s eO: %p,%u ip: %p, iL: %p,%u, mac: %p, mL: %p,%u",
         (const void *)vnet, OrNull(vnet), (void *)enumOffset, enumOffset ? *enumOffset : 0,
         (void *)ip, (void *)ipLen, ipLen ? *ipLen : 0, (void *)mac, (void *)macLen,
         macLen ? *macLen : 0);
  if (!vnet || !enumOffset || !ip || !ipLen || !mac || !macLen || *ipLen < kIPTextSize ||
      *macLen < kMACTextSize) {
    NXCLog(
        LOG_ERR, kFn,
        "Invalid argument: vnet: %p,%s enumOffset: %p,%u ip: %p, ipLen: %p,%u, mac: %p, macLen: %p,%u",
        (const void *)vnet, OrNull(vnet), (void *)enumOffset, enumOffset ? *enumOffset : 0,
        (void *)ip, (void *)ipLen, ipLen ? *ipLen : 0, (void *)mac, (void *)macLen,
        macLen ? *macLen : 0);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  // The end of the table is reported like any other failure.
  if (!NXCDHCPEnumIPToMAC(num, enumOffset, ip, *ipLen, mac, *macLen)) {
    NXCLog(LOG_ERR, kFn, "No DHCP IP to MAC mappings to enumerate");
    return call.Exit(__LINE__, false);
  }
  *ipLen = static_cast<uint32_t>(strlen(ip) + 1);
  *macLen = static_cast<uint32_t>(strlen(mac) + 1);
  NXCLog(LOG_INFO2, kFn,
         "DHCP IP to MAC mapping enumerated, vnet: %s, ip: %s, len: %u, mac: %s, len: %u", vnet, ip,
         *ipLen, mac, *macLen);
  return call.Exit(__LINE__, true);
}

// ---- NAT port forwards ------------------------------------------------------

extern "C" bool NXC_SetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort,
                                      const char *vmIP, uint16_t vmPort, const char *desc,
                                      uint32_t descLen) noexcept {
  static constexpr char kFn[] = "NXC_SetNATPortForward";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn,
         "Arguments - v: %p,%s, tcp: %u, hP: %u, vmIP: %p,%s, vmP: %u, d: %p,%.*s, dL: %u",
         (const void *)vnet, OrNull(vnet), tcp ? 1u : 0u, hostPort, (const void *)vmIP,
         OrNull(vmIP), vmPort, (const void *)desc, DescriptionShown(desc, descLen), OrNull(desc),
         descLen);
  if (!vnet || hostPort == 0) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - zynet: %p, hostPort: %u", (const void *)vnet,
           hostPort);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  // Without a VM address the forward is removed; port and description are
  // then passed on but mean nothing.
  if (vmIP && (!NXCIsValidIP(vmIP) || vmPort == 0)) {
    NXCLog(LOG_ERR, kFn, "Invalid VM IP: %s or port: %u", vmIP, vmPort);
    return call.Exit(__LINE__, false);
  }
  CPtr<char> description;  // freed on every path
  if (!CopyDescription(kFn, desc, descLen, &description)) return call.Exit(__LINE__, false);
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = NXCNATSetPortForward(num, tcp ? 1 : 0, hostPort, vmIP, vmPort, description.get());
  if (!ok)
    NXCLog(LOG_ERR, kFn, "Setting/ Removing NAT Port Forward failed for vnet: %s, port: %u", vnet,
           hostPort);
  else if (vmIP)
    NXCLog(
        LOG_OK, kFn,
        "Setting NAT Port Forward succeeded for vnet: %s, tcp: %u, hostPort: %u, vm IP: %s, vm port: %u, description: %s",
        vnet, tcp ? 1u : 0u, hostPort, vmIP, vmPort, OrNull(description.get()));
  else
    NXCLog(LOG_OK, kFn, "Removing NAT Port Forward succeeded for vnet: %s, tcp: %u, hostPort: %u",
           vnet, tcp ? 1u : 0u, hostPort);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_GetNATPortForward(const char *vnet, bool tcp, uint16_t hostPort, char *vmIP,
                                      uint32_t *vmIPLen, uint16_t *vmPort, char *desc,
                                      uint32_t *descLen) noexcept {
  static constexpr char kFn[] = "NXC_GetNATPortForward";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn,
         "Arguments - v: %p,%s, tcp: %u, hP: %u, vIP: %p, vIPL: %p, %u, vP: %p, d: %p, dL: %p,%u",
         (const void *)vnet, OrNull(vnet), tcp ? 1u : 0u, hostPort, (void *)vmIP, (void *)vmIPLen,
         vmIPLen ? *vmIPLen : 0, (void *)vmPort, (void *)desc, (void *)descLen,
         descLen ? *descLen : 0);
  if (!vnet || !vmIP || !vmIPLen || !vmPort || *vmIPLen < kIPTextSize || (desc && !descLen)) {
    NXCLog(
        LOG_ERR, kFn,
        "Invalid argument - vnet: %p, vmIP: %p, vmIPLen: %p, %u, vmPort: %p, description: %p, descLen: %p",
        (const void *)vnet, (void *)vmIP, (void *)vmIPLen, vmIPLen ? *vmIPLen : 0, (void *)vmPort,
        (void *)desc, (void *)descLen);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  size_t descCount = desc ? *descLen : 0;
  if (!NXCNATGetPortForward(num, tcp ? 1 : 0, hostPort, vmIP, *vmIPLen, vmPort, desc, &descCount)) {
    NXCLog(LOG_ERR, kFn, "Getting NAT Port Forward failed on vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  *vmIPLen = static_cast<uint32_t>(strlen(vmIP) + 1);
  if (desc) *descLen = static_cast<uint32_t>(descCount);
  NXCLog(
      LOG_INFO, kFn,
      "Retrieved NAT Port forward record for vnet: %s, tcp: %u, hostport: %u, vmIP: %s, vmIPLen: %u, vmPort: %u, description: %s, description len: %u",
      vnet, tcp ? 1u : 0u, hostPort, vmIP, *vmIPLen, *vmPort, OrNull(desc), desc ? *descLen : 0);
  return call.Exit(__LINE__, true);
}

extern "C" bool NXC_EnumNATPortForward(const char *vnet, bool tcp, uint32_t *enumOffset,
                                       uint16_t *hostPort, char *vmIP, uint32_t *vmIPLen,
                                       uint16_t *vmPort, char *desc, uint32_t *descLen) noexcept {
  static constexpr char kFn[] = "NXC_EnumNATPortForward";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(
      LOG_ARGS, kFn,
      "Arguments - v: %p,%s, tcp: %u, eO: %p,%u, hP: %p, vIP: %p, vIPL: %p,%u, vP: %p, d: %p, dL: %p,%u",
      (const void *)vnet, OrNull(vnet), tcp ? 1u : 0u, (void *)enumOffset,
      enumOffset ? *enumOffset : 0, (void *)hostPort, (void *)vmIP, (void *)vmIPLen,
      vmIPLen ? *vmIPLen : 0, (void *)vmPort, (void *)desc, (void *)descLen,
      descLen ? *descLen : 0);
  // The host port output is optional.
  if (!vnet || !enumOffset || !vmIP || !vmIPLen || !vmPort || *vmIPLen < kIPTextSize ||
      (desc && !descLen)) {
    NXCLog(
        LOG_ERR, kFn,
        "Invalid argument, zynet: %p, enumOffset: %p, vmIP: %p vmIPLen: %p, %u, vmPort: %p, description: %p, descLen: %p",
        (const void *)vnet, (void *)enumOffset, (void *)vmIP, (void *)vmIPLen,
        vmIPLen ? *vmIPLen : 0, (void *)vmPort, (void *)desc, (void *)descLen);
    return call.Exit(__LINE__, false);
  }
  uint32_t num = 0;
  if (!ApiVnetNumber(vnet, kFn, &num)) return call.Exit(__LINE__, false);
  size_t capacity = desc ? *descLen : 0;
  size_t descCount = capacity;
  if (!NXCNATEnumPortForward(num, tcp ? 1 : 0, enumOffset, hostPort, vmIP, *vmIPLen, vmPort, desc,
                             &descCount)) {
    NXCLog(LOG_ERR, kFn, "No ports to enumerate for vnet: %s", vnet);
    return call.Exit(__LINE__, false);
  }
  // A forward without a description reports the count 0 and leaves the
  // buffer as it was: make it an empty text, so the buffer always reads.
  if (desc && descCount == 0 && capacity > 0) desc[0] = '\0';
  *vmIPLen = static_cast<uint32_t>(strlen(vmIP) + 1);
  if (desc) *descLen = static_cast<uint32_t>(descCount);
  NXCLog(
      LOG_INFO2, kFn,
      "Successfully enumerated NAT forwarde port, vnet: %s, tcp: %uenumOffset: %u, hostPort: %u, vmIP: %s, vmIPLen: %u, vmPort: %u, description: %s, description len: %u",  // sic
      vnet, tcp ? 1u : 0u, *enumOffset, hostPort ? *hostPort : 0u, vmIP, *vmIPLen, *vmPort,
      desc && descCount ? desc : "null", desc ? *descLen : 0);
  return call.Exit(__LINE__, true);
}
