// service_test.cpp - service control: pid files, status, start with the
// status pipe, stop with its kill escalation, and restart, against the
// stand-in daemon (standins/zynet-standin.cpp).
//
// Runs in the private sandbox, so /run (the pid files' /var/run), /etc/zymtra
// and the log are private. Daemons detach and are reaped by the sandbox's
// init, as on a host; TearDown kills whatever is left.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/daemons.h"

namespace nxc::test {
namespace {

using V = std::vector<std::string>;

constexpr char kNatPid[] = "/var/run/zynet-natd-8.pid";

bool IsAdapterSwitch(const std::string &arg) {
  return arg.size() > 2 && (arg.rfind("-e", 0) == 0 || arg.rfind("-i", 0) == 0);
}

// The arguments the stand-in was last started with as program name, with
// the status descriptor (checked to be a number) shown as "<S>" and the
// switches naming adapters, which come in any order, sorted.
V Argv(const std::string &name) {
  V argv = StandinArgv(name);
  if (argv.size() > 2 && argv[1] == "-s" &&
      argv[2].find_first_not_of("0123456789") == std::string::npos)
    argv[2] = "<S>";
  std::sort(std::find_if(argv.begin(), argv.end(), IsAdapterSwitch), argv.end());
  return argv;
}

// The pid file a command line names.
std::string PidFileOf(const V &argv) {
  for (size_t i = 0; i + 1 < argv.size(); ++i)
    if (argv[i] == "-d" || argv[i] == "-pf") return argv[i + 1];
  return "";
}

// A pid that no process has: a child that has been reaped.
pid_t DeadPid() {
  pid_t pid = fork();
  if (pid == 0) _exit(0);
  (void)waitpid(pid, nullptr, 0);
  return pid;
}

// Writes a pid file's contents; "" removes it.
void SetPidFile(const std::string &path, const std::string &contents) {
  (void)unlink(path.c_str());
  if (!contents.empty()) {
    ASSERT_TRUE(WriteFile(path, contents));
  }
}

using ServiceTest = DaemonTest;

TEST_F(ServiceTest, ExtractPidFromFile) {
  LoadWith("");
  const std::pair<const char *, int32_t> cases[] = {
      {nullptr, 0}, {"1234\n", 1234}, {"77", 77},   {"1234\nmore\n", 1234}, {"abc\n", 0},   {"", 0},
      {"-5\n", 0},  {"0x10\n", 0},    {" 12\n", 0}, {"4294967295\n", 0},    {"12 34\n", 0},
  };
  const std::string file = "/run/test.pid";
  for (const auto &[contents, pid] : cases) {
    SCOPED_TRACE(contents ? contents : "<no file>");
    (void)unlink(file.c_str());
    if (contents) {
      ASSERT_TRUE(WriteFile(file, contents));
    }
    bool missing = contents != nullptr;  // the opposite of what it should become
    EXPECT_EQ(NXCExtractPidFromFile(file.c_str(), &missing), pid);
    EXPECT_EQ(missing, contents == nullptr);
  }
  EXPECT_TRUE(
      LogHas("Could not open the PID file: /run/test.pid, error: No such file or directory"));
}

TEST_F(ServiceTest, StartPassesEachDaemonItsCommandLine) {
  const std::string bin = std::string(kStandinBinDir) + "/";
  const struct { const char *name; uint32_t vnet, id; std::string records; V argv; } cases[] = {
      {"bridge on the default bridge: adapters mapped elsewhere", 0, 1,
       "add_bridge_mapping ethB 2\nadd_bridge_mapping ethC -1\nadd_bridge_mapping ethD 0\n",
       V{bin + "zynet-bridge", "-s", "<S>", "-d", "/var/run/zynet-bridge-0.pid", "-n", "0",
         "-eethB", "-eethC"}},
      {"bridge without adapters", 5, 1, "",
       V{bin + "zynet-bridge", "-s", "<S>", "-d", "/var/run/zynet-bridge-5.pid", "-n", "5"}},
      {"netifup with an MTU", 8, 2,
       "answer VNET_8_MTU 1400\nanswer VNET_8_VIRTUAL_ADAPTER_NAME hn8\n",
       V{bin + "zynet-netifup", "-s", "<S>", "-m", "1400", "-d",
         "/var/run/zynet-netifup-zynet8.pid", "/dev/zynet8", "hn8"}},
      {"answers name only the pid file", 8, 4,
       "answer NAT_PROGRAM natpid\nanswer RUNDIR /run/svc\n",
       V{bin + "zynet-natd", "-s", "<S>", "-d", "/run/svc/natpid-8.pid", "-m",
         "/etc/zymtra/zynet8/nat.mac", "-c", "/etc/zymtra/zynet8/nat/nat.conf"}},
      {"nat", 8, 4, "",
       V{bin + "zynet-natd", "-s", "<S>", "-d", "/var/run/zynet-natd-8.pid", "-m",
         "/etc/zymtra/zynet8/nat.mac", "-c", "/etc/zymtra/zynet8/nat/nat.conf"}},
  };
  ASSERT_EQ(Shell("mkdir -p /run/svc"), 0);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Reload(c.records);
    ASSERT_TRUE(NXCServiceStart(c.vnet, c.id));
    EXPECT_EQ(Argv(c.argv[0].substr(bin.size())), c.argv);
    EXPECT_TRUE(Alive(PidInFile(PidFileOf(c.argv).c_str())));
    KillAllDaemons();
  }
  // The log shows the command line, the child's set-up and the report.
  const V &nat = cases[std::size(cases) - 1].argv;
  EXPECT_TRUE(LogHas("NXCServiceStart -  Entering Function, NXCServiceStart:"));
  EXPECT_TRUE(LogHas("Fork and exec command: " + nat[0]));
  for (size_t i = 0; i < nat.size(); ++i)
    if (i != 2) {
      EXPECT_TRUE(LogHas("Argument: " + std::to_string(i) + ", " + nat[i])) << i;
    }
  for (const char *line : {"Duping Fds status 1, 2", "Child process started",
                           "reported error: none", "Child process wrote status value: 0"})
    EXPECT_TRUE(LogHas(line)) << line;
}

TEST_F(ServiceTest, StartFailsWithoutAReport) {
  LoadWith("");
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
      SetStandinMode("zynet-natd", c.mode);
    } else {
      ASSERT_EQ(unlink((std::string(kStandinBinDir) + "/zynet-natd").c_str()), 0);
    }
    EXPECT_FALSE(NXCServiceStart(8, c.id));
    EXPECT_TRUE(LogHas(c.line));
    KillAllDaemons();
  }
}

