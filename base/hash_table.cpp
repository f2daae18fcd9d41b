// hash_table.cpp - chained hash tables keeping their entries in insertion
// order.
#include "base/hash_table.h"

#include <stdlib.h>
#include <string.h>

#include <new>

namespace nxc {

// One entry: its bucket chain link and its place in the listing order.
// Five words and no more, since a large table has one per entry: the hash
// is computed again when the table grows rather than kept here.
struct HashTable::Node {
  HashKey key;
  void *entry;
  Node *chain;  // next node of the same bucket
  Node *prev;   // listing order
  Node *next;
};

namespace {

// A table holds up to this many entries per bucket on average before it
// doubles its bucket array.
constexpr size_t kMaxLoad = 2;

uint32_t HashString(const char *s) {
  // 32-bit FNV-1a.
  uint32_t h = 2166136261u;
  if (!s) return h;  // a null key is a key of its own, not a crash
  for (const unsigned char *p = reinterpret_cast<const unsigned char *>(s); *p; ++p) {
    h ^= *p;
    h *= 16777619u;
  }
  return h;
}

uint32_t HashNumber(uint64_t n) {
  // The finaliser of splitmix64: every input bit affects every output bit,
  // so sequential numbers (ports, vnet numbers) spread over all buckets.
  n ^= n >> 30;
  n *= 0xbf58476d1ce4e5b9ull;
  n ^= n >> 27;
  n *= 0x94d049bb133111ebull;
  n ^= n >> 31;
  return static_cast<uint32_t>(n ^ (n >> 32));
}

}  // namespace

HashTable *HashTable::Create(Kind kind, uint32_t buckets, FreeEntryFn freeEntry) noexcept {
  if (buckets == 0) buckets = 1;
  HashTable *table = new (std::nothrow) HashTable;
  if (!table) return nullptr;
  table->buckets_ = static_cast<Node **>(calloc(buckets, sizeof(Node *)));
  if (!table->buckets_) {
    delete table;
    return nullptr;
  }
  table->kind_ = kind;
  table->bucketCount_ = buckets;
  table->freeEntry_ = freeEntry;
  return table;
}

void HashTable::Destroy(HashTable *table) noexcept { delete table; }

HashTable::~HashTable() {
  Node *node = first_;
  while (node) {
    Node *next = node->next;
    if (freeEntry_) freeEntry_(node->entry);
    free(node);
    node = next;
  }
  free(buckets_);
}

uint32_t HashTable::HashOf(HashKey key) const noexcept {
  return kind_ == Kind::kString ? HashString(key.str) : HashNumber(key.num);
}

bool HashTable::KeysEqual(HashKey a, HashKey b) const noexcept {
  if (kind_ == Kind::kInteger) return a.num == b.num;
  if (!a.str || !b.str) return a.str == b.str;
  return strcmp(a.str, b.str) == 0;
}

HashTable::Node *HashTable::Find(HashKey key, uint32_t hash) const noexcept {
  for (Node *node = buckets_[hash % bucketCount_]; node; node = node->chain) {
    if (KeysEqual(node->key, key)) return node;
  }
  return nullptr;
}

void HashTable::UnlinkOrder(Node *node) noexcept {
  if (node->prev) {
    node->prev->next = node->next;
  } else {
    first_ = node->next;
  }
  if (node->next) {
    node->next->prev = node->prev;
  } else {
    last_ = node->prev;
  }
}

void HashTable::LinkOrderAtEnd(Node *node) noexcept {
  node->prev = last_;
  node->next = nullptr;
  if (last_) {
    last_->next = node;
  } else {
    first_ = node;
  }
  last_ = node;
}

HashTable::Node *HashTable::Unlink(HashKey key) noexcept {
  Node **link = &buckets_[HashOf(key) % bucketCount_];
  while (*link && !KeysEqual((*link)->key, key)) link = &(*link)->chain;
  Node *node = *link;
  if (!node) return nullptr;
  *link = node->chain;
  UnlinkOrder(node);
  --count_;
  return node;
}

HashTable::Node *HashTable::Add(HashKey key, uint32_t hash, void *entry) noexcept {
  Node *node = static_cast<Node *>(malloc(sizeof(Node)));
  if (!node) return nullptr;
  node->key = key;
  node->entry = entry;
  Node **bucket = &buckets_[hash % bucketCount_];
  node->chain = *bucket;
  *bucket = node;
  LinkOrderAtEnd(node);
  ++count_;
  if (count_ > kMaxLoad * bucketCount_) Grow();
  return node;
}

// Doubles the bucket array. When that is impossible the table keeps its
// buckets and only gets slower, so a failure here is not reported.
void HashTable::Grow() noexcept {
  if (bucketCount_ > UINT32_MAX / 2) return;
  uint32_t newCount = bucketCount_ * 2;
  Node **newBuckets = static_cast<Node **>(calloc(newCount, sizeof(Node *)));
  if (!newBuckets) return;
  for (Node *node = first_; node; node = node->next) {
    Node **bucket = &newBuckets[HashOf(node->key) % newCount];
    node->chain = *bucket;
    *bucket = node;
  }
  free(buckets_);
  buckets_ = newBuckets;
  bucketCount_ = newCount;
}

bool HashTable::Insert(HashKey key, void *entry) noexcept {
  uint32_t hash = HashOf(key);
  if (Find(key, hash)) return false;
  return Add(key, hash, entry) != nullptr;
}

void *HashTable::InsertOrLookup(HashKey key, void *entry, bool *inserted) noexcept {
  uint32_t hash = HashOf(key);
  if (Node *node = Find(key, hash)) {
    if (inserted) *inserted = false;
    return node->entry;
  }
  if (!Add(key, hash, entry)) return nullptr;
  if (inserted) *inserted = true;
  return entry;
}

bool HashTable::Put(HashKey key, void *entry, bool moveToEnd, void **displaced) noexcept {
  uint32_t hash = HashOf(key);
  *displaced = nullptr;
  Node *node = Find(key, hash);
  if (!node) return Add(key, hash, entry) != nullptr;
  *displaced = node->entry;
  node->key = key;
  node->entry = entry;
  if (moveToEnd && node != last_) {
    UnlinkOrder(node);
    LinkOrderAtEnd(node);
  }
  return true;
}

bool HashTable::Delete(HashKey key) noexcept {
  // Unlink first: the key usually lives inside the entry being freed.
  Node *node = Unlink(key);
  if (!node) return false;
  if (freeEntry_) freeEntry_(node->entry);
  free(node);
  return true;
}

void *HashTable::Take(HashKey key) noexcept {
  Node *node = Unlink(key);
  if (!node) return nullptr;
  void *entry = node->entry;
  free(node);
  return entry;
}

void *HashTable::Lookup(HashKey key) const noexcept {
  Node *node = Find(key, HashOf(key));
  return node ? node->entry : nullptr;
}

size_t HashTable::Count() const noexcept { return count_; }

bool HashTable::Snapshot(void ***entries, size_t *count) const noexcept {
  *entries = nullptr;
  *count = 0;
  if (count_ == 0) return true;
  void **array = static_cast<void **>(malloc(count_ * sizeof(void *)));
  if (!array) return false;
  size_t i = 0;
  for (Node *node = first_; node; node = node->next) array[i++] = node->entry;
  *entries = array;
  *count = i;
  return true;
}

size_t HashTable::CopyEntriesUnordered(void **out) const noexcept {
  // A bucket's first node is fetched 16 buckets ahead; 8 buckets ahead it
  // has come, and the second node of the bucket is fetched.
  constexpr uint32_t kAhead = 8;
  size_t n = 0;
  for (uint32_t b = 0; b < bucketCount_; ++b) {
    if (b + 2 * kAhead < bucketCount_) __builtin_prefetch(buckets_[b + 2 * kAhead]);
    if (b + kAhead < bucketCount_ && buckets_[b + kAhead])
      __builtin_prefetch(buckets_[b + kAhead]->chain);
    for (const Node *node = buckets_[b]; node; node = node->chain) out[n++] = node->entry;
  }
  return n;
}

void *HashTable::EntryAt(size_t index, Cursor *cursor) const noexcept {
  if (index >= count_) return nullptr;
  const Node *node = static_cast<const Node *>(cursor->node_);
  size_t at = cursor->index_;
  if (!node || at > index) {
    node = first_;
    at = 0;
  }
  for (; at < index; ++at) node = node->next;
  cursor->node_ = node;
  cursor->index_ = at;
  return node->entry;
}

size_t HashTable::ForEach(VisitFn fn, void *context) const noexcept {
  size_t failures = 0;
  for (Node *node = first_; node; node = node->next) {
    if (fn(node->key, node->entry, context) != 0) ++failures;
  }
  return failures;
}

}  // namespace nxc
