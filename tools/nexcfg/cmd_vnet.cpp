// cmd_vnet.cpp - vnets: the list, everything about one vnet, and its plain
// attributes (display name, subnet, mask, adapter address, MTU, subnet
// choice and test, removal).
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "config.h"
#include "features.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kNameCapacity = 128;
constexpr uint32_t kAddressCapacity = 16;

std::string DisplayName(const std::string &vnet) {
  return AskText(NXC_GetVnetDisplayName, vnet, kNameCapacity);
}
std::string SubnetOf(const std::string &vnet) {
  return AskText(NXC_GetVnetSubnetAddr, vnet, kAddressCapacity);
}
std::string MaskOf(const std::string &vnet) { return AskText(NXC_GetVnetSubnetMask, vnet, kAddressCapacity); }

// The stored adapter address, else the one the library computes from the
// subnet (*computed set), else "".
std::string AdapterAddress(const std::string &vnet, bool *computed) {
  for (bool compute : {false, true}) {
    char address[kAddressCapacity] = "";
    uint32_t length = sizeof address;
    if (Ask([&] { return NXC_GetVnetAdapterAddr(vnet.c_str(), address, &length, compute); })) {
      *computed = compute;
      return address;
    }
  }
  *computed = false;
  return "";
}

Json Mtu(const std::string &vnet) {
  uint32_t mtu = 0;
  if (!Ask([&] { return NXC_GetVnetMTU(vnet.c_str(), &mtu); })) return Json();
  return Json(mtu);
}

// The attributes and features of a vnet.
Json VnetSummary(const std::string &vnet, const VnetFeatures &f) {
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("name", Json::TextOrNull(DisplayName(vnet)));
  out.Set("subnet", Json::TextOrNull(SubnetOf(vnet)));
  out.Set("mask", Json::TextOrNull(MaskOf(vnet)));
  out.Merge(FeaturesJson(f));
  return out;
}

int List(const Invocation &in) {
  std::vector<std::string> vnets;
  std::vector<VnetFeatures> features;
  for (uint32_t n = 0; n < NXC_GetNumberOfVnets(); ++n) {
    std::string name = "zynet" + std::to_string(n);
    VnetFeatures f;
    (void)TryQueryFeatures(name, &f);
    if (!in.Flag("--all") && !Configured(f)) continue;
    vnets.push_back(name);
    features.push_back(f);
  }
  Table table({"VNET", "NAME", "SUBNET", "MASK", "ADAPTER", "DHCP", "NAT", "BRIDGE"});
  Json rows = Json::Array();
  for (size_t i = 0; i < vnets.size(); ++i) {
    const VnetFeatures &f = features[i];
    Json row = VnetSummary(vnets[i], f);
    table.Add({vnets[i], row.Find("name")->Text(), row.Find("subnet")->Text(), row.Find("mask")->Text(),
               FeatureCell(f.config.adapter, f.runtime.adapter, "up"),
               FeatureCell(f.config.dhcp, f.runtime.dhcp, "running"),
               FeatureCell(f.config.nat, f.runtime.nat, "running"),
               FeatureCell(f.config.bridge, f.runtime.bridge, "running")});
    rows.Push(std::move(row));
  }
  if (Opts().json)
    PrintJson(rows);
  else
    table.Print();
  return kExitOk;
}

Json ShowJson(const std::string &vnet, const std::string &defaultBridge) {
  VnetFeatures f;
  (void)TryQueryFeatures(vnet, &f);
  Json out = VnetSummary(vnet, f);
  bool computed = false;
  std::string address = AdapterAddress(vnet, &computed);
  out.Set("adapter_address", Json::TextOrNull(address));
  out.Set("adapter_address_computed", computed);
  out.Set("mtu", Mtu(vnet));
  out.Set("default_bridge", vnet == defaultBridge);
  Json dhcp = Json::Object();
  dhcp.Set("parameters", f.config.dhcp ? DhcpParameters(vnet) : Json::Array());
  dhcp.Set("leases", DhcpLeases(vnet));
  out.Set("dhcp", std::move(dhcp));
  Json nat = Json::Object();
  nat.Set("parameters", f.config.nat ? NatParameters(vnet) : Json::Array());
  nat.Set("forwards", NatForwards(vnet));
  nat.Set("prefixes", NatPrefixes(vnet));
  out.Set("nat", std::move(nat));
  Json adapters = Json::Array();
  Json bridged = BridgedAdapters(vnet);
  for (const Json &a : bridged.items()) adapters.Push(*a.Find("adapter"));
  out.Set("bridged_adapters", std::move(adapters));
  return out;
}

