// lifecycle.cpp - loading and unloading the library, its version, and the
// raw answer calls.
//
// The first NXC_Load opens the default log, loads the networking database
// into the default cache and takes the log settings from it; nested loads
// only count. The last unload frees the cache (writing a changed database
// back) and closes the log.
#include <errno.h>
#include <string.h>

#include "base/text_sizes.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"

namespace {

// The interface version: the major number of the library's version in the
// high 16 bits, the minor one in the low bits (1.0.x gives 0x10000).
constexpr uint32_t kVersion = (uint32_t{NXC_VERSION_MAJOR} << 16) | NXC_VERSION_MINOR;
// While no log stream could be opened: no level bit is set in it.
constexpr uint32_t kNoLogMask = 0xFFFFFF80;
using nxc::kPathSize;

// Switches to the log file named by the database, keeping the current one
// when it cannot be opened.
void OpenConfiguredLog(const char *fn) {
  char path[kPathSize];
  if (!NXCGetLogPath(path, sizeof path) || strcmp(path, nxc::kDefaultLogPath) == 0) return;
  FILE *stream = fopen(path, "ab+e");
  if (!stream) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fopen: opening log file: %s failed, error: %s", path, strerror(err));
    return;
  }
  if (nxcContext.logStream) (void)fclose(nxcContext.logStream);
  nxcContext.logStream = stream;
}

// One line per level, so that the log shows which levels are on.
void WriteLevelProbes(const char *fn) {
  NXCLog(LOG_ERR, fn, "LOG_ERR logged");
  NXCLog(LOG_ERRCMN, fn, "LOG_ERRCMN logged");
  NXCLog(LOG_WRN, fn, "LOG_WRN logged");
  NXCLog(LOG_OK, fn, "LOG_OK logged");
  NXCLog(LOG_INFO, fn, "LOG_INFO logged");
  NXCLog(LOG_INFO2, fn, "LOG_INFO2 logged");
  NXCLog(LOG_ARGS, fn, "LOG_ARGS logged");
}

}  // namespace

extern "C" bool NXC_Load(int32_t readOnly) noexcept {
  static constexpr char kFn[] = "NXC_Load";
  nxc::ApiCall call(kFn);
  // The load count is a 16-bit quantity everywhere: 65,536 loads wrap it.
  if (nxcContext.loadCount != 0) {
    nxcContext.loadCount = static_cast<uint16_t>(nxcContext.loadCount + 1);
    NXCLog(LOG_INFO, kFn, "nexcfg is already loaded");
    return true;
  }
  char dbPath[kPathSize];
  if (!NXCGetFileName(-1, NXC_FILE_NETWORKING_DB, dbPath, sizeof dbPath)) {
    NXCLog(LOG_ERR, kFn, "Failed to get the path of networking DB file");
    return false;
  }
  // A stream left open by an earlier failed load is replaced, as it stands.
  nxcContext.logStream = fopen(nxc::kDefaultLogPath, "ab+e");
  nxcContext.logMask = nxcContext.logStream ? nxc::kDefaultLogMask : kNoLogMask;
  call.EnterBanner(__LINE__);

  bool flag = (readOnly & 0xFF) != 0;
  if (!NXCNetCfgLoad(dbPath, /*out=*/nullptr, /*backup=*/false, flag)) {
    NXCLog(LOG_ERR, kFn, "Error loading the vnet configuration, file used: %s", dbPath);
    (void)NXCNetCfgUnload(nullptr, /*writeBack=*/false);
    (void)NXCFileDirBookkeepingDBUnload();
    return call.Exit(__LINE__, false);
  }
  if (!NXCFileDirBookkeepingDBLoad()) {
    NXCLog(LOG_ERR, kFn, "Failed to load the file creation database");
    (void)NXCNetCfgUnload(nullptr, /*writeBack=*/false);
    (void)NXCFileDirBookkeepingDBUnload();
    return call.Exit(__LINE__, false);
  }
  nxcContext.logMask = NXCGetVnetCfgLogLevel();
  OpenConfiguredLog(kFn);
  WriteLevelProbes(kFn);
  NXCLog(LOG_INFO, kFn, "Config file used: %s", dbPath);
  (void)NXCGetDefaultBridgeVnet(nullptr);  // primes the cached value
  nxcContext.loadCount = static_cast<uint16_t>(nxcContext.loadCount + 1);
  NXCLog(LOG_OK, kFn, "Successfully initialized Nexcfg");
  return call.Exit(__LINE__, true);
}

extern "C" void NXC_Unload2(int32_t writeBack) noexcept {
  static constexpr char kFn[] = "NXC_Unload2";
  nxc::ApiCall call(kFn);
  call.EnterBanner(__LINE__);
  if (nxcContext.loadCount == 0) {
    NXCLog(LOG_INFO, kFn, "nexcfg is not loaded");
    call.Exit(__LINE__);
    return;
  }
  nxcContext.loadCount = static_cast<uint16_t>(nxcContext.loadCount - 1);
  if (nxcContext.loadCount == 0) {
    (void)NXCNetCfgUnload(nullptr, (writeBack & 0xFF) != 0);
    (void)NXCFileDirBookkeepingDBUnload();
    NXCLog(LOG_OK, kFn, "Nexcfg unloaded.");
    if (nxcContext.logStream) {
      // The exit banner below finds no stream and is not written.
      (void)fclose(nxcContext.logStream);
      nxcContext.logStream = nullptr;
    }
  }
  call.Exit(__LINE__);
}

extern "C" void NXC_Unload(void) noexcept { NXC_Unload2(1); }

extern "C" uint32_t NXC_Version(void) noexcept { return kVersion; }

namespace {

// The short frame of the answer calls: no banners and no argument trace,
// only the loaded test and the argument check.
[[nodiscard]] bool AnswerCallAllowed(const char *fn, bool argumentsValid) {
  if (nxcContext.loadCount == 0) {
    NXCLog(LOG_ERR, fn, "Nexcfg Un-Initialized, Aborting\n");
    return false;
  }
  if (!argumentsValid) {
    NXCLog(LOG_ERR, fn, "Invalid argument");
    return false;
  }
  return true;
}

}  // namespace

extern "C" bool NXC_VnetCfgAddAnswer(const char *key, const char *value) noexcept {
  nxc::ApiCall call("NXC_VnetCfgAddAnswer");
  if (!AnswerCallAllowed(call.fn(), key && value)) return false;
  return NXCNetCfgAddAnswerString(nullptr, key, value);
}

extern "C" bool NXC_VnetCfgRemoveAnswer(const char *key) noexcept {
  nxc::ApiCall call("NXC_VnetCfgRemoveAnswer");
  if (!AnswerCallAllowed(call.fn(), key != nullptr)) return false;
  return NXCNetCfgRemoveAnswer(nullptr, key);
}

extern "C" bool NXC_VnetCfgGetAnswer(const char *key, const char **value) noexcept {
  nxc::ApiCall call("NXC_VnetCfgGetAnswer");
  if (!AnswerCallAllowed(call.fn(), key && value)) return false;
  return NXCNetCfgGetAnswerString(nullptr, key, value);
}
