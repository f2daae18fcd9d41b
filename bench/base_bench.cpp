// base_bench.cpp - hash table insert and lookup at the sizes the database
// reaches (answers by name, port forwards by port); SHA-1 of two messages
// side by side beside one alone.
#include "base/hash_table.h"
#include "base/sha1.h"

#include <stdio.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"

namespace {

using nxc::HashTable;
using nxc::HashTablePtr;

std::vector<std::string> MakeKeys(size_t n) {
  std::vector<std::string> keys;
  keys.reserve(n);
  char key[48];
  for (size_t i = 0; i < n; ++i) {
    snprintf(key, sizeof key, "VNET_%zu_HOSTONLY_SUBNET", i);
    keys.emplace_back(key);
  }
  return keys;
}

void BM_StringInsert(benchmark::State &state) {
  std::vector<std::string> keys = MakeKeys(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    HashTablePtr table(HashTable::Create(HashTable::Kind::kString, 64, nullptr));
    for (const std::string &k : keys) benchmark::DoNotOptimize(table->Insert(nxc::StrKey(k.c_str()), table.get()));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StringInsert)->Range(64, 64 << 10);

void BM_StringLookup(benchmark::State &state) {
  std::vector<std::string> keys = MakeKeys(static_cast<size_t>(state.range(0)));
  HashTablePtr table(HashTable::Create(HashTable::Kind::kString, 64, nullptr));
  for (const std::string &k : keys) (void)table->Insert(nxc::StrKey(k.c_str()), table.get());
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table->Lookup(nxc::StrKey(keys[i].c_str())));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StringLookup)->Range(64, 64 << 10);

void BM_IntegerInsertLookup(benchmark::State &state) {
  const uint64_t n = static_cast<uint64_t>(state.range(0));
  for (auto _ : state) {
    HashTablePtr table(HashTable::Create(HashTable::Kind::kInteger, 512, nullptr));
    for (uint64_t port = 0; port < n; ++port) (void)table->Insert(nxc::NumKey(port), table.get());
    for (uint64_t port = 0; port < n; ++port) benchmark::DoNotOptimize(table->Lookup(nxc::NumKey(port)));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * 2);
}
BENCHMARK(BM_IntegerInsertLookup)->Range(64, 64 << 10);

// The protected block of a dhcpd.conf with 10k static leases, old and new,
// hashed side by side (lib) beside one of them alone (floor): the ratio is
// what the second message costs, 1 when it hides wholly in the first's
// waits.
void BM_Sha1Both(benchmark::State &state) {
  const size_t size = static_cast<size_t>(state.range(0));
  std::string a(size, 'a'), b(size, 'b');
  uint8_t digest[nxc::kSha1DigestSize];
  nxc::bench::Interleave(
      state,
      [&] {
        return nxc::bench::Timed([&] {
          nxc::Sha1 x, y;
          nxc::Sha1UpdateBoth(&x, a.data(), &y, b.data(), size);
          x.Final(digest);
          y.Final(digest);
        });
      },
      [&] { return nxc::bench::Timed([&] { nxc::Sha1Digest(a.data(), size, digest); }); });
  benchmark::DoNotOptimize(digest);
}
BENCHMARK(BM_Sha1Both)->Arg(2200000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
