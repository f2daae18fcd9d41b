// api_frame.cpp - the lock, banners and loaded test of the API call frame.
#include "core/api_frame.h"

#include <pthread.h>

namespace nxc {

namespace {
pthread_mutex_t gCallMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
}

// Locking a valid recursive mutex fails only on a count overflow, which
// nesting within one call cannot reach.
ApiCallLock::ApiCallLock() noexcept { (void)pthread_mutex_lock(&gCallMutex); }

ApiCallLock::~ApiCallLock() { (void)pthread_mutex_unlock(&gCallMutex); }

void ApiEnterBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, nullptr, "\n----------------------------------\nEntering API Function, %s:%d\n",
         fn, line);
}

void ApiExitBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, nullptr, "\nExiting API Function, %s:%d\n-----------\n", fn, line);
}

bool ApiIsLoaded(const char *fn) noexcept {
  if (nxcContext.loadCount != 0) return true;
  NXCLog(LOG_ERR, fn, "Nexcfg Un-Initialized. Aborting API Function: %s", fn);
  return false;
}

void InternalEnter(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, fn, " Entering Function, %s:%d", fn, line);
}

void InternalExitBanner(const char *fn, int line) noexcept {
  NXCLog(LOG_INFO2, fn, " Exiting Function, %s:%d", fn, line);
}

}  // namespace nxc
