// import_export.cpp - writing the database out (to a file or a buffer) and
// replacing it with the contents of a backup file.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "base/byte_buffer.h"
#include "base/scope_guard.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {

constexpr size_t kMaxNameLength = 127;  // display and adapter names
constexpr uint32_t kMaxBackupNumber = 1000000;

// A "VNET_<n>_<field>" key split into its vnet and field.
enum class VnetKey { kNotVnet, kBadNumber, kOk };
VnetKey SplitVnetKey(std::string_view key, uint32_t *vnet, std::string_view *field) {
  constexpr std::string_view kPrefix = "VNET_";
  if (key.substr(0, kPrefix.size()) != kPrefix) return VnetKey::kNotVnet;
  std::string_view rest = key.substr(kPrefix.size());
  size_t underscore = rest.find('_');
  uint32_t number = 0;
  if (underscore == std::string_view::npos || underscore == 0 ||
      rest.substr(0, underscore).find_first_not_of("0123456789") != std::string_view::npos ||
      !StrToUint32(rest.substr(0, underscore), &number) || number >= kNumVnets)
    return VnetKey::kBadNumber;
  *vnet = number;
  *field = rest.substr(underscore + 1);
  return VnetKey::kOk;
}

// Calls visit(key, value) with every answer's key and value, in listing
// order. With copies they are copies, so that visit may change or delete
// the answer it is given; without, they are the answer's own texts, and
// visit may delete that answer only as the last thing it does. visit
// returns false to stop. False when the answers cannot be listed.
template <class Visit>
[[nodiscard]]
bool ForEachAnswer(NXCNetworkConfigurationDB *db, bool copies, bool *stopped, Visit visit) {
  void **entries = nullptr;
  size_t count = 0;
  if (!db->answers || !db->answers->Snapshot(&entries, &count)) return false;
  CPtr<void *> owner(entries);
  *stopped = false;
  for (size_t i = 0; i < count && !*stopped; ++i) {
    // Only the visited answer is ever deleted, so later entries stay valid.
    auto *e = static_cast<NetworkConfigDictionaryEntry *>(entries[i]);
    if (!copies) {
      *stopped = !visit(e->key, e->value);
      continue;
    }
    CPtr<char> key(strdup(e->key));
    CPtr<char> value(strdup(e->value));
    if (!key || !value) return false;
    *stopped = !visit(key.get(), value.get());
  }
  return true;
}

}  // namespace

bool IsKnownVnetKey(std::string_view key, uint32_t *vnet) {
  std::string_view field;
  return SplitVnetKey(key, vnet, &field) == VnetKey::kOk && IsOneOf(field, kKnownVnetFields);
}

