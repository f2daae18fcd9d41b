// files_bench.cpp - the daemons' configuration files beside plain C writing
// the same bytes: dhcpd.conf with 10k static leases and nat.conf with 10k
// port forwards, regenerated over an existing file.
//
// Target (ratio library / floor): at most 3x writing the same bytes.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "bench/bench_support.h"
#include "nexcfg_internal.h"

namespace nxc::bench {
namespace {

// Vnet 8 with a /16 host-only subnet, DHCP and NAT, n static leases and n
// forwards (half TCP, half UDP).
std::string VnetDatabase(size_t n) {
  std::string text =
      "VERSION=1,0\n"
      "answer VNET_8_HOSTONLY_SUBNET 10.8.0.0\n"
      "answer VNET_8_HOSTONLY_NETMASK 255.255.0.0\n"
      "answer VNET_8_VIRTUAL_ADAPTER yes\n"
      "answer VNET_8_DHCP yes\n"
      "answer VNET_8_NAT yes\n";
  char line[128];
  for (size_t i = 0; i < n; ++i) {
    snprintf(line, sizeof line, "add_dhcp_mac_to_ip 8 02:00:00:%02zX:%02zX:%02zX 10.8.%zu.%zu\n",
             (i >> 16) & 0xFF, (i >> 8) & 0xFF, i & 0xFF, 1 + i / 250 % 250, 2 + i % 250);
    text += line;
    snprintf(line, sizeof line, "add_nat_portfwd 8 %s %zu 10.8.%zu.%zu %zu\n", i % 2 ? "udp" : "tcp",
             1 + i / 2, 1 + i / 250 % 250, 2 + i % 250, 1 + i % 60000);
    text += line;
  }
  return text;
}

// The floor: the bytes written through one stream, in one call.
double WriteBytes(const char *path, const std::string &text) {
  return Timed([&] {
    FILE *f = fopen(path, "we");
    if (!f || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) abort();
  });
}

// Regenerates vnet 8's file with write (which makes it the first time)
// beside the floor writing the same bytes to floorPath.
void Generation(benchmark::State &state, bool (*write)(uint32_t vnet), const char *path,
                const char *floorPath) {
  if (SkipWithoutSandbox(state)) return;
  WriteFileOrDie(kDatabasePath, VnetDatabase(static_cast<size_t>(state.range(0))));
  if (!NXC_Load(0)) abort();
  if (!write(8)) abort();
  const std::string bytes = ReadFile(path);
  Interleave(
      state,
      [&] {
        return Timed([&] {
          if (!write(8)) abort();
        });
      },
      [&] { return WriteBytes(floorPath, bytes); });
  state.counters["bytes"] = static_cast<double>(bytes.size());
  NXC_Unload2(0);
}

void BM_DhcpdConf(benchmark::State &state) {
  Generation(state, [](uint32_t vnet) { return NXCDHCPWriteDHCPCfg(vnet); },
             "/etc/zymtra/zynet8/dhcpd/dhcpd.conf", "/etc/zymtra/floor-dhcpd.conf");
}
BENCHMARK(BM_DhcpdConf)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_NatConf(benchmark::State &state) {
  Generation(state, [](uint32_t vnet) { return NXCNATUpdateFromConfig(vnet); },
             "/etc/zymtra/zynet8/nat/nat.conf", "/etc/zymtra/floor-nat.conf");
}
BENCHMARK(BM_NatConf)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nxc::bench
