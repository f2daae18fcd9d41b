// api_frame.cpp - the call lock, banners, loaded test and database lock of
// the API call frame.
#include "core/api_frame.h"

#include <pthread.h>

namespace nxc {

namespace {
pthread_mutex_t gCallMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
}

void ApiEnterBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, nullptr, "\n----------------------------------\nEntering API Function, %s:%d\n",
         fn, line);
}

void ApiExitBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, nullptr, "\nExiting API Function, %s:%d\n-----------\n", fn, line);
}

[[nodiscard]] bool ApiIsLoaded(const char *fn) noexcept {
  if (nxcContext.loadCount != 0) return true;
  NXCLog(LOG_ERR, fn, "Nexcfg Un-Initialized. Aborting API Function: %s", fn);
  return false;
}

// Locking a valid recursive mutex fails only on a count overflow, which
// nesting within one call cannot reach.
ApiCall::ApiCall(const char *fn) noexcept : fn_(fn) { (void)pthread_mutex_lock(&gCallMutex); }

ApiCall::~ApiCall() {
  Unlock();
  (void)pthread_mutex_unlock(&gCallMutex);
}

bool ApiCall::Enter(int line) noexcept {
  ApiEnterBanner(fn_, line);
  return ApiIsLoaded(fn_);
}

void ApiCall::EnterBanner(int line) noexcept { ApiEnterBanner(fn_, line); }

bool ApiCall::Lock(bool evenReadOnly) noexcept {
  if ((!evenReadOnly && NXCNetCfgIsReadOnly(nullptr)) || NXCNetCfgLockConfig(nullptr)) {
    locked_ = true;
    return true;
  }
  NXCLog(LOG_ERR, fn_, "Failed to obtain lock on vnet config");
  return false;
}

void ApiCall::Unlock() noexcept {
  if (!locked_) return;
  locked_ = false;
  // Unlocking a database that holds no lock only writes a trace line.
  (void)NXCNetCfgUnlockConfig(nullptr);
}

void ApiCall::Exit(int line) noexcept {
  Unlock();
  ApiExitBanner(fn_, line);
}

void InternalEnter(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, fn, " Entering Function, %s:%d", fn, line);
}

void InternalExitBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, fn, " Exiting Function, %s:%d", fn, line);
}

}  // namespace nxc
