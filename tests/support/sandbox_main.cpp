// sandbox_main.cpp - entry point of every test program that touches the
// library's fixed host paths or network interfaces.
//
// Before gtest runs any test (and before any thread exists) the program
// moves into new mount, network and pid namespaces, becomes pid 1 of the new
// pid namespace in a forked child, and puts private file systems over every
// path the library writes: /etc (rebuilt from bind mounts of the host's
// entries except /etc/zymtra, which starts empty), /var/log, /run and
// /var/run, /tmp (keeping a checkout or build that lies under it), /dev
// (rebuilt from the few device nodes tests need) and /sys (the sysfs of the
// private network namespace, so /sys/class/net lists its interfaces only).
// Whatever the host already has at those paths stays where it is, unread
// and unchanged. The namespace's first process stays its init: it runs the
// tests in a child and reaps orphaned daemons as a host's init would; when
// it ends, nothing started by a test outlives it.
//
// Without root the program cannot make the namespaces and exits with 77
// (skipped). As root a test never passes by skipping: a sandbox that cannot
// be built, or a test that skips, fails the program.
#include <errno.h>
#include <limits.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/sandbox.h"

namespace {

constexpr int kSkipped = 77;
constexpr char kStage[] = "/run/.nxc-sandbox-stage";

std::string Errno(const char *what, const char *path) {
  return std::string(what) + " " + path + ": " + strerror(errno);
}

bool MountTmpfs(const char *path, const char *options, std::string *why) {
  if (mount("tmpfs", path, "tmpfs", MS_NOSUID, options) == 0) return true;
  *why = Errno("mount tmpfs on", path);
  return false;
}

bool BindInto(const std::string &from, const std::string &to, std::string *why) {
  struct stat st;
  if (lstat(from.c_str(), &st) != 0) return true;  // vanished: nothing to copy
  if (S_ISLNK(st.st_mode)) {
    char target[4096];
    ssize_t n = readlink(from.c_str(), target, sizeof target - 1);
    if (n < 0) return true;
    target[n] = '\0';
    if (symlink(target, to.c_str()) != 0) {
      *why = Errno("symlink", to.c_str());
      return false;
    }
    return true;
  }
  if (S_ISDIR(st.st_mode)) {
    if (mkdir(to.c_str(), 0755) != 0 && errno != EEXIST) {
      *why = Errno("mkdir", to.c_str());
      return false;
    }
  } else {
    int fd = open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0) {
      *why = Errno("create", to.c_str());
      return false;
    }
    close(fd);
  }
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    *why = Errno("bind mount", from.c_str());
    return false;
  }
  return true;
}

