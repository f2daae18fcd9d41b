// cmd_vnet.cpp - vnets: the list, everything about one vnet, and its plain
// attributes (display name, subnet, mask, adapter address, MTU, subnet
// choice and test, removal).
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "features.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kNameCapacity = 128;
constexpr uint32_t kAddressCapacity = 16;

std::string DisplayName(const std::string &vnet) {
  return AskText(NXC_GetVnetDisplayName, vnet, kNameCapacity);
}
std::string Subnet(const std::string &vnet) { return AskText(NXC_GetVnetSubnetAddr, vnet, kAddressCapacity); }
std::string Mask(const std::string &vnet) { return AskText(NXC_GetVnetSubnetMask, vnet, kAddressCapacity); }

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

Json TextOrNull(const std::string &text) { return text.empty() ? Json() : Json(text); }

// The attributes and features of a vnet.
Json VnetSummary(const std::string &vnet, const VnetFeatures &f) {
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("name", TextOrNull(DisplayName(vnet)));
  out.Set("subnet", TextOrNull(Subnet(vnet)));
  out.Set("mask", TextOrNull(Mask(vnet)));
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
    table.Add({vnets[i], row.Find("name")->Text(), row.Find("subnet")->Text(),
               row.Find("mask")->Text(), FeatureCell(f.config.adapter, f.runtime.adapter, "up"),
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
  out.Set("adapter_address", TextOrNull(address));
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
  out.Set("nat", std::move(nat));
  Json adapters = Json::Array();
  Json bridged = BridgedAdapters(vnet);
  for (const Json &a : bridged.items()) adapters.Push(*a.Find("adapter"));
  out.Set("bridged_adapters", std::move(adapters));
  return out;
}

void PrintShow(const Json &v) {
  auto text = [&](const char *key) { return v.Find(key)->Text(); };
  auto flag = [&](const char *group, const char *key) {
    return v.Find(group)->Find(key)->AsBool();
  };
  printf("%s\n", text("vnet").c_str());
  Json fields = Json::Object();
  fields.Set("  name", text("name"));
  fields.Set("  subnet", text("subnet"));
  fields.Set("  mask", text("mask"));
  std::string address = text("adapter_address");
  if (v.Find("adapter_address_computed")->AsBool()) address += " (computed from the subnet)";
  fields.Set("  adapter address", address);
  fields.Set("  mtu", text("mtu"));
  fields.Set("  host-only adapter", FeatureCell(flag("config", "adapter"), flag("runtime", "adapter_up"), "up"));
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
}

int Show(const Invocation &in) {
  std::vector<std::string> vnets;
  if (in.Has(0))
    vnets.push_back(VnetName(in.Arg(0)));
  else
    vnets = ConfiguredVnets();
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
  if (Opts().json) PrintJson(in.Has(0) ? all.items()[0] : all);
  if (vnets.empty()) Say("no vnet is configured");
  return kExitOk;
}

// The settable attributes.
enum class Field { kName, kSubnet, kMask, kAdapterAddress, kMtu };

Field FieldNamed(const std::string &word) {
  if (word == "name") return Field::kName;
  if (word == "subnet") return Field::kSubnet;
  if (word == "mask" || word == "netmask") return Field::kMask;
  if (word == "adapter-address" || word == "address") return Field::kAdapterAddress;
  if (word == "mtu") return Field::kMtu;
  throw UsageError("unknown field \"" + word + "\": give name, subnet, mask, adapter-address or mtu");
}

int Set(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &fieldWord = in.Arg(1), &value = in.Arg(2);
  Field field = FieldNamed(fieldWord);
  const char *v = vnet.c_str();
  std::string what = "set the " + fieldWord + " of " + vnet + " to " + value;
  switch (field) {
    case Field::kName:
      Call(what, [&] { return NXC_SetVnetDisplayName(v, value.c_str()); });
      break;
    case Field::kSubnet:
      Call(what, [&] { return NXC_SetVnetSubnetAddr(v, value.c_str()); });
      break;
    case Field::kMask:
      Call(what, [&] { return NXC_SetVnetSubnetMask(v, value.c_str()); });
      break;
    case Field::kAdapterAddress:
      Call(what, [&] { return NXC_SetVnetAdapterAddr(v, value.c_str()); });
      break;
    case Field::kMtu: {
      auto mtu = static_cast<uint32_t>(Number(value, "the MTU", 0, 0xffffffffu));
      Call(what, [&] { return NXC_SetVnetMTU(v, mtu); });
      break;
    }
  }
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("field", fieldWord);
  out.Set("value", value);
  if (Opts().json) PrintJson(out);
  Say(vnet + " " + fieldWord + " = " + value);
  return kExitOk;
}

int Unset(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &fieldWord = in.Arg(1);
  Field field = FieldNamed(fieldWord);
  const char *v = vnet.c_str();
  std::string what = "remove the " + fieldWord + " of " + vnet;
  switch (field) {
    case Field::kName:
      throw UsageError("a vnet's display name can be changed but not removed");
    case Field::kSubnet:
      Call(what, [&] { return NXC_SetVnetSubnetAddr(v, nullptr); });
      break;
    case Field::kMask:
      Call(what, [&] { return NXC_SetVnetSubnetMask(v, nullptr); });
      break;
    case Field::kAdapterAddress:
      Call(what, [&] { return NXC_SetVnetAdapterAddr(v, nullptr); });
      break;
    case Field::kMtu:
      Call(what, [&] { return NXC_RemoveMTU(v); });
      break;
  }
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("field", fieldWord);
  out.Set("value", Json());
  if (Opts().json) PrintJson(out);
  Say("removed the " + fieldWord + " of " + vnet);
  return kExitOk;
}

int AssignSubnet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool overwrite = in.Flag("--overwrite");
  Call("assign a subnet to " + vnet,
       [&] { return NXC_AssignSubnetAddressToVnet(vnet.c_str(), overwrite); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("subnet", TextOrNull(Subnet(vnet)));
  out.Set("mask", TextOrNull(Mask(vnet)));
  PrintRecord(out);
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
  Call("check the subnet of " + vnet, [&] {
    return NXC_CheckSubnetAvailability(vnet.c_str(), broadcast, timeout, interval, &available);
  });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("subnet", TextOrNull(Subnet(vnet)));
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
  out.Set("deleted", true);
  if (Opts().json) PrintJson(out);
  Say("removed every setting of " + vnet);
  return kExitOk;
}

const Command kCommands[] = {
    {"list", "", "--all", "list the configured vnets (--all: every vnet)",
     "A vnet is configured when it has a subnet, DHCP, NAT, a bridge or a host-only\n"
     "adapter. The feature columns read \"on\" when configured and add \"running\"\n"
     "or \"up\" when the daemon runs or the adapter is up.\n",
     Needs::kReadOnly, List},
    {"show", "[VNET]", "", "show everything about a vnet (or every configured vnet)",
     "Attributes, features, DHCP and NAT parameters (with their sources: set in the\n"
     "database or the library's default), static leases, port forwards and bridged\n"
     "host adapters.\n",
     Needs::kReadOnly, Show},
    {"vnet set", "VNET FIELD VALUE", "", "set a vnet's name, subnet, mask, adapter-address or mtu",
     "FIELD is name (the display name), subnet (e.g. 192.168.56.0), mask\n"
     "(e.g. 255.255.255.0), adapter-address (the host's address on the vnet) or\n"
     "mtu. The library checks the value.\n",
     Needs::kReadWrite, Set},
    {"vnet unset", "VNET FIELD", "", "remove a vnet's subnet, mask, adapter-address or mtu", "",
     Needs::kReadWrite, Unset},
    {"vnet assign-subnet", "VNET", "--overwrite", "give a vnet a free /24 subnet",
     "Candidates are probed with the ping program. A vnet that has a subnet keeps\n"
     "it unless --overwrite is given.\n",
     Needs::kReadWrite, AssignSubnet},
    {"vnet unused-subnet", "", "", "find a free /24 subnet without storing it", "", Needs::kReadOnly,
     UnusedSubnet},
    {"vnet check-subnet", "VNET", "--broadcast --timeout=SECONDS --interval=SECONDS",
     "ping a vnet's subnet to see whether it is still free",
     "Prints available: yes when nobody answered. Timeout and interval default to 1.\n",
     Needs::kReadOnly, CheckSubnet},
    {"vnet delete", "VNET", "", "remove every setting of a vnet",
     "Bridge mappings, DHCP, NAT, the host-only adapter, the subnet and the device\n"
     "node. Refused while one of the vnet's daemons runs or its adapter is up.\n",
     Needs::kReadWrite, Delete},
};

}  // namespace

std::span<const Command> VnetCommands() { return kCommands; }

}  // namespace nexcfg
