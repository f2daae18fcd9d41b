// feature_query_api.cpp - the public calls that describe vnets by their
// features: as configured in the database (config-time) and as found on
// the running host (runtime). Both only read and take no lock.
#include <stddef.h>
#include <string.h>

#include "api/api_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

// The record is part of the binary interface.
static_assert(offsetof(NXC_VnetFeatures, version) == 0);
static_assert(offsetof(NXC_VnetFeatures, netId) == 4);
static_assert(offsetof(NXC_VnetFeatures, subnet) == 32);
static_assert(offsetof(NXC_VnetFeatures, configFeatures) == 33);
static_assert(offsetof(NXC_VnetFeatures, runtimeFeatures) == 65);
static_assert(sizeof(NXC_VnetFeatures::configFeatures) == 32);
static_assert(sizeof(NXC_VnetFeatures::runtimeFeatures) == 32);

namespace {


// A vnet's features, each as a search compares it: present or absent.
struct ConfigFeatures {
  uint8_t subnet, bridge, dhcp, nat, adapter;
};
struct RuntimeFeatures {
  uint8_t bridge, dhcp, nat, adapter;
};

uint8_t Tri(bool present) { return present ? NXC_FEATURE_PRESENT : NXC_FEATURE_ABSENT; }
uint8_t Flag(uint8_t tri) { return tri == NXC_FEATURE_PRESENT ? 1 : 0; }

// The checks both calls make on the record, after the null test.
[[nodiscard]] bool RecordUsable(const char *fn, const NXC_VnetFeatures *f) {
  if (f->version != NXC_VNET_FEATURES_VERSION) {
    NXCLog(LOG_ERR, fn, "Unsupported feature struct version: %u", f->version);
    return false;
  }
  if (f->netId.type != NXC_NETID_TYPE_VNET) {
    NXCLog(LOG_ERR, fn, "Query unsupported for non-vnets");
    return false;
  }
  return true;
}

// The options in the order they are asked: subnet, bridge, DHCP, NAT,
// host-only adapter.
ConfigFeatures QueryConfigFeatures(uint32_t vnet) {
  ConfigFeatures c;
  c.subnet = Tri(NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_SUBNET));
  c.bridge = Tri(NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_BRIDGE));
  c.dhcp = Tri(NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_DHCP));
  c.nat = Tri(NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_NAT));
  c.adapter = Tri(NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_ADAPTER));
  return c;
}

[[nodiscard]] bool ServiceRunning(uint32_t vnet, uint32_t id) {
  return NXCServiceStatus(vnet, id) == NXC_SERVICE_RUNNING;
}

// Whether the vnet's host-only adapter is up. It is asked whether or not
// the vnet is configured for one, so an adapter name that cannot be formed
// or a state that cannot be read fails the query (after logging why).
[[nodiscard]] bool AdapterUp(const char *fn, uint32_t vnet, bool *up) {
  char name[kAdapterNameSize];
  if (!NXCGetVnetVirtAdapter(vnet, name, sizeof name)) {
    NXCLog(LOG_ERR, fn, "Getting virtual adapter name failed");
    return false;
  }
  uint32_t state = NXCAdapterStatus(name);
  if (state == NXC_ADAPTER_STATUS_ERROR) {
    NXCLog(LOG_ERR, fn, "Error getting status for virtual adapter: %s", name);
    return false;
  }
  *up = state == NXC_ADAPTER_STATUS_UP;
  return true;
}

// A pattern byte matches when it asks for nothing (0) or for exactly the
// vnet's value; any other byte never matches.
[[nodiscard]] bool Matches(uint8_t pattern, uint8_t value) {
  return pattern == NXC_FEATURE_ANY || pattern == value;
}

