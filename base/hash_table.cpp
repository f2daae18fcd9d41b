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

#ifdef __SSE2__
#include <emmintrin.h>
#endif

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
// A table made for at most this many entries has no index until it
// outgrows its first array: a lookup compares a byte of the hash kept for
// each item, and a key only where that matches.
constexpr size_t kMaxUnindexed = 16;
// Its tags take this many bytes whatever its room, so that they are
// compared all at once.
constexpr size_t kTagBytes = 16;
static_assert(kMaxUnindexed <= kTagBytes && kTagBytes <= 32);
// The position of a key that has no item.
constexpr size_t kNone = SIZE_MAX;

uint8_t TagOf(uint32_t hash) { return static_cast<uint8_t>(hash >> 24); }

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
  // Eight bytes at a time, each word stirred into the sum before the next;
  // the last word of a text of eight bytes or more is its last eight bytes,
  // which may overlap the word before.
  constexpr uint64_t kStir = 0x9e3779b97f4a7c15ull;
  uint64_t h = length, tail = 0;
  if (length >= 8) {
    const char *last = s + length - 8;
    for (uint64_t word; s < last; s += 8) {
      memcpy(&word, s, 8);
      h = ((h << 5 | h >> 59) ^ word) * kStir;
    }
    memcpy(&tail, last, 8);
  } else {
    for (size_t i = 0; i < length; ++i) tail |= uint64_t{static_cast<unsigned char>(s[i])} << (8 * i);
  }
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
  const bool indexed = entries > kMaxUnindexed;
  const size_t slots = indexed ? SlotsFor(entries) : 0;
  // The table and its first arrays come in one allocation: one call, and
  // they lie together. An array that grows moves out into one of its own.
  static_assert(alignof(Item) >= alignof(Slot));
  const size_t itemBytes = entries * sizeof(Item), slotBytes = slots * sizeof(Slot);
  const size_t tagBytes = indexed ? 0 : kTagBytes;
  void *memory = malloc(sizeof(HashTable) + itemBytes + slotBytes + tagBytes);
  if (!memory) return nullptr;
  HashTable *table = new (memory) HashTable;
  char *arrays = static_cast<char *>(memory) + sizeof(HashTable);
  table->items_ = reinterpret_cast<Item *>(arrays);
  if (indexed) {
    table->slots_ = reinterpret_cast<Slot *>(arrays + itemBytes);
    memset(table->slots_, 0, slotBytes);
    table->slotMask_ = slots - 1;
  } else {
    table->tags_ = reinterpret_cast<uint8_t *>(arrays + itemBytes);
    memset(table->tags_, 0, tagBytes);
  }
  table->kind_ = kind;
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

HashTable::Place HashTable::Find(HashKey key, uint32_t hash) const noexcept {
  if (!slots_) {
    // One bit for each position whose tag matches, of those that may hold
    // an entry.
    const uint8_t tag = TagOf(hash);
    uint32_t matches = 0;
#ifdef __SSE2__
    static_assert(kTagBytes == sizeof(__m128i));
    const __m128i tags = _mm_loadu_si128(reinterpret_cast<const __m128i *>(tags_));
    matches = static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(tags, _mm_set1_epi8(static_cast<char>(tag)))));
#else
    for (size_t p = 0; p < kTagBytes; ++p) matches |= uint32_t{tags_[p] == tag} << p;
#endif
    matches &= ((uint32_t{1} << itemCount_) - 1) & ~((uint32_t{1} << firstLive_) - 1);
    for (; matches != 0; matches &= matches - 1) {
      const size_t p = static_cast<size_t>(__builtin_ctz(matches));
      if (Live(p) && KeysEqual(items_[p].key, key)) return {kNone, p};
    }
    return {kNone, kNone};
  }
  const size_t slot = Probe(key, hash);
  return {slot, slots_[slot].position == 0 ? kNone : slots_[slot].position - 1};
}

