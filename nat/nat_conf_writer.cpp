// nat_conf_writer.cpp - the vnet's nat.conf, written whole from the NAT
// parameters and the port forwards.
//
// Unlike dhcpd.conf, the library owns all of nat.conf: every regeneration
// copies the old file to nat.conf.bak and writes a new one. The fixed texts
// are exported so that other components can recognise them.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <iterator>

#include "base/byte_buffer.h"
#include "base/str_util.h"
#include "base/text_sizes.h"
#include "base/unique_fd.h"
#include "core/api_frame.h"
#include "host/file_copy.h"
#include "netcfg/port_forwards.h"
#include "nexcfg_internal.h"

using nxc::ByteBuffer;
using namespace std::string_view_literals;
using nxc::InternalEnter;
using nxc::InternalExit;
using nxc::UniqueFile;

extern "C" {

const char NXCNATConfigFileHeader[] =
    "# Zymtra NAT configuration file\n"
    "# Manual editing of this file is not recommended. Using UI is preferred.\n";
const char NXCNATConfigFileHostSectionHeader[] = "\n[host]\n";
const char NXCNATConfigFileMacOSVirtApiDesc[] = "\n# Use MacOS network virtualization API\n";
const char NXCNATConfigFileMacOSVirtApiParam[] = "useMacosZynetVirtApi = %d\n";
const char NXCNATConfigFileIPDesc[] = "\n# NAT gateway address\n";
const char NXCNATConfigFileIPParam[] = "ip = %s\n";
const char NXCNATConfigFileNetmaskParam[] = "netmask = %s\n";
const char NXCNATConfigFileDeviceDesc[] = "\n# ZYnet device if not specified on command line\n";
const char NXCNATConfigFileDeviceParam[] = "device = %s\n";
const char NXCNATConfigFileActiveFTPDesc[] =
    "\n# Allow PORT/EPRT FTP commands (they need incoming TCP stream ...)\n";
const char NXCNATConfigFileActiveFTPParam[] = "activeFTP = %s\n";
const char NXCNATConfigFileAllowAnyOUIDesc[] =
    "\n# Allows the source to have any OUI.  Turn this on if you change the OUI\n"
    "# in the MAC address of your virtual machines.\n";
const char NXCNATConfigFileAllowAnyOUIParam[] = "allowAnyOUI = %s\n";
const char NXCNATConfigFileHostIPDesc[] = "\n# ZYnet host IP address\n";
const char NXCNATConfigFileHostIPParam[] = "hostIp = %s\n";
const char NXCNATConfigHostDefaultOptions[] =
    "\n# Controls if (TCP) connections should be reset when the adapter they are\n"
    "# bound to goes down\n"
    "resetConnectionOnLinkDown = 1\n"
    "\n"
    "# Controls if (TCP) connection should be reset when guest packet's destination\n"
    "# is NAT's IP address\n"
    "resetConnectionOnDestLocalHost = 1\n";
const char NXCNATConfigFileNat6Desc[] = "\n# Controls if enable nat ipv6\n";
const char NXCNATConfigFileNat6Param[] = "natIp6Enable = %s\n";
// The same words as the switch's description: the file has always read so.
const char NXCNATConfigFileNat6PrefixDesc[] = "\n# Controls if enable nat ipv6\n";
const char NXCNATConfigFileNat6PrefixParam[] = "natIp6Prefix = %s\n";
// Exported for recognition only; the writer does not use it.
const char NXCNATConfigHostNat6DefaultOptions[] =
    "\n# Controls if enable nat ipv6\n"
    "#natIp6Enable = 0\n"
    "\n"
    "# Controls if set nat ipv6 prefix\n"
    "#natIp6Prefix = 2001:db8:130f:ffa0::/64\n";
const char NXCNATConfigFileTCPSectionHeader[] = "\n[tcp]\n";
const char NXCNATConfigFileTCPDefaultOptions[] =
    "\n# Value of timeout in TCP TIME_WAIT state, in seconds\n"
    "timeWaitTimeout = 30\n";
const char NXCNATConfigFileUDPSectionHeader[] = "\n[udp]\n";
const char NXCNATConfigFileUDPTimeoutDesc[] =
    "\n# Timeout in seconds. Dynamically-created UDP mappings will purged if\n"
    "# idle for this duration of time 0 = no timeout, default = 60; real\n"
    "# value might be up to 100% longer\n";
const char NXCNATConfigFileUDPTimeoutParam[] = "timeout = %s\n";
const char NXCNATConfigFileNetbiosSectionHeader[] = "\n[netbios]\n";
const char NXCNATConfigNetbiosDefaultOptions[] =
    "# Timeout for NBNS queries.\n"
    "nbnsTimeout = 2\n"
    "\n"
    "# Number of retries for each NBNS query.\n"
    "nbnsRetries = 3\n"
    "\n"
    "# Timeout for NBDS queries.\n"
    "nbdsTimeout = 3\n";
const char NXCNATConfigFileIncomingTCPSectionHeader[] = "\n[incomingtcp]\n";
const char NXCNATConfigFileIncomingTCPDesc[] =
    "\n# Use these with care - anyone can enter into your VM through these...\n"
    "# The format and example are as follows:\n"
    "#<external port number> = <VM's IP address>:<VM's port number>\n"
    "#8080 = 172.16.3.128:80\n";
const char NXCNATConfigFileIncomingUDPSectionHeader[] = "\n[incomingudp]\n";
const char NXCNATConfigFileIncomingUDPDesc[] =
    "\n# UDP port forwarding example\n"
    "#6000 = 172.16.3.0:6001\n";
const char NXCNATConfigFilePortForwardParam[] = "%u = %s:%u%s%s\n";

}  // extern "C"

