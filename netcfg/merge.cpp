// merge.cpp - replacing the loaded configuration with another file's while
// the daemons run: the vnets whose settings changed have their daemons
// stopped, their daemon files rewritten and their daemons started again.
// (How two caches' port forwards compare is the port forward family's,
// in port_forwards.cpp.)
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "netcfg/netcfg_priv.h"

namespace nxc {

namespace {


const char *VnetAnswer(NXCNetworkConfigurationDB *db, const char *key) {
  HashTable *t = db->answers;
  auto *e = t ? static_cast<NetworkConfigDictionaryEntry *>(t->Lookup(StrKey(key))) : nullptr;
  return e ? e->value : nullptr;
}

// Whether any known setting of the vnet differs between the two caches.
[[nodiscard]]
bool VnetAnswersDiffer(NXCNetworkConfigurationDB *current, NXCNetworkConfigurationDB *incoming,
                       uint32_t vnet, const char *fn) {
  bool differ = false;
  for (std::string_view field : kKnownVnetFields) {
    char key[kPathSize];
    if (BoundedPrint(key, sizeof key, "VNET_%u_%.*s", vnet, static_cast<int>(field.size()),
                     field.data()) < 0) {
      NXCLog(LOG_ERR, fn, "Failed to allocate and copy key");
      return true;
    }
    const char *oldValue = VnetAnswer(current, key);
    const char *newValue = VnetAnswer(incoming, key);
    if (SameText(oldValue, newValue)) continue;
    NXCLog(LOG_INFO2, fn, "Key: %s OldValue: %s ", key, oldValue ? oldValue : "");
    NXCLog(LOG_INFO2, fn, "Key: %s NewValue: %s", key, newValue ? newValue : "");
    differ = true;
  }
  return differ;
}

// Reads the known vnet answers of from and, unless to is null, marks in
// differ the vnets of those that to lacks or holds with another value.
// *known gets how many known vnet answers from holds, *same how many of
// them to holds with the same value. False when memory runs out.
[[nodiscard]]
bool MarkAnswersNotIn(const HashTable *from, const HashTable *to, bool (&differ)[kNumVnets],
                      size_t *known, size_t *same) {
  *known = 0;
  *same = 0;
  const size_t count = from ? from->Count() : 0;
  if (count == 0) return true;
  void **listing = nullptr;
  size_t listed = 0;
  if (!from->Snapshot(&listing, &listed)) return false;
  CPtr<void *> entries(listing);
  constexpr size_t kAhead = 8;
  for (size_t i = 0; i < listed; ++i) {
    if (i + kAhead < listed) __builtin_prefetch(entries.get()[i + kAhead]);
    const auto *e = static_cast<const NetworkConfigDictionaryEntry *>(entries.get()[i]);
    uint32_t vnet = 0;
    if (!IsKnownVnetKey(e->key, &vnet)) continue;
    ++*known;
    if (!to) continue;
    const auto *other = static_cast<const NetworkConfigDictionaryEntry *>(to->Lookup(StrKey(e->key)));
    if (other && strcmp(other->value, e->value) == 0)
      ++*same;
    else
      differ[vnet] = true;
  }
  return true;
}

// Marks the vnets whose known settings may differ between the two caches:
// every one that does, and perhaps a few more. The known keys of each
// cache are read once, where VnetAnswersDiffer looks up every known key of
// every vnet in both; it then need only look at the vnets marked here.
void MarkVnetsWithOtherAnswers(NXCNetworkConfigurationDB *current,
                               NXCNetworkConfigurationDB *incoming, bool (&differ)[kNumVnets]) {
  size_t currentKnown = 0, same = 0, incomingKnown = 0, ignored = 0;
  bool listed = MarkAnswersNotIn(current->answers, incoming->answers, differ, &currentKnown, &same);
  // Every known answer of the incoming cache matched one of the current
  // cache when there are as many as matched; else they are looked up too.
  listed = listed && MarkAnswersNotIn(incoming->answers, nullptr, differ, &incomingKnown, &ignored);
  if (listed && incomingKnown != same)
    listed = MarkAnswersNotIn(incoming->answers, current->answers, differ, &incomingKnown, &ignored);
  if (!listed) std::fill(differ, differ + kNumVnets, true);
}

// Stops the running daemons of a vnet: bridge, NAT, DHCP, netifup.
[[nodiscard]] bool StopVnetServices(uint32_t vnet, const char *fn) {
  bool ok = true;
  auto stop = [&](uint32_t id) {
    return NXCServiceStatus(vnet, id) != NXC_SERVICE_RUNNING || NXCServiceStop(vnet, id);
  };
  if (!stop(NXC_SERVICE_BRIDGE)) {
    NXCLog(LOG_ERR, fn, "Failed to stop BRIDGE service for vnet: %d", static_cast<int>(vnet));
    ok = false;
  }
  if (!stop(NXC_SERVICE_NAT)) {
    NXCLog(LOG_ERR, fn, "Failed to stop NAT service for vnet: %d", static_cast<int>(vnet));
    ok = false;
  }
  if (!stop(NXC_SERVICE_DHCP)) {
    NXCLog(LOG_ERR, fn, "Failed to stop DHCP service for vnet: %d", static_cast<int>(vnet));
    ok = false;
  }
  if (!stop(NXC_SERVICE_NETIFUP)) {
    NXCLog(LOG_ERR, fn, "Failed to stop NETIFUP service for vnet: %d", static_cast<int>(vnet));
    ok = false;
  }
  return ok;
}

// Rewrites a changed vnet's daemon files and starts what it is configured
// for: bridge, netifup with the host-only adapter, DHCP, NAT.
[[nodiscard]] bool StartVnetServices(uint32_t vnet, const char *fn) {
  int v = static_cast<int>(vnet);
  bool ok = true;
  if (!NXCDHCPUpdateFromConfig(vnet)) {
    NXCLog(LOG_ERR, fn, "Failed to update DHCP config for vnet: %d", v);
    ok = false;
  }
  if (!NXCNATUpdateFromConfig(vnet)) {
    NXCLog(LOG_ERR, fn, "Failed to update NAT config for vnet: %d", v);
    ok = false;
  }
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_BRIDGE) &&
      !NXCServiceStart(vnet, NXC_SERVICE_BRIDGE)) {
    NXCLog(LOG_ERR, fn, "Failed to start BRIDGE service for vnet: %d", v);
    ok = false;
  }
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_ADAPTER)) {
    if (!NXCServiceStart(vnet, NXC_SERVICE_NETIFUP)) {
      NXCLog(LOG_ERR, fn, "Failed to start NETIFUP service for vnet: %d", v);
      ok = false;
    }
    if (!NXCVirtAdapterEnable(vnet)) {
      NXCLog(LOG_ERR, fn, "Failed to enable hostonly adapter on vnet: %d", v);
      ok = false;
    }
  }
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_DHCP) &&
      !NXCServiceStart(vnet, NXC_SERVICE_DHCP)) {
    NXCLog(LOG_ERR, fn, "Failed to start DHCP service for vnet: %d", v);
    ok = false;
  }
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_NAT) &&
      !NXCServiceStart(vnet, NXC_SERVICE_NAT)) {
    NXCLog(LOG_ERR, fn, "Failed to start NAT service for vnet: %d", v);
    ok = false;
  }
  return ok;
}

