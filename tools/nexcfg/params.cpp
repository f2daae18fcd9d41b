// params.cpp - DHCP and NAT parameters by name, and the feature switches.
#include "params.h"

#include <cstdio>

#include "config.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kValueCapacity = 256;
using K = ParamKind;

// The interface's parameters by the tool's names. The DHCP server's
// global lease times, broadcast address and domain name are not reachable
// through it; they always take the library's defaults.
constexpr Param kDhcp[] = {
    {"lease-start", NXC_PARAM_DHCP_LEASE_BEGIN_IP, "DHCP_PARAM_LEASE_START_IP", K::kAddress,
     "first address of the dynamic range (default: middle of the subnet + 1)"},
    {"lease-end", NXC_PARAM_DHCP_LEASE_END_IP, "DHCP_PARAM_LEASE_END_IP", K::kAddress,
     "last address of the dynamic range (default: broadcast - 1)"},
    {"default-lease-time", NXC_PARAM_DHCP_DEFAULT_LEASE_TIME, "DHCP_PARAM_SUB_DEFAULT_LEASE_TIME",
     K::kSeconds, "lease time in seconds when the client asks none (default 1800)"},
    {"max-lease-time", NXC_PARAM_DHCP_MAX_LEASE_TIME, "DHCP_PARAM_SUB_MAX_LEASE_TIME", K::kSeconds,
     "longest lease in seconds (default 7200)"},
    {"dns", NXC_PARAM_DHCP_DNS_ADDR, "DHCP_PARAM_DNS_ADDR", K::kAddress,
     "DNS server handed out (default: .1, or .2 with NAT)"},
    {"router", NXC_PARAM_DHCP_ROUTERS, "DHCP_PARAM_ROUTERS", K::kAddress, "router handed out (default .2)"},
    {"netbios", NXC_PARAM_DHCP_NETBIOS, "DHCP_PARAM_NETBIOS", K::kAddress,
     "NetBIOS name server handed out (default .2)"},
};

constexpr Param kNat[] = {
    {"gateway", NXC_PARAM_NAT_GATEWAY_IP, "NAT_PARAM_GATEWAY_IP", K::kAddress,
     "the NAT gateway's address on the vnet (default: subnet + 2)"},
    {"config-port", NXC_PARAM_NAT_CONFIG_PORT, "NAT_PARAM_CONFIG_PORT", K::kPort,
     "the daemon's configuration port, 1-65535 (default 33445)"},
    {"active-ftp", NXC_PARAM_NAT_ACTIVE_FTP, "NAT_PARAM_ACTIVE_FTP", K::kSwitch,
     "on or off: follow active FTP connections (default on)"},
    {"allow-any-oui", NXC_PARAM_NAT_ALLOW_ANY_OUI, "NAT_PARAM_ALLOW_ANY_OUI", K::kSwitch,
     "on or off: serve any MAC vendor prefix (default on)"},
    {"udp-timeout", NXC_PARAM_NAT_UDP_TIMEOUT, "NAT_PARAM_UDP_TIMEOUT", K::kSeconds,
     "seconds before an idle UDP mapping ends (default 60)"},
    {"nat66", NXC_PARAM_NAT6, "NAT_PARAM_NAT6", K::kSwitch, "on or off: NAT for IPv6 (default off)"},
    {"nat66-prefix", NXC_PARAM_NAT6_PREFIX, "NAT_PARAM_NAT6_PREFIX", K::kPrefix,
     "the IPv6 prefix, /32 to /96 (default fd15:4ba5:5a2b:10<nn>::/64)"},
};

const ParamFamily kDhcpFamily{"DHCP", "dhcp", kDhcp, NXC_GetDHCPParam, NXC_SetDHCPParam};
const ParamFamily kNatFamily{"NAT", "nat", kNat, NXC_GetNATParam, NXC_SetNATParam};

// The text stored for a value as typed: switches as "0" or "1".
std::string StoredText(const Param &p, const std::string &word) {
  if (p.kind != ParamKind::kSwitch) return word;
  for (const char *on : {"on", "yes", "true", "1"})
    if (word == on) return "1";
  for (const char *off : {"off", "no", "false", "0"})
    if (word == off) return "0";
  return word;
}

}  // namespace

const ParamFamily &DhcpParams() { return kDhcpFamily; }
const ParamFamily &NatParams() { return kNatFamily; }

const Param *ParamOfField(const std::string &field) {
  for (const ParamFamily *family : {&kDhcpFamily, &kNatFamily})
    for (const Param &p : family->params)
      if (field == p.field) return &p;
  return nullptr;
}

const Param &ParamNamed(const ParamFamily &family, const std::string &word) {
  for (const Param &p : family.params)
    if (word == p.name) return p;
  std::string names;
  for (const Param &p : family.params) names += (names.empty() ? "" : ", ") + std::string(p.name);
  throw UsageError("unknown " + std::string(family.label) + " parameter \"" + word + "\": give " + names);
}

Json ParamValueJson(const Param &param, const std::string &text) {
  bool digits =
      !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
  switch (param.kind) {
    case ParamKind::kSeconds:
    case ParamKind::kPort:
      return digits ? Json(std::stoll(text)) : Json(text);
    case ParamKind::kSwitch:
      return text == "0" || text == "1" ? Json(text == "1") : Json(text);
    default:
      return Json(text);
  }
}

