// netifup.cpp - zynet-netifup, the daemon of a vnet's host-only adapter.
//
// The adapter is the vnet's bridge itself (vnet_bridge.h): the daemon
// creates it (or adopts one that exists) and applies the MTU. It leaves a
// bridge it made down: the library then gives the adapter its address and
// brings it up, and it takes an adapter that is up for one already
// configured. The device node on the command line names the vnet; the
// bridge needs no driver behind it.
#include <string.h>

#include "daemons/daemon.h"
#include "daemons/rtnl.h"
#include "daemons/vnet_bridge.h"

namespace {

constexpr char kUsage[] = "zynet-netifup -s FD [-m MTU] -d PIDFILE DEVICE IFNAME";

}  // namespace

int main(int argc, char **argv) {
  using namespace zynetd;
  std::string statusArg, mtuArg, pidFile;
  std::vector<std::string> rest;
  ParseCommandLine(argc, argv, {{"-s", &statusArg, true}, {"-m", &mtuArg, false}, {"-d", &pidFile, true}},
                   &rest, kUsage);
  if (rest.size() != 2 || rest[0][0] == '-' || rest[1][0] == '-') UsageExit(kUsage);
  long mtu = 0;
  if (!mtuArg.empty() && !ParseNumber(mtuArg, 68, 65535, &mtu)) UsageExit(kUsage);
  int statusFd = StatusDescriptor(statusArg, kUsage);
  const std::string &device = rest[0], &name = rest[1];
  int vnet = TrailingNumber(device);
  if (vnet < 0) vnet = TrailingNumber(name);

  EventLoop loop;
  Rtnl rtnl;
  if (!BeginDaemon(statusFd, &loop, &rtnl)) return 1;
  UndoList undo;
  VnetBridge bridge;
  if (!AcquireBridge(&rtnl, name, vnet >= 0 ? VnetAdapterMac(vnet) : "", &bridge, &undo)) return 1;
  if (mtu && static_cast<unsigned>(mtu) != bridge.link.mtu) {
    if (int rc = rtnl.SetMtu(bridge.link.index, static_cast<unsigned>(mtu))) {
      Log("cannot set the MTU of %s to %ld: %s", name.c_str(), mtu, strerror(-rc));
      return 1;
    }
    Log("set the MTU of %s to %ld", name.c_str(), mtu);
    unsigned old = bridge.link.mtu;
    int index = bridge.link.index;
    if (!bridge.shared) undo.Push([&rtnl, index, old] { (void)rtnl.SetMtu(index, old); });
  }
  return Serve(&loop, statusFd, pidFile, &undo);
}
