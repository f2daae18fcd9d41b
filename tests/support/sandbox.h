// sandbox.h - facts about the private namespaces a test program runs in.
#pragma once

namespace nxc::test {

// True once the program runs inside its private mount, network and pid
// namespaces (see sandbox_main.cpp). Tests that touch host paths assert it.
bool InSandbox();
// The folder of the built stand-in programs (daemons, ping).
const char *StandinDir();
// The project's source folder.
const char *SourceDir();

// RUN_ALL_TESTS, except that as root (where every test can run) a test that
// skips fails, named with its reason on stderr. Without root skipped tests
// are named the same way, and a program whose tests all skipped exits with
// 77, so the runner reports them as skipped.
int RunAllTestsRefusingSkips();

}  // namespace nxc::test