namespace {

void DeleteAnswer(NXCNetworkConfigurationDB *db, const char *key) {
  (void)db->answers->Delete(StrKey(key));
}

// Drops every answer that is neither a known global key nor a known field
// of a vnet 0..255.
[[nodiscard]] bool NetCfgCleanupDatabaseFields(NXCNetworkConfigurationDB *db) {
  static constexpr char kFn[] = "NetCfgCleanupDatabaseFields";
  if (!db->answers || db->answers->Count() == 0) {
    NXCLog(LOG_ERR, kFn, "Dictionary hash table is empty");
    return true;
  }
  bool stopped = false;
  bool listed = ForEachAnswer(db, /*copies=*/false, &stopped, [&](const char *key, const char *value) {
    uint32_t vnet = 0;
    std::string_view field;
    VnetKey kind = SplitVnetKey(key, &vnet, &field);
    if (kind == VnetKey::kBadNumber) {
      NXCLog(LOG_WRN, kFn, "Failed to parse vnet number in record: %s, deleting record", key);
      DeleteAnswer(db, key);
      return true;
    }
    bool known = kind == VnetKey::kOk ? IsOneOf(field, kKnownVnetFields) : IsOneOf(key, kKnownGlobalKeys);
    if (known) return true;
    NXCLog(LOG_INFO2, kFn, "Deleting record - %s:%s from backup cache", key, value);
    DeleteAnswer(db, key);
    return true;
  });
  if (!listed) {
    NXCLog(LOG_ERR, kFn, "Failed to create array of dictionary type records");
    return false;
  }
  return true;
}

[[nodiscard]]
bool NetCfgUtilAddVnetRecord(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *field,
                             const char *value) {
  char key[kPathSize];
  if (BoundedPrint(key, sizeof key, "VNET_%u_%s", vnet, field) < 0) return false;
  return NetCfgHashAddAnswer(&db->answers, key, value);
}

// A legacy host address becomes the vnet's subnet (masked with its mask),
// its virtual adapter switch and the adapter's address.
[[nodiscard]]
bool UpgradeHostAddress(NXCNetworkConfigurationDB *db, uint32_t vnet, const char *value) {
  uint32_t address = 0;
  uint32_t mask = 0;
  if (NXCIPStr2Int(value, &address)) {
    char maskKey[64];
    (void)BoundedPrint(maskKey, sizeof maskKey, "VNET_%u_HOSTONLY_NETMASK", vnet);
    const char *maskText = "255.255.255.0";
    (void)NXCNetCfgGetAnswerString(db, maskKey, &maskText);
    char subnet[16];
    if (NXCIPStr2Int(maskText, &mask) && NXCIPInt2Str(address & mask, subnet) &&
        !NetCfgUtilAddVnetRecord(db, vnet, "HOSTONLY_SUBNET", subnet))
      return false;
  }
  return NetCfgUtilAddVnetRecord(db, vnet, "VIRTUAL_ADAPTER", "yes") &&
         NetCfgUtilAddVnetRecord(db, vnet, "VIRTUAL_ADAPTER_ADDR", value);
}

// Brings one answer of a legacy backup to the current form; false stops
// the import.
[[nodiscard]]
bool UpgradeAnswer(NXCNetworkConfigurationDB *db, const char *key, const char *value,
                   const char *fn) {
  uint32_t vnet = 0;
  std::string_view field;
  VnetKey kind = SplitVnetKey(key, &vnet, &field);
  if (kind == VnetKey::kNotVnet) return true;
  if (kind != VnetKey::kOk || field.empty()) {
    NXCLog(LOG_ERR, fn, "Invalid vnetField in record: %s", key);
    return false;
  }
  bool shortValue = strlen(value) <= kMaxNameLength;
  if (field == "DISPLAY_NAME") {
    if (!shortValue) {
      NXCLog(LOG_WRN, fn, "Invalid display name: %s, deleting record", value);
    } else if (!NetCfgUtilAddVnetRecord(db, vnet, "DISPLAY_NAME", value)) {
      NXCLog(LOG_WRN, fn, "Failed to add display name record to hash table, aborting");
      return false;
    }
    // Deleted under the key it was read with, even when that is the key
    // just stored: the order is kept as it is.
    DeleteAnswer(db, key);
    return true;
  }
  if (field == "INTERFACE") {
    // An adapter name is one word of its bridge mapping record.
    if (!shortValue || strchr(value, ' ') || HasControlChar(value)) {
      NXCLog(LOG_WRN, fn, "Invalid adapter name: %s, deleting record", value);
    } else if (!NetCfgHashAddBridgeMapping(db, value, static_cast<int32_t>(vnet))) {
      NXCLog(LOG_ERR, fn, "Failed to add bridge mapping record to hash table, aborting");
      return false;
    }
    DeleteAnswer(db, key);
    return true;
  }
  if (field == "HOSTONLY_HOSTADDR") {
    if (!UpgradeHostAddress(db, vnet, value)) {
      NXCLog(LOG_ERR, fn, "Failed to update HOSTONLY_HOSTADDR record, aborting");
      return false;
    }
    DeleteAnswer(db, key);
  }
  return true;
}

[[nodiscard]] bool NetCfgUpdateDatabaseFields(NXCNetworkConfigurationDB *db) {
  static constexpr char kFn[] = "NetCfgUpdateDatabaseFields";
  if (db->major == 1 && db->minor == 0) {
    NXCLog(LOG_ERR, kFn, "Source and destination database versions are same");
    return true;
  }
  if (db->major != 0) return true;
  bool stopped = false;
  if (!ForEachAnswer(db, /*copies=*/true, &stopped, [&](const char *key, const char *value) {
        return UpgradeAnswer(db, key, value, kFn);
      })) {
    NXCLog(LOG_INFO2, kFn, "Failed to create array of records in dictHash");
    return true;  // nothing listed, nothing to upgrade
  }
  bool ok = !stopped;
  if (!ok) {
    NXCLog(LOG_ERR, kFn, "Failed to update fields in backup database cache");
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Updated database fields");
  return true;
}

// Moves the database file aside to "<path>.bak.<n>"; *kept gets the name.
[[nodiscard]]
bool KeepDatabaseAside(const char *databasePath, char (&kept)[kPathSize], const char *fn) {
  uint32_t n = 0;
  // The first name whose removal succeeds is taken.
  while (n < kMaxBackupNumber &&
         (BoundedPrint(kept, sizeof kept, "%s.bak.%u", databasePath, n) < 0 ||
          !NXCRemoveFile(-1, NXC_FILE_CUSTOM, kept)))
    ++n;
  if (n == kMaxBackupNumber || !NXCCreateFile(-1, NXC_FILE_CUSTOM, kept)) {
    NXCLog(LOG_ERR, fn, "Failed to create backup file: %s", kept);
    return false;
  }
  if (rename(databasePath, kept) != 0) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Failed to backup existing database file, error: %s", strerror(err));
    return false;
  }
  NXCLog(LOG_INFO, fn, "Renamed database file: %s to: %s", databasePath, kept);
  return true;
}

// After a failed import: the new file goes, the kept one comes back.
void RestoreDatabase(const char *databasePath, const char *kept, const char *fn) {
  (void)unlink(databasePath);
  if (kept[0] != '\0') {
    if (rename(kept, databasePath) != 0)
      NXCLog(LOG_ERR, fn, "Failed to restore database file during error handling from: %s to %s",
             kept, databasePath);
    else
      NXCLog(LOG_INFO, fn, "Restored database file during error handling");
  }
}

}  // namespace