[[nodiscard]]
bool ConfigMatches(const char *fn, const NXC_VnetFeatures &p, const ConfigFeatures &c) {
  if (!Matches(p.subnet, c.subnet)) {
    NXCLog(LOG_INFO2, fn, "Subnet config-time feature does not match");
    return false;
  }
  if (!Matches(p.configFeatures[NXC_FEATURE_BRIDGE], c.bridge)) {
    NXCLog(LOG_INFO2, fn, "Bridge config-time feature does not match");
    return false;
  }
  if (!Matches(p.configFeatures[NXC_FEATURE_DHCP], c.dhcp)) {
    NXCLog(LOG_INFO2, fn, "DHCP config-time feature does not match");
    return false;
  }
  if (!Matches(p.configFeatures[NXC_FEATURE_NAT], c.nat)) {
    NXCLog(LOG_INFO2, fn, "NAT config-time feature does not match");
    return false;
  }
  if (!Matches(p.configFeatures[NXC_FEATURE_HOSTONLY_ADAPTER], c.adapter)) {
    NXCLog(LOG_INFO2, fn, "Host only adapter config-time feature does not match");
    return false;
  }
  return true;
}

[[nodiscard]]
bool RuntimeMatches(const char *fn, const NXC_VnetFeatures &p, const RuntimeFeatures &r) {
  if (!Matches(p.runtimeFeatures[NXC_FEATURE_BRIDGE], r.bridge)) {
    NXCLog(LOG_INFO2, fn, "Bridge runtime feature does not match");
    return false;
  }
  if (!Matches(p.runtimeFeatures[NXC_FEATURE_DHCP], r.dhcp)) {
    NXCLog(LOG_INFO2, fn, "DHCP runtime feature does not match");
    return false;
  }
  if (!Matches(p.runtimeFeatures[NXC_FEATURE_NAT], r.nat)) {
    NXCLog(LOG_INFO2, fn, "NAT runtime feature does not match");
    return false;
  }
  if (!Matches(p.runtimeFeatures[NXC_FEATURE_HOSTONLY_ADAPTER], r.adapter)) {
    NXCLog(LOG_INFO2, fn, "Host only adapter runtime feature does not match");
    return false;
  }
  return true;
}

// Overwrites the pattern with the found vnet's features. The reserved
// bytes of both arrays stay as the caller had them.
void StoreMatch(NXC_VnetFeatures *f, uint32_t vnet, const ConfigFeatures &c,
                const RuntimeFeatures &r) {
  f->version = NXC_VNET_FEATURES_VERSION;
  f->netId.version = NXC_NETID_VERSION;
  f->netId.type = NXC_NETID_TYPE_VNET;
  f->netId.vnet = vnet;
  f->subnet = Flag(c.subnet);
  f->configFeatures[NXC_FEATURE_DHCP] = Flag(c.dhcp);
  f->configFeatures[NXC_FEATURE_NAT] = Flag(c.nat);
  f->configFeatures[NXC_FEATURE_BRIDGE] = Flag(c.bridge);
  f->configFeatures[NXC_FEATURE_HOSTONLY_ADAPTER] = Flag(c.adapter);
  f->runtimeFeatures[NXC_FEATURE_DHCP] = Flag(r.dhcp);
  f->runtimeFeatures[NXC_FEATURE_NAT] = Flag(r.nat);
  f->runtimeFeatures[NXC_FEATURE_BRIDGE] = Flag(r.bridge);
  f->runtimeFeatures[NXC_FEATURE_HOSTONLY_ADAPTER] = Flag(r.adapter);
}

}  // namespace

