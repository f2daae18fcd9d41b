#include "daemons/daemon.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace zynetd {

void Log(const char *format, ...) {
  char stamp[32] = "";
  time_t now = time(nullptr);
  struct tm local;
  if (localtime_r(&now, &local)) (void)strftime(stamp, sizeof stamp, "%b %d %T", &local);
  char message[1024];
  va_list args;
  va_start(args, format);
  (void)vsnprintf(message, sizeof message, format, args);
  va_end(args);
  // One write per line, so that lines of several daemons sharing the log
  // do not interleave.
  char line[1200];
  int n = snprintf(line, sizeof line, "%s %s[%d]: %s\n", stamp, program_invocation_short_name,
                   static_cast<int>(getpid()), message);
  if (n > 0) (void)!write(STDERR_FILENO, line, n < static_cast<int>(sizeof line) ? n : sizeof line - 1);
}

void UsageExit(const char *usage) {
  fprintf(stderr, "usage: %s\n", usage);
  exit(2);
}

void ParseCommandLine(int argc, char **argv, const std::vector<ValueOption> &options,
                      std::vector<std::string> *rest, const char *usage) {
  std::vector<bool> seen(options.size(), false);
  for (int i = 1; i < argc; ++i) {
    size_t o = 0;
    while (o < options.size() && strcmp(argv[i], options[o].name) != 0) ++o;
    if (o == options.size()) {
      rest->push_back(argv[i]);
      continue;
    }
    if (seen[o] || i + 1 >= argc) UsageExit(usage);
    seen[o] = true;
    *options[o].value = argv[++i];
  }
  for (size_t o = 0; o < options.size(); ++o)
    if (options[o].required && !seen[o]) UsageExit(usage);
}

[[nodiscard]] bool ParseNumber(const std::string &text, long min, long max, long *out) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  long value = strtol(text.c_str(), nullptr, 10);
  if (value < min || value > max) return false;
  *out = value;
  return true;
}

int TrailingNumber(const std::string &text) {
  size_t start = text.find_last_not_of("0123456789") + 1;  // npos + 1 == 0
  long n = 0;
  return ParseNumber(text.substr(start), 0, 0xFFFFFF, &n) ? static_cast<int>(n) : -1;
}

int StatusDescriptor(const std::string &text, const char *usage) {
  long fd = -1;
  if (!ParseNumber(text, 0, 65535, &fd) || fcntl(static_cast<int>(fd), F_GETFD) < 0) UsageExit(usage);
  // Programs the daemon runs must not hold it: the library reads until
  // every writer has closed it.
  (void)fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
  return static_cast<int>(fd);
}

[[nodiscard]] bool Detach(int statusFd) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) {
    Log("cannot fork the daemon: %s", strerror(errno));
    return false;
  }
  if (pid > 0) {
    (void)close(statusFd);
    _exit(0);
  }
  (void)setsid();
  if (chdir("/") != 0) Log("cannot change to /: %s, ignoring", strerror(errno));
  int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (null >= 0) {
    (void)dup2(null, STDIN_FILENO);
    (void)close(null);
  }
  return true;
}

void UndoList::RunAll() {
  while (!steps_.empty()) {
    std::function<void()> step = std::move(steps_.back());
    steps_.pop_back();
    step();
  }
}

