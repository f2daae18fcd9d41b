// netcfg_bench.cpp - the database at sizes a busy host reaches: loading a
// journal of N records, appending one change, and the compact rewrite.
// Targets: loading 10,000 records well under 50 ms; one appended change
// (a write to the file and its sync) bound by the disk's sync, with the
// library's own CPU time in hundreds of microseconds at most.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <benchmark/benchmark.h>

#include "base/byte_buffer.h"
#include "netcfg/netcfg_priv.h"

namespace {

// A journal of n records: answers, port forwards and DHCP mappings spread
// over the vnets, with some replaced values as a long-used file has.
std::string MakeJournal(int n) {
  std::string text = "VERSION=1,0\n";
  char line[160];
  for (int i = 0; i < n; ++i) {
    int vnet = i % 256;
    switch (i % 4) {
      case 0:
        snprintf(line, sizeof line, "answer VNET_%d_DISPLAY_NAME network number %d\n", vnet, i);
        break;
      case 1:
        snprintf(line, sizeof line, "add_nat_portfwd %d tcp %d 10.0.%d.2 %d forward %d\n", vnet,
                 1 + i % 60000, vnet, 1 + i % 60000, i);
        break;
      case 2:
        snprintf(line, sizeof line, "add_dhcp_mac_to_ip %d 02:00:00:%02x:%02x:%02x 10.0.%d.%d\n",
                 vnet, (i >> 16) & 0xff, (i >> 8) & 0xff, i & 0xff, vnet, 2 + i % 250);
        break;
      default:
        snprintf(line, sizeof line, "answer KEY_%d value %d\n", i % 500, i);
    }
    text += line;
  }
  return text;
}

std::string WriteTemp(const std::string &text) {
  char path[] = "/tmp/nxc-bench-XXXXXX";
  int fd = mkstemp(path);
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
  close(fd);
  return path;
}

void BM_LoadJournal(benchmark::State &state) {
  std::string path = WriteTemp(MakeJournal(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    NXCNetworkConfigurationDB *db = nullptr;
    if (!NXCNetCfgLoad(path.c_str(), &db, false, /*readOnly=*/true)) state.SkipWithError("load");
    (void)NXCNetCfgUnload(&db, false);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  unlink(path.c_str());
}
BENCHMARK(BM_LoadJournal)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_AppendAnswer(benchmark::State &state) {
  std::string path = WriteTemp(MakeJournal(1000));
  NXCNetworkConfigurationDB *db = nullptr;
  if (!NXCNetCfgLoad(path.c_str(), &db, false, /*readOnly=*/false)) abort();
  int i = 0;
  for (auto _ : state) {
    char value[32];
    snprintf(value, sizeof value, "%d", i++);
    if (!NXCNetCfgAddAnswerString(db, "VNET_1_MTU", value)) state.SkipWithError("append");
  }
  (void)NXCNetCfgUnload(&db, false);
  unlink(path.c_str());
}
BENCHMARK(BM_AppendAnswer)->Unit(benchmark::kMicrosecond);

void BM_CompactRecords(benchmark::State &state) {
  std::string path = WriteTemp(MakeJournal(static_cast<int>(state.range(0))));
  NXCNetworkConfigurationDB *db = nullptr;
  if (!NXCNetCfgLoad(path.c_str(), &db, false, /*readOnly=*/true)) abort();
  for (auto _ : state) {
    nxc::ByteBuffer buffer;
    benchmark::DoNotOptimize(nxc::NetCfgWriteDatabaseToBuffer(db, &buffer));
  }
  (void)NXCNetCfgUnload(&db, false);
  unlink(path.c_str());
}
BENCHMARK(BM_CompactRecords)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
