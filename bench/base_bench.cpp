// base_bench.cpp - hash table insert and lookup at the sizes the database
// reaches (answers by name, port forwards by port).
#include "base/hash_table.h"

#include <stdio.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

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

}  // namespace
