// hash_table.h - string- and integer-keyed hash tables of owned entries.
//
// The table stores entry pointers under a key, in an array kept in listing
// order, with an open-addressed index of that array beside it (a table
// made small does without one until it grows). A string key is not copied:
// it must live as long as its entry (normally it is a field of the entry).
// Entries are freed with the table's free function when they are deleted
// or when the table is destroyed. Keys compare exactly (case matters).
// Listings (Snapshot, ForEach) give the entries in insertion order, which a
// replaced key (Delete then Insert) moves to the end.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string_view>

namespace nxc {

union HashKey {
  const char *str;
  uint64_t num;
};
inline HashKey StrKey(const char *s) {
  HashKey k;
  k.str = s;
  return k;
}
inline HashKey NumKey(uint64_t n) {
  HashKey k;
  k.num = n;
  return k;
}

class HashTable {
 public:
  enum class Kind { kString, kInteger };
  using FreeEntryFn = void (*)(void *entry);
  // Called for each entry by ForEach; a non-zero result counts a failure.
  using VisitFn = int (*)(HashKey key, void *entry, void *context);

  // A new empty table with room for about the given number of entries (it
  // grows as needed). freeEntry may be null (entries are then not freed). Returns
  // null when memory runs out.
  static HashTable *Create(Kind kind, uint32_t room, FreeEntryFn freeEntry) noexcept;
  // Frees every entry, then the table. Null is fine.
  static void Destroy(HashTable *table) noexcept;

  HashTable(const HashTable &) = delete;
  HashTable &operator=(const HashTable &) = delete;

  // Inserts entry under key. Fails, leaving the table and entry untouched,
  // when the key exists or memory runs out.
  [[nodiscard]] bool Insert(HashKey key, void *entry) noexcept;
  // Returns the entry already under key, or inserts entry and returns it.
  // *inserted says which happened. Null (nothing inserted) when memory runs
  // out.
  void *InsertOrLookup(HashKey key, void *entry, bool *inserted) noexcept;
  // Puts entry under key with one lookup. When the key is there already,
  // its entry is handed back in *displaced (not freed) and entry takes its
  // place: at the end of the listing order when moveToEnd (as Delete then
  // Insert would put it), else where the old one stood; *displaced is null
  // for a new key. False, with nothing changed, when memory runs out.
  [[nodiscard]] bool Put(HashKey key, void *entry, bool moveToEnd, void **displaced) noexcept;
  // Removes key and frees its entry. False when the key is absent.
  [[nodiscard]] bool Delete(HashKey key) noexcept;
  // Removes key without freeing its entry and returns the entry (null when
  // absent).
  void *Take(HashKey key) noexcept;
  void *Lookup(HashKey key) const noexcept;
  // Hints the processor to fetch the slot where a lookup of key starts, so
  // that a lookup or insertion soon after finds it in the cache. A string
  // key is given by its text.
  void Prefetch(uint64_t key) const noexcept;
  void Prefetch(std::string_view key) const noexcept;
  size_t Count() const noexcept;
  FreeEntryFn FreeFunction() const noexcept { return freeEntry_; }
  // A malloc'd array of the entries in listing order (the caller frees the
  // array, not the entries). An empty table gives a null array and count 0.
  // False, with *entries null, when memory runs out.
  [[nodiscard]] bool Snapshot(void ***entries, size_t *count) const noexcept;
  // A place in the listing order, for walking it by index.
  class Cursor {
    friend class HashTable;
    bool placed_ = false;
    size_t position_ = 0;  // in the entry array
    size_t index_ = 0;     // in listing order
  };
  // The entry at index in listing order, or null past the end. The walk
  // goes on from cursor when that stands at or before index, else from the
  // first entry, and leaves cursor at index; so reading the indexes in
  // order costs one step each. A cursor is good until the table changes;
  // a new one (or one reset to Cursor()) starts from the first entry.
  void *EntryAt(size_t index, Cursor *cursor) const noexcept;
  // Calls fn on each entry in listing order; returns how many calls
  // returned non-zero. fn must not change the table.
  size_t ForEach(VisitFn fn, void *context) const noexcept;

 private:
  struct Item;
  struct Slot;
  // Where a key stands: the position of its item (none when absent) and,
  // in a table with an index, the slot holding the key or the empty slot
  // where its probe ended.
  struct Place {
    size_t slot;
    size_t position;
  };
  HashTable() = default;
  ~HashTable();
  uint32_t HashOf(HashKey key) const noexcept;
  [[nodiscard]] bool KeysEqual(HashKey a, HashKey b) const noexcept;
  Place Find(HashKey key, uint32_t hash) const noexcept;
  // The slot holding key, or the empty slot where its probe ends.
  size_t Probe(HashKey key, uint32_t hash) const noexcept;
  // Gives a table without an index one, and twice its room for items,
  // which keep their positions. False, with nothing changed, when memory
  // runs out.
  [[nodiscard]] bool BuildIndex() noexcept;
  [[nodiscard]] bool Live(size_t position) const noexcept;
  // Adds a new key at the place Find gave for it.
  [[nodiscard]] bool Add(Place place, HashKey key, uint32_t hash, void *entry) noexcept;
  // Removes the key Find placed from the index and its item from the
  // listing; returns the entry.
  void *Remove(Place place) noexcept;
  // Leaves a hole at position; returns the entry that stood there.
  void *Vacate(size_t position) noexcept;
  [[nodiscard]] bool AppendItem(HashKey key, void *entry, uint32_t *position) noexcept;
  [[nodiscard]] bool Rehash(size_t slotCount) noexcept;
  void Compact() noexcept;
  // True for the first item or slot array, which lives in the table's own
  // allocation and is not freed apart from it.
  [[nodiscard]] bool OwnsArray(const void *array) const noexcept;

  Kind kind_ = Kind::kString;
  FreeEntryFn freeEntry_ = nullptr;
  // The entries in listing order; a removed one leaves a hole, which
  // compaction closes once the holes outnumber the entries.
  Item *items_ = nullptr;
  size_t itemCount_ = 0;  // holes included
  size_t itemCapacity_ = 0;
  size_t firstCapacity_ = 0;  // of the item array in the table's allocation
  size_t firstLive_ = 0;  // no entry before this position
  // The index: a power of two of slots, probed linearly from a key's hash.
  // A small table has none (null) until it outgrows its first item array;
  // tags_ then holds a byte of each item's hash, by position.
  Slot *slots_ = nullptr;
  uint8_t *tags_ = nullptr;
  size_t slotMask_ = 0;
  size_t count_ = 0;
};

struct HashTableDeleter {
  void operator()(HashTable *t) const { HashTable::Destroy(t); }
};
using HashTablePtr = std::unique_ptr<HashTable, HashTableDeleter>;

}  // namespace nxc
