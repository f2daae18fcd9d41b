// service_test.cpp - service control: pid files, status, start with the
// status pipe, stop with its kill escalation, and restart, against the
// stand-in daemon (standins/zynet-standin.cpp).
//
// Runs in the private sandbox, so /run (the pid files' /var/run), /etc/zymtra
// and the log are private. Daemons detach and are reaped by the sandbox's
// init, as on a host; TearDown kills whatever is left.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/daemons.h"
#include "support/db_fixture.h"

namespace {

using nxc::test::ClearLog;
using nxc::test::KillAllDaemons;
using nxc::test::FileExists;
using nxc::test::LogHas;
using nxc::test::ReadFile;
using nxc::test::Shell;
using nxc::test::WriteFile;
using V = std::vector<std::string>;

using nxc::test::kStandinBinDir;
constexpr const char *kStateDir = nxc::test::kStandinStateDir;
constexpr const char *kBinDir = kStandinBinDir;
constexpr const char *kDaemons[] = {"zynet-bridge", "zynet-netifup", "zynet-dhcpd", "zynet-natd"};

V Lines(const std::string &text) {
  V lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The arguments the stand-in was last started with as program name, with
// the status descriptor (checked to be a number) shown as "<S>".
V Argv(const std::string &name) {
  V argv = Lines(ReadFile(std::string(kStateDir) + "/" + name + ".argv"));
  if (argv.size() > 2 && argv[1] == "-s" &&
      argv[2].find_first_not_of("0123456789") == std::string::npos)
    argv[2] = "<S>";
  return argv;
}

void SetMode(const std::string &name, const std::string &mode) {
  ASSERT_TRUE(WriteFile(std::string(kStateDir) + "/" + name + ".mode", mode));
}

bool IsAdapterSwitch(const std::string &arg) {
  return arg.size() > 2 && (arg.rfind("-e", 0) == 0 || arg.rfind("-i", 0) == 0);
}

// The pid file a command line names.
std::string PidFileOf(const V &argv) {
  for (size_t i = 0; i + 1 < argv.size(); ++i)
    if (argv[i] == "-d" || argv[i] == "-pf") return argv[i + 1];
  return "";
}

pid_t PidIn(const std::string &pidFile) { return atoi(ReadFile(pidFile).c_str()); }

bool Alive(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }

// A pid that no process has: a child that has been reaped.
pid_t DeadPid() {
  pid_t pid = fork();
  if (pid == 0) _exit(0);
  (void)waitpid(pid, nullptr, 0);
  return pid;
}

// The descriptors of this process that an exec would pass on.
std::set<int> InheritableFds() {
  std::set<int> fds;
  DIR *dir = opendir("/proc/self/fd");
  if (!dir) return fds;
  while (dirent *entry = readdir(dir)) {
    int fd = atoi(entry->d_name);
    if (entry->d_name[0] == '.' || fd == dirfd(dir)) continue;
    int flags = fcntl(fd, F_GETFD);
    if (flags >= 0 && !(flags & FD_CLOEXEC)) fds.insert(fd);
  }
  closedir(dir);
  return fds;
}

std::string FdTarget(pid_t pid, const std::string &fd) {
  char target[512];
  std::string link = "/proc/" + std::to_string(pid) + "/fd/" + fd;
  ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
  return n < 0 ? "?" : std::string(target, static_cast<size_t>(n));
}

// BINDIR holds the stand-in under the four daemons' names; the stand-in's
// state folder starts empty.
class ServiceTest : public nxc::test::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_TRUE(nxc::test::InstallStandinDaemons());
    harnessFds_ = InheritableFds();
  }
  void TearDown() override {
    KillAllDaemons();
    DbTest::TearDown();
  }

  void LoadDb(const std::string &records = "") {
    WriteDb(records);
    ASSERT_TRUE(Load());
    ClearLog();
  }

  std::set<int> harnessFds_;
};

