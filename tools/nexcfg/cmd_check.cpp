// cmd_check.cpp - `nexcfg check`: every problem of the configuration, and
// of the host's state of it: daemons, pid files, device nodes, the
// daemons' configuration files and NAT66 prefixes a rewrite would drop.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "check.h"
#include "dbfile.h"
#include "features.h"
#include "sections.h"

namespace nexcfg {
namespace {

void CheckDaemons(const VnetConfig &v, const VnetFeatures &f, bool adaptersBridged, Problems *out) {
  bool deviceInUse = false;
  for (const Daemon &d : Daemons()) {
    uint32_t status = DaemonStatus(v.name, d);
    std::string pidFile = DaemonPidFile(v.name, d),
                what = "the " + std::string(d.name) + " service of " + v.name;
    std::string service = v.name + " " + d.name;
    bool configured = DaemonConfigured(d, f, adaptersBridged);
    if (status == NXC_SERVICE_RUNNING &&
        (d.type == NXC_SERVICE_TYPE_NETIFUP || d.type == NXC_SERVICE_TYPE_NAT))
      deviceInUse = true;
    if (status == NXC_SERVICE_STATUS_UNKNOWN)
      out->push_back(
          {v.name, true, "service-status",
           "the state of " + what + " cannot be told: its pid file " + pidFile + " holds no process number",
           "rm " + pidFile});
    else if (status == NXC_SERVICE_RUNNING && !configured)
      out->push_back({v.name, false, "service-not-configured", what + " runs but is not configured",
                      "nexcfg service stop " + service});
    else if (status == NXC_SERVICE_NOT_RUNNING && configured)
      out->push_back({v.name, false, "service-not-running", what + " is configured but not running",
                      "nexcfg service start " + service});
    if (status == NXC_SERVICE_NOT_RUNNING && access(pidFile.c_str(), F_OK) == 0)
      out->push_back({v.name, false, "pid-file-stale",
                      "the pid file " + pidFile + " names a process that is gone", "rm " + pidFile});
  }
  std::string device = "/dev/" + v.name;
  struct stat st;
  bool exists = lstat(device.c_str(), &st) == 0;
  if (exists && !S_ISCHR(st.st_mode))
    out->push_back({v.name, true, "device-wrong", device + " is not a character device",
                    "rm " + device + ", then nexcfg device create " + v.name});
  else if (!exists && deviceInUse)
    out->push_back({v.name, true, "device-missing",
                    "the device node " + device + " is missing while daemons of " + v.name + " use it",
                    "nexcfg device create " + v.name});
}

void CheckPrefixes(const VnetConfig &v, const DbFile &db, Problems *out) {
  if (PrefixesOf(db, static_cast<int>(VnetNumber(v.name))).empty()) return;
  Json prefixes = NatPrefixes(v.name);
  for (const Json &p : prefixes.items())
    out->push_back({v.name, false, "nat66-prefix-journal-only",
                    "the NAT66 prefix " + p.AsString() + " of " + v.name +
                        " lives only in the database's journal: the next compact rewrite drops it",
                    "keep it as the nat66-prefix parameter instead (nexcfg nat set " + v.name +
                        " nat66-prefix " + p.AsString() + ")"});
}

void PrintProblems(const Problems &problems) {
  if (problems.empty()) {
    printf("no problems found\n");
    return;
  }
  for (const Problem &p : problems) {
    printf("%-8s %-8s %s\n", p.vnet.empty() ? "-" : p.vnet.c_str(), p.error ? "error" : "warning",
           p.message.c_str());
    if (!p.fix.empty()) printf("%-17s fix: %s\n", "", p.fix.c_str());
  }
}

int Check(const Invocation &in) {
  std::vector<std::string> only;
  for (const auto &word : in.args()) only.push_back(VnetName(word));
  Config config = ReadConfig();
  Problems all = ConfigProblems(config);
  std::map<std::string, int> bridged;
  Json adapters = BridgedAdapters("");
  for (const Json &row : adapters.items())
    if (!row.Find("vnet")->IsNull()) ++bridged[row.Find("vnet")->AsString()];
  DbFile db = ReadDbFile(kDatabasePath);
  for (const VnetConfig &v : config.vnets) {
    VnetFeatures f;
    (void)TryQueryFeatures(v.name, &f);
    CheckDaemons(v, f, bridged[v.name] > 0, &all);
    CheckDhcpFile(v, &all);
    CheckNatFile(v, &all);
    CheckPrefixes(v, db, &all);
  }
  Problems shown;
  for (const Problem &p : all)
    if (only.empty() || std::find(only.begin(), only.end(), p.vnet) != only.end()) shown.push_back(p);
  std::stable_sort(shown.begin(), shown.end(), [](const Problem &a, const Problem &b) {
    return a.vnet.size() != b.vnet.size() ? a.vnet.size() < b.vnet.size() : a.vnet < b.vnet;
  });
  if (Opts().json) {
    Json list = Json::Array();
    for (const Problem &p : shown) list.Push(ProblemJson(p));
    PrintJson(list);
  } else {
    PrintProblems(shown);
  }
  return shown.empty() ? kExitOk : kExitFailed;
}

const Command kCommands[] = {
    {"check", "[VNET...]", "", "report every problem of the configuration and of the host's state of it",
     "What the tool refuses when values are set (addresses outside their subnet,\n"
     "overlapping subnets, ranges, lease times, MTU, prefixes, forwards without NAT),\n"
     "what the real DHCP server refuses in dhcpd.conf (dhcpd -t, when it is\n"
     "installed), dhcpd.conf and nat.conf missing, older than the database or edited\n"
     "by hand, daemons configured but not running or running but not configured,\n"
     "stale pid files, missing device nodes, and NAT66 prefixes a compact rewrite\n"
     "would drop. Each problem comes with its fix. Exit status 0 when there is none,\n"
     "1 otherwise.\n",
     Needs::kReadOnly, Check},
};

}  // namespace

std::span<const Command> CheckCommands() { return kCommands; }

}  // namespace nexcfg
