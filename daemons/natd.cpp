// natd.cpp - zynet-natd, a vnet's NAT service, from the vnet's nat.conf
// (read through the library's own reader):
//   - the gateway address (ip, netmask) on the vnet's bridge, which is
//     made when the vnet has no host-only adapter;
//   - IPv4 forwarding on, masquerade of the vnet's subnet and a DNAT for
//     each port forward, in an nftables table of its own (nat_rules.h);
//   - with natIp6Enable, NAT66 for natIp6Prefix: masquerade, IPv6
//     forwarding and the gateway's address in the prefix;
//   - a name server on the gateway address that relays to the host's
//     resolvers (dns_relay.h);
//   - the MAC address it answers with, written to the nat.mac file.
// SIGHUP reads nat.conf again and replaces the port forwards in one
// transaction; SIGTERM takes everything away again.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "daemons/daemon.h"
#include "daemons/dns_relay.h"
#include "daemons/nat_rules.h"
#include "daemons/rtnl.h"
#include "daemons/vnet_bridge.h"

namespace {

using namespace zynetd;

constexpr char kUsage[] = "zynet-natd -s FD -d PIDFILE -m NATMAC -c NATCONF";

// The gateway's IPv6 address: the prefix's second address, as the IPv4
// gateway is the subnet's second.
Address Gateway6Address(const NatConfig &c) {
  size_t slash = c.nat6Prefix.find('/');
  long length = 0;
  unsigned char bytes[16] = {};
  (void)inet_pton(AF_INET6, c.nat6Prefix.substr(0, slash).c_str(), bytes);
  (void)ParseNumber(c.nat6Prefix.substr(slash + 1), 1, 128, &length);
  for (int bit = static_cast<int>(length); bit < 128; ++bit) bytes[bit / 8] &= static_cast<unsigned char>(~(0x80 >> (bit % 8)));
  bytes[15] |= 2;
  Address a;
  a.family = AF_INET6;
  a.prefixLength = static_cast<uint8_t>(length);
  a.local = a.peer = std::string(reinterpret_cast<const char *>(bytes), sizeof bytes);
  return a;
}

[[nodiscard]] bool WriteMacFile(const std::string &path, const std::string &mac, UndoList *undo) {
  std::string text = MacText(mac) + "\n";
  nxc::UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd || write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    Log("cannot write %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  undo->Push([path] { (void)unlink(path.c_str()); });
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  std::string statusArg, pidFile, macFile, confFile;
  std::vector<std::string> rest;
  ParseCommandLine(argc, argv,
                   {{"-s", &statusArg, true}, {"-d", &pidFile, true}, {"-m", &macFile, true}, {"-c", &confFile, true}},
                   &rest, kUsage);
  if (!rest.empty()) UsageExit(kUsage);
  int statusFd = StatusDescriptor(statusArg, kUsage);

  EventLoop loop;
  Rtnl rtnl;
  NatTable table;
  NatConfig config;
  if (!BeginDaemon(statusFd, &loop, &rtnl) || !ReadNatConfig(confFile, &config)) return 1;
  UndoList undo;
  VnetBridge bridge;
  if (!AcquireBridge(&rtnl, config.bridge, VnetAdapterMac(config.vnet), &bridge, &undo) ||
      !EnsureUp(&rtnl, bridge, &undo) || !EnsureAddress(&rtnl, bridge.link, Ipv4Address(config.gateway, config.mask), &undo) ||
      (config.nat6 && !EnsureAddress(&rtnl, bridge.link, Gateway6Address(config), &undo)))
    return 1;
  undo.Push([&table] { table.Remove(); });
  if (!table.Apply(config)) return 1;
  DnsRelay dns(&loop);
  if (!dns.Start(config.gateway) || !WriteMacFile(macFile, bridge.link.mac, &undo)) return 1;
  loop.OnTick([&dns] { dns.Expire(); });
  loop.OnSignal(SIGHUP, [&] {
    Log("reading %s again", confFile.c_str());
    dns.ReadResolvers();
    NatConfig fresh;
    if (!ReadNatConfig(confFile, &fresh)) return;  // the rules in force stay
    if (fresh.bridge != config.bridge || fresh.gateway != config.gateway || fresh.mask != config.mask ||
        fresh.nat6 != config.nat6 || fresh.nat6Prefix != config.nat6Prefix)
      Log("the gateway and NAT66 settings change only with a restart; replacing the port forwards");
    NatConfig next = config;
    next.forwards = fresh.forwards;
    if (table.Apply(next)) config = next;
  });
  return Serve(&loop, statusFd, pidFile, &undo);
}