TEST_F(ServiceTest, TablesAndPidFileNames) {
  LoadDb();
  const struct {
    uint32_t id;
    const char *desc;
    uint32_t option;
    const char *pidFile;  // of vnet 8
  } cases[] = {
      {0, "", 0, nullptr},
      {1, "Bridge", 1, "/var/run/zynet-bridge-8.pid"},
      {2, "Netifup", 4, "/var/run/zynet-netifup-zynet8.pid"},
      {3, "DHCP", 2, "/var/run/zynet-dhcpd-zynet8.pid"},
      {4, "NAT", 3, "/var/run/zynet-natd-8.pid"},
      {5, "", 0, nullptr},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.id);
    EXPECT_STREQ(NXCLookupDescStringForServiceID(c.id), c.desc);
    EXPECT_EQ(NXCLookupConfigOptionForServiceID(c.id), c.option);
    char *path = nullptr;
    const char *desc = nullptr;
    EXPECT_EQ(NXCGetPidFilename(8, c.id, &path, &desc), c.pidFile != nullptr);
    if (c.pidFile) {
      EXPECT_EQ(std::string(path), c.pidFile);
      EXPECT_STREQ(desc, c.desc);
    } else {
      EXPECT_TRUE(LogHas("NXCGetPidFilename - Invalid service name: " + std::to_string(c.id)));
    }
    free(path);
  }
  EXPECT_TRUE(LogHas("Cannot find BRIDGE_PROGRAM value in Vnet Config"));
  EXPECT_TRUE(LogHas("Cannot find NAT_PROGRAM value in Vnet Config"));

  // The program answers and RUNDIR name the pid files.
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "RUNDIR", "/run/svc"));
  ASSERT_TRUE(NXCNetCfgAddAnswerString(nullptr, "DHCP_PROGRAM", "dhcp"));
  char *path = nullptr;
  ASSERT_TRUE(NXCGetPidFilename(3, NXC_SERVICE_DHCP, &path, nullptr));
  EXPECT_STREQ(path, "/run/svc/dhcp-zynet3.pid");
  free(path);
}

TEST_F(ServiceTest, ExtractPidFromFile) {
  LoadDb();
  const struct {
    const char *contents;  // null: no file
    int32_t pid;
  } cases[] = {
      {nullptr, 0}, {"1234\n", 1234}, {"77", 77},   {"1234\nmore\n", 1234}, {"abc\n", 0},   {"", 0},
      {"-5\n", 0},  {"0x10\n", 0},    {" 12\n", 0}, {"4294967295\n", 0},    {"12 34\n", 0},
  };
  const std::string file = "/run/test.pid";
  for (const auto &c : cases) {
    SCOPED_TRACE(c.contents ? c.contents : "<no file>");
    (void)unlink(file.c_str());
    if (c.contents) {
      ASSERT_TRUE(WriteFile(file, c.contents));
    }
    bool missing = c.contents != nullptr;  // the opposite of what it should become
    EXPECT_EQ(NXCExtractPidFromFile(file.c_str(), &missing), c.pid);
    EXPECT_EQ(missing, c.contents == nullptr);
  }
  EXPECT_TRUE(
      LogHas("Could not open the PID file: /run/test.pid, error: No such file or directory"));
}

