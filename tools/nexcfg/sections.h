// sections.h - the parts of a vnet that `nexcfg show` gathers from the DHCP,
// NAT and bridge families, as JSON, and their tables for people.
#pragma once

#include <string>

#include "cli.h"

namespace nexcfg {

// [{"name", "value", "source": "set"|"default"|null}] for every DHCP
// parameter the library's interface reaches; values typed by kind.
Json DhcpParameters(const std::string &vnet);
// [{"mac", "ip"}]
Json DhcpLeases(const std::string &vnet);
// The same for NAT parameters.
Json NatParameters(const std::string &vnet);
// [{"protocol", "host_port", "vm_ip", "vm_port", "description"}], TCP first.
Json NatForwards(const std::string &vnet);
// ["fd00:1:2:3::/64", ...]
Json NatPrefixes(const std::string &vnet);
// [{"adapter", "vnet"}] of the host adapters bridged to vnet (all when
// vnet is empty).
Json BridgedAdapters(const std::string &vnet);
// The default bridge vnet's name, or "" when there is none.
std::string DefaultBridge();

void PrintParameters(const Json &parameters, int indent);
void PrintLeases(const Json &leases, int indent);
void PrintForwards(const Json &forwards, int indent);

}  // namespace nexcfg
