// rules.cpp - what the network would refuse: the rules every vnet's
// configuration must keep, each problem named with its field, value, rule
// and fix.
#include <algorithm>
#include <cstdlib>
#include <set>

#include "config.h"
#include "params.h"

namespace nexcfg {
namespace {

constexpr uint32_t kMinMtu = 68, kMaxMtu = 65535;
constexpr uint64_t kMaxSeconds = 0x7fffffff;
// The library's defaults for the lease times of a subnet.
constexpr uint64_t kDefaultLeaseTime = 1800, kDefaultMaxLeaseTime = 7200;

std::optional<uint64_t> Decimal(const std::string &text, uint64_t max) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
    return std::nullopt;
  uint64_t value = std::strtoull(text.c_str(), nullptr, 10);
  if (value > max) return std::nullopt;
  return value;
}

// Why text is not a host address of the subnet, or "".
std::string HostAddressProblem(const std::string &text, const std::optional<Subnet> &subnet) {
  auto address = ParseIPv4(text);
  if (!address) return "is not an IPv4 address in its usual form";
  if (!subnet) return "";
  if (!subnet->Contains(*address)) return "is outside the subnet " + subnet->Text();
  if (*address == subnet->Network()) return "is the network address of " + subnet->Text();
  if (*address == subnet->Broadcast()) return "is the broadcast address of " + subnet->Text();
  return "";
}

// Why a stored parameter value is not of its kind, or "".
std::string KindProblem(const Param &param, const std::string &text) {
  std::string why;
  switch (param.kind) {
    case ParamKind::kAddress:
      return ParseIPv4(text) ? "" : "is not an IPv4 address in its usual form";
    case ParamKind::kSeconds:
      return Decimal(text, kMaxSeconds) ? "" : "is not a whole number of seconds";
    case ParamKind::kPort: {
      auto port = Decimal(text, 65535);
      return port && *port > 0 ? "" : "is not a port number from 1 to 65535";
    }
    case ParamKind::kSwitch:
      return text == "0" || text == "1" ? "" : "is not 0 or 1";
    case ParamKind::kPrefix:
      return IsNat66Prefix(text, &why) ? "" : why;
  }
  return "";
}

// The vnets whose problems a check reports (all when null), and the MACs
// whose static leases on more than one vnet it reports (all when null).
struct Scope {
  const std::vector<bool> *vnets = nullptr;
  const std::set<std::string> *macs = nullptr;
};

class Checker {
 public:
  Checker(const Config &config, Scope scope) : config_(config), scope_(scope) {}
  std::vector<Problem> Run();

 private:
  void Add(const VnetConfig &v, bool error, const char *code, const std::string &message,
           const std::string &fix) {
    problems_.push_back({v.name, error, code, message, fix});
  }
  void Addressing(const VnetConfig &v);
  void Overlaps(const VnetConfig &v, const Subnet &s);
  void Parameters(const VnetConfig &v, const std::optional<Subnet> &s);
  void DhcpRange(const VnetConfig &v, const Subnet &s);
  void Leases(const VnetConfig &v, const std::optional<Subnet> &s);
  void Forwards(const VnetConfig &v, const std::optional<Subnet> &s);

  // Notes which vnet holds a MAC's first static lease; false when an
  // earlier vnet (or an earlier lease of this one) has it already.
  bool FirstLeaseOf(const Lease &l, const VnetConfig &v,
                    std::map<std::string, std::string>::iterator *first);

