// dhcp_conf_writer.cpp - the vnet's dhcpd.conf and its protected block.
//
// The library owns one block of dhcpd.conf, between a start and an end
// marker line; users may keep their own text before and after it. The SHA-1
// of the block as last written is stored as the vnet answer DHCP_CFG_HASH.
// On regeneration an untouched block is replaced in place with the user's
// text around it kept byte for byte; an edited, missing or unhashable block
// makes a fresh file, and the old one survives only in dhcpd.conf.bak, which
// is refreshed on every regeneration.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include "base/byte_buffer.h"
#include "base/scope_guard.h"
#include "base/sha1.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "core/log.h"
#include "dhcp/dhcp_priv.h"
#include "host/file_copy.h"
#include "netcfg/dhcp_mappings.h"
#include "nexcfg_internal.h"

using nxc::ByteBuffer;
using namespace std::string_view_literals;
using nxc::CPtr;
using nxc::DhcpBlockPos;
using nxc::InternalEnter;
using nxc::InternalExit;
using nxc::UniqueFile;
using nxc::kIPTextSize;
using nxc::kMACTextSize;
using nxc::kPathSize;
using EnumState = nxc::RecordTableBase::EnumState;

namespace {

constexpr size_t kLineSize = 256;
constexpr size_t kLeaseTimeSize = 10;
constexpr size_t kDomainNameSize = 64;
constexpr size_t kHashStrSize = 256;
constexpr size_t kCopyChunk = 256;
// Stored and fresh hashes are compared on their first 20 hex digits only.
constexpr size_t kHashCompareLength = 20;
constexpr char kHashField[] = "DHCP_CFG_HASH";

constexpr char kStartMarker[] =
    "###### ZYNET DHCP Configuration. Start of \"DO NOT MODIFY SECTION\" #####\n";
constexpr char kEndMarker[] =
    "####### ZYNET DHCP Configuration. End of \"DO NOT MODIFY SECTION\" #######\n";
constexpr int kStartMarkerLength = 72;
constexpr int kEndMarkerLength = 73;
static_assert(sizeof kStartMarker - 1 == kStartMarkerLength);
static_assert(sizeof kEndMarker - 1 == kEndMarkerLength);

// The zynet adapters' fixed organisational prefix.
constexpr unsigned kMacPrefix[] = {0x02, 0x1C, 0x7E};

// A digest as the block hash is stored: 40 upper-case hex digits in a
// zero-filled, malloc'd buffer of kHashStrSize bytes. Null (logged) when
// memory runs out.
char *HashString(const uint8_t (&digest)[nxc::kSha1DigestSize]) {
  static constexpr char kFn[] = "NXCCalculateHashStrForBlock";
  CPtr<char> hash(static_cast<char *>(calloc(kHashStrSize, 1)));
  if (!hash) {
    NXCLog(LOG_ERR, kFn, "Error in memory allocation for buffer for hash");
    return nullptr;
  }
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (size_t i = 0; i < nxc::kSha1DigestSize; ++i) {
    hash.get()[2 * i] = kDigits[digest[i] >> 4];
    hash.get()[2 * i + 1] = kDigits[digest[i] & 0xf];
  }
  NXCLog(LOG_INFO2, kFn, "Hash String value: %s", hash.get());
  return hash.release();
}

// The SHA-1 of text as the block hash is stored (see HashString).
char *HashText(std::string_view text) {
  uint8_t digest[nxc::kSha1DigestSize];
  nxc::Sha1Digest(text.data(), text.size(), digest);
  return HashString(digest);
}

}  // namespace