// The record is filled as the answers come in: on a failure the fields
// filled before it stay filled, as callers of this call have always seen.
extern "C" bool NXC_GetVnetFeatures(NXC_VnetFeatures *features) noexcept {
  static constexpr char kFn[] = "NXC_GetVnetFeatures";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - ft: %p", (void *)features);
  if (!features) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - ft: %p", (void *)features);
    return call.Exit(__LINE__, false);
  }
  if (!RecordUsable(kFn, features)) {
    NXCLog(LOG_ERR, kFn, "Failed to return vnet features");
    return call.Exit(__LINE__, false);
  }
  uint32_t vnet = features->netId.vnet;
  if (vnet >= NXC_NUM_VNETS) {
    NXCLog(LOG_ERR, kFn, "Invalid vnet number: %d", static_cast<int32_t>(vnet));
    NXCLog(LOG_ERR, kFn, "Failed to return vnet features");
    return call.Exit(__LINE__, false);
  }
  memset(features->configFeatures, 0, sizeof features->configFeatures);
  ConfigFeatures c = QueryConfigFeatures(vnet);
  features->subnet = Flag(c.subnet);
  features->configFeatures[NXC_FEATURE_BRIDGE] = Flag(c.bridge);
  features->configFeatures[NXC_FEATURE_DHCP] = Flag(c.dhcp);
  features->configFeatures[NXC_FEATURE_NAT] = Flag(c.nat);
  features->configFeatures[NXC_FEATURE_HOSTONLY_ADAPTER] = Flag(c.adapter);

  memset(features->runtimeFeatures, 0, sizeof features->runtimeFeatures);
  features->runtimeFeatures[NXC_FEATURE_BRIDGE] = ServiceRunning(vnet, NXC_SERVICE_BRIDGE);
  features->runtimeFeatures[NXC_FEATURE_DHCP] = ServiceRunning(vnet, NXC_SERVICE_DHCP);
  features->runtimeFeatures[NXC_FEATURE_NAT] = ServiceRunning(vnet, NXC_SERVICE_NAT);
  bool up = false;
  if (!AdapterUp(kFn, vnet, &up)) {
    NXCLog(LOG_ERR, kFn, "Failed to return vnet features");
    return call.Exit(__LINE__, false);
  }
  features->runtimeFeatures[NXC_FEATURE_HOSTONLY_ADAPTER] = up;
  NXCLog(LOG_INFO2, kFn, "Returning features of vnet");
  return call.Exit(__LINE__, true);
}

// The record is changed only when a vnet is found.
extern "C" bool NXC_FindVnetWithFeatures(NXC_VnetFeatures *pattern) noexcept {
  static constexpr char kFn[] = "NXC_FindVnetWithFeatures";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - ft: %p", (void *)pattern);
  if (!pattern) {
    NXCLog(LOG_ERR, kFn, "Invalid argument - ft: %p", (void *)pattern);
    return call.Exit(__LINE__, false);
  }
  if (!RecordUsable(kFn, pattern)) return call.Exit(__LINE__, false);
  uint32_t start = pattern->netId.vnet;
  if (start >= NXC_NUM_VNETS) {
    NXCLog(LOG_ERR, kFn, "Invalid index of starting vnet: %d", static_cast<int32_t>(start));
    return call.Exit(__LINE__, false);
  }
  for (uint32_t vnet = start; vnet < NXC_NUM_VNETS; ++vnet) {
    NXCLog(LOG_INFO2, kFn, "Looking at vnet: %u to see if it matches", vnet);
    ConfigFeatures c = QueryConfigFeatures(vnet);
    if (!ConfigMatches(kFn, *pattern, c)) continue;
    RuntimeFeatures r;
    r.bridge = Tri(ServiceRunning(vnet, NXC_SERVICE_BRIDGE));
    r.dhcp = Tri(ServiceRunning(vnet, NXC_SERVICE_DHCP));
    r.nat = Tri(ServiceRunning(vnet, NXC_SERVICE_NAT));
    bool up = false;
    if (!AdapterUp(kFn, vnet, &up)) return call.Exit(__LINE__, false);
    r.adapter = Tri(up);
    if (!RuntimeMatches(kFn, *pattern, r)) continue;
    StoreMatch(pattern, vnet, c, r);
    NXCLog(LOG_INFO, kFn, "Found matching vnet: %d", static_cast<int32_t>(vnet));
    NXCLog(LOG_OK, kFn, "Returning matching vnet: %d", static_cast<int32_t>(vnet));
    return call.Exit(__LINE__, true);
  }
  NXCLog(LOG_ERR, kFn, "Could not find any matching vnet");
  return call.Exit(__LINE__, false);
}