  const Config &config_;
  Scope scope_;
  std::vector<Problem> problems_;
  std::map<std::string, std::string> leaseVnetOfMac_;
};

std::vector<Problem> Checker::Run() {
  for (size_t n = 0; n < config_.vnets.size(); ++n) {
    const VnetConfig &v = config_.vnets[n];
    if (scope_.vnets && !(*scope_.vnets)[n]) {
      // Out of scope, but its leases still come first for those in it.
      std::map<std::string, std::string>::iterator first;
      if (scope_.macs && !scope_.macs->empty())
        for (const Lease &l : v.leases) (void)FirstLeaseOf(l, v, &first);
      continue;
    }
    Addressing(v);
    std::optional<Subnet> s = v.ValidSubnet();
    if (s) Overlaps(v, *s);
    Parameters(v, s);
    if (s) DhcpRange(v, *s);
    Leases(v, s);
    Forwards(v, s);
  }
  return problems_;
}

void Checker::Addressing(const VnetConfig &v) {
  const std::string *subnet = v.Field(kSubnetField), *mask = v.Field(kMaskField);
  std::string set = "nexcfg vnet set " + v.name;
  bool used = v.Flag(kDhcpField) || v.Flag(kNatField) || v.Flag(kAdapterField) || !v.leases.empty() ||
              !v.forwards.empty();
  if (!subnet && used)
    Add(v, false, "subnet-missing", v.name + " has DHCP, NAT, an adapter, leases or forwards but no subnet",
        "nexcfg vnet assign-subnet " + v.name);
  if (subnet && !ParseIPv4(*subnet)) {
    std::string suggestion = IPv4Suggestion(*subnet);
    Add(v, true, "subnet-invalid",
        "subnet \"" + *subnet + "\" of " + v.name + " is not an IPv4 address in its usual form",
        suggestion.empty() ? set + " subnet A.B.C.D/N (four numbers from 0 to 255)"
                           : set + " subnet " + suggestion);
  }
  if (mask && !ParseMask(*mask))
    Add(v, true, "mask-invalid",
        "mask \"" + *mask + "\" of " + v.name + " is not a subnet mask from /1 to /29 (8 or more addresses)",
        set + " mask 255.255.255.0");
  if (subnet && !mask)
    Add(v, false, "mask-missing", v.name + " has the subnet " + *subnet + " but no mask",
        set + " mask 255.255.255.0");
  auto address = subnet ? ParseIPv4(*subnet) : std::nullopt;
  auto bits = mask ? ParseMask(*mask) : std::nullopt;
  if (address && bits) {
    Subnet s{*address, *bits};
    if (s.HasHostBits())
      Add(v, true, "subnet-host-bits",
          "subnet " + *subnet + " of " + v.name + " has host bits set under the mask " + *mask,
          set + " subnet " + Subnet{s.Network(), s.mask}.Text());
  }
  if (const std::string *a = v.Field(kAdapterAddressField)) {
    std::string why = HostAddressProblem(*a, v.ValidSubnet());
    if (!why.empty())
      Add(v, true, "adapter-address", "adapter-address " + *a + " of " + v.name + " " + why,
          v.ValidSubnet() ? set + " adapter-address " + IPv4Text(v.ValidSubnet()->Network() + 1)
                          : "nexcfg vnet unset " + v.name + " adapter-address");
  }
  if (const std::string *mtu = v.Field(kMtuField)) {
    auto value = Decimal(*mtu, kMaxMtu);
    if (!value || *value < kMinMtu)
      Add(v, true, "mtu-range", "mtu \"" + *mtu + "\" of " + v.name + " is not a number from 68 to 65535",
          set + " mtu 1500");
  }
}

void Checker::Overlaps(const VnetConfig &v, const Subnet &s) {
  std::string fix = "give " + v.name + " another subnet (nexcfg vnet set " + v.name + " subnet A.B.C.0/24)";
  for (const VnetConfig &other : config_.vnets) {
    auto t = other.ValidSubnet();
    if (&other != &v && t && s.Overlaps(*t))
      Add(v, true, "subnet-overlap",
          "subnet " + s.Text() + " of " + v.name + " overlaps the subnet " + t->Text() + " of " + other.name,
          fix);
  }
  for (const Route &r : config_.routes)
    if (s.Overlaps(r.subnet))
      Add(v, true, "subnet-host-route",
          "subnet " + s.Text() + " of " + v.name + " overlaps the host's route to " + r.subnet.Text() +
              " on " + r.interface,
          fix);
}

void Checker::Parameters(const VnetConfig &v, const std::optional<Subnet> &s) {
  for (const ParamFamily *family : {&DhcpParams(), &NatParams()}) {
    for (const Param &p : family->params) {
      const std::string *value = v.Field(p.field);
      if (!value) continue;
      std::string name = std::string(family->command) + " " + p.name;
      std::string fix = "nexcfg " + std::string(family->command) + " unset " + v.name + " " + p.name +
                        " (the default applies)";
      std::string why = KindProblem(p, *value);
      // The range and the NAT gateway are addresses on the vnet.
      bool onVnet = p.id == NXC_PARAM_DHCP_LEASE_BEGIN_IP || p.id == NXC_PARAM_DHCP_LEASE_END_IP ||
                    p.id == NXC_PARAM_NAT_GATEWAY_IP;
      if (why.empty() && onVnet) why = HostAddressProblem(*value, s);
      if (why.empty()) continue;
      if (onVnet && s) fix = "give an address from " + s->HostRange() + ", or " + fix;
      Add(v, true, "param-invalid", name + " \"" + *value + "\" of " + v.name + " " + why, fix);
    }
  }
}

void Checker::DhcpRange(const VnetConfig &v, const Subnet &s) {
  auto stored = [&](const char *field) -> std::optional<uint32_t> {
    const std::string *text = v.Field(field);
    return text ? ParseIPv4(*text) : std::nullopt;
  };
  auto start = stored("DHCP_PARAM_LEASE_START_IP"), end = stored("DHCP_PARAM_LEASE_END_IP");
  if (start || end) {
    // The library's defaults: the upper half of the subnet.
    uint32_t first = start.value_or((s.Network() | (~s.mask >> 1)) + 1);
    uint32_t last = end.value_or(s.Broadcast() - 1);
    if (last < first)
      Add(v, true, "lease-range-order",
          "dhcp lease-end " + IPv4Text(last) + " of " + v.name + " is below its lease-start " +
              IPv4Text(first),
          "set lease-end at or above lease-start (nexcfg dhcp set " + v.name + " lease-end ADDRESS)");
  }
  auto seconds = [&](const char *field, uint64_t fallback) {
    const std::string *text = v.Field(field);
    return text ? Decimal(*text, kMaxSeconds) : fallback;
  };
  auto lease = seconds("DHCP_PARAM_SUB_DEFAULT_LEASE_TIME", kDefaultLeaseTime);
  auto longest = seconds("DHCP_PARAM_SUB_MAX_LEASE_TIME", kDefaultMaxLeaseTime);
  if (lease && longest && *lease > *longest)
    Add(v, true, "lease-times",
        "dhcp default-lease-time " + std::to_string(*lease) + " of " + v.name +
            " is above its max-lease-time " + std::to_string(*longest),
        "nexcfg dhcp set " + v.name + " default-lease-time " + std::to_string(*longest) +
            ", or raise max-lease-time");
}

void Checker::Leases(const VnetConfig &v, const std::optional<Subnet> &s) {
  std::map<std::string, std::string> macOfIp;
  for (const Lease &l : v.leases) {
    std::string why = HostAddressProblem(l.ip, s);
    if (!why.empty())
      Add(v, true, "lease-address", "the static lease " + l.ip + " of " + l.mac + " on " + v.name + " " + why,
          "nexcfg dhcp lease add " + v.name + " " + l.mac + " " +
              (s ? "<an address from " + s->HostRange() + ">" : "ADDRESS"));
    auto [it, fresh] = macOfIp.emplace(l.ip, l.mac);
    if (!fresh)
      Add(v, true, "lease-duplicate-ip",
          "the static lease " + l.ip + " on " + v.name + " is given to both " + it->second + " and " + l.mac,
          "give one of them another address (nexcfg dhcp lease add " + v.name + " MAC ADDRESS)");
    std::map<std::string, std::string>::iterator first;
    if (!FirstLeaseOf(l, v, &first))
      Add(v, true, "lease-duplicate-mac",
          l.mac + " has static leases on both " + first->second + " and " + v.name,
          "keep the one of the vnet the machine is on (nexcfg dhcp lease rm VNET " + l.mac + ")");
  }
}

bool Checker::FirstLeaseOf(const Lease &l, const VnetConfig &v,
                           std::map<std::string, std::string>::iterator *first) {
  if (scope_.macs && !scope_.macs->contains(l.mac)) return true;
  auto [it, fresh] = leaseVnetOfMac_.emplace(l.mac, v.name);
  *first = it;
  return fresh;
}

void Checker::Forwards(const VnetConfig &v, const std::optional<Subnet> &s) {
  for (const Forward &f : v.forwards) {
    std::string why = HostAddressProblem(f.vmIp, s);
    std::string port = std::to_string(f.hostPort);
    if (!why.empty())
      Add(v, true, "forward-address",
          std::string(ProtocolName(f.tcp)) + " port forward " + port + " of " + v.name + " goes to " +
              f.vmIp + ", which " + why,
          "nexcfg nat forward add " + v.name + " " + ProtocolName(f.tcp) + " " + port + " " +
              (s ? "<an address from " + s->HostRange() + ">" : "ADDRESS") + " " + std::to_string(f.vmPort));
  }
  if (!v.forwards.empty() && !v.Flag(kNatField))
    Add(v, true, "forward-without-nat",
        v.name + " has " + std::to_string(v.forwards.size()) + " port forward(s) but NAT is off",
        "nexcfg nat on " + v.name + " (or nexcfg nat off " + v.name + " --cleanup removes them)");
}

}  // namespace

