// database_api.cpp - the public calls on the networking database file
// itself: create, delete, test, export, import and merge.
//
// Several of them are meant for installation time, before any caller has
// loaded the library: they then open the default log and the file
// bookkeeping for the duration of the call themselves, and take no lock.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "api/api_util.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

using namespace nxc;

namespace {

constexpr char kDefaultExportFile[] = "/tmp/networking_export";

[[nodiscard]] bool Loaded() { return nxcContext.loadCount != 0; }

// The log of a call made while the library is not loaded: the default log
// file, with the default mask whether or not it opened.
void OpenTemporaryLog() {
  nxcContext.logStream = fopen(kDefaultLogPath, "ab+e");
  nxcContext.logMask = kDefaultLogMask;
}

void CloseTemporaryLog() {
  if (nxcContext.logStream) (void)fclose(nxcContext.logStream);
  nxcContext.logStream = nullptr;
}

[[nodiscard]] bool DatabasePath(const char *fn, char (&path)[kPathSize]) {
  if (NXCGetFileName(-1, NXC_FILE_NETWORKING_DB, path, sizeof path)) return true;
  NXCLog(LOG_ERR, fn, "Failed to get the path of networking DB file");
  return false;
}

// Moves an existing database aside to the first free "<path>.bak.<n>".
[[nodiscard]] bool BackUpDatabase(const char *fn, const char *path, char (&kept)[kPathSize]) {
  for (uint32_t n = 0;; ++n) {
    if (BoundedPrint(kept, sizeof kept, "%s.bak.%u", path, n) < 0) return false;
    if (!NXCFileExists(-1, NXC_FILE_CUSTOM, kept)) break;
  }
  if (!NXCCreateFile(-1, NXC_FILE_CUSTOM, kept) || rename(path, kept) != 0) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Failed to backup existing database file, error: %s", strerror(err));
    return false;
  }
  NXCLog(LOG_INFO, fn, "Renamed database file: %s to: %s", path, kept);
  NXCLog(LOG_INFO2, fn, "Existing database will be overwritten");
  return true;
}

// The shared body of import and merge.
template <class Apply>
[[nodiscard]] bool ReadDatabaseFrom(const char *fn, const char *file, Apply apply) {
  bool loaded = Loaded();
  NXCLog(LOG_INFO2, fn, "nexcfg is %sloaded", loaded ? "" : "not ");
  if (!loaded) {
    if (!NXCFileDirBookkeepingDBLoad()) {
      NXCLog(LOG_ERR, fn, "Failed to load the file creation database");
      return false;
    }
    OpenTemporaryLog();
  }
  NXCLog(LOG_ARGS, fn, "Arguments - f: %p,%s", (const void *)file, OrNull(file));
  if (!file) file = kDefaultExportFile;
  char path[kPathSize];
  if (!DatabasePath(fn, path)) return false;
  if (!NXCFileExists(-1, NXC_FILE_CUSTOM, file)) {
    NXCLog(LOG_ERR, fn, "Import file does not exist");
    return false;
  }
  bool ok = apply(file, path);
  if (ok)
    NXCLog(LOG_OK, fn, "Imported configration data from backup file: %s", file);  // sic
  else
    NXCLog(LOG_ERR, fn, "Failed to import configuration data from backup file: %s", file);
  if (!loaded) {
    (void)NXCFileDirBookkeepingDBUnload();
    CloseTemporaryLog();
  }
  return ok;
}

}  // namespace

extern "C" bool NXC_CreateNetworkingDB(bool overwrite) noexcept {
  static constexpr char kFn[] = "NXC_CreateNetworkingDB";
  ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  bool loaded = Loaded();
  if (!loaded) {
    if (!NXCFileDirBookkeepingDBLoad()) {
      NXCLog(LOG_ERR, kFn, "Failed to load the file creation database");
      return call.Exit(__LINE__, false);
    }
    OpenTemporaryLog();
  }
  char path[kPathSize];
  if (!DatabasePath(kFn, path)) return call.Exit(__LINE__, false);
  // These early refusals keep the temporary log and bookkeeping open.
  if (loaded) {
    NXCLog(LOG_ERR, kFn,
           "nexcfg is initialized, unload the data structures and delete existing networking "
           "configuration database before creating new one");
    return call.Exit(__LINE__, false);
  }
  char kept[kPathSize] = "";
  if (NXCFileExists(-1, NXC_FILE_CUSTOM, path)) {
    if (!overwrite) {
      NXCLog(LOG_ERR, kFn, "Existing networking configuration database must be deleted before creating new one");
      return call.Exit(__LINE__, false);
    }
    if (!BackUpDatabase(kFn, path, kept)) return call.Exit(__LINE__, false);
  }
  bool ok = NXCNetCfgCreateDB(path, /*backup=*/false);
  if (ok) {
    NXCLog(LOG_OK, kFn, "Created and initialized networking configuration database: %s", path);
  } else {
    NXCLog(LOG_ERR, kFn, "Failed to create/initialize database file: %s", path);
    if (kept[0] != '\0' && rename(kept, path) == 0)
      NXCLog(LOG_INFO, kFn, "Restored database file during error handling");
    else if (kept[0] != '\0')
      NXCLog(LOG_ERR, kFn, "Failed to restore database file during error handling from: %s to %s",
             kept, path);
  }
  (void)NXCFileDirBookkeepingDBUnload();
  CloseTemporaryLog();
  return call.Exit(__LINE__, ok);
}

