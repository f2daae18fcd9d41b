// hash_table.cpp - hash tables keeping their entries in insertion order.
//
// The entries sit in one array in listing order (two words each), and an
// open-addressed index of (hash, position) slots finds them: a lookup reads
// a slot or two and the one item it names, an insertion appends to the
// array, and growing rehashes the slots from the hashes they hold without
// reading a key. A removed entry leaves a hole in the array; the holes are
// squeezed out once they outnumber the entries.
#include "base/hash_table.h"

#include <stdlib.h>
#include <string.h>

#include <new>

namespace nxc {

struct HashTable::Item {
  HashKey key;
  void *entry;  // kHole once removed
};

struct HashTable::Slot {
  uint32_t hash;
  uint32_t position;  // in the item array, plus one; 0 for an empty slot
};

namespace {

// The entry of a removed item: no caller's entry has this address.
char gHoleMark;
void *const kHole = &gHoleMark;

// The index doubles when more than three quarters of its slots are taken.
constexpr size_t kMaxLoadNum = 3, kMaxLoadDen = 4;
// Holes are squeezed out when they outnumber the entries, and there are at
// least this many of them.
constexpr size_t kMinHolesToCompact = 32;
constexpr size_t kMaxItems = UINT32_MAX - 1;

// The finaliser of splitmix64: every input bit affects every output bit,
// so keys that differ in a few bits (sequential ports, vnet numbers, names
// that differ in a digit) spread over all slots.
uint32_t Mix(uint64_t n) {
  n ^= n >> 30;
  n *= 0xbf58476d1ce4e5b9ull;
  n ^= n >> 27;
  n *= 0x94d049bb133111ebull;
  n ^= n >> 31;
  return static_cast<uint32_t>(n ^ (n >> 32));
}

uint32_t HashText(const char *s, size_t length) {
  // Eight bytes at a time, each word stirred into the sum before the next.
  constexpr uint64_t kStir = 0x9e3779b97f4a7c15ull;
  uint64_t h = length;
  for (; length >= 8; length -= 8, s += 8) {
    uint64_t word;
    memcpy(&word, s, 8);
    h = ((h << 5 | h >> 59) ^ word) * kStir;
  }
  uint64_t tail = 0;
  for (size_t i = 0; i < length; ++i) tail |= uint64_t{static_cast<unsigned char>(s[i])} << (8 * i);
  h = ((h << 5 | h >> 59) ^ tail) * kStir;
  return Mix(h);
}

uint32_t HashString(const char *s) {
  // A null key is a key of its own, not a crash.
  return s ? HashText(s, strlen(s)) : 0;
}

uint32_t HashNumber(uint64_t n) { return Mix(n); }

// The slot count that holds entries within the load limit.
size_t SlotsFor(size_t entries) {
  size_t slots = 8;
  while (slots * kMaxLoadNum / kMaxLoadDen < entries) slots *= 2;
  return slots;
}

}  // namespace

HashTable *HashTable::Create(Kind kind, uint32_t room, FreeEntryFn freeEntry) noexcept {
  const size_t entries = room == 0 ? 1 : room;
  const size_t slots = SlotsFor(entries);
  // The table, its first index and its first entry array come in one
  // allocation: one call, and the three lie together. An array that grows
  // moves out into one of its own.
  static_assert(sizeof(HashTable) % alignof(Item) == 0 && alignof(Item) >= alignof(Slot));
  const size_t itemBytes = entries * sizeof(Item), slotBytes = slots * sizeof(Slot);
  void *memory = malloc(sizeof(HashTable) + itemBytes + slotBytes);
  if (!memory) return nullptr;
  HashTable *table = new (memory) HashTable;
  char *arrays = static_cast<char *>(memory) + sizeof(HashTable);
  table->items_ = reinterpret_cast<Item *>(arrays);
  table->slots_ = reinterpret_cast<Slot *>(arrays + itemBytes);
  memset(table->slots_, 0, slotBytes);
  table->kind_ = kind;
  table->slotMask_ = slots - 1;
  table->itemCapacity_ = table->firstCapacity_ = entries;
  table->freeEntry_ = freeEntry;
  return table;
}

void HashTable::Destroy(HashTable *table) noexcept {
  if (!table) return;
  table->~HashTable();
  free(table);
}

HashTable::~HashTable() {
  if (freeEntry_) {
    for (size_t p = firstLive_; p < itemCount_; ++p) {
      if (Live(p)) freeEntry_(items_[p].entry);
    }
  }
  if (!OwnsArray(items_)) free(items_);
  if (!OwnsArray(slots_)) free(slots_);
}

bool HashTable::OwnsArray(const void *array) const noexcept {
  return array == static_cast<const void *>(this + 1) ||
         array == static_cast<const void *>(reinterpret_cast<const char *>(this + 1) +
                                            firstCapacity_ * sizeof(Item));
}

uint32_t HashTable::HashOf(HashKey key) const noexcept {
  return kind_ == Kind::kString ? HashString(key.str) : HashNumber(key.num);
}

bool HashTable::KeysEqual(HashKey a, HashKey b) const noexcept {
  if (kind_ == Kind::kInteger) return a.num == b.num;
  if (!a.str || !b.str) return a.str == b.str;
  return strcmp(a.str, b.str) == 0;
}

bool HashTable::Live(size_t position) const noexcept { return items_[position].entry != kHole; }

size_t HashTable::Probe(HashKey key, uint32_t hash) const noexcept {
  for (size_t i = hash & slotMask_;; i = (i + 1) & slotMask_) {
    const Slot &slot = slots_[i];
    if (slot.position == 0) return i;
    if (slot.hash == hash && KeysEqual(items_[slot.position - 1].key, key)) return i;
  }
}

// Puts every key of the index into a new one of slotCount slots. False,
// with nothing changed, when memory runs out.
bool HashTable::Rehash(size_t slotCount) noexcept {
  Slot *fresh = static_cast<Slot *>(calloc(slotCount, sizeof(Slot)));
  if (!fresh) return false;
  const size_t mask = slotCount - 1;
  for (size_t i = 0; i <= slotMask_; ++i) {
    const Slot &slot = slots_[i];
    if (slot.position == 0) continue;
    size_t j = slot.hash & mask;
    while (fresh[j].position != 0) j = (j + 1) & mask;
    fresh[j] = slot;
  }
  if (!OwnsArray(slots_)) free(slots_);
  slots_ = fresh;
  slotMask_ = mask;
  return true;
}

// Squeezes the holes out of the item array, keeping the order, and points
// the slots at the new positions. When the map from old to new positions
// cannot be had, the holes stay: they only cost space.
void HashTable::Compact() noexcept {
  uint32_t *moved = static_cast<uint32_t *>(malloc(itemCount_ * sizeof(uint32_t)));
  if (!moved) return;
  size_t kept = 0;
  for (size_t p = 0; p < itemCount_; ++p) {
    if (!Live(p)) continue;
    moved[p] = static_cast<uint32_t>(kept);
    items_[kept++] = items_[p];
  }
  for (size_t i = 0; i <= slotMask_; ++i) {
    if (slots_[i].position != 0) slots_[i].position = moved[slots_[i].position - 1] + 1;
  }
  free(moved);
  itemCount_ = kept;
  firstLive_ = 0;
}

bool HashTable::AppendItem(HashKey key, void *entry, uint32_t *position) noexcept {
  if (itemCount_ == itemCapacity_) {
    const size_t holes = itemCount_ - count_;
    if (holes >= kMinHolesToCompact && holes * 2 >= itemCount_) Compact();
  }
  if (itemCount_ == itemCapacity_) {
    if (itemCapacity_ >= kMaxItems) return false;
    size_t capacity = itemCapacity_ * 2 > kMaxItems ? kMaxItems : itemCapacity_ * 2;
    Item *grown = static_cast<Item *>(
        OwnsArray(items_) ? malloc(capacity * sizeof(Item)) : realloc(items_, capacity * sizeof(Item)));
    if (!grown) return false;
    if (OwnsArray(items_)) memcpy(grown, items_, itemCount_ * sizeof(Item));
    items_ = grown;
    itemCapacity_ = capacity;
  }
  items_[itemCount_] = {key, entry};
  *position = static_cast<uint32_t>(itemCount_++);
  return true;
}

bool HashTable::Add(size_t slot, HashKey key, uint32_t hash, void *entry) noexcept {
  const size_t slotCount = slotMask_ + 1;
  if ((count_ + 1) * kMaxLoadDen > slotCount * kMaxLoadNum) {
    // A table that cannot grow goes on slower, up to its last free slot.
    if (Rehash(slotCount * 2)) {
      slot = hash & slotMask_;
      while (slots_[slot].position != 0) slot = (slot + 1) & slotMask_;
    } else if (count_ + 1 >= slotCount) {
      return false;
    }
  }
  uint32_t position = 0;
  if (!AppendItem(key, entry, &position)) return false;
  slots_[slot] = {hash, position + 1};
  ++count_;
  return true;
}

void *HashTable::Vacate(size_t position) noexcept {
  void *entry = items_[position].entry;
  items_[position].entry = kHole;
  if (position == firstLive_) {
    while (firstLive_ < itemCount_ && !Live(firstLive_)) ++firstLive_;
  }
  return entry;
}

void *HashTable::Remove(size_t slot) noexcept {
  void *entry = Vacate(slots_[slot].position - 1);
  // Later keys of the probe run move back, so that no probe meets an empty
  // slot before its key.
  for (size_t i = slot, j = slot;;) {
    j = (j + 1) & slotMask_;
    if (slots_[j].position == 0) {
      slots_[i].position = 0;
      break;
    }
    const size_t home = slots_[j].hash & slotMask_;
    if (((j - home) & slotMask_) >= ((j - i) & slotMask_)) {
      slots_[i] = slots_[j];
      i = j;
    }
  }
  --count_;
  const size_t holes = itemCount_ - count_;
  if (holes >= kMinHolesToCompact && holes > count_) Compact();
  return entry;
}

bool HashTable::Insert(HashKey key, void *entry) noexcept {
  uint32_t hash = HashOf(key);
  size_t slot = Probe(key, hash);
  if (slots_[slot].position != 0) return false;
  return Add(slot, key, hash, entry);
}

void *HashTable::InsertOrLookup(HashKey key, void *entry, bool *inserted) noexcept {
  uint32_t hash = HashOf(key);
  size_t slot = Probe(key, hash);
  if (slots_[slot].position != 0) {
    if (inserted) *inserted = false;
    return items_[slots_[slot].position - 1].entry;
  }
  if (!Add(slot, key, hash, entry)) return nullptr;
  if (inserted) *inserted = true;
  return entry;
}

bool HashTable::Put(HashKey key, void *entry, bool moveToEnd, void **displaced) noexcept {
  uint32_t hash = HashOf(key);
  *displaced = nullptr;
  size_t slot = Probe(key, hash);
  if (slots_[slot].position == 0) return Add(slot, key, hash, entry);
  Item &item = items_[slots_[slot].position - 1];
  if (!moveToEnd || slots_[slot].position == itemCount_) {
    *displaced = item.entry;
    item = {key, entry};
    return true;
  }
  // The key moves to the end: a new item there, a hole where it stood.
  uint32_t position = 0;
  if (!AppendItem(key, entry, &position)) return false;
  // Appending may have squeezed the holes out; the slot says where the old
  // item went.
  *displaced = Vacate(slots_[slot].position - 1);
  slots_[slot].position = position + 1;
  return true;
}

bool HashTable::Delete(HashKey key) noexcept {
  size_t slot = Probe(key, HashOf(key));
  if (slots_[slot].position == 0) return false;
  // Remove first: the key usually lives inside the entry being freed.
  void *entry = Remove(slot);
  if (freeEntry_) freeEntry_(entry);
  return true;
}

void *HashTable::Take(HashKey key) noexcept {
  size_t slot = Probe(key, HashOf(key));
  return slots_[slot].position == 0 ? nullptr : Remove(slot);
}

void *HashTable::Lookup(HashKey key) const noexcept {
  const Slot &slot = slots_[Probe(key, HashOf(key))];
  return slot.position == 0 ? nullptr : items_[slot.position - 1].entry;
}

void HashTable::Prefetch(uint64_t key) const noexcept {
  __builtin_prefetch(&slots_[HashNumber(key) & slotMask_]);
}

void HashTable::Prefetch(std::string_view key) const noexcept {
  __builtin_prefetch(&slots_[HashText(key.data(), key.size()) & slotMask_]);
}

size_t HashTable::Count() const noexcept { return count_; }

bool HashTable::Snapshot(void ***entries, size_t *count) const noexcept {
  *entries = nullptr;
  *count = 0;
  if (count_ == 0) return true;
  void **array = static_cast<void **>(malloc(count_ * sizeof(void *)));
  if (!array) return false;
  size_t i = 0;
  for (size_t p = firstLive_; p < itemCount_; ++p) {
    if (Live(p)) array[i++] = items_[p].entry;
  }
  *entries = array;
  *count = i;
  return true;
}

void *HashTable::EntryAt(size_t index, Cursor *cursor) const noexcept {
  if (index >= count_) return nullptr;
  size_t p = cursor->position_, at = cursor->index_;
  if (!cursor->placed_ || at > index) {
    p = firstLive_;
    at = 0;
  }
  while (!Live(p)) ++p;
  for (; at < index; ++at) {
    do ++p;
    while (!Live(p));
  }
  cursor->placed_ = true;
  cursor->position_ = p;
  cursor->index_ = at;
  return items_[p].entry;
}

size_t HashTable::ForEach(VisitFn fn, void *context) const noexcept {
  size_t failures = 0;
  for (size_t p = firstLive_; p < itemCount_; ++p) {
    if (Live(p) && fn(items_[p].key, items_[p].entry, context) != 0) ++failures;
  }
  return failures;
}

}  // namespace nxc