namespace {

using nxc::kPathSize;
using nxc::kIPTextSize;
constexpr size_t kDeviceSize = 256;
constexpr size_t kSwitchSize = 10;
constexpr size_t kPrefixSize = 46;

// The two port-forward sections, TCP first.
struct PortFwdSection {
  const char *protocol;
  int8_t tcp;
  const char *header;
  const char *description;
};

const PortFwdSection kPortFwdSections[] = {
    {.protocol = "TCP",
     .tcp = 1,
     .header = NXCNATConfigFileIncomingTCPSectionHeader,
     .description = NXCNATConfigFileIncomingTCPDesc},
    {.protocol = "UDP",
     .tcp = 0,
     .header = NXCNATConfigFileIncomingUDPSectionHeader,
     .description = NXCNATConfigFileIncomingUDPDesc},
};
static_assert(std::size(kPortFwdSections) == 2);

// Every value the file prints, all known before anything is written.
struct NatValues {
  char gateway[kIPTextSize] = "";
  char nat6[kSwitchSize] = "";
  char nat6Prefix[kPrefixSize] = "";
  char netmask[kIPTextSize] = "";
  char device[kDeviceSize] = "";
  char hostIp[kIPTextSize] = "";  // "" leaves the hostIp line out
  char activeFtp[kSwitchSize] = "";
  char allowAnyOui[kSwitchSize] = "";
  char udpTimeout[kSwitchSize] = "";
};

// A parameter's value for the file; one that holds a line break (or any
// control character) would write lines of its own into nat.conf and is
// refused.
[[nodiscard]] bool Fetch(uint32_t vnet, uint32_t id, char *buf, size_t size) {
  if (!NXCNATGetParameter(vnet, id, /*useDefault=*/true, buf, size)) return false;
  if (!nxc::HasControlChar(buf)) return true;
  NXCLog(LOG_ERR, "NXCNATUpdateFromConfig",
         "Refusing NAT parameter %s: it holds a line break or another control character",
         NXCNATParamIDToName[id - NXC_NAT_PARAM_BASE]);
  return false;
}

// A vnet without NAT keeps no NAT files.
[[nodiscard]] bool RemoveNatFiles(uint32_t vnet, const char *fn) {
  const int32_t n = static_cast<int32_t>(vnet);
  (void)NXCRemoveFile(n, NXC_FILE_NAT_CONF, nullptr);
  bool macRemoved = NXCRemoveFile(n, NXC_FILE_NAT_MAC, nullptr);
  bool backupRemoved = NXCRemoveFile(n, NXC_FILE_NAT_CONF_BAK, nullptr);
  (void)NXCRemoveFile(n, NXC_FILE_NAT_DIR, nullptr);
  (void)NXCRemoveFile(n, NXC_FILE_VNET_DIR, nullptr);
  if (macRemoved && backupRemoved) return true;
  NXCLog(LOG_ERR, fn, "Removing NAT configuration files failed");
  return false;
}

[[nodiscard]] bool FetchValues(uint32_t vnet, NatValues *v, const char *fn) {
  // The same line for all three, as it has always read.
  if (!Fetch(vnet, NXC_NAT_PARAM_GATEWAY_IP, v->gateway, sizeof v->gateway) ||
      !Fetch(vnet, NXC_NAT_PARAM_NAT6, v->nat6, sizeof v->nat6) ||
      !Fetch(vnet, NXC_NAT_PARAM_NAT6_PREFIX, v->nat6Prefix, sizeof v->nat6Prefix)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up NAT gateway address");
    return false;
  }
  if (!Fetch(vnet, NXC_NAT_PARAM_GATEWAY_NETMASK, v->netmask, sizeof v->netmask)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up NAT netmask");
    return false;
  }
  if (!Fetch(vnet, NXC_NAT_PARAM_DEVICE, v->device, sizeof v->device)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up NAT device");
    return false;
  }
  if (NXCVnetIsOptionConfigured(vnet, NXC_VNET_OPTION_ADAPTER)) {
    if (!NXCGetVnetVirtAdapterAddr(vnet, v->hostIp, sizeof v->hostIp, /*computeIfAbsent=*/true)) {
      NXCLog(LOG_ERR, fn, "Failure in getting the adapter address");
      return false;
    }
    NXCLog(LOG_INFO2, fn, "Retrieved adapter address: %s, len: %lu", v->hostIp,
           static_cast<unsigned long>(strlen(v->hostIp)));
  }
  if (!Fetch(vnet, NXC_NAT_PARAM_ACTIVE_FTP, v->activeFtp, sizeof v->activeFtp)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up value of Active FTP");
    return false;
  }
  if (!Fetch(vnet, NXC_NAT_PARAM_ALLOW_ANY_OUI, v->allowAnyOui, sizeof v->allowAnyOui)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up value of allow any oui");
    return false;
  }
  if (!Fetch(vnet, NXC_NAT_PARAM_UDP_TIMEOUT, v->udpTimeout, sizeof v->udpTimeout)) {
    NXCLog(LOG_ERR, fn, "Failure in looking up value of timeout");
    return false;
  }
  return true;
}

// Makes the directories and the file of a first configuration, or makes an
// existing file (read into *old) its backup. *created tells which.
[[nodiscard]] bool PrepareFile(uint32_t vnet, bool *created, nxc::FileText *old, const char *fn) {
  const int32_t n = static_cast<int32_t>(vnet);
  if (!NXCFileExists(n, NXC_FILE_NAT_CONF, nullptr)) {
    // A failure here does not stop the writer; opening the file decides.
    if (!NXCCreateFile(n, NXC_FILE_VNET_DIR, nullptr) ||
        !NXCCreateFile(n, NXC_FILE_NAT_DIR, nullptr) ||
        !NXCCreateFile(n, NXC_FILE_NAT_CONF, nullptr))
      NXCLog(LOG_ERR, fn, "Failed to create zynet directory, or NAT directory or NAT config file");
    *created = true;
    return true;
  }
  char path[kPathSize] = "";
  char bakPath[kPathSize] = "";
  if (!NXCGetFileName(n, NXC_FILE_NAT_CONF, path, sizeof path)) {
    NXCLog(LOG_ERR, fn, "Cannot get the NAT config file name");
    return false;
  }
  if (!NXCGetFileName(n, NXC_FILE_NAT_CONF_BAK, bakPath, sizeof bakPath)) {
    NXCLog(LOG_ERR, fn, "Cannot get the NAT config backup file name");
    return false;
  }
  // The old content is read only when the backup has to be a copy.
  if (!nxc::OpenBackupSource(path, old) || !nxc::BackUpBeforeRewrite(old, path, bakPath)) {
    NXCLog(LOG_ERR, fn, "Failed to backup NAT file");
    return false;
  }
  return true;
}

// The [host] section.
[[nodiscard]] bool WriteHostSection(ByteBuffer *out, const NatValues &v, const char *fn) {
  if (!out->AppendString(NXCNATConfigFileHostSectionHeader)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs: failed while writing NAT config file host section header, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileMacOSVirtApiDesc) ||
      !out->AppendPrintf(NXCNATConfigFileMacOSVirtApiParam, NXCIsMacosVirtApiEnabled() ? 1 : 0)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config MacOS virtualization API, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileIPDesc) ||
      !out->AppendPrintf(NXCNATConfigFileIPParam, v.gateway)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs/fprintf: failed while writing NAT config IP gateway, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendPrintf(NXCNATConfigFileNetmaskParam, v.netmask)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fprintf: failed while writing NAT config netmask, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileDeviceDesc) ||
      !out->AppendPrintf(NXCNATConfigFileDeviceParam, v.device)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs/fprintf: failed while writing NAT config device, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileActiveFTPDesc) ||
      !out->AppendPrintf(NXCNATConfigFileActiveFTPParam, v.activeFtp) ||
      !out->AppendString(NXCNATConfigFileAllowAnyOUIDesc) ||
      !out->AppendPrintf(NXCNATConfigFileAllowAnyOUIParam, v.allowAnyOui)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config active FTP value, error: %s",
           strerror(err));
    return false;
  }
  if (v.hostIp[0] != '\0' && (!out->AppendString(NXCNATConfigFileHostIPDesc) ||
                              !out->AppendPrintf(NXCNATConfigFileHostIPParam, v.hostIp))) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs/fprintf: failed while writing NAT config host IP config, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigHostDefaultOptions)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs/fprintf: failed while writing NAT config host options, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileNat6Desc) ||
      !out->AppendPrintf(NXCNATConfigFileNat6Param, v.nat6)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config host nat ipv6 options, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileNat6PrefixDesc) ||
      !out->AppendPrintf(NXCNATConfigFileNat6PrefixParam, v.nat6Prefix)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config host nat ipv6 prefix options, error: %s",
           strerror(err));
    return false;
  }
  return true;
}