namespace nxc {

[[nodiscard]] bool LocateDhcpBlock(std::string_view text, DhcpBlockPos *pos) {
  static constexpr char kFn[] = "NXCLocateZynetDHCPBlock";
  InternalEnter(kFn, __LINE__);
  // Logged at the error level on purpose: it marks every regeneration.
  NXCLog(LOG_ERR, kFn, "Trying to locate the zynet dhcp config block");
  int64_t start = -1, end = -1;
  // A marker counts where it fills a whole piece of the text as a 256-byte
  // line buffer takes it: up to and including a newline, or 255 bytes of a
  // longer line. The markers end in their only newline, so one that starts
  // a piece fills it. Candidates come in increasing order, so the start of
  // the line they are on is found in one pass over the text. A later start
  // marker replaces an earlier one; the first end marker ends the search.
  size_t lineStart = 0, scanned = 0;
  auto startsPiece = [&](size_t at) {
    const void *newline = memrchr(text.data() + scanned, '\n', at - scanned);
    if (newline) {
      lineStart = static_cast<size_t>(static_cast<const char *>(newline) - text.data()) + 1;
    }
    scanned = at;
    return (at - lineStart) % (kLineSize - 1) == 0;
  };
  const std::string_view startMarker(kStartMarker, kStartMarkerLength);
  const std::string_view endMarker(kEndMarker, kEndMarkerLength);
  // Both markers begin with '#', which the generated lines between them
  // never hold: a search for that one byte passes over them fastest.
  for (const char *hit = static_cast<const char *>(memchr(text.data(), '#', text.size())); hit;
       hit = static_cast<const char *>(
           memchr(hit + 1, '#', text.size() - static_cast<size_t>(hit + 1 - text.data())))) {
    const size_t at = static_cast<size_t>(hit - text.data());
    const std::string_view rest = text.substr(at);
    if (rest.starts_with(startMarker)) {
      if (startsPiece(at)) {
        start = static_cast<int64_t>(at);
        NXCLog(LOG_INFO2, kFn, "Block Start identified: %li", static_cast<long>(start));
      }
    } else if (rest.starts_with(endMarker) && startsPiece(at)) {
      end = static_cast<int64_t>(at) + kEndMarkerLength;
      NXCLog(LOG_INFO2, kFn, "Block End identified: %li", static_cast<long>(end));
      break;
    }
  }
  if (start < 0 || end < 0) {
    NXCLog(LOG_ERR, kFn,
           "Could not locate zynet DHCP config block, creating a new config file and backing up "
           "existing file");
    return InternalExit(kFn, __LINE__, false);
  }
  pos->start = start;
  pos->end = end;
  return InternalExit(kFn, __LINE__, true);
}

}  // namespace nxc

namespace {

// Finds the block of the existing file; false when it has none.
[[nodiscard]] bool LocateBlock(std::string_view file, DhcpBlockPos *pos, const char *fn) {
  if (!LocateDhcpBlock(file, pos)) return false;
  NXCLog(LOG_INFO2, fn, "Located positions: Start: %li, End: %li, Size: %li",
         static_cast<long>(pos->start), static_cast<long>(pos->end),
         static_cast<long>(pos->end - pos->start));
  return true;
}

// The located block when its digest matches the stored hash, else {0, 0}:
// the block cannot be hashed, has no stored hash or was edited.
DhcpBlockPos JudgeBlock(uint32_t vnet, const DhcpBlockPos &pos,
                        const uint8_t (&digest)[nxc::kSha1DigestSize], const char *fn) {
  CPtr<char> fresh(HashString(digest));
  if (!fresh) {
    NXCLog(LOG_ERR, fn,
           "Hash for DHCP config could not be calculated, creating a new config file and backing "
           "up existing file");
    return {};
  }
  const char *stored = NXCGetVnetCfg(vnet, kHashField);
  if (!stored) {
    NXCLog(LOG_ERR, fn,
           "DHCP config hash not found in vnet config, creating a new config file and backing up "
           "existing file");
    return {};
  }
  if (strncasecmp(stored, fresh.get(), kHashCompareLength) != 0) {
    NXCLog(LOG_WRN, fn,
           "DHCP config modified by user, creating a new config file and backing up existing "
           "file");
    return {};
  }
  NXCLog(LOG_INFO, fn, "DHCP config block is not modified");
  return pos;
}

// Opens (truncating) the configuration file that is about to be written.
[[nodiscard]] bool OpenForWriting(const char *path, UniqueFile *file, const char *fn) {
  file->reset(fopen(path, "w+e"));
  if (!*file) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "Cannot create DHCP Config File, %s, because of  error: %s", path,
           strerror(err));
    return false;
  }
  NXCLog(LOG_INFO, fn, "Writing configuration information into: %s", path);
  return true;
}

// A first configuration: makes the directories and the file and opens it.
[[nodiscard]] bool CreateConfig(uint32_t vnet, const char *path, UniqueFile *file, const char *fn) {
  NXCLog(LOG_INFO, fn, "DHCP Config %s does not exist yet, Creating new", path);
  const int32_t n = static_cast<int32_t>(vnet);
  if (!NXCCreateFile(n, NXC_FILE_VNET_DIR, nullptr)) {
    NXCLog(LOG_ERR, fn, "Cannot create zynet Directory");
    return false;
  }
  if (!NXCCreateFile(n, NXC_FILE_DHCPD_DIR, nullptr)) {
    NXCLog(LOG_ERR, fn, "Cannot create DHCP Directory");
    return false;
  }
  if (!NXCCreateFile(n, NXC_FILE_DHCPD_CONF, nullptr)) {
    NXCLog(LOG_ERR, fn, "Cannot create DHCP config file");
    return false;
  }
  return OpenForWriting(path, file, fn);
}