void PrintShow(const Json &v) {
  auto text = [&](const char *key) { return v.Find(key)->Text(); };
  auto flag = [&](const char *group, const char *key) { return v.Find(group)->Find(key)->AsBool(); };
  printf("%s\n", text("vnet").c_str());
  Json fields = Json::Object();
  fields.Set("  name", text("name"));
  fields.Set("  subnet", text("subnet"));
  fields.Set("  mask", text("mask"));
  std::string address = text("adapter_address");
  if (v.Find("adapter_address_computed")->AsBool()) address += " (computed from the subnet)";
  fields.Set("  adapter address", address);
  fields.Set("  mtu", text("mtu"));
  fields.Set("  host-only adapter",
             FeatureCell(flag("config", "adapter"), flag("runtime", "adapter_up"), "up"));
  fields.Set("  dhcp", FeatureCell(flag("config", "dhcp"), flag("runtime", "dhcp"), "running"));
  fields.Set("  nat", FeatureCell(flag("config", "nat"), flag("runtime", "nat"), "running"));
  std::string bridge = FeatureCell(flag("config", "bridge"), flag("runtime", "bridge"), "running");
  if (v.Find("default_bridge")->AsBool()) bridge += " (default bridge)";
  fields.Set("  bridge", bridge);
  std::string adapters;
  for (const Json &a : v.Find("bridged_adapters")->items())
    adapters += (adapters.empty() ? "" : ", ") + a.AsString();
  fields.Set("  bridged adapters", adapters);
  PrintFields(fields);
  const Json &dhcp = *v.Find("dhcp");
  if (!dhcp.Find("parameters")->items().empty()) {
    printf("  DHCP parameters:\n");
    PrintParameters(*dhcp.Find("parameters"), 4);
  }
  if (!dhcp.Find("leases")->items().empty()) {
    printf("  DHCP static leases:\n");
    PrintLeases(*dhcp.Find("leases"), 4);
  }
  const Json &nat = *v.Find("nat");
  if (!nat.Find("parameters")->items().empty()) {
    printf("  NAT parameters:\n");
    PrintParameters(*nat.Find("parameters"), 4);
  }
  if (!nat.Find("forwards")->items().empty()) {
    printf("  NAT port forwards:\n");
    PrintForwards(*nat.Find("forwards"), 4);
  }
  for (const Json &p : nat.Find("prefixes")->items()) printf("  NAT66 prefix: %s\n", p.AsString().c_str());
}

int Show(const Invocation &in) {
  std::vector<std::string> vnets;
  for (const auto &word : in.args()) vnets.push_back(VnetName(word));
  if (vnets.empty()) vnets = ConfiguredVnets();
  std::string defaultBridge = DefaultBridge();
  Json all = Json::Array();
  for (size_t i = 0; i < vnets.size(); ++i) {
    Json v = ShowJson(vnets[i], defaultBridge);
    if (!Opts().json) {
      if (i > 0) printf("\n");
      PrintShow(v);
    }
    all.Push(std::move(v));
  }
  if (Opts().json) PrintJson(all);
  if (vnets.empty()) Say("no vnet is configured");
  return kExitOk;
}

// The settable attributes, by the tool's name and the vnet field.
struct Attribute {
  const char *name;
  const char *field;
  bool (*set)(const char *vnet, const char *value);  // null value: remove
};
bool SetName(const char *vnet, const char *name) { return NXC_SetVnetDisplayName(vnet, name); }
bool SetMtu(const char *vnet, const char *mtu) {
  return mtu ? NXC_SetVnetMTU(vnet, static_cast<uint32_t>(std::stoul(mtu))) : NXC_RemoveMTU(vnet);
}
constexpr Attribute kAttributes[] = {
    {"name", "DISPLAY_NAME", SetName},
    {"subnet", kSubnetField, NXC_SetVnetSubnetAddr},
    {"mask", kMaskField, NXC_SetVnetSubnetMask},
    {"adapter-address", kAdapterAddressField, NXC_SetVnetAdapterAddr},
    {"mtu", kMtuField, SetMtu},
};
constexpr size_t kMaxName = 127;

