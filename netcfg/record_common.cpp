// record_common.cpp - what every record family shares: finding a family by
// record type or keyword, the text of a record, appending a change's
// records to the database file, and the record table with its enumeration
// array.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <atomic>
#include <iterator>
#include <new>

#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

// In the order of the record types: family i has the types 2i + 1 and
// 2i + 2, and the loader tries the keywords in this order.
constexpr const RecordFamily *kFamilies[] = {&kAnswerRecords, &kPortForwardRecords,
                                             &kDhcpMappingRecords, &kBridgeMappingRecords,
                                             &kNatPrefixRecords};
static_assert(std::size(kFamilies) * 2 == NXC_REC_REMOVE_NAT_PREFIX);

[[nodiscard]] bool SameWord(std::string_view word, std::string_view keyword) {
  return word.size() == keyword.size() && strncasecmp(word.data(), keyword.data(), word.size()) == 0;
}

// The family one of whose keywords same() takes word for, in the order of
// the record types.
template <class Same>
const RecordFamily *FindKeyword(std::string_view word, uint32_t *type, Same same) {
  for (const RecordFamily *family : kFamilies) {
    if (same(word, family->addKeyword)) {
      *type = family->addType;
      return family;
    }
    if (same(word, family->removeKeyword)) {
      *type = family->removeType();
      return family;
    }
  }
  return nullptr;
}

}  // namespace

const RecordFamily *FamilyOfType(uint32_t type) {
  if (type < NXC_REC_ANSWER || type > NXC_REC_REMOVE_NAT_PREFIX) return nullptr;
  return kFamilies[(type - NXC_REC_ANSWER) / 2];
}

const RecordFamily *FamilyOfKeyword(std::string_view word, uint32_t *type) {
  // The writers spell the keywords in lower case, so an exact match settles
  // nearly every line; no two keywords differ only in case, so trying it
  // first finds what the comparison without regard to case would.
  const RecordFamily *family =
      FindKeyword(word, type, [](std::string_view a, std::string_view b) { return a == b; });
  return family ? family : FindKeyword(word, type, SameWord);
}

[[nodiscard]] bool AppendRecord(ByteBuffer *out, uint32_t type, const void *entry) {
  const RecordFamily *family = FamilyOfType(type);
  if (!family) return false;
  bool add = type == family->addType;
  return family->format(out, add ? family->addKeyword : family->removeKeyword, add, entry);
}

char *FormatRecord(uint32_t type, const void *entry) {
  ByteBuffer text;
  if (!AppendRecord(&text, type, entry)) return nullptr;
  return text.Release(nullptr);
}

NXCNetworkConfigurationDB *CacheForVnet(NXCNetworkConfigurationDB *cache, uint32_t vnet,
                                        const char *fn) {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, fn, "Database cache is not loaded");
    return nullptr;
  }
  if (vnet >= kNumVnets) {
    NXCLog(LOG_ERR, fn, "Invalid arguments");
    return nullptr;
  }
  return db;
}

bool ChangeRecords::Add(uint32_t type, const void *entry) {
  size_t before = text_.Size();
  if (!failed_ && AppendRecord(&text_, type, entry)) {
    if (before == 0) firstLength_ = text_.Size();
    return true;
  }
  if (!failed_)
    NXCLog(LOG_ERR, "NetCfgWriteRecordToConfig", "Memory allocation failure, error: %s",
           strerror(ENOMEM));
  failed_ = true;
  return false;
}

bool ChangeRecords::AppendTo(NXCNetworkConfigurationDB *db, int *error) {
  int ignored = 0;
  if (!error) error = &ignored;
  if (failed_) {
    *error = ENOMEM;
    return false;
  }
  if (!AppendChange(db, text_.Data(), text_.Size(), error)) {
    NXCLog(LOG_ERR, "NetCfgWriteRecordToConfig", "Failed to write record to database file: %.*s",
           static_cast<int>(firstLength_), text_.Data());
    return false;
  }
  db->changed = true;
  return true;
}

[[nodiscard]]
bool AppendRecordsOf(NXCNetworkConfigurationDB *db, std::initializer_list<RecordOf> records,
                     int *error) {
  ChangeRecords change;
  for (const RecordOf &r : records) (void)change.Add(r.type, r.entry);
  return change.AppendTo(db, error);
}

