#include "daemons/nat_rules.h"

#include <arpa/inet.h>
#include <nftables/libnftables.h>
#include <stdlib.h>
#include <string.h>

#include <sstream>

#include "base/unique_fd.h"
#include "daemons/daemon.h"
#include "daemons/rtnl.h"
#include "nexcfg_internal.h"

namespace zynetd {
namespace {

constexpr char kTablePrefix[] = "zynet-nat-";
constexpr char kIpv4Forwarding[] = "net/ipv4/ip_forward";
constexpr char kIpv6Forwarding[] = "net/ipv6/conf/all/forwarding";
// The table's comment; the forwarding the host had follows it.
constexpr char kCommentLead[] = "zynet NAT; host forwarding before: ";

// A value of nat.conf, or "" when it is missing.
std::string Item(const char *section, const char *key) {
  nxc::CPtr<char> value(NatCfgGetItem(section, key));
  return value ? value.get() : "";
}

std::string DottedText(uint32_t hostOrder) {
  struct in_addr a = {htonl(hostOrder)};
  char text[INET_ADDRSTRLEN] = "";
  (void)inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
}

// "<address>/<length>" of an IPv6 prefix.
[[nodiscard]] bool ValidIpv6Prefix(const std::string &text) {
  size_t slash = text.find('/');
  long length = 0;
  struct in6_addr a;
  return slash != std::string::npos && inet_pton(AF_INET6, text.substr(0, slash).c_str(), &a) == 1 &&
         ParseNumber(text.substr(slash + 1), 1, 128, &length);
}

// The forwards of one [incoming…] section; "<port> = <address>:<port>".
void ReadForwards(const char *section, bool tcp, std::vector<PortForward> *out) {
  NatCfgIterator *items = NatCfgListItemsInit(section);
  if (!items) return;
  char *rawValue = nullptr;
  while (char *rawKey = NatCfgListItems(items, &rawValue, nullptr)) {
    nxc::CPtr<char> key(rawKey), value(rawValue);
    std::string target = value ? value.get() : "";
    size_t colon = target.rfind(':');
    PortForward f;
    f.tcp = tcp;
    f.guestAddress = target.substr(0, colon == std::string::npos ? 0 : colon);
    long hostPort = 0, guestPort = 0;
    uint32_t unused = 0;
    if (colon == std::string::npos || !ParseNumber(key.get(), 1, 65535, &hostPort) ||
        !ParseNumber(target.substr(colon + 1), 1, 65535, &guestPort) || !ParseIpv4(f.guestAddress, &unused)) {
      Log("ignoring the [%s] entry \"%s = %s\": not <port> = <address>:<port>", section, key.get(), target.c_str());
      continue;
    }
    f.hostPort = static_cast<unsigned>(hostPort);
    f.guestPort = static_cast<unsigned>(guestPort);
    out->push_back(f);
  }
  NatCfgListItemsDestroy(items);
}

// The nftables commands that replace the table name in one transaction
// (the "add" makes the "delete" work when there is no table yet).
std::string TableCommands(const std::string &name, const std::string &comment, const NatConfig &c) {
  std::string subnet = DottedText(c.gateway & c.mask) + "/" + std::to_string(__builtin_popcount(c.mask));
  std::string bridge = "\"" + c.bridge + "\"";
  std::ostringstream dnat;
  for (const PortForward &f : c.forwards)
    dnat << "    fib daddr type local " << (f.tcp ? "tcp" : "udp") << " dport " << f.hostPort << " dnat ip to "
         << f.guestAddress << ":" << f.guestPort << "\n";
  std::ostringstream t;
  t << "add table inet " << name << "\n"
    << "delete table inet " << name << "\n"
    << "table inet " << name << " {\n"
    << "  comment \"" << kCommentLead << comment << "\"\n"
    << "  chain prerouting {\n"
    << "    type nat hook prerouting priority dstnat; policy accept;\n"
    << dnat.str() << "  }\n"
    // The host's own connections to a forwarded port; loopback ones cannot
    // leave the host and are left alone.
    << "  chain output {\n"
    << "    type nat hook output priority -100; policy accept;\n"
    << "    ip daddr 127.0.0.0/8 return\n"
    << dnat.str() << "  }\n"
    << "  chain postrouting {\n"
    << "    type nat hook postrouting priority srcnat; policy accept;\n"
    << "    ip saddr " << subnet << " oifname != " << bridge << " masquerade\n"
    // A guest reaching another guest through a forward must get the answer
    // back through the host, not straight from the other guest: it comes
    // from the gateway.
    << "    oifname " << bridge << " ip saddr " << subnet << " ct status dnat snat ip to " << DottedText(c.gateway)
    << "\n";
  if (c.nat6) t << "    ip6 saddr " << c.nat6Prefix << " oifname != " << bridge << " masquerade\n";
  t << "  }\n}\n";
  return t.str();
}

}  // namespace

[[nodiscard]] bool ReadNatConfig(const std::string &path, NatConfig *out) {
  static std::string configPath;
  configPath = path;
  globalConfig = configPath.c_str();
  NatConfig c;
  std::string ip = Item("host", "ip"), netmask = Item("host", "netmask"), device = Item("host", "device");
  c.vnet = TrailingNumber(device);
  if (!ParseIpv4(ip, &c.gateway) || !ParseIpv4(netmask, &c.mask) || c.vnet < 0 || c.vnet > 255) {
    Log("%s: [host] needs ip, netmask and device (/dev/zynet<n>); it has \"%s\", \"%s\" and \"%s\"", path.c_str(),
        ip.c_str(), netmask.c_str(), device.c_str());
    return false;
  }
  c.bridge = "zynet" + std::to_string(c.vnet);
  c.nat6 = NatCfgGetItemLong("host", "natIp6Enable", 0) != 0;
  c.nat6Prefix = Item("host", "natIp6Prefix");
  if (c.nat6 && !ValidIpv6Prefix(c.nat6Prefix)) {
    Log("%s: natIp6Prefix \"%s\" is not an IPv6 prefix", path.c_str(), c.nat6Prefix.c_str());
    return false;
  }
  ReadForwards("incomingtcp", /*tcp=*/true, &c.forwards);
  ReadForwards("incomingudp", /*tcp=*/false, &c.forwards);
  *out = std::move(c);
  return true;
}

NatTable::~NatTable() {
  if (ctx_) nft_ctx_free(ctx_);
}

bool NatTable::Run(const std::string &commands, std::string *output) {
  if (!ctx_) {
    ctx_ = nft_ctx_new(NFT_CTX_DEFAULT);
    if (!ctx_ || nft_ctx_buffer_output(ctx_) != 0 || nft_ctx_buffer_error(ctx_) != 0) {
      Log("cannot set up libnftables");
      return false;
    }
  }
  if (nft_run_cmd_from_buffer(ctx_, commands.c_str()) != 0) {
    Log("nftables refused the rules: %s", nft_ctx_get_error_buffer(ctx_));
    return false;
  }
  if (output) *output = nft_ctx_get_output_buffer(ctx_);
  return true;
}

// Finds what the host's forwarding was before the first zynet NAT table:
// another daemon's table records it; without one, it is what it is now.
bool NatTable::RememberForwarding() {
  std::string tables;
  if (!Run("list tables inet", &tables)) return false;
  std::istringstream lines(tables);
  for (std::string word; lines >> word;) {
    if (word.compare(0, strlen(kTablePrefix), kTablePrefix) != 0 || word == name_) continue;
    std::string table;
    if (!Run("list table inet " + word, &table)) continue;
    size_t at = table.find(kCommentLead);
    if (at == std::string::npos) continue;
    at += strlen(kCommentLead);
    forwardingBefore_ = table.substr(at, table.find('"', at) - at);
    return true;
  }
  std::string ipv4, ipv6 = "0";
  if (!ReadSysctl(kIpv4Forwarding, &ipv4)) return false;
  (void)ReadSysctl(kIpv6Forwarding, &ipv6);  // absent without IPv6
  forwardingBefore_ = "ipv4 " + ipv4 + " ipv6 " + ipv6;
  return true;
}

bool NatTable::Apply(const NatConfig &config) {
  bool first = name_.empty();
  if (first) {
    name_ = kTablePrefix + std::to_string(config.vnet);
    if (!RememberForwarding()) return false;
  }
  if (!Run(TableCommands(name_, forwardingBefore_, config))) return false;
  Log("%s the rules of table inet %s: %zu forwards%s", first ? "installed" : "replaced", name_.c_str(),
      config.forwards.size(), config.nat6 ? ", NAT66" : "");
  bool ok = WriteSysctl(kIpv4Forwarding, "1");
  if (config.nat6) ok = WriteSysctl(kIpv6Forwarding, "1") && ok;
  return ok;
}

void NatTable::Remove() {
  if (name_.empty()) return;
  if (Run("delete table inet " + name_)) Log("removed table inet %s", name_.c_str());
  std::string tables;
  if (!Run("list tables inet", &tables) || tables.find(kTablePrefix) != std::string::npos) return;
  std::istringstream before(forwardingBefore_);
  std::string ipv4Word, ipv4, ipv6Word, ipv6;
  if (!(before >> ipv4Word >> ipv4 >> ipv6Word >> ipv6)) return;
  (void)WriteSysctl(kIpv4Forwarding, ipv4);
  std::string now;
  if (ReadSysctl(kIpv6Forwarding, &now) && now != ipv6) (void)WriteSysctl(kIpv6Forwarding, ipv6);
}

}  // namespace zynetd
