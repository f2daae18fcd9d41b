// cmd_nat.cpp - a vnet's NAT service: the switch, its parameters, port
// forwards, NAT66 prefixes, and the regeneration of nat.conf.
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "nexcfg_internal.h"
#include "config.h"
#include "dbfile.h"
#include "params.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kIpCapacity = 16;
constexpr uint32_t kDescriptionCapacity = 256;
constexpr size_t kMaxDescription = 127;

uint16_t Port(const std::string &word, const char *what) {
  return static_cast<uint16_t>(Number(word, what, 1, 65535));
}

int On(const Invocation &in) { return FeatureSwitch("NAT", kNatField, NXC_SetVnetUseNAT, in, true); }
int Off(const Invocation &in) { return FeatureSwitch("NAT", kNatField, NXC_SetVnetUseNAT, in, false); }

int Show(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool enabled = Ask([&] { return NXC_GetVnetUseNAT(vnet.c_str()); });
  Json parameters = ParametersJson(NatParams(), vnet);
  Json forwards = NatForwards(vnet);
  Json prefixes = NatPrefixes(vnet);
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set("enabled", enabled);
    out.Set("parameters", std::move(parameters));
    out.Set("forwards", std::move(forwards));
    out.Set("prefixes", std::move(prefixes));
    PrintJson(out);
    return kExitOk;
  }
  printf("%s: NAT %s\n", vnet.c_str(), enabled ? "on" : "off");
  PrintParameters(parameters, 2);
  if (!forwards.items().empty()) {
    printf("port forwards:\n");
    PrintForwards(forwards, 2);
  }
  for (const Json &p : prefixes.items()) printf("NAT66 prefix: %s\n", p.AsString().c_str());
  return kExitOk;
}

int Set(const Invocation &in) { return ParamSet(NatParams(), in); }
int Unset(const Invocation &in) { return ParamUnset(NatParams(), in); }

