// record_table.h - what the record families of the database share: the
// descriptor each family gives of itself, and the typed table that holds a
// family's entries.
//
// A family is one kind of record with its "add" and "remove" keyword: the
// answers, NAT port forwards, DHCP MAC-to-IP mappings, bridge mappings and
// NAT prefixes. Each family's file holds its entry type, its descriptor
// (one constexpr RecordFamily) and all of its code; the generic code finds
// a family by keyword (the loader) or by record type (the writers), and
// never switches on the family.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "base/byte_buffer.h"
#include "base/hash_table.h"
#include "nexcfg_internal.h"

namespace nxc {

struct RecordFamily {
  // The type of the family's "add" record; its "remove" record's is the
  // next one.
  uint32_t addType;
  // The first words of the two records; a line's first word matches one
  // without regard to case.
  std::string_view addKeyword;
  std::string_view removeKeyword;
  // The family's table key: a text field of the entry, or a number.
  HashTable::Kind keyKind;
  // Replays one record into db: type is the add or the remove type, rest
  // the line after the keyword and its blank. Logs its own reason (at
  // LOG_WRN) and returns false for a record it cannot take.
  bool (*parse)(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest);
  // Appends the record line of an entry (an add record, or a removal when
  // !add): keyword, a blank, the fields, "\n". False, with nothing
  // appended, when memory runs out.
  bool (*format)(ByteBuffer *out, std::string_view keyword, bool add, const void *entry);
  // Frees an entry and the texts it owns, logging what it frees.
  HashTable::FreeEntryFn free;
  // Puts a listing of the family's entries into the order in which the
  // compact rewrite writes them; null keeps the table's own order.
  void (*sortForRewrite)(void **entries, size_t count);
  // Hints the processor to fetch the table slot that replaying a record
  // (rest as for parse) will read, before the records ahead of it are
  // replayed; it reads the fields only as far as it needs and checks
  // nothing. Null for a family whose tables stay small.
  void (*prefetch)(NXCNetworkConfigurationDB *db, std::string_view rest);

  constexpr uint32_t removeType() const { return addType + 1; }
};

// The memory of the answer, port forward and DHCP mapping entries. Entries
// are cut one after the other from blocks of a few kilobytes, each thread
// filling a block of its own, so that a load's entries lie together in
// memory and cost no allocation of their own and only a word beyond their
// size; a block is freed with the last of its entries. Null when memory
// runs out.
void *AllocEntry(size_t size);
// Frees an entry AllocEntry gave; null is fine.
void FreeEntry(void *entry);
// While one lives, the thread's FreeEntry calls on entries of one block in
// a row give the block back its references together, when the run ends or
// the batch does. For freeing many entries at once; one nested in another
// leaves the work to the outer one.
class EntryReleaseBatch {
 public:
  EntryReleaseBatch();
  ~EntryReleaseBatch();
  EntryReleaseBatch(const EntryReleaseBatch &) = delete;
  EntryReleaseBatch &operator=(const EntryReleaseBatch &) = delete;

 private:
  bool outer_;
};

// The value of the decimal digits a token starts with, for a prefetch:
// nothing checked, and a large number wraps.
inline uint32_t LeadingNumber(std::string_view token) {
  uint32_t value = 0;
  for (char c : token) {
    const unsigned digit = static_cast<unsigned char>(c) - unsigned{'0'};
    if (digit > 9) break;
    value = value * 10 + digit;
  }
  return value;
}

// The five families, each defined beside its code.
extern const RecordFamily kAnswerRecords;        // answers.cpp
extern const RecordFamily kPortForwardRecords;   // port_forwards.cpp
extern const RecordFamily kDhcpMappingRecords;   // dhcp_mappings.cpp
extern const RecordFamily kBridgeMappingRecords; // bridge_mappings.cpp
extern const RecordFamily kNatPrefixRecords;     // nat_prefixes.cpp

// The family of a record type 1..10, or null.
const RecordFamily *FamilyOfType(uint32_t type);
// The family one of whose keywords word is (compared without regard to
// case, in the order of the record types), with the record's type in
// *type; null when word is no keyword.
const RecordFamily *FamilyOfKeyword(std::string_view word, uint32_t *type);
// Appends the record line of type for an entry of its family; false, with
// nothing appended, when memory runs out or the type is unknown.
[[nodiscard]] bool AppendRecord(ByteBuffer *out, uint32_t type, const void *entry);

// The lines an enumeration writes under its caller's name.
struct EnumTexts {
  const char *noTable;      // LOG_ERR: the family has no table here
  const char *arrayBuilt;   // LOG_INFO2: the first index read since the table changed
  const char *atEnd;        // LOG_INFO2: the index is past the last entry
};

// One family's hash table with what enumeration reads. An enumeration sees
// the table's listing order, fixed until the table changes; its first
// index after a change counts as building the enumeration array (and says
// so), and each later index is one step on from the one read before, so
// reading an index after every removal costs no rebuild. A
// zeroed table is a valid one that does not exist yet; it is created for
// its first entry and freed by Clear.
class RecordTableBase {
 public:
  [[nodiscard]] bool exists() const { return table_ != nullptr; }
  HashTable *hash() const { return table_; }
  size_t Count() const { return table_ ? table_->Count() : 0; }