const Attribute &AttributeNamed(const std::string &word) {
  for (const Attribute &a : kAttributes)
    if (word == a.name) return a;
  throw UsageError("unknown field \"" + word + "\": give name, subnet, mask, adapter-address or mtu");
}

// Values for attributes of a vnet; no value removes one.
using AttributeValues = std::vector<std::pair<const Attribute *, std::optional<std::string>>>;

// Vets and makes the change of one or more attributes of a vnet. A change
// of fields no rule reads (the display name) cannot make a problem: it is
// made without reading the configuration.
std::vector<Problem> ChangeAttributes(const std::string &vnet, const AttributeValues &changes, bool force) {
  std::vector<Problem> warnings;
  if (std::any_of(changes.begin(), changes.end(), [](const auto &c) { return IsRuleField(c.first->field); })) {
    Config before = ReadConfig(vnet), after = before;
    for (const auto &[a, value] : changes) after.Vnet(vnet).Set(a->field, value);
    warnings = Vet(before, after, force);
  }
  // The bindings are captured by name: clang before 16 cannot capture them
  // implicitly, and the fuzzing build compiles this file with clang.
  for (const auto &[a, value] : changes)
    Call(value ? "set the " + std::string(a->name) + " of " + vnet + " to " + *value
               : "remove the " + std::string(a->name) + " of " + vnet,
         [&, a = a, &value = value] {
           return a->set(vnet.c_str(), value ? value->c_str() : nullptr);
         });
  return warnings;
}

int Set(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const Attribute &a = AttributeNamed(in.Arg(1));
  std::string value = in.Arg(2);
  AttributeValues changes{{&a, value}};
  Json shown = value;
  if (a.set == SetName) {
    if (std::string why = TextProblem(value, kMaxName); !why.empty())
      throw Error(kCodeInvalid, "the name of " + vnet + " " + why, "give one line of at most 127 bytes");
  } else if (a.set == SetMtu) {
    uint64_t mtu = Number(value, "the MTU", 0, 0xffffffffu);
    value = std::to_string(mtu);
    changes[0].second = value;
    shown = mtu;
  } else if (a.set == NXC_SetVnetSubnetAddr && value.find('/') != std::string::npos) {
    // A subnet in CIDR form sets the mask too.
    auto cidr = ParseCidr(value);
    if (!cidr)
      throw Error(kCodeInvalid, "subnet \"" + value + "\" is not an IPv4 address and a length from /1 to /29",
                  "write it as 192.168.56.0/24");
    changes = {{&a, IPv4Text(cidr->address)}, {&AttributeNamed("mask"), IPv4Text(cidr->mask)}};
    shown = cidr->Text();
  }
  auto warnings = ChangeAttributes(vnet, changes, in.Flag("--force"));
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("field", a.name);
  out.Set("value", shown);
  PrintChange(std::move(out), warnings, vnet + " " + a.name + " = " + shown.Text());
  return kExitOk;
}

int Unset(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const Attribute &a = AttributeNamed(in.Arg(1));
  if (a.set == SetName) throw UsageError("a vnet's display name can be changed but not removed");
  auto warnings = ChangeAttributes(vnet, {{&a, std::nullopt}}, in.Flag("--force"));
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("field", a.name);
  out.Set("value", Json());
  PrintChange(std::move(out), warnings, "removed the " + std::string(a.name) + " of " + vnet);
  return kExitOk;
}

int AssignSubnet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  std::vector<Problem> warnings;
  if (SubnetOf(vnet).empty() || in.Flag("--overwrite")) {
    Subnet chosen = ChooseSubnet(ReadConfig(vnet));
    warnings = ChangeAttributes(vnet,
                                {{&AttributeNamed("subnet"), IPv4Text(chosen.address)},
                                 {&AttributeNamed("mask"), IPv4Text(chosen.mask)}},
                                in.Flag("--force"));
  }
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("subnet", Json::TextOrNull(SubnetOf(vnet)));
  out.Set("mask", Json::TextOrNull(MaskOf(vnet)));
  PrintChange(out, warnings,
              vnet + " subnet " + out.Find("subnet")->Text() + " mask " + out.Find("mask")->Text());
  return kExitOk;
}

