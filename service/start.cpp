// start.cpp - starting a vnet's daemon.
//
// The daemon is forked and executed with a command line built from the
// vnet's configuration. It gets the write end of a pipe as "-s <fd>" and
// reports a 2-byte status over it once it is up; it then detaches, so the
// start waits for the first process to end and for that report. A daemon
// that ends without writing (or an executable that is missing) makes the
// start fail.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "nexcfg_internal.h"
#include "service/service_priv.h"

namespace {

using nxc::AllocPrint;
using nxc::CPtr;
using nxc::ServiceInfo;
using nxc::UniqueFd;

constexpr char kFn[] = "NXCServiceStart";
constexpr char kDefaultBinDir[] = "/usr/bin";
using nxc::kPathSize;
using nxc::kVnetNameSize;
using nxc::kAdapterNameSize;

// The daemon's argument vector: separately malloc'd strings ending with a
// null element, in a growable array.
class ArgVector {
 public:
  ArgVector() = default;
  ArgVector(const ArgVector &) = delete;
  ArgVector &operator=(const ArgVector &) = delete;
  ~ArgVector() {
    for (uint32_t i = 0; i < count_; ++i) free(elements_[i]);
    free(elements_);
  }

  // Appends arg, which the vector then owns (and frees when it cannot be
  // appended). False, after logging, when arg is null or the array cannot
  // grow.
  [[nodiscard]] bool Add(char *arg) {
    if (arg && Grow()) {
      elements_[count_++] = arg;
      elements_[count_] = nullptr;
      return true;
    }
    free(arg);
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return false;
  }
  [[nodiscard]] bool AddCopy(const char *text) { return Add(strdup(text)); }

  uint32_t Count() const { return count_; }
  const char *At(uint32_t i) const { return elements_[i]; }
  // The null-terminated vector for exec; valid once an element was added.
  char *const *Get() const { return elements_; }

 private:
  // Room for one more element and the null that ends the vector.
  [[nodiscard]] bool Grow() {
    if (count_ + 2 <= capacity_) return true;
    uint32_t capacity = capacity_ ? capacity_ * 2 : 16;
    void *grown = realloc(elements_, capacity * sizeof(char *));
    if (!grown) return false;
    elements_ = static_cast<char **>(grown);
    capacity_ = capacity;
    return true;
  }

