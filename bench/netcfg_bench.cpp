// netcfg_bench.cpp - the database beside plain C doing the same work on the
// same files (all on tmpfs, in the sandbox): loading a journal, one locked
// change, the compact rewrite, merge and import, removing every forward,
// and the memory a cached record takes.
//
// Targets (ratio library / floor): load at most 3x the read-and-split floor
// at 10k records, 4x at 100k, 12x at 1M, growing linearly; one locked change
// at most 2.5x lock + write + fdatasync + unlock; the compact rewrite at
// most 2x the same bytes through one buffered stream (+ fsync + rename);
// merge and import of 10k records at most 4x reading the inputs and writing
// the outputs; removing every forward one by one O(n) in all (the cost of a
// removal at 20k within 2x of that at 1k); at most 130 bytes per cached
// record at 100k.
//
// The compact rewrite also runs at 10k records, the size of the merge and
// import runs: an import is at least a load and a rewrite of its records,
// a merge two of each, so the load's and the rewrite's floors at 10k show
// how much of those operations' budget the two steps take on their own.
#include <fcntl.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <unordered_map>

#include "bench/bench_support.h"
#include "netcfg/netcfg_priv.h"

namespace nxc::bench {
namespace {

constexpr char kVersionLine[] = "VERSION=1,0\n";
constexpr char kBackupVersionLine[] = "BACKUP_VERSION=1,0\n";

// ---- Floors ------------------------------------------------------------------

// The floor of a load: the file read whole and split into lines and
// blank-separated fields. Returns a sum over the fields, so that nothing is
// left out by the compiler.
size_t ReadAndSplit(const char *path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) abort();
  size_t size = static_cast<size_t>(st.st_size);
  char *text = static_cast<char *>(malloc(size + 1));
  size_t got = 0;
  for (ssize_t n; got < size && (n = read(fd, text + got, size - got)) > 0;) got += static_cast<size_t>(n);
  close(fd);
  const char *fields[16];
  size_t count = 0, sum = 0;
  const char *start = text;
  for (const char *p = text, *end = text + got; p < end; ++p) {
    if (*p != ' ' && *p != '\n') continue;
    if (count < 16) fields[count++] = start;
    start = p + 1;
    if (*p == '\n') {
      sum += count + static_cast<size_t>(fields[count - 1] - fields[0]);
      count = 0;
    }
  }
  free(text);
  return sum;
}

// A journal file that the floors append to, with the lock taken the way
// the library takes it (an OFD lock on the whole file).
class FloorJournal {
 public:
  explicit FloorJournal(const char *path) : path_(path) {
    fd_ = open(path, O_RDWR | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd_ < 0 || write(fd_, kVersionLine, sizeof kVersionLine - 1) < 0) abort();
  }
  ~FloorJournal() {
    close(fd_);
    unlink(path_);
  }
  // Lock, one write, fdatasync, unlock.
  void Append(const char *text, size_t length) {
    struct flock fl = {};
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    if (fcntl(fd_, F_OFD_SETLKW, &fl) != 0) abort();
    if (write(fd_, text, length) != static_cast<ssize_t>(length) || fdatasync(fd_) != 0) abort();
    fl.l_type = F_UNLCK;
    if (fcntl(fd_, F_OFD_SETLK, &fl) != 0) abort();
  }
  // Empties the file again (between runs, untimed).
  void Reset() {
    if (ftruncate(fd_, 0) != 0 || write(fd_, kVersionLine, sizeof kVersionLine - 1) < 0) abort();
  }