// Makes the whole existing file the backup and opens the file anew.
[[nodiscard]]
bool BackUpAndReopen(uint32_t vnet, const char *path, nxc::FileText *existing,
                     char (&bakPath)[kPathSize], UniqueFile *file, const char *fn) {
  if (!NXCGetFileName(static_cast<int32_t>(vnet), NXC_FILE_DHCPD_CONF_BAK, bakPath,
                      sizeof bakPath)) {
    NXCLog(LOG_ERR, fn, "Cannot get the DHCP config backup file name");
    return false;
  }
  NXCLog(LOG_WRN, fn, "Backing up DHCP config into \"%s\" before modification", bakPath);
  if (!nxc::BackUpBeforeRewrite(existing, path, bakPath)) {
    NXCLog(LOG_ERR, fn, "Failed to backup DHCP file. Aborting");
    return false;
  }
  if (!OpenForWriting(path, file, fn)) return false;
  nxc::TakeOverOwnerAndMode(fileno(file->get()), *existing);
  return true;
}

[[nodiscard]] bool WriteHeader(uint32_t vnet, ByteBuffer *out, const char *fn) {
  bool ok = out->AppendPrintf(
      "# Configuration file for ISC 2.0 zynet-dhcpd operating on zynet%d.\n"
      "#\n"
      "# This file was automatically generated by the Zymtra configuration program.\n"
      "# See Instructions below if you want to modify it.\n"
      "#\n"
      "# We set domain-name-servers to make some DHCP clients happy\n"
      "# (dhclient as configured in SuSE, TurboLinux, etc.).\n"
      "# We also supply a domain name to make pump (Red Hat 6.x) happy.\n"
      "#\n"
      "\n"
      "\n",
      static_cast<int>(vnet));
  if (!ok) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP File Header, error: %s", strerror(err));
    return false;
  }
  return true;
}

// The start marker and the instructions; *blockStart gets the marker's offset.
[[nodiscard]] bool WriteBlockStart(ByteBuffer *out, const char *fn) {
  char stamp[64] = "";
  time_t now = time(nullptr);
  struct tm local;
  if (localtime_r(&now, &local)) (void)strftime(stamp, sizeof stamp, "%m/%d/%Y %H:%M:%S", &local);
  if (!out->Append(kStartMarker, kStartMarkerLength) ||
      !out->AppendPrintf(
          "# Modification Instructions: This section of the configuration file contains\n"
          "# information generated by the configuration program. Do not modify this\n"
          "# section.\n"
          "# You are free to modify everything else. Also, this section must start \n"
          "# on a new line \n"
          "# This file will get backed up with a different name in the same directory \n"
          "# if this section is edited and you try to configure DHCP again.\n"
          "\n"
          "# Written at: %s\n",
          stamp)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fseek/fprintf: failed, error: %s", strerror(err));
    return false;
  }
  return true;
}

// Parameter values as the block prints them.
struct DhcpValues {
  bool nat = false;
  char dns[kIPTextSize] = "";
  char domainName[kDomainNameSize] = "";
  char netbios[kIPTextSize] = "";
  char routers[kIPTextSize] = "";
};

// A parameter's value for the file; one that holds a line break (or any
// control character) would write lines of its own into dhcpd.conf and is
// refused.
[[nodiscard]] bool Fetch(uint32_t vnet, uint32_t id, char *buf, size_t size) {
  if (!NXCDHCPGetParameter(vnet, id, /*useDefault=*/true, buf, size)) return false;
  if (!nxc::HasControlChar(buf)) return true;
  NXCLog(LOG_ERR, "NXCDHCPWriteDHCPCfg",
         "Refusing DHCP parameter %s: it holds a line break or another control character",
         NXCDHCPParamIDToName[id - NXC_DHCP_PARAM_BASE]);
  return false;
}

[[nodiscard]] bool WriteGlobalValues(uint32_t vnet, ByteBuffer *out, const char *fn) {
  char defaultLease[kLeaseTimeSize] = "";
  char maxLease[kLeaseTimeSize] = "";
  if (!Fetch(vnet, NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC, defaultLease, sizeof defaultLease)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC, maxLease, sizeof maxLease)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_MAX_LEASE_DURATION_SEC failed");
    return false;
  }
  if (!out->AppendPrintf("allow unknown-clients;\n"
                         "default-lease-time %s;                # default is 30 minutes\n"
                         "max-lease-time %s;                    # default is 2 hours\n"
                         "\n",
                         defaultLease, maxLease)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP Global Parameters, error: %s",
           strerror(err));
    return false;
  }
  NXCLog(LOG_INFO2, fn, "Finished writing global values, writing subnet values now");
  return true;
}

