// features.h - a vnet's features as configured and as found running, read
// through the library's feature query; shared by list, show, service and
// find.
#pragma once

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

}  // namespace nexcfg
