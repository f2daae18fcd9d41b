// virt_adapter.cpp - the host's own interface on a host-only or NAT vnet:
// whether it exists and is up, bringing it up with the vnet's address,
// netmask and broadcast address, and taking it down.
//
// All of it goes through interface ioctls on an IPv4 datagram socket. The
// adapter's MTU is applied by the netifup daemon, not here.
#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "nexcfg_internal.h"

namespace {

constexpr char kProcNetDev[] = "/proc/net/dev";
constexpr size_t kLineSize = 1024;
using nxc::kAdapterNameSize;
using nxc::kIPTextSize;
constexpr short kEnableFlags = IFF_UP | IFF_MULTICAST;
// The framework of the other desktop platform drives the adapters itself
// there; on this one the library always does.
constexpr bool kUseMacosZynetVirtApi = false;

// True when /proc/net/dev lists an interface named exactly name; false with
// *failed set when the file cannot be read.
[[nodiscard]] bool ListedInProcNetDev(const char *fn, const char *name, bool *failed) {
  *failed = false;
  nxc::UniqueFile file(fopen(kProcNetDev, "re"));
  if (!file) {
    NXCLog(LOG_ERR, fn, "fopen(/proc/net/dev) failed: %s", strerror(errno));
    *failed = true;
    return false;
  }
  char line[kLineSize];
  while (fgets(line, sizeof line, file.get())) {
    char *colon = strrchr(line, ':');
    if (!colon) continue;  // the two header lines
    *colon = '\0';
    char *blank = strrchr(line, ' ');
    const char *listed = blank ? blank + 1 : line;
    if (strcmp(listed, name) == 0) return true;
  }
  if (ferror(file.get())) {
    NXCLog(LOG_ERR, fn, "fgets() failed: %s", strerror(errno));
    *failed = true;
    return false;
  }
  NXCLog(LOG_INFO, fn, "'%s' not in /proc/net/dev", name);
  return false;
}

// An interface request naming the adapter (at most 15 characters).
struct ifreq NamedRequest(const char *name) {
  struct ifreq request = {};
  (void)nxc::BoundedCopy(request.ifr_name, kAdapterNameSize, name);
  return request;
}

void SetIPv4(struct ifreq *request, in_addr_t networkOrder) {
  auto *sin = (struct sockaddr_in *)&request->ifr_addr;
  memset(sin, 0, sizeof *sin);
  sin->sin_family = AF_INET;
  sin->sin_addr.s_addr = networkOrder;
}

// Converts dotted text to the network-order word; false when it is not one.
[[nodiscard]] bool ToNetwork(const char *text, in_addr_t *out) {
  struct in_addr addr = {};
  if (inet_pton(AF_INET, text, &addr) != 1) return false;
  *out = addr.s_addr;
  return true;
}

}  // namespace

extern "C" bool NXCIsMacosVirtApiEnabled(void) noexcept { return kUseMacosZynetVirtApi; }

extern "C" uint32_t NXCAdapterStatus(const char *name) noexcept {
  static constexpr char kFn[] = "NXCAdapterStatus";
  if (!name) return NXC_ADAPTER_STATUS_ERROR;
  bool failed = false;
  if (!ListedInProcNetDev(kFn, name, &failed))
    return failed ? NXC_ADAPTER_STATUS_ERROR : NXC_ADAPTER_STATUS_ABSENT;
  nxc::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) {
    NXCLog(LOG_ERR, kFn, "socket() failed: %s", strerror(errno));
    return NXC_ADAPTER_STATUS_ERROR;
  }
  struct ifreq request = NamedRequest(name);
  if (ioctl(fd.get(), SIOCGIFFLAGS, &request) != 0) {
    if (errno == ENODEV) return NXC_ADAPTER_STATUS_ABSENT;  // gone since the listing
    NXCLog(LOG_ERR, kFn, "SIOCGIFFLAGS() failed: %s", strerror(errno));
    return NXC_ADAPTER_STATUS_ERROR;
  }
  unsigned flags = (unsigned short)request.ifr_flags;
  NXCLog(LOG_INFO, kFn, "SIOCGIFFLAGS: 0x%04x for %s", flags, name);
  return (flags & IFF_UP) ? NXC_ADAPTER_STATUS_UP : NXC_ADAPTER_STATUS_DOWN;
}

