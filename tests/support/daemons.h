// daemons.h - the stand-in programs (daemons, ping) a test runs, seen from
// the test process.
//
// Started daemons detach and are reaped by the sandbox's init, as on a
// host, so a stopped daemon disappears at once.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/db_fixture.h"

namespace nxc::test {

// Puts the stand-in daemon (standins/zynet-standin.cpp) under the four
// daemons' names, and the stand-in ping program (standins/zymtra-ping.sh)
// beside them, into /run/zynet-bin and names that folder as bindir in
// /etc/zymtra/config. The daemon keeps its records in /run/zynet-standin,
// the ping program in /run/zymtra-ping; both start empty. False when that
// cannot be done.
bool InstallStandinDaemonsAndPing();
constexpr char kStandinBinDir[] = "/run/zynet-bin";
constexpr char kStandinStateDir[] = "/run/zynet-standin";
// The pid written in a pid file, or 0.
pid_t PidInFile(const char *path);

// Kills every process of the sandbox but its init and the test process,
// and waits until they are gone.
void KillAllDaemons();
// Waits up to timeoutMs for pid to be gone; true when it is.
bool WaitGone(pid_t pid, int timeoutMs);
// True when pid is a live process.
bool Alive(pid_t pid);
// The arguments the stand-in daemon called name was last started with.
std::vector<std::string> StandinArgv(const std::string &name);
// Makes the stand-in daemon called name behave as mode says.
void SetStandinMode(const std::string &name, const std::string &mode);

// The exit codes of the next ping runs, blank-separated; the last repeats.
bool SetPingExitCodes(const std::string &codes);
// The recorded ping command lines, and the address each one was given after
// "-b".
std::vector<std::string> PingCalls();
std::vector<std::string> PingedAddresses();

// A database test whose bindir holds the stand-in daemons and ping program
// (InstallStandinDaemonsAndPing); whatever a test started is killed after
// it.
class DaemonTest : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_TRUE(InstallStandinDaemonsAndPing());
  }
  void TearDown() override {
    KillAllDaemons();
    DbTest::TearDown();
  }
};

}  // namespace nxc::test