  char **elements_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
};

// "-d <pid file>" style pair with the daemon's pid file, or the pid file
// alone when option is null.
[[nodiscard]] bool AddPidFile(uint32_t vnet, uint32_t id, const char *option, ArgVector *args) {
  char *pidFile = nullptr;
  if (!NXCGetPidFilename(vnet, id, &pidFile, nullptr)) return false;
  if (option && !args->AddCopy(option)) {
    free(pidFile);
    return false;
  }
  return args->Add(pidFile);
}

// Adds a path of the host's file layout.
[[nodiscard]] bool AddFileName(uint32_t vnet, uint32_t type, ArgVector *args) {
  char path[kPathSize];
  if (!NXCGetFileName(static_cast<int32_t>(vnet), type, path, sizeof path)) return false;
  return args->AddCopy(path);
}

// The adapters the bridge daemon works with: on the default bridge vnet it
// takes every host adapter except those mapped elsewhere ("-e<name>"), on
// any other vnet just the adapters bridged to it ("-i<name>").
[[nodiscard]] bool AddBridgeAdapters(uint32_t vnet, ArgVector *args) {
  int32_t defaultBridge = -1;
  if (!NXCGetDefaultBridgeVnet(&defaultBridge)) {
    NXCLog(LOG_ERR, kFn, "Cannot obtain value of DefaultBridge");
    return false;
  }
  NXC_HostAdapter *list = nullptr;
  const char *option = nullptr;
  if (defaultBridge == static_cast<int32_t>(vnet)) {
    uint32_t count = 0;
    if (!NXCNetCfgLookupHostAdaptersForVnet(nullptr, static_cast<int32_t>(vnet), &count, &list,
                                            /*exclude=*/true)) {
      NXCLog(LOG_ERR, kFn, "Cannot obtain list of adapters excluded from vnet: %d",
             static_cast<int>(vnet));
      return false;
    }
    option = "-e";
  } else {
    if (!NXCGetVnetBridge(static_cast<int32_t>(vnet), nullptr, &list)) {
      NXCLog(LOG_ERR, kFn, "Cannot obtain list of adapters bridged to vnet: %d",
             static_cast<int>(vnet));
      return false;
    }
    option = "-i";
  }
  bool ok = true;
  for (const NXC_HostAdapter *a = list; a && ok; a = a->next)
    ok = args->Add(AllocPrint("%s%s", option, a->mappingName));
  NXCFreeHostAdapList(&list);
  return ok;
}

// The elements after "<executable> -s <fd>", service by service.
[[nodiscard]]
bool AddServiceArgs(uint32_t vnet, uint32_t id, const char *vnetName, ArgVector *args) {
  switch (id) {
    case NXC_SERVICE_BRIDGE:
      return AddPidFile(vnet, id, "-d", args) && args->AddCopy("-n") &&
             args->Add(AllocPrint("%d", static_cast<int>(vnet))) && AddBridgeAdapters(vnet, args);
    case NXC_SERVICE_NETIFUP: {
      // The MTU is passed only when the vnet has one.
      const char *mtu = NXCGetVnetCfg(vnet, "MTU");
      if (mtu && !(args->AddCopy("-m") && args->AddCopy(mtu))) return false;
      if (!AddPidFile(vnet, id, "-d", args) || !AddFileName(vnet, NXC_FILE_VNET_DEVICE, args))
        return false;
      char adapter[kAdapterNameSize];
      if (!NXCGetVnetVirtAdapter(vnet, adapter, sizeof adapter)) {
        NXCLog(LOG_ERR, kFn, "Cannot obtain virtual adapter name");
        return false;
      }
      return args->AddCopy(adapter);
    }
    case NXC_SERVICE_DHCP:
      return args->AddCopy("-cf") && AddFileName(vnet, NXC_FILE_DHCPD_CONF, args) &&
             args->AddCopy("-lf") && AddFileName(vnet, NXC_FILE_DHCPD_LEASES, args) &&
             AddPidFile(vnet, id, "-pf", args) && args->AddCopy(vnetName);
    case NXC_SERVICE_NAT:
      return AddPidFile(vnet, id, "-d", args) && args->AddCopy("-m") &&
             AddFileName(vnet, NXC_FILE_NAT_MAC, args) && args->AddCopy("-c") &&
             AddFileName(vnet, NXC_FILE_NAT_CONF, args);
    default:
      return false;  // refused by the caller
  }
}

// The forked child: its standard output and error become the log, the
// status pipe's write end survives the exec and every other descriptor is
// closed, every signal is unblocked.
// It never returns.
[[noreturn]] void RunChild(const char *executable, char *const *argv, int readEnd, int writeEnd) {
  FILE *log = nxcContext.logStream;
  if (log) {
    int logFd = fileno(log);
    if (logFd != STDOUT_FILENO) (void)close(STDOUT_FILENO);
    if (logFd != STDERR_FILENO) (void)close(STDERR_FILENO);
    int out = dup2(logFd, STDOUT_FILENO);
    int err = dup2(logFd, STDERR_FILENO);
    NXCLog(LOG_INFO, kFn, "Duping Fds status %d, %d", out, err);
    // The log's own descriptor is not passed on. The child's remaining
    // lines go to the log through its new standard error.
    if (logFd > STDERR_FILENO) (void)close(logFd);
    nxcContext.logStream = err == STDERR_FILENO ? fdopen(STDERR_FILENO, "a") : nullptr;
  } else {
    NXCLog(LOG_ERR, kFn, "Could not open log fd in child");
  }
  (void)close(readEnd);
  // The daemon gets its standard descriptors and the status pipe, nothing
  // of the caller's: a daemon holding a pipe of the caller's open would
  // keep its reader from ever seeing the end.
  const unsigned first = STDERR_FILENO + 1, kept = static_cast<unsigned>(writeEnd);
  if (kept > first) (void)close_range(first, kept - 1, 0);
  (void)close_range(kept >= first ? kept + 1 : first, ~0U, 0);
  int flags = fcntl(writeEnd, F_GETFD);
  if (flags >= 0) (void)fcntl(writeEnd, F_SETFD, flags & ~FD_CLOEXEC);
  sigset_t none;
  (void)sigemptyset(&none);
  (void)sigprocmask(SIG_SETMASK, &none, nullptr);
  NXCLog(LOG_INFO, kFn, "Child process started");
  (void)execv(executable, argv);
  NXCLog(LOG_ERR, kFn, "exec(): Error while starting daemon: %s, error: %s", executable,
         strerror(errno));
  _exit(1);
}

// Forks the daemon, waits for its first process and reads its report.
[[nodiscard]]
bool ForkAndWait(const char *executable, const ArgVector &args, UniqueFd *readEnd,
                 UniqueFd *writeEnd) {
  NXCLog(LOG_INFO, kFn, "Fork and exec command: %s", executable);
  for (uint32_t i = 0; i < args.Count(); ++i)
    NXCLog(LOG_INFO, kFn, "Argument: %u, %s", i, args.At(i));
  NXCLog(LOG_INFO2, kFn, "Attempting to fork a child for the service daemon");
  pid_t child = fork();
  if (child < 0) {
    NXCLog(LOG_ERR, kFn, "fork(): Error while forking child to start daemon: %s, error: %s",
           executable, strerror(errno));
    return false;
  }
  if (child == 0) RunChild(executable, args.Get(), readEnd->get(), writeEnd->get());

  writeEnd->reset();
  NXCLog(LOG_INFO, kFn,
         "Successfully forked off child process to start daemon: %s, pid: %d, waiting for child "
         "to complete",
         executable, static_cast<int>(child));
  // The daemon detaches itself: its first process ends once it is up.
  int status = 0;
  pid_t waited;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited < 0) {
    NXCLog(LOG_WRN, kFn, "waitpid() reported pid: %d, reported error: %s", static_cast<int>(waited),
           strerror(errno));
  } else {
    NXCLog(LOG_INFO, kFn, "waitpid() reported pid: %d, reported error: %s",
           static_cast<int>(waited), "none");
  }

