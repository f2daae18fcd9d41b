// bridge.cpp - zynet-bridge, which joins host Ethernet adapters to vnet N
// through the vnet's Linux bridge zynetN.
//
// With -iADAPTER switches it joins each adapter named. With -eADAPTER
// switches, or none (the default bridge, whose exclusion list may be
// empty), it joins the first physical Ethernet adapter that is up and not
// excluded, and serves an empty bridge when there is none. While an
// adapter is joined, its addresses and routes live on the bridge, and the
// bridge has its MAC address, so that the host keeps its connectivity and
// its identity on that link; SIGTERM moves them back.
// <net/if.h> first: the kernel headers then leave its definitions alone.
#include <net/if.h>

#include <errno.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>

#include "daemons/daemon.h"
#include "daemons/rtnl.h"
#include "daemons/vnet_bridge.h"

namespace {

using namespace zynetd;

constexpr char kUsage[] = "zynet-bridge -s FD -d PIDFILE -n N [-iADAPTER]... | [-eADAPTER]...";

[[nodiscard]] bool SysfsHas(const std::string &link, const char *entry) {
  struct stat st;
  return stat(("/sys/class/net/" + link + "/" + entry).c_str(), &st) == 0;
}

// A wired adapter of a bus device: not a veth, tap, bridge, bond or other
// software link, and not a wireless one (which cannot be a bridge port).
[[nodiscard]] bool IsPhysicalEthernet(const Link &link) {
  return link.type == ARPHRD_ETHER && link.kind.empty() && SysfsHas(link.name, "device") &&
         !SysfsHas(link.name, "wireless") && !SysfsHas(link.name, "phy80211");
}

// The adapters to join, or false (logged) when a named one is missing.
[[nodiscard]]
bool ChooseAdapters(Rtnl *rtnl, bool explicitList, const std::vector<std::string> &names, std::vector<Link> *out) {
  std::vector<Link> links;
  if (int rc = rtnl->Links(&links)) {
    Log("cannot list the host's interfaces: %s", strerror(-rc));
    return false;
  }
  for (const std::string &name : names) {
    bool found = false;
    for (const Link &l : links) {
      if (l.name != name) continue;
      found = true;
      if (explicitList) out->push_back(l);
    }
    if (explicitList && !found) {
      Log("host adapter %s does not exist", name.c_str());
      return false;
    }
  }
  if (explicitList) return true;
  for (const Link &l : links) {
    bool excluded = false;
    for (const std::string &name : names) excluded = excluded || l.name == name;
    if (excluded || l.master || !(l.flags & IFF_UP) || !IsPhysicalEthernet(l)) continue;
    out->push_back(l);
    return true;
  }
  Log("no physical Ethernet adapter is up and free to bridge; serving an empty bridge");
  return true;
}

// What joining an adapter changed, so that leaving undoes just that.
struct Joined {
  Link adapter;
  bool enslaved = false;
  std::vector<Address> moved;
  std::vector<Route> routes;
};

// Moves the adapter's addresses and routes back and releases it.
void Leave(Rtnl *rtnl, int bridge, const Joined &j) {
  for (const Route &r : j.routes) (void)rtnl->DeleteRoute(r, bridge);
  if (j.enslaved) {
    if (int rc = rtnl->SetMaster(j.adapter.index, 0))
      Log("cannot release %s from the bridge: %s", j.adapter.name.c_str(), strerror(-rc));
  }
  for (const Address &a : j.moved) {
    (void)rtnl->DeleteAddress(bridge, a);
    if (int rc = rtnl->AddAddress(j.adapter.index, a))
      Log("cannot give %s back its address %s: %s", j.adapter.name.c_str(), AddressText(a).c_str(), strerror(-rc));
  }
  for (const Route &r : j.routes)
    if (int rc = rtnl->AddRoute(r, j.adapter.index); rc && rc != -EEXIST)
      Log("cannot give %s back a route: %s", j.adapter.name.c_str(), strerror(-rc));
  if (j.enslaved) Log("released %s", j.adapter.name.c_str());
}

[[nodiscard]] bool Join(Rtnl *rtnl, const VnetBridge &bridge, const Link &adapter, UndoList *undo) {
  const char *name = adapter.name.c_str();
  if (adapter.master && adapter.master != bridge.link.index) {
    Log("%s is a port of another bridge", name);
    return false;
  }
  auto j = std::make_shared<Joined>();
  j->adapter = adapter;
  int b = bridge.link.index;
  undo->Push([rtnl, b, j] { Leave(rtnl, b, *j); });
  std::vector<Address> addresses;
  int rc = rtnl->Addresses(adapter.index, AF_UNSPEC, &addresses);
  if (rc == 0) rc = rtnl->Routes(adapter.index, &j->routes);
  if (rc != 0) {
    Log("cannot list the addresses and routes of %s: %s", name, strerror(-rc));
    return false;
  }
  if ((rc = rtnl->SetMaster(adapter.index, b)) != 0) {
    j->routes.clear();
    Log("cannot make %s a port of %s: %s", name, bridge.link.name.c_str(), strerror(-rc));
    return false;
  }
  j->enslaved = true;
  for (const Address &a : addresses) {
    if (a.family == AF_INET6 && a.scope == RT_SCOPE_LINK) continue;  // each link has its own
    if ((rc = rtnl->AddAddress(b, a)) != 0 && rc != -EEXIST) {
      Log("cannot move the address %s of %s to the bridge: %s", AddressText(a).c_str(), name, strerror(-rc));
      return false;
    }
    j->moved.push_back(a);
    (void)rtnl->DeleteAddress(adapter.index, a);
  }
  // Taking the addresses away took the routes through the adapter along.
  for (const Route &r : j->routes) {
    (void)rtnl->DeleteRoute(r, adapter.index);
    if ((rc = rtnl->AddRoute(r, b)) != 0 && rc != -EEXIST)
      Log("cannot move a route of %s to the bridge: %s, ignoring", name, strerror(-rc));
  }
  Log("joined %s to %s with %zu addresses and %zu routes", name, bridge.link.name.c_str(), j->moved.size(),
      j->routes.size());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  std::string statusArg, pidFile, vnetArg;
  std::vector<std::string> switches;
  ParseCommandLine(argc, argv, {{"-s", &statusArg, true}, {"-d", &pidFile, true}, {"-n", &vnetArg, true}},
                   &switches, kUsage);
  long vnet = 0;
  if (!ParseNumber(vnetArg, 0, 255, &vnet)) UsageExit(kUsage);
  std::vector<std::string> names;
  char kind = 0;
  for (const std::string &s : switches) {
    if (s.size() < 3 || s[0] != '-' || (s[1] != 'i' && s[1] != 'e') || (kind && s[1] != kind) ||
        s.size() - 2 >= IFNAMSIZ)
      UsageExit(kUsage);
    kind = s[1];
    names.push_back(s.substr(2));
  }
  int statusFd = StatusDescriptor(statusArg, kUsage);

  EventLoop loop;
  Rtnl rtnl;
  if (!BeginDaemon(statusFd, &loop, &rtnl)) return 1;
  std::vector<Link> adapters;
  if (!ChooseAdapters(&rtnl, kind == 'i', names, &adapters)) return 1;
  UndoList undo;
  VnetBridge bridge;
  std::string mac = adapters.empty() ? VnetAdapterMac(static_cast<int>(vnet)) : adapters[0].mac;
  if (!AcquireBridge(&rtnl, "zynet" + std::to_string(vnet), mac, &bridge, &undo)) return 1;
  if (bridge.shared && bridge.link.mac != mac) (void)rtnl.SetMac(bridge.link.index, mac);
  if (!EnsureUp(&rtnl, bridge, &undo)) return 1;
  for (const Link &adapter : adapters)
    if (!Join(&rtnl, bridge, adapter, &undo)) return 1;
  return Serve(&loop, statusFd, pidFile, &undo);
}