  // Creates the empty table with the family's key kind and free function
  // (a table that exists stays); false when memory runs out.
  [[nodiscard]] bool Create(const RecordFamily &family);
  // Create for a per-vnet table, which says so: "Allocated hash table for
  // zynet: %d" at LOG_INFO2 under fn when it creates it.
  [[nodiscard]] bool CreateForVnet(const RecordFamily &family, uint32_t vnet, const char *fn);
  // Deletes (and frees) the entry under key; false when there is none.
  [[nodiscard]] bool Remove(HashKey key);
  // Frees the table, its entries and its array; the table then does not
  // exist.
  void Clear();

  // Builds the enumeration array if there is none; false when the table
  // does not exist or memory runs out.
  [[nodiscard]] bool BuildArray();
  size_t ArrayCount() const { return arrayCount_; }

  // Where enumeration stands: whether it has started since the table last
  // changed, and the index it read last.
  struct EnumState {
    bool enumerating = false;
    HashTable::Cursor cursor;
  };
  EnumState SavedEnum() const { return {enumerating_, cursor_}; }
  // Puts back the state SavedEnum gave before a walk whose results are
  // dropped, so that the next enumeration reads as if the walk had never
  // run. A table changed since the walk has started afresh and stays so;
  // the table must not have been enumerated again after such a change.
  void RestoreEnum(const EnumState &state) {
    if (!enumerating_) return;
    enumerating_ = state.enumerating;
    cursor_ = state.cursor;
  }

 protected:
  // Puts entry in under key with one lookup. An entry already there is
  // freed, after replacing (when not null) is logged at LOG_INFO2 under fn,
  // and the new one goes to the end of the listing order. On failure entry
  // is freed with the family's free function; the caller logs its own
  // failure. The table must exist.
  [[nodiscard]] bool PutEntry(HashKey key, void *entry, const char *fn, const char *replacing);
  void *ArrayEntry(size_t i) const { return array_[i]; }
  // The entry at index of the array (built here when needed), or null
  // after logging why with texts under fn.
  void *EnumEntry(uint32_t index, const EnumTexts &texts, const char *fn);
  // Hands visit(entry) every entry from index 0 on, as EnumEntry called
  // with 0, 1, 2, ... until it gives null does: the same lines under fn,
  // and the same enumeration state left behind, so that an enumeration
  // after it reads as it would after the calls. visit returning false
  // stops the walk at that entry (as a caller that stops there), and the
  // result is then false; else true, also when there is no table.
  template <class Visit>
  [[nodiscard]] bool EnumEach(const EnumTexts &texts, const char *fn, Visit visit) {
    if (!StartEnum(texts, fn)) return true;
    for (size_t i = 0;; ++i) {
      void *entry = table_->EntryAt(i, &cursor_);
      if (!entry) break;
      if (!visit(entry)) return false;
    }
    EndEnum(texts, fn);
    return true;
  }

 private:
  void DropArray();
  // The first steps of reading an index: false, after logging it, when
  // there is no table; an enumeration that starts afresh says so.
  [[nodiscard]] bool StartEnum(const EnumTexts &texts, const char *fn);
  // Says that the index read is past the last entry.
  static void EndEnum(const EnumTexts &texts, const char *fn);

  HashTable *table_;
  void **array_;
  size_t arrayCount_;
  bool arrayBuilt_;
  // Where enumeration read last: the next index costs one step. An
  // enumeration reads the table itself, which does not change while the
  // array stays built.
  bool enumerating_;
  HashTable::Cursor cursor_;
};

template <class Entry>
class RecordTable : public RecordTableBase {
 public:
  Entry *Find(HashKey key) const {
    return exists() ? static_cast<Entry *>(hash()->Lookup(key)) : nullptr;
  }
  [[nodiscard]] bool Put(HashKey key, Entry *entry, const char *fn,
                         const char *replacing = nullptr) {
    return PutEntry(key, entry, fn, replacing);
  }
  Entry *At(size_t i) const { return static_cast<Entry *>(ArrayEntry(i)); }
  Entry *Enum(uint32_t index, const EnumTexts &texts, const char *fn) {
    return static_cast<Entry *>(EnumEntry(index, texts, fn));
  }
  template <class Visit>
  [[nodiscard]] bool Each(const EnumTexts &texts, const char *fn, Visit visit) {
    return EnumEach(texts, fn, [&](void *entry) { return visit(static_cast<Entry *>(entry)); });
  }
};

}  // namespace nxc
