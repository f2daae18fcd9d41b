// pid_file.cpp - the table of the per-vnet daemons, their pid files and
// their status.
//
// A daemon writes its own pid file, RUNDIR/<program>-<vnet>.pid, whose first
// line is its pid. The library keeps no handle on a daemon: it finds it
// again only through that file and probes it with signal 0.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/line_reader.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"
#include "service/service_priv.h"

namespace {

using nxc::CPtr;
using nxc::ServiceInfo;

constexpr ServiceInfo kServices[] = {
    {NXC_SERVICE_BRIDGE, "Bridge", "BRIDGE_PROGRAM", "zynet-bridge", false, NXC_VNET_OPTION_BRIDGE},
    {NXC_SERVICE_NETIFUP, "Netifup", "NETIFUP_PROGRAM", "zynet-netifup", true,
     NXC_VNET_OPTION_ADAPTER},
    {NXC_SERVICE_DHCP, "DHCP", "DHCP_PROGRAM", "zynet-dhcpd", true, NXC_VNET_OPTION_DHCP},
    {NXC_SERVICE_NAT, "NAT", "NAT_PROGRAM", "zynet-natd", false, NXC_VNET_OPTION_NAT},
};

using nxc::kVnetNameSize;

constexpr char kDefaultRunDir[] = "/var/run";
// The first line of a pid file is read up to this many characters.
constexpr size_t kPidLineLength = 256;

// The pid file's program name: the service's answer, or the daemon's own
// name when the answer is absent.
const char *PidFileProgram(const ServiceInfo &service, const char *fn) {
  const char *program = nullptr;
  if (NXCNetCfgGetAnswerString(nullptr, service.programKey, &program) && program) return program;
  switch (service.id) {
    case NXC_SERVICE_BRIDGE:
      NXCLog(LOG_INFO2, fn, "Cannot find BRIDGE_PROGRAM value in Vnet Config");
      break;
    case NXC_SERVICE_NETIFUP:
      NXCLog(LOG_INFO2, fn, "Cannot find NETIFUP_PROGRAM value in Vnet Config");
      break;
    case NXC_SERVICE_DHCP:
      NXCLog(LOG_INFO2, fn, "Cannot find DHCP_PROGRAM value in Vnet Config");
      break;
    default:
      NXCLog(LOG_INFO2, fn, "Cannot find NAT_PROGRAM value in Vnet Config");
      break;
  }
  return service.program;
}

// A whole line of decimal digits as a pid; 0 for anything else, and for
// values that do not fit a pid (they would be negative).
int32_t ParsePid(const char *line) {
  if (!line || !*line) return 0;
  uint64_t value = 0;
  for (const char *p = line; *p; ++p) {
    if (*p < '0' || *p > '9') return 0;
    value = value * 10 + static_cast<uint64_t>(*p - '0');
    if (value > INT32_MAX) return 0;
  }
  return static_cast<int32_t>(value);
}

}  // namespace

namespace nxc {

const ServiceInfo *FindService(uint32_t id) noexcept {
  for (const ServiceInfo &service : kServices)
    if (service.id == id) return &service;
  return nullptr;
}

}  // namespace nxc

extern "C" uint32_t NXCLookupConfigOptionForServiceID(uint32_t id) noexcept {
  const ServiceInfo *service = nxc::FindService(id);
  return service ? service->option : 0;
}

extern "C" const char *NXCLookupDescStringForServiceID(uint32_t id) noexcept {
  const ServiceInfo *service = nxc::FindService(id);
  return service ? service->description : "";
}