bool HashTable::BuildIndex() noexcept {
  const size_t capacity = itemCapacity_ * 2, slotCount = SlotsFor(capacity);
  Item *items = static_cast<Item *>(malloc(capacity * sizeof(Item)));
  Slot *slots = static_cast<Slot *>(calloc(slotCount, sizeof(Slot)));
  if (!items || !slots) {
    free(items);
    free(slots);
    return false;
  }
  memcpy(items, items_, itemCount_ * sizeof(Item));
  const size_t mask = slotCount - 1;
  for (size_t p = firstLive_; p < itemCount_; ++p) {
    if (!Live(p)) continue;
    const uint32_t hash = HashOf(items[p].key);
    size_t j = hash & mask;
    while (slots[j].position != 0) j = (j + 1) & mask;
    slots[j] = {hash, static_cast<uint32_t>(p + 1)};
  }
  items_ = items;
  itemCapacity_ = capacity;
  slots_ = slots;
  slotMask_ = mask;
  tags_ = nullptr;
  return true;
}

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

bool HashTable::Add(Place place, HashKey key, uint32_t hash, void *entry) noexcept {
  if (!slots_) {
    if (itemCount_ < itemCapacity_) {
      tags_[itemCount_] = TagOf(hash);
      items_[itemCount_++] = {key, entry};
      ++count_;
      return true;
    }
    if (!BuildIndex()) return false;
    place.slot = Probe(key, hash);
  }
  size_t slot = place.slot;
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

void *HashTable::Remove(Place place) noexcept {
  if (!slots_) {
    --count_;
    return Vacate(place.position);
  }
  const size_t slot = place.slot;
  void *entry = Vacate(place.position);
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
  const uint32_t hash = HashOf(key);
  const Place place = Find(key, hash);
  return place.position == kNone && Add(place, key, hash, entry);
}

void *HashTable::InsertOrLookup(HashKey key, void *entry, bool *inserted) noexcept {
  const uint32_t hash = HashOf(key);
  const Place place = Find(key, hash);
  if (place.position != kNone) {
    if (inserted) *inserted = false;
    return items_[place.position].entry;
  }
  if (!Add(place, key, hash, entry)) return nullptr;
  if (inserted) *inserted = true;
  return entry;
}

bool HashTable::Put(HashKey key, void *entry, bool moveToEnd, void **displaced) noexcept {
  const uint32_t hash = HashOf(key);
  *displaced = nullptr;
  Place place = Find(key, hash);
  if (place.position == kNone) return Add(place, key, hash, entry);
  if (!moveToEnd || place.position + 1 == itemCount_) {
    Item &item = items_[place.position];
    *displaced = item.entry;
    item = {key, entry};
    return true;
  }
  // The key moves to the end: a new item there, a hole where it stood.
  if (!slots_) {
    if (itemCount_ < itemCapacity_) {
      tags_[itemCount_] = TagOf(hash);
      items_[itemCount_++] = {key, entry};
      *displaced = Vacate(place.position);
      return true;
    }
    if (!BuildIndex()) return false;
    place.slot = Probe(key, hash);  // the new index holds the key
  }
  uint32_t position = 0;
  if (!AppendItem(key, entry, &position)) return false;
  // Appending may have squeezed the holes out; the slot says where the old
  // item went.
  *displaced = Vacate(slots_[place.slot].position - 1);
  slots_[place.slot].position = position + 1;
  return true;
}

bool HashTable::Delete(HashKey key) noexcept {
  const Place place = Find(key, HashOf(key));
  if (place.position == kNone) return false;
  // Remove first: the key usually lives inside the entry being freed.
  void *entry = Remove(place);
  if (freeEntry_) freeEntry_(entry);
  return true;
}

void *HashTable::Take(HashKey key) noexcept {
  const Place place = Find(key, HashOf(key));
  return place.position == kNone ? nullptr : Remove(place);
}

void *HashTable::Lookup(HashKey key) const noexcept {
  const Place place = Find(key, HashOf(key));
  return place.position == kNone ? nullptr : items_[place.position].entry;
}

void HashTable::Prefetch(uint64_t key) const noexcept {
  if (slots_) __builtin_prefetch(&slots_[HashNumber(key) & slotMask_]);
}

void HashTable::Prefetch(std::string_view key) const noexcept {
  if (slots_) __builtin_prefetch(&slots_[HashText(key.data(), key.size()) & slotMask_]);
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
