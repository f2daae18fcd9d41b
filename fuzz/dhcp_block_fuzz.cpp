// Fuzz target: regenerating a vnet's dhcpd.conf over any existing file.
// Whatever the file holds, the regeneration succeeds, the backup is the old
// file, the new file has a block the locator finds and whose hash is the
// one stored, and:
//   - when the old file had an unedited block, every byte outside it is
//     kept, in place, and only the block is new (a block at the very start
//     gets the header before it);
//   - otherwise the new file is the header and a block, nothing else;
//   - a block that was written and then surrounded by text without marker
//     lines is always found unedited.
// Input: the first byte's low bit chooses the form. 0: the rest is the
// file. 1: the next byte says where in the rest the block last written is
// put, and the rest surrounds it.
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <strings.h>

#include <string>

#include "base/unique_fd.h"
#include "dhcp/dhcp_priv.h"
#include "fuzz_util.h"
#include "nexcfg_internal.h"

namespace {

constexpr uint32_t kVnet = 1;
constexpr char kHashField[] = "DHCP_CFG_HASH";
// Text common to both marker lines: surroundings without it hold no marker.
constexpr char kMarkerText[] = "ZYNET DHCP Configuration.";
// Stored and fresh hashes agree when their first 20 digits do.
constexpr size_t kHashCompareLength = 20;

struct Files {
  std::string conf, bak;
  std::string header;  // what a fresh file holds before its block
  std::string block;   // the block last written; its hash is the stored one
};

std::string FileName(int type) {
  char path[256];
  FUZZ_CHECK(NXCGetFileName(static_cast<int32_t>(kVnet), type, path, sizeof path));
  return path;
}

std::string StoredHash() {
  const char *hash = NXCGetVnetCfg(kVnet, kHashField);
  return hash ? hash : "";
}

// The hash of [pos.start, pos.end) of the file at path; "" when it cannot
// be computed.
std::string HashOf(const std::string &path, const nxc::DhcpBlockPos &pos) {
  nxc::UniqueFile f(fopen(path.c_str(), "re"));
  nxc::CPtr<char> hash(f ? NXCCalculateHashStrForBlock(f.get(), pos.start, pos.end) : nullptr);
  return hash ? hash.get() : "";
}

bool Locate(const std::string &path, nxc::DhcpBlockPos *pos) {
  return nxc::LocateDhcpBlock(nxc::fuzz::ReadFile(path), pos);
}

// Regenerates and checks the new file's block; returns where it is.
nxc::DhcpBlockPos Regenerate(Files *files, std::string *written) {
  FUZZ_CHECK(NXCDHCPWriteDHCPCfg(kVnet));
  *written = nxc::fuzz::ReadFile(files->conf);
  nxc::DhcpBlockPos pos;
  FUZZ_CHECK(Locate(files->conf, &pos));
  FUZZ_CHECK(HashOf(files->conf, pos) == StoredHash());
  files->block = written->substr(pos.start, pos.end - pos.start);
  return pos;
}

// A database for vnet 1 with DHCP, NAT and one static mapping, its files in
// the scratch folder; loaded read-only, so stored hashes stay in memory.
Files *SetUp() {
  const std::string dir = nxc::fuzz::ScratchDir();
  std::string db = dir + "/networking";
  nxc::fuzz::WriteFile(db, "VERSION=1,0\n"
                           "answer CONFIGDIR " + dir + "\n"
                           "answer VNET_1_DHCP yes\n"
                           "answer VNET_1_NAT yes\n"
                           "answer VNET_1_HOSTONLY_SUBNET 192.168.77.0\n"
                           "answer VNET_1_HOSTONLY_NETMASK 255.255.255.0\n"
                           "add_dhcp_mac_to_ip 1 aa:bb:cc:dd:ee:ff 192.168.77.10\n");
  FUZZ_CHECK(NXCNetCfgLoad(db.c_str(), /*out=*/nullptr, /*backup=*/false, /*readOnly=*/true));
  auto *files = new Files;
  files->conf = FileName(NXC_FILE_DHCPD_CONF);
  files->bak = FileName(NXC_FILE_DHCPD_CONF_BAK);
  std::string fresh;
  nxc::DhcpBlockPos pos = Regenerate(files, &fresh);
  FUZZ_CHECK(pos.end == static_cast<int64_t>(fresh.size()));
  files->header = fresh.substr(0, pos.start);
  return files;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Files *files = SetUp();
  if (size == 0) return 0;
  std::string old(reinterpret_cast<const char *>(data + 1), size - 1);
  bool wrapped = data[0] & 1;
  bool markerFree = false;
  if (wrapped && !old.empty()) {
    size_t at = static_cast<uint8_t>(old[0]) % old.size();
    old.erase(0, 1);
    markerFree = old.find(kMarkerText) == std::string::npos && (at == 0 || old[at - 1] == '\n');
    old.insert(at, files->block);
  }
  nxc::fuzz::WriteFile(files->conf, old);

  nxc::DhcpBlockPos before;
  bool kept = Locate(files->conf, &before) &&
              strncasecmp(HashOf(files->conf, before).c_str(), StoredHash().c_str(),
                          kHashCompareLength) == 0;
  FUZZ_CHECK(kept || !markerFree);

  std::string written;
  nxc::DhcpBlockPos after = Regenerate(files, &written);
  FUZZ_CHECK(nxc::fuzz::ReadFile(files->bak) == old);
  if (kept) {
    // A block at the very start has no text before it to keep, and gets
    // the header instead.
    std::string prefix = before.start == 0 ? files->header : old.substr(0, before.start);
    FUZZ_CHECK(written.substr(0, after.start) == prefix);
    FUZZ_CHECK(written.substr(after.end) == old.substr(before.end));
  } else {
    FUZZ_CHECK(written.substr(0, after.start) == files->header);
    FUZZ_CHECK(after.end == static_cast<int64_t>(written.size()));
  }
  return 0;
}
