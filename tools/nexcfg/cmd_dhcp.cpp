// cmd_dhcp.cpp - a vnet's DHCP server: the switch, its parameters, its
// static leases, and the regeneration of dhcpd.conf.
#include <cstdio>

#include "cli.h"
#include "params.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kIpCapacity = 16;
constexpr uint32_t kMacCapacity = 18;

int On(const Invocation &in) { return FeatureSwitch("DHCP", NXC_SetVnetUseDHCP, in, true); }
int Off(const Invocation &in) { return FeatureSwitch("DHCP", NXC_SetVnetUseDHCP, in, false); }

int Show(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool enabled = Ask([&] { return NXC_GetVnetUseDHCP(vnet.c_str()); });
  Json parameters = ParametersJson(DhcpParams(), vnet);
  Json leases = DhcpLeases(vnet);
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set("enabled", enabled);
    out.Set("parameters", std::move(parameters));
    out.Set("leases", std::move(leases));
    PrintJson(out);
    return kExitOk;
  }
  printf("%s: DHCP %s\n", vnet.c_str(), enabled ? "on" : "off");
  PrintParameters(parameters, 2);
  if (!leases.items().empty()) {
    printf("static leases:\n");
    PrintLeases(leases, 2);
  }
  return kExitOk;
}

int Set(const Invocation &in) { return ParamSet(DhcpParams(), in); }
int Unset(const Invocation &in) { return ParamUnset(DhcpParams(), in); }

int Update(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool enabled = Ask([&] { return NXC_GetVnetUseDHCP(vnet.c_str()); });
  Call(std::string(enabled ? "write" : "remove") + " the DHCP configuration file of " + vnet,
       [&] { return NXC_UpdateDHCPFromConfig(vnet.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set(enabled ? "written" : "removed", "dhcpd.conf");
  if (Opts().json) PrintJson(out);
  Say(std::string(enabled ? "wrote" : "removed") + " the DHCP configuration of " + vnet);
  return kExitOk;
}

int LeaseAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &mac = in.Arg(1), &ip = in.Arg(2);
  Call("bind " + ip + " to " + mac + " on " + vnet,
       [&] { return NXC_SetDHCPIPToMAC(vnet.c_str(), ip.c_str(), mac.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("mac", mac);
  out.Set("ip", ip);
  if (Opts().json) PrintJson(out);
  Say("static lease " + mac + " -> " + ip + " on " + vnet);
  return kExitOk;
}

int LeaseRemove(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &mac = in.Arg(1);
  Call("remove the static lease of " + mac + " on " + vnet,
       [&] { return NXC_SetDHCPIPToMAC(vnet.c_str(), nullptr, mac.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("mac", mac);
  out.Set("ip", Json());
  if (Opts().json) PrintJson(out);
  Say("removed the static lease of " + mac + " on " + vnet);
  return kExitOk;
}

int LeaseGet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &mac = in.Arg(1);
  char ip[kIpCapacity] = "";
  uint32_t length = sizeof ip;
  Call("find a static lease for " + mac + " on " + vnet,
       [&] { return NXC_GetDHCPIPToMAC(vnet.c_str(), ip, &length, mac.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("mac", mac);
  out.Set("ip", ip);
  if (Opts().json)
    PrintJson(out);
  else
    printf("%s\n", ip);
  return kExitOk;
}

int LeaseList(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Json leases = DhcpLeases(vnet);
  if (Opts().json)
    PrintJson(leases);
  else if (leases.items().empty())
    Say(vnet + " has no static leases");
  else
    PrintLeases(leases, 0);
  return kExitOk;
}

const Command kCommands[] = {
    {"dhcp on", "VNET", "--cleanup", "switch the DHCP server on for a vnet",
     "A vnet without a subnet is given a free one first. With --cleanup the derived\n"
     "DHCP configuration is rewritten even when DHCP is on already.\n",
     Needs::kReadWrite, On},
    {"dhcp off", "VNET", "--cleanup", "switch the DHCP server off for a vnet",
     "With --cleanup the vnet's DHCP parameters and static leases are removed too.\n",
     Needs::kReadWrite, Off},
    {"dhcp show", "VNET", "", "show the DHCP switch, parameters and static leases", "",
     Needs::kReadOnly, Show},
    {"dhcp set", "VNET PARAMETER VALUE", "", "set a DHCP parameter", "", Needs::kReadWrite, Set},
    {"dhcp unset", "VNET PARAMETER", "", "remove a DHCP parameter (its default applies)", "",
     Needs::kReadWrite, Unset},
    {"dhcp update", "VNET", "", "regenerate the vnet's dhcpd.conf from the database",
     "Writes the file when DHCP is on and removes it when it is off. The vnet's DHCP\n"
     "daemon must be stopped.\n",
     Needs::kReadWrite, Update},
    {"dhcp lease add", "VNET MAC IP", "", "give a MAC address a fixed IP address",
     "Replaces an earlier lease of the same MAC address. The MAC address has six\n"
     "bytes of one or two hex digits in either case, joined by colons; it is kept in\n"
     "the standard form 00:0C:29:0A:0B:01.\n",
     Needs::kReadWrite, LeaseAdd},
    {"dhcp lease rm", "VNET MAC", "", "remove a MAC address's fixed IP address", "", Needs::kReadWrite,
     LeaseRemove},
    {"dhcp lease get", "VNET MAC", "", "print the fixed IP address of a MAC address", "",
     Needs::kReadOnly, LeaseGet},
    {"dhcp lease list", "VNET", "", "list a vnet's static leases", "", Needs::kReadOnly, LeaseList},
};

}  // namespace

Json DhcpParameters(const std::string &vnet) { return ParametersJson(DhcpParams(), vnet); }

Json DhcpLeases(const std::string &vnet) {
  Json leases = Json::Array();
  uint32_t cursor = 0;
  for (;;) {
    char ip[kIpCapacity] = "", mac[kMacCapacity] = "";
    uint32_t ipLength = sizeof ip, macLength = sizeof mac;
    // The end of the table is a false result.
    if (!Ask([&] {
          return NXC_EnumDHCPIPToMAC(vnet.c_str(), &cursor, ip, &ipLength, mac, &macLength);
        }))
      break;
    Json lease = Json::Object();
    lease.Set("mac", mac);
    lease.Set("ip", ip);
    leases.Push(std::move(lease));
  }
  return leases;
}

void PrintLeases(const Json &leases, int indent) {
  Table table({"MAC", "IP"});
  for (const Json &l : leases.items()) table.Add({l.Find("mac")->Text(), l.Find("ip")->Text()});
  table.Print(indent);
}

std::span<const Command> DhcpCommands() {
  static std::string setHelp;
  static Command commands[std::size(kCommands)];
  if (setHelp.empty()) {
    setHelp = ParamHelp(DhcpParams());
    for (size_t i = 0; i < std::size(kCommands); ++i) {
      commands[i] = kCommands[i];
      std::string name = commands[i].name;
      if (name == "dhcp set" || name == "dhcp unset" || name == "dhcp show") commands[i].details = setHelp.c_str();
    }
  }
  return commands;
}

}  // namespace nexcfg
