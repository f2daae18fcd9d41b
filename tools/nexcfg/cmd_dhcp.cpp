// cmd_dhcp.cpp - a vnet's DHCP server: the switch, its parameters, its
// static leases, and the regeneration of dhcpd.conf.
#include <cstdio>

#include "cli.h"
#include "config.h"
#include "params.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kIpCapacity = 16;

int On(const Invocation &in) { return FeatureSwitch("DHCP", kDhcpField, NXC_SetVnetUseDHCP, in, true); }
int Off(const Invocation &in) { return FeatureSwitch("DHCP", kDhcpField, NXC_SetVnetUseDHCP, in, false); }

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
  out.Set("file", VnetFile(vnet, "dhcpd/dhcpd.conf"));
  out.Set("action", enabled ? "written" : "removed");
  Report(out, std::string(enabled ? "wrote" : "removed") + " the DHCP configuration of " + vnet);
  return kExitOk;
}

// The MAC address argument in the standard form.
std::string MacArg(const Invocation &in) {
  std::string mac = CanonicalMac(in.Arg(1));
  if (mac.empty())
    throw Error(
        kCodeInvalid,
        "MAC address \"" + in.Arg(1) + "\" is not six bytes of one or two hex digits joined by colons",
        "write it as 00:50:56:3f:00:10");
  return mac;
}

Json LeaseJson(const std::string &vnet, const std::string &mac, const Json &ip) {
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("mac", mac);
  out.Set("ip", ip);
  return out;
}

int LeaseAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0)), mac = MacArg(in);
  const std::string &ip = in.Arg(2);
  Config before = ReadConfig(vnet), after = before;
  auto &leases = after.Vnet(vnet).leases;
  std::erase_if(leases, [&](const Lease &l) { return l.mac == mac; });
  leases.push_back({mac, ip});
  auto warnings = Vet(before, after, in.Flag("--force"));
  Call("bind " + ip + " to " + mac + " on " + vnet,
       [&] { return NXC_SetDHCPIPToMAC(vnet.c_str(), ip.c_str(), mac.c_str()); });
  PrintChange(LeaseJson(vnet, mac, ip), warnings, "static lease " + mac + " -> " + ip + " on " + vnet);
  return kExitOk;
}

// The fixed address of mac on vnet; a not-found error when it has none.
std::string LeaseOf(const std::string &vnet, const std::string &mac) {
  char ip[kIpCapacity] = "";
  uint32_t length = sizeof ip;
  if (!Ask([&] { return NXC_GetDHCPIPToMAC(vnet.c_str(), ip, &length, mac.c_str()); }))
    throw Error(kCodeNotFound, vnet + " has no static lease for " + mac, "nexcfg dhcp lease list " + vnet);
  return ip;
}

int LeaseRemove(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0)), mac = MacArg(in);
  (void)LeaseOf(vnet, mac);
  Call("remove the static lease of " + mac + " on " + vnet,
       [&] { return NXC_SetDHCPIPToMAC(vnet.c_str(), nullptr, mac.c_str()); });
  PrintChange(LeaseJson(vnet, mac, Json()), {}, "removed the static lease of " + mac + " on " + vnet);
  return kExitOk;
}

int LeaseGet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0)), mac = MacArg(in);
  std::string ip = LeaseOf(vnet, mac);
  Report(LeaseJson(vnet, mac, ip), ip);
  return kExitOk;
}

int LeaseList(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  PrintVnetList(vnet, "leases", DhcpLeases(vnet), vnet + " has no static leases",
                [](const Json &leases) { PrintLeases(leases, 0); });
  return kExitOk;
}

const Command kCommands[] = {
    {"dhcp on", "VNET", "--cleanup --force", "switch the DHCP server on for a vnet",
     "A vnet without a subnet is given a free one first. With --cleanup the vnet's\n"
     "DHCP parameters and static leases are removed.\n",
     Needs::kReadWrite, On},
    {"dhcp off", "VNET", "--cleanup --force", "switch the DHCP server off for a vnet",
     "With --cleanup the vnet's DHCP parameters and static leases are removed too.\n", Needs::kReadWrite,
     Off},
    {"dhcp show", "VNET", "", "show the DHCP switch, parameters and static leases", "", Needs::kReadOnly,
     Show},
    {"dhcp set", "VNET PARAMETER VALUE", "--force", "set a DHCP parameter", "", Needs::kReadWrite, Set},
    {"dhcp unset", "VNET PARAMETER", "--force", "remove a DHCP parameter (its default applies)", "",
     Needs::kReadWrite, Unset},
    {"dhcp update", "VNET", "", "regenerate the vnet's dhcpd.conf from the database",
     "Writes the file when DHCP is on and removes it when it is off. The vnet's DHCP\n"
     "daemon must be stopped.\n",
     Needs::kReadWrite, Update},
    {"dhcp lease add", "VNET MAC IP", "--force", "give a MAC address a fixed IP address",
     "Replaces an earlier lease of the same MAC address. The MAC address has six\n"
     "bytes of one or two hex digits in either case, joined by colons; it is kept in\n"
     "the standard form 00:0C:29:0A:0B:01. The address must be a host address of\n"
     "the vnet's subnet that no other MAC address has.\n",
     Needs::kReadWrite, LeaseAdd},
    {"dhcp lease rm", "VNET MAC", "", "remove a MAC address's fixed IP address", "", Needs::kReadWrite,
     LeaseRemove},
    {"dhcp lease get", "VNET MAC", "", "print the fixed IP address of a MAC address", "", Needs::kReadOnly,
     LeaseGet},
    {"dhcp lease list", "VNET", "", "list a vnet's static leases", "", Needs::kReadOnly, LeaseList},
};

}  // namespace

Json DhcpParameters(const std::string &vnet) { return ParametersJson(DhcpParams(), vnet); }

Json DhcpLeases(const std::string &vnet) {
  Json leases = Json::Array();
  for (const Lease &l : ReadLeases(vnet)) {
    Json lease = Json::Object();
    lease.Set("mac", l.mac);
    lease.Set("ip", l.ip);
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
      if (name == "dhcp set" || name == "dhcp unset" || name == "dhcp show")
        commands[i].details = setHelp.c_str();
    }
  }
  return commands;
}

}  // namespace nexcfg