// Makes the merged cache the database: it takes the database's name and
// stream, becomes the default cache and is unloaded with a compact rewrite;
// the default cache is then loaded from the rewritten file.
[[nodiscard]]
bool InstallMergedCache(NXCNetworkConfigurationDB **incoming, const char *dbPath, const char *fn) {
  NXCNetworkConfigurationDB *db = *incoming;
  (void)NXCNetCfgUnload(nullptr, /*writeBack=*/false);
  // Held from here to the rewrite, so that no other process appends to the
  // file that the merged contents replace; the unload releases it.
  int err = 0;
  db->lock = FileLockAcquire(dbPath, kLockTimeoutMs, &err);
  if (!db->lock) {
    NXCLog(LOG_ERR, fn, "Failed to lock config file, file: %s, error: %s", dbPath,
           err ? strerror(err) : "timed out");
    return false;
  }
  if (!ReopenAsDatabase(db, dbPath, /*merging=*/true, fn)) return false;
  db->backup = false;
  db->readOnly = false;
  db->changed = true;  // so that the unload writes the merged contents
  gDefaultCache = db;
  *incoming = nullptr;
  (void)NXCNetCfgUnload(nullptr, /*writeBack=*/true);
  if (!NXCNetCfgLoad(dbPath, nullptr, false, false)) {
    NXCLog(LOG_ERR, fn, "Failed to reload the default database cache");
    return false;
  }
  return true;
}

