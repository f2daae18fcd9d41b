#include "support/daemons.h"

#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/sandbox.h"
#include "support/test_util.h"

namespace nxc::test {

namespace {
constexpr char kPingDir[] = "/run/zymtra-ping";
}  // namespace

bool InstallStandinDaemonsAndPing() {
  static const char *const kDaemons[] = {"zynet-bridge", "zynet-netifup", "zynet-dhcpd",
                                         "zynet-natd"};
  std::string standin = std::string(StandinDir()) + "/zynet-standin";
  const std::string bin = kStandinBinDir, state = kStandinStateDir, ping = kPingDir;
  std::string setup = "rm -rf " + bin + " " + state + " " + ping + " /run/*.pid && mkdir " + bin + " " +
                      state + " " + ping + " && ln -s " + SourceDir() + "/tests/standins/zymtra-ping.sh " +
                      bin + "/zymtra-ping";
  for (const char *name : kDaemons)
    setup += " && ln -s " + standin + " " + bin + "/" + name;
  return Shell(setup) == 0 &&
         WriteFile("/etc/zymtra/config", std::string("bindir = \"") + kStandinBinDir + "\"\n");
}

pid_t PidInFile(const char *path) { return atoi(ReadFile(path).c_str()); }

bool WaitGone(pid_t pid, int timeoutMs) {
  for (int waited = 0; waited <= timeoutMs; waited += 5) {
    if (kill(pid, 0) != 0) return true;
    usleep(5000);
  }
  return false;
}

void KillAllDaemons() {
  std::vector<pid_t> others;
  if (DIR *dir = opendir("/proc")) {
    while (dirent *entry = readdir(dir)) {
      pid_t pid = atoi(entry->d_name);
      if (pid > 1 && pid != getpid()) others.push_back(pid);
    }
    closedir(dir);
  }
  for (pid_t pid : others) (void)kill(pid, SIGKILL);
  for (pid_t pid : others) (void)WaitGone(pid, 2000);
}

bool Alive(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }

std::vector<std::string> StandinArgv(const std::string &name) {
  return SplitLines(ReadFile(std::string(kStandinStateDir) + "/" + name + ".argv"));
}

void SetStandinMode(const std::string &name, const std::string &mode) {
  ASSERT_TRUE(WriteFile(std::string(kStandinStateDir) + "/" + name + ".mode", mode));
}

bool SetPingExitCodes(const std::string &codes) {
  (void)unlink((std::string(kPingDir) + "/calls").c_str());
  return WriteFile(std::string(kPingDir) + "/exit-codes", codes);
}

std::vector<std::string> PingCalls() {
  return SplitLines(ReadFile(std::string(kPingDir) + "/calls"));
}

std::vector<std::string> PingedAddresses() {
  std::vector<std::string> out;
  for (const auto &call : PingCalls()) {
    std::istringstream in(call);
    for (std::string word; in >> word;)
      if (word == "-b" && in >> word) out.push_back(word);
  }
  return out;
}

}  // namespace nxc::test
