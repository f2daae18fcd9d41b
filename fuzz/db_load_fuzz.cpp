// Fuzz target: whatever a database or backup file contains, loading it must
// neither crash nor read out of bounds, and what was loaded must write back
// out. The first byte chooses database or backup form; the rest is the file.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include "base/byte_buffer.h"
#include "netcfg/netcfg_priv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static char path[] = "/tmp/nxc-fuzz-db-XXXXXX";
  static int fd = mkstemp(path);
  if (fd < 0) return 0;
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data + 1, size - 1, 0) != static_cast<ssize_t>(size - 1))
    return 0;
  bool backup = data[0] & 1;
  NXCNetworkConfigurationDB *db = nullptr;
  if (NXCNetCfgLoad(path, &db, backup, /*readOnly=*/true)) {
    nxc::ByteBuffer text;
    (void)nxc::NetCfgWriteDatabaseToBuffer(db, &text);
    (void)NXCNetCfgUnload(&db, /*writeBack=*/false);
  }
  return 0;
}