TEST_F(ServiceTest, StatusAndStopFollowThePidFile) {
  LoadWith("");
  ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
  const pid_t running = PidInFile(kNatPid), dead = DeadPid();
  ASSERT_TRUE(Alive(running));
  ASSERT_TRUE(dead > 0 && !Alive(dead));
  const struct {
    const char *name;
    std::string contents;  // "": no pid file
    uint32_t status;
    std::string statusLine;
    bool stopped;
    std::string stopLine;
  } cases[] = {
      {"no pid file", "", NXC_SERVICE_NOT_RUNNING, "Could not extract PID of NAT", true,
       "Could not extract PID of NAT"},
      {"garbage", "abc\n", NXC_SERVICE_STATUS_UNKNOWN, "Could not extract PID of NAT", false,
       "Could not extract PID of NAT"},
      {"stale pid", std::to_string(dead) + "\n", NXC_SERVICE_NOT_RUNNING,
       "pid: " + std::to_string(dead) + " for NAT service daemon on vnet: 8 is stale", true,
       "NAT service daemon does not seem to be running, pid: "},
      {"running", std::to_string(running) + "\n", NXC_SERVICE_RUNNING,
       "Successfully tracked NAT daemon on vnet: 8, pid: " + std::to_string(running), true,
       "Successfully killed NAT service daemon, pid: " + std::to_string(running)},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    ClearLog();
    SetPidFile(kNatPid, c.contents);
    EXPECT_EQ(NXCServiceStatus(8, NXC_SERVICE_NAT), c.status);
    EXPECT_TRUE(LogHas(c.statusLine));
    EXPECT_EQ(FileExists(kNatPid), !c.contents.empty()) << "status leaves the pid file alone";
    ClearLog();
    EXPECT_EQ(NXCServiceStop(8, NXC_SERVICE_NAT), c.stopped);
    EXPECT_TRUE(LogHas(c.stopLine));
    EXPECT_EQ(FileExists(kNatPid), !c.stopped) << "a successful stop removes the pid file";
    EXPECT_EQ(LogHas("Successfully killed"), c.status == NXC_SERVICE_RUNNING);
  }
  EXPECT_FALSE(Alive(running));
  EXPECT_EQ(NXCServiceStatus(8, 7), NXC_SERVICE_STATUS_UNKNOWN);
}

TEST_F(ServiceTest, StopKillsADaemonThatIgnoresTerm) {
  LoadWith("");
  SetStandinMode("zynet-bridge", "ignore-term");
  ASSERT_TRUE(NXCServiceStart(3, NXC_SERVICE_BRIDGE));
  pid_t pid = PidInFile("/var/run/zynet-bridge-3.pid");
  ASSERT_TRUE(Alive(pid));
  timespec begin, end;
  clock_gettime(CLOCK_MONOTONIC, &begin);
  EXPECT_TRUE(NXCServiceStop(3, NXC_SERVICE_BRIDGE));
  clock_gettime(CLOCK_MONOTONIC, &end);
  EXPECT_GE((end.tv_sec - begin.tv_sec) + (end.tv_nsec - begin.tv_nsec) / 1e9, 3.0)
      << "TERM was given its full time";
  EXPECT_TRUE(LogHas("Timeout expired while waiting for Bridge service daemon, pid: " +
                     std::to_string(pid) + " to quit"));
  EXPECT_TRUE(WaitGone(pid, 2000));  // the kill signal ended it
  EXPECT_FALSE(FileExists("/var/run/zynet-bridge-3.pid"));
}