// The subnet declaration; fills values for the host entries that follow.
[[nodiscard]] bool WriteSubnet(uint32_t vnet, ByteBuffer *out, DhcpValues *values, const char *fn) {
  char subnet[kIPTextSize] = "", mask[kIPTextSize] = "", begin[kIPTextSize] = "",
       end[kIPTextSize] = "", broadcast[kIPTextSize] = "";
  char subDefaultLease[kLeaseTimeSize] = "", subMaxLease[kLeaseTimeSize] = "";
  if (!NXCGetVnetSubnetAddr(vnet, subnet, sizeof subnet)) {
    NXCLog(LOG_ERR, fn, "Getting Subnet address failed");
    return false;
  }
  if (!NXCGetVnetSubnetMask(vnet, mask, sizeof mask)) {
    NXCLog(LOG_ERR, fn, "Getting Subnet mask failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_LEASE_BEGIN_IP, begin, sizeof begin)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_LEASE_BEGIN_IP failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_LEASE_END_IP, end, sizeof end)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_LEASE_END_IP failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_BROADCAST_ADDR, broadcast, sizeof broadcast)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_BROADCAST_ADDR failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_DNS_ADDR, values->dns, sizeof values->dns)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_DNS_ADDR failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_DOMAIN_NAME, values->domainName, sizeof values->domainName)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_DOMAIN_NAME failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC, subDefaultLease,
             sizeof subDefaultLease)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC failed");
    return false;
  }
  if (!Fetch(vnet, NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, subMaxLease, sizeof subMaxLease)) {
    NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC failed");
    return false;
  }
  // The domain name goes out as stored: the writer adds no quotes.
  if (!out->AppendPrintf("subnet %s netmask %s {\n"
                         "\trange %s %s;\n"
                         "\toption broadcast-address %s;\n"
                         "\toption domain-name-servers %s;\n"
                         "\toption domain-name %s;\n"
                         "\tdefault-lease-time %s;                # default is 30 minutes\n"
                         "\tmax-lease-time %s;                    # default is 2 hours\n",
                         subnet, mask, begin, end, broadcast, values->dns, values->domainName,
                         subDefaultLease, subMaxLease)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP Subnet Config, error: %s",
           strerror(err));
    return false;
  }
  if (values->nat) {
    if (!Fetch(vnet, NXC_DHCP_PARAM_NETBIOS, values->netbios, sizeof values->netbios)) {
      NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_NETBIOS failed");
      return false;
    }
    if (!out->AppendPrintf("\toption netbios-name-servers %s;\n", values->netbios)) {
      int err = errno;
      NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP Subnet Config Option, error: %s",
             strerror(err));
      return false;
    }
    if (!Fetch(vnet, NXC_DHCP_PARAM_ROUTERS, values->routers, sizeof values->routers)) {
      NXCLog(LOG_ERR, fn, "Getting NXC_DHCP_PARAM_ROUTERS failed");
      return false;
    }
    if (!out->AppendPrintf("\toption routers %s;\n", values->routers)) {
      int err = errno;
      NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP Subnet Config Option, error: %s",
             strerror(err));
      return false;
    }
  }
  if (!out->AppendPrintf("}\n")) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing end Param, error: %s", strerror(err));
    return false;
  }
  NXCLog(LOG_INFO2, fn, "Finished writing DHCP subnet values");
  return true;
}

// The host's own entry: its adapter gets a fixed address and no DNS.
[[nodiscard]] bool WriteHostEntry(uint32_t vnet, ByteBuffer *out, bool nat, const char *fn) {
  char adapter[kIPTextSize] = "";
  char address[kIPTextSize] = "";
  char mac[kMACTextSize] = "";
  if (!NXCGetVnetVirtAdapter(vnet, adapter, sizeof adapter)) {
    NXCLog(LOG_ERR, fn, "Failed to get name for vnet %u\n", vnet);
    return false;
  }
  if (!NXCGetVnetVirtAdapterAddr(vnet, address, sizeof address, /*computeIfAbsent=*/true)) {
    NXCLog(LOG_ERR, fn, "Couldn't get hostonly IP addr for vnet %u\n", vnet);
    return false;
  }
  (void)snprintf(mac, sizeof mac, "%02X:%02X:%02X:%02X:%02X:%02X", kMacPrefix[0], kMacPrefix[1],
                 kMacPrefix[2], 0xC0 | ((vnet >> 16) & 0x3F), (vnet >> 8) & 0xFF, vnet & 0xFF);
  bool ok = out->AppendPrintf(
      "host %s {\n"
      "\thardware ethernet %s;\n"
      "\tfixed-address %s;\n"
      "\toption domain-name-servers %s;\n"
      "\toption domain-name %s;\n",
      adapter, mac, address, "0.0.0.0", "\"\"");
  if (ok && nat) ok = out->AppendPrintf("\toption routers %s;\n", "0.0.0.0");
  if (ok) ok = out->AppendPrintf("}\n");
  if (!ok) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: couldn't write static DHCP entry for %s: %s\n", adapter,
           strerror(err));
    return false;
  }
  return true;
}