 private:
  const char *path_;
  int fd_;
};

// ---- Load --------------------------------------------------------------------

void BM_Load(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  const std::string path = "/tmp/load-networking";
  WriteFileOrDie(path, kVersionLine + JournalRecords(n, Journal::kUsed));
  size_t sink = 0;
  Interleave(
      state,
      [&] {
        NXCNetworkConfigurationDB *db = nullptr;
        double t = Timed([&] {
          if (!NXCNetCfgLoad(path.c_str(), &db, /*backup=*/false, /*readOnly=*/false)) abort();
        });
        (void)NXCNetCfgUnload(&db, /*writeBack=*/false);
        return t;
      },
      [&] { return Timed([&] { sink += ReadAndSplit(path.c_str()); }); });
  benchmark::DoNotOptimize(sink);
  state.counters["lib_ns_per_record"] = state.counters["lib_us"] * 1e3 / static_cast<double>(n);
  unlink(path.c_str());
}
BENCHMARK(BM_Load)->Arg(10000)->Arg(100000)->Arg(1000000)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---- One locked change --------------------------------------------------------

// The default database of n live records, loaded as a caller loads it.
void LoadDefaultDatabase(size_t n) {
  WriteFileOrDie(kDatabasePath, kVersionLine + JournalRecords(n, Journal::kLive));
  if (!NXC_Load(0)) abort();
}

void BM_LockedChange(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  LoadDefaultDatabase(10000);
  FloorJournal floor("/etc/zymtra/floor-journal");
  unsigned i = 0;
  Interleave(
      state,
      [&] {
        char name[32];
        snprintf(name, sizeof name, "network %u", ++i);
        return Timed([&] {
          if (!NXC_SetVnetDisplayName("zynet1", name)) abort();
        });
      },
      [&] {
        char records[96];
        int length = snprintf(records, sizeof records,
                              "remove_answer VNET_1_DISPLAY_NAME\nanswer VNET_1_DISPLAY_NAME network %u\n", i);
        return Timed([&] { floor.Append(records, static_cast<size_t>(length)); });
      });
  NXC_Unload2(0);
}
BENCHMARK(BM_LockedChange)->Iterations(20000)->UseManualTime()->Unit(benchmark::kMicrosecond);

// ---- The compact rewrite ---------------------------------------------------------

void BM_CompactRewrite(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  WriteFileOrDie("/tmp/rewrite-source", kVersionLine + JournalRecords(n, Journal::kLive));
  NXCNetworkConfigurationDB *db = nullptr;
  if (!NXCNetCfgLoad("/tmp/rewrite-source", &db, false, /*readOnly=*/true)) abort();
  // The floor writes what the library writes, line by line.
  if (!NXCNetCfgExportConfig(db, "/tmp/rewrite", false)) abort();
  const std::vector<std::string> lines = SplitLines(ReadFile("/tmp/rewrite"));
  Interleave(
      state,
      [&] {
        return Timed([&] {
          if (!NXCNetCfgExportConfig(db, "/tmp/rewrite.new", false) ||
              rename("/tmp/rewrite.new", "/tmp/rewrite") != 0)
            abort();
        });
      },
      [&] {
        return Timed([&] {
          FILE *f = fopen("/tmp/floor-rewrite.new", "we");
          for (const std::string &line : lines) fputs(line.c_str(), f);
          if (fflush(f) != 0 || fsync(fileno(f)) != 0 || fclose(f) != 0 ||
              rename("/tmp/floor-rewrite.new", "/tmp/floor-rewrite") != 0)
            abort();
        });
      });
  if (ReadFile("/tmp/rewrite") != ReadFile("/tmp/floor-rewrite")) state.SkipWithError("bytes differ");
  (void)NXCNetCfgUnload(&db, false);
}
BENCHMARK(BM_CompactRewrite)->Arg(10000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---- Merge and import -------------------------------------------------------------

// The floor of an operation that reads some files and writes others: each
// input read whole, each output written whole and synced (through a new
// file renamed over it where the library renames).
struct FileWork {
  std::vector<std::string> inputs;
  std::vector<std::pair<std::string, std::string>> outputs;  // path, bytes
  std::vector<bool> renamed;
  size_t Run() const {
    size_t sum = 0;
    for (const std::string &path : inputs) sum += ReadFile(path).size();
    for (size_t i = 0; i < outputs.size(); ++i) {
      const auto &[path, text] = outputs[i];
      if (renamed[i]) {
        ReplaceFileDurably(path, text);
        continue;
      }
      int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
          fsync(fd) != 0 || close(fd) != 0)
        abort();
    }
    return sum;
  }
};

void BM_MergeEqualFile(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  const std::string records = JournalRecords(n, Journal::kLive);
  LoadDefaultDatabase(n);
  WriteFileOrDie("/tmp/merge", kBackupVersionLine + records);
  // Once untimed, for the bytes the floor writes.
  if (!NXCNetCfgMergeConfig("/tmp/merge")) abort();
  const std::string premerge = std::string(kDatabasePath) + ".premerge";
  FileWork floor;
  floor.inputs = {"/tmp/merge", "/etc/zymtra/floor-networking"};
  floor.outputs = {{"/etc/zymtra/floor-networking.premerge", ReadFile(premerge)},
                   {"/etc/zymtra/floor-networking", ReadFile(kDatabasePath)}};
  floor.renamed = {false, true};
  WriteFileOrDie("/etc/zymtra/floor-networking", floor.outputs[1].second);
  size_t sink = 0;
  Interleave(
      state,
      [&] {
        return Timed([&] {
          if (!NXCNetCfgMergeConfig("/tmp/merge")) abort();
        });
      },
      [&] { return Timed([&] { sink += floor.Run(); }); });
  benchmark::DoNotOptimize(sink);
  NXC_Unload2(0);
}
BENCHMARK(BM_MergeEqualFile)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

// Removes the database files that imports kept aside.
void RemoveKeptDatabases(const char *path) {
  for (unsigned i = 0;; ++i) {
    std::string kept = std::string(path) + ".bak." + std::to_string(i);
    if (unlink(kept.c_str()) != 0) return;
  }
}

void BM_Import(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  const std::string records = JournalRecords(n, Journal::kLive);
  LoadDefaultDatabase(n);
  WriteFileOrDie("/tmp/import", kBackupVersionLine + records);
  if (!NXCNetCfgImportConfig("/tmp/import", kDatabasePath)) abort();
  RemoveKeptDatabases(kDatabasePath);
  // The floor: the backup read, the database kept aside, the new one
  // written and read back.
  const std::string floorDb = "/etc/zymtra/floor-networking";
  FileWork floor;
  floor.inputs = {"/tmp/import", floorDb};
  floor.outputs = {{floorDb, ReadFile(kDatabasePath)}};
  floor.renamed = {false};
  WriteFileOrDie(floorDb, floor.outputs[0].second);
  size_t sink = 0;
  Interleave(
      state,
      [&] {
        double t = Timed([&] {
          if (!NXCNetCfgImportConfig("/tmp/import", kDatabasePath)) abort();
        });
        RemoveKeptDatabases(kDatabasePath);
        return t;
      },
      [&] {
        double t = Timed([&] {
          if (rename(floorDb.c_str(), (floorDb + ".bak.0").c_str()) != 0) abort();
          sink += floor.Run();
        });
        unlink((floorDb + ".bak.0").c_str());
        return t;
      });
  benchmark::DoNotOptimize(sink);
  NXC_Unload2(0);
}
BENCHMARK(BM_Import)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---- Removing forwards ---------------------------------------------------------------

// n TCP forwards of vnet 8, on host ports 1..n.
std::string ForwardRecords(size_t n) {
  std::string text;
  char line[96];
  for (size_t i = 0; i < n; ++i) {
    snprintf(line, sizeof line, "add_nat_portfwd 8 tcp %zu 10.8.%zu.%zu %zu\n", 1 + i, i / 250 % 256,
             2 + i % 250, 1 + i % 60000);
    text += line;
  }
  return text;
}

void BM_RemoveAllForwards(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  const std::string path = "/etc/zymtra/remove-all";
  const std::string file = kVersionLine + ForwardRecords(n);
  std::string removals;
  char line[64];
  for (size_t i = 0; i < n; ++i) {
    snprintf(line, sizeof line, "remove_nat_portfwd 8 tcp %zu\n", 1 + i);
    removals += line;
  }
  FloorJournal floor("/etc/zymtra/floor-journal");
  Interleave(
      state,
      [&] {
        WriteFileOrDie(path, file);
        NXCNetworkConfigurationDB *db = nullptr;
        if (!NXCNetCfgLoad(path.c_str(), &db, false, false)) abort();
        double t = Timed([&] {
          if (!NXCNetCfgRemoveAllNATPortFwd(db, 8, true, true, /*writeRecords=*/true)) abort();
        });
        (void)NXCNetCfgUnload(&db, false);
        return t;
      },
      [&] {
        floor.Reset();
        return Timed([&] { floor.Append(removals.data(), removals.size()); });
      });
}
BENCHMARK(BM_RemoveAllForwards)->Arg(10000)->UseManualTime()->Unit(benchmark::kMillisecond);

// Every forward of a vnet removed one by one through the public calls: the
// first one enumerated, then removed, until none is left. The counters
// per_removal_us give the cost of one removal; it must not grow with n.
void BM_RemoveEveryForward(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  FloorJournal floor("/etc/zymtra/floor-journal");
  Interleave(
      state,
      [&] {
        WriteFileOrDie(kDatabasePath, kVersionLine + ForwardRecords(n));
        if (!NXC_Load(0)) abort();
        double t = Timed([&] {
          for (size_t removed = 0;; ++removed) {
            uint32_t cursor = 0, ipLength = 16;
            uint16_t hostPort = 0, vmPort = 0;
            char ip[16];
            if (!NXC_EnumNATPortForward("zynet8", true, &cursor, &hostPort, ip, &ipLength, &vmPort,
                                        nullptr, nullptr)) {
              if (removed != n) abort();
              break;
            }
            if (!NXC_SetNATPortForward("zynet8", true, hostPort, nullptr, 0, nullptr, 0)) abort();
          }
        });
        NXC_Unload2(0);
        return t;
      },
      [&] {
        floor.Reset();
        return Timed([&] {
          char line[64];
          for (size_t i = 0; i < n; ++i) {
            int length = snprintf(line, sizeof line, "remove_nat_portfwd 8 tcp %zu\n", 1 + i);
            floor.Append(line, static_cast<size_t>(length));
          }
        });
      });
  state.counters["lib_us_per_removal"] = state.counters["lib_us"] / static_cast<double>(n);
  state.counters["floor_us_per_removal"] = state.counters["floor_us"] / static_cast<double>(n);
}
BENCHMARK(BM_RemoveEveryForward)->Arg(1000)->Arg(20000)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

// ---- Memory per cached record ----------------------------------------------------------

size_t HeapInUse() {
  struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

// The floor: a plain hash-indexed cache of the same records, each key (the
// words that name a record) mapped to the rest of its line.
size_t PlainCacheBytes(const std::string &text, size_t *records) {
  size_t before = HeapInUse();
  auto *cache = new std::unordered_map<std::string, std::string>;
  size_t start = text.find('\n') + 1;  // after the version line
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    std::string_view line(text.data() + start, end - start);
    start = end + 1;
    // answer KEY VALUE / add_nat_portfwd V P PORT ... / add_dhcp_mac_to_ip V MAC IP
    size_t words = line.rfind("answer", 0) == 0 ? 2 : line.rfind("add_nat_portfwd", 0) == 0 ? 4 : 3;
    size_t cut = 0;
    for (size_t w = 0; w < words; ++w) cut = line.find(' ', cut) + 1;
    (*cache)[std::string(line.substr(0, cut - 1))] = std::string(line.substr(cut));
  }
  size_t bytes = HeapInUse() - before;
  *records = cache->size();
  delete cache;
  return bytes;
}

void BM_MemoryPerRecord(benchmark::State &state) {
  if (SkipWithoutSandbox(state)) return;
  const size_t n = static_cast<size_t>(state.range(0));
  const std::string text = kVersionLine + JournalRecords(n, Journal::kLive);
  WriteFileOrDie("/tmp/memory-networking", text);
  double libBytes = 0, floorBytes = 0;
  size_t floorRecords = 0;
  for (auto _ : state) {
    NXCNetworkConfigurationDB *db = nullptr;
    malloc_trim(0);
    size_t before = HeapInUse();
    if (!NXCNetCfgLoad("/tmp/memory-networking", &db, false, /*readOnly=*/true)) abort();
    libBytes = static_cast<double>(HeapInUse() - before);
    (void)NXCNetCfgUnload(&db, false);
    malloc_trim(0);
    floorBytes = static_cast<double>(PlainCacheBytes(text, &floorRecords));
  }
  const double live = static_cast<double>(LiveRecords(n, Journal::kLive));
  if (floorRecords != LiveRecords(n, Journal::kLive)) state.SkipWithError("record count");
  state.counters["lib_bytes_per_record"] = libBytes / live;
  state.counters["floor_bytes_per_record"] = floorBytes / live;
  state.counters["ratio"] = libBytes / floorBytes;
}
BENCHMARK(BM_MemoryPerRecord)->Arg(100000)->Iterations(1);

}  // namespace
}  // namespace nxc::bench