extern "C" bool NXCGetPidFilename(uint32_t vnet, uint32_t id, char **path,
                                  const char **desc) noexcept {
  static constexpr char kFn[] = "NXCGetPidFilename";
  const ServiceInfo *service = nxc::FindService(id);
  if (!service) {
    NXCLog(LOG_ERR, kFn, "Invalid service name: %d", static_cast<int>(id));
    return false;
  }
  if (!path) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  const char *runDir = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, "RUNDIR", &runDir) || !runDir) runDir = kDefaultRunDir;
  const char *program = PidFileProgram(*service, kFn);

  // The vnet part: the vnet name for some daemons, the number for others.
  char vnetPart[kVnetNameSize];
  if (service->pidFileByName) {
    if (!NXCConvVnetNumToName(vnet, vnetPart)) return false;  // no such vnet
  } else {
    (void)snprintf(vnetPart, sizeof vnetPart, "%d", static_cast<int>(vnet));
  }
  int length = snprintf(nullptr, 0, "%s/%s-%s.pid", runDir, program, vnetPart);
  size_t n = length < 0 ? 0 : static_cast<size_t>(length) + 1;
  char *p = n ? static_cast<char *>(malloc(n)) : nullptr;
  if (!p) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error, n: %u, p: %p", static_cast<unsigned>(n),
           static_cast<void *>(p));
    return false;
  }
  (void)snprintf(p, n, "%s/%s-%s.pid", runDir, program, vnetPart);
  *path = p;
  if (desc) *desc = service->description;
  return true;
}

extern "C" int32_t NXCExtractPidFromFile(const char *path, bool *fileMissing) noexcept {
  static constexpr char kFn[] = "NXCExtractPidFromFile";
  nxc::UniqueFile stream(path ? fopen(path, "re") : nullptr);
  if (!stream) {
    NXCLog(LOG_INFO, kFn, "Could not open the PID file: %s, error: %s", nxc::OrNull(path),
           strerror(path ? errno : EINVAL));
    if (fileMissing) *fileMissing = true;
    return 0;
  }
  if (fileMissing) *fileMissing = false;
  int error = 0;
  CPtr<char> line(nxc::ReadNextLine(stream.get(), kPidLineLength + 1, &error));
  return ParsePid(line.get());
}

extern "C" uint32_t NXCServiceStatus(uint32_t vnet, uint32_t id) noexcept {
  static constexpr char kFn[] = "NXCServiceStatus";
  nxc::InternalEnter(kFn, __LINE__);
  char *rawPath = nullptr;
  const char *desc = nullptr;
  if (!NXCGetPidFilename(vnet, id, &rawPath, &desc))
    return nxc::InternalExit(kFn, __LINE__, NXC_SERVICE_STATUS_UNKNOWN);
  CPtr<char> path(rawPath);

  bool fileMissing = false;
  long pid = NXCExtractPidFromFile(path.get(), &fileMissing);
  if (pid == 0) {
    NXCLog(LOG_INFO, kFn, "Could not extract PID of %s", desc);
    // No pid file: the daemon is not running. A pid file without a pid
    // says nothing either way.
    return nxc::InternalExit(kFn, __LINE__,
                             fileMissing ? NXC_SERVICE_NOT_RUNNING : NXC_SERVICE_STATUS_UNKNOWN);
  }
  if (kill(static_cast<pid_t>(pid), 0) == 0) {
    NXCLog(LOG_INFO2, kFn, "Successfully tracked %s daemon on vnet: %d, pid: %ld", desc,
           static_cast<int>(vnet), pid);
    return nxc::InternalExit(kFn, __LINE__, NXC_SERVICE_RUNNING);
  }
  if (errno == ESRCH) {
    // The stale pid file stays; the next start overwrites it.
    NXCLog(LOG_WRN, kFn, "pid: %ld for %s service daemon on vnet: %d is stale", pid, desc,
           static_cast<int>(vnet));
    return nxc::InternalExit(kFn, __LINE__, NXC_SERVICE_NOT_RUNNING);
  }
  NXCLog(LOG_ERR, kFn, "kill(): failed for pid: %ld, error: %s", pid, strerror(errno));
  return nxc::InternalExit(kFn, __LINE__, NXC_SERVICE_STATUS_UNKNOWN);
}
