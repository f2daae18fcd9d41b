// config.cpp - reading the whole configuration through the library's
// public interface, the host's routes, and the gate every change passes.
#include "config.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "params.h"
#include "text.h"

namespace nexcfg {

const std::string *VnetConfig::Field(const std::string &field) const {
  auto it = fields.find(field);
  return it == fields.end() ? nullptr : &it->second;
}

bool VnetConfig::Flag(const std::string &field) const {
  const std::string *value = Field(field);
  return value && strcasecmp(value->c_str(), "yes") == 0;
}

void VnetConfig::Set(const std::string &field, const std::optional<std::string> &value) {
  if (value)
    fields[field] = *value;
  else
    fields.erase(field);
}

std::optional<Subnet> VnetConfig::ValidSubnet() const {
  const std::string *subnet = Field(kSubnetField), *mask = Field(kMaskField);
  auto address = subnet ? ParseIPv4(*subnet) : std::nullopt;
  auto bits = mask ? ParseMask(*mask) : std::nullopt;
  if (!address || !bits) return std::nullopt;
  return Subnet{*address & *bits, *bits};
}

namespace {

constexpr uint32_t kIpCapacity = 16, kMacCapacity = 18, kDescriptionCapacity = 256;

// The routes of /proc/net/route but the default route and the vnets' own
// adapters' ("zynet..."), which are the vnets' subnets themselves.
std::vector<Route> HostRoutes() {
  std::vector<Route> routes;
  std::vector<std::string> lines = SplitText(ReadText("/proc/net/route"), '\n');
  for (size_t i = 1; i < lines.size(); ++i) {  // after the header
    Words fields(lines[i]);
    std::string interface, destination, gateway, flags, refs, use, metric, mask;
    if (!fields.Next(&interface, &destination, &gateway, &flags, &refs, &use, &metric, &mask)) continue;
    // The kernel prints the addresses' bytes in network order as one
    // host-order number.
    uint32_t net = ntohl(static_cast<uint32_t>(strtoul(destination.c_str(), nullptr, 16)));
    uint32_t bits = ntohl(static_cast<uint32_t>(strtoul(mask.c_str(), nullptr, 16)));
    if (bits == 0 || interface.rfind("zynet", 0) == 0) continue;
    routes.push_back({interface, Subnet{net, bits}});
  }
  return routes;
}

// The vnet fields the rules read.
std::vector<std::string> RuleFields() {
  std::vector<std::string> fields = {kSubnetField, kMaskField, kAdapterAddressField, kMtuField,
                                     kDhcpField,   kNatField,  kAdapterField};
  for (const ParamFamily *family : {&DhcpParams(), &NatParams()})
    for (const Param &p : family->params) fields.push_back(p.field);
  return fields;
}

}  // namespace

bool IsRuleField(const std::string &field) {
  auto fields = RuleFields();
  return std::find(fields.begin(), fields.end(), field) != fields.end();
}

std::vector<Lease> ReadLeases(const std::string &vnet) {
  LogWatch quiet(/*quiet=*/true);  // the end of the table is a false result
  std::vector<Lease> leases;
  uint32_t cursor = 0;
  for (;;) {
    char ip[kIpCapacity] = "", mac[kMacCapacity] = "";
    uint32_t ipLength = sizeof ip, macLength = sizeof mac;
    if (!NXC_EnumDHCPIPToMAC(vnet.c_str(), &cursor, ip, &ipLength, mac, &macLength)) break;
    leases.push_back({mac, ip});
  }
  quiet.Report();
  return leases;
}

std::vector<Forward> ReadForwards(const std::string &vnet) {
  LogWatch quiet(/*quiet=*/true);
  std::vector<Forward> forwards;
  for (bool tcp : {true, false}) {
    uint32_t cursor = 0;
    for (;;) {
      char vmIp[kIpCapacity] = "", desc[kDescriptionCapacity] = "";
      uint32_t vmIpLength = sizeof vmIp, descLength = sizeof desc;
      uint16_t hostPort = 0, vmPort = 0;
      if (!NXC_EnumNATPortForward(vnet.c_str(), tcp, &cursor, &hostPort, vmIp, &vmIpLength, &vmPort, desc,
                                  &descLength))
        break;
      forwards.push_back({tcp, hostPort, vmIp, vmPort, descLength ? desc : ""});
    }
  }
  quiet.Report();
  return forwards;
}

Config ReadConfig() { return ReadConfig(""); }

namespace {

// Reads the given fields of a vnet (missing ones stay absent), under a
// quiet LogWatch: most settings are not set.
void ReadFields(VnetConfig *v, const std::vector<std::string> &fields) {
  std::string prefix = "VNET_" + std::to_string(VnetNumber(v->name)) + "_";
  for (const auto &field : fields) {
    const char *value = nullptr;
    if (NXC_VnetCfgGetAnswer((prefix + field).c_str(), &value) && value) v->fields[field] = value;
  }
}

}  // namespace

void ReadRecords(VnetConfig *v) {
  LogWatch quiet(/*quiet=*/true);
  ReadFields(v, RuleFields());
  v->leases = ReadLeases(v->name);
  v->forwards = ReadForwards(v->name);
  v->partial = false;
  quiet.Report();
}

Config ReadConfig(const std::string &vnet) {
  Config config;
  config.vnets.resize(NXC_NUM_VNETS);
  const std::vector<std::string> subnetFields = {kSubnetField, kMaskField};
  LogWatch quiet(/*quiet=*/true);
  for (uint32_t n = 0; n < NXC_NUM_VNETS; ++n) {
    VnetConfig &v = config.vnets[n];
    v.name = VnetNameOf(n);
    if (vnet.empty() || v.name == vnet) {
      ReadRecords(&v);
    } else {
      ReadFields(&v, subnetFields);
      v.partial = true;
    }
  }
  quiet.Report();
  config.routes = HostRoutes();
  return config;
}

std::string VnetFile(const std::string &vnet, const std::string &relative) {
  std::string dir = AskAnswer("CONFIGDIR");
  return (dir.empty() ? std::string("/etc/zymtra") : dir) + "/" + vnet + "/" + relative;
}

Json ProblemJson(const Problem &p) {
  Json out = Json::Object();
  out.Set("vnet", Json::TextOrNull(p.vnet));
  out.Set("severity", p.error ? "error" : "warning");
  out.Set("code", p.code);
  out.Set("message", p.message);
  out.Set("fix", p.fix);
  return out;
}

std::vector<Problem> Vet(const Config &before, const Config &after, bool force) {
  std::vector<Problem> old, added;
  for (const Problem &p : ChangeProblems(before, after, &old))
    if (p.error && std::find(old.begin(), old.end(), p) == old.end()) added.push_back(p);
  auto changed = [&](const Problem &p) {
    return !p.vnet.empty() && !(before.Vnet(p.vnet) == after.Vnet(p.vnet));
  };
  std::stable_partition(added.begin(), added.end(), changed);
  if (added.empty() || force) return added;
  std::string message = added[0].message;
  if (added.size() > 1) message += " (and " + std::to_string(added.size() - 1) + " more problem(s))";
  throw Error(kCodeInvalid, message, added[0].fix + "; --force stores it anyway");
}

void Refuse(const Problem &problem, bool force, std::vector<Problem> *warnings) {
  if (!force) throw Error(kCodeInvalid, problem.message, problem.fix + "; --force stores it anyway");
  warnings->push_back(problem);
}

Subnet ChooseSubnet(const Config &config) {
  auto conflicts = [&](const Subnet &s) {
    for (const VnetConfig &v : config.vnets)
      if (auto t = v.ValidSubnet(); t && s.Overlaps(*t)) return true;
    for (const Route &r : config.routes)
      if (s.Overlaps(r.subnet)) return true;
    return false;
  };
  // Each offer is probed and then taken for the rest of this process.
  constexpr int kOffers = 10;
  for (int i = 0; i < kOffers; ++i) {
    char subnet[kIpCapacity] = "", mask[kIpCapacity] = "";
    Call("find a free subnet", [&] { return NXC_GetUnusedSubnet(subnet, sizeof subnet, mask, sizeof mask); });
    auto address = ParseIPv4(subnet);
    auto bits = ParseMask(mask);
    if (address && bits && !conflicts(Subnet{*address, *bits})) return Subnet{*address, *bits};
  }
  throw Error(kCodeFailed, "cannot find a free subnet: the library's candidates overlap vnets or host routes",
              "give one (nexcfg vnet set VNET subnet A.B.C.0/24)");
}

void PrintChange(Json out, const std::vector<Problem> &warnings, const std::string &line) {
  Json list = Json::Array();
  for (const Problem &p : warnings) {
    list.Push(ProblemJson(p));
    fprintf(stderr, "nexcfg: warning: %s (done anyway: --force)\n", p.message.c_str());
  }
  out.Set("warnings", std::move(list));
  Report(out, line);
}

}  // namespace nexcfg
