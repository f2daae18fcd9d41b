// lock.cpp - the cross-process lock on the database file, held around each
// sequence of changes.
#include <string.h>

#include "netcfg/netcfg_priv.h"

using namespace nxc;

extern "C" bool NXCNetCfgLockConfig(NXCNetworkConfigurationDB *cache) noexcept {
  static constexpr char kFn[] = "NXCNetCfgLockConfig";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db) {
    NXCLog(LOG_ERR, kFn, "Database cache is not loaded");
    return false;
  }
  if (db->lock) {
    NXCLog(LOG_INFO, kFn, "Database file is already locked");
    return false;
  }
  int err = 0;
  db->lock = JournalLock(db, &err);
  if (!db->lock) {
    NXCLog(LOG_ERR, kFn, "Failed to lock config file, file: %s, error: %s", db->path,
           err ? strerror(err) : "timed out");
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Database file locking success");
  return true;
}

extern "C" bool NXCNetCfgUnlockConfig(NXCNetworkConfigurationDB *cache) noexcept {
  static constexpr char kFn[] = "NXCNetCfgUnlockConfig";
  NXCNetworkConfigurationDB *db = ResolveCache(cache);
  if (!db || !db->lock) {
    NXCLog(LOG_INFO2, kFn, "Config file is not currently locked");
    return true;
  }
  // Unlock always releases the default cache's lock and clears its handle,
  // whichever cache was given: callers rely on it.
  FileLock *lock = gDefaultCache ? gDefaultCache->lock : nullptr;
  if (gDefaultCache) gDefaultCache->lock = nullptr;
  int err = 0;
  if (lock && !JournalUnlock(gDefaultCache, lock, &err)) {
    NXCLog(LOG_ERR, kFn, "Failed to unlock database file: %s, error: %s", gDefaultCache->path,
           strerror(err));
    return false;
  }
  NXCLog(LOG_INFO2, kFn, "Config file unlocking success");
  return true;
}