// The [tcp], [udp] and [netbios] sections.
[[nodiscard]] bool WriteProtocolSections(ByteBuffer *out, const NatValues &v, const char *fn) {
  if (!out->AppendString(NXCNATConfigFileTCPSectionHeader)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing NAT config TCP sectionheader, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileTCPDefaultOptions)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config TCP default values, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileUDPSectionHeader)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing NAT config UDP sectionheader, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileUDPTimeoutDesc) ||
      !out->AppendPrintf(NXCNATConfigFileUDPTimeoutParam, v.udpTimeout)) {
    int err = errno;
    NXCLog(LOG_ERR, fn,
           "fputs/fprintf: failed while writing NAT config UDP timeout value, error: %s",
           strerror(err));
    return false;
  }
  if (!out->AppendString(NXCNATConfigFileNetbiosSectionHeader) ||
      !out->AppendString(NXCNATConfigNetbiosDefaultOptions)) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing [netbios] NAT config error: %s",
           strerror(err));
    return false;
  }
  return true;
}

// The forward lines of one section, appended to the file's text.
struct ForwardLines {
  // A line: two ports, " = ", an address, ':' and '\n'.
  static constexpr size_t kMaxLine = 5 + 3 + kIPTextSize - 1 + 1 + 5 + 1;
  ByteBuffer *out;
  int error = 0;  // errno of a failed append

