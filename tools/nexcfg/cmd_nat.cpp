// cmd_nat.cpp - a vnet's NAT service: the switch, its parameters, port
// forwards, NAT66 prefixes, and the regeneration of nat.conf.
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "params.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kIpCapacity = 16;
constexpr uint32_t kDescriptionCapacity = 256;

uint16_t Port(const std::string &word, const char *what) {
  return static_cast<uint16_t>(Number(word, what, 1, 65535));
}

int On(const Invocation &in) { return FeatureSwitch("NAT", NXC_SetVnetUseNAT, in, true); }
int Off(const Invocation &in) { return FeatureSwitch("NAT", NXC_SetVnetUseNAT, in, false); }

int Show(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool enabled = Ask([&] { return NXC_GetVnetUseNAT(vnet.c_str()); });
  Json parameters = ParametersJson(NatParams(), vnet);
  Json forwards = NatForwards(vnet);
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set("enabled", enabled);
    out.Set("parameters", std::move(parameters));
    out.Set("forwards", std::move(forwards));
    PrintJson(out);
    return kExitOk;
  }
  printf("%s: NAT %s\n", vnet.c_str(), enabled ? "on" : "off");
  PrintParameters(parameters, 2);
  if (!forwards.items().empty()) {
    printf("port forwards:\n");
    PrintForwards(forwards, 2);
  }
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
  out.Set(enabled ? "written" : "removed", "nat.conf");
  if (Opts().json) PrintJson(out);
  Say(std::string(enabled ? "wrote" : "removed") + " the NAT configuration of " + vnet);
  return kExitOk;
}

Json ForwardJson(bool tcp, uint16_t hostPort, const char *vmIP, uint16_t vmPort, const char *desc) {
  Json f = Json::Object();
  f.Set("protocol", ProtocolName(tcp));
  f.Set("host_port", hostPort);
  f.Set("vm_ip", vmIP);
  f.Set("vm_port", vmPort);
  f.Set("description", desc && *desc ? Json(desc) : Json());
  return f;
}

int ForwardAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool tcp = Protocol(in.Arg(1));
  uint16_t hostPort = Port(in.Arg(2), "the host port");
  const std::string &vmIP = in.Arg(3);
  uint16_t vmPort = Port(in.Arg(4), "the VM port");
  const char *desc = in.Has(5) ? in.Arg(5).c_str() : nullptr;
  uint32_t descLen = in.Has(5) ? static_cast<uint32_t>(in.Arg(5).size()) : 0;
  Call("forward " + std::string(ProtocolName(tcp)) + " port " + in.Arg(2) + " to " + vmIP + ":" +
           in.Arg(4) + " on " + vnet,
       [&] {
         return NXC_SetNATPortForward(vnet.c_str(), tcp, hostPort, vmIP.c_str(), vmPort, desc, descLen);
       });
  Json out = ForwardJson(tcp, hostPort, vmIP.c_str(), vmPort, desc);
  out.Set("vnet", vnet);
  if (Opts().json) PrintJson(out);
  Say(vnet + ": " + ProtocolName(tcp) + " port " + in.Arg(2) + " -> " + vmIP + ":" + in.Arg(4));
  return kExitOk;
}

