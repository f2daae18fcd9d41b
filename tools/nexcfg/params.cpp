// params.cpp - DHCP and NAT parameters by name, and the feature switches.
#include "params.h"

#include <cstdio>

#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kValueCapacity = 256;

// The interface's parameters by the tool's names. The DHCP server's
// global lease times, broadcast address and domain name are not reachable
// through it; they always take the library's defaults.
constexpr Param kDhcp[] = {
    {"lease-start", NXC_PARAM_DHCP_LEASE_BEGIN_IP, "first address of the dynamic range (default: middle of the subnet + 1)"},
    {"lease-end", NXC_PARAM_DHCP_LEASE_END_IP, "last address of the dynamic range (default: broadcast - 1)"},
    {"default-lease-time", NXC_PARAM_DHCP_DEFAULT_LEASE_TIME, "lease time in seconds when the client asks none (default 1800)"},
    {"max-lease-time", NXC_PARAM_DHCP_MAX_LEASE_TIME, "longest lease in seconds (default 7200)"},
    {"dns", NXC_PARAM_DHCP_DNS_ADDR, "DNS server handed out (default: .1, or .2 with NAT)"},
    {"router", NXC_PARAM_DHCP_ROUTERS, "router handed out (default .2)"},
    {"netbios", NXC_PARAM_DHCP_NETBIOS, "NetBIOS name server handed out (default .2)"},
};

constexpr Param kNat[] = {
    {"gateway", NXC_PARAM_NAT_GATEWAY_IP, "the NAT gateway's address on the vnet (default: subnet + 2)"},
    {"config-port", NXC_PARAM_NAT_CONFIG_PORT, "the daemon's configuration port, 1-65535 (default 33445)"},
    {"active-ftp", NXC_PARAM_NAT_ACTIVE_FTP, "0 or 1: follow active FTP connections (default 1)"},
    {"allow-any-oui", NXC_PARAM_NAT_ALLOW_ANY_OUI, "0 or 1: serve any MAC vendor prefix (default 1)"},
    {"udp-timeout", NXC_PARAM_NAT_UDP_TIMEOUT, "seconds before an idle UDP mapping ends (default 60)"},
    {"nat66", NXC_PARAM_NAT6, "0 or 1: NAT for IPv6 (default 0)"},
    {"nat66-prefix", NXC_PARAM_NAT6_PREFIX, "the IPv6 prefix (default fd15:4ba5:5a2b:10<nn>::/64)"},
};

const ParamFamily kDhcpFamily{"DHCP", "dhcp", kDhcp, NXC_GetDHCPParam, NXC_SetDHCPParam};
const ParamFamily kNatFamily{"NAT", "nat", kNat, NXC_GetNATParam, NXC_SetNATParam};

// A parameter number given as such: reachable, but shown by number.
Param gNumbered{"", 0, ""};
std::string gNumberedName;

}  // namespace

const ParamFamily &DhcpParams() { return kDhcpFamily; }
const ParamFamily &NatParams() { return kNatFamily; }

const Param &ParamNamed(const ParamFamily &family, const std::string &word) {
  for (const Param &p : family.params)
    if (word == p.name) return p;
  if (!word.empty() && isdigit(static_cast<unsigned char>(word[0]))) {
    gNumberedName = word;
    gNumbered = {gNumberedName.c_str(),
                 static_cast<uint32_t>(Number(word, "the parameter number", 0, 0xffffffffu)), ""};
    return gNumbered;
  }
  std::string names;
  for (const Param &p : family.params) names += (names.empty() ? "" : ", ") + std::string(p.name);
  throw UsageError("unknown " + std::string(family.label) + " parameter \"" + word + "\": give " + names);
}

Json ParametersJson(const ParamFamily &family, const std::string &vnet) {
  Json rows = Json::Array();
  for (const Param &p : family.params) {
    Json row = Json::Object();
    row.Set("name", p.name);
    row.Set("value", Json());
    row.Set("source", Json());
    for (bool useDefault : {false, true}) {
      char value[kValueCapacity] = "";
      uint32_t length = sizeof value;
      if (Ask([&] { return family.get(vnet.c_str(), p.id, useDefault, value, &length); })) {
        row.Set("value", value);
        row.Set("source", useDefault ? "default" : "set");
        break;
      }
    }
    rows.Push(std::move(row));
  }
  return rows;
}

std::string ParamHelp(const ParamFamily &family) {
  std::string text = "Parameters:\n";
  for (const Param &p : family.params) {
    char line[200];
    snprintf(line, sizeof line, "  %-20s %s\n", p.name, p.meaning);
    text += line;
  }
  return text;
}

void PrintParameters(const Json &parameters, int indent) {
  Table table({"PARAMETER", "VALUE", "SOURCE"});
  for (const Json &p : parameters.items())
    table.Add({p.Find("name")->Text(), p.Find("value")->Text(), p.Find("source")->Text()});
  table.Print(indent);
}

int ParamShow(const ParamFamily &family, const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Json parameters = ParametersJson(family, vnet);
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set("parameters", std::move(parameters));
    PrintJson(out);
    return kExitOk;
  }
  PrintParameters(parameters, 0);
  return kExitOk;
}

int ParamSet(const ParamFamily &family, const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const Param &p = ParamNamed(family, in.Arg(1));
  const std::string &value = in.Arg(2);
  Call("set the " + std::string(family.label) + " parameter " + p.name + " of " + vnet + " to " + value, [&] {
    return family.set(vnet.c_str(), p.id, value.c_str(), static_cast<uint32_t>(value.size()));
  });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("name", p.name);
  out.Set("value", value);
  if (Opts().json) PrintJson(out);
  Say(vnet + " " + family.command + " " + p.name + " = " + value);
  return kExitOk;
}

int ParamUnset(const ParamFamily &family, const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const Param &p = ParamNamed(family, in.Arg(1));
  Call("remove the " + std::string(family.label) + " parameter " + p.name + " of " + vnet,
       [&] { return family.set(vnet.c_str(), p.id, nullptr, 0); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("name", p.name);
  out.Set("value", Json());
  if (Opts().json) PrintJson(out);
  Say("removed " + std::string(family.command) + " " + p.name + " of " + vnet + " (the default applies)");
  return kExitOk;
}

int FeatureSwitch(const char *label, bool (*set)(const char *, bool, bool), const Invocation &in,
                  bool on) {
  std::string vnet = VnetName(in.Arg(0));
  bool cleanup = in.Flag("--cleanup");
  Call(std::string("switch ") + label + (on ? " on" : " off") + " for " + vnet,
       [&] { return set(vnet.c_str(), on, cleanup); });
  char subnet[16] = "", mask[16] = "";
  uint32_t subnetLength = sizeof subnet, maskLength = sizeof mask;
  bool hasSubnet = Ask([&] { return NXC_GetVnetSubnetAddr(vnet.c_str(), subnet, &subnetLength); });
  (void)Ask([&] { return NXC_GetVnetSubnetMask(vnet.c_str(), mask, &maskLength); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("feature", label);
  out.Set("on", on);
  out.Set("cleanup", cleanup);
  out.Set("subnet", hasSubnet ? Json(subnet) : Json());
  out.Set("mask", hasSubnet && *mask ? Json(mask) : Json());
  if (Opts().json) PrintJson(out);
  std::string line = std::string(label) + (on ? " on" : " off") + " for " + vnet;
  if (on && hasSubnet) line += std::string(" (subnet ") + subnet + (*mask ? std::string("/") + mask : "") + ")";
  Say(line);
  return kExitOk;
}

}  // namespace nexcfg
