// service_priv.h - the table of the four per-vnet daemons, shared by the
// files of the service layer.
#pragma once

#include <stdint.h>

namespace nxc {

struct ServiceInfo {
  uint32_t id;
  const char *description;  // "Bridge", ...
  const char *programKey;   // the answer naming the daemon's pid file
  const char *program;      // the executable under BINDIR, and the default pid file name
  bool pidFileByName;       // pid file named by vnet name (else by number)
  uint32_t option;          // vnet option tested before a restart starts it
};

// The daemon's entry, or null for an unknown id.
const ServiceInfo *FindService(uint32_t id) noexcept;

}  // namespace nxc
