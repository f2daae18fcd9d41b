// api_frame.cpp - banners and the loaded test of the API call frame.
#include "core/api_frame.h"

namespace nxc {

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