int Update(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool enabled = Ask([&] { return NXC_GetVnetUseNAT(vnet.c_str()); });
  Call(std::string(enabled ? "write" : "remove") + " the NAT configuration file of " + vnet,
       [&] { return NXC_UpdateNATFromConfig(vnet.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("file", VnetFile(vnet, "nat/nat.conf"));
  out.Set("action", enabled ? "written" : "removed");
  Report(out, std::string(enabled ? "wrote" : "removed") + " the NAT configuration of " + vnet);
  return kExitOk;
}

Json ForwardJson(const std::string &vnet, const Forward &f) {
  Json out = Json::Object();
  if (!vnet.empty()) out.Set("vnet", vnet);
  out.Set("protocol", ProtocolName(f.tcp));
  out.Set("host_port", f.hostPort);
  out.Set("vm_ip", Json::TextOrNull(f.vmIp));
  out.Set("vm_port", f.vmIp.empty() ? Json() : Json(f.vmPort));
  out.Set("description", Json::TextOrNull(f.description));
  return out;
}

int ForwardAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Forward f{Protocol(in.Arg(1)), Port(in.Arg(2), "the host port"), in.Arg(3), Port(in.Arg(4), "the VM port"),
            in.Has(5) ? in.Arg(5) : ""};
  if (std::string why = TextProblem(f.description, kMaxDescription); !why.empty())
    throw Error(kCodeInvalid, "the description of the forward " + why, "give one line of at most 127 bytes");
  Config before = ReadConfig(vnet), after = before;
  auto &forwards = after.Vnet(vnet).forwards;
  std::erase_if(forwards, [&](const Forward &g) { return g.tcp == f.tcp && g.hostPort == f.hostPort; });
  forwards.push_back(f);
  auto warnings = Vet(before, after, in.Flag("--force"));
  const char *desc = f.description.empty() ? nullptr : f.description.c_str();
  auto descLen = static_cast<uint32_t>(f.description.size());
  Call("forward " + std::string(ProtocolName(f.tcp)) + " port " + in.Arg(2) + " to " + f.vmIp + ":" +
           in.Arg(4) + " on " + vnet,
       [&] {
         return NXC_SetNATPortForward(vnet.c_str(), f.tcp, f.hostPort, f.vmIp.c_str(), f.vmPort, desc,
                                      descLen);
       });
  PrintChange(ForwardJson(vnet, f), warnings,
              vnet + ": " + ProtocolName(f.tcp) + " port " + in.Arg(2) + " -> " + f.vmIp + ":" + in.Arg(4));
  return kExitOk;
}

// The forward of a protocol and host port; a not-found error when none.
Forward ForwardOf(const std::string &vnet, bool tcp, uint16_t hostPort) {
  char vmIp[kIpCapacity] = "", desc[kDescriptionCapacity] = "";
  uint32_t vmIpLen = sizeof vmIp, descLen = sizeof desc;
  uint16_t vmPort = 0;
  if (!Ask([&] {
        return NXC_GetNATPortForward(vnet.c_str(), tcp, hostPort, vmIp, &vmIpLen, &vmPort, desc, &descLen);
      }))
    throw Error(kCodeNotFound,
                vnet + " has no " + ProtocolName(tcp) + " port forward " + std::to_string(hostPort),
                "nexcfg nat forward list " + vnet);
  return {tcp, hostPort, vmIp, vmPort, desc};
}

int ForwardRemove(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool tcp = Protocol(in.Arg(1));
  uint16_t hostPort = Port(in.Arg(2), "the host port");
  (void)ForwardOf(vnet, tcp, hostPort);
  Call("remove the " + std::string(ProtocolName(tcp)) + " port forward " + in.Arg(2) + " of " + vnet,
       [&] { return NXC_SetNATPortForward(vnet.c_str(), tcp, hostPort, nullptr, 0, nullptr, 0); });
  PrintChange(ForwardJson(vnet, {tcp, hostPort, "", 0, ""}), {},
              "removed the " + std::string(ProtocolName(tcp)) + " port forward " + in.Arg(2) + " of " + vnet);
  return kExitOk;
}

int ForwardGet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Forward f = ForwardOf(vnet, Protocol(in.Arg(1)), Port(in.Arg(2), "the host port"));
  PrintRecord(ForwardJson(vnet, f));
  return kExitOk;
}

int ForwardList(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Json forwards = NatForwards(vnet);
  if (in.Has(1)) {
    bool tcp = Protocol(in.Arg(1));
    Json chosen = Json::Array();
    for (const Json &f : forwards.items())
      if (f.Find("protocol")->AsString() == ProtocolName(tcp)) chosen.Push(f);
    forwards = std::move(chosen);
  }
  PrintVnetList(vnet, "forwards", std::move(forwards), vnet + " has no port forwards",
                [](const Json &list) { PrintForwards(list, 0); });
  return kExitOk;
}

bool HasPrefix(const std::string &vnet, const std::string &prefix) {
  return Ask([&] { return NXC_GetNATPrefix(vnet.c_str(), prefix.c_str(), nullptr, nullptr); });
}

Json PrefixJson(const std::string &vnet, const std::string &prefix) {
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("prefix", prefix);
  return out;
}

int PrefixAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &prefix = in.Arg(1);
  std::string desc = in.Has(2) ? in.Arg(2) : "";
  if (std::string why = TextProblem(desc, kMaxDescription); !why.empty())
    throw Error(kCodeInvalid, "the description of the prefix " + why, "give one line of at most 127 bytes");
  std::vector<Problem> warnings;
  if (std::string why; !IsNat66Prefix(prefix, &why))
    Refuse({vnet, true, "prefix-invalid", "NAT66 prefix \"" + prefix + "\" " + why,
            "give one like fd00:1:2:3::/64"},
           in.Flag("--force"), &warnings);
  Call("add the NAT66 prefix " + prefix + " to " + vnet, [&] {
    return NXC_SetNATPrefix(vnet.c_str(), prefix.c_str(), desc.empty() ? nullptr : desc.c_str(),
                            static_cast<int32_t>(desc.size()));
  });
  PrintChange(PrefixJson(vnet, prefix), warnings, "added the NAT66 prefix " + prefix + " to " + vnet);
  return kExitOk;
}

int PrefixRemove(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &prefix = in.Arg(1);
  if (!HasPrefix(vnet, prefix))
    throw Error(kCodeNotFound, vnet + " has no NAT66 prefix " + prefix, "nexcfg nat prefix list " + vnet);
  // The public calls add and look up prefixes; the removal is the database
  // layer's own, under the database lock like every change.
  Call("remove the NAT66 prefix " + prefix + " of " + vnet, [&] {
    if (!NXCNetCfgLockConfig(nullptr)) return false;
    bool removed = NXCNetCfgRemoveNATPrefix(nullptr, VnetNumber(vnet), prefix.c_str());
    return NXCNetCfgUnlockConfig(nullptr) && removed;
  });
  PrintChange(PrefixJson(vnet, prefix), {}, "removed the NAT66 prefix " + prefix + " of " + vnet);
  return kExitOk;
}

int PrefixCheck(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &prefix = in.Arg(1);
  bool present = HasPrefix(vnet, prefix);
  Json out = PrefixJson(vnet, prefix);
  out.Set("present", present);
  PrintRecord(out);
  return present ? kExitOk : kExitFailed;
}

int PrefixList(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  PrintVnetList(vnet, "prefixes", NatPrefixes(vnet), vnet + " has no NAT66 prefixes",
                [](const Json &prefixes) {
                  for (const Json &p : prefixes.items()) printf("%s\n", p.AsString().c_str());
                });
  return kExitOk;
}

