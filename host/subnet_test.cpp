// subnet_test.cpp - whether an address lies in a vnet's subnet, as the vnet
// stores it. The one address helper that reads the database, and so the one
// that lives above it.
#include "base/address.h"
#include "base/text_sizes.h"
#include "nexcfg_internal.h"

using nxc::IPOrZero;
using nxc::kIPTextSize;

extern "C" bool NXCIPBelongsToSubnet(uint32_t vnet, const char *address) noexcept {
  static constexpr char kFn[] = "NXCIPBelongsToSubnet";
  char subnet[kIPTextSize] = "";
  char mask[kIPTextSize] = "";
  if (!NXCGetVnetSubnetAddr(vnet, subnet, sizeof subnet) ||
      !NXCGetVnetSubnetMask(vnet, mask, sizeof mask)) {
    NXCLog(LOG_ERR, kFn, "Getting subnet address failed");
    return false;
  }
  // The stored subnet is compared as stored, without masking it first.
  return (IPOrZero(address) & IPOrZero(mask)) == IPOrZero(subnet);
}