[[nodiscard]] bool WritePidFile(const std::string &path, UndoList *undo) {
  nxc::UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd) {
    Log("cannot create the pid file %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  undo->Push([path] { (void)unlink(path.c_str()); });
  char text[32];
  int n = snprintf(text, sizeof text, "%d\n", static_cast<int>(getpid()));
  if (write(fd.get(), text, n) != n) {
    Log("cannot write the pid file %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  return true;
}

[[nodiscard]] bool ReportReady(int statusFd) {
  uint16_t status = 0;
  bool ok = write(statusFd, &status, sizeof status) == sizeof status;
  int error = errno;
  (void)close(statusFd);
  if (!ok) Log("cannot report the status: %s", strerror(error));
  return ok;
}

int Serve(EventLoop *loop, int statusFd, const std::string &pidFile, UndoList *undo) {
  if (!WritePidFile(pidFile, undo) || !ReportReady(statusFd)) return 1;
  Log("serving");
  // A terminating signal and Stop() end the daemon alike: it undoes what it
  // made and exits 0.
  (void)loop->Run();
  return 0;
}

[[nodiscard]] bool ReadSysctl(const std::string &name, std::string *value) {
  std::string path = "/proc/sys/" + name;
  nxc::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char buf[64];
  ssize_t n = fd ? read(fd.get(), buf, sizeof buf - 1) : -1;
  if (n < 0) {
    Log("cannot read %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  buf[n] = '\0';
  buf[strcspn(buf, "\n")] = '\0';
  *value = buf;
  return true;
}

[[nodiscard]] bool WriteSysctl(const std::string &name, const std::string &text) {
  std::string path = "/proc/sys/" + name;
  nxc::UniqueFd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!fd || write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    Log("cannot write %s to %s: %s", text.c_str(), path.c_str(), strerror(errno));
    return false;
  }
  return true;
}

EventLoop::~EventLoop() {
  if (signalFd_ >= 0) (void)close(signalFd_);
}

bool EventLoop::Init() {
  sigset_t mask;
  sigemptyset(&mask);
  for (int signo : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&mask, signo);
  if (sigprocmask(SIG_BLOCK, &mask, &oldMask_) != 0) {
    Log("cannot block signals: %s", strerror(errno));
    return false;
  }
  signalFd_ = signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signalFd_ < 0) {
    Log("cannot open a signalfd: %s", strerror(errno));
    return false;
  }
  return true;
}

void EventLoop::RestoreSignalsInChild() const { (void)sigprocmask(SIG_SETMASK, &oldMask_, nullptr); }

void EventLoop::Watch(int fd, short events, std::function<void(short)> onEvent) {
  Unwatch(fd);
  watched_.push_back({fd, events, std::move(onEvent)});
}

void EventLoop::Unwatch(int fd) {
  for (size_t i = 0; i < watched_.size(); ++i) {
    if (watched_[i].fd != fd) continue;
    watched_.erase(watched_.begin() + static_cast<long>(i));
    return;
  }
}

void EventLoop::OnSignal(int signo, std::function<void()> handler) {
  handlers_.push_back({signo, std::move(handler)});
}

// Reads every pending signal; true when one of them asks to terminate.
bool EventLoop::HandleSignals() {
  bool terminate = false;
  struct signalfd_siginfo info;
  while (read(signalFd_, &info, sizeof info) == sizeof info) {
    int signo = static_cast<int>(info.ssi_signo);
    if (signo == SIGTERM || signo == SIGINT) {
      Log("terminating on signal %d", signo);
      terminate = true;
      continue;
    }
    for (const Handler &h : handlers_)
      if (h.signo == signo) h.handler();
  }
  return terminate;
}

bool EventLoop::Run() {
  stopped_ = false;
  time_t lastTick = time(nullptr);
  while (!stopped_) {
    std::vector<struct pollfd> fds{{signalFd_, POLLIN, 0}};
    for (const Watched &w : watched_) fds.push_back({w.fd, w.events, 0});
    int n = poll(fds.data(), fds.size(), 1000);
    if (n < 0 && errno != EINTR) {
      Log("poll failed: %s", strerror(errno));
      return true;
    }
    if (fds[0].revents && HandleSignals()) return true;
    // A handler may watch or unwatch descriptors: look each one up afresh.
    for (size_t i = 1; i < fds.size() && !stopped_; ++i) {
      if (!fds[i].revents) continue;
      for (const Watched &w : watched_) {
        if (w.fd != fds[i].fd) continue;
        std::function<void(short)> onEvent = w.onEvent;
        onEvent(fds[i].revents);
        break;
      }
    }
    if (tick_ && time(nullptr) != lastTick) {
      lastTick = time(nullptr);
      tick_();
    }
  }
  return false;
}

}  // namespace zynetd