  // NXCNATConfigFilePortForwardParam with an empty description.
  static bool Add(void *context, uint16_t hostPort, std::string_view vmIP, uint16_t vmPort) {
    auto *lines = static_cast<ForwardLines *>(context);
    if (lines->out->AppendAll(unsigned{hostPort}, " = "sv, vmIP, ':', unsigned{vmPort}, '\n'))
      return true;
    lines->error = errno;
    return false;
  }
};

// [incomingtcp] and [incomingudp] with one line per forward. Descriptions
// stay in the database.
[[nodiscard]] bool WritePortForwards(uint32_t vnet, ByteBuffer *out, const char *fn) {
  ForwardLines lines{out};
  for (const auto &section : kPortFwdSections) {
    if (!out->AppendString(section.header) || !out->AppendString(section.description)) {
      int err = errno;
      NXCLog(LOG_ERR, fn, "fputs: failed to write NAT config %s portfwd header: %s",
             section.protocol, strerror(err));
      return false;
    }
    if (!nxc::EnumPortForwards(vnet, section.tcp != 0, ForwardLines::Add, &lines)) {
      NXCLog(LOG_ERR, fn, "fprintf: failed to write NAT config %s portfwd values: %s",
             section.protocol, strerror(lines.error));
      return false;
    }
  }
  return true;
}