// The SHA-1 of the new block, taken while the block is being made, and of
// the old file's block beside it. Every whole 64-byte piece of the new
// block is hashed as soon as it stands, while it is still in the cache,
// together with the same stretch of the old block: the rounds of the two
// run side by side, and alongside the formatting of what follows.
class BlockHashes {
 public:
  // text holds the new block alone, from its first byte; old is the old
  // block (empty when there is none).
  BlockHashes(const ByteBuffer &text, std::string_view old) : text_(text), old_(old) {}
  void CatchUp() {
    const size_t whole = (text_.Size() - hashed_) / nxc::kSha1BlockSize * nxc::kSha1BlockSize;
    if (whole == 0) return;
    const size_t oldWhole = (old_.size() - oldHashed_) / nxc::kSha1BlockSize * nxc::kSha1BlockSize;
    const size_t both = std::min(whole, oldWhole);
    if (both > 0)
      nxc::Sha1UpdateBoth(&sha_, text_.Data() + hashed_, &oldSha_, old_.data() + oldHashed_, both);
    if (whole > both) sha_.Update(text_.Data() + hashed_ + both, whole - both);
    hashed_ += whole;
    oldHashed_ += both;
  }
  void Finish(uint8_t (&digest)[nxc::kSha1DigestSize]) {
    sha_.Update(text_.Data() + hashed_, text_.Size() - hashed_);
    sha_.Final(digest);
  }
  // The old block's digest; what the new block did not take along is
  // hashed alone.
  void FinishOld(uint8_t (&digest)[nxc::kSha1DigestSize]) {
    oldSha_.Update(old_.data() + oldHashed_, old_.size() - oldHashed_);
    oldSha_.Final(digest);
  }

 private:
  const ByteBuffer &text_;
  size_t hashed_ = 0;
  std::string_view old_;
  size_t oldHashed_ = 0;
  nxc::Sha1 sha_, oldSha_;
};

// The static entries as they are made, each from a mapping as the
// enumeration hands it over.
struct StaticEntries {
  ByteBuffer *out;
  BlockHashes *hash;
  // Everything after an entry's fixed address, the same for every entry.
  std::string_view entryEnd;

  static bool Add(void *context, std::string_view mac, std::string_view ip) {
    auto *self = static_cast<StaticEntries *>(context);
    if (!self->out->AppendAll("host "sv, ip, " {\n\thardware ethernet "sv, mac,
                              ";\n\tfixed-address "sv, ip, self->entryEnd))
      return false;
    self->hash->CatchUp();
    return true;
  }
};

// One entry per static mapping, in the table's enumeration order. *found
// gets the enumeration state the walk over the mappings found, when it
// takes place.
[[nodiscard]] bool WriteStaticEntries(uint32_t vnet, ByteBuffer *out, const DhcpValues &values,
                                      BlockHashes *hash, std::optional<EnumState> *found,
                                      const char *fn) {
  // Everything after an entry's fixed address is the same for every entry:
  // its DNS and domain-name lines and, with NAT, its NetBIOS and routers
  // lines. It is put together once.
  ByteBuffer rest;
  bool ok = rest.AppendAll(";\n\toption domain-name-servers "sv, values.dns,
                           ";\n\toption domain-name "sv, values.domainName) &&
            (!values.nat || rest.AppendAll(";\n\toption netbios-name-servers "sv, values.netbios,
                                           ";\n\toption routers "sv, values.routers)) &&
            rest.AppendAll(";\n}\n"sv);
  StaticEntries entries{out, hash, std::string_view(rest.Data(), rest.Size())};
  ok = ok && nxc::EnumDhcpMappings(vnet, StaticEntries::Add, &entries, &found->emplace());
  if (!ok) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP MAC/IP mapping, error: %s",
           strerror(err));
    return false;
  }
  return true;
}

