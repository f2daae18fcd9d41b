// tool_bench.cpp - the nexcfg tool as a user runs it, beside the cheapest
// program there is: one change on a database of 10k records against
// spawning /bin/true; and the database's load after many changes made
// through the tool against the load of the same settings written compactly.
//
// Targets: one change at most 5x spawning /bin/true; after 100k changes
// the load within 2x of the compact file's. The changes are made by two
// tools at a time, one on each core, as two programs of a host would; the
// 100k runs of the tool take several minutes.
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "netcfg/netcfg_priv.h"

extern char **environ;

namespace nxc::bench {
namespace {

// Runs the program with its output discarded; false unless it exits 0.
bool Spawn(std::vector<std::string> args) {
  std::vector<char *> argv;
  for (std::string &a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  return rc == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool ToolChange(unsigned i) {
  return Spawn({NXC_TOOL_PATH, "vnet", "set", "zynet1", "name", "network " + std::to_string(i)});
}

void BM_ToolChange(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  WriteFileOrDie(kDatabasePath, "VERSION=1,0\n" + JournalRecords(10000, Journal::kLive));
  unsigned i = 0;
  Interleave(
      state,
      [&] {
        return Timed([&] {
          if (!ToolChange(++i)) abort();
        });
      },
      [&] {
        return Timed([&] {
          if (!Spawn({"/bin/true"})) abort();
        });
      });
}
BENCHMARK(BM_ToolChange)->Iterations(300)->UseManualTime()->Unit(benchmark::kMillisecond);

// n changes through the tool on a database of 10k records; then the load
// of that database (lib) against the load of the same cache written
// compactly (floor).
void BM_LoadAfterToolChanges(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const unsigned n = static_cast<unsigned>(state.range(0));
  WriteFileOrDie(kDatabasePath, "VERSION=1,0\n" + JournalRecords(10000, Journal::kLive));
  auto changes = [&](unsigned first) {
    for (unsigned i = first; i < n; i += 2)
      if (!ToolChange(i)) abort();
  };
  std::thread other(changes, 1u);
  changes(0);
  other.join();
  NXCNetworkConfigurationDB *db = nullptr;
  if (!NXCNetCfgLoad(kDatabasePath, &db, false, true) ||
      !NXCNetCfgExportConfig(db, "/tmp/compact-networking", false))
    abort();
  (void)NXCNetCfgUnload(&db, false);
  struct stat grown, compact;
  if (stat(kDatabasePath, &grown) != 0 || stat("/tmp/compact-networking", &compact) != 0) abort();
  auto load = [](const char *path) {
    NXCNetworkConfigurationDB *cache = nullptr;
    double t = Timed([&] {
      if (!NXCNetCfgLoad(path, &cache, false, false)) abort();
    });
    (void)NXCNetCfgUnload(&cache, false);
    return t;
  };
  Interleave(
      state, [&] { return load(kDatabasePath); }, [&] { return load("/tmp/compact-networking"); });
  state.counters["file_kb"] = static_cast<double>(grown.st_size) / 1024;
  state.counters["compact_kb"] = static_cast<double>(compact.st_size) / 1024;
}
BENCHMARK(BM_LoadAfterToolChanges)->Arg(100000)->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace nxc::bench