// After a failed merge: the configuration saved before it is imported
// back and loaded again.
void RestoreBeforeMerge(NXCNetworkConfigurationDB **incoming, const char *saved, const char *fn) {
  bool ok = true;
  if (*incoming && !NXCNetCfgUnload(incoming, false)) {
    NXCLog(LOG_ERR, fn, "Failed to unload the new database cache");
    ok = false;
  }
  (void)NXCNetCfgUnload(nullptr, false);
  char dbPath[kPathSize];
  if (!NXCGetFileName(-1, NXC_FILE_NETWORKING_DB, dbPath, sizeof dbPath)) {
    NXCLog(LOG_ERR, fn, "Failed to get the path of networking DB file");
    NXCLog(LOG_ERR, fn, "Failed to restore database");
    return;
  }
  if (NXCNetCfgImportConfig(saved, dbPath)) {
    NXCLog(LOG_OK, fn, "Restored config from backup file: %s", saved);
  } else {
    NXCLog(LOG_ERR, fn, "Failed to restore configuration data from backup file: %s", saved);
    ok = false;
  }
  if (!gDefaultCache && !NXCNetCfgLoad(dbPath, nullptr, false, false)) {
    NXCLog(LOG_ERR, fn, "Failed to restore the default database cache, during error handling");
    ok = false;
  }
  if (!ok) NXCLog(LOG_ERR, fn, "Failed to restore database");
}

}  // namespace

}  // namespace nxc

using namespace nxc;

extern "C" bool NXCNetCfgMergeConfig(const char *path) noexcept {
  static constexpr char kFn[] = "NXCNetCfgMergeConfig";
  if (!gDefaultCache) {
    NXCLog(LOG_ERR, kFn, "Database needs to be loaded using NXC_Load beforecalling NXCNetCfgMergeConfig()");  // sic
    return false;
  }
  NXCNetworkConfigurationDB *incoming = nullptr;
  if (!path || !NXCNetCfgLoad(path, &incoming, /*backup=*/true, /*readOnly=*/false)) {
    NXCLog(LOG_ERR, kFn, "Failed to parse and load configuration data frombackup file: %s",  // sic
           path ? path : "");
    return false;
  }
  // The configuration before the merge, for the way back.
  char dbPath[kPathSize];
  char saved[kPathSize];
  if (BoundedPrint(dbPath, sizeof dbPath, "%s", gDefaultCache->path) < 0 ||
      BoundedPrint(saved, sizeof saved, "%s.premerge", dbPath) < 0 ||
      !NXCNetCfgExportConfig(nullptr, saved, /*backup=*/true)) {
    NXCLog(LOG_ERR, kFn, "Failed to create backup file: %s", saved);
    (void)NXCNetCfgUnload(&incoming, false);
    return false;
  }
  bool answersDiffer[kNumVnets] = {};
  MarkVnetsWithOtherAnswers(gDefaultCache, incoming, answersDiffer);
  bool changed[kNumVnets] = {};
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet)
    changed[vnet] = (answersDiffer[vnet] && VnetAnswersDiffer(gDefaultCache, incoming, vnet, kFn)) ||
                    !NXCNetCfgMergeConfigPortFwdCmp(incoming, vnet);
  bool ok = true;
  for (uint32_t vnet = 0; vnet < kNumVnets; ++vnet)
    if (changed[vnet] && !StopVnetServices(vnet, kFn)) ok = false;
  ok = ok && InstallMergedCache(&incoming, dbPath, kFn);
  for (uint32_t vnet = 0; ok && vnet < kNumVnets; ++vnet)
    if (changed[vnet] && !StartVnetServices(vnet, kFn)) ok = false;
  if (!ok) RestoreBeforeMerge(&incoming, saved, kFn);
  return ok;
}
