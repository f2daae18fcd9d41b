// cmd_boot.cpp - every vnet's services up or down in one command, as the
// host's start-up and shut-down run them (nexcfg.service).
//
// One vnet that fails does not keep the others down (or up): each vnet
// goes through the sequence of `service start|stop` on its own, and the
// command fails at the end when one of them did.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>

#include "features.h"
#include "sections.h"
#include "services.h"

namespace nexcfg {
namespace {

// The daemons running for a vnet. Its adapter counts by netifup alone: the
// interface zynet<n> is also the bridge the DHCP and NAT daemons share.
FeatureFlags Running(const std::string &vnet, const VnetFeatures &f) {
  FeatureFlags running = f.runtime;
  running.adapter = Ask([&] { return NXC_GetServiceStatus(vnet.c_str(), NXC_SERVICE_TYPE_NETIFUP); }) ==
                    NXC_SERVICE_RUNNING;
  return running;
}

bool Any(const FeatureFlags &f) { return f.bridge || f.adapter || f.dhcp || f.nat; }

// The vnets named, each once and in number order; without names, every
// vnet for which wanted holds.
std::vector<std::string> VnetsOf(const Invocation &in,
                                 const std::function<bool(const std::string &, const VnetFeatures &)> &wanted) {
  std::vector<std::string> vnets;
  for (const auto &word : in.args()) vnets.push_back(VnetName(word));
  auto byNumber = [](const std::string &a, const std::string &b) { return VnetNumber(a) < VnetNumber(b); };
  std::sort(vnets.begin(), vnets.end(), byNumber);
  vnets.erase(std::unique(vnets.begin(), vnets.end()), vnets.end());
  if (in.count() > 0) return vnets;
  for (uint32_t n = 0; n < NXC_GetNumberOfVnets(); ++n) {
    std::string name = VnetNameOf(n);
    VnetFeatures f;
    (void)TryQueryFeatures(name, &f);
    if (wanted(name, f)) vnets.push_back(name);
  }
  return vnets;
}

// Starts (or stops) on each vnet, in the order given, the services choose
// picks; choose may name services it leaves out in skipped. Prints
// [{"vnet", "services", "skipped", "error", "log"}] in --json mode; a
// failed vnet's error goes to stderr as the command's would. Exit status
// 1 when a vnet failed.
int EachVnet(const std::vector<std::string> &vnets, bool start,
             const std::function<FeatureFlags(const std::string &, Json *skipped)> &choose) {
  Json out = Json::Array();
  bool failed = false;
  for (const auto &vnet : vnets) {
    Json done = Json::Array(), skipped = Json::Array();
    std::optional<Error> failure;
    try {
      RunServices(vnet, choose(vnet, &skipped), start, &done);
    } catch (const Error &error) {
      failure = error;
    }
    Json entry = Json::Object();
    entry.Set("vnet", vnet);
    entry.Set("services", std::move(done));
    entry.Set("skipped", std::move(skipped));
    entry.Set("error", nullptr);
    entry.Set("log", Json::Array());
    if (failure) {
      failed = true;
      fflush(stdout);  // the lines of the vnets before it come first
      fprintf(stderr, "nexcfg: %s\n", failure->what());
      PrintErrorDetails(*failure);
      entry.Merge(ErrorJson(*failure));
    }
    out.Push(std::move(entry));
  }
  if (vnets.empty()) Say("no vnet is configured");
  if (Opts().json) PrintJson(out);
  return failed ? kExitFailed : kExitOk;
}

int Up(const Invocation &in) {
  const std::string *option = in.Option("--default-bridge");
  bool withDefaultBridge = option && Switch(*option, "--default-bridge");
  std::string defaultBridge = DefaultBridge();
  auto configured = [](const std::string &, const VnetFeatures &f) { return Configured(f); };
  return EachVnet(VnetsOf(in, configured), /*start=*/true, [&](const std::string &vnet, Json *skipped) {
    FeatureFlags which = QueryFeatures(vnet).config;
    // The default bridge's daemon joins the host's uplink to the vnet:
    // only when the user asked for it.
    if (vnet == defaultBridge && which.bridge && !withDefaultBridge) {
      which.bridge = false;
      skipped->Push("bridge");
      Say("skipped bridge on " + vnet + ", the default bridge (--default-bridge=yes starts it)");
    }
    return which;
  });
}

int Down(const Invocation &in) {
  auto active = [](const std::string &vnet, const VnetFeatures &f) { return Configured(f) || Any(Running(vnet, f)); };
  std::vector<std::string> vnets = VnetsOf(in, active);
  std::reverse(vnets.begin(), vnets.end());
  return EachVnet(vnets, /*start=*/false, [](const std::string &vnet, Json *) {
    // What the vnet is configured for, and whatever else of it runs.
    VnetFeatures f = QueryFeatures(vnet);
    FeatureFlags running = Running(vnet, f), which = f.config;
    which.bridge = which.bridge || running.bridge;
    which.adapter = which.adapter || running.adapter;
    which.dhcp = which.dhcp || running.dhcp;
    which.nat = which.nat || running.nat;
    return which;
  });
}

const Command kCommands[] = {
    {"up", "[VNET...]", "--default-bridge=yes|no", "start the services of every configured vnet",
     "Without VNET, every vnet that has a subnet or a configured feature, in number\n"
     "order; each starts its services as `nexcfg service start` does: bridge,\n"
     "netifup (with the host-only adapter's address), dhcp, nat. A vnet that\n"
     "fails leaves the others going; the exit status is then 1. Services that run\n"
     "already count as started.\n"
     "The bridge daemon of the default bridge vnet (zynet0 in a new database)\n"
     "joins the host's own Ethernet adapter to it, so it starts only with\n"
     "--default-bridge=yes; nexcfg.service passes its NEXCFG_DEFAULT_BRIDGE, which\n"
     "is no unless a drop-in (systemctl edit nexcfg) sets it.\n",
     Needs::kReadWrite, Up},
    {"down", "[VNET...]", "", "stop the services of every vnet",
     "Without VNET, every configured vnet and every vnet a daemon runs for, in\n"
     "reverse number order; each stops, in the reverse order of up, what it is\n"
     "configured for and whatever else of it runs. A vnet that fails leaves the\n"
     "others going; the exit status is then 1.\n",
     Needs::kReadWrite, Down},
};

}  // namespace

std::span<const Command> BootCommands() { return kCommands; }

}  // namespace nexcfg
