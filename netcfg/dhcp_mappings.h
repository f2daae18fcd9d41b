// dhcp_mappings.h - the static leases read whole, for the writer of
// dhcpd.conf, which would otherwise read them one index at a time through
// NXCDHCPEnumIPToMAC and copy each out.
#pragma once

#include <stdint.h>

#include <string_view>

#include "netcfg/record_table.h"

namespace nxc {

// Gets one mapping: its MAC in the canonical form and its IPv4 address,
// both valid only during the call. False stops the walk.
using DhcpMappingVisitFn = bool (*)(void *context, std::string_view mac, std::string_view ip);

// Hands visit the mappings of vnet in the default cache, in enumeration
// order, exactly as NXCDHCPEnumIPToMAC called with the cookies 0, 1, 2,
// ... and buffers of kIPTextSize and kMACTextSize bytes gives them until it
// returns false: the same lines logged under the name of the enumeration
// it calls, the walk ending where that enumeration would, and the same
// enumeration state left for a later enumeration. *found gets the state
// the walk found, for RestoreDhcpEnum. False only when visit stopped the
// walk.
[[nodiscard]] bool EnumDhcpMappings(uint32_t vnet, DhcpMappingVisitFn visit, void *context,
                                    RecordTableBase::EnumState *found);

// Puts back the enumeration state of vnet's mappings that a walk found,
// when what the walk read is dropped as never read. Logs nothing.
void RestoreDhcpEnum(uint32_t vnet, const RecordTableBase::EnumState &found);

}  // namespace nxc