TEST_F(ServiceTest, StartPassesEachDaemonItsCommandLine) {
  const std::string bin = std::string(kBinDir) + "/";
  const struct {
    const char *name;
    uint32_t vnet;
    uint32_t id;
    std::string records;
    V argv;  // switches naming adapters come in any order and are compared sorted
  } cases[] = {
      {"bridge on the default bridge: adapters mapped elsewhere", 0, 1,
       "add_bridge_mapping ethB 2\nadd_bridge_mapping ethC -1\nadd_bridge_mapping ethD 0\n",
       V{bin + "zynet-bridge", "-s", "<S>", "-d", "/var/run/zynet-bridge-0.pid", "-n", "0",
         "-eethB", "-eethC"}},
      {"bridge on another vnet: its adapters", 2, 1,
       "add_bridge_mapping ethB 2\nadd_bridge_mapping ethC 2\nadd_bridge_mapping ethD 0\n",
       V{bin + "zynet-bridge", "-s", "<S>", "-d", "/var/run/zynet-bridge-2.pid", "-n", "2",
         "-iethB", "-iethC"}},
      {"bridge without adapters", 5, 1, "",
       V{bin + "zynet-bridge", "-s", "<S>", "-d", "/var/run/zynet-bridge-5.pid", "-n", "5"}},
      {"netifup with an MTU", 8, 2,
       "answer VNET_8_MTU 1400\nanswer VNET_8_VIRTUAL_ADAPTER_NAME hn8\n",
       V{bin + "zynet-netifup", "-s", "<S>", "-m", "1400", "-d",
         "/var/run/zynet-netifup-zynet8.pid", "/dev/zynet8", "hn8"}},
      {"netifup without an MTU", 9, 2, "",
       V{bin + "zynet-netifup", "-s", "<S>", "-d", "/var/run/zynet-netifup-zynet9.pid",
         "/dev/zynet9", "zynet9"}},
      {"dhcp", 8, 3, "",
       V{bin + "zynet-dhcpd", "-s", "<S>", "-cf", "/etc/zymtra/zynet8/dhcpd/dhcpd.conf", "-lf",
         "/etc/zymtra/zynet8/dhcpd/dhcpd.leases", "-pf", "/var/run/zynet-dhcpd-zynet8.pid",
         "zynet8"}},
      {"nat", 8, 4, "",
       V{bin + "zynet-natd", "-s", "<S>", "-d", "/var/run/zynet-natd-8.pid", "-m",
         "/etc/zymtra/zynet8/nat.mac", "-c", "/etc/zymtra/zynet8/nat/nat.conf"}},
      {"answers name only the pid file", 8, 4,
       "answer NAT_PROGRAM natpid\nanswer RUNDIR /run/svc\n",
       V{bin + "zynet-natd", "-s", "<S>", "-d", "/run/svc/natpid-8.pid", "-m",
         "/etc/zymtra/zynet8/nat.mac", "-c", "/etc/zymtra/zynet8/nat/nat.conf"}},
  };
  ASSERT_EQ(Shell("mkdir -p /run/svc"), 0);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    UnloadAll(false);
    LoadDb(c.records);
    ASSERT_TRUE(NXCServiceStart(c.vnet, c.id));
    std::string program = c.argv[0].substr(bin.size());
    V argv = Argv(program);
    std::sort(std::find_if(argv.begin(), argv.end(), IsAdapterSwitch), argv.end());
    EXPECT_EQ(argv, c.argv);

    // The log shows the command line, the child's set-up and the report.
    EXPECT_TRUE(LogHas("NXCServiceStart -  Entering Function, NXCServiceStart:"));
    EXPECT_TRUE(LogHas("Fork and exec command: " + c.argv[0]));
    for (size_t i = 0; i < c.argv.size() && !IsAdapterSwitch(c.argv[i]); ++i)
      if (i != 2) {
        EXPECT_TRUE(LogHas("Argument: " + std::to_string(i) + ", " + c.argv[i])) << i;
      }
    EXPECT_TRUE(LogHas("Duping Fds status 1, 2"));
    EXPECT_TRUE(LogHas("Child process started"));
    EXPECT_TRUE(LogHas("reported error: none"));
    EXPECT_TRUE(LogHas("Child process wrote status value: 0"));
    EXPECT_TRUE(Alive(PidIn(PidFileOf(c.argv))));
    KillAllDaemons();
  }
}