const Command kCommands[] = {
    {"nat on", "VNET", "--cleanup --force", "switch NAT on for a vnet",
     "A vnet without a subnet is given a free one first. With --cleanup the vnet's\n"
     "NAT parameters and port forwards are removed.\n",
     Needs::kReadWrite, On},
    {"nat off", "VNET", "--cleanup --force", "switch NAT off for a vnet",
     "With --cleanup the vnet's NAT parameters and port forwards are removed too;\n"
     "without it, a vnet that has port forwards is refused (they need NAT).\n",
     Needs::kReadWrite, Off},
    {"nat show", "VNET", "", "show the NAT switch, parameters, port forwards and NAT66 prefixes", "",
     Needs::kReadOnly, Show},
    {"nat set", "VNET PARAMETER VALUE", "--force", "set a NAT parameter", "", Needs::kReadWrite, Set},
    {"nat unset", "VNET PARAMETER", "--force", "remove a NAT parameter (its default applies)", "",
     Needs::kReadWrite, Unset},
    {"nat update", "VNET", "", "regenerate the vnet's nat.conf from the database",
     "Writes the file (keeping the old one as a backup) when NAT is on and removes\n"
     "it when NAT is off. The vnet's NAT daemon must be stopped.\n",
     Needs::kReadWrite, Update},
    {"nat forward add", "VNET tcp|udp HOST-PORT VM-IP VM-PORT [DESCRIPTION]", "--force",
     "forward a host port to a VM",
     "Replaces an earlier forward of the same protocol and host port. NAT must be on\n"
     "and VM-IP a host address of the vnet's subnet. The description has at most 127\n"
     "bytes.\n",
     Needs::kReadWrite, ForwardAdd},
    {"nat forward rm", "VNET tcp|udp HOST-PORT", "", "remove a port forward", "", Needs::kReadWrite,
     ForwardRemove},
    {"nat forward get", "VNET tcp|udp HOST-PORT", "", "show one port forward", "", Needs::kReadOnly,
     ForwardGet},
    {"nat forward list", "VNET [tcp|udp]", "", "list a vnet's port forwards", "", Needs::kReadOnly,
     ForwardList},
    {"nat prefix add", "VNET PREFIX [DESCRIPTION]", "--force", "add a NAT66 prefix (address/bits) to a vnet",
     "PREFIX is an IPv6 network with a length from /32 to /96. The description has at\n"
     "most 127 bytes. Prefixes live only in the database's journal: a compact rewrite\n"
     "(--compact, or another program's last unload of a changed database) drops them.\n",
     Needs::kReadWrite, PrefixAdd},
    {"nat prefix rm", "VNET PREFIX", "", "remove a NAT66 prefix from a vnet",
     "Appends the removal to the database's journal.\n",
     Needs::kReadWrite, PrefixRemove},
    {"nat prefix list", "VNET", "", "list a vnet's NAT66 prefixes", "", Needs::kReadOnly, PrefixList},
    {"nat prefix check", "VNET PREFIX", "", "tell whether a vnet has a NAT66 prefix",
     "Exit status 1 when it has not.\n", Needs::kReadOnly, PrefixCheck},
};

}  // namespace

Json NatParameters(const std::string &vnet) { return ParametersJson(NatParams(), vnet); }

Json NatForwards(const std::string &vnet) {
  Json forwards = Json::Array();
  for (const Forward &f : ReadForwards(vnet)) forwards.Push(ForwardJson("", f));
  return forwards;
}

Json NatPrefixes(const std::string &vnet) {
  // The database file names the candidates; the library says which it has.
  Json prefixes = Json::Array();
  for (const auto &p : PrefixesOf(ReadDbFile(kDatabasePath), static_cast<int>(VnetNumber(vnet))))
    if (HasPrefix(vnet, p)) prefixes.Push(p);
  return prefixes;
}

void PrintForwards(const Json &forwards, int indent) {
  Table table({"PROTOCOL", "HOST-PORT", "VM-IP", "VM-PORT", "DESCRIPTION"});
  for (const Json &f : forwards.items())
    table.Add({f.Find("protocol")->Text(), f.Find("host_port")->Text(), f.Find("vm_ip")->Text(),
               f.Find("vm_port")->Text(), f.Find("description")->Text()});
  table.Print(indent);
}

std::span<const Command> NatCommands() {
  static std::string setHelp;
  static Command commands[std::size(kCommands)];
  if (setHelp.empty()) {
    setHelp = ParamHelp(NatParams());
    for (size_t i = 0; i < std::size(kCommands); ++i) {
      commands[i] = kCommands[i];
      std::string name = commands[i].name;
      if (name == "nat set" || name == "nat unset" || name == "nat show")
        commands[i].details = setHelp.c_str();
    }
  }
  return commands;
}

}  // namespace nexcfg