// Stores the hash of the block just written for the next run.
[[nodiscard]] bool StoreBlockHash(uint32_t vnet, const uint8_t (&digest)[nxc::kSha1DigestSize],
                                  const char *fn) {
  CPtr<char> hash(HashString(digest));
  if (!hash) {
    NXCLog(LOG_ERR, fn, "Hash for DHCP config block could not be calculated");
    return false;
  }
  if (!NXCSetVnetCfg(vnet, kHashField, hash.get())) {
    NXCLog(LOG_ERR, fn, "Could not set DHCP config hash in vnet config");
    return false;
  }
  NXCLog(LOG_INFO, fn, "Hash of DHCP config block set in vnet config");
  return true;
}

// The new block, made whole in memory before it is written.
struct NewBlock {
  ByteBuffer text;
  bool made = false;
  uint8_t digest[nxc::kSha1DigestSize] = {};
  // The enumeration state of the mappings before the making walked them;
  // none when it did not get that far.
  std::optional<EnumState> enumFound;
};

// Makes the new block into block->text: its start, the global values, the
// subnet, the host's entry and the static entries. False (logged) on the
// first step that fails.
[[nodiscard]] bool FormatBlock(uint32_t vnet, ByteBuffer *text, BlockHashes *hash,
                               std::optional<EnumState> *enumFound, const char *fn) {
  if (!WriteBlockStart(text, fn) || !WriteGlobalValues(vnet, text, fn)) return false;
  DhcpValues values;
  values.nat = NXCGetVnetUseNAT(vnet);
  if (!WriteSubnet(vnet, text, &values, fn) || !WriteHostEntry(vnet, text, values.nat, fn) ||
      !WriteStaticEntries(vnet, text, values, hash, enumFound, fn))
    return false;
  if (!text->Append(kEndMarker, kEndMarkerLength)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP readonly end marker, error: %s",
           strerror(err));
    return false;
  }
  return true;
}

// Makes and hashes the new block and, beside it, hashes the old block
// (empty when there is none) into oldDigest.
void MakeBlock(uint32_t vnet, std::string_view oldBlock, size_t sizeHint, NewBlock *block,
               uint8_t (&oldDigest)[nxc::kSha1DigestSize], const char *fn) {
  // Without room (a failure shows in the appends), the buffer grows as it goes.
  (void)block->text.Reserve(sizeHint);
  BlockHashes hash(block->text, oldBlock);
  block->made = FormatBlock(vnet, &block->text, &hash, &block->enumFound, fn);
  if (block->made) hash.Finish(block->digest);
  hash.FinishOld(oldDigest);
}

// Copies the user's text before the old block, when there is any.
[[nodiscard]] bool WriteKeptPrefix(FILE *file, const DhcpBlockPos &old, const char *bakPath,
                                   const char *fn) {
  if (old.start == 0) return true;
  NXCLog(LOG_INFO2, fn, "Copying from backup file, pos:%d-%li", 0, static_cast<long>(old.start));
  if (!NXCCopyFileData(0, old.start, bakPath, file)) {
    NXCLog(LOG_ERR, fn, "Copying data failed");
    return false;
  }
  NXCLog(LOG_INFO2, fn, "Copying is done");
  return true;
}

// Everything after the file was opened for writing: the kept prefix (or the
// header), the block made beforehand with the lines of its making, its
// hash, the kept suffix and the leases file.
[[nodiscard]] bool WriteConfig(uint32_t vnet, FILE *file, const DhcpBlockPos &old,
                               const char *bakPath, const NewBlock &block, nxc::LogHold *blockLines,
                               const char *fn) {
  ByteBuffer header;
  if (!WriteKeptPrefix(file, old, bakPath, fn) ||
      (old.start == 0 && !WriteHeader(vnet, &header, fn))) {
    // The block goes with the lines of its making, as a writer going step
    // by step would never have made it; the walk over the mappings is
    // undone with them, so the next enumeration starts as it would have.
    if (block.enumFound) nxc::RestoreDhcpEnum(vnet, *block.enumFound);
    return false;
  }
  blockLines->WriteOut();
  if (!block.made) return false;
  if (fwrite(header.Data(), 1, header.Size(), file) != header.Size() ||
      fwrite(block.text.Data(), 1, block.text.Size(), file) != block.text.Size()) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing DHCP readonly end marker, error: %s",
           strerror(err));
    return false;
  }
  if (!StoreBlockHash(vnet, block.digest, fn)) return false;
  if (old.end != 0) {
    NXCLog(LOG_INFO2, fn, "Copying from backup file, pos:%li-%d", static_cast<long>(old.end), 0);
    if (!NXCCopyFileData(old.end, 0, bakPath, file)) {
      NXCLog(LOG_ERR, fn,
             "Failure in writing DHCP configuration  information into the config file");
      return false;
    }
    NXCLog(LOG_INFO2, fn, "Copying is done");
  }
  if (!NXCCreateFile(static_cast<int32_t>(vnet), NXC_FILE_DHCPD_LEASES, nullptr)) {
    NXCLog(LOG_ERR, fn, "Cannot create DHCP leases file");
    return false;
  }
  return true;
}

