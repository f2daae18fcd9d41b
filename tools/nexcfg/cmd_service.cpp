// cmd_service.cpp - a vnet's daemons (start, stop, status) and its device
// node.
#include <algorithm>
#include <cstdio>

#include "adapter.h"
#include "cli.h"
#include "features.h"
#include "services.h"

namespace nexcfg {
namespace {

struct Service {
  const char *name;
  uint32_t type;
  bool FeatureFlags::*feature;  // the configured feature that asks for it
};
// In start order: the bridge, then the host-only adapter with its address,
// which the DHCP server serves from, and NAT last.
constexpr Service kServices[] = {
    {"bridge", NXC_SERVICE_TYPE_BRIDGE, &FeatureFlags::bridge},
    {"netifup", NXC_SERVICE_TYPE_NETIFUP, &FeatureFlags::adapter},
    {"dhcp", NXC_SERVICE_TYPE_DHCP, &FeatureFlags::dhcp},
    {"nat", NXC_SERVICE_TYPE_NAT, &FeatureFlags::nat},
};

const Service &ServiceNamed(const std::string &word) {
  for (const Service &s : kServices)
    if (word == s.name) return s;
  throw UsageError("unknown service \"" + word + "\": give bridge, netifup, dhcp or nat");
}

const char *StatusName(uint32_t status) {
  switch (status) {
    case NXC_SERVICE_RUNNING:
      return "running";
    case NXC_SERVICE_NOT_RUNNING:
      return "stopped";
    default:
      return "unknown";
  }
}

// The services named after the vnet, or, without names, the ones the
// vnet is configured for.
FeatureFlags ServicesOf(const Invocation &in, const std::string &vnet) {
  if (in.count() == 1) return QueryFeatures(vnet).config;
  FeatureFlags chosen;
  for (size_t i = 1; i < in.count(); ++i) chosen.*ServiceNamed(in.Arg(i)).feature = true;
  return chosen;
}

int StartOrStop(const Invocation &in, bool start) {
  std::string vnet = VnetName(in.Arg(0));
  Json done = Json::Array();
  RunServices(vnet, ServicesOf(in, vnet), start, &done);
  if (done.items().empty()) Say(vnet + " is configured for no service");
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Set("services", std::move(done));
    PrintJson(out);
  }
  return kExitOk;
}

int ServiceStart(const Invocation &in) { return StartOrStop(in, true); }
int ServiceStop(const Invocation &in) { return StartOrStop(in, false); }

int ServiceStatus(const Invocation &in) {
  std::vector<std::string> vnets;
  std::vector<const Service *> services;
  if (in.Has(0)) {
    vnets.push_back(VnetName(in.Arg(0)));
    for (size_t i = 1; i < in.count(); ++i) services.push_back(&ServiceNamed(in.Arg(i)));
  } else {
    vnets = ConfiguredVnets();
  }
  if (services.empty())
    for (const Service &s : kServices) services.push_back(&s);
  Table table({"VNET", "SERVICE", "STATUS"});
  Json rows = Json::Array();
  bool allKnown = true;
  for (const auto &vnet : vnets) {
    for (const Service *s : services) {
      uint32_t status = Ask([&] { return NXC_GetServiceStatus(vnet.c_str(), s->type); });
      allKnown = allKnown && (status == NXC_SERVICE_RUNNING || status == NXC_SERVICE_NOT_RUNNING);
      table.Add({vnet, s->name, StatusName(status)});
      Json row = Json::Object();
      row.Set("vnet", vnet);
      row.Set("service", s->name);
      row.Set("status", StatusName(status));
      rows.Push(std::move(row));
    }
  }
  if (Opts().json)
    PrintJson(rows);
  else
    table.Print();
  return allKnown ? kExitOk : kExitFailed;
}

int Device(const Invocation &in, bool create) {
  std::string vnet = VnetName(in.Arg(0));
  Call(std::string(create ? "create" : "delete") + " the device node of " + vnet, [&] {
    return create ? NXC_CreateZynetDevice(vnet.c_str()) : NXC_DeleteZynetDevice(vnet.c_str());
  });
  Json out = Json::Object();
  out.Set("vnet", vnet);
  out.Set("device", "/dev/" + vnet);
  out.Set("exists", create);
  Report(out, std::string(create ? "created /dev/" : "deleted /dev/") + vnet);
  return kExitOk;
}

int DeviceCreate(const Invocation &in) { return Device(in, true); }
int DeviceDelete(const Invocation &in) { return Device(in, false); }

const Command kCommands[] = {
    {"service start", "VNET [SERVICE...]", "", "start a vnet's daemons",
     "SERVICE is bridge, netifup (the host-only adapter, which also gets its address\n"
     "and comes up), dhcp or nat; without one, every service the vnet is configured\n"
     "for starts, in that order. DHCP and NAT need their configuration files\n"
     "(`nexcfg dhcp update`, `nexcfg nat update`). A daemon that runs already counts\n"
     "as started.\n",
     Needs::kReadWrite, ServiceStart},
    {"service stop", "VNET [SERVICE...]", "", "stop a vnet's daemons",
     "Without SERVICE, every service the vnet is configured for stops, NAT first;\n"
     "stopping netifup takes the host-only adapter down.\n",
     Needs::kReadWrite, ServiceStop},
    {"service status", "[VNET [SERVICE...]]", "", "show whether daemons run",
     "Without VNET, the four services of every configured vnet. Exit status 1 when\n"
     "some status could not be determined.\n",
     Needs::kReadOnly, ServiceStatus},
    {"device create", "VNET", "", "create the vnet's device node /dev/zynet<n>", "", Needs::kReadWrite,
     DeviceCreate},
    {"device delete", "VNET", "", "delete the vnet's device node", "", Needs::kReadWrite, DeviceDelete},
};

}  // namespace

std::span<const Command> ServiceCommands() { return kCommands; }

void RunServices(const std::string &vnet, const FeatureFlags &which, bool start, Json *done) {
  std::vector<const Service *> order;
  for (const Service &s : kServices)
    if (which.*s.feature) order.push_back(&s);
  if (!start) std::reverse(order.begin(), order.end());
  for (const Service *s : order) {
    bool adapter = s->type == NXC_SERVICE_TYPE_NETIFUP;
    std::string what = std::string(start ? "start" : "stop") + " the " + s->name + " service of " + vnet;
    if (start) {
      Call(what, [&] { return NXC_StartService(vnet.c_str(), s->type); });
      if (adapter) BringAdapterUp(vnet);  // the address the DHCP server needs
    } else if (adapter) {
      BringAdapterDown(vnet);
    } else {
      Call(what, [&] { return NXC_StopService(vnet.c_str(), s->type); });
    }
    done->Push(s->name);
    Say(std::string(start ? "started " : "stopped ") + s->name + " on " + vnet);
  }
}

}  // namespace nexcfg