std::vector<Problem> ConfigProblems(const Config &config) { return Checker(config, {}).Run(); }

std::vector<Problem> ChangeProblems(const Config &before, const Config &after,
                                    std::vector<Problem> *beforeProblems) {
  // Only the changed vnets, those whose subnet overlaps a changed vnet's
  // (before or after), and those sharing a MAC with a changed vnet's
  // leases can have problems that differ; the others' are the same on
  // both sides. Duplicate MACs are looked at only for the changed vnets'.
  if (before.vnets.size() != after.vnets.size() || before.routes != after.routes) {
    *beforeProblems = ConfigProblems(before);
    return ConfigProblems(after);
  }
  const size_t count = before.vnets.size();
  std::vector<bool> scope(count, false);
  std::vector<Subnet> subnets;
  std::set<std::string> macs;
  for (size_t n = 0; n < count; ++n) {
    const VnetConfig &b = before.vnets[n], &a = after.vnets[n];
    if (b == a) continue;
    scope[n] = true;
    if (auto s = b.ValidSubnet(), t = a.ValidSubnet(); s != t) {
      if (s) subnets.push_back(*s);
      if (t) subnets.push_back(*t);
    }
    // The leases on one side only. (No ranges here: the fuzzing build's
    // clang cannot compile libstdc++'s.)
    for (const auto &[from, to] : {std::pair{&b.leases, &a.leases}, std::pair{&a.leases, &b.leases}})
      for (const Lease &l : *from)
        if (std::find(to->begin(), to->end(), l) == to->end()) macs.insert(l.mac);
  }
  for (size_t n = 0; n < count && !(subnets.empty() && macs.empty()); ++n) {
    const VnetConfig &v = before.vnets[n];  // unchanged unless in scope already
    if (scope[n]) continue;
    auto s = v.ValidSubnet();
    for (const Subnet &t : subnets) scope[n] = scope[n] || (s && s->Overlaps(t));
    for (const Lease &l : v.leases) scope[n] = scope[n] || macs.contains(l.mac);
  }
  // A vnet read only in part is the same on both sides; those the check
  // needs are read in full now, and the scope found again.
  auto needed = [&](size_t n) { return before.vnets[n].partial && (scope[n] || !macs.empty()); };
  bool complete = true;
  for (size_t n = 0; n < count; ++n) complete = complete && !needed(n);
  if (!complete) {
    Config b = before, a = after;
    for (size_t n = 0; n < count; ++n) {
      if (!needed(n)) continue;
      ReadRecords(&b.vnets[n]);
      for (const auto &[field, value] : b.vnets[n].fields) a.vnets[n].fields.emplace(field, value);
      a.vnets[n].leases = b.vnets[n].leases;
      a.vnets[n].forwards = b.vnets[n].forwards;
      a.vnets[n].partial = false;
    }
    return ChangeProblems(b, a, beforeProblems);
  }
  *beforeProblems = Checker(before, {&scope, &macs}).Run();
  return Checker(after, {&scope, &macs}).Run();
}

}  // namespace nexcfg
