// api_frame.h - the fixed frame every public API call runs in.
//
// A public function writes its own banners with explicit calls, because
// each exit banner carries the source line of its own return statement:
//
//   extern "C" bool NXC_GetVnetFeatures(NXC_VnetFeatures *ft) noexcept {
//     static constexpr char kFn[] = "NXC_GetVnetFeatures";
//     ApiEnterBanner(kFn, __LINE__);
//     if (!ApiIsLoaded(kFn)) return false;          // no exit banner here
//     NXCLog(LOG_ARGS, kFn, "Arguments - ft: %p", (void *)ft);
//     if (!ft) {
//       NXCLog(LOG_ERR, kFn, "Invalid argument - ft: %p", (void *)ft);
//       return ApiExit(kFn, __LINE__, false);
//     }
//     ...
//     return ApiExit(kFn, __LINE__, true);
//   }
#pragma once

#include "nexcfg_internal.h"

namespace nxc {

// Serialises the public calls of all threads of the process: every public
// function holds one for its whole frame, as its first statement, so that
// each call sees the library as a single caller would. Recursive, because
// a public call may make another.
class [[nodiscard]] ApiCallLock {
 public:
  ApiCallLock() noexcept;
  ~ApiCallLock();
  ApiCallLock(const ApiCallLock &) = delete;
  ApiCallLock &operator=(const ApiCallLock &) = delete;
};

// The log file used until the database names another.
inline constexpr char kDefaultLogPath[] = "/var/log/nexcfg";
// The mask while only the default log is open.
inline constexpr uint32_t kDefaultLogMask = 0x19;

// "\n----------------------------------\nEntering API Function, %s:%d\n"
// at LOG_INFO2, without a function-name prefix.
void ApiEnterBanner(const char *fn, int line) noexcept;
// "\nExiting API Function, %s:%d\n-----------\n" at LOG_INFO2.
void ApiExitBanner(const char *fn, int line) noexcept;
// Writes the exit banner and hands back the result, so that an exit reads
// `return ApiExit(kFn, __LINE__, value);`.
template <class T>
T ApiExit(const char *fn, int line, T result) noexcept {
  ApiExitBanner(fn, line);
  return result;
}
// False, after logging "Nexcfg Un-Initialized. Aborting API Function: %s",
// while the library is not loaded.
bool ApiIsLoaded(const char *fn) noexcept;

// The internal frame of the DHCP, NAT and service layers: " Entering
// Function, %s:%d" and " Exiting Function, %s:%d" at LOG_INFO2 with the
// function's own name as prefix. It does not test the load count.
void InternalEnter(const char *fn, int line) noexcept;
void InternalExitBanner(const char *fn, int line) noexcept;
template <class T>
T InternalExit(const char *fn, int line, T result) noexcept {
  InternalExitBanner(fn, line);
  return result;
}

// Never null: "" for a null text, for "%s" arguments of log lines.
inline const char *SafeStr(const char *s) noexcept { return s ? s : ""; }

}  // namespace nxc
