#include "daemons/vnet_bridge.h"

#include <errno.h>
#include <net/if.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <sstream>
#include <vector>

namespace zynetd {
namespace {

constexpr char kUsersTag[] = "zynet daemons:";

// The pids of the alias, or false when the alias does not mark a bridge
// the daemons made.
[[nodiscard]] bool ParseUsers(const std::string &alias, std::vector<pid_t> *users) {
  if (alias.compare(0, strlen(kUsersTag), kUsersTag) != 0) return false;
  std::istringstream in(alias.substr(strlen(kUsersTag)));
  for (long pid; in >> pid;) users->push_back(static_cast<pid_t>(pid));
  return true;
}

std::string UsersAlias(const std::vector<pid_t> &users) {
  std::string alias = kUsersTag;
  for (pid_t pid : users) alias += " " + std::to_string(pid);
  return alias;
}

// Drops this daemon from the bridge's users, and daemons that died without
// doing so; deletes the bridge when none is left.
void ReleaseBridge(Rtnl *rtnl, const std::string &name) {
  Link bridge;
  if (int rc = rtnl->FindLink(name, &bridge)) {
    Log("bridge %s is gone already (%s)", name.c_str(), strerror(-rc));
    return;
  }
  std::vector<pid_t> users, left;
  if (!ParseUsers(bridge.alias, &users)) return;
  for (pid_t pid : users)
    if (pid != getpid() && (kill(pid, 0) == 0 || errno == EPERM)) left.push_back(pid);
  if (!left.empty()) {
    if (int rc = rtnl->SetAlias(bridge.index, UsersAlias(left)))
      Log("cannot update the users of bridge %s: %s", name.c_str(), strerror(-rc));
    return;
  }
  if (int rc = rtnl->DeleteLink(bridge.index)) {
    Log("cannot delete bridge %s: %s", name.c_str(), strerror(-rc));
    return;
  }
  Log("deleted bridge %s", name.c_str());
}

}  // namespace

[[nodiscard]] bool BeginDaemon(int statusFd, EventLoop *loop, Rtnl *rtnl) {
  if (!Detach(statusFd) || !loop->Init()) return false;
  if (int rc = rtnl->Open()) {
    Log("cannot open a routing netlink socket: %s", strerror(-rc));
    return false;
  }
  return true;
}

std::string VnetAdapterMac(int vnet) {
  const unsigned char mac[6] = {0x02, 0x1C, 0x7E, static_cast<unsigned char>(0xC0 | ((vnet >> 16) & 0x3F)),
                                static_cast<unsigned char>((vnet >> 8) & 0xFF),
                                static_cast<unsigned char>(vnet & 0xFF)};
  return std::string(reinterpret_cast<const char *>(mac), sizeof mac);
}

[[nodiscard]]
bool AcquireBridge(Rtnl *rtnl, const std::string &name, const std::string &mac, VnetBridge *out,
                   UndoList *undo) {
  if (name.empty() || name.size() >= IFNAMSIZ) {
    Log("invalid interface name \"%s\"", name.c_str());
    return false;
  }
  Link bridge;
  int rc = rtnl->FindLink(name, &bridge);
  bool created = false;
  if (rc == -ENODEV) {
    if ((rc = rtnl->CreateBridge(name, mac)) != 0 || (rc = rtnl->FindLink(name, &bridge)) != 0) {
      Log("cannot create bridge %s: %s", name.c_str(), strerror(-rc));
      return false;
    }
    created = true;
  } else if (rc != 0) {
    Log("cannot list the host's interfaces: %s", strerror(-rc));
    return false;
  }
  if (bridge.kind != "bridge") {
    Log("%s exists and is not a bridge", name.c_str());
    return false;
  }
  std::vector<pid_t> users;
  if (!created && !ParseUsers(bridge.alias, &users)) {
    Log("adopted bridge %s, which stays when the daemon ends", name.c_str());
    *out = {bridge, /*shared=*/false};
    return true;
  }
  users.push_back(getpid());
  undo->Push([rtnl, name] { ReleaseBridge(rtnl, name); });
  if ((rc = rtnl->SetAlias(bridge.index, UsersAlias(users))) != 0) {
    Log("cannot record the users of bridge %s: %s", name.c_str(), strerror(-rc));
    return false;
  }
  Log("%s bridge %s", created ? "created" : "joined", name.c_str());
  *out = {bridge, /*shared=*/true};
  return true;
}

[[nodiscard]] bool EnsureUp(Rtnl *rtnl, const VnetBridge &bridge, UndoList *undo) {
  if (bridge.link.flags & IFF_UP) return true;
  if (int rc = rtnl->SetUp(bridge.link.index, true)) {
    Log("cannot bring %s up: %s", bridge.link.name.c_str(), strerror(-rc));
    return false;
  }
  int index = bridge.link.index;
  if (!bridge.shared) undo->Push([rtnl, index] { (void)rtnl->SetUp(index, false); });
  return true;
}

[[nodiscard]]
bool EnsureAddress(Rtnl *rtnl, const Link &bridge, const Address &address, UndoList *undo) {
  std::vector<Address> present;
  if (int rc = rtnl->Addresses(bridge.index, address.family, &present)) {
    Log("cannot list the addresses of %s: %s", bridge.name.c_str(), strerror(-rc));
    return false;
  }
  for (const Address &a : present)
    if (a.local == address.local && a.prefixLength == address.prefixLength) return true;
  // Taking away a primary address takes its secondaries along unless they
  // are promoted; other daemons' addresses must outlive ours.
  if (address.family == AF_INET) (void)WriteSysctl("net/ipv4/conf/" + bridge.name + "/promote_secondaries", "1");
  if (int rc = rtnl->AddAddress(bridge.index, address)) {
    Log("cannot give %s the address %s: %s", bridge.name.c_str(), AddressText(address).c_str(), strerror(-rc));
    return false;
  }
  Log("gave %s the address %s", bridge.name.c_str(), AddressText(address).c_str());
  int index = bridge.index;
  undo->Push([rtnl, index, address, name = bridge.name] {
    if (int rc = rtnl->DeleteAddress(index, address))
      Log("cannot take the address %s from %s: %s", AddressText(address).c_str(), name.c_str(), strerror(-rc));
  });
  return true;
}

}  // namespace zynetd
