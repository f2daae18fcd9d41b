// daemons.cpp - the four daemons of a vnet as the library tracks them.
#include "features.h"

namespace nexcfg {
namespace {

constexpr Daemon kDaemons[] = {
    {"netifup", NXC_SERVICE_TYPE_NETIFUP, "NETIFUP_PROGRAM", "zynet-netifup", true},
    {"bridge", NXC_SERVICE_TYPE_BRIDGE, "BRIDGE_PROGRAM", "zynet-bridge", false},
    {"dhcp", NXC_SERVICE_TYPE_DHCP, "DHCP_PROGRAM", "zynet-dhcpd", true},
    {"nat", NXC_SERVICE_TYPE_NAT, "NAT_PROGRAM", "zynet-natd", false},
};

}  // namespace

std::span<const Daemon> Daemons() { return kDaemons; }

bool DaemonConfigured(const Daemon &d, const VnetFeatures &f, bool adaptersBridged) {
  switch (d.type) {
    case NXC_SERVICE_TYPE_NETIFUP:
      return f.config.adapter;
    case NXC_SERVICE_TYPE_BRIDGE:
      return f.config.bridge && adaptersBridged;
    case NXC_SERVICE_TYPE_DHCP:
      return f.config.dhcp;
    default:
      return f.config.nat;
  }
}

uint32_t DaemonStatus(const std::string &vnet, const Daemon &d) {
  return Ask([&] { return NXC_GetServiceStatus(vnet.c_str(), d.type); });
}

std::string DaemonPidFile(const std::string &vnet, const Daemon &d) {
  std::string dir = AskAnswer("RUNDIR"), program = AskAnswer(d.programKey);
  return (dir.empty() ? "/var/run" : dir) + "/" + (program.empty() ? d.program : program) + "-" +
         (d.pidByName ? vnet : vnet.substr(5)) + ".pid";
}

}  // namespace nexcfg
