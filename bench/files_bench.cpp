// files_bench.cpp - the daemons' configuration files beside plain C writing
// the same bytes: dhcpd.conf with 10k static leases and nat.conf with 10k
// port forwards, regenerated over an existing file.
//
// Two scenarios each: the same content regenerated again and again (within
// the same second, so dhcpd.conf's "Written at" line mostly stays), and one
// lease or forward changed between regenerations, with dhcpd.conf last
// written in another second, as between two changes of a user.
//
// Target (ratio library / floor): at most 3x writing the same bytes.
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "base/sha1.h"
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
// beside the floor writing the same bytes to floorPath. change, when given,
// runs before every regeneration and is not timed.
void Generation(benchmark::State &state, bool (*write)(uint32_t vnet), const char *path,
                const char *floorPath, void (*change)(size_t round) = nullptr) {
  if (SkipWithoutSandbox(state)) return;
  WriteFileOrDie(kDatabasePath, VnetDatabase(static_cast<size_t>(state.range(0))));
  if (!NXC_Load(0)) abort();
  if (!write(8)) abort();
  std::string bytes = ReadFile(path);
  size_t round = 0;
  Interleave(
      state,
      [&] {
        if (change) change(round++);
        double seconds = Timed([&] {
          if (!write(8)) abort();
        });
        // The floor writes what the library wrote this time.
        if (change) bytes = ReadFile(path);
        return seconds;
      },
      [&] { return WriteBytes(floorPath, bytes); });
  state.counters["bytes"] = static_cast<double>(bytes.size());
  NXC_Unload2(0);
}

constexpr char kDhcpdConfPath[] = "/etc/zymtra/zynet8/dhcpd/dhcpd.conf";
constexpr char kNatConfPath[] = "/etc/zymtra/zynet8/nat/nat.conf";

bool WriteDhcpdConf(uint32_t vnet) { return NXCDHCPWriteDHCPCfg(vnet); }
bool WriteNatConf(uint32_t vnet) { return NXCNATUpdateFromConfig(vnet); }

// The file as it stands was written in another second than the next
// regeneration, as between two changes a user makes: its "Written at" line
// is set back, and the stored hash follows so that the block still counts
// as untouched.
void AgeDhcpdConf() {
  std::string text = ReadFile(kDhcpdConfPath);
  const std::string stamp = "# Written at: ";
  const size_t at = text.find(stamp), start = text.find("###### ZYNET DHCP");
  const size_t end = text.find("\n", text.find("####### ZYNET DHCP"));
  if (at == std::string::npos || start == std::string::npos || end == std::string::npos) abort();
  text.replace(at + stamp.size(), 19, "01/01/2000 00:00:00");
  WriteFileOrDie(kDhcpdConfPath, text);
  uint8_t digest[kSha1DigestSize];
  Sha1Digest(text.data() + start, end + 1 - start, digest);
  char hex[2 * kSha1DigestSize + 1];
  Sha1Hex(digest, hex);
  for (char &c : hex) c = static_cast<char>(toupper(c));
  if (!NXCSetVnetCfg(8, "DHCP_CFG_HASH", hex)) abort();
}

void BM_DhcpdConf(benchmark::State &state) {
  Generation(state, WriteDhcpdConf, kDhcpdConfPath, "/etc/zymtra/floor-dhcpd.conf");
}
BENCHMARK(BM_DhcpdConf)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

// Between regenerations one lease moves to another address, and the file
// was written in another second.
void BM_DhcpdConfChanged(benchmark::State &state) {
  Generation(state, WriteDhcpdConf, kDhcpdConfPath, "/etc/zymtra/floor-dhcpd.conf",
             [](size_t round) {
               const char *mac = "02:00:00:00:00:07";
               if (!NXCDHCPSetIPToMAC(8, nullptr, mac) ||
                   !NXCDHCPSetIPToMAC(8, round % 2 ? "10.8.1.9" : "10.8.251.9", mac))
                 abort();
               AgeDhcpdConf();
             });
}
BENCHMARK(BM_DhcpdConfChanged)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_NatConf(benchmark::State &state) {
  Generation(state, WriteNatConf, kNatConfPath, "/etc/zymtra/floor-nat.conf");
}
BENCHMARK(BM_NatConf)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

// Between regenerations one forward moves to another internal port.
void BM_NatConfChanged(benchmark::State &state) {
  Generation(state, WriteNatConf, kNatConfPath, "/etc/zymtra/floor-nat.conf", [](size_t round) {
    if (!NXCNATSetPortForward(8, 1, 4, "10.8.1.8", round % 2 ? 8 : 9, nullptr)) abort();
  });
}
BENCHMARK(BM_NatConfChanged)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nxc::bench