[[nodiscard]] bool AppendRemovals(NXCNetworkConfigurationDB *db, uint32_t type, HashTable *table) {
  ChangeRecords change;
  struct Ctx {
    ChangeRecords *change;
    uint32_t type;
  } ctx{&change, type};
  (void)table->ForEach(
      [](HashKey, void *entry, void *c) {
        auto *x = static_cast<Ctx *>(c);
        return x->change->Add(x->type, entry) ? 0 : 1;
      },
      &ctx);
  return change.empty() || change.AppendTo(db);
}

[[nodiscard]] bool CopyOut(const char *text, char *buffer, size_t size) {
  size_t length = strlen(text);
  if (!buffer || length + 1 > size) return false;
  memcpy(buffer, text, length + 1);
  return true;
}

// ---- Entry memory --------------------------------------------------------------

namespace {

// The bytes of a block, its header included. An entry larger than a block
// holds gets a block of its own.
constexpr size_t kEntryBlockSize = 4096;
// The entries hold pointers and numbers of at most their width.
constexpr size_t kEntryAlignment = alignof(void *);

struct EntryBlock {
  // The block's entries not yet freed. While a thread still cuts new
  // entries from it, kCutting stands in for those it will have cut: the
  // thread counts them for itself, and settles the count when it moves on
  // to another block, so that cutting an entry costs no atomic step.
  std::atomic<uint32_t> references;
  uint32_t used;  // bytes from the block's start handed out, this header included
};
constexpr size_t kEntryBlockHeader = (sizeof(EntryBlock) + kEntryAlignment - 1) & ~(kEntryAlignment - 1);
// Each entry is preceded by the address of its block.
constexpr size_t kEntryHeader = sizeof(EntryBlock *);
static_assert(kEntryHeader % kEntryAlignment == 0);

// More than a block's entries can ever be.
constexpr uint32_t kCutting = uint32_t{1} << 31;
static_assert(kEntryBlockSize / kEntryHeader < kCutting);

// Takes count references off block, freeing it when none are left.
void ReleaseBlock(EntryBlock *block, uint32_t count = 1) {
  if (block->references.fetch_sub(count, std::memory_order_acq_rel) == count) {
    block->~EntryBlock();
    free(block);
  }
}

// A new block of size bytes with the given references, or null.
EntryBlock *NewEntryBlock(size_t size, uint32_t references) {
  void *memory = malloc(size);
  return memory ? new (memory) EntryBlock{{references}, kEntryBlockHeader} : nullptr;
}

// Cuts size bytes (a multiple of kEntryAlignment) for an entry from block.
void *CutEntry(EntryBlock *block, size_t size) {
  char *at = reinterpret_cast<char *>(block) + block->used;
  block->used += static_cast<uint32_t>(kEntryHeader + size);
  memcpy(at, &block, sizeof block);
  return at + kEntryHeader;
}

// The block the thread cuts its entries from. A plain pointer at a fixed
// offset from the thread pointer (initial-exec: one pointer fits the static
// TLS room even when the library is opened late), so taking an entry costs
// no lookup call.
thread_local EntryBlock *tCurrentEntryBlock __attribute__((tls_model("initial-exec"))) = nullptr;
// The entries the thread has cut from its block.
thread_local uint32_t tCutFromCurrent __attribute__((tls_model("initial-exec"))) = 0;

// Leaves the thread's block with the references of the entries cut from it.
void SettleCurrentBlock() {
  if (tCurrentEntryBlock) ReleaseBlock(tCurrentEntryBlock, kCutting - tCutFromCurrent);
  tCurrentEntryBlock = nullptr;
  tCutFromCurrent = 0;
}

// Settles the thread's block when the thread ends. Touched only when the
// thread takes a new block, which is when it registers.
struct CurrentEntryBlockRelease {
  bool armed = false;
  ~CurrentEntryBlockRelease() { SettleCurrentBlock(); }
};
thread_local CurrentEntryBlockRelease tCurrentEntryBlockRelease;

}  // namespace

void *AllocEntry(size_t size) {
  size = (size + kEntryAlignment - 1) & ~(kEntryAlignment - 1);
  if (kEntryBlockHeader + kEntryHeader + size > kEntryBlockSize) {
    // A block of its own, whose one reference is the entry's.
    EntryBlock *own = NewEntryBlock(kEntryBlockHeader + kEntryHeader + size, 1);
    return own ? CutEntry(own, size) : nullptr;
  }
  EntryBlock *block = tCurrentEntryBlock;
  if (!block || block->used + kEntryHeader + size > kEntryBlockSize) {
    EntryBlock *fresh = NewEntryBlock(kEntryBlockSize, kCutting);
    if (!fresh) return nullptr;
    SettleCurrentBlock();
    tCurrentEntryBlock = block = fresh;
    tCurrentEntryBlockRelease.armed = true;
  }
  ++tCutFromCurrent;
  return CutEntry(block, size);
}

