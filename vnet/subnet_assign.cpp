// subnet_assign.cpp - choosing a free private /24 for a vnet that needs a
// host-only subnet and was given none.
//
// The candidates are 172.16.0-255.0 and 192.168.2-255.0, less the subnets
// that vnets had when the process first looked, in a random order fixed for
// the life of the process. A probe walks that order from a cursor, marks
// each candidate it tries as taken, and keeps the first one on which the
// hypervisor's ping program hears no host.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "base/random.h"
#include "base/text_sizes.h"
#include "nexcfg_internal.h"
#include "vnet/subnet_priv.h"

namespace {

using nxc::kIPTextSize;

constexpr char kSubnetField[] = "HOSTONLY_SUBNET";
constexpr char kMask24[] = "255.255.255.0";
constexpr int kProbeAttempts = 10;

// The ping program, under BINDIR.
constexpr char kPingProgram[] = "zymtra-ping";
constexpr char kDefaultBinDir[] = "/usr/bin";
constexpr size_t kMaxBinDirLength = 255;
constexpr size_t kPingCommandSize = 2096;
// Exit codes of the ping program that mean no host answered.
constexpr int kPingNoReply = 1;
constexpr int kPingNoReplyOther = 2;

// Process-wide, built on first use and never rebuilt or freed; the library
// is called from one thread at a time.
struct UsedSubnets {
  uint32_t subnets[NXC_NUM_VNETS];
  uint32_t count;
  bool filled;
};
UsedSubnets gUsed;

struct CandidateTable {
  nxc::SubnetCandidate entries[nxc::kSubnetCandidateSlots];
  uint32_t count;
  bool filled;
  // Index of the candidate tried last; the next probe starts after it.
  int32_t cursor;
};
CandidateTable gCandidates;

constexpr uint32_t Subnet(uint32_t a, uint32_t b, uint32_t c) { return a << 24 | b << 16 | c << 8; }

// Runs the ping program once on address and gives its exit code.
int RunPing(const char *binDir, const char *address, uint32_t timeout, uint32_t interval) {
  char command[kPingCommandSize];
  (void)snprintf(command, sizeof command, "\"%s/%s\" -q -b %s -t %u -i %u >/dev/null 2>&1", binDir,
                 kPingProgram, address, timeout, interval);
  int status = system(command);
  return (status >> 8) & 0xff;
}

}  // namespace

namespace nxc {

uint32_t FillSubnetCandidates(bool (*isUsed)(uint32_t subnet),
                              SubnetCandidate (&table)[kSubnetCandidateSlots]) noexcept {
  uint32_t count = 0;
  auto add = [&](uint32_t subnet) {
    if (isUsed(subnet)) return;
    table[count].subnet = subnet;
    table[count].taken = 0;
    ++count;
  };
  // Each 172.16.k.0 is followed by 192.168.(k+1).0; 192.168.0.0 and
  // 192.168.1.0 are never candidates.
  for (uint32_t k = 0; k < 256; ++k) {
    add(Subnet(172, 16, k));
    if (k >= 1 && k <= 254) add(Subnet(192, 168, k + 1));
  }
  return count;
}

}  // namespace nxc

extern "C" bool NXCGetHostOnlySubnet(uint32_t vnet, uint32_t *subnet) noexcept {
  char text[kIPTextSize];
  if (!NXCGetVnetSubnetAddr(vnet, text, sizeof text)) return false;
  NXCLog(LOG_INFO2, __func__, "Got existing subnet for vnet %d.", static_cast<int>(vnet));
  return NXCIPStr2Int(text, subnet);
}

extern "C" void NXCPopulateUsedSubnets(void) noexcept {
  if (gUsed.filled) return;
  for (uint32_t vnet = 0; vnet < NXC_NUM_VNETS; ++vnet) {
    const char *text = NXCGetVnetCfg(vnet, kSubnetField);
    uint32_t subnet = 0;
    if (text && NXCIPStr2Int(text, &subnet)) gUsed.subnets[gUsed.count++] = subnet;
  }
  gUsed.filled = true;
}

extern "C" bool NXCSubnetUsed(uint32_t subnet) noexcept {
  NXCPopulateUsedSubnets();
  for (uint32_t i = 0; i < gUsed.count; ++i)
    if (gUsed.subnets[i] == subnet) return true;
  return false;
}

extern "C" void NXCPopulateAvailSubnets(void) noexcept {
  if (gCandidates.filled) return;
  gCandidates.count = nxc::FillSubnetCandidates(
      [](uint32_t subnet) { return NXCSubnetUsed(subnet); }, gCandidates.entries);
  gCandidates.filled = true;
  NXCShuffleAvailSubnets();
}

extern "C" void NXCShuffleAvailSubnets(void) noexcept {
  uint32_t n = gCandidates.count;
  if (n == 0) return;
  for (uint32_t round = 0; round < 2 * n; ++round) {
    uint32_t r[2];
    if (!nxc::RandomBytes(r, sizeof r)) {
      NXCLog(LOG_ERR, __func__,
             "Failed to get random numbers, subnet candidates only partly shuffled");
      return;
    }
    std::swap(gCandidates.entries[r[0] % n], gCandidates.entries[r[1] % n]);
  }
}

