// cmd_bridge.cpp - host-only adapters (the switch, state, up and down) and
// bridges (host adapters, the default bridge, moving an adapter).
#include <cstdio>
#include <cstring>
#include <memory>

#include "adapter.h"
#include "cli.h"
#include "config.h"
#include "params.h"
#include "sections.h"

namespace nexcfg {
namespace {

constexpr uint32_t kNoVnet = 0xffffffffu;

std::string VnetText(uint32_t vnet) { return vnet < NXC_NUM_VNETS ? "zynet" + std::to_string(vnet) : ""; }

NXC_NetID NetId(uint32_t vnet) {
  NXC_NetID id;
  memset(&id, 0, sizeof id);
  id.version = NXC_NETID_VERSION;
  id.type = NXC_NETID_TYPE_VNET;
  id.vnet = vnet;
  return id;
}

// A vnet or "none" (no vnet).
uint32_t VnetOrNone(const std::string &word) {
  if (word == "none") return kNoVnet;
  return VnetNumber(VnetName(word));
}

struct ListDeleter {
  void operator()(NXC_HostAdapterList *list) const { NXC_FreeHostAdapterList(list); }
};
using AdapterList = std::unique_ptr<NXC_HostAdapterList, ListDeleter>;

AdapterList HostAdapters() {
  NXC_HostAdapterList *list = nullptr;
  Call("list the host adapters", [&] { return NXC_GetHostAdapterList(1, &list); });
  return AdapterList(list);
}

// The interface name of an entry: the copy bridge mappings are kept by.
const char *AdapterName(const NXC_HostAdapter &a) { return a.mappingName[0] ? a.mappingName : a.name; }

int AdapterOn(const Invocation &in) {
  return FeatureSwitch("host-only adapter", kAdapterField, NXC_SetVnetUseAdapter, in, true);
}
int AdapterOff(const Invocation &in) {
  return FeatureSwitch("host-only adapter", kAdapterField, NXC_SetVnetUseAdapter, in, false);
}

int AdapterStatus(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  bool installed = false, enabled = false;
  Call("read the host-only adapter state of " + vnet,
       [&] { return NXC_GetVnetAdapterStatus(vnet.c_str(), &installed, &enabled); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("configured", installed);
  out.Set("up", enabled);
  PrintRecord(out);
  return kExitOk;
}

int AdapterUpDown(const Invocation &in, bool up) {
  std::string vnet = VnetName(in.Arg(0));
  if (up)
    BringAdapterUp(vnet);
  else
    BringAdapterDown(vnet);
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("up", up);
  if (Opts().json) PrintJson(out);
  Say("host-only adapter of " + vnet + (up ? " up" : " down"));
  return kExitOk;
}
int AdapterUp(const Invocation &in) { return AdapterUpDown(in, true); }
int AdapterDown(const Invocation &in) { return AdapterUpDown(in, false); }

int AdapterUpdate(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  Call("apply the configuration to the host-only adapter of " + vnet,
       [&] { return NXC_UpdateAdapterFromConfig(vnet.c_str()); });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  Report(out, "applied the configuration to the host-only adapter of " + vnet);
  return kExitOk;
}

int BridgeList(const Invocation &) {
  AdapterList list = HostAdapters();
  Table table({"ADAPTER", "VNET", "LINK", "DRIVER"});
  Json rows = Json::Array();
  for (const NXC_HostAdapter *a = list->entries; a; a = a->next) {
    std::string vnet = VnetText(a->netId.vnet);
    bool running = a->flags == NXC_HOST_ADAPTER_RUNNING;
    table.Add({AdapterName(*a), vnet, running ? "running" : "not running", a->driver});
    Json row = Json::Object();
    row.Set("adapter", AdapterName(*a));
    row.Set("vnet", vnet.empty() ? Json() : Json(vnet));
    row.Set("running", running);
    row.Set("driver", a->driver[0] ? Json(a->driver) : Json());
    rows.Push(std::move(row));
  }
  if (Opts().json)
    PrintJson(rows);
  else if (table.empty())
    Say("the host has no Ethernet adapters to bridge");
  else
    table.Print();
  return kExitOk;
}

int BridgeDefault(const Invocation &) {
  std::string vnet = DefaultBridge();
  Json out = Json::Object();
  out.Set("vnet", Json::TextOrNull(vnet));
  Report(out, vnet.empty() ? "none" : vnet);
  return kExitOk;
}

int BridgeDefaultSet(const Invocation &in) {
  uint32_t vnet = VnetOrNone(in.Arg(0));
  if (vnet != 0 && vnet != kNoVnet)
    throw UsageError("only zynet0 or none can be the default bridge");
  NXC_NetID id = NetId(vnet);
  Call("make " + (vnet == kNoVnet ? std::string("no vnet") : VnetText(vnet)) + " the default bridge",
       [&] { return NXC_SetBridgeDefaultNetwork(&id); });
  Json out = Json::Object();
  out.Set("vnet", Json::TextOrNull(VnetText(vnet)));
  Report(out, "default bridge: " + (vnet == kNoVnet ? std::string("none") : VnetText(vnet)));
  return kExitOk;
}

int BridgeMove(const Invocation &in) {
  const std::string &name = in.Arg(0);
  AdapterList list = HostAdapters();
  const NXC_HostAdapter *adapter = nullptr;
  for (const NXC_HostAdapter *a = list->entries; a && !adapter; a = a->next)
    if (name == AdapterName(*a)) adapter = a;
  if (!adapter)
    throw Error(kCodeNotFound, "the host has no Ethernet adapter " + name + " to bridge", "nexcfg bridge list");
  std::unique_ptr<NXC_NetID> from, to;
  if (const std::string *word = in.Option("--from")) from = std::make_unique<NXC_NetID>(NetId(VnetOrNone(*word)));
  if (const std::string *word = in.Option("--to")) to = std::make_unique<NXC_NetID>(NetId(VnetOrNone(*word)));
  std::string where = to ? (to->vnet == kNoVnet ? std::string("no vnet") : VnetText(to->vnet)) : "the default bridge";
  Call("bridge " + name + " to " + where,
       [&] { return NXC_BridgeMoveAdapter(adapter, from.get(), to.get()); });
  // Read the adapter's vnet back from a fresh list.
  AdapterList after = HostAdapters();
  std::string now;
  for (const NXC_HostAdapter *a = after->entries; a; a = a->next)
    if (name == AdapterName(*a)) now = VnetText(a->netId.vnet);
  Json out = Json::Object();
  out.Set("adapter", name);
  out.Set("vnet", Json::TextOrNull(now));
  Report(out, name + " is bridged to " + (now.empty() ? std::string("no vnet") : now));
  return kExitOk;
}

const Command kCommands[] = {
    {"adapter on", "VNET", "--cleanup", "give a vnet a host-only adapter in the configuration",
     "A vnet without a subnet is given a free one first. `nexcfg adapter up` brings\n"
     "the adapter up on the host.\n",
     Needs::kReadWrite, AdapterOn},
    {"adapter off", "VNET", "--cleanup", "take a vnet's host-only adapter out of the configuration",
     "With --cleanup the adapter's derived settings are removed too.\n", Needs::kReadWrite, AdapterOff},
    {"adapter status", "VNET", "", "tell whether a vnet has a host-only adapter and whether it is up",
     "", Needs::kReadOnly, AdapterStatus},
    {"adapter up", "VNET", "", "bring a vnet's host-only adapter up (starts netifup)",
     "Creates the vnet's device node and starts its netifup daemon when it is not\n"
     "running.\n",
     Needs::kReadWrite, AdapterUp},
    {"adapter down", "VNET", "", "bring a vnet's host-only adapter down (stops netifup)", "",
     Needs::kReadWrite, AdapterDown},
    {"adapter update", "VNET", "", "apply the configured address to the host-only adapter",
     "An adapter that is up is taken down and up again; an adapter that is no longer\n"
     "configured is taken down and its netifup daemon stopped.\n",
     Needs::kReadWrite, AdapterUpdate},
    {"bridge list", "", "", "list the host's Ethernet adapters and the vnets they are bridged to",
     "An adapter without an explicit mapping belongs to the default bridge.\n", Needs::kReadOnly,
     BridgeList},
    {"bridge default", "", "", "show the default bridge vnet (zynet0 or none)",
     "The default bridge takes every host adapter without an explicit mapping.\n", Needs::kReadOnly,
     BridgeDefault},
    {"bridge default set", "zynet0|none", "", "set or clear the default bridge",
     "Adapters move with it and the bridge daemons concerned restart; every step is\n"
     "undone when one fails.\n",
     Needs::kReadWrite, BridgeDefaultSet},
    {"bridge move", "ADAPTER", "--to=VNET|none --from=VNET|none", "bridge a host adapter to another vnet",
     "Without --to the adapter goes to the default bridge. With --from the move is\n"
     "refused unless the adapter is bridged to that vnet now. Adapters already on the\n"
     "destination move to the default bridge; the bridge daemons concerned restart,\n"
     "and every step is undone when one fails.\n",
     Needs::kReadWrite, BridgeMove},
};

}  // namespace

Json BridgedAdapters(const std::string &vnet) {
  Json rows = Json::Array();
  NXC_HostAdapterList *raw = nullptr;
  if (!Ask([&] { return NXC_GetHostAdapterList(1, &raw); })) return rows;
  AdapterList list(raw);
  for (const NXC_HostAdapter *a = list->entries; a; a = a->next) {
    std::string on = VnetText(a->netId.vnet);
    if (!vnet.empty() && on != vnet) continue;
    Json row = Json::Object();
    row.Set("adapter", AdapterName(*a));
    row.Set("vnet", on.empty() ? Json() : Json(on));
    rows.Push(std::move(row));
  }
  return rows;
}

std::string DefaultBridge() {
  NXC_NetID id = NetId(kNoVnet);
  Call("read the default bridge", [&] { return NXC_GetBridgeDefaultNetwork(&id); });
  return VnetText(id.vnet);
}

void BringAdapterUp(const std::string &vnet) {
  Call("bring the host-only adapter of " + vnet + " up", [&] { return NXC_EnableNetworkAdapter(vnet.c_str()); });
}

void BringAdapterDown(const std::string &vnet) {
  Call("bring the host-only adapter of " + vnet + " down", [&] { return NXC_DisableNetworkAdapter(vnet.c_str()); });
  // The library leaves netifup running when the interface is gone already.
  Call("stop the netifup service of " + vnet,
       [&] { return NXC_StopService(vnet.c_str(), NXC_SERVICE_TYPE_NETIFUP); });
}

std::span<const Command> BridgeCommands() { return kCommands; }

}  // namespace nexcfg