TEST_F(ServiceTest, RestartChoices) {
  const struct {
    const char *name;
    bool running, configured, startIfStopped;  // configured: the vnet uses NAT
    int wasRunning, isRunning;                 // -1: left alone
    bool runningAfter;
    const char *line;
  } cases[] = {
      {"stopped, left stopped", false, true, false, 0, -1, false,
       "Service: 4 is not running on vnet: 8"},
      {"stopped, started", false, true, true, 0, 1, true, "Service: 4 is not running on vnet: 8"},
      {"stopped, not configured", false, false, true, 0, 0, false,
       "Service: 4 could not be restarted since it is not configured for vnet: 8"},
      {"running, restarted", true, true, false, 1, 1, true, "Successfully killed"},
      {"running, not configured: only stopped", true, false, false, 1, 0, false,
       "Service: 4 could not be restarted since it is not configured for vnet: 8"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    Reload(c.configured ? "answer VNET_8_NAT yes\n" : "");
    (void)unlink(kNatPid);
    pid_t before = 0;
    if (c.running) {
      ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
      before = PidInFile(kNatPid);
    }
    // Each output starts as the opposite of what it should become; one that
    // must be left alone starts true.
    bool wasRunning = c.wasRunning != 1, isRunning = c.isRunning != 1;
    ClearLog();
    EXPECT_TRUE(NXCRestartService(8, NXC_SERVICE_NAT, &wasRunning, &isRunning, c.startIfStopped));
    EXPECT_EQ(wasRunning, c.wasRunning != 0);
    EXPECT_EQ(isRunning, c.isRunning != 0);
    EXPECT_TRUE(LogHas(c.line));
    pid_t after = PidInFile(kNatPid);
    EXPECT_EQ(Alive(after), c.runningAfter);
    if (c.running) {
      EXPECT_NE(after, before);
      EXPECT_FALSE(Alive(before));
    }
    KillAllDaemons();
  }

  Reload("answer VNET_8_NAT yes\n");
  ASSERT_TRUE(WriteFile(kNatPid, "abc\n"));
  EXPECT_FALSE(NXCRestartService(8, NXC_SERVICE_NAT, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Cannot determine status of service: 4 on vnet: 8"));
  (void)unlink(kNatPid);
  SetStandinMode("zynet-natd", "exit");
  EXPECT_FALSE(NXCRestartService(8, NXC_SERVICE_NAT, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Failed to start service: 4 for vnet: 8"));
  EXPECT_FALSE(NXCRestartService(8, 0, nullptr, nullptr, true));
  EXPECT_TRUE(LogHas("Unknown service: 0"));
}

TEST_F(ServiceTest, DaemonInheritsOnlyItsStandardDescriptors) {
  LoadWith("");
  // The caller's own descriptors that an exec would pass on: a pipe whose
  // reader waits for its end, and a file.
  int callerPipe[2];
  ASSERT_EQ(pipe2(callerPipe, O_NONBLOCK), 0);
  int callerFile = open("/dev/null", O_RDONLY);
  ASSERT_GE(callerFile, 0);
  // A change in progress holds the database lock as well as the open file.
  ASSERT_TRUE(NXCNetCfgLockConfig(nullptr));
  ASSERT_TRUE(NXCServiceStart(8, NXC_SERVICE_NAT));
  ASSERT_TRUE(NXCNetCfgUnlockConfig(nullptr));
  close(callerPipe[1]);
  char c;
  EXPECT_EQ(read(callerPipe[0], &c, 1), 0);  // the end: the daemon holds no writer
  close(callerPipe[0]);
  close(callerFile);
  pid_t pid = PidInFile(kNatPid);
  ASSERT_TRUE(Alive(pid));
  // The status pipe's write end may still be open: the daemon closes it
  // only after its report, which is what the start waited for.
  V argv = StandinArgv("zynet-natd");
  ASSERT_GT(argv.size(), 2u);
  const std::string fdDir = "/proc/" + std::to_string(pid) + "/fd/";
  for (const std::string &fd : SplitLines(CommandOutput("ls " + fdDir))) {
    char target[512] = "";
    ssize_t n = readlink((fdDir + fd).c_str(), target, sizeof target - 1);
    const std::string to(target, n > 0 ? static_cast<size_t>(n) : 0);
    int number = atoi(fd.c_str());
    if (number == 1 || number == 2) {
      EXPECT_EQ(to, kLogPath) << "fd " << fd;
    } else if (fd == argv[2]) {
      // Gone already when the daemon closed it after the listing.
      if (n > 0) {
        EXPECT_EQ(to.rfind("pipe:", 0), 0u) << to;
      }
    } else if (number != 0) {
      ADD_FAILURE() << "daemon inherited fd " << fd << " -> " << to;
    }
  }
}

}  // namespace
}  // namespace nxc::test