extern "C" void NXCMarkSubnetUsed(const char *subnet, bool taken) noexcept {
  NXCPopulateAvailSubnets();
  uint32_t value = 0;
  if (!subnet || !NXCIPStr2Int(subnet, &value)) return;
  for (uint32_t i = 0; i < gCandidates.count; ++i)
    if (gCandidates.entries[i].subnet == value) gCandidates.entries[i].taken = taken ? 1 : 0;
}

extern "C" bool NXCSubnetProbe(char *subnet, char *mask) noexcept {
  if (!subnet || !mask) {
    NXCLog(LOG_ERR, __func__, "Invalid arguments");
    return false;
  }
  NXCPopulateAvailSubnets();
  for (int attempt = 0; attempt < kProbeAttempts; ++attempt) {
    // The slot at index count is the empty one after the last candidate
    // (0.0.0.0) and is offered like the others; index 0 is never offered.
    int32_t index = gCandidates.cursor + 1;
    while (index <= static_cast<int32_t>(gCandidates.count) && gCandidates.entries[index].taken)
      ++index;
    if (index > static_cast<int32_t>(gCandidates.count)) {
      gCandidates.cursor = index;
      return false;
    }
    nxc::SubnetCandidate &candidate = gCandidates.entries[index];
    candidate.taken = 1;
    gCandidates.cursor = index;

    char address[kIPTextSize];
    (void)NXCIPInt2Str(candidate.subnet, address);
    NXCLog(LOG_INFO, __func__, "Pinging to see if subnet is used");
    if (NXCPingAndCheckSubnet(address, /*useBroadcast=*/true, /*timeout=*/1, /*interval=*/1)) {
      memcpy(subnet, address, sizeof address);
      memcpy(mask, kMask24, sizeof kMask24);
      return true;
    }
  }
  NXCLog(LOG_ERR, __func__, "Could not automatically determine available subnet.");
  return false;
}

extern "C" bool NXCPingAndCheckSubnet(const char *subnet, bool useBroadcast, uint32_t timeout,
                                      uint32_t interval) noexcept {
  NXCLog(LOG_INFO2, __func__, "Ping arguments, subnet: %s, broadcast: %s, timeout: %u interval: %u",
         subnet ? subnet : "", useBroadcast ? "true" : "false", timeout, interval);
  const char *binDir = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, "BINDIR", &binDir) || !binDir) {
    NXCLog(LOG_WRN, __func__, "Unable to find BINDIR in host config database.");
    binDir = kDefaultBinDir;
  }
  if (strlen(binDir) > kMaxBinDirLength) {
    NXCLog(LOG_ERR, __func__, "Value of BINDIR is bigger than allowed %u chracters",  // sic
           static_cast<unsigned>(kMaxBinDirLength + 1));
    return false;
  }

  uint32_t network = 0;
  if (!subnet || !NXCIPStr2Int(subnet, &network)) return false;
  char address[kIPTextSize];
  (void)NXCIPInt2Str(network, address);

  int code = kPingNoReply;
  if (useBroadcast) code = RunPing(binDir, address, timeout, interval);
  // Silence on the broadcast address is not enough: some hosts ignore
  // broadcast pings, so the first host address is asked as well.
  if (code == kPingNoReply) {
    (void)NXCIPInt2Str(network + 1, address);
    code = RunPing(binDir, address, timeout, interval);
  }
  if (code == kPingNoReply || code == kPingNoReplyOther) return true;
  NXCLog(LOG_ERR, __func__, "Return value of zymtra-ping: %d", code);
  return false;
}

extern "C" bool NXCAssignUnusedSubnetAddressToVNet(uint32_t vnet) noexcept {
  char subnet[kIPTextSize];
  char mask[kIPTextSize];
  if (!NXCSubnetProbe(subnet, mask)) {
    NXCLog(LOG_ERR, __func__, "Failed to probe subnet for vnet %d.", static_cast<int>(vnet));
    return false;
  }
  uint32_t network = 0;
  if (!NXCIPStr2Int(subnet, &network)) {
    NXCLog(LOG_ERR, __func__, "Error converting IP from string to integer");
    return false;
  }
  if (!NXCSetVnetSubnetAddr(vnet, subnet)) {
    NXCLog(LOG_ERR, __func__, "Error setting subnet value: %s in vnet config", subnet);
    return false;
  }
  if (!NXCSetVnetSubnetMask(vnet, kMask24)) {
    NXCLog(LOG_ERR, __func__, "Error setting subnet mask: %s in vnet config", subnet);
    return false;
  }
  if (!NXCAssignUUIDToVnet(vnet)) {
    NXCLog(LOG_ERR, __func__, "Error setting UUID in vnet %d config", static_cast<int>(vnet));
    return false;
  }
  NXCLog(LOG_OK, __func__, "Success: vnet %d assigned subnet %s.", static_cast<int>(vnet), subnet);
  return true;
}
