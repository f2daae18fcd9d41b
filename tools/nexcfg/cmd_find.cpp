// cmd_find.cpp - the feature query of one vnet and the search for vnets by
// their features.
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "features.h"

namespace nexcfg {
namespace {

constexpr int kDhcp = NXC_FEATURE_DHCP, kNat = NXC_FEATURE_NAT, kBridge = NXC_FEATURE_BRIDGE,
              kAdapter = NXC_FEATURE_HOSTONLY_ADAPTER;

NXC_VnetFeatures Record(uint32_t vnet) {
  NXC_VnetFeatures record;
  memset(&record, 0, sizeof record);
  record.version = NXC_VNET_FEATURES_VERSION;
  record.netId.version = NXC_NETID_VERSION;
  record.netId.type = NXC_NETID_TYPE_VNET;
  record.netId.vnet = vnet;
  return record;
}

VnetFeatures FromRecord(const NXC_VnetFeatures &r) {
  VnetFeatures f;
  f.subnet = r.subnet == 1;
  f.config = {r.configFeatures[kDhcp] == 1, r.configFeatures[kNat] == 1,
              r.configFeatures[kBridge] == 1, r.configFeatures[kAdapter] == 1};
  f.runtime = {r.runtimeFeatures[kDhcp] == 1, r.runtimeFeatures[kNat] == 1,
               r.runtimeFeatures[kBridge] == 1, r.runtimeFeatures[kAdapter] == 1};
  return f;
}

Json FlagsJson(const FeatureFlags &flags, const char *adapterKey) {
  Json out = Json::Object();
  out.Set("dhcp", flags.dhcp);
  out.Set("nat", flags.nat);
  out.Set("bridge", flags.bridge);
  out.Set(adapterKey, flags.adapter);
  return out;
}

int Features(const Invocation &in) {
  std::string vnet = VnetName(in.Arg(0));
  VnetFeatures f = QueryFeatures(vnet);
  if (Opts().json) {
    Json out = Json::Object();
    out.Set("vnet", vnet);
    out.Merge(FeaturesJson(f));
    PrintJson(out);
    return kExitOk;
  }
  Table table({"FEATURE", "CONFIGURED", "RUNNING"});
  auto yes = [](bool b) { return std::string(b ? "yes" : "no"); };
  table.Add({"subnet", yes(f.subnet), "-"});
  table.Add({"dhcp", yes(f.config.dhcp), yes(f.runtime.dhcp)});
  table.Add({"nat", yes(f.config.nat), yes(f.runtime.nat)});
  table.Add({"bridge", yes(f.config.bridge), yes(f.runtime.bridge)});
  table.Add({"adapter", yes(f.config.adapter), f.runtime.adapter ? "up" : "no"});
  printf("%s\n", vnet.c_str());
  table.Print();
  return kExitOk;
}

// Search options and the pattern byte each sets.
struct Criterion {
  const char *option;
  bool runtime;
  int index;  // feature index, or -1 for the subnet
};
constexpr Criterion kCriteria[] = {
    {"--subnet", false, -1},       {"--dhcp", false, kDhcp},
    {"--nat", false, kNat},        {"--bridge", false, kBridge},
    {"--adapter", false, kAdapter}, {"--dhcp-running", true, kDhcp},
    {"--nat-running", true, kNat}, {"--bridge-running", true, kBridge},
    {"--adapter-up", true, kAdapter},
};

void ApplyCriteria(const Invocation &in, NXC_VnetFeatures *pattern) {
  for (const Criterion &c : kCriteria) {
    const std::string *value = in.Option(c.option);
    if (!value) continue;
    uint8_t byte = Switch(*value, c.option) ? NXC_FEATURE_PRESENT : NXC_FEATURE_ABSENT;
    if (c.index < 0)
      pattern->subnet = byte;
    else if (c.runtime)
      pattern->runtimeFeatures[c.index] = byte;
    else
      pattern->configFeatures[c.index] = byte;
  }
}

int Find(const Invocation &in) {
  uint32_t start = 0;
  if (const std::string *from = in.Option("--from")) start = VnetNumber(VnetName(*from));
  bool all = in.Flag("--all");
  Table table({"VNET", "SUBNET", "DHCP", "NAT", "BRIDGE", "ADAPTER"});
  Json found = Json::Array();
  while (start < NXC_NUM_VNETS) {
    NXC_VnetFeatures pattern = Record(start);
    ApplyCriteria(in, &pattern);
    // A search that finds nothing is an answer; one the library could not
    // finish (an adapter whose state it cannot read) is a failure, told
    // apart by its log line.
    LogWatch watch;
    bool match = NXC_FindVnetWithFeatures(&pattern);
    watch.Report();
    if (!match) {
      bool finished = false;
      for (const auto &line : watch.Lines())
        finished = finished || line.find("Could not find any matching vnet") != std::string::npos;
      if (!finished && found.items().empty())
        throw CallFailure("search the vnets", watch.Lines());
      break;
    }
    uint32_t vnet = pattern.netId.vnet;
    VnetFeatures f = FromRecord(pattern);
    std::string name = "zynet" + std::to_string(vnet);
    Json row = Json::Object();
    row.Set("vnet", name);
    row.Merge(FeaturesJson(f));
    found.Push(std::move(row));
    table.Add({name, f.subnet ? "yes" : "no", FeatureCell(f.config.dhcp, f.runtime.dhcp, "running"),
               FeatureCell(f.config.nat, f.runtime.nat, "running"),
               FeatureCell(f.config.bridge, f.runtime.bridge, "running"),
               FeatureCell(f.config.adapter, f.runtime.adapter, "up")});
    if (!all) break;
    start = vnet + 1;
  }
  if (Opts().json)
    PrintJson(found);
  else if (!table.empty())
    table.Print();
  if (found.items().empty()) fprintf(stderr, "nexcfg: no vnet matches\n");
  return found.items().empty() ? kExitFailed : kExitOk;
}

const Command kCommands[] = {
    {"features", "VNET", "", "show a vnet's configured and running features", "", Needs::kReadOnly,
     Features},
    {"find",
     "",
     "--from=VNET --all --subnet=yes|no --dhcp=yes|no --nat=yes|no --bridge=yes|no --adapter=yes|no "
     "--dhcp-running=yes|no --nat-running=yes|no --bridge-running=yes|no --adapter-up=yes|no",
     "find the first vnet (or --all vnets) with the given features",
     "Each criterion is yes (must be present) or no (must be absent); features not\n"
     "named match anything. The search starts at --from (default zynet0). The first\n"
     "five are configured features, the last four the running daemons and the\n"
     "host-only adapter's state. Exit status 1 when no vnet matches.\n"
     "Example: the first vnet with a subnet and NAT but no bridge:\n"
     "  nexcfg find --subnet yes --nat yes --bridge no\n",
     Needs::kReadOnly, Find},
};

}  // namespace

bool TryQueryFeatures(const std::string &vnet, VnetFeatures *out) {
  NXC_VnetFeatures record = Record(VnetNumber(vnet));
  bool ok = Ask([&] { return NXC_GetVnetFeatures(&record); });
  *out = FromRecord(record);
  return ok;
}

VnetFeatures QueryFeatures(const std::string &vnet) {
  NXC_VnetFeatures record = Record(VnetNumber(vnet));
  Call("query the features of " + vnet, [&] { return NXC_GetVnetFeatures(&record); });
  return FromRecord(record);
}

bool Configured(const VnetFeatures &f) {
  return f.subnet || f.config.dhcp || f.config.nat || f.config.bridge || f.config.adapter;
}

std::vector<std::string> ConfiguredVnets() {
  std::vector<std::string> vnets;
  for (uint32_t n = 0; n < NXC_GetNumberOfVnets(); ++n) {
    std::string name = "zynet" + std::to_string(n);
    VnetFeatures f;
    (void)TryQueryFeatures(name, &f);
    if (Configured(f)) vnets.push_back(name);
  }
  return vnets;
}

Json FeaturesJson(const VnetFeatures &f) {
  Json out = Json::Object();
  out.Set("has_subnet", f.subnet);
  out.Set("config", FlagsJson(f.config, "adapter"));
  out.Set("runtime", FlagsJson(f.runtime, "adapter_up"));
  return out;
}

std::string FeatureCell(bool configured, bool running, const char *runningWord) {
  if (!configured) return running ? std::string(runningWord) : "-";
  return running ? std::string("on, ") + runningWord : "on";
}

std::span<const Command> FindCommands() { return kCommands; }

}  // namespace nexcfg
