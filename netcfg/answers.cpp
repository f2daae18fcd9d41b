// answers.cpp - the answer store: key/value settings of the database, each
// change appended to the database file at once and undone in the cache when
// the write fails. Also the answer record family: its descriptor
// ("answer", "remove_answer"), parse, format and free functions.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "base/str_util.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr uint32_t kAnswerRoom = 512;

// The entry of key, or null. A missing cache is reported with the caller's
// name; a missing table or key is not reported.
NetworkConfigDictionaryEntry *FindAnswer(const char *fn, NXCNetworkConfigurationDB *cache,
                                         const char *key) {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, fn, "Database cache is not loaded");
    return nullptr;
  }
  if (!db->answers || !key) return nullptr;
  return static_cast<NetworkConfigDictionaryEntry *>(db->answers->Lookup(StrKey(key)));
}

}  // namespace

namespace {

// NetCfgHashAddAnswer on texts that need not end in a NUL (a record line's
// fields); each text ends at its first NUL, as a C string would.
[[nodiscard]] bool AddAnswerTexts(HashTable **table, std::string_view key, std::string_view value) {
  static constexpr char kFn[] = "NetCfgHashAddAnswer";
  if (!*table) {
    *table = HashTable::Create(kAnswerRecords.keyKind, kAnswerRoom, kAnswerRecords.free);
    if (!*table) {
      NXCLog(LOG_ERR, kFn, "Failed to allcoate hash table");  // sic
      return false;
    }
  }
  // The key and the value live behind the entry, in its own allocation.
  const size_t keySize = key.size() + 1, valueSize = value.size() + 1;
  auto *entry = static_cast<NetworkConfigDictionaryEntry *>(
      AllocEntry(sizeof(NetworkConfigDictionaryEntry) + keySize + valueSize));
  if (!entry) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "Failed to allocate memory for NetworkConfigDictionaryEntry, error: %s",
           strerror(err));
    return false;
  }
  char *texts = reinterpret_cast<char *>(entry + 1);
  entry->key = texts;
  entry->value = texts + keySize;
  entry->key[key.copy(entry->key, key.size())] = '\0';
  entry->value[value.copy(entry->value, value.size())] = '\0';
  // A key set again keeps its place in the listing order.
  void *displaced = nullptr;
  if (!(*table)->Put(StrKey(entry->key), entry, /*moveToEnd=*/false, &displaced)) {
    NXCLog(LOG_ERR, kFn, "Failed to insert entry into hash table");
    FreeEntry(entry);
    return false;
  }
  FreeEntry(displaced);
  return true;
}

}  // namespace

[[nodiscard]] bool NetCfgHashAddAnswer(HashTable **table, const char *key, const char *value) {
  return AddAnswerTexts(table, key, value);
}

namespace {

// ---- The record family -------------------------------------------------------

void NetCfgFreeEntry(void *p) {
  auto *entry = static_cast<NetworkConfigDictionaryEntry *>(p);
  if (!entry) {
    // Deliberately logged: a null entry means a caller bug.
    NXCLog(LOG_ERR, "NetCfgFreeEntry", "Invalid arguments");
    return;
  }
  FreeEntry(entry);
}

[[nodiscard]]
bool DictRecordParseFunct(NXCNetworkConfigurationDB *db, uint32_t type, std::string_view rest) {
  if (type == NXC_REC_REMOVE_ANSWER && !db->answers) {
    NXCLog(LOG_WRN, __func__, "Cannot delete from empty hash table");
    return true;
  }
  std::string_view key;
  if (!NextToken(&rest, &key)) {
    NXCLog(LOG_WRN, __func__, "Failed to extract key");
    return false;
  }
  if (type == NXC_REC_ANSWER) {
    if (rest.empty()) {
      NXCLog(LOG_WRN, __func__, "Empty value for key");
      return false;
    }
    if (!AddAnswerTexts(&db->answers, key, rest)) {
      NXCLog(LOG_WRN, __func__, "Failed to %s hash table", "add to");
      return false;
    }
    return true;
  }
  // The key as a C string: on the stack when it fits.
  char shortKey[256];
  CPtr<char> longKey(key.size() < sizeof shortKey ? nullptr : strndup(key.data(), key.size()));
  if (key.size() < sizeof shortKey) shortKey[key.copy(shortKey, key.size())] = '\0';
  const char *keyText = longKey ? longKey.get() : shortKey;
  if (key.size() >= sizeof shortKey && !longKey) {
    NXCLog(LOG_WRN, __func__, "Failed to extract key");
    return false;
  }
  if (!db->answers->Delete(StrKey(keyText))) {
    NXCLog(LOG_WRN, __func__, "Failed to %s hash table", "remove from");
    return false;
  }
  return true;
}

void PrefetchAnswer(NXCNetworkConfigurationDB *db, std::string_view rest) {
  std::string_view key;
  if (db->answers && NextToken(&rest, &key)) db->answers->Prefetch(key);
}

[[nodiscard]]
bool FormatAnswer(ByteBuffer *out, std::string_view keyword, bool add, const void *entry) {
  const auto &e = *static_cast<const NetworkConfigDictionaryEntry *>(entry);
  if (!add) return out->AppendAll(keyword, ' ', e.key, '\n');
  return out->AppendAll(keyword, ' ', e.key, ' ', e.value, '\n');
}

}  // namespace