// More than the file takes besides its forward lines.
constexpr size_t kFixedTextRoom = 4096;

// Opens nat.conf afresh and writes it whole.
// The file it replaces (old) passes its owner and mode on.
[[nodiscard]]
bool WriteNatConf(uint32_t vnet, const NatValues &v, const nxc::FileText &old, const char *fn) {
  char path[kPathSize] = "";
  if (!NXCGetFileName(static_cast<int32_t>(vnet), NXC_FILE_NAT_CONF, path, sizeof path)) {
    NXCLog(LOG_ERR, fn, "Cannot get the NAT config file name");
    return false;
  }
  UniqueFile file(fopen(path, "we"));
  if (!file) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fopen: failed to open NAT config file, error: %s", strerror(err));
    return false;
  }
  nxc::TakeOverOwnerAndMode(fileno(file.get()), old);
  // The file is made whole in memory, its last newline included, and
  // written in one piece. Room for all of it at once spares the copies of
  // a buffer that grows as it goes; without that room it still grows.
  ByteBuffer text;
  (void)text.Reserve(kFixedTextRoom + ForwardLines::kMaxLine * (nxc::PortForwardCount(vnet, true) +
                                                                  nxc::PortForwardCount(vnet, false)));
  if (!text.AppendString(NXCNATConfigFileHeader) ||
      !WriteHostSection(&text, v, fn) || !WriteProtocolSections(&text, v, fn) ||
      !WritePortForwards(vnet, &text, fn) || !text.AppendAll('\n')) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing NAT config file header, error: %s",
           strerror(err));
    return false;
  }
  const size_t written = fwrite(text.Data(), 1, text.Size(), file.get());
  if (written + 1 < text.Size()) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing NAT config file header, error: %s",
           strerror(err));
    return false;
  }
  // The file is complete without its last newline: a failure is only logged.
  if (written < text.Size()) {
    int err = errno;
    NXCLog(LOG_ERR, fn, "fputs: failed while writing, error: %s", strerror(err));
  }
  return true;
}

}  // namespace

extern "C" bool NXCNATUpdateFromConfig(uint32_t vnet) noexcept {
  static constexpr char kFn[] = "NXCNATUpdateFromConfig";
  InternalEnter(kFn, __LINE__);
  if (!NXCGetVnetUseNAT(vnet)) return InternalExit(kFn, __LINE__, RemoveNatFiles(vnet, kFn));
  NatValues values;
  if (!FetchValues(vnet, &values, kFn)) return InternalExit(kFn, __LINE__, false);
  bool created = false;
  nxc::FileText old;
  if (!PrepareFile(vnet, &created, &old, kFn)) return InternalExit(kFn, __LINE__, false);
  if (!WriteNatConf(vnet, values, old, kFn)) {
    // An existing file stays as far as it got; the backup has its old content.
    if (created) {
      NXCLog(LOG_ERR, kFn, "Removing newly created NAT directory and config file");
      (void)NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_NAT_CONF, nullptr);
      (void)NXCRemoveFile(static_cast<int32_t>(vnet), NXC_FILE_NAT_DIR, nullptr);
    }
    return InternalExit(kFn, __LINE__, false);
  }
  return InternalExit(kFn, __LINE__, true);
}
