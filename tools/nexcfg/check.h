// check.h - the parts of `nexcfg check` that look at the host's files.
#pragma once

#include <vector>

#include "config.h"

namespace nexcfg {

using Problems = std::vector<Problem>;

// dhcpd.conf left while DHCP is off; with DHCP on: missing, refused by the DHCP server
// (`dhcpd -t`, when it is installed), its generated block edited by hand,
// or older than the database.
void CheckDhcpFile(const VnetConfig &v, Problems *out);
// nat.conf left while NAT is off; with NAT on: missing, or saying other than the database
// (older than it, or edited by hand: the library owns the whole file, so
// the two cannot be told apart).
void CheckNatFile(const VnetConfig &v, Problems *out);

}  // namespace nexcfg