// Puts a tmpfs over dir that holds bind mounts of the listed entries of the
// original dir (all of them but those named in leaveOut when names is null).
bool RebuildDir(const char *dir, const char *const *names, std::string *why,
                const char *mode = "mode=0755", const char *leaveOut = nullptr) {
  std::string stage = std::string(kStage) + dir;
  std::string mk = "mkdir -p '" + stage + "'";
  if (system(mk.c_str()) != 0) {
    *why = "cannot make " + stage;
    return false;
  }
  if (mount(dir, stage.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    *why = Errno("bind mount", dir);
    return false;
  }
  if (!MountTmpfs(dir, mode, why)) return false;
  if (names) {
    for (const char *const *n = names; *n; ++n)
      if (!BindInto(stage + "/" + *n, std::string(dir) + "/" + *n, why)) return false;
    (void)umount2(stage.c_str(), MNT_DETACH);
    return true;
  }
  std::string list = "ls -A '" + stage + "'";
  FILE *ls = popen(list.c_str(), "r");
  if (!ls) {
    *why = "cannot list " + stage;
    return false;
  }
  char line[1024];
  bool ok = true;
  while (ok && fgets(line, sizeof line, ls)) {
    line[strcspn(line, "\n")] = '\0';
    if (leaveOut && strcmp(line, leaveOut) == 0) continue;
    ok = BindInto(stage + "/" + line, std::string(dir) + "/" + line, why);
  }
  pclose(ls);
  // The entries stay bound; the stage goes, so the host's whole dir (what
  // was left out included) is no longer reachable from the sandbox.
  if (ok) (void)umount2(stage.c_str(), MNT_DETACH);
  return ok;
}

// The entry of /tmp that path lies in ("build" for /tmp/build/tests), or "".
std::string TmpEntryOf(const char *path) {
  if (strncmp(path, "/tmp/", 5) != 0) return "";
  std::string rest(path + 5);
  return rest.substr(0, rest.find('/'));
}

// A private /tmp that still holds the entries the test program runs from
// (a checkout or build under /tmp), bound in from the real one.
bool PrivateTmp(std::string *why) {
  char cwd[4096] = "";
  if (!getcwd(cwd, sizeof cwd)) cwd[0] = '\0';
  static std::string kept[3];
  static const char *names[4] = {};
  size_t n = 0;
  for (const char *path : {static_cast<const char *>(cwd), NXC_STANDIN_DIR, NXC_SOURCE_DIR}) {
    std::string entry = TmpEntryOf(path);
    bool seen = false;
    for (size_t i = 0; i < n; ++i) seen = seen || kept[i] == entry;
    if (entry.empty() || seen) continue;
    kept[n] = entry;
    names[n] = kept[n].c_str();
    ++n;
  }
  names[n] = nullptr;
  if (n == 0) return MountTmpfs("/tmp", "mode=1777", why);
  return RebuildDir("/tmp", names, why, "mode=1777");
}

// /var/run is a link to /run on most hosts, which the private /run already
// covers; where it is a directory of its own it gets its own tmpfs.
bool PrivateVarRun(std::string *why) {
  char target[PATH_MAX];
  if (realpath("/var/run", target) && strcmp(target, "/run") == 0) return true;
  if (mkdir("/var/run", 0755) != 0 && errno != EEXIST) {
    *why = Errno("mkdir", "/var/run");
    return false;
  }
  return MountTmpfs("/var/run", "mode=0755", why);
}

bool BuildSandbox(std::string *why) {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    *why = Errno("make private", "/");
    return false;
  }
  if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
    *why = Errno("mount proc on", "/proc");
    return false;
  }
  if (mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
    *why = Errno("mount sysfs on", "/sys");
    return false;
  }
  if (!MountTmpfs("/run", "mode=0755", why) || !PrivateVarRun(why)) return false;
  if (!RebuildDir("/etc", nullptr, why, "mode=0755", /*leaveOut=*/"zymtra")) return false;
  if (mkdir("/etc/zymtra", 0755) != 0) {
    *why = Errno("mkdir", "/etc/zymtra");
    return false;
  }
  static const char *const kDevices[] = {"null", "zero", "full", "random", "urandom",
                                         "tty",  "net",  nullptr};
  if (!RebuildDir("/dev", kDevices, why)) return false;
  static const char *const kDevLinks[][2] = {{"/proc/self/fd", "/dev/fd"},
                                              {"/proc/self/fd/0", "/dev/stdin"},
                                              {"/proc/self/fd/1", "/dev/stdout"},
                                              {"/proc/self/fd/2", "/dev/stderr"}};
  for (const auto &link : kDevLinks) {
    if (symlink(link[0], link[1]) != 0) {
      *why = Errno("symlink", link[1]);
      return false;
    }
  }
  if (mkdir("/dev/shm", 01777) != 0 || !MountTmpfs("/dev/shm", "mode=1777", why)) return false;
  // The stage's bind mounts stay under the private /run, out of the way.
  if (!MountTmpfs("/var/log", "mode=0755", why)) return false;
  if (!PrivateTmp(why)) return false;
  if (system("ip link set lo up") != 0) {
    *why = "cannot bring lo up";
    return false;
  }
  return true;
}

}  // namespace

// Present when built with AddressSanitizer: checks for leaks on demand.
extern "C" void __lsan_do_leak_check() __attribute__((weak));

namespace nxc::test {

static bool gInSandbox = false;
bool InSandbox() { return gInSandbox; }
const char *StandinDir() { return NXC_STANDIN_DIR; }
const char *SourceDir() { return NXC_SOURCE_DIR; }

}  // namespace nxc::test

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();

  // Without root the namespaces cannot be had: the tests are skipped, and
  // scripts/test says so. As root, not getting them is a failure.
  const bool root = geteuid() == 0;
  if (!root) {
    fprintf(stderr, "SKIPPED: these tests need root to make private namespaces\n");
    return kSkipped;
  }
  if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID) != 0) {
    fprintf(stderr, "FAILED: cannot make private namespaces: %s\n", strerror(errno));
    return 1;
  }
  fflush(nullptr);
  pid_t child = fork();
  if (child < 0) {
    fprintf(stderr, "FAILED: fork into the pid namespace failed: %s\n", strerror(errno));
    return 1;
  }
  if (child > 0) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    // _exit: the parent's own exit-time leak check would have to start a
    // thread in the pid namespace that just died with its only process.
    fflush(nullptr);
    if (WIFEXITED(status)) _exit(WEXITSTATUS(status));
    fprintf(stderr, "test process ended by signal %d\n", WTERMSIG(status));
    _exit(1);
  }
  std::string why;
  if (!BuildSandbox(&why)) {
    fprintf(stderr, "FAILED: cannot build the private sandbox: %s\n", why.c_str());
    _exit(1);
  }
  // This process is the namespace's init: it runs the tests in a child and
  // reaps every orphan, as a host's init does for the daemons a test
  // starts, until the tests are done. Its exit then ends whatever is left.
  fflush(nullptr);
  pid_t tests = fork();
  if (tests < 0) {
    fprintf(stderr, "fork of the test process failed: %s\n", strerror(errno));
    _exit(1);
  }
  if (tests == 0) {
    nxc::test::gInSandbox = true;
    int rc = nxc::test::RunAllTestsRefusingSkips();
    fflush(nullptr);
    if (__lsan_do_leak_check) __lsan_do_leak_check();  // exits non-zero on a leak
    _exit(rc);
  }
  for (;;) {
    int status = 0;
    pid_t done = wait(&status);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) _exit(1);
    if (done != tests) continue;
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
  }
}
