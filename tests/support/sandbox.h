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

}  // namespace nxc::test