// Regenerates an existing file, whose content is in existing, into *file.
// The old block is judged by its hash before anything is written; the two
// hashes are taken side by side while the new block is made, so the making
// comes first, after the backup and the reopening, and the lines of both are
// held back and written out where a writer going step by step puts them:
// the judgment, the backup and reopening, the kept prefix, the making.
[[nodiscard]]
bool Regenerate(uint32_t vnet, const char *path, nxc::FileText *existing, UniqueFile *file,
                const char *fn) {
  DhcpBlockPos located;
  std::string_view oldBlock;
  if (LocateBlock(existing->View(), &located, fn)) {
    oldBlock = existing->View().substr(static_cast<size_t>(located.start),
                                       static_cast<size_t>(located.end - located.start));
  }
  char bakPath[kPathSize] = "";
  nxc::LogHold reopenLines;
  const bool reopened = BackUpAndReopen(vnet, path, existing, bakPath, file, fn);
  reopenLines.Stop();
  NewBlock block;
  uint8_t oldDigest[nxc::kSha1DigestSize];
  nxc::LogHold blockLines;
  if (reopened) {
    MakeBlock(vnet, oldBlock, existing->size, &block, oldDigest, fn);
  } else {
    nxc::Sha1Digest(oldBlock.data(), oldBlock.size(), oldDigest);
  }
  blockLines.Stop();
  const DhcpBlockPos old = oldBlock.empty() ? DhcpBlockPos{}
                                            : JudgeBlock(vnet, located, oldDigest, fn);
  reopenLines.WriteOut();
  if (!reopened) return false;
  *existing = {};
  return WriteConfig(vnet, file->get(), old, bakPath, block, &blockLines, fn);
}

}  // namespace

extern "C" bool NXCDHCPUpdateFromConfig(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCDHCPUpdateFromConfig";
  if (NXCGetVnetUseDHCP(vnet)) return NXCDHCPWriteDHCPCfg(vnet);
  const int32_t n = static_cast<int32_t>(vnet);
  (void)NXCRemoveFile(n, NXC_FILE_DHCPD_CONF_BAK, nullptr);
  (void)NXCRemoveFile(n, NXC_FILE_DHCPD_LEASES_OLD, nullptr);
  bool confRemoved = NXCRemoveFile(n, NXC_FILE_DHCPD_CONF, nullptr);
  bool leasesRemoved = NXCRemoveFile(n, NXC_FILE_DHCPD_LEASES, nullptr);
  // A directory that still holds files of the user's stays.
  (void)NXCRemoveFile(n, NXC_FILE_DHCPD_DIR, nullptr);
  (void)NXCRemoveFile(n, NXC_FILE_VNET_DIR, nullptr);
  if (!confRemoved || !leasesRemoved) {
    NXCLog(LOG_ERR, kFn, "Removing DHCP configuration files failed");
    return false;
  }
  NXCLog(LOG_INFO, kFn, "Removed all traces of DHCP configuration for vnet: %d",
         static_cast<int>(vnet));
  return true;
}

extern "C" bool NXCDHCPWriteDHCPCfg(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCDHCPWriteDHCPCfg";
  InternalEnter(kFn, __LINE__);
  char path[kPathSize] = "";
  if (!NXCGetFileName(static_cast<int32_t>(vnet), NXC_FILE_DHCPD_CONF, path, sizeof path)) {
    NXCLog(LOG_ERR, kFn, "Cannot get the DHCP config file name");
    return InternalExit(kFn, __LINE__, false);
  }
  UniqueFile file;
  nxc::FileText existing;
  bool ok = false;
  if (nxc::ReadWholeFile(path, &existing)) {
    ok = Regenerate(vnet, path, &existing, &file, kFn);
  } else if (CreateConfig(vnet, path, &file, kFn)) {
    NewBlock block;
    uint8_t noDigest[nxc::kSha1DigestSize];
    nxc::LogHold blockLines;
    MakeBlock(vnet, {}, 0, &block, noDigest, kFn);
    blockLines.Stop();
    ok = WriteConfig(vnet, file.get(), {}, "", block, &blockLines, kFn);
    if (!ok) {
      // A file this call created is taken away again; an existing one that
      // failed stays as far as it got, its old content in the backup.
      file.reset();
      (void)NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_DHCPD_CONF, nullptr);
    }
  }
  file.reset();
  return InternalExit(kFn, __LINE__, ok);
}

