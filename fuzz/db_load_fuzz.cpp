// Fuzz target: whatever a database or backup file contains, loading it must
// neither crash nor read out of bounds, and what was loaded must write back
// out as a fixed point: loading the written records and writing them again
// gives the same bytes. The first byte chooses database or backup form; the
// rest is the file.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "base/byte_buffer.h"
#include "fuzz_util.h"
#include "netcfg/netcfg_priv.h"

namespace {

// The records of the file at path as the compact writer writes them, or
// false when it does not load.
bool LoadAndExport(const std::string &path, bool backup, std::string *records) {
  NXCNetworkConfigurationDB *db = nullptr;
  if (!NXCNetCfgLoad(path.c_str(), &db, backup, /*readOnly=*/true)) return false;
  nxc::ByteBuffer text;
  bool failed = nxc::NetCfgWriteDatabaseToBuffer(db, &text);
  (void)NXCNetCfgUnload(&db, /*writeBack=*/false);
  FUZZ_CHECK(!failed);
  records->assign(text.Data(), text.Size());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static const std::string path = std::string(nxc::fuzz::ScratchDir()) + "/networking";
  nxc::fuzz::WriteFile(path, std::string_view(reinterpret_cast<const char *>(data + 1), size - 1));
  std::string exported;
  if (!LoadAndExport(path, /*backup=*/data[0] & 1, &exported)) return 0;
  nxc::fuzz::WriteFile(path, "VERSION=1,0\n" + exported);
  std::string again;
  FUZZ_CHECK(LoadAndExport(path, /*backup=*/false, &again));
  FUZZ_CHECK(again == exported);
  return 0;
}