constexpr RecordFamily kAnswerRecords = {
    .addType = NXC_REC_ANSWER,
    .addKeyword = "answer",
    .removeKeyword = "remove_answer",
    .keyKind = HashTable::Kind::kString,
    .parse = DictRecordParseFunct,
    .format = FormatAnswer,
    .free = NetCfgFreeEntry,
    // The rewrite formats the answers first and sorts the lines by key
    // (WriteAnswers), byte-wise.
    .sortForRewrite = nullptr,
    .prefetch = PrefetchAnswer,
};

namespace {

// ---- Changes -----------------------------------------------------------------

// Puts the answer's previous state back into the table after its change
// could not be written: removes a new key, or sets the old value again. The
// file is not touched: the failed write left it as it was.
void RollbackAnswer(NXCNetworkConfigurationDB *db, const char *key, const char *newValue,
                    const char *oldValue) {
  static constexpr char kFn[] = "NetCfgAddAnswerStringInt";
  if (!oldValue) {
    if (!db->answers->Delete(StrKey(key)))
      NXCLog(LOG_ERR, kFn, "Failed to remove newly added record, %s:%s", key, newValue);
    return;
  }
  if (!NetCfgHashAddAnswer(&db->answers, key, oldValue))
    NXCLog(LOG_ERR, kFn, "Failed to restore previous values %s:%s", key, oldValue);
}

// The worker of the add calls: sets key to value in the cache, then appends
// "remove_answer" (when the key had a value) and "answer" to the file, both
// in one write.
[[nodiscard]]
bool NetCfgAddAnswerStringInt(NXCNetworkConfigurationDB *db, const char *key, const char *value) {
  static constexpr char kFn[] = "NetCfgAddAnswerStringInt";
  const char *current = nullptr;
  bool hadValue = NXCNetCfgGetAnswerString(db, key, &current);
  NetworkConfigDictionaryEntry record = {const_cast<char *>(key), const_cast<char *>(value)};
  ByteBuffer records;
  bool formatted = (!hadValue || AppendRecord(&records, NXC_REC_REMOVE_ANSWER, &record)) &&
                   AppendRecord(&records, NXC_REC_ANSWER, &record);
  CPtr<char> oldValue(hadValue ? strdup(current) : nullptr);
  if (!formatted || (hadValue && !oldValue)) {
    // The record texts are made together: neither pointer tells more.
    const void *text = formatted ? records.Data() : nullptr;
    NXCLog(LOG_ERR, kFn, "Memory allocation failed: a: %p, d: %p, o: %p", text, text,
           (void *)oldValue.get());
    return false;  // nothing changed yet, so there is nothing to undo
  }
  if (!NetCfgHashAddAnswer(&db->answers, key, value)) {
    NXCLog(LOG_ERR, kFn, "Failed to add %s:%s to hash table", key, value);
    return false;  // the table is as it was
  }
  int err = 0;
  if (!db->readOnly && !AppendChange(db, records.Data(), records.Size(), &err)) {
    // One write carries both records; the first one names the failure.
    if (hadValue)
      NXCLog(LOG_ERR, kFn, "Failed to remove: %s from database file, error: %s", key,
             strerror(err));
    else
      NXCLog(LOG_ERR, kFn, "Failed to write to %s:%s to database file, error: %s", key, value,
             strerror(err));
    RollbackAnswer(db, key, value, oldValue.get());
    return false;
  }
  db->changed = true;
  return true;
}

}  // namespace

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgGetAnswerString(NXCNetworkConfigurationDB *cache, const char *key,
                                         const char **value) noexcept {
  NetworkConfigDictionaryEntry *entry = FindAnswer(__func__, cache, key);
  if (!entry) return false;
  *value = entry->value;
  return true;
}