// This call closes with a second entry banner instead of an exit banner, as
// log readers have always seen it.
extern "C" bool NXC_DeleteNetworkingDB(void) noexcept {
  static constexpr char kFn[] = "NXC_DeleteNetworkingDB";
  ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  bool ok = false;
  char path[kPathSize];
  if (Loaded())
    NXCLog(LOG_ERR, kFn,
           "nexcfg is initialized, unload the data structures and delete existing networking "
           "configuration database before creating new one");
  else if (DatabasePath(kFn, path))
    ok = NXCRemoveFile(-1, NXC_FILE_CUSTOM, path);
  call.EnterBanner(__LINE__);
  return ok;
}

extern "C" bool NXC_NetworkingDBExists(void) noexcept {
  ApiCall call("NXC_NetworkingDBExists");
  char path[kPathSize];
  return DatabasePath(call.fn(), path) &&
         NXCFileExists(-1, NXC_FILE_CUSTOM, path);
}

extern "C" bool NXC_CanReadNetworkingDB(void) noexcept {
  ApiCall call("NXC_CanReadNetworkingDB");
  bool temporaryLog = !Loaded();
  if (temporaryLog) OpenTemporaryLog();
  char path[kPathSize];
  bool ok = DatabasePath(call.fn(), path) && NXCNetCfgCheckVersion(path);
  if (temporaryLog) CloseTemporaryLog();
  return ok;
}

extern "C" char *NXC_ExportDatabaseToBuffer(void) noexcept {
  static constexpr char kFn[] = "NXC_ExportDatabaseToBuffer";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return nullptr;
  char *text = nullptr;
  if (!NXCNetCfgExportConfigToBuffer(nullptr, &text, nullptr, true)) {
    NXCLog(LOG_ERR, kFn, "Failed to export configuration database to buffer");
    free(text);
    return call.Exit<char *>(__LINE__, nullptr);
  }
  NXCLog(LOG_OK, kFn, "Exported configuration database to buffer");
  return call.Exit(__LINE__, text);
}

extern "C" bool NXC_ExportDatabaseToFile(const char *file) noexcept {
  static constexpr char kFn[] = "NXC_ExportDatabaseToFile";
  ApiCall call(kFn);
  if (!call.Enter(__LINE__)) return false;
  NXCLog(LOG_ARGS, kFn, "Arguments - f: %p,%s", (const void *)file, OrNull(file));
  if (!file) file = kDefaultExportFile;
  if (!call.Lock()) return call.Exit(__LINE__, false);
  bool ok = NXCNetCfgExportConfig(nullptr, file, /*backup=*/false);
  if (ok)
    NXCLog(LOG_OK, kFn, "Exported configuration database to backup file: %s", file);
  else
    NXCLog(LOG_ERR, kFn, "Failed to export configuration database to backup file:%s", file);
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_ImportDatabaseFromFile(const char *file) noexcept {
  static constexpr char kFn[] = "NXC_ImportDatabaseFromFile";
  ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  bool ok = ReadDatabaseFrom(kFn, file, [](const char *from, const char *databasePath) {
    return NXCNetCfgImportConfig(from, databasePath);
  });
  return call.Exit(__LINE__, ok);
}

extern "C" bool NXC_MergeDatabaseFromFile(const char *file) noexcept {
  static constexpr char kFn[] = "NXC_MergeDatabaseFromFile";
  ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  bool ok = ReadDatabaseFrom(kFn, file, [](const char *from, const char *) {
    return NXCNetCfgMergeConfig(from);
  });
  return call.Exit(__LINE__, ok);
}