[[nodiscard]]
bool ReopenAsDatabase(NXCNetworkConfigurationDB *db, const char *databasePath, bool merging,
                      const char *fn) {
  char *path = strdup(databasePath);
  if (!path) {
    NXCLog(LOG_ERR, fn, "Failed to copy DB file name");
    return false;
  }
  free(db->path);
  db->path = path;
  int err = 0;
  if (!JournalOpen(db, databasePath, /*append=*/true, /*create=*/true, &err)) {
    if (merging)
      NXCLog(LOG_ERR, fn, "Failed to open database file after import,error: %s", strerror(err));
    else
      NXCLog(LOG_ERR, fn, "Failed to open database file after import, error: %s", strerror(err));
    return false;
  }
  // The cache's contents stand for the database's, whatever the file holds.
  JournalMarkKnown(db);
  NXCLog(LOG_ERR, fn, "Reopened database file: %s", databasePath);
  return true;
}

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgExportConfig(NXCNetworkConfigurationDB *cache, const char *path,
                                      bool backup) noexcept {
  static constexpr char kFn[] = "NXCNetCfgExportConfig";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db || !path) {
    NXCLog(LOG_ERR, kFn, "Failed to write records to database file: %s", OrNull(path));
    return false;
  }
  if (!NetCfgWriteDatabaseFile(db, path, backup)) {
    NXCLog(LOG_ERR, kFn, "Failed to write records to database file: %s", path);
    return false;
  }
  return true;
}

extern "C" bool NXCNetCfgExportConfigToBuffer(NXCNetworkConfigurationDB *cache, char **text,
                                              size_t *length, bool /*nulTerminated*/) noexcept {
  static constexpr char kFn[] = "NXCNetCfgExportConfigToBuffer";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  ByteBuffer buffer;
  if (!db || !text || NetCfgWriteDatabaseToBuffer(db, &buffer)) {
    NXCLog(LOG_ERR, kFn, "Failed to write records to buffer");
    return false;
  }
  size_t size = 0;
  char *out = buffer.Release(&size);
  if (!out) {
    NXCLog(LOG_ERR, kFn, "Failed to write records to buffer");
    return false;
  }
  *text = out;
  if (length) *length = size;
  return true;
}

extern "C" bool NXCNetCfgImportConfig(const char *backupPath, const char *databasePath) noexcept {
  static constexpr char kFn[] = "NXCNetCfgImportConfig";
  NXCNetworkConfigurationDB *backup = nullptr;
  if (!backupPath || !databasePath ||
      !NXCNetCfgLoad(backupPath, &backup, /*backup=*/true, /*readOnly=*/true)) {
    NXCLog(LOG_ERR, kFn, "Failed to parse and load configuration data from backup file: %s",
           OrNull(backupPath));
    return false;
  }
  ScopeGuard unloadBackup([&] {
    if (!NXCNetCfgUnload(&backup, /*writeBack=*/false))
      NXCLog(LOG_ERR, kFn, "Failed to unload backup database cache");
  });
  if (!backup->backup) {
    NXCLog(LOG_ERR, kFn, "Specified backup file is not actually a backup file");
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Source version - %u,%u, Destination version - %u,%u", backup->major,
         backup->minor, 1u, 0u);
  if (backup->major > 1 && backup->minor != 0) {
    NXCLog(LOG_ERR, kFn, "Source database version is higher than destination of version");
    return false;
  }
  if (!NetCfgCleanupDatabaseFields(backup)) {
    NXCLog(LOG_ERR, kFn, "Failed to cleanup database fields");
    return false;
  }
  if (!NetCfgUpdateDatabaseFields(backup)) return false;
  bool wasLoaded = gDefaultCache != nullptr;
  bool wasReadOnly = wasLoaded && gDefaultCache->readOnly;
  if (wasLoaded && !NXCNetCfgUnload(nullptr, /*writeBack=*/false)) {
    NXCLog(LOG_ERR, kFn, "Failed to unload default database cache");
    return false;
  }
  char kept[kPathSize] = "";
  bool ok = !NXCFileExists(-1, NXC_FILE_CUSTOM, databasePath) ||
            KeepDatabaseAside(databasePath, kept, kFn);
  if (ok && !NetCfgWriteDatabaseFile(backup, databasePath, /*backup=*/false)) {
    NXCLog(LOG_ERR, kFn, "Failed to write to database file: %s", databasePath);
    ok = false;
  }
  ok = ok && ReopenAsDatabase(backup, databasePath, /*merging=*/false, kFn);
  if (!ok) RestoreDatabase(databasePath, kept, kFn);
  // A default cache that was loaded is loaded again from whatever file is
  // now the database, so that it matches the disk.
  if (!wasLoaded || NXCNetCfgLoad(databasePath, nullptr, false, wasReadOnly)) return ok;
  if (ok)
    NXCLog(LOG_ERR, kFn, "Failed to reload the default database cache");
  else
    NXCLog(LOG_ERR, kFn, "Failed to restore the default database cache, during error handling");
  return ok;
}