int UnusedSubnet(const Invocation &) {
  char subnet[kAddressCapacity] = "", mask[kAddressCapacity] = "";
  Call("find an unused subnet",
       [&] { return NXC_GetUnusedSubnet(subnet, sizeof subnet, mask, sizeof mask); });
  Json out = Json::Object();
  out.Set("subnet", subnet);
  out.Set("mask", mask);
  PrintRecord(out);
  return kExitOk;
}

int CheckSubnet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool broadcast = in.Flag("--broadcast");
  uint32_t timeout = 1, interval = 1;
  if (const std::string *t = in.Option("--timeout"))
    timeout = static_cast<uint32_t>(Number(*t, "the timeout", 0, 3600));
  if (const std::string *i = in.Option("--interval"))
    interval = static_cast<uint32_t>(Number(*i, "the interval", 0, 3600));
  bool available = false;
  Call("check the subnet of " + vnet,
       [&] { return NXC_CheckSubnetAvailability(vnet.c_str(), broadcast, timeout, interval, &available); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("subnet", Json::TextOrNull(SubnetOf(vnet)));
  out.Set("available", available);
  PrintRecord(out);
  return kExitOk;
}

int Delete(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Call("remove " + vnet + " from the configuration",
       [&] { return NXC_DeleteVnetFromDatabase(vnet.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  Report(out, "removed every setting of " + vnet);
  return kExitOk;
}

const Command kCommands[] = {
    {"list", "", "--all", "list the configured vnets (--all: every vnet)",
     "A vnet is configured when it has a subnet, DHCP, NAT, a bridge or a host-only\n"
     "adapter. The feature columns read \"on\" when configured and add \"running\"\n"
     "or \"up\" when the daemon runs or the adapter is up.\n",
     Needs::kReadOnly, List},
    {"show", "[VNET...]", "", "show everything about vnets (by default every configured one)",
     "Attributes, features, DHCP and NAT parameters (with their sources: set in the\n"
     "database or the library's default), static leases, port forwards and bridged\n"
     "host adapters.\n",
     Needs::kReadOnly, Show},
    {"vnet set", "VNET FIELD VALUE", "--force", "set a vnet's name, subnet, mask, adapter-address or mtu",
     "FIELD is name (the display name), subnet (192.168.56.0, or 192.168.56.0/24 to\n"
     "set the mask too), mask (255.255.255.0), adapter-address (the host's address\n"
     "on the vnet) or mtu (68 to 65535). A subnet must not overlap another vnet's or\n"
     "a route of the host, and the vnet's addresses must stay inside it; --force\n"
     "stores a refused value anyway.\n",
     Needs::kReadWrite, Set},
    {"vnet unset", "VNET FIELD", "--force", "remove a vnet's subnet, mask, adapter-address or mtu", "",
     Needs::kReadWrite, Unset},
    {"vnet assign-subnet", "VNET", "--overwrite --force", "give a vnet a free /24 subnet",
     "Candidates are probed with the ping program; one that overlaps a vnet or a\n"
     "route of the host is passed over. A vnet that has a subnet keeps it unless\n"
     "--overwrite is given.\n",
     Needs::kReadWrite, AssignSubnet},
    {"vnet unused-subnet", "", "", "find a free /24 subnet without storing it", "", Needs::kReadOnly,
     UnusedSubnet},
    {"vnet check-subnet", "VNET", "--broadcast --timeout=SECONDS --interval=SECONDS",
     "ping a vnet's subnet to see whether it is still free",
     "Prints available: yes when nobody answered. Timeout and interval default to 1.\n", Needs::kReadOnly,
     CheckSubnet},
    {"vnet delete", "VNET", "", "remove every setting of a vnet",
     "Bridge mappings, DHCP, NAT, the host-only adapter, the subnet and the device\n"
     "node. Refused while one of the vnet's daemons runs or its adapter is up.\n",
     Needs::kReadWrite, Delete},
};

}  // namespace

std::span<const Command> VnetCommands() { return kCommands; }

}  // namespace nexcfg
