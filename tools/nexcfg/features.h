// features.h - a vnet's features as configured and as found running, read
// through the library's feature query, and its four daemons; shared by
// list, show, service, find, check and db delete.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli.h"

namespace nexcfg {

struct FeatureFlags {
  bool dhcp = false;
  bool nat = false;
  bool bridge = false;
  bool adapter = false;  // configured: host-only adapter; running: adapter up
};

struct VnetFeatures {
  bool subnet = false;
  FeatureFlags config;
  FeatureFlags runtime;
};

// The features of a vnet; throws a Failure when the library cannot tell.
VnetFeatures QueryFeatures(const std::string &vnet);
// The same without throwing: false when the query failed (what it filled
// before failing is kept).
bool TryQueryFeatures(const std::string &vnet, VnetFeatures *out);
bool Configured(const VnetFeatures &f);
// The vnets that have a subnet or any configured feature, in order.
std::vector<std::string> ConfiguredVnets();
// {"has_subnet": .., "config": {..}, "runtime": {..}}
Json FeaturesJson(const VnetFeatures &f);
// A table cell: "-" not configured, "on" configured, "on, running" / "on, up".
std::string FeatureCell(bool configured, bool running, const char *runningWord);

// A vnet's daemon, and the name the library gives its pid file:
// RUNDIR/<program>-<vnet number or name>.pid, where the database answer
// programKey may rename the program.
struct Daemon {
  const char *name;  // the tool's name: "netifup", "bridge", "dhcp", "nat"
  uint32_t type;     // NXC_SERVICE_TYPE_...
  const char *programKey;
  const char *program;
  bool pidByName;  // "zynet<n>" rather than "<n>" in the pid file's name
};
std::span<const Daemon> Daemons();
// Whether the vnet's configuration asks for the daemon; the bridge only
// when host adapters are bridged to the vnet.
bool DaemonConfigured(const Daemon &d, const VnetFeatures &f, bool adaptersBridged);
// The status code of the library (NXC_SERVICE_RUNNING, ...).
uint32_t DaemonStatus(const std::string &vnet, const Daemon &d);
std::string DaemonPidFile(const std::string &vnet, const Daemon &d);

}  // namespace nexcfg
