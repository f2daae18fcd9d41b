// stop.cpp - stopping and restarting a vnet's daemon.
//
// A daemon is stopped with the terminate signal; the stop then polls it
// every 50 ms and kills it when it is still there after 3 s. Its pid file
// goes in any case.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/mono_time.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"
#include "service/service_priv.h"

namespace {

constexpr useconds_t kPollInterval = 50000;  // microseconds
constexpr uint64_t kStopTimeout = 3000000;   // microseconds
constexpr uint64_t kNanosPerMicro = 1000;

uint64_t NowMicros() { return nxc::MonotonicNanos() / kNanosPerMicro; }

// Waits for a terminated daemon to go away, killing it after the time-out.
void AwaitExit(pid_t pid, const char *desc, const char *fn) {
  uint64_t signalled = NowMicros();
  for (;;) {
    (void)usleep(kPollInterval);
    if (kill(pid, 0) != 0 && errno == ESRCH) {
      NXCLog(LOG_INFO, fn, "Successfully killed %s service daemon, pid: %ld", desc,
             static_cast<long>(pid));
      return;
    }
    if (NowMicros() - signalled > kStopTimeout) {
      NXCLog(LOG_INFO, fn, "Timeout expired while waiting for %s service daemon, pid: %ld to quit",
             desc, static_cast<long>(pid));
      (void)kill(pid, SIGKILL);
      return;
    }
  }
}

}  // namespace

extern "C" bool NXCServiceStop(uint32_t vnet, uint32_t id) noexcept {
  static constexpr char kFn[] = "NXCServiceStop";
  nxc::InternalEnter(kFn, __LINE__);
  char *rawPath = nullptr;
  const char *desc = nullptr;
  if (!NXCGetPidFilename(vnet, id, &rawPath, &desc)) return nxc::InternalExit(kFn, __LINE__, false);
  nxc::CPtr<char> path(rawPath);

  bool fileMissing = false;
  pid_t pid = NXCExtractPidFromFile(path.get(), &fileMissing);
  if (pid == 0) {
    NXCLog(LOG_WRN, kFn, "Could not extract PID of %s", desc);
    // Without a pid file the daemon is stopped already; a pid file that
    // names no pid leaves it unknown.
    return nxc::InternalExit(kFn, __LINE__, fileMissing);
  }
  if (kill(pid, SIGTERM) == 0) {
    AwaitExit(pid, desc, kFn);
  } else if (errno == ESRCH) {
    NXCLog(LOG_INFO, kFn, "%s service daemon does not seem to be running, pid: %ld", desc,
           static_cast<long>(pid));
  } else {
    NXCLog(LOG_ERR, kFn, "Sending term failed for %s service daemon, pid: %ld, error: %s", desc,
           static_cast<long>(pid), strerror(errno));
    (void)kill(pid, SIGKILL);
  }
  (void)NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_CUSTOM, path.get());
  // The NAT stop makes a second removal with no name at all, kept as it is:
  // it fails, and its result does not count.
  if (id == NXC_SERVICE_NAT)
    (void)NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_CUSTOM, nullptr);
  return nxc::InternalExit(kFn, __LINE__, true);
}

extern "C" bool NXCRestartService(uint32_t vnet, uint32_t id, bool *wasRunning, bool *isRunning,
                                  bool startIfStopped) noexcept {
  static constexpr char kFn[] = "NXCRestartService";
  const nxc::ServiceInfo *service = nxc::FindService(id);
  if (!service) {
    NXCLog(LOG_ERR, kFn, "Unknown service: %d", static_cast<int>(id));
    return false;
  }
  // wasRunning is told as soon as the status is known, also when the stop
  // then fails.
  uint32_t status = NXCServiceStatus(vnet, id);
  if (status == NXC_SERVICE_STATUS_UNKNOWN) {
    NXCLog(LOG_ERR, kFn, "Cannot determine status of service: %u on vnet: %d", id,
           static_cast<int>(vnet));
    return false;
  }
  if (status == NXC_SERVICE_RUNNING) {
    if (wasRunning) *wasRunning = true;
    if (!NXCServiceStop(vnet, id)) {
      NXCLog(LOG_ERR, kFn, "Failed to stop service: %u for vnet: %d", id, static_cast<int>(vnet));
      return false;
    }
  } else {
    NXCLog(LOG_INFO2, kFn, "Service: %u is not running on vnet: %d", id, static_cast<int>(vnet));
    if (wasRunning) *wasRunning = false;
    if (!startIfStopped) return true;
  }
  if (!NXCVnetIsOptionConfigured(vnet, service->option)) {
    NXCLog(LOG_INFO2, kFn,
           "Service: %u could not be restarted since it is not configured for vnet: %d", id,
           static_cast<int>(vnet));
    if (isRunning) *isRunning = false;
    return true;
  }
  if (!NXCServiceStart(vnet, id)) {
    NXCLog(LOG_ERR, kFn, "Failed to start service: %u for vnet: %d", id, static_cast<int>(vnet));
    return false;
  }
  if (isRunning) *isRunning = true;
  return true;
}