extern "C" bool NXCNetCfgGetAnswerInt32(NXCNetworkConfigurationDB *cache, const char *key,
                                        int32_t *value) noexcept {
  if (!ResolveCache(cache)) {
    NXCLog(LOG_ERR, __func__, "Database cache is not loaded");
    return false;
  }
  NetworkConfigDictionaryEntry *entry = FindAnswer(__func__, cache, key);
  if (!entry) {
    NXCLog(LOG_INFO, __func__, "Value not found for key: %s", OrNull(key));
    return false;
  }
  if (!StrToInt32(entry->value, value)) {
    NXCLog(LOG_ERR, __func__, "Failed to convert value to integer: %s = %s", key,
           entry->value ? entry->value : "null");
    return false;
  }
  return true;
}

extern "C" bool NXCNetCfgGetAnswerBool(NXCNetworkConfigurationDB *cache, const char *key,
                                       bool *value) noexcept {
  NetworkConfigDictionaryEntry *entry = FindAnswer(__func__, cache, key);
  if (!entry) return false;
  *value = strcasecmp(entry->value, "yes") == 0;
  return true;
}

extern "C" bool NXCNetCfgAddAnswerString(NXCNetworkConfigurationDB *cache, const char *key,
                                         const char *value) noexcept {
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, __func__, "Database cache is not loaded");
    return false;
  }
  if (!key || !value) {
    NXCLog(LOG_ERR, __func__, "Invalid arguments");
    return false;
  }
  if (!CheckRecordText(__func__, "answer key", key, RecordText::kWord)) return false;
  if (!RecordTextOk(value, RecordText::kValue)) {
    CPtr<char> field(AllocPrint("value of answer %s", key));
    (void)CheckRecordText(__func__, field ? field.get() : "answer value", value, RecordText::kValue);
    return false;
  }
  return NetCfgAddAnswerStringInt(db, key, value);
}

extern "C" bool NXCNetCfgAddAnswerInt32(NXCNetworkConfigurationDB *cache, const char *key,
                                        int32_t value) noexcept {
  char text[16];
  (void)BoundedPrint(text, sizeof text, "%d", value);
  return NXCNetCfgAddAnswerString(cache, key, text);
}

extern "C" bool NXCNetCfgAddAnswerBool(NXCNetworkConfigurationDB *cache, const char *key,
                                       bool value) noexcept {
  bool current = false;  // an absent answer counts as "no"
  if (!NXCNetCfgGetAnswerBool(cache, key, &current)) current = false;
  if (current == value) return true;
  return NXCNetCfgAddAnswerString(cache, key, value ? "yes" : "no");
}

extern "C" bool NXCNetCfgRemoveAnswer(NXCNetworkConfigurationDB *cache, const char *key) noexcept {
  static constexpr char kFn[] = "NXCNetCfgRemoveAnswer";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, kFn, "Database cache is not loaded");
    return false;
  }
  NetworkConfigDictionaryEntry *entry = FindAnswer(kFn, db, key);
  if (!entry) return true;
  // key may be the entry's own text, which the removal frees.
  CPtr<char> keyCopy(strdup(key));
  NetworkConfigDictionaryEntry removed = {keyCopy.get(), nullptr};
  ByteBuffer record;
  bool formatted = keyCopy && AppendRecord(&record, NXC_REC_REMOVE_ANSWER, &removed);
  CPtr<char> oldValue(strdup(entry->value));
  if (!formatted || !oldValue) {
    NXCLog(LOG_ERR, kFn, "Memory allocation failed: d: %p, o: %p",
           formatted ? (const void *)record.Data() : nullptr, (void *)oldValue.get());
    return false;
  }
  key = keyCopy.get();
  if (!CheckRecordText(kFn, "answer key", key, RecordText::kWord)) return false;
  if (!db->answers->Delete(StrKey(key))) {
    NXCLog(LOG_ERR, kFn, "Failed to remove \"%s\" from hash table", key);
  } else {
    int err = 0;
    if (db->readOnly || AppendChange(db, record.Data(), record.Size(), &err)) {
      db->changed = true;
      return true;
    }
    NXCLog(LOG_ERR, kFn, "Failed to remove \"%s\" in database file", key);
  }
  if (!NetCfgHashAddAnswer(&db->answers, key, oldValue.get()))
    NXCLog(LOG_ERR, kFn, "Restoring %s:%s failed in hash table", key, oldValue.get());
  return false;
}