extern "C" bool NXCGetVnetVirtAdapterAddr(uint32_t vnet, char *buffer, size_t size,
                                          bool computeIfAbsent) noexcept {
  static constexpr char kFn[] = "NXCGetVnetVirtAdapterAddr";
  if (!buffer || size == 0) return false;
  size_t needed = size;
  if (NXCGetVnetCfgCpy(vnet, "VIRTUAL_ADAPTER_ADDR", buffer, &needed)) return true;
  if (needed > size) return false;  // stored, but too long for the buffer
  if (!computeIfAbsent) return false;

  char subnet[kIPTextSize] = "";
  if (!NXCGetVnetSubnetAddr(vnet, subnet, sizeof subnet)) {
    NXCLog(LOG_ERR, kFn, "Getting Subnet Address failed");
    return false;
  }
  char address[kIPTextSize] = "";
  if (!NXCCalcVirtAdapAddr(subnet, address)) {
    NXCLog(LOG_ERR, kFn, "Could not calculate adapter address");
    return false;
  }
  if (strlen(address) >= size) {
    NXCLog(LOG_ERR, kFn, "Insufficient buffer length: %zu for adapter address", size);
    return false;
  }
  memcpy(buffer, address, strlen(address) + 1);
  return true;
}

namespace {

// Reads the interface's flags, adds set and removes clear, and writes them
// back; each step logs under fn.
[[nodiscard]]
bool ChangeFlags(int fd, struct ifreq *request, const char *name, int set, int clear,
                 const char *fn) {
  if (ioctl(fd, SIOCGIFFLAGS, request) != 0) {
    NXCLog(LOG_ERR, fn, "ioctl: SIOCGIFFLAGS failed, error: %s", strerror(errno));
    return false;
  }
  NXCLog(LOG_INFO, fn, "ioctl: SIOCGIFFLAGS get interface flags: 0x%x for interface: %s",
         (unsigned)(unsigned short)request->ifr_flags, name);
  request->ifr_flags = (short)((request->ifr_flags | set) & ~clear);
  if (ioctl(fd, SIOCSIFFLAGS, request) != 0) {
    NXCLog(LOG_ERR, fn, "ioctl: SIOCSIFFLAGS failed, error: %s", strerror(errno));
    return false;
  }
  NXCLog(LOG_INFO, fn, "ioctl: SIOCSIFFLAGS set interface flags to: 0x%x for interface: %s",
         (unsigned)(unsigned short)request->ifr_flags, name);
  return true;
}

}  // namespace