TEST_F(ServiceTest, StartFailsWithoutAReport) {
  LoadDb();
  const struct {
    const char *name;
    uint32_t id;
    const char *mode;  // of the NAT stand-in; null: no such program
    const char *line;
  } cases[] = {
      {"daemon does not report", NXC_SERVICE_NAT, "silent",
       "Daemon process did not report status, returning failure"},
      {"daemon exits at once", NXC_SERVICE_NAT, "exit",
       "Daemon process did not report status, returning failure"},
      {"program missing", NXC_SERVICE_NAT, nullptr,
       "exec(): Error while starting daemon: /run/zynet-bin/zynet-natd, error: No such file or "
       "directory"},
      {"unknown service", 9, "", "Invalid service name 9"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    if (c.mode) {
      SetMode("zynet-natd", c.mode);
    } else {
      ASSERT_EQ(unlink((std::string(kBinDir) + "/zynet-natd").c_str()), 0);
    }
    EXPECT_FALSE(NXCServiceStart(8, c.id));
    EXPECT_TRUE(LogHas(c.line));
    KillAllDaemons();
  }
}

TEST_F(ServiceTest, StatusFollowsThePidFile) {
  LoadDb();
  const std::string pidFile = "/var/run/zynet-natd-8.pid";
  ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
  pid_t running = PidIn(pidFile);
  pid_t dead = DeadPid();
  const struct {
    const char *name;
    std::string contents;  // "": no pid file
    uint32_t status;
    std::string line;
  } cases[] = {
      {"running", std::to_string(running) + "\n", NXC_SERVICE_RUNNING,
       "Successfully tracked NAT daemon on vnet: 8, pid: " + std::to_string(running)},
      {"no pid file", "", NXC_SERVICE_NOT_RUNNING, "Could not extract PID of NAT"},
      {"garbage", "abc\n", NXC_SERVICE_STATUS_UNKNOWN, "Could not extract PID of NAT"},
      {"stale pid", std::to_string(dead) + "\n", NXC_SERVICE_NOT_RUNNING,
       "pid: " + std::to_string(dead) + " for NAT service daemon on vnet: 8 is stale"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    (void)unlink(pidFile.c_str());
    if (!c.contents.empty()) {
      ASSERT_TRUE(WriteFile(pidFile, c.contents));
    }
    EXPECT_EQ(NXCServiceStatus(8, NXC_SERVICE_NAT), c.status);
    EXPECT_TRUE(LogHas(c.line));
    EXPECT_EQ(FileExists(pidFile), !c.contents.empty()) << "status leaves the pid file alone";
  }
  EXPECT_EQ(NXCServiceStatus(8, 7), NXC_SERVICE_STATUS_UNKNOWN);
}

TEST_F(ServiceTest, StopTerminatesAndRemovesThePidFile) {
  LoadDb();
  const std::string pidFile = "/var/run/zynet-natd-8.pid";
  ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
  pid_t pid = PidIn(pidFile);
  ASSERT_TRUE(Alive(pid));
  EXPECT_TRUE(NXCServiceStop(8, NXC_SERVICE_NAT));
  EXPECT_TRUE(LogHas("Successfully killed NAT service daemon, pid: " + std::to_string(pid)));
  EXPECT_FALSE(Alive(pid));
  EXPECT_FALSE(FileExists(pidFile));
  EXPECT_EQ(NXCServiceStatus(8, NXC_SERVICE_NAT), NXC_SERVICE_NOT_RUNNING);

  pid_t dead = DeadPid();
  const struct {
    const char *name;
    std::string contents;  // "": no pid file
    bool result;
    const char *line;
    bool pidFileKept;
  } cases[] = {
      {"no pid file", "", true, "Could not extract PID of NAT", false},
      {"garbage", "abc\n", false, "Could not extract PID of NAT", true},
      {"stale pid", std::to_string(dead) + "\n", true,
       "NAT service daemon does not seem to be running, pid: ", false},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    if (!c.contents.empty()) {
      ASSERT_TRUE(WriteFile(pidFile, c.contents));
    }
    EXPECT_EQ(NXCServiceStop(8, NXC_SERVICE_NAT), c.result);
    EXPECT_TRUE(LogHas(c.line));
    EXPECT_FALSE(LogHas("Successfully killed"));
    EXPECT_EQ(FileExists(pidFile), c.pidFileKept);
    (void)unlink(pidFile.c_str());
  }
}

TEST_F(ServiceTest, StopKillsADaemonThatIgnoresTerm) {
  LoadDb();
  SetMode("zynet-bridge", "ignore-term");
  ASSERT_TRUE(NXCServiceStart(3, NXC_SERVICE_BRIDGE));
  pid_t pid = PidIn("/var/run/zynet-bridge-3.pid");
  ASSERT_TRUE(Alive(pid));
  timespec begin, end;
  clock_gettime(CLOCK_MONOTONIC, &begin);
  EXPECT_TRUE(NXCServiceStop(3, NXC_SERVICE_BRIDGE));  // the kill signal ends it
  clock_gettime(CLOCK_MONOTONIC, &end);
  double seconds = (end.tv_sec - begin.tv_sec) + (end.tv_nsec - begin.tv_nsec) / 1e9;
  EXPECT_GE(seconds, 3.0);  // TERM was given its full time
  EXPECT_TRUE(LogHas("Timeout expired while waiting for Bridge service daemon, pid: " +
                     std::to_string(pid) + " to quit"));
  EXPECT_TRUE(nxc::test::WaitGone(pid, 2000));  // the kill signal ended it
  EXPECT_FALSE(FileExists("/var/run/zynet-bridge-3.pid"));
}

TEST_F(ServiceTest, RestartChoices) {
  const std::string pidFile = "/var/run/zynet-natd-8.pid";
  const struct {
    const char *name;
    bool running;
    bool configured;  // the vnet uses NAT
    bool startIfStopped;
    bool result;
    int wasRunning, isRunning;  // -1: left alone
    bool runningAfter;
    const char *line;
  } cases[] = {
      {"stopped, left stopped", false, true, false, true, 0, -1, false,
       "Service: 4 is not running on vnet: 8"},
      {"stopped, started", false, true, true, true, 0, 1, true,
       "Service: 4 is not running on vnet: 8"},
      {"stopped, not configured", false, false, true, true, 0, 0, false,
       "Service: 4 could not be restarted since it is not configured for vnet: 8"},
      {"running, restarted", true, true, false, true, 1, 1, true, "Successfully killed"},
      {"running, not configured: only stopped", true, false, false, true, 1, 0, false,
       "Service: 4 could not be restarted since it is not configured for vnet: 8"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    UnloadAll(false);
    LoadDb(c.configured ? "answer VNET_8_NAT yes\n" : "");
    (void)unlink(pidFile.c_str());
    pid_t before = 0;
    if (c.running) {
      ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
      before = PidIn(pidFile);
    }
    // Each output starts as the opposite of what it should become; one that
    // must be left alone starts true.
    bool wasRunning = c.wasRunning != 1;
    bool isRunning = c.isRunning != 1;
    ClearLog();
    EXPECT_EQ(NXCRestartService(8, NXC_SERVICE_NAT, &wasRunning, &isRunning, c.startIfStopped),
              c.result);
    EXPECT_EQ(wasRunning, c.wasRunning != 0);
    EXPECT_EQ(isRunning, c.isRunning != 0);
    EXPECT_TRUE(LogHas(c.line));
    pid_t after = PidIn(pidFile);
    EXPECT_EQ(after > 0 && Alive(after), c.runningAfter);
    if (c.running) {
      EXPECT_NE(after, before);
      EXPECT_FALSE(Alive(before));
    }
    KillAllDaemons();
  }

  UnloadAll(false);
  LoadDb("answer VNET_8_NAT yes\n");
  ASSERT_TRUE(WriteFile(pidFile, "abc\n"));
  EXPECT_FALSE(NXCRestartService(8, NXC_SERVICE_NAT, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Cannot determine status of service: 4 on vnet: 8"));
  (void)unlink(pidFile.c_str());
  SetMode("zynet-natd", "exit");
  EXPECT_FALSE(NXCRestartService(8, NXC_SERVICE_NAT, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Failed to start service: 4 for vnet: 8"));
  EXPECT_FALSE(NXCRestartService(8, 0, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Unknown service: 0"));
}

TEST_F(ServiceTest, DaemonInheritsOnlyItsStandardDescriptors) {
  LoadDb();
  // A change in progress holds the database lock as well as the open file.
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  pid_t pid = PidIn("/var/run/zynet-natd-8.pid");
  ASSERT_TRUE(Alive(pid));

  std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
  DIR *dir = opendir(fdDir.c_str());
  ASSERT_NE(dir, nullptr);
  V fds;
  while (dirent *entry = readdir(dir))
    if (entry->d_name[0] != '.') fds.push_back(entry->d_name);
  closedir(dir);
  // The status pipe's write end may still be open: the daemon closes it
  // only after its report, which is what the start waited for.
  V argv = Lines(ReadFile(std::string(kStateDir) + "/zynet-natd.argv"));
  ASSERT_GT(argv.size(), 2u);
  for (const std::string &fd : fds) {
    std::string target = FdTarget(pid, fd);
    int n = atoi(fd.c_str());
    if (n == 1 || n == 2) {
      EXPECT_EQ(target, nxc::test::kLogPath) << "fd " << fd;
    } else if (fd == argv[2]) {
      EXPECT_EQ(target.rfind("pipe:", 0), 0u) << target;
    } else if (n != 0 && !harnessFds_.count(n)) {
      ADD_FAILURE() << "daemon inherited fd " << fd << " -> " << target;
    }
  }
}

TEST_F(ServiceTest, RemovingBridgeMappingsRestartsTheDefaultBridge) {
  LoadDb("add_bridge_mapping ethB 2\n");
  // Not running: the restart leaves it stopped and succeeds.
  EXPECT_TRUE(NXCRemoveBridgeMappingsForVnet(2));
  EXPECT_FALSE(FileExists("/var/run/zynet-bridge-0.pid"));

  ASSERT_TRUE(NXCSetBridgeMappingForAdapter("ethB", 2));
  ASSERT_TRUE(NXCServiceStart(0, NXC_SERVICE_BRIDGE));
  EXPECT_EQ(Argv("zynet-bridge").back(), "-eethB");
  pid_t before = PidIn("/var/run/zynet-bridge-0.pid");
  EXPECT_TRUE(NXCRemoveBridgeMappingsForVnet(2));
  // ethB now belongs to the default bridge, whose daemon runs anew without
  // excluding it.
  pid_t after = PidIn("/var/run/zynet-bridge-0.pid");
  EXPECT_NE(after, before);
  EXPECT_TRUE(Alive(after));
  EXPECT_EQ(Argv("zynet-bridge"), (V{std::string(kBinDir) + "/zynet-bridge", "-s", "<S>", "-d",
                                     "/var/run/zynet-bridge-0.pid", "-n", "0"}));
  EXPECT_FALSE(LogHas("Failed to restart bridge service"));
}

}  // namespace