extern "C" char *NXCCalculateHashStrForBlock(FILE *file, int64_t posStart,
                                            int64_t posEnd) noexcept {
  static constexpr char kFn[] = "NXCCalculateHashStrForBlock";
  if (!file || posStart < 0 || posEnd < 0) {
    NXCLog(LOG_ERR, kFn, "Invalid argument");
    return nullptr;
  }
  off_t saved = ftello(file);
  if (saved < 0) {
    NXCLog(LOG_ERR, kFn, "ftell failed");
    return nullptr;
  }
  // The caller's position comes back on every path from here on.
  nxc::ScopeGuard restore([&] { (void)fseeko(file, saved, SEEK_SET); });
  if (fseeko(file, posStart, SEEK_SET) != 0) {
    NXCLog(LOG_ERR, kFn, "ftell failed");
    return nullptr;
  }
  if (posEnd <= posStart) {
    NXCLog(LOG_ERR, kFn, "posEnd:%li must be greater than posStart:%li", static_cast<long>(posEnd),
           static_cast<long>(posStart));
    return nullptr;
  }
  size_t size = static_cast<size_t>(posEnd - posStart);
  CPtr<uint8_t> data(static_cast<uint8_t *>(malloc(size + 1)));
  if (!data) {
    NXCLog(LOG_ERR, kFn, "Error in allocation memory for Readonly DHCP data");  // sic
    return nullptr;
  }
  if (fread(data.get(), 1, size, file) != size) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "fread: failed while reading, error: %s", strerror(err));
    return nullptr;
  }
  return HashText(std::string_view(reinterpret_cast<const char *>(data.get()), size));
}

extern "C" bool NXCCopyFileData(int64_t startPos, int64_t endPos, const char *srcPath,
                                FILE *dst) noexcept {
  static constexpr char kFn[] = "NXCCopyFileData";
  if (!srcPath || !dst) {
    NXCLog(LOG_ERR, kFn, "Invalid arguments");
    return false;
  }
  UniqueFile src(fopen(srcPath, "re"));
  if (!src) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "Cannot open file: %s for reading, error: %s", srcPath, strerror(err));
    return false;
  }
  if (endPos == 0) {
    struct stat st;
    if (fstat(fileno(src.get()), &st) == 0) endPos = st.st_size;
  }
  if (endPos < startPos) {
    NXCLog(LOG_ERR, kFn, "endPos: %li cannot be less than startPos: %li", static_cast<long>(endPos),
           static_cast<long>(startPos));
    return false;
  }
  size_t remaining = static_cast<size_t>(endPos - startPos);
  NXCLog(LOG_INFO2, kFn, "Positions for data copying, maxRead: %zu, startPos: %li, endPos: %li ",
         remaining, static_cast<long>(startPos), static_cast<long>(endPos));
  if (fseeko(src.get(), startPos, SEEK_SET) != 0) {
    int err = errno;
    NXCLog(LOG_ERR, kFn, "fseek: failed, error: %s", strerror(err));
    return false;
  }
  char chunk[kCopyChunk];
  while (remaining > 0) {
    size_t toRead = remaining < sizeof chunk ? remaining : sizeof chunk;
    NXCLog(LOG_INFO2, kFn, "To read: %zu", toRead);
    size_t got = fread(chunk, 1, toRead, src.get());
    int readErr = errno;
    size_t written = got > 0 ? fwrite(chunk, 1, got, dst) : 0;
    NXCLog(LOG_INFO2, kFn, "Written: %zu", written);
    if (written != got) {
      int err = errno;
      NXCLog(LOG_ERR, kFn, "fwrite: failure while copying file, error: %s", strerror(err));
      return false;
    }
    if (got < toRead) {
      // A source that ends early counts as copied unless the destination
      // shows an error.
      if (!ferror(dst)) {
        NXCLog(LOG_ERR, kFn, "Finished copying");
        return true;
      }
      NXCLog(LOG_ERR, kFn, "fread: failure while copying file, error: %s", strerror(readErr));
      return false;
    }
    remaining -= got;
  }
  NXCLog(LOG_INFO2, kFn, "Finished copying data");
  return true;
}
