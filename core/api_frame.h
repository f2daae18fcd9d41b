// api_frame.h - the fixed frame every public API call runs in.
//
// A public function states one ApiCall value before anything else: it
// serialises the call with the public calls of every other thread and
// carries the function's name and whether the call holds the database
// lock. The banners stay explicit calls, because each carries the source
// line of its own statement:
//
//   extern "C" bool NXC_SetVnetMTU(const char *vnet, uint32_t mtu) noexcept {
//     static constexpr char kFn[] = "NXC_SetVnetMTU";
//     ApiCall call(kFn);
//     if (!call.Enter(__LINE__)) return false;        // not loaded: no exit banner
//     NXCLog(LOG_ARGS, kFn, "Arguments - v: %p,%s, mtu: %u", ...);
//     ...
//     if (!call.Lock()) return call.Exit(__LINE__, false);
//     if (!NXCSetVnetMTU(num, text)) {
//       NXCLog(LOG_ERR, kFn, "Error setting mtu for vnet: %s", vnet);
//       return call.Exit(__LINE__, false);           // unlocks, then the exit banner
//     }
//     NXCLog(LOG_OK, kFn, "Successfully set the mtu for vnet: %s", vnet);
//     return call.Exit(__LINE__, true);
//   }
#pragma once

#include "nexcfg_internal.h"

namespace nxc {

// The log file used until the database names another.
inline constexpr char kDefaultLogPath[] = "/var/log/nexcfg";
// The mask while only the default log is open.
inline constexpr uint32_t kDefaultLogMask = 0x19;

// "\n----------------------------------\nEntering API Function, %s:%d\n"
// at LOG_INFO2, without a function-name prefix.
void ApiEnterBanner(const char *fn, int line) noexcept;
// "\nExiting API Function, %s:%d\n-----------\n" at LOG_INFO2.
void ApiExitBanner(const char *fn, int line) noexcept;
// False, after logging "Nexcfg Un-Initialized. Aborting API Function: %s",
// while the library is not loaded.
[[nodiscard]] bool ApiIsLoaded(const char *fn) noexcept;

// One public call. It holds the process-wide call lock from its first
// statement to its end (recursive, because a public call may make another),
// so that each call sees the library as a single caller would.
class [[nodiscard]] ApiCall {
 public:
  explicit ApiCall(const char *fn) noexcept;
  // Releases a database lock still held (with its unlock line, as Unlock)
  // and then the call lock. Every path releases the database lock itself
  // through Exit; this only keeps a missed one from outliving the call.
  ~ApiCall();
  ApiCall(const ApiCall &) = delete;
  ApiCall &operator=(const ApiCall &) = delete;

  const char *fn() const noexcept { return fn_; }

  // The entry banner, then the loaded test: false while the library is not
  // loaded (logged by ApiIsLoaded), and the call then ends without an exit
  // banner.
  [[nodiscard]] bool Enter(int line) noexcept;
  // Only the entry banner, for the calls that work while not loaded.
  void EnterBanner(int line) noexcept;

  // Takes the database lock for a change; "Failed to obtain lock on vnet
  // config" when it cannot be had. A read-only database is changed in the
  // cache only and is not locked, unless evenReadOnly; the call holds the
  // lock in its own terms either way, and its unlock writes the database
  // layer's line for a database that holds none.
  [[nodiscard]] bool Lock(bool evenReadOnly = false) noexcept;
  // Releases the database lock now, when the call holds it.
  void Unlock() noexcept;

  // Releases the database lock, writes the exit banner and hands back the
  // result, so that an exit reads `return call.Exit(__LINE__, value);`.
  template <class T>
  T Exit(int line, T result) noexcept {
    Exit(line);
    return result;
  }
  void Exit(int line) noexcept;
  // Releases the database lock and hands back the result without an exit
  // banner, for the one call that never writes one.
  template <class T>
  T ExitWithoutBanner(T result) noexcept {
    Unlock();
    return result;
  }

 private:
  const char *fn_;
  bool locked_ = false;
};

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

}  // namespace nxc