std::string EffectiveValue(const ParamFamily &family, const std::string &vnet, const std::string &name) {
  const Param &p = ParamNamed(family, name);
  char value[kValueCapacity] = "";
  uint32_t length = sizeof value;
  return Ask([&] { return family.get(vnet.c_str(), p.id, /*useDefault=*/true, value, &length); }) ? value
                                                                                                  : "";
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
        row.Set("value", ParamValueJson(p, value));
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
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("parameters", parameters);
  if (Opts().json)
    PrintJson(out);
  else
    PrintParameters(parameters, 0);
  return kExitOk;
}

namespace {

// Stores (or with a null value removes) a parameter after vetting the
// configuration it leaves.
int ChangeParam(const ParamFamily &family, const Invocation &in, const std::optional<std::string> &value) {
  std::string vnet = VnetName(in.Arg(0));
  const Param &p = ParamNamed(family, in.Arg(1));
  Config before = ReadConfig(vnet), after = before;
  after.Vnet(vnet).Set(p.field, value);
  auto warnings = Vet(before, after, in.Flag("--force"));
  std::string name = std::string(family.label) + " parameter " + p.name + " of " + vnet;
  if (value)
    Call("set the " + name + " to " + *value, [&] {
      return family.set(vnet.c_str(), p.id, value->c_str(), static_cast<uint32_t>(value->size()));
    });
  else
    Call("remove the " + name, [&] { return family.set(vnet.c_str(), p.id, nullptr, 0); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("name", p.name);
  out.Set("value", value ? ParamValueJson(p, *value) : Json());
  PrintChange(std::move(out), warnings,
              value ? vnet + " " + family.command + " " + p.name + " = " + *value
                    : "removed " + std::string(family.command) + " " + p.name + " of " + vnet +
                          " (the default applies)");
  return kExitOk;
}

// What the library's clean-up of a feature removes, done to the model.
void RemoveDerived(const std::string &field, VnetConfig *v) {
  if (field == kAdapterField) {
    v->Set(kAdapterAddressField, std::nullopt);
    return;
  }
  bool nat = field == kNatField;
  for (const Param &p : (nat ? NatParams() : DhcpParams()).params) v->Set(p.field, std::nullopt);
  if (nat)
    v->forwards.clear();
  else
    v->leases.clear();
}

}  // namespace

int ParamSet(const ParamFamily &family, const Invocation &in) {
  return ChangeParam(family, in, StoredText(ParamNamed(family, in.Arg(1)), in.Arg(2)));
}

int ParamUnset(const ParamFamily &family, const Invocation &in) {
  return ChangeParam(family, in, std::nullopt);
}

int FeatureSwitch(const char *label, const char *field, bool (*set)(const char *, bool, bool),
                  const Invocation &in, bool on) {
  std::string vnet = VnetName(in.Arg(0));
  bool cleanup = in.Flag("--cleanup");
  Config before = ReadConfig(vnet), after = before;
  VnetConfig &v = after.Vnet(vnet);
  // A vnet without a subnet gets one first; the library would pick one
  // without looking at the host's routes.
  std::optional<Subnet> chosen;
  if (on && !v.Field(kSubnetField)) {
    chosen = ChooseSubnet(before);
    v.Set(kSubnetField, IPv4Text(chosen->address));
    v.Set(kMaskField, IPv4Text(chosen->mask));
  }
  v.Set(field, on ? "yes" : "no");
  if (cleanup) RemoveDerived(field, &v);
  auto warnings = Vet(before, after, in.Flag("--force"));
  const char *name = vnet.c_str();
  if (chosen) {
    Call("set the subnet of " + vnet,
         [&] { return NXC_SetVnetSubnetAddr(name, IPv4Text(chosen->address).c_str()); });
    Call("set the mask of " + vnet,
         [&] { return NXC_SetVnetSubnetMask(name, IPv4Text(chosen->mask).c_str()); });
  }
  try {
    Call(std::string("switch ") + label + (on ? " on" : " off") + " for " + vnet,
         [&] { return set(name, on, cleanup); });
  } catch (const Error &) {
    // The subnet chosen for this switch goes with it.
    if (chosen)
      (void)Ask([&] { return NXC_SetVnetSubnetAddr(name, nullptr) && NXC_SetVnetSubnetMask(name, nullptr); });
    throw;
  }
  std::string subnet = AskText(NXC_GetVnetSubnetAddr, vnet, 16),
              mask = AskText(NXC_GetVnetSubnetMask, vnet, 16);
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("feature", label);
  out.Set("on", on);
  out.Set("cleanup", cleanup);
  out.Set("subnet", Json::TextOrNull(subnet));
  out.Set("mask", Json::TextOrNull(mask));
  std::string line = std::string(label) + (on ? " on" : " off") + " for " + vnet;
  if (on && !subnet.empty()) line += " (subnet " + subnet + (mask.empty() ? "" : "/" + mask) + ")";
  PrintChange(std::move(out), warnings, line);
  return kExitOk;
}

}  // namespace nexcfg
