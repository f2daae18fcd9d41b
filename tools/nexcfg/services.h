// services.h - the start and stop sequence of a vnet's services, shared by
// `service start|stop` and `up`/`down`.
#pragma once

#include <string>

#include "features.h"

namespace nexcfg {

// Starts the vnet's services whose feature flag is set in which (bridge;
// adapter: netifup; dhcp; nat) in the order bridge, netifup (and the
// host-only adapter's address, which the DHCP server serves from), DHCP,
// NAT; or stops them in the reverse order, netifup by taking the adapter
// down. A running service counts as started, a stopped one as stopped.
// Says each one done and pushes its name onto done. Throws the Error of
// the first that fails; the ones before it stay as they are.
void RunServices(const std::string &vnet, const FeatureFlags &which, bool start, Json *done);

}  // namespace nexcfg
