// vnet_bridge.h - the Linux bridge zynetN that is a vnet's hub on the
// host, shared by the vnet's daemons.
//
// Guests attach by making their tap or veth a port of it; the host-only
// adapter is the bridge itself; the NAT gateway and a bridged host adapter
// live on it too. Whichever daemon of the vnet comes first creates it; the
// others adopt it. A bridge the daemons created carries the alias
// "zynet daemons: <pid> <pid> …" naming the daemons using it, so that the
// last one to leave, whichever it is, deletes it. A bridge made by someone
// else (no such alias) is adopted and never deleted.
#pragma once

#include <string>

#include "daemons/daemon.h"
#include "daemons/rtnl.h"

namespace zynetd {

// Detaches (step 2 of the contract in daemon.h), sets up the loop and
// opens routing netlink: what every daemon does first. Logs and returns
// false on failure.
[[nodiscard]] bool BeginDaemon(int statusFd, EventLoop *loop, Rtnl *rtnl);

// The MAC address the library gives vnet n's host adapter (02:1C:7E,
// then 0xC0 | bits 16-21 of n, bits 8-15, bits 0-7), raw.
std::string VnetAdapterMac(int vnet);

struct VnetBridge {
  Link link;
  // Made by the daemons and shared among them: its state (up, MTU) is the
  // vnet's, left as it is when one daemon leaves. A bridge made by someone
  // else gets back what a daemon changed.
  bool shared = false;
};

// Creates the bridge name (with mac when it is not empty) or adopts an
// existing one, and records this daemon as its user; pushes the release:
// the bridge is deleted when the daemons made it and no daemon of the vnet
// uses it any more. Logs and returns false on failure.
[[nodiscard]]
bool AcquireBridge(Rtnl *rtnl, const std::string &name, const std::string &mac, VnetBridge *bridge,
                   UndoList *undo);

// Brings the bridge up when it is down. Logs and returns false on failure.
[[nodiscard]] bool EnsureUp(Rtnl *rtnl, const VnetBridge &bridge, UndoList *undo);

// Gives the bridge address unless it has it already, pushing its removal
// (an address that was there stays). Logs and returns false on failure.
[[nodiscard]]
bool EnsureAddress(Rtnl *rtnl, const Link &bridge, const Address &address, UndoList *undo);

}  // namespace zynetd