namespace {

// The releases an EntryReleaseBatch of this thread holds back: count
// entries of block, freed but not yet taken off its references.
struct HeldReleases {
  bool batching = false;
  EntryBlock *block = nullptr;
  uint32_t count = 0;
};
thread_local HeldReleases tHeldReleases __attribute__((tls_model("initial-exec")));

void ReleaseHeld(HeldReleases *held) {
  if (held->count > 0) ReleaseBlock(held->block, held->count);
  held->block = nullptr;
  held->count = 0;
}

}  // namespace

void FreeEntry(void *entry) {
  if (!entry) return;
  EntryBlock *block;
  memcpy(&block, static_cast<char *>(entry) - kEntryHeader, sizeof block);
  HeldReleases *held = &tHeldReleases;
  if (!held->batching) {
    ReleaseBlock(block);
    return;
  }
  // Entries freed together mostly lie together: a run of them in one block
  // costs one atomic step instead of one each.
  if (block != held->block) {
    ReleaseHeld(held);
    held->block = block;
  }
  ++held->count;
}

EntryReleaseBatch::EntryReleaseBatch() : outer_(tHeldReleases.batching) {
  tHeldReleases.batching = true;
}

EntryReleaseBatch::~EntryReleaseBatch() {
  if (outer_) return;
  ReleaseHeld(&tHeldReleases);
  tHeldReleases.batching = false;
}

// ---- Record tables -----------------------------------------------------------

bool RecordTableBase::Create(const RecordFamily &family) {
  // Most tables are per vnet and small; a table grows with its entries.
  constexpr uint32_t kRecordRoom = 16;
  if (!table_) table_ = HashTable::Create(family.keyKind, kRecordRoom, family.free);
  return table_ != nullptr;
}

bool RecordTableBase::CreateForVnet(const RecordFamily &family, uint32_t vnet, const char *fn) {
  if (table_) return true;
  if (!Create(family)) return false;
  NXCLog(LOG_INFO2, fn, "Allocated hash table for zynet: %d", static_cast<int>(vnet));
  return true;
}

bool RecordTableBase::PutEntry(HashKey key, void *entry, const char *fn, const char *replacing) {
  HashTable::FreeEntryFn freeEntry = table_->FreeFunction();
  DropArray();
  void *displaced = nullptr;
  if (!table_->Put(key, entry, /*moveToEnd=*/true, &displaced)) {
    freeEntry(entry);
    return false;
  }
  if (displaced) {
    if (replacing) NXCLog(LOG_INFO2, fn, "%s", replacing);
    freeEntry(displaced);
  }
  return true;
}

bool RecordTableBase::Remove(HashKey key) {
  if (!table_) return false;
  DropArray();
  return table_->Delete(key);
}

void RecordTableBase::Clear() {
  DropArray();
  HashTable::Destroy(table_);
  table_ = nullptr;
}

bool RecordTableBase::BuildArray() {
  if (arrayBuilt_) return true;
  if (!table_) return false;
  void **array = nullptr;
  size_t count = 0;
  if (!table_->Snapshot(&array, &count)) return false;
  array_ = array;
  arrayCount_ = count;
  arrayBuilt_ = true;
  return true;
}

bool RecordTableBase::StartEnum(const EnumTexts &texts, const char *fn) {
  if (!table_) {
    NXCLog(LOG_ERR, fn, "%s", texts.noTable);
    return false;
  }
  if (!enumerating_) {
    enumerating_ = true;
    cursor_ = HashTable::Cursor();
    NXCLog(LOG_INFO2, fn, "%s", texts.arrayBuilt);
  }
  return true;
}

void RecordTableBase::EndEnum(const EnumTexts &texts, const char *fn) {
  NXCLog(LOG_INFO2, fn, "%s", texts.atEnd);
}

void *RecordTableBase::EnumEntry(uint32_t index, const EnumTexts &texts, const char *fn) {
  if (!StartEnum(texts, fn)) return nullptr;
  void *entry = table_->EntryAt(index, &cursor_);
  if (!entry) EndEnum(texts, fn);
  return entry;
}

void RecordTableBase::DropArray() {
  free(array_);
  array_ = nullptr;
  arrayCount_ = 0;
  arrayBuilt_ = false;
  enumerating_ = false;
}

}  // namespace nxc