extern "C" bool NXCVirtAdapterEnable(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCVirtAdapterEnable";
  if (NXCIsMacosVirtApiEnabled()) {
    NXCLog(LOG_OK, kFn, "Using MacOS zynet API, skip enabling the host adapterfor zynet%d",
           (int)vnet);  // sic: "adapterfor"
    return true;
  }
  char name[kAdapterNameSize] = "";
  if (!NXCGetVnetVirtAdapter(vnet, name, sizeof name)) {
    NXCLog(LOG_ERR, kFn, "Getting virtual adapter name failed");
    return false;
  }
  // An adapter that is up keeps whatever address it has.
  if (NXCAdapterStatus(name) == NXC_ADAPTER_STATUS_UP) {
    NXCLog(LOG_INFO, kFn, "Virtual adapter is already enabled");
    return true;
  }

  char address[kIPTextSize] = "", mask[kIPTextSize] = "", broadcast[kIPTextSize] = "";
  if (!NXCGetVnetVirtAdapterAddr(vnet, address, sizeof address, true)) {
    NXCLog(LOG_ERR, kFn, "Getting virtual adapter address failed");
    return false;
  }
  if (!NXCGetVnetSubnetMask(vnet, mask, sizeof mask)) {
    NXCLog(LOG_ERR, kFn, "Getting virtual adapter mask failed");
    return false;
  }
  if (!NXCGetBcastAddr(address, mask, broadcast)) {
    NXCLog(LOG_ERR, kFn, "Getting virtual adapter broadcast address failed");
    return false;
  }
  in_addr_t netAddress = 0, netMask = 0, netBroadcast = 0;
  if (!ToNetwork(address, &netAddress)) {
    NXCLog(LOG_ERR, kFn, "Converting interface address: %s to network format failed", address);
    return false;
  }
  if (!ToNetwork(mask, &netMask)) {
    NXCLog(LOG_ERR, kFn, "Converting interface netmask: %s to network format failed", mask);
    return false;
  }
  if (!ToNetwork(broadcast, &netBroadcast)) {
    NXCLog(LOG_ERR, kFn, "Converting interface broadcast: %s to network format failed", broadcast);
    return false;
  }

  nxc::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) {
    NXCLog(LOG_ERR, kFn, "socket(): for enabling adapter failed, error: %s", strerror(errno));
    return false;
  }
  // Each step stays done when a later one fails.
  struct ifreq request = NamedRequest(name);
  SetIPv4(&request, netAddress);
  if (ioctl(fd.get(), SIOCSIFADDR, &request) != 0) {
    NXCLog(LOG_ERR, kFn, "ioctl: SIOCAIFADDR failed, error: %s", strerror(errno));  // sic
    return false;
  }
  NXCLog(LOG_INFO, kFn, "ioctl: SIOCSIFADDR set interface address to: %.8x for interface: %s",
         (unsigned)netAddress, name);
  SetIPv4(&request, netMask);
  if (ioctl(fd.get(), SIOCSIFNETMASK, &request) != 0) {
    NXCLog(LOG_ERR, kFn, "ioctl: SIOCSIFNETMASK failed, error: %s", strerror(errno));
    return false;
  }
  NXCLog(LOG_INFO, kFn,
         "ioctl: SIOCSIFNETMASK set interface netmask address to: %.8x for interface: %s",
         (unsigned)netMask, name);
  SetIPv4(&request, netBroadcast);
  if (ioctl(fd.get(), SIOCSIFBRDADDR, &request) != 0) {
    NXCLog(LOG_ERR, kFn, "ioctl: SIOCSIFBRDADDR failed, error: %s", strerror(errno));
    return false;
  }
  NXCLog(LOG_INFO, kFn,
         "ioctl: SIOCSIFBRDADDR set interface broadcast address to: %.8x for interface: %s",
         (unsigned)netBroadcast, name);
  return ChangeFlags(fd.get(), &request, name, /*set=*/kEnableFlags, /*clear=*/0, kFn);
}

extern "C" bool NXCVirtAdapterDisable(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCVirtAdapterDisable";
  if (NXCIsMacosVirtApiEnabled()) {
    NXCLog(LOG_OK, kFn, "Using MacOS zynet API, skip disabling the host adapterfor zynet%d",
           (int)vnet);  // sic: "adapterfor"
    return true;
  }
  char name[kAdapterNameSize] = "";
  if (!NXCGetVnetVirtAdapter(vnet, name, sizeof name)) {
    NXCLog(LOG_ERR, kFn, "Getting virtual adapter name failed");
    return false;
  }
  // A status that cannot be read is treated as up: try to take it down.
  uint32_t status = NXCAdapterStatus(name);
  if (status == NXC_ADAPTER_STATUS_ABSENT || status == NXC_ADAPTER_STATUS_DOWN) {
    NXCLog(LOG_INFO, kFn, "Virtual adapter is already disabled");
    return true;
  }
  nxc::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!fd) {
    NXCLog(LOG_ERR, kFn, "socket(): for disabling adapter failed, error: %s", strerror(errno));
    return false;
  }
  struct ifreq request = NamedRequest(name);
  return ChangeFlags(fd.get(), &request, name, /*set=*/0, /*clear=*/IFF_UP, kFn);
}
