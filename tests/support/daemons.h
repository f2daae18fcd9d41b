// daemons.h - the daemons a test started, seen from the test process.
//
// Started daemons detach and are reaped by the sandbox's init, as on a
// host, so a stopped daemon disappears at once.
#pragma once

#include <sys/types.h>

namespace nxc::test {

// Puts the stand-in daemon (standins/zynet-standin.cpp) under the four
// daemons' names into /run/zynet-bin and names that folder as bindir in
// /etc/zymtra/config; the stand-in keeps its records in /run/zynet-standin.
// False when that cannot be done.
bool InstallStandinDaemons();
constexpr char kStandinBinDir[] = "/run/zynet-bin";
constexpr char kStandinStateDir[] = "/run/zynet-standin";
// The pid written in a pid file, or 0.
pid_t PidInFile(const char *path);

// Kills every process of the sandbox but its init and the test process,
// and waits until they are gone.
void KillAllDaemons();
// Waits up to timeoutMs for pid to be gone; true when it is.
bool WaitGone(pid_t pid, int timeoutMs);

}  // namespace nxc::test