  uint16_t value = 0;
  ssize_t n;
  do {
    n = read(readEnd->get(), &value, sizeof value);
  } while (n < 0 && errno == EINTR);
  if (n < 0) {
    NXCLog(LOG_ERR, kFn, "read() failed, error: %s", strerror(errno));
    return false;
  }
  if (n == 0) {
    NXCLog(LOG_WRN, kFn, "Daemon process did not report status, returning failure");
    return false;
  }
  // Any value counts: the daemon reported, so it started.
  NXCLog(LOG_INFO, kFn, "Child process wrote status value: %u", static_cast<unsigned>(value));
  return true;
}

}  // namespace

extern "C" bool NXCServiceStart(uint32_t vnet, uint32_t id) noexcept {
  nxc::InternalEnter(kFn, __LINE__);
  if (NXCIsMacosVirtApiEnabled() && id == NXC_SERVICE_NETIFUP) {
    NXCLog(LOG_OK, kFn, "Disabled service: %d, zynet: %d", static_cast<int>(id),
           static_cast<int>(vnet));
    return nxc::InternalExit(kFn, __LINE__, true);
  }
  const char *binDir = nullptr;
  if (!NXCNetCfgGetAnswerString(nullptr, "BINDIR", &binDir) || !binDir) {
    NXCLog(LOG_INFO2, kFn, "Cannot find BINDIR value in Vnet Config");
    binDir = kDefaultBinDir;
  }
  char vnetName[kVnetNameSize];
  if (!NXCConvVnetNumToName(vnet, vnetName)) {
    NXCLog(LOG_ERR, kFn, "Invalid vnet: %u", vnet);
    return nxc::InternalExit(kFn, __LINE__, false);
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    NXCLog(LOG_ERR, kFn, "pipe(): error: %s", strerror(errno));
    return nxc::InternalExit(kFn, __LINE__, false);
  }
  UniqueFd readEnd(ends[0]);
  UniqueFd writeEnd(ends[1]);

  const ServiceInfo *service = nxc::FindService(id);
  if (!service) {
    NXCLog(LOG_ERR, kFn, "Invalid service name %d", static_cast<int>(id));
    return nxc::InternalExit(kFn, __LINE__, false);
  }
  CPtr<char> executable(AllocPrint("%s/%s", binDir, service->program));
  if (!executable) {
    NXCLog(LOG_ERR, kFn, "Memory allocation error");
    return nxc::InternalExit(kFn, __LINE__, false);
  }
  ArgVector args;
  if (!args.AddCopy(executable.get()) || !args.AddCopy("-s") ||
      !args.Add(AllocPrint("%d", writeEnd.get())) || !AddServiceArgs(vnet, id, vnetName, &args))
    return nxc::InternalExit(kFn, __LINE__, false);

  bool started = ForkAndWait(executable.get(), args, &readEnd, &writeEnd);
  return nxc::InternalExit(kFn, __LINE__, started);
}