int ForwardRemove(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool tcp = Protocol(in.Arg(1));
  uint16_t hostPort = Port(in.Arg(2), "the host port");
  Call("remove the " + std::string(ProtocolName(tcp)) + " port forward " + in.Arg(2) + " of " + vnet,
       [&] { return NXC_SetNATPortForward(vnet.c_str(), tcp, hostPort, nullptr, 0, nullptr, 0); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("protocol", ProtocolName(tcp));
  out.Set("host_port", hostPort);
  out.Set("removed", true);
  if (Opts().json) PrintJson(out);
  Say("removed the " + std::string(ProtocolName(tcp)) + " port forward " + in.Arg(2) + " of " + vnet);
  return kExitOk;
}

int ForwardGet(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool tcp = Protocol(in.Arg(1));
  uint16_t hostPort = Port(in.Arg(2), "the host port");
  char vmIP[kIpCapacity] = "", desc[kDescriptionCapacity] = "";
  uint32_t vmIPLen = sizeof vmIP, descLen = sizeof desc;
  uint16_t vmPort = 0;
  Call("find the " + std::string(ProtocolName(tcp)) + " port forward " + in.Arg(2) + " of " + vnet, [&] {
    return NXC_GetNATPortForward(vnet.c_str(), tcp, hostPort, vmIP, &vmIPLen, &vmPort, desc, &descLen);
  });
  Json out = ForwardJson(tcp, hostPort, vmIP, vmPort, desc);
  out.Set("vnet", vnet);
  PrintRecord(out);
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
  if (Opts().json)
    PrintJson(forwards);
  else if (forwards.items().empty())
    Say(vnet + " has no port forwards");
  else
    PrintForwards(forwards, 0);
  return kExitOk;
}

int PrefixAdd(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &prefix = in.Arg(1);
  const char *desc = in.Has(2) ? in.Arg(2).c_str() : nullptr;
  auto descLen = static_cast<int32_t>(in.Has(2) ? in.Arg(2).size() : 0);
  Call("add the NAT66 prefix " + prefix + " to " + vnet,
       [&] { return NXC_SetNATPrefix(vnet.c_str(), prefix.c_str(), desc, descLen); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("prefix", prefix);
  out.Set("description", desc ? Json(desc) : Json());
  if (Opts().json) PrintJson(out);
  Say("added the NAT66 prefix " + prefix + " to " + vnet);
  return kExitOk;
}

int PrefixCheck(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  const std::string &prefix = in.Arg(1);
  bool present = Ask([&] { return NXC_GetNATPrefix(vnet.c_str(), prefix.c_str(), nullptr, nullptr); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("prefix", prefix);
  out.Set("present", present);
  PrintRecord(out);
  return present ? kExitOk : kExitFailed;
}

const Command kCommands[] = {
    {"nat on", "VNET", "--cleanup", "switch NAT on for a vnet",
     "A vnet without a subnet is given a free one first. With --cleanup the derived\n"
     "NAT configuration is rewritten even when NAT is on already.\n",
     Needs::kReadWrite, On},
    {"nat off", "VNET", "--cleanup", "switch NAT off for a vnet",
     "With --cleanup the vnet's NAT parameters and port forwards are removed too.\n",
     Needs::kReadWrite, Off},
    {"nat show", "VNET", "", "show the NAT switch, parameters and port forwards", "", Needs::kReadOnly,
     Show},
    {"nat set", "VNET PARAMETER VALUE", "", "set a NAT parameter", "", Needs::kReadWrite, Set},
    {"nat unset", "VNET PARAMETER", "", "remove a NAT parameter (its default applies)", "",
     Needs::kReadWrite, Unset},
    {"nat update", "VNET", "", "regenerate the vnet's nat.conf from the database",
     "Writes the file (keeping the old one as a backup) when NAT is on and removes\n"
     "it when NAT is off. The vnet's NAT daemon must be stopped.\n",
     Needs::kReadWrite, Update},
    {"nat forward add", "VNET tcp|udp HOST-PORT VM-IP VM-PORT [DESCRIPTION]", "",
     "forward a host port to a VM",
     "Replaces an earlier forward of the same protocol and host port. The\n"
     "description has at most 127 bytes.\n",
     Needs::kReadWrite, ForwardAdd},
    {"nat forward rm", "VNET tcp|udp HOST-PORT", "", "remove a port forward", "", Needs::kReadWrite,
     ForwardRemove},
    {"nat forward get", "VNET tcp|udp HOST-PORT", "", "show one port forward", "", Needs::kReadOnly,
     ForwardGet},
    {"nat forward list", "VNET [tcp|udp]", "", "list a vnet's port forwards", "", Needs::kReadOnly,
     ForwardList},
    {"nat prefix add", "VNET PREFIX [DESCRIPTION]", "", "add a NAT66 prefix (address/bits) to a vnet",
     "The description has at most 127 bytes.\n", Needs::kReadWrite, PrefixAdd},
    {"nat prefix check", "VNET PREFIX", "", "tell whether a vnet has a NAT66 prefix",
     "Exit status 1 when it has not.\n", Needs::kReadOnly, PrefixCheck},
};

}  // namespace

Json NatParameters(const std::string &vnet) { return ParametersJson(NatParams(), vnet); }

Json NatForwards(const std::string &vnet) {
  Json forwards = Json::Array();
  for (bool tcp : {true, false}) {
    uint32_t cursor = 0;
    for (;;) {
      char vmIP[kIpCapacity] = "", desc[kDescriptionCapacity] = "";
      uint32_t vmIPLen = sizeof vmIP, descLen = sizeof desc;
      uint16_t hostPort = 0, vmPort = 0;
      // The end of the table is a false result.
      if (!Ask([&] {
            return NXC_EnumNATPortForward(vnet.c_str(), tcp, &cursor, &hostPort, vmIP, &vmIPLen, &vmPort,
                                          desc, &descLen);
          }))
        break;
      forwards.Push(ForwardJson(tcp, hostPort, vmIP, vmPort, descLen ? desc : nullptr));
    }
  }
  return forwards;
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
      if (name == "nat set" || name == "nat unset" || name == "nat show") commands[i].details = setHelp.c_str();
    }
  }
  return commands;
}

}  // namespace nexcfg
